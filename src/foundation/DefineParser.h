#ifndef QLMAIL_FOUNDATION_DEFINEPARSER_H
#define QLMAIL_FOUNDATION_DEFINEPARSER_H

#include "foundation/QLExport.h"

#include <string>

class QLMAIL_EXPORT CDefineParser {
public:
    static std::string GetVersion();
};

#endif

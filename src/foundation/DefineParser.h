#ifndef QLMAIL_FOUNDATION_DEFINEPARSER_H
#define QLMAIL_FOUNDATION_DEFINEPARSER_H

#include "foundation/QLExport.h"

#include <string>

/// The library's version.
class QLMAIL_EXPORT CDefineParser {
public:
    /// "1.00.0032": the version of this interface, as the stored format strings know it.
    static std::string GetVersion();
};

#endif

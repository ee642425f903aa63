#ifndef QLMAIL_FOUNDATION_DEFINEPARSER_H
#define QLMAIL_FOUNDATION_DEFINEPARSER_H

#include <string>

class CDefineParser {
public:
    static std::string GetVersion();
};

#endif

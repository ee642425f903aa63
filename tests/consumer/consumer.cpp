// Built against the installed tree only: proves that headers, library and package files fit.
#include "foundation/DefineParser.h"
#include "foundation/QLStringParser.h"

#include <cstdio>

int main() {
    CQLStringParser str;
    if (CDefineParser::GetVersion() != "1.00.0032" || str.ToUpper("qlmail") != "QLMAIL") {
        std::puts("consumer: unexpected result");
        return 1;
    }
    std::printf("consumer: qlmail %s\n", CDefineParser::GetVersion().c_str());
    return 0;
}

// Built against the installed tree only: proves that headers, library and package files fit.
#include "foundation/DefineParser.h"
#include "foundation/QLStringParser.h"
#include "mime/QLMimeMsg.h"

#include <cstdio>
#include <string>

int main() {
    CQLStringParser str;
    if (CDefineParser::GetVersion() != "1.00.0032" || str.ToUpper("qlmail") != "QLMAIL") {
        std::puts("consumer: unexpected result");
        return 1;
    }
    CQLMimeMsg msg;
    if (!msg.Open("From: a\r\n\r\nhello\r\n", false) ||
        msg.GetFormat() != std::string("0,9,11,18,0,9,11,18,,0,0,7,1,,,,,\x05")) {
        std::puts("consumer: unexpected format string");
        return 1;
    }
    std::printf("consumer: qlmail %s\n", CDefineParser::GetVersion().c_str());
    return 0;
}

// qlmail: command-line front end of the library.
#include "foundation/DefineParser.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

const char* const kUsage = "usage: qlmail [--version | --help]\n"
                           "\n"
                           "  --version    print the library version\n"
                           "  --help       print this text\n";

int Usage(const std::string& strWhy) {
    std::fprintf(stderr, "qlmail: %s (try --help)\n", strWhy.c_str());
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage("no command given");
    const std::string strCmd = argv[1];
    if (strCmd == "--help" || strCmd == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (strCmd == "--version") {
        std::printf("qlmail %s\n", CDefineParser::GetVersion().c_str());
        return 0;
    }
    return Usage("unknown command '" + strCmd + "'");
}

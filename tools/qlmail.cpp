// qlmail: command-line front end of the library.
#include "codec/QLCodecParser.h"
#include "foundation/DefineParser.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
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

std::string ReadStdin() {
    std::cin >> std::noskipws;
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
}

int Decode(const std::string& strCmd) {
    CQLCodecParser codec;
    const std::string strIn = ReadStdin();
    const std::string strOut =
        strCmd == "b64" ? codec.DecodeB64(strIn, true) : codec.DecodeQP(strIn, true);
    std::fwrite(strOut.data(), 1, strOut.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
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
    if (strCmd == "b64" || strCmd == "qp") {
        if (argc > 2) return Usage(strCmd + " takes no argument");
        return Decode(strCmd);
    }
    return Usage("unknown command '" + strCmd + "'");
}

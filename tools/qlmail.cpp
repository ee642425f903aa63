// qlmail: command-line front end of the library. This file holds the usage text and the
// dispatch; the commands live in files of their own, by family.
#include "MessageCommands.h"
#include "ToolCommon.h"

#include "foundation/DefineParser.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

const char* const kUsage =
    "usage: qlmail COMMAND [ARGS]\n"
    "\n"
    "  parts [--json] FILE    list the parts of a message: number (\"top\" for the message\n"
    "                         itself), type, encoding, the eight byte offsets, lines, charset,\n"
    "                         Content-ID and file name. Offsets are start,end pairs: HSO,HEO\n"
    "                         the message header (top only), TSO,TEO the range of a multipart\n"
    "                         or of the whole message, MSO,MEO the part's own header block,\n"
    "                         BSO,BEO its body\n"
    "  format [--json] FILE   print the format string of a message: one record per part, each\n"
    "                         ended by the byte 0x05. A store keeps these bytes unchanged\n"
    "                         beside the message to read it later without parsing it again\n"
    "  b64                    decode base64 from standard input to standard output\n"
    "  qp                     decode quoted-printable from standard input to standard output\n"
    "  --version              print the library version\n"
    "  --help                 print this text\n"
    "\n"
    "Exit codes: 0 success, 1 failure, 2 bad usage.\n";

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage("no command given");
    const std::string strCmd = argv[1];
    const std::vector<std::string> vArgs(argv + 2, argv + argc);
    if (strCmd == "--help" || strCmd == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (strCmd == "--version") {
        std::printf("qlmail %s\n", CDefineParser::GetVersion().c_str());
        return 0;
    }
    if (strCmd == "b64" || strCmd == "qp") {
        if (!vArgs.empty()) return Usage(strCmd + " takes no argument");
        return DecodeCommand(strCmd);
    }
    if (strCmd == "parts" || strCmd == "format") return MessageCommand(strCmd, vArgs);
    return Usage("unknown command '" + strCmd + "'");
}

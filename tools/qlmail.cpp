// qlmail: command-line front end of the library. This file holds the usage text and the
// dispatch; the commands live in files of their own, by family.
#include "MessageCommands.h"
#include "ReadCommands.h"
#include "RewriteCommands.h"
#include "ToolCommon.h"

#include "foundation/DefineParser.h"
#include "foundation/QLExceptionParser.h"

#include <cstdio>
#include <exception>
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
    "\n"
    "Reading a stored message. FILE is the message; its format string is read from\n"
    "FILE.fmt when that is not older than FILE, or from F with --format F; otherwise the\n"
    "message is parsed once in memory and nothing is written. Charsets (CS) are names the\n"
    "converter knows (UTF-8, EUC-KR, ISO-2022-JP...). Text without a charset of its own, in a\n"
    "message without one, is read as UTF-8 when it is valid UTF-8 and as ISO-8859-1\n"
    "otherwise (the default charset autodetect_utf8).\n"
    "\n"
    "  header FILE            print the message's header block as it stands\n"
    "  header FILE NAME [--decode] [--to CS] [--default-charset CS]\n"
    "                         print the value of the field NAME (the first one, any case) as\n"
    "                         it stands, folding included; --decode decodes its encoded words\n"
    "                         into CS (default UTF-8), raw 8-bit text being taken to be in the\n"
    "                         message's charset, else in the default charset\n"
    "  text FILE [--html] [--to CS] [--default-charset CS] [--force-charset CS] [--raw]\n"
    "                         print the message's text/plain parts (--html: its text/html\n"
    "                         parts) in CS (default UTF-8), joined by twenty hyphens (by <hr>).\n"
    "                         Each part is read in its own charset, else the message's, else\n"
    "                         the default charset; --force-charset takes CS for every part\n"
    "                         instead. --raw leaves the transfer encoding undone\n"
    "  attachments FILE [--inline] [--json]\n"
    "                         list the attachments: part number, type, encoding, decoded size\n"
    "                         and file name; --inline lists the inline images with their\n"
    "                         Content-ID instead\n"
    "  extract FILE PART [-o OUT]\n"
    "                         write the decoded body of a part to OUT (through a temporary\n"
    "                         file beside it, so that a failure leaves no part file) or to\n"
    "                         standard output. PART is a number as parts prints it (1.2. or\n"
    "                         1.2, top for the message itself): any part, not only those that\n"
    "                         attachments lists. Line ends of a part that is not base64 come\n"
    "                         out as CR LF\n"
    "  index [--jobs N] [--force] PATH...\n"
    "                         write FILE.fmt beside every message: PATH is a message or a\n"
    "                         folder, walked recursively (hidden entries, links, special files\n"
    "                         and .fmt files are left out). A message whose FILE.fmt is not\n"
    "                         older than it is skipped, unless --force. N threads (default: one\n"
    "                         per core); each FILE.fmt is written under a temporary name and\n"
    "                         renamed. Prints a summary (indexed, skipped, failed, MB/s), names\n"
    "                         each failure on standard error, and fails if any message failed\n"
    "\n";

const char* const kUsageEnd = "\n"
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
        std::fputs(kRewriteUsage, stdout);
        std::fputs(kUsageEnd, stdout);
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
    // What the library throws past its operations ends the command with its text.
    try {
        if (strCmd == "parts" || strCmd == "format") return MessageCommand(strCmd, vArgs);
        if (strCmd == "header") return HeaderCommand(vArgs);
        if (strCmd == "text") return TextCommand(vArgs);
        if (IsRewriteCommand(strCmd, vArgs)) return RewriteCommand(strCmd, vArgs);
        if (strCmd == "attachments") return AttachmentsCommand(vArgs);
        if (strCmd == "extract") return ExtractCommand(vArgs);
        if (strCmd == "index") return IndexCommand(vArgs);
    } catch (CQLExceptionParser& e) {
        return Fail(e.GetLastError());
    } catch (std::exception& e) {
        return Fail(e.what());
    }
    return Usage("unknown command '" + strCmd + "'");
}

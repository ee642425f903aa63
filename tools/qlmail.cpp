// qlmail: command-line front end of the library.
#include "RewriteCommands.h"
#include "ToolText.h"
#include "codec/QLCodecParser.h"
#include "foundation/DefineParser.h"
#include "mime/QLMimeMsg.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>
#include <sys/stat.h>
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
    "\n";

const char* const kUsageEnd = "\nExit codes: 0 success, 1 failure, 2 bad usage.\n";

int Usage(const std::string& strWhy) {
    std::fprintf(stderr, "qlmail: %s (try --help)\n", strWhy.c_str());
    return 2;
}

int Fail(const std::string& strWhy) {
    std::fprintf(stderr, "qlmail: %s\n", strWhy.c_str());
    return 1;
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

std::string TypeName(int nCT) {
    if (nCT >= 0 && nCT < CQLMimeConst::CT_UNKNOWN) return CQLMimeConst::m_szMIMEType[nCT];
    return "unknown";
}

std::string SubTypeName(int nSubCT) {
    if (nSubCT == CQLMimeConst::MS_TNEF) return "ms-tnef";
    if (nSubCT >= 0 && nSubCT <= CQLMimeConst::RFC822) return CQLMimeConst::m_szSubMIMEType[nSubCT];
    return "unknown";
}

std::string EncodingName(int nEncoder) {
    switch (nEncoder) {
    case CQLMimeConst::ENCODER_7BIT:
        return "7bit";
    case CQLMimeConst::ENCODER_8BIT:
        return "8bit";
    case CQLMimeConst::ENCODER_BASE64:
        return "base64";
    case CQLMimeConst::ENCODER_QP:
        return "quoted-printable";
    case CQLMimeConst::ENCODER_BINARY:
        return "binary";
    default:
        return "unknown";
    }
}

void PrintParts(const CQLMimeMsg& msg, const std::string& strPath, bool bJson) {
    if (!bJson) {
        std::printf("# part\ttype\tencoding\tHSO,HEO,TSO,TEO,MSO,MEO,BSO,BEO\tlines\tcharset\t"
                    "content-id\tfilename\n");
        for (const CQLMimeMsg* p : msg) {
            std::printf("%s\t%s/%s\t%s\t%u,%u,%u,%u,%u,%u,%u,%u\t%d\t%s\t%s\t%s\n",
                        PartName(p->m_strDepth).c_str(), TypeName(p->m_CT).c_str(),
                        SubTypeName(p->m_SubCT).c_str(), EncodingName(p->m_Encoder).c_str(),
                        p->m_nHSO, p->m_nHEO, p->m_nTSO, p->m_nTEO, p->m_nMSO, p->m_nMEO, p->m_nBSO,
                        p->m_nBEO, p->m_nLineCnt, Printable(p->m_strCharSet).c_str(),
                        Printable(p->m_strCID).c_str(), Printable(p->m_strFilename).c_str());
        }
        return;
    }
    std::string strOut = "{\"file\": " + Json(strPath) + ", \"parts\": [";
    bool bFirst = true;
    for (const CQLMimeMsg* p : msg) {
        char szOffsets[256];
        std::snprintf(szOffsets, sizeof(szOffsets),
                      "{\"HSO\": %u, \"HEO\": %u, \"TSO\": %u, \"TEO\": %u, \"MSO\": %u, "
                      "\"MEO\": %u, \"BSO\": %u, \"BEO\": %u}",
                      p->m_nHSO, p->m_nHEO, p->m_nTSO, p->m_nTEO, p->m_nMSO, p->m_nMEO, p->m_nBSO,
                      p->m_nBEO);
        strOut += bFirst ? "\n  " : ",\n  ";
        bFirst = false;
        strOut += "{\"number\": " + Json(PartName(p->m_strDepth)) +
                  ", \"type\": " + Json(TypeName(p->m_CT)) +
                  ", \"subtype\": " + Json(SubTypeName(p->m_SubCT)) +
                  ", \"encoding\": " + Json(EncodingName(p->m_Encoder)) +
                  ", \"offsets\": " + szOffsets + ", \"lines\": " + std::to_string(p->m_nLineCnt) +
                  ", \"charset\": " + Json(p->m_strCharSet) + ", \"cid\": " + Json(p->m_strCID) +
                  ", \"filename\": " + Json(p->m_strFilename) + "}";
    }
    strOut += "\n]}\n";
    std::fwrite(strOut.data(), 1, strOut.size(), stdout);
}

int MessageCommand(const std::string& strCmd, int argc, char** argv) {
    bool bJson = false;
    std::vector<std::string> vArgs;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0)
            bJson = true;
        else
            vArgs.push_back(argv[i]);
    }
    if (vArgs.size() != 1) return Usage(strCmd + " takes one FILE");
    const std::string& strPath = vArgs[0];
    struct stat st;
    if (stat(strPath.c_str(), &st) != 0) return Fail(strPath + ": " + std::strerror(errno));
    if (!S_ISREG(st.st_mode)) return Fail(strPath + ": not a regular file");

    CQLMimeMsg msg;
    const bool bOpen = msg.Open(strPath, true);
    if (msg.empty()) return Fail(strPath + ": " + msg.GetLastError());
    if (strCmd == "parts") {
        PrintParts(msg, strPath, bJson);
    } else {
        const std::string strFormat = msg.GetFormat();
        if (bJson) {
            const std::string strOut =
                "{\"file\": " + Json(strPath) + ", \"format\": " + Json(strFormat) + "}\n";
            std::fwrite(strOut.data(), 1, strOut.size(), stdout);
        } else {
            std::fwrite(strFormat.data(), 1, strFormat.size(), stdout);
        }
    }
    if (std::fflush(stdout) != 0) return Fail("cannot write the output");
    // More entities than the parser takes: the list is printed, the message is not whole.
    if (!bOpen) return Fail(strPath + ": " + msg.GetLastError());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage("no command given");
    const std::string strCmd = argv[1];
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
        if (argc > 2) return Usage(strCmd + " takes no argument");
        return Decode(strCmd);
    }
    if (strCmd == "parts" || strCmd == "format") return MessageCommand(strCmd, argc, argv);
    if (IsRewriteCommand(strCmd, argc, argv)) return RunRewriteCommand(strCmd, argc, argv);
    return Usage("unknown command '" + strCmd + "'");
}

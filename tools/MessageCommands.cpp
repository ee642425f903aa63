#include "MessageCommands.h"

#include "ToolCommon.h"

#include "codec/QLCodecParser.h"
#include "mime/QLMimeMsg.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <sys/stat.h>

namespace {

std::string ReadStdin() {
    std::cin >> std::noskipws;
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
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

} // namespace

int DecodeCommand(const std::string& strCmd) {
    CQLCodecParser codec;
    const std::string strIn = ReadStdin();
    const std::string strOut =
        strCmd == "b64" ? codec.DecodeB64(strIn, true) : codec.DecodeQP(strIn, true);
    std::fwrite(strOut.data(), 1, strOut.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
}

int MessageCommand(const std::string& strCmd, const std::vector<std::string>& vArgs) {
    bool bJson = false;
    std::vector<std::string> vFiles;
    for (const std::string& strArg : vArgs) {
        if (strArg == "--json")
            bJson = true;
        else
            vFiles.push_back(strArg);
    }
    if (vFiles.size() != 1) return Usage(strCmd + " takes one FILE");
    const std::string& strPath = vFiles[0];
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

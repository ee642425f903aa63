// A stored message read back through its format string, with both as damaged or stale as
// storage may hand them back: every reading operation runs, streaming included.
//
// Input layout: one control byte, then the format part up to the first NUL byte, then the
// message. Control bit 0 set: the format string is the message's own, as parsing its file
// writes it, edited by the format part read as 3-byte edits (two bytes of position, one of
// value; a shorter rest is appended). Bit 0 clear: the format part is the format string.
// Bit 1 set: the file is cut to half its length after the format string is made. Bits 2 to 4
// and 5 to 7 choose the default and the forced charset.
#include "FuzzCommon.h"
#include "reader/QLMimeMsgInfo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

const char* const kCharsets[] = {"",          "euc-kr",   "UTF-8",         "ISO-2022-KR",
                                 "x-unknown", "iso-8859", "autodetect_kr", "no-such-charset"};

char g_szDir[] = "/tmp/qlmail-fuzz-read-XXXXXX";

void RemoveDir() {
    unlink((std::string(g_szDir) + "/message.eml").c_str());
    rmdir(g_szDir);
}

// One message file for the whole process, in a directory of its own.
const std::string& MessagePath() {
    static const std::string strPath = [] {
        if (mkdtemp(g_szDir) == nullptr) std::abort();
        atexit(RemoveDir);
        return std::string(g_szDir) + "/message.eml";
    }();
    return strPath;
}

void WriteFile(const std::string& strPath, const std::string& strData) {
    FILE* pFile = fopen(strPath.c_str(), "wb");
    if (pFile == nullptr) std::abort();
    if (!strData.empty() && fwrite(strData.data(), 1, strData.size(), pFile) != strData.size())
        std::abort();
    fclose(pFile);
}

std::string EditedOwnFormat(const std::string& strPath, const std::string& strEdits) {
    CQLMimeMsg msg;
    msg.Open(strPath, true);
    std::string strFormat = msg.GetFormat();
    size_t i = 0;
    for (; i + 3 <= strEdits.size(); i += 3) {
        if (strFormat.empty()) break;
        const size_t nPos = (static_cast<unsigned char>(strEdits[i]) << 8 |
                             static_cast<unsigned char>(strEdits[i + 1])) %
                            strFormat.size();
        strFormat[nPos] = strEdits[i + 2];
    }
    if (i < strEdits.size()) strFormat += strEdits.substr(i);
    return strFormat;
}

// Streams a part to its end; a read error or an exhausted decoder may leave by exception.
void Stream(CQLMimeMsgInfo& info, const CQLMimeAttachInfo& a) {
    for (bool bDecode : {true, false}) {
        try {
            info.GetAttachContentSize(a, bDecode);
            if (!info.OpenAttach(a)) continue;
            std::string strBlock;
            while (info.GetAttachContentNext(strBlock, bDecode)) {
            }
        } catch (const CQLExceptionParser&) {
        }
        info.CloseAttach();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    AbortOnPlantedInput(pData, nSize);
    if (nSize == 0) return 0;
    const unsigned char cControl = pData[0];
    const char* pRest = reinterpret_cast<const char*>(pData + 1);
    const size_t nRest = nSize - 1;
    const char* pNul = static_cast<const char*>(memchr(pRest, '\0', nRest));
    const size_t nFormat = pNul ? static_cast<size_t>(pNul - pRest) : nRest;
    const std::string strFormatPart(pRest, nFormat);
    const std::string strMessage = pNul ? std::string(pNul + 1, pRest + nRest) : std::string();

    const std::string& strPath = MessagePath();
    WriteFile(strPath, strMessage);
    const std::string strFormat =
        (cControl & 1) ? EditedOwnFormat(strPath, strFormatPart) : strFormatPart;
    if (cControl & 2) WriteFile(strPath, strMessage.substr(0, strMessage.size() / 2));
    const std::string strDefault = kCharsets[(cControl >> 2) & 7];
    const std::string strForce = kCharsets[(cControl >> 5) & 7];

    CQLMimeMsgInfo info(strFormat);
    if (!info.SetEmlPath(strPath)) return 0;
    std::string strOut;
    info.GetHeader(strOut, "");
    for (const char* pszName : {"Subject", "From", "To", "Date"})
        for (bool bDecode : {false, true})
            info.GetHeaderValue(pszName, strOut, bDecode, strDefault, "UTF-8", "");
    for (bool bHtml : {false, true})
        for (bool bDecode : {true, false})
            info.GetText(strOut, bHtml, strDefault, strForce, "UTF-8", bDecode, "");
    bool bMixed = false;
    info.IsRelated(bMixed);
    info.IsTNEF();

    CQLMimeAttachInfo a;
    info.InitAttachCursor();
    while (info.GetNextAttach(a, strDefault, "UTF-8", "")) Stream(info, a);
    info.InitAttachCursor();
    while (info.GetNextCID(a, strDefault, "UTF-8", "")) Stream(info, a);
    return 0;
}

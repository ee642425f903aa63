#include "ToolText.h"

#include <cstdio>

std::string Printable(const std::string& strText) {
    std::string strOut;
    for (unsigned char c : strText) {
        if (c == '\\')
            strOut += "\\\\";
        else if (c == '\n')
            strOut += "\\n";
        else if (c == '\r')
            strOut += "\\r";
        else if (c == '\t')
            strOut += "\\t";
        else if (c < 0x20 || c == 0x7F) {
            char szHex[8];
            std::snprintf(szHex, sizeof(szHex), "\\x%02X", c);
            strOut += szHex;
        } else
            strOut += static_cast<char>(c);
    }
    return strOut.empty() ? "-" : strOut;
}

namespace {

// Length of a valid UTF-8 sequence at p, or 0.
size_t Utf8Length(const unsigned char* p, size_t nLeft) {
    const unsigned char c = p[0];
    size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || n > nLeft) return 0;
    for (size_t i = 1; i < n; ++i)
        if ((p[i] & 0xC0) != 0x80) return 0;
    return n;
}

} // namespace

std::string Json(const std::string& strText) {
    std::string strOut = "\"";
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strText.data());
    const size_t nLen = strText.size();
    for (size_t i = 0; i < nLen;) {
        const unsigned char c = p[i];
        const size_t n = Utf8Length(p + i, nLen - i);
        if (c == '"' || c == '\\') {
            strOut += '\\';
            strOut += static_cast<char>(c);
        } else if (c == '\n') {
            strOut += "\\n";
        } else if (c == '\r') {
            strOut += "\\r";
        } else if (c == '\t') {
            strOut += "\\t";
        } else if (c < 0x20 || c == 0x7F || n == 0) {
            char szHex[8];
            std::snprintf(szHex, sizeof(szHex), "\\u%04X", c);
            strOut += szHex;
        } else {
            strOut.append(strText, i, n);
            i += n;
            continue;
        }
        ++i;
    }
    return strOut + "\"";
}

std::string PartName(const std::string& strDepth) {
    return strDepth.empty() ? "top" : strDepth;
}

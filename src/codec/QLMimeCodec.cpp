#include "codec/QLMimeCodec.h"

#include <cstring>

namespace {

inline bool IsUrlSafe(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' ||
           c == '@' || c == '_' || c == '/' || c == '-';
}

constexpr char kHexLower[] = "0123456789abcdef";

} // namespace

std::string CQLMimeCodec::URLDecode(const char* pszText) {
    if (pszText == nullptr) return std::string();
    const size_t n = strlen(pszText);
    std::string strOut(n, '\0');
    char* const pOutBase = &strOut[0];
    char* o = pOutBase;
    for (size_t i = 0; i < n;) {
        const char c = pszText[i];
        if (c == '+') {
            *o++ = ' ';
            ++i;
        } else if (c == '%' && i + 2 < n) {
            // Digits are not validated: any byte gives its arithmetical value. Bytes compare
            // as signed, so 0x80 and above count as "not a letter".
            const signed char h = static_cast<signed char>(pszText[i + 1]);
            const signed char l = static_cast<signed char>(pszText[i + 2]);
            int nHigh = h * 16;
            if (h > 64) nHigh -= 112;
            const int nLow = l > 64 ? (l & ~0x20) - 55 : l - 48;
            *o++ = static_cast<char>(static_cast<unsigned>(nHigh + nLow) & 0xFFu);
            i += 3;
        } else {
            // A "%" with fewer than two bytes behind it stays as it is.
            *o++ = c;
            ++i;
        }
    }
    strOut.resize(static_cast<size_t>(o - pOutBase));
    return strOut;
}

std::string CQLMimeCodec::URLEncode(const char* pszText) {
    if (pszText == nullptr) return std::string();
    const size_t n = strlen(pszText);
    std::string strOut(3 * n, '\0');
    char* const pOutBase = &strOut[0];
    char* o = pOutBase;
    for (size_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(pszText[i]);
        if (IsUrlSafe(c)) {
            *o++ = static_cast<char>(c);
        } else {
            o[0] = '%';
            o[1] = kHexLower[c >> 4];
            o[2] = kHexLower[c & 0x0F];
            o += 3;
        }
    }
    strOut.resize(static_cast<size_t>(o - pOutBase));
    return strOut;
}

std::string CQLMimeCodec::DecParam(const std::string& strText) {
    return URLDecode(strText.c_str());
}

std::string CQLMimeCodec::EncParam(const std::string& strName, const std::string& strValue,
                                   const std::string& strCharset, int nLimit) {
    const std::string strHead = strName + "*0*=" + strCharset + "''" + URLEncode(strValue.c_str());
    const size_t n = strHead.size();
    std::string strOut;
    strOut.reserve(n + n / 8 + 16);
    // One character: after "9" the numbers run on as ":", ";" and so on. Readers of stored
    // messages expect exactly that.
    unsigned char cSegment = '0';
    long nCount = 0;
    for (size_t i = 0; i < n;) {
        if (nCount != nLimit) {
            strOut += strHead[i++];
            ++nCount;
            continue;
        }
        ++cSegment;
        // Keep a "%xx" escape whole by cutting just before its "%". When the "%" is two bytes
        // on, the two bytes before it are written on both sides of the cut.
        if (strHead[i] != '%') {
            if (i + 1 < n && strHead[i + 1] == '%') {
                strOut += strHead[i++];
            } else if (i + 2 < n && strHead[i + 2] == '%') {
                strOut += strHead[i];
                strOut += strHead[i + 1];
            }
        }
        strOut += "\r\n\t";
        strOut += strName;
        strOut += '*';
        strOut += static_cast<char>(cSegment);
        strOut += "*=";
        strOut += strHead[i++];
        nCount = 0;
    }
    return strOut;
}

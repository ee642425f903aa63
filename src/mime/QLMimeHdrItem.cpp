#include "mime/QLMimeHdrItem.h"

#include "codec/QLCodecParser.h"
#include "codec/QLMimeCodec.h"
#include "foundation/QLStringParser.h"

#include <cstring>
#include <strings.h>
#include <vector>

namespace {

// Folded parameter values lose their line breaks and the white space that begins a
// continuation line.
std::string Unfold(const std::string& strValue) {
    std::string strOut;
    strOut.reserve(strValue.size());
    bool bBreak = false;
    for (char c : strValue) {
        if (c == '\r' || c == '\n') {
            bBreak = true;
        } else if (bBreak && (c == '\t' || c == ' ')) {
        } else {
            strOut += c;
            bBreak = false;
        }
    }
    return strOut;
}

} // namespace

namespace {

inline bool IsTrimByte(char c) {
    return CQLStringParser::m_TableTrim[static_cast<unsigned char>(c)] != 0;
}

// Both-sided white-space trim of [p, p + n) without copying.
inline void TrimView(const char*& p, size_t& n) {
    while (n > 0 && IsTrimByte(*p)) ++p, --n;
    while (n > 0 && IsTrimByte(p[n - 1])) --n;
}

// strncasecmp(copy of [pName, pName + nName), pszName, nLen) == 0.
bool NamePrefixMatches(const char* pName, size_t nName, const char* pszName, size_t nLen) {
    if (nLen <= nName) return strncasecmp(pName, pszName, nLen) == 0;
    const size_t nText = strnlen(pName, nName); // the copy ends at its first NUL
    return strncasecmp(pName, pszName, nText) == 0 && pszName[nText] == '\0';
}

std::string ExtendedParameter(const std::string& strValue, size_t nToken) {
    // This token, trimmed, and everything behind it go to the joiner, as the tokens at every
    // ";" joined again would give it: without a last ";" that ends the value.
    size_t nFrom = 0;
    for (size_t i = 0; i < nToken; ++i) nFrom = strValue.find(';', nFrom) + 1;
    size_t nTo = strValue.find(';', nFrom);
    if (nTo == std::string::npos) nTo = strValue.size();
    std::string strJoined =
        CQLStringParser().Trim(strValue.substr(nFrom, nTo - nFrom), CQLStringParser::TRIM_BOTH);
    size_t nRestEnd = strValue.size();
    if (nRestEnd > nTo && strValue[nRestEnd - 1] == ';') --nRestEnd;
    strJoined.append(strValue, nTo, nRestEnd - nTo);
    CQLCodecParser codec;
    std::string strParamName, strCharset, strLanguage;
    const std::string strRaw =
        codec.DecodeRfc2231(strJoined, strParamName, strCharset, strLanguage);
    CQLMimeCodec mimeCodec;
    const std::string strDecoded = mimeCodec.URLDecode(strRaw.c_str());
    if (strCharset.empty()) return strDecoded;
    const bool bBreakLines = false;
    const int nLineLen = 54;
    return "=?" + strCharset + "?B?" + codec.EncodeB64(strDecoded, bBreakLines, true, nLineLen) +
           "?=";
}

} // namespace

std::string CQLMimeHdrItem::GetParameter(const char* pszName, unsigned int nLen) const {
    if (pszName == nullptr) return std::string();
    const size_t nNameLen = strlen(pszName);
    // Tokens at every ";", quotes not looked at: a quoted value holding ";" is cut there.
    const char* const pEnd = m_strValue.data() + m_strValue.size();
    size_t nToken = 0;
    for (const char* pTok = m_strValue.data(); pTok < pEnd; ++nToken) {
        const char* pSemi = static_cast<const char*>(memchr(pTok, ';', pEnd - pTok));
        const char* pTokEnd = pSemi ? pSemi : pEnd;
        const char* p = pTok;
        size_t n = pTokEnd - pTok;
        pTok = pSemi ? pSemi + 1 : pEnd;
        TrimView(p, n);
        const char* pEq = static_cast<const char*>(memchr(p, '=', n));
        if (pEq == nullptr) continue;
        const char* pName = p;
        size_t nName = pEq - p;
        TrimView(pName, nName);
        // The comparison runs over nLen bytes, as strncasecmp on a copy of the name would,
        // the copy's terminating NUL included.
        if (!NamePrefixMatches(pName, nName, pszName, nLen)) continue;
        if (nName == nNameLen && NamePrefixMatches(pName, nName, pszName, nNameLen + 1)) {
            const char* pValue = pEq + 1;
            size_t nValue = (p + n) - pValue;
            TrimView(pValue, nValue);
            if (memchr(pValue, '\n', nValue) != nullptr) {
                std::string strValue = Unfold(std::string(pValue, nValue));
                CQLStringParser().Trim(strValue, CQLStringParser::TRIM_BOTH, '"');
                return strValue;
            }
            // Quotes trimmed from both ends, as Trim does it; a value of quotes only is empty.
            size_t nFrom = 0;
            while (nFrom < nValue && pValue[nFrom] == '"') ++nFrom;
            while (nValue > nFrom && pValue[nValue - 1] == '"') --nValue;
            return std::string(pValue + nFrom, nValue - nFrom);
        }
        if (nName > nLen && pName[nLen] == '*') return ExtendedParameter(m_strValue, nToken);
    }
    return std::string();
}

std::string CQLMimeHdrItem::GetSubType() const {
    const size_t nSlash = m_strValue.find('/');
    if (nSlash == std::string::npos) return std::string();
    const size_t nSemi = m_strValue.find(';', nSlash + 1);
    if (nSemi == std::string::npos) return std::string();
    return m_strValue.substr(nSlash + 1, nSemi - nSlash - 1);
}

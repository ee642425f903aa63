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

std::string CQLMimeHdrItem::GetParameter(const char* pszName, unsigned int nLen) const {
    if (pszName == nullptr) return std::string();
    CQLStringParser str;
    std::vector<std::string> vTokens;
    // Quotes are not looked at: a quoted value holding ";" is cut there.
    const int nTokens = str.Tokenize(m_strValue, vTokens, ';');
    const size_t nNameLen = strlen(pszName);
    for (int i = 0; i < nTokens; ++i) {
        const std::string strToken = str.Trim(vTokens[i], CQLStringParser::TRIM_BOTH);
        const size_t nEq = strToken.find('=');
        if (nEq == std::string::npos) continue;
        const std::string strName = str.Trim(strToken.substr(0, nEq), CQLStringParser::TRIM_BOTH);
        if (strncasecmp(strName.c_str(), pszName, nLen) != 0) continue;
        if (strName.size() == nNameLen && strcasecmp(strName.c_str(), pszName) == 0) {
            std::string strValue = str.Trim(strToken.substr(nEq + 1), CQLStringParser::TRIM_BOTH);
            if (strValue.find('\n') != std::string::npos) strValue = Unfold(strValue);
            str.Trim(strValue, CQLStringParser::TRIM_BOTH, '"');
            return strValue;
        }
        if (strName.size() > nLen && strName[nLen] == '*') {
            // RFC 2231: this token and all behind it go to the joiner of continuations.
            std::string strJoined = strToken + ";";
            for (int j = i + 1; j < nTokens; ++j) strJoined += vTokens[j] + ";";
            strJoined.erase(strJoined.size() - 1);
            CQLCodecParser codec;
            std::string strParamName, strCharset, strLanguage;
            const std::string strRaw =
                codec.DecodeRfc2231(strJoined, strParamName, strCharset, strLanguage);
            CQLMimeCodec mimeCodec;
            const std::string strValue = mimeCodec.URLDecode(strRaw.c_str());
            if (strCharset.empty()) return strValue;
            const bool bBreakLines = false;
            const int nLineLen = 54;
            return "=?" + strCharset + "?B?" +
                   codec.EncodeB64(strValue, bBreakLines, true, nLineLen) + "?=";
        }
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

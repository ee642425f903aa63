#include "foundation/QLStringParser.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

constexpr const auto& kUpper = CQLStringParser::m_TableUpper;
constexpr const auto& kLower = CQLStringParser::m_TableLower;
constexpr const auto& kTrim = CQLStringParser::m_TableTrim;

inline unsigned char U(char c) {
    return static_cast<unsigned char>(c);
}

// Folds a byte below 128 to upper case; higher bytes stand as they are.
inline unsigned char FoldAscii(char c) {
    unsigned char b = U(c);
    return b < 128 ? kUpper[b] : b;
}

std::string MapCase(const std::string& strText, const std::array<unsigned char, 256>& table) {
    const int nLen = static_cast<int>(strText.size());
    if (nLen < 1) return std::string();
    std::string strResult(strText);
    // Wider than the length, so that stepping two past a high last byte cannot overflow.
    for (long long i = 0; i < nLen;) {
        unsigned char b = U(strResult[i]);
        if (b < 128) {
            strResult[i] = static_cast<char>(table[b]);
            i += 1;
        } else {
            i += 2; // the trail byte of a double-byte character keeps its case
        }
    }
    return strResult;
}

} // namespace

std::string CQLStringParser::ToLower(const std::string& strText) {
    return MapCase(strText, kLower);
}

std::string CQLStringParser::ToUpper(const std::string& strText) {
    return MapCase(strText, kUpper);
}

std::string CQLStringParser::Trim(const std::string& strText, TRIM_DIRECTION eDirection) {
    const size_t n = strText.size();
    if (n == 0) return std::string();
    size_t nStart = 0, nEnd = n;
    if (eDirection == TRIM_LEFT || eDirection == TRIM_BOTH) {
        while (nStart < n && kTrim[U(strText[nStart])]) ++nStart;
    }
    if (eDirection == TRIM_RIGHT || eDirection == TRIM_BOTH) {
        size_t k = n;
        while (k > 0 && kTrim[U(strText[k - 1])]) --k;
        // All white space: the end stays where it was, so TRIM_RIGHT returns the text unchanged.
        nEnd = (k == 0) ? n : k;
    }
    if (nStart >= nEnd) return std::string();
    return strText.substr(nStart, nEnd - nStart);
}

void CQLStringParser::Trim(std::string& strText, TRIM_DIRECTION eDirection, char c) {
    if (strText.empty() || c == '\0') return;
    const size_t n = strText.size();
    size_t nStart = 0, nEnd = 0;
    if (eDirection == TRIM_LEFT || eDirection == TRIM_BOTH) {
        while (nStart < n && strText[nStart] == c) ++nStart;
    }
    if (eDirection == TRIM_RIGHT || eDirection == TRIM_BOTH) {
        size_t p = strText.find_last_not_of(c);
        nEnd = (p == std::string::npos) ? 0 : p + 1;
    }
    // Under TRIM_LEFT the end is never set: the count wraps to "all the rest" when something
    // was skipped, and is 0 (nothing kept) when nothing was.
    const size_t nCount = nEnd - nStart;
    // In place: the same text substr(nStart, nCount) would give.
    if (nCount < n - nStart) strText.resize(nStart + nCount);
    strText.erase(0, nStart);
}

std::string CQLStringParser::ReplaceAll(const std::string& strText, const std::string& strFrom,
                                        const std::string& strTo) {
    if (strText.empty()) return std::string();
    if (strFrom.empty()) return strText; // an empty pattern would never advance
    std::string strResult;
    strResult.reserve(strText.size());
    size_t nPos = 0;
    for (;;) {
        size_t nHit = strText.find(strFrom, nPos);
        if (nHit == std::string::npos) break;
        strResult.append(strText, nPos, nHit - nPos);
        strResult += strTo;
        nPos = nHit + strFrom.size();
    }
    strResult.append(strText, nPos, std::string::npos);
    return strResult;
}

int CQLStringParser::Tokenize(const std::string& strText, std::vector<std::string>& vTokens,
                              const std::string& strDelims) {
    vTokens.clear();
    const size_t n = strText.size();
    if (n == 0) return 0;
    bool bDelim[256] = {false};
    for (char c : strDelims) bDelim[U(c)] = true;
    size_t nStart = 0;
    for (size_t i = 0; i < n; ++i) {
        if (!bDelim[U(strText[i])]) continue;
        vTokens.emplace_back(strText, nStart, i - nStart);
        nStart = i + 1;
        if (nStart >= n) return static_cast<int>(vTokens.size()); // trailing delimiter
    }
    vTokens.emplace_back(strText, nStart, std::string::npos);
    return static_cast<int>(vTokens.size());
}

int CQLStringParser::Tokenize(const std::string& strText, std::vector<std::string>& vTokens,
                              const char& cDelim) {
    return Tokenize(strText, vTokens, std::string(1, cDelim));
}

unsigned long CQLStringParser::Search(const std::string& strText, const std::string& strFind,
                                      unsigned long nOffset, bool bIgnoreCase) {
    const unsigned long nNotFound = static_cast<unsigned long>(-1);
    const size_t nText = strText.size(), nFind = strFind.size();
    if (nText == 0 || nFind == 0 || nOffset > nText || nText < nFind) return nNotFound;
    if (!bIgnoreCase) {
        // The offset only counts in the checks above.
        size_t nHit = strText.find(strFind);
        return nHit == std::string::npos ? nNotFound : nHit;
    }
    for (size_t p = nOffset; p + nFind <= nText; ++p) {
        size_t k = 0;
        while (k < nFind && FoldAscii(strText[p + k]) == FoldAscii(strFind[k])) ++k;
        if (k == nFind) return p;
    }
    return nNotFound;
}

unsigned long CQLStringParser::Search(const char* pText, unsigned long nTextLen, const char* pFind,
                                      unsigned long nFindLen, bool bIgnoreCase) {
    const unsigned long nNotFound = static_cast<unsigned long>(-1);
    if (pText == nullptr || pFind == nullptr || nTextLen < nFindLen || nTextLen == 0)
        return nNotFound;
    if (nFindLen == 0) return 0;
    for (unsigned long p = 0; p + nFindLen <= nTextLen; ++p) {
        bool bFirst =
            bIgnoreCase ? FoldAscii(pText[p]) == FoldAscii(pFind[0]) : pText[p] == pFind[0];
        if (!bFirst) continue;
        int nCmp = bIgnoreCase ? strncasecmp(pText + p, pFind, nFindLen)
                               : memcmp(pText + p, pFind, nFindLen);
        if (nCmp == 0) return p;
    }
    return nNotFound;
}

int CQLStringParser::WildCmp(const char* pszWild, const char* pszText) {
    if (pszWild == nullptr || pszText == nullptr) return 0;
    const char* pszBackWild = nullptr; // just after the last '*'
    const char* pszBackText = nullptr; // where the next attempt behind it starts
    while (*pszText && *pszWild != '*') {
        if (*pszWild != *pszText && *pszWild != '?') return 0;
        ++pszWild;
        ++pszText;
    }
    while (*pszText) {
        if (*pszWild == '*') {
            if (!*++pszWild) return 1;
            pszBackWild = pszWild;
            pszBackText = pszText + 1;
        } else if (*pszWild == *pszText || *pszWild == '?') {
            ++pszWild;
            ++pszText;
        } else {
            pszWild = pszBackWild;
            pszText = pszBackText++;
        }
    }
    while (*pszWild == '*') ++pszWild;
    return *pszWild == '\0' ? 1 : 0;
}

std::string CQLStringParser::ToCRLF(const std::string& strText) {
    if (strText.empty()) return std::string();
    std::string strResult;
    strResult.reserve(strText.size() * 2);
    const size_t n = strText.size();
    for (size_t i = 0; i < n; ++i) {
        char c = strText[i];
        if (c == '\r') {
            if (i + 1 < n && strText[i + 1] == '\n') ++i;
            strResult += "\r\n";
        } else if (c == '\n') {
            strResult += "\r\n";
        } else {
            strResult += c;
        }
    }
    return strResult;
}

std::string CQLStringParser::ToLF(const std::string& strText) {
    if (strText.empty()) return std::string();
    std::string strResult;
    strResult.reserve(strText.size() * 2);
    const size_t n = strText.size();
    for (size_t i = 0; i < n; ++i) {
        char c = strText[i];
        if (c == '\r') {
            if (i + 1 < n && strText[i + 1] == '\n') ++i;
            strResult += '\n';
        } else {
            strResult += c;
        }
    }
    return strResult;
}

std::string CQLStringParser::ToFileName(const std::string& strText) {
    if (strText.empty()) return std::string();
    std::string strResult;
    strResult.reserve(strText.size() * 2);
    const size_t n = strText.size();
    for (size_t i = 0; i < n; ++i) {
        char c = strText[i];
        switch (c) {
        case '\\':
        case '/':
        case ':':
        case '*':
        case '<':
        case '>':
        case '|':
        case '?':
        case '\r':
            strResult += '_';
            break;
        case '\n':
            strResult += '_';
            if (i + 1 < n && strText[i + 1] == '\r') ++i; // LF CR is one line end
            break;
        default:
            strResult += c;
        }
    }
    return strResult;
}

unsigned long CQLStringParser::ToULong(const char* psz) {
    if (psz == nullptr || *psz == '\0') return 0;
    return strtoul(psz, nullptr, 10);
}

long CQLStringParser::ToLong(const char* psz) {
    if (psz == nullptr || *psz == '\0') return 0;
    return strtol(psz, nullptr, 10);
}

int CQLStringParser::ToInt(const char* psz) {
    if (psz == nullptr || *psz == '\0') return 0;
    return static_cast<int>(strtol(psz, nullptr, 10));
}

long long CQLStringParser::ToInt64(const char* psz) {
    if (psz == nullptr || *psz == '\0') return 0;
    return strtoll(psz, nullptr, 10);
}

double CQLStringParser::ToDouble(const char* psz) {
    if (psz == nullptr || *psz == '\0') return 0.0;
    return strtod(psz, nullptr);
}

bool CQLStringParser::CaseIgnoreEqualChar(char c1, char c2) {
    return FoldAscii(c1) == FoldAscii(c2);
}

int CQLStringParser::myvsnprintf(char* pszBuf, unsigned long nMax, const char* pszFormat,
                                 va_list args) {
    return vsnprintf(pszBuf, nMax, pszFormat, args);
}

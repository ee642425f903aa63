#include "codec/QLCodecParser.h"

#include <cstdint>
#include <cstring>
#include <new>

namespace {

constexpr const auto& kDec = CQLCodecParser::base64_dec_table;

// Base64 values placed at their position in a 24-bit group. A byte that is not in the
// alphabet sets the top bit, so one test on the OR of four entries tells a clean group.
constexpr uint32_t kB64Bad = 0x80000000u;
constexpr std::array<uint32_t, 256> MakeShiftedTable(int nShift) {
    std::array<uint32_t, 256> t{};
    for (int i = 0; i < 256; ++i)
        t[i] = kDec[i] < 64 ? static_cast<uint32_t>(kDec[i]) << nShift : kB64Bad;
    return t;
}
constexpr std::array<uint32_t, 256> kB64At18 = MakeShiftedTable(18);
constexpr std::array<uint32_t, 256> kB64At12 = MakeShiftedTable(12);
constexpr std::array<uint32_t, 256> kB64At6 = MakeShiftedTable(6);
constexpr std::array<uint32_t, 256> kB64At0 = MakeShiftedTable(0);

// Hexadecimal digit values of either case; 0xFF for any other byte.
constexpr std::array<unsigned char, 256> MakeHexTable() {
    std::array<unsigned char, 256> t{};
    for (int i = 0; i < 256; ++i) t[i] = 0xFF;
    for (int i = 0; i < 10; ++i) t['0' + i] = static_cast<unsigned char>(i);
    for (int i = 0; i < 6; ++i) {
        t['A' + i] = static_cast<unsigned char>(10 + i);
        t['a' + i] = static_cast<unsigned char>(10 + i);
    }
    return t;
}
constexpr std::array<unsigned char, 256> kHexValue = MakeHexTable();

constexpr char kHexUpper[] = "0123456789ABCDEF";

// The decoder's line buffer. Longer lines are cut: no uuencoded line comes near it.
constexpr size_t kUULineBuf = 16384;

inline unsigned char U(char c) {
    return static_cast<unsigned char>(c);
}

inline bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// One line from nPos up to a line feed, carriage returns left out, NUL-terminated. At most
// nSize - 1 bytes are stored; the rest of a longer line is passed over. The text may end
// without a line feed.
bool ReadLineBounded(const std::string& strText, size_t& nPos, char* pszLine, size_t nSize,
                     size_t& nLineLen) {
    if (pszLine == nullptr || nSize == 0 || nPos >= strText.size()) return false;
    const char* pBase = strText.data();
    const char* p = pBase + nPos;
    const char* pEnd = pBase + strText.size();
    const char* pLF = static_cast<const char*>(memchr(p, '\n', pEnd - p));
    const char* pStop = pLF ? pLF : pEnd;
    size_t n = 0;
    for (; p < pStop; ++p) {
        if (*p != '\r' && n + 1 < nSize) pszLine[n++] = *p;
    }
    pszLine[n] = '\0';
    nLineLen = n;
    nPos = static_cast<size_t>((pLF ? pLF + 1 : pEnd) - pBase);
    return true;
}

inline char UUChar(unsigned v) {
    return v == 0 ? '`' : static_cast<char>(v + 32);
}

} // namespace

std::string CQLCodecParser::EncodeB64(const std::string& strText, const bool& bBreakLine,
                                      bool /*bBinary*/, const int& /*nLineLen*/) {
    // Base64 text holds no NUL byte, so the binary flag cannot change the result.
    const size_t n = strText.size();
    if (n == 0) return std::string();
    const size_t nOut = (n + 2) / 3 * 4 + (bBreakLine ? n / 54 * 2 : 0);
    std::string strOut(nOut, '\0');
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strText.data());
    char* o = &strOut[0];
    const size_t nFull = n / 3 * 3;
    size_t nLineBytes = 0;
    for (size_t i = 0; i < nFull; i += 3) {
        const uint32_t v = (uint32_t(p[i]) << 16) | (uint32_t(p[i + 1]) << 8) | p[i + 2];
        o[0] = base64_table[v >> 18];
        o[1] = base64_table[(v >> 12) & 63];
        o[2] = base64_table[(v >> 6) & 63];
        o[3] = base64_table[v & 63];
        o += 4;
        if (bBreakLine && (nLineBytes += 3) == 54) {
            o[0] = '\r';
            o[1] = '\n';
            o += 2;
            nLineBytes = 0;
        }
    }
    const size_t nRest = n - nFull;
    if (nRest > 0) {
        const uint32_t v =
            (uint32_t(p[nFull]) << 16) | (nRest == 2 ? uint32_t(p[nFull + 1]) << 8 : 0);
        o[0] = base64_table[v >> 18];
        o[1] = base64_table[(v >> 12) & 63];
        o[2] = nRest == 2 ? base64_table[(v >> 6) & 63] : '=';
        o[3] = '=';
    }
    return strOut;
}

std::string CQLCodecParser::DecodeB64(const std::string& strText, bool /*bBinary*/) {
    const size_t n = strText.size();
    if (n == 0) return std::string();
    std::string strOut(n / 4 * 3 + 3, '\0');
    strOut.resize(DecodeB64To(strText.data(), n, &strOut[0]));
    return strOut;
}

unsigned long CQLCodecParser::DecodeB64To(const char* pText, unsigned long nLen, char* pOut) {
    unsigned char* const pOutBase = reinterpret_cast<unsigned char*>(pOut);
    unsigned char* o = pOutBase;
    unsigned char* pGroup = o; // output position where the group in progress began
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pText);
    const unsigned char* const pEnd = p + nLen;
    unsigned nState = 0; // accepted characters of the group in progress
    unsigned nAcc = 0;
    unsigned nLast = 0; // the last byte's value as the end test sees it
    bool bPad = false;
    for (;;) {
        if (nState == 0) {
            // Whole groups of alphabet characters go four bytes at a time; anything else
            // (line ends, blanks, "=", NUL, junk) drops to the byte-wise walk below.
            while (pEnd - p >= 8) {
                const uint32_t x = kB64At18[p[0]] | kB64At12[p[1]] | kB64At6[p[2]] | kB64At0[p[3]];
                const uint32_t y = kB64At18[p[4]] | kB64At12[p[5]] | kB64At6[p[6]] | kB64At0[p[7]];
                if ((x | y) & kB64Bad) break;
                o[0] = static_cast<unsigned char>(x >> 16);
                o[1] = static_cast<unsigned char>(x >> 8);
                o[2] = static_cast<unsigned char>(x);
                o[3] = static_cast<unsigned char>(y >> 16);
                o[4] = static_cast<unsigned char>(y >> 8);
                o[5] = static_cast<unsigned char>(y);
                o += 6;
                p += 8;
            }
            if (pEnd - p >= 4) {
                const uint32_t x = kB64At18[p[0]] | kB64At12[p[1]] | kB64At6[p[2]] | kB64At0[p[3]];
                if (!(x & kB64Bad)) {
                    o[0] = static_cast<unsigned char>(x >> 16);
                    o[1] = static_cast<unsigned char>(x >> 8);
                    o[2] = static_cast<unsigned char>(x);
                    o += 3;
                    p += 4;
                    continue;
                }
            }
        }
        if (p == pEnd) break;
        const unsigned char ch = *p++;
        if (ch == '\0') {
            nLast = 0;
            break;
        }
        if (ch == '=') {
            bPad = true;
            break;
        }
        if (ch == ' ') {
            nLast = ' ';
            continue;
        }
        const unsigned v = kDec[ch];
        nLast = v;
        if (v >= 64) continue;
        switch (nState) {
        case 0:
            pGroup = o;
            nAcc = v;
            nState = 1;
            break;
        case 1:
            *o++ = static_cast<unsigned char>((nAcc << 2) | (v >> 4));
            nAcc = v & 0x0F;
            nState = 2;
            break;
        case 2:
            *o++ = static_cast<unsigned char>((nAcc << 4) | (v >> 2));
            nAcc = v & 0x03;
            nState = 3;
            break;
        default:
            *o++ = static_cast<unsigned char>((nAcc << 6) | v);
            nState = 0;
            break;
        }
    }
    // Without padding the unfinished group is dropped. The end test compares the last value
    // with the code of "=", so a text ending in "9" (value 61) keeps its partial bytes; that
    // behaviour is relied on and stays.
    if (!bPad && nState != 0 && nLast != '=') o = pGroup;
    return static_cast<unsigned long>(o - pOutBase);
}

std::string CQLCodecParser::EncodeQP(const std::string& strText, const bool& bBreakLine,
                                     bool bBinary, const unsigned long& nLineLen) {
    const size_t n = strText.size();
    if (n == 0) return std::string();
    const unsigned long nMax = nLineLen;
    // Every byte takes at most 3 characters, and a soft break needs more than nMax of them
    // since the last reset.
    size_t nCap = 3 * n;
    if (bBreakLine) nCap += 3 * (nMax >= 3 * n ? 1 : 3 * n / (nMax + 1) + 1);
    std::string strOut(nCap, '\0');
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strText.data());
    char* const pOutBase = &strOut[0];
    char* o = pOutBase;
    unsigned long nCol = 0;
    for (size_t i = 0; i < n; ++i) {
        const unsigned char c = p[i];
        bool bEscape;
        if (c == '\n' || c == '\r') {
            bEscape = bBinary;
            if (!bBinary) nCol = 0;
        } else if (c == ' ' || c == '\t') {
            // Text mode protects a blank at a line end, which transports would strip.
            bEscape = !bBinary && i + 1 < n && (p[i + 1] == '\r' || p[i + 1] == '\n');
            if (!bEscape) ++nCol;
        } else if (c < 0x20 || c >= 0x7F || c == '=') {
            bEscape = true;
        } else {
            bEscape = false;
            ++nCol;
        }
        if (bEscape) {
            o[0] = '=';
            o[1] = kHexUpper[c >> 4];
            o[2] = kHexUpper[c & 0x0F];
            o += 3;
            nCol += 3;
        } else {
            *o++ = static_cast<char>(c);
        }
        if (bBreakLine && nCol > nMax) {
            o[0] = '=';
            o[1] = '\r';
            o[2] = '\n';
            o += 3;
            nCol = 0;
        }
    }
    strOut.resize(static_cast<size_t>(o - pOutBase));
    return strOut;
}

std::string CQLCodecParser::DecodeQP(const std::string& strText, bool bBinary) {
    const size_t n = strText.size();
    if (n == 0) return std::string();
    std::string strOut;
    try {
        strOut.resize(n + 1);
    } catch (const std::bad_alloc&) {
        m_strLastError = "In DecodeQP, out of memory";
        throw *this;
    }
    const char* p = strText.data();
    const char* const pEnd = p + n;
    char* const pOutBase = &strOut[0];
    char* o = pOutBase;
    while (p < pEnd) {
        if (*p != '=') {
            // Escaped text has short runs between escapes: copy a few bytes directly before
            // paying for a search.
            const char* pShort = pEnd - p > 16 ? p + 16 : pEnd;
            while (p < pShort && *p != '=') *o++ = *p++;
            if (p == pShort && p < pEnd && *p != '=') {
                const char* pEq =
                    static_cast<const char*>(memchr(p, '=', static_cast<size_t>(pEnd - p)));
                const char* pStop = pEq ? pEq : pEnd;
                const size_t nRun = static_cast<size_t>(pStop - p);
                memcpy(o, p, nRun);
                o += nRun;
                p = pStop;
            }
            if (p == pEnd) break;
        }
        if (pEnd - p > 2) {
            const unsigned char hi = kHexValue[U(p[1])];
            const unsigned char lo = kHexValue[U(p[2])];
            if ((hi | lo) < 16) {
                *o++ = static_cast<char>((hi << 4) | lo);
                p += 3;
                continue;
            }
        }
        const char* k = p + 1;
        while (k < pEnd && (*k == ' ' || *k == '\t')) ++k;
        if (k < pEnd && *k == '\n') {
            p = k + 1;
        } else if (pEnd - k >= 2 && k[0] == '\r' && k[1] == '\n') {
            p = k + 2;
        } else {
            *o++ = '=';
            ++p;
        }
    }
    size_t nOut = static_cast<size_t>(o - pOutBase);
    if (!bBinary) {
        const void* pNul = memchr(pOutBase, '\0', nOut);
        if (pNul) nOut = static_cast<size_t>(static_cast<const char*>(pNul) - pOutBase);
    }
    strOut.resize(nOut);
    return strOut;
}

std::string CQLCodecParser::EncodeRfc2231(const std::string& /*strName*/,
                                          const std::string& /*strValue*/,
                                          const std::string& /*strCharset*/,
                                          const int& /*nLineLen*/) {
    return std::string();
}

std::string CQLCodecParser::DecodeRfc2231(const std::string& strText, std::string& strParamName,
                                          std::string& strCharset, std::string& strLanguage) {
    if (strText.empty()) return std::string();
    strParamName.clear();
    strCharset.clear();
    strLanguage.clear();
    std::string strResult;
    // c_str() ends in a NUL byte, which every loop below stops at; nothing steps past it.
    const char* p = strText.c_str();
    bool bFirst = true;
    while (*p) {
        while (*p == ' ') ++p;
        const char* pName = p;
        while (*p && *p != '=' && *p != '*' && *p != '\r' && *p != '\n' && !IsDigit(*p)) ++p;
        std::string strName(pName, static_cast<size_t>(p - pName));
        if (bFirst) {
            strParamName = strName;
            bFirst = false;
        } else if (strName != strParamName) {
            break;
        }

        if (*p == '*') ++p;
        while (IsDigit(*p)) ++p;
        if (*p == '*') ++p;
        while (*p == ' ') ++p;
        if (*p == '=') ++p;
        while (*p == ' ') ++p;
        if (!*p) break;

        if (*p == '"') {
            ++p;
            const char* pStart = p;
            while (*p && *p != '"' && *p != '\r' && *p != '\n') ++p;
            strResult.append(pStart, static_cast<size_t>(p - pStart));
            if (*p == '"') {
                ++p;
                if (*p == ';') ++p;
            }
        } else {
            std::string strGathered;
            int nQuotes = 0;
            while (*p && *p != '\r' && *p != '\n') {
                char c = *p;
                if (c == '"') {
                    // The byte behind a double quote stands in its place.
                    c = *++p;
                    if (c == '\0' || c == '\r' || c == '\n') break;
                }
                if (c == '\'' && nQuotes < 2) {
                    (nQuotes == 0 ? strCharset : strLanguage) = strGathered;
                    strGathered.clear();
                    ++nQuotes;
                } else if (c == ';' && (p[1] == '\r' || p[1] == '\n')) {
                    ++p;
                    break;
                } else {
                    strGathered += c;
                }
                ++p;
            }
            strResult += strGathered;
        }

        if (*p == '\r') ++p;
        if (*p == '\n') ++p;
        if (*p == '\t') ++p;
    }
    return strResult;
}

std::string CQLCodecParser::EncodeUU(const std::string& strData, const std::string& strFileName) {
    static const char kHead[] = "\r\nbegin 666 ";
    static const char kTail[] = "`\r\nend\r\n";
    const size_t n = strData.size();
    const size_t nLines = n == 0 ? 1 : (n + 44) / 45;
    const size_t nLast = n - (nLines - 1) * 45;
    const size_t nBody = (nLines - 1) * (1 + 60 + 2) + 1 + (nLast + 2) / 3 * 4 + 2;
    std::string strOut(sizeof(kHead) - 1 + strFileName.size() + 2 + nBody + sizeof(kTail) - 1,
                       '\0');
    char* o = &strOut[0];
    memcpy(o, kHead, sizeof(kHead) - 1);
    o += sizeof(kHead) - 1;
    memcpy(o, strFileName.data(), strFileName.size());
    o += strFileName.size();
    *o++ = '\r';
    *o++ = '\n';
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strData.data());
    for (size_t nLine = 0; nLine < nLines; ++nLine) {
        const size_t nStart = nLine * 45;
        const size_t nCount = nLine + 1 < nLines ? 45 : nLast;
        *o++ = nCount == 45 ? 'M' : UUChar(static_cast<unsigned>(nCount));
        for (size_t i = 0; i < nCount; i += 3) {
            const unsigned b0 = p[nStart + i];
            const unsigned b1 = i + 1 < nCount ? p[nStart + i + 1] : 0;
            const unsigned b2 = i + 2 < nCount ? p[nStart + i + 2] : 0;
            o[0] = UUChar(b0 >> 2);
            o[1] = UUChar(((b0 & 0x03) << 4) | (b1 >> 4));
            o[2] = UUChar(((b1 & 0x0F) << 2) | (b2 >> 6));
            o[3] = UUChar(b2 & 0x3F);
            o += 4;
        }
        *o++ = '\r';
        *o++ = '\n';
    }
    memcpy(o, kTail, sizeof(kTail) - 1);
    return strOut;
}

std::string CQLCodecParser::DecodeUU(const std::string& strText, std::string& strFileName) {
    char szLine[kUULineBuf];
    size_t nPos = 0;
    size_t nLineLen = 0;
    for (;;) {
        if (!ReadLineBounded(strText, nPos, szLine, sizeof(szLine), nLineLen)) return std::string();
        if (strncmp(szLine, "begin", 5) == 0) break;
    }
    const char* pName = szLine + (nLineLen < 6 ? nLineLen : 6);
    while (*pName && strchr(" 01234567", *pName)) ++pName;
    strFileName = pName;

    std::string strOut;
    strOut.reserve(strText.size() - nPos);
    unsigned char aBytes[66];
    // The line ends are gone by now, so a closing "end" line cannot be told from data: the
    // zero-length terminator line is what stops. A position past the end of a line reads as
    // 0, as if stripped trailing blanks stood there; an empty line therefore ends as well.
    while (ReadLineBounded(strText, nPos, szLine, sizeof(szLine), nLineLen)) {
        auto Value = [&](size_t i) -> unsigned {
            return i < nLineLen ? (U(szLine[i]) - 32u) & 63u : 0u;
        };
        const unsigned nLen = Value(0);
        if (nLen == 0) break;
        unsigned nDone = 0;
        for (size_t j = 1; nDone < nLen; j += 4, nDone += 3) {
            const unsigned v0 = Value(j), v1 = Value(j + 1), v2 = Value(j + 2), v3 = Value(j + 3);
            aBytes[nDone] = static_cast<unsigned char>((v0 << 2) | (v1 >> 4));
            aBytes[nDone + 1] = static_cast<unsigned char>(((v1 & 0x0F) << 4) | (v2 >> 2));
            aBytes[nDone + 2] = static_cast<unsigned char>(((v2 & 0x03) << 6) | v3);
        }
        strOut.append(reinterpret_cast<const char*>(aBytes), nLen);
    }
    return strOut;
}

bool CQLCodecParser::ReadDataLine(const std::string& strText, int& nPos, char* pszLine) {
    if (pszLine == nullptr || nPos < 0) return false;
    size_t nAt = static_cast<size_t>(nPos);
    size_t nLineLen = 0;
    if (!ReadLineBounded(strText, nAt, pszLine, static_cast<size_t>(-1), nLineLen)) return false;
    nPos = static_cast<int>(nAt);
    return true;
}

#include "codec/QLHdrCodec.h"

#include "codec/QLConvParser.h"
#include "foundation/QLStringParser.h"

#include <cstdlib>
#include <cstring>

namespace {

const char base64_table[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int Base64Value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

int HexValue(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Printable ASCII without "=": no encoded word, no escape, no line break.
bool IsPlainAscii(const std::string& strText) {
    for (char c : strText)
        if (c < 0x20 || c > 0x7E || c == '=' || c == '\\' || c == '~') return false;
    return true;
}

// Labels of charsets that always open and carry printable ASCII (but for "\\" and "~", which
// some Japanese tables move) as themselves. The empty label converts nothing.
bool IsAsciiLabel(const std::string& strLabel) {
    static const char* const kLabels[] = {"",       "us-ascii", "ascii",   "utf-8",
                                          "utf8",   "latin1",   "euc-kr",  "ks_c_5601-1987",
                                          "cp949",  "uhc",      "euc-jp",  "iso-2022-jp",
                                          "gb2312", "gbk",      "gb18030", "big5",
                                          "koi8-r", "koi8-u"};
    const size_t nLen = strLabel.size();
    if (nLen > 20) return false;
    char szLower[21];
    for (size_t i = 0; i < nLen; ++i) {
        const char c = strLabel[i];
        szLower[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    szLower[nLen] = '\0';
    // A NUL inside the label makes it no label of the list.
    if (strlen(szLower) != nLen) return false;
    for (const char* pszLabel : kLabels)
        if (strcmp(szLower, pszLabel) == 0) return true;
    for (const char* pszFamily : {"iso-8859-", "windows-125", "cp125"}) {
        const size_t n = strlen(pszFamily);
        if (nLen <= n || strncmp(szLower, pszFamily, n) != 0) continue;
        const char* pszRest = szLower + n;
        if (pszRest[strspn(pszRest, "0123456789")] != '\0' || pszRest[0] == '0') continue;
        const int nNum = atoi(pszRest);
        // ISO-8859-1 to 16 but 12; windows-1250 to 1258.
        if (pszFamily[0] == 'i' ? (nNum >= 1 && nNum <= 16 && nNum != 12)
                                : (nLen - n == 1 && nNum <= 8))
            return true;
    }
    return false;
}

} // namespace

CQLHdrCodec::CQLHdrCodec() : m_bBadCharset(false), m_bHasCharset(true) {}

CQLHdrCodec::~CQLHdrCodec() {}

bool CQLHdrCodec::GetToken(const std::string& strText, unsigned int& nPos, std::string& strToken,
                           bool& bEncodedWord) {
    strToken.clear();
    bEncodedWord = false;
    const size_t n = strText.size();
    if (nPos >= n) return false;

    for (; nPos < n && CQLStringParser::IsCSpace(strText[nPos]); ++nPos)
        if (strText[nPos] != '\r' && strText[nPos] != '\n') strToken += strText[nPos];

    if (nPos + 1 < n && strText[nPos] == '=' && strText[nPos + 1] == '?') {
        strToken += "=?";
        nPos += 2;
        // Charset and encoding: up to and including the next "?". White space stops a
        // section unconsumed and so falls through to the text section.
        for (int nSection = 0; nSection < 2; ++nSection) {
            for (;;) {
                if (nPos >= n) return true;
                const char c = strText[nPos];
                if (CQLStringParser::IsCSpace(c)) break;
                strToken += c;
                ++nPos;
                if (c == '?') break;
            }
        }
        for (;;) {
            if (nPos >= n) return true;
            const char c = strText[nPos++];
            strToken += c;
            if (c == '?' && nPos < n && strText[nPos] == '=') {
                strToken += '=';
                ++nPos;
                bEncodedWord = true;
                return true;
            }
        }
    }

    for (; nPos < n; ++nPos) {
        const char c = strText[nPos];
        if (c == '=' && nPos + 1 < n && strText[nPos + 1] == '?') break;
        if (c != '\r' && c != '\n') strToken += c;
    }
    return true;
}

bool CQLHdrCodec::ParseEW(const std::string& strToken, std::string& strCharset, char& cEncoding,
                          std::string& strEncoded) {
    strCharset.clear();
    cEncoding = 'B';
    strEncoded.clear();
    size_t i = 0;
    for (; i < strToken.size() && CQLStringParser::IsCSpace(strToken[i]); ++i)
        strEncoded += strToken[i];
    const size_t nStart = i + 2; // behind "=?", which is taken on trust
    const size_t nQ1 = strToken.find('?', nStart);
    if (nQ1 == std::string::npos) return false;
    CQLStringParser str;
    strCharset = str.ToLower(strToken.substr(nStart, nQ1 - nStart));
    const size_t nQ2 = strToken.find('?', nQ1 + 1);
    if (nQ2 == std::string::npos) return false;
    cEncoding = strToken[nQ1 + 1];
    if (cEncoding >= 'a' && cEncoding <= 'z') cEncoding = static_cast<char>(cEncoding - 'a' + 'A');
    const size_t nEnd = strToken.find("?=", nQ2 + 1);
    if (nEnd == std::string::npos) return false;
    strEncoded.append(strToken, nQ2 + 1, nEnd - nQ2 - 1);
    return true;
}

bool CQLHdrCodec::DecodeB64(const std::string& strEncoded, std::string& strOut) {
    strOut.clear();
    const size_t n = strEncoded.size();
    strOut.reserve(n); // four characters give three bytes
    size_t i = 0;
    for (; i < n && CQLStringParser::IsCSpace(strEncoded[i]); ++i) strOut += strEncoded[i];
    unsigned int nAcc = 0;
    int nBits = 0;
    for (; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(strEncoded[i]);
        if (c == '=') break;
        const int v = Base64Value(c);
        if (v < 0) continue; // foreign bytes are skipped
        nAcc = ((nAcc << 6) | static_cast<unsigned int>(v)) & 0xFFFFFF;
        nBits += 6;
        if (nBits >= 8) {
            nBits -= 8;
            strOut += static_cast<char>((nAcc >> nBits) & 0xFF);
        }
    }
    return true;
}

bool CQLHdrCodec::DecodeQP(const std::string& strEncoded, std::string& strOut) {
    strOut.clear();
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strEncoded.data());
    const size_t n = strEncoded.size();
    size_t i = 0;
    for (; i < n && CQLStringParser::IsCSpace(static_cast<char>(p[i])); ++i)
        strOut += static_cast<char>(p[i]);
    // The output ends at the write position; going back to the trim mark drops the blanks
    // that stand before a carriage return.
    size_t nTrim = 0;
    while (i < n) {
        const unsigned char c = p[i];
        if (c == '_' || c == ' ') {
            strOut += ' ';
            ++i;
        } else if (c == '\r') {
            strOut.resize(nTrim);
            strOut += '\r';
            nTrim = strOut.size();
            ++i;
        } else if (c == '=') {
            if (i + 1 >= n) break; // a last "=" is dropped
            const unsigned char c1 = p[i + 1];
            if (c1 == '\n' || c1 == '\r') {
                if (c1 == '\n') nTrim = strOut.size();
                i += 2;
                if (i < n && p[i] == '\n') ++i;
            } else if (c1 == '\0') {
                ++i;
            } else {
                const int nHigh = HexValue(c1);
                const int nLow = i + 2 < n ? HexValue(p[i + 2]) : -1;
                if (nHigh < 0 || nLow < 0) {
                    strOut.clear();
                    return false;
                }
                strOut += static_cast<char>(nHigh * 16 + nLow);
                nTrim = strOut.size();
                i += 3;
            }
        } else {
            strOut += static_cast<char>(c);
            nTrim = strOut.size();
            ++i;
        }
    }
    return true;
}

std::string CQLHdrCodec::Decode(const std::string& strText, const std::string& strToCharset,
                                const std::string& strDefaultCharset, const int& nOptions) {
    return DecodeText(strText, strToCharset, strDefaultCharset, nOptions, true);
}

std::string CQLHdrCodec::GetWordCharset(const std::string& strText) {
    // A charset comes only from an encoded word ("=?") or from raw ISO-2022-JP (ESC). Text
    // of nothing but line breaks leaves the flags as they were set, so it takes the long way.
    if (strText.find_first_not_of("\r\n") != std::string::npos &&
        strText.find("=?") == std::string::npos && strText.find('\x1B') == std::string::npos) {
        m_bBadCharset = false;
        m_bHasCharset = false;
        return std::string();
    }
    return DecodeText(strText, "UTF-8", "", O_ITEM_CS, false);
}

std::string CQLHdrCodec::DecodeText(const std::string& strText, const std::string& strToCharset,
                                    const std::string& strDefaultCharset, int nOptions,
                                    bool bConvert) {
    if (strText.empty()) return std::string();
    m_bBadCharset = false;
    m_bHasCharset = true;

    // Plain ASCII text in an ASCII charset is one plain run that converts to itself: the
    // converter, whose opening can cost a shared-library load, is not needed.
    if (IsPlainAscii(strText) && IsAsciiLabel(strDefaultCharset) && IsAsciiLabel(strToCharset)) {
        m_bHasCharset = false;
        std::string strResult = strText;
        if (nOptions & O_CONV_LTGT) strResult = LtGt(strResult);
        if (nOptions & O_TRIM_DQ) strResult = TrimDQ(strResult);
        if (nOptions & O_ITEM_CS) strResult.clear();
        return strResult;
    }

    CQLConvParser conv;
    CQLStringParser str;
    const bool bDiscard = true;
    std::string strResult, strPending, strWordCharset, strRunCharset;
    bool bRunSet = false, bPrevEW = false;

    // Converts the pending bytes from strCharset; an empty name means the default charset.
    auto AppendConverted = [&](const std::string& strCharset) {
        const std::string& strFrom = strCharset.empty() ? strDefaultCharset : strCharset;
        if (strCharset.empty()) {
            m_bHasCharset = false;
            if (strDefaultCharset.empty()) {
                strResult += strPending;
                return;
            }
        }
        if (!bConvert) return;
        if (conv.Open(strFrom, strToCharset, bDiscard)) {
            strResult += conv.Conv(strPending);
        } else {
            strResult += strPending;
            m_bBadCharset = true;
        }
    };

    unsigned int nPos = 0;
    std::string strToken, strEncoded, strDecoded;
    bool bEW = false;
    while (GetToken(strText, nPos, strToken, bEW)) {
        bool bDecoded = false;
        if (bEW) {
            strToken = str.Trim(strToken, CQLStringParser::TRIM_LEFT);
            char cEncoding = 'B';
            if (ParseEW(strToken, strWordCharset, cEncoding, strEncoded)) {
                if (bPrevEW) {
                    size_t k = 0;
                    while (k < strEncoded.size() && CQLStringParser::IsCSpace(strEncoded[k])) ++k;
                    strEncoded.erase(0, k);
                }
                if (cEncoding == 'B')
                    DecodeB64(strEncoded, strDecoded);
                else
                    DecodeQP(strEncoded, strDecoded); // a bad escape leaves nothing
                const size_t nNul = strDecoded.find('\0');
                if (nNul != std::string::npos) strDecoded.resize(nNul);
                strToken = strDecoded;
                bDecoded = true;
            }
        }
        if (!bDecoded && strToken.size() > 2) {
            // Raw ISO-2022-JP in the value: ESC $ B that ends well before the token does.
            const size_t n = strToken.size();
            for (size_t i = 0; i + 2 < n - 2; ++i) {
                if (strToken[i] == '\x1B' && strToken[i + 1] == '$' && strToken[i + 2] == 'B') {
                    strWordCharset = "iso-2022-jp";
                    break;
                }
            }
        }
        if (!bRunSet) {
            strRunCharset = strWordCharset;
            bRunSet = true;
        }
        if (strRunCharset == strWordCharset) {
            strPending += strToken;
        } else {
            AppendConverted(strRunCharset);
            strRunCharset = strWordCharset;
            strPending = strToken;
        }
        bPrevEW = bEW;
    }

    if (!strPending.empty()) {
        if (!strWordCharset.empty()) {
            strWordCharset = str.ToLower(strWordCharset);
            if (strWordCharset == "us-ascii") strWordCharset = strDefaultCharset;
            // An empty name here fails to open like any unknown one.
            if (bConvert && conv.Open(strWordCharset, strToCharset, bDiscard)) {
                strResult += conv.Conv(strPending);
            } else if (bConvert) {
                strResult += strPending;
                m_bBadCharset = true;
            }
        } else {
            AppendConverted(strWordCharset);
        }
    }

    // A value with a label that cannot be opened is taken to be wholly in the default charset.
    if (bConvert && m_bBadCharset && !strDefaultCharset.empty()) {
        if (conv.Open(strDefaultCharset, strToCharset, bDiscard)) strResult = conv.Conv(strResult);
    }

    if (nOptions & O_CONV_LTGT) strResult = LtGt(strResult);
    if (nOptions & O_TRIM_DQ) strResult = TrimDQ(strResult);
    if (nOptions & O_ITEM_CS) strResult = strWordCharset;
    return strResult;
}

std::string CQLHdrCodec::EncodeB64(const std::string& strText) {
    std::string strOut;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strText.data());
    const size_t n = strText.size();
    strOut.reserve((n + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < n; i += 3) {
        const unsigned int v = (p[i] << 16) | (p[i + 1] << 8) | p[i + 2];
        strOut += base64_table[(v >> 18) & 63];
        strOut += base64_table[(v >> 12) & 63];
        strOut += base64_table[(v >> 6) & 63];
        strOut += base64_table[v & 63];
    }
    if (i < n) {
        unsigned int v = p[i] << 16;
        if (i + 1 < n) v |= p[i + 1] << 8;
        strOut += base64_table[(v >> 18) & 63];
        strOut += base64_table[(v >> 12) & 63];
        strOut += (i + 1 < n) ? base64_table[(v >> 6) & 63] : '=';
        strOut += '=';
    }
    return strOut;
}

std::string CQLHdrCodec::EncodeQP(const std::string& strText) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string strOut;
    for (char ch : strText) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c == ' ') {
            strOut += '_';
        } else if (c < 0x20 || c >= 0x7F || c == '=') {
            strOut += '=';
            strOut += kHex[c >> 4];
            strOut += kHex[c & 15];
        } else {
            strOut += static_cast<char>(c); // "?" and "_" included: callers avoid "?="
        }
    }
    return strOut;
}

std::string CQLHdrCodec::Encode(const std::string& strText, const std::string& strCharset,
                                bool bBase64, int nChunkLen) {
    if (strText.empty()) return std::string();
    if (strCharset.empty()) return strText;
    // A chunk length below 1 makes one word of the whole text.
    const size_t nChunk = nChunkLen > 0 ? static_cast<size_t>(nChunkLen) : strText.size();
    std::string strOut;
    for (size_t i = 0; i < strText.size(); i += nChunk) {
        const std::string strChunk = strText.substr(i, nChunk);
        if (i > 0) strOut += "\r\n\t";
        strOut += "=?" + strCharset + (bBase64 ? "?B?" : "?Q?");
        strOut += bBase64 ? EncodeB64(strChunk) : EncodeQP(strChunk);
        strOut += "?=";
    }
    return strOut;
}

std::string CQLHdrCodec::LtGt(const std::string& strText) {
    std::string strOut;
    strOut.reserve(strText.size());
    for (char c : strText) {
        if (c == '<')
            strOut += "&lt;";
        else if (c == '>')
            strOut += "&gt;";
        else
            strOut += c;
    }
    return strOut;
}

std::string CQLHdrCodec::TrimDQ(const std::string& strText) {
    std::string strOut;
    const size_t n = strText.size();
    for (size_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(strText[i]);
        if (((c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xFC)) && i + 1 < n) {
            strOut += strText[i];
            strOut += strText[++i]; // a Shift_JIS pair is copied unexamined
        } else if (c == '"' && i > 0 && strText[i - 1] == '\\') {
            continue;
        } else if (c == '\\') {
            continue;
        } else {
            strOut += strText[i];
        }
    }
    return strOut;
}

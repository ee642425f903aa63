#include "codec/QLConvParser.h"

#include "codec/QLIconv.h"

#include <cerrno>
#include <cstring>

namespace {

const size_t kFail = static_cast<size_t>(-1);
const size_t kLabelMax = 50; // label buffer of the converter, NUL included

inline char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// The first nLen bytes of pA and pB, ignoring ASCII case.
bool EqNoCase(const char* pA, const char* pB, size_t nLen) {
    for (size_t i = 0; i < nLen; ++i)
        if (LowerAscii(pA[i]) != LowerAscii(pB[i])) return false;
    return true;
}

bool StartsNoCase(const std::string& str, const char* pszPrefix) {
    const size_t n = strlen(pszPrefix);
    return str.size() >= n && EqNoCase(str.data(), pszPrefix, n);
}

bool EqualsNoCase(const std::string& str, const char* psz) {
    return str.size() == strlen(psz) && EqNoCase(str.data(), psz, str.size());
}

// The label is a prefix of psz, compared over the label's own length.
bool PrefixOfNoCase(const std::string& strLabel, const char* psz) {
    return strLabel.size() <= strlen(psz) && EqNoCase(strLabel.data(), psz, strLabel.size());
}

inline bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string FixLabel(const std::string& strLabel) {
    const std::string& s = strLabel;
    const size_t n = s.size();
    if (n >= 3 && StartsNoCase(s, "ks")) {
        if (n < 14) return "EUC-KR";
        if (LowerAscii(s[3]) == 'c' && s.compare(5, 4, "5601") == 0 &&
            s.compare(10, 4, "1987") == 0)
            return "UHC";
        return "EUC-KR";
    }
    if (n >= 3 && StartsNoCase(s, "ms")) {
        for (size_t i = 2; i < n; ++i)
            if (!IsDigit(s[i])) return s;
        return "CP" + s.substr(2);
    }
    if (s.find('_') != std::string::npos) {
        std::string strOut(s);
        for (char& c : strOut)
            if (c == '_') c = '-';
        return strOut;
    }
    if (n >= 12 && StartsNoCase(s, "x-windows-")) return "CP" + s.substr(10);
    if (n == 9 && EqualsNoCase(s, "ibm-euckr")) return "EUC-KR";
    if (n == 4 && s == "5601") return "EUC-KR";
    if (n >= 4 && StartsNoCase(s, "utf") && IsDigit(s[3])) return "UTF-" + s.substr(3);
    if (n == 11 && (EqualsNoCase(s, "ISO-2022-JP") || EqualsNoCase(s, "CSISO2022JP")))
        return "ISO-2022-JP-MS";
    // A label that is only the start of these names is taken for them, "g" or "euc-" too.
    if (PrefixOfNoCase(s, "GB2312") || PrefixOfNoCase(s, "GB-2312")) return "GBK";
    if (PrefixOfNoCase(s, "EUCKR") || PrefixOfNoCase(s, "EUC-KR")) return "UHC";
    return s;
}

} // namespace

CQLConvParser::CQLConvParser() : m_bSameFormCopy(true), m_pConv(nullptr), m_nAutoDetect(0) {
    m_szBuffer[0] = '\0';
}

CQLConvParser::CQLConvParser(const CQLConvParser& other)
    : CQLExceptionParser(), m_bSameFormCopy(true), m_pConv(nullptr), m_nAutoDetect(0) {
    m_strLastError = other.m_strLastError;
    m_szBuffer[0] = '\0';
}

// Like the copy, an assignment brings over only the text; each object keeps its converter.
CQLConvParser& CQLConvParser::operator=(const CQLConvParser& other) {
    if (this != &other) m_strLastError = other.m_strLastError;
    return *this;
}

CQLConvParser::~CQLConvParser() {
    if (m_pConv != nullptr) {
        try {
            Close();
        } catch (...) {
        }
        delete m_pConv;
    }
}

std::string CQLConvParser::StrError(const char* pszPrefix) {
    const int nErr = errno;
    return std::string(pszPrefix) + strerror(nErr);
}

void CQLConvParser::FixCS(const std::string& strLabel, char* pszOut) {
    memset(pszOut, 0, kLabelMax);
    const std::string strFixed = FixLabel(strLabel);
    memcpy(pszOut, strFixed.data(), strFixed.size() < kLabelMax ? strFixed.size() : kLabelMax - 1);
}

bool CQLConvParser::Open(const std::string& strFrom, const std::string& strTo,
                         const bool& bDiscard) {
    if (strFrom.empty()) {
        m_strLastError = "From Character set is empty";
        return false;
    }
    if (strTo.empty()) {
        m_strLastError = "To Character set is empty";
        return false;
    }
    Close();
    m_nAutoDetect = 0;
    if (strFrom.size() >= kLabelMax || strTo.size() >= kLabelMax) return false;

    char szFrom[kLabelMax], szTo[kLabelMax];
    FixCS(strFrom, szFrom);
    FixCS(strTo, szTo);
    CQLIconv* pConv = new CQLIconv;
    if (!pConv->Open(szTo, szFrom)) {
        const int nErr = errno;
        delete pConv;
        if (nErr == EINVAL) {
            std::string strName = strFrom;
            if (!strName.empty() && strName[0] == '_') strName.erase(0, 1);
            if (StartsNoCase(strName, "autodetect_utf8"))
                m_nAutoDetect = 1;
            else if (StartsNoCase(strName, "autodetect_jp"))
                m_nAutoDetect = 3;
            else if (StartsNoCase(strName, "autodetect_kr"))
                m_nAutoDetect = 2;
            if (m_nAutoDetect != 0) {
                // Nothing is held open in this mode: each Conv opens what it tries.
                m_strTo = strTo;
                m_strFrom = strName;
                return true;
            }
        }
        errno = nErr;
        m_strLastError = StrError("In Open, ");
        return false;
    }
    m_pConv = pConv;
    if (bDiscard) m_pConv->SetDiscardIlseq(true);
    m_strFrom = strFrom;
    m_strTo = strTo;
    return true;
}

void CQLConvParser::Close() {
    if (m_pConv == nullptr) return;
    if (m_pConv->Close() == -1) {
        m_strLastError = StrError("In Close, ");
        throw *this;
    }
    delete m_pConv;
    m_pConv = nullptr;
}

std::string CQLConvParser::Conv(const char* pszText, unsigned long nLen) {
    if (m_nAutoDetect != 0) return ConvAutoDetect(pszText, nLen);
    if (m_pConv == nullptr) {
        m_strLastError = "In Conv, Not opened";
        throw *this;
    }
    std::string strOut;
    if (pszText == nullptr || nLen == 0) return strOut;
    if (m_bSameFormCopy && m_pConv->IsUtf8Both()) return CopyUtf8(pszText, nLen);

    char* pIn = const_cast<char*>(pszText);
    size_t nInLeft = nLen;
    while (nInLeft > 0) {
        char* pOut = m_szBuffer;
        size_t nOutLeft = CONV_CHUNK;
        const size_t nResult = m_pConv->Conv(&pIn, &nInLeft, &pOut, &nOutLeft);
        const int nErr = errno;
        const size_t nWritten = CONV_CHUNK - nOutLeft;
        if (nResult != kFail) {
            strOut.append(m_szBuffer, nWritten);
        } else if (nErr == EINVAL && nWritten == 0) {
            // An incomplete tail: its first byte goes out as it is and the count shrinks
            // while the position stays, so a tail of n bytes gives n copies of its first.
            strOut += *pIn;
            --nInLeft;
        } else if (nWritten > 0) {
            strOut.append(m_szBuffer, nWritten);
        } else if (nErr == EILSEQ) {
            errno = nErr;
            m_strLastError = StrError("In Conv EILSEQ, ");
            throw *this;
        } else {
            break;
        }
    }
    char* pOut = m_szBuffer;
    size_t nOutLeft = CONV_CHUNK;
    if (m_pConv->Conv(nullptr, nullptr, &pOut, &nOutLeft) != kFail)
        strOut.append(m_szBuffer, CONV_CHUNK - nOutLeft);
    return strOut;
}

// UTF-8 to UTF-8 without the C library, with the very result of the loop above: what its
// decoder takes is copied, a byte that starts no character is dropped (or fails the text when
// not discarding), and a character cut off by the end gives its first byte once per byte.
std::string CQLConvParser::CopyUtf8(const char* pszText, unsigned long nLen) {
    std::string strOut;
    size_t nPos = 0;
    while (nPos < nLen) {
        const size_t nRun = CQLIconv::Utf8Span(pszText + nPos, nLen - nPos);
        strOut.append(pszText + nPos, nRun);
        nPos += nRun;
        if (nPos == nLen) break;
        if (CQLIconv::Utf8Incomplete(pszText + nPos, nLen - nPos)) {
            strOut.append(nLen - nPos, pszText[nPos]);
            break;
        }
        if (!m_pConv->IsDiscarding()) {
            errno = EILSEQ;
            m_strLastError = StrError("In Conv EILSEQ, ");
            throw *this;
        }
        ++nPos;
    }
    return strOut;
}

std::string CQLConvParser::Conv(const std::string& strText) {
    try {
        return Conv(strText.data(), strText.size());
    } catch (CQLExceptionParser&) {
        return strText;
    }
}

std::string CQLConvParser::ConvAutoDetect(const char* pszText, unsigned long nLen) {
    static const char* const kUtf8[] = {"UTF-8", "ISO-8859-1"};
    static const char* const kKr[] = {"EUC-KR", "ISO-2022-KR"};
    static const char* const kJp[] = {"SHIFT_JIS", "ISO-2022-JP-2", "EUC-JP"};
    const char* const* ppList;
    size_t nCount;
    switch (m_nAutoDetect) {
    case 1:
        ppList = kUtf8;
        nCount = 2;
        break;
    case 2:
        ppList = kKr;
        nCount = 2;
        break;
    case 3:
        ppList = kJp;
        nCount = 3;
        break;
    default:
        return std::string();
    }
    CQLConvParser conv;
    conv.m_bSameFormCopy = m_bSameFormCopy;
    const bool bDiscard = false; // an illegal sequence must fail the try
    for (size_t i = 0; i < nCount; ++i) {
        if (!conv.Open(ppList[i], m_strTo, bDiscard)) {
            m_strLastError = "In Conv, " + conv.GetLastError();
            throw *this;
        }
        try {
            return conv.Conv(pszText, nLen);
        } catch (CQLConvParser& e) {
            if (i + 1 == nCount) {
                m_strLastError = e.GetLastError();
                throw *this;
            }
        }
    }
    return std::string();
}

// Modified UTF-7 (IMAP mailbox names).

namespace {

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";

// Bit n is bit (n % 8) of byte (n / 8), for characters 0 to 127.
const unsigned char direct_tab[16] = {0x00, 0x26, 0x00, 0x00, 0x81, 0xF3, 0xFF, 0x87,
                                      0xFE, 0xFF, 0xFF, 0x07, 0xFE, 0xFF, 0xFF, 0x07};
const unsigned char xdirect_tab[16] = {0x00, 0x26, 0x00, 0x00, 0xFF, 0xF7, 0xFF, 0xFF,
                                       0xFF, 0xFF, 0xFF, 0xEF, 0xFF, 0xFF, 0xFF, 0x3F};
const unsigned char xbase64_tab[16] = {0x00, 0x00, 0x00, 0x00, 0x00, 0xA8, 0xFF, 0x03,
                                       0xFE, 0xFF, 0xFF, 0x07, 0xFE, 0xFF, 0xFF, 0x07};

inline bool InTab(const unsigned char* pTab, unsigned int c) {
    return c < 128 && ((pTab[c >> 3] >> (c & 7)) & 1);
}

// Written as it is by the encoder.
inline bool EncDirect(unsigned int c) {
    return InTab(direct_tab, c) || c == '\\' || c == '+' || c == '~';
}

// Taken as it is by the decoder ("&" is looked at first).
inline bool DecDirect(unsigned int c) {
    return InTab(xdirect_tab, c) || c == '\\' || c == '+' || c == '~';
}

int Base64Value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == ',') return 63;
    return -1;
}

// The state keeps the pending bits at the top of a 6-bit group above the two mode bits:
// mode 1 none pending, 2 two bits, 3 four bits.
void SplitState(unsigned int nState, unsigned int& nBits, unsigned int& nAcc) {
    const unsigned int nGroup = (nState >> 2) & 0x3F;
    switch (nState & 3) {
    case 2:
        nBits = 2;
        nAcc = nGroup >> 4;
        break;
    case 3:
        nBits = 4;
        nAcc = nGroup >> 2;
        break;
    default:
        nBits = 0;
        nAcc = 0;
        break;
    }
}

unsigned int JoinState(unsigned int nBits, unsigned int nAcc) {
    if (nBits == 2) return 2 | (((nAcc & 3) << 4) << 2);
    if (nBits == 4) return 3 | (((nAcc & 15) << 2) << 2);
    return 1;
}

// One character of modified UTF-7. Results as imap_utf7_mbtowc. On -1, nResume is where
// reading can go on behind the fault and nResumeState the state to go on with.
int ReadUtf7(unsigned int& nState, unsigned int& nChar, const unsigned char* p, int n, int& nResume,
             unsigned int& nResumeState) {
    unsigned int st = nState;
    int nCount = 0;
    for (;;) {
        if ((st & 3) == 0) {
            if (nCount >= n) return -2;
            const unsigned char c = p[nCount];
            if (c == '&') {
                if (nCount + 1 >= n) return -2;
                if (p[nCount + 1] == '-') {
                    nChar = '&';
                    nState = 0;
                    return nCount + 2;
                }
                ++nCount;
                st = 1;
            } else if (DecDirect(c)) {
                nChar = c;
                nState = 0;
                return nCount + 1;
            } else {
                nResume = nCount + 1;
                nResumeState = 0;
                return -1;
            }
        }
        unsigned int nBits, nAcc;
        SplitState(st, nBits, nAcc);
        unsigned int nHigh = 0;
        int nRead = 0; // alphabet bytes read towards the unfinished character
        int nPos = nCount;
        for (;;) {
            if (nPos >= n) return -2;
            const int v = Base64Value(p[nPos]);
            if (v < 0) {
                if ((nAcc & ((1u << nBits) - 1)) != 0 || nRead > 0) {
                    nResume = nPos + (p[nPos] == '-' ? 1 : 0);
                    nResumeState = 0;
                    return -1;
                }
                if (p[nPos] == '-') {
                    ++nPos;
                    if (nPos >= n) {
                        nChar = 0;
                        nState = 0;
                        return nPos;
                    }
                }
                nCount = nPos;
                st = 0;
                break;
            }
            ++nPos;
            ++nRead;
            nAcc = ((nAcc << 6) | static_cast<unsigned int>(v)) & 0x3FFFFF;
            nBits += 6;
            if (nBits < 16) continue;
            nBits -= 16;
            const unsigned int nUnit = (nAcc >> nBits) & 0xFFFF;
            nAcc &= (1u << nBits) - 1;
            if (nHigh == 0 && nUnit >= 0xD800 && nUnit <= 0xDBFF) {
                nHigh = nUnit;
                continue;
            }
            if (nHigh != 0) {
                if (nUnit < 0xDC00 || nUnit > 0xDFFF) {
                    nResume = nPos;
                    nResumeState = JoinState(nBits, nAcc);
                    return -1;
                }
                nChar = 0x10000 + ((nHigh - 0xD800) << 10) + (nUnit - 0xDC00);
            } else {
                nChar = nUnit;
            }
            nState = JoinState(nBits, nAcc);
            return nPos;
        }
    }
}

} // namespace

int CQLConvParser::imap_utf7_mbtowc(unsigned int& nState, unsigned int& nChar,
                                    const unsigned char* pszIn, int nLen) {
    int nResume = 0;
    unsigned int nResumeState = 0;
    return ReadUtf7(nState, nChar, pszIn, nLen, nResume, nResumeState);
}

int CQLConvParser::imap_utf7_wctomb(unsigned int& nState, unsigned char* pszOut, unsigned int nChar,
                                    int nRoom) {
    unsigned int st = nState;
    int nCount = 0;
    bool bAmp = false;
    const bool bDirect = EncDirect(nChar);
    if ((st & 3) == 0) {
        if (bDirect) {
            if (nRoom < 1) return -2;
            pszOut[0] = static_cast<unsigned char>(nChar);
            return 1;
        }
        if (nChar == '&') {
            if (nRoom < 2) return -2;
            pszOut[0] = '&';
            pszOut[1] = '-';
            return 2;
        }
        bAmp = true;
        st = 1;
    } else if (bDirect) {
        unsigned int nBits, nAcc;
        SplitState(st, nBits, nAcc);
        // The "-" is always written, but counted only before a character that could be
        // taken for base64. The room test counts it always, so nothing is written past it.
        const int nPending = nBits > 0 ? 1 : 0;
        if (nRoom < nPending + 2) return -2;
        if (nPending) pszOut[nCount++] = static_cast<unsigned char>(kBase64[(st >> 2) & 0x3F]);
        pszOut[nCount++] = '-';
        pszOut[nCount++] = static_cast<unsigned char>(nChar);
        nState = 0;
        return InTab(xbase64_tab, nChar) ? nCount : nCount - 1;
    }
    if (nChar > 0x10FFFF) return -1;
    unsigned char szBytes[4];
    int nBytes;
    if (nChar >= 0x10000) {
        const unsigned int nHigh = 0xD800 + ((nChar - 0x10000) >> 10);
        const unsigned int nLow = 0xDC00 + ((nChar - 0x10000) & 0x3FF);
        szBytes[0] = static_cast<unsigned char>(nHigh >> 8);
        szBytes[1] = static_cast<unsigned char>(nHigh & 0xFF);
        szBytes[2] = static_cast<unsigned char>(nLow >> 8);
        szBytes[3] = static_cast<unsigned char>(nLow & 0xFF);
        nBytes = 4;
    } else {
        szBytes[0] = static_cast<unsigned char>(nChar >> 8);
        szBytes[1] = static_cast<unsigned char>(nChar & 0xFF);
        nBytes = 2;
    }
    const unsigned int nMode = st & 3;
    int nNeed = nBytes == 4 ? 5 + (nMode == 3 ? 1 : 0) : 3 - (nMode < 2 ? 1 : 0);
    if (bAmp) ++nNeed;
    if (nRoom < nNeed) return -2;
    if (bAmp) pszOut[nCount++] = '&';
    unsigned int nBits, nAcc;
    SplitState(st, nBits, nAcc);
    for (int i = 0; i < nBytes; ++i) {
        nAcc = (nAcc << 8) | szBytes[i];
        nBits += 8;
        while (nBits >= 6) {
            nBits -= 6;
            pszOut[nCount++] = static_cast<unsigned char>(kBase64[(nAcc >> nBits) & 0x3F]);
        }
        nAcc &= (1u << nBits) - 1;
    }
    nState = JoinState(nBits, nAcc);
    return nCount;
}

int CQLConvParser::imap_utf7_reset(unsigned int& nState, unsigned char* pszOut, int nRoom) {
    const unsigned int nMode = nState & 3;
    if (nMode == 0) {
        nState = 0;
        return 0;
    }
    const bool bPending = nMode >= 2;
    if (nRoom < (bPending ? 2 : 1)) return -2;
    int nCount = 0;
    if (bPending) pszOut[nCount++] = static_cast<unsigned char>(kBase64[(nState >> 2) & 0x3F]);
    pszOut[nCount++] = '-';
    nState = 0;
    return nCount;
}

std::string CQLConvParser::IMAPUTF7Dec(const std::string& strCharset, const std::string& strText,
                                       const bool& bDiscard) {
    std::string strUcs2;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strText.data());
    const int nLen = static_cast<int>(strText.size());
    unsigned int nState = 0;
    for (int nPos = 0; nPos < nLen;) {
        unsigned int nChar = 0;
        int nResume = 0;
        unsigned int nResumeState = 0;
        const int nResult = ReadUtf7(nState, nChar, p + nPos, nLen - nPos, nResume, nResumeState);
        if (nResult == -2) {
            m_strLastError = "In IMAPUTF7Dec, incomplete multibyte sequence";
            throw *this;
        }
        if (nResult == -1) {
            if (!bDiscard) {
                m_strLastError = "In IMAPUTF7Dec, illegal multibyte sequence";
                throw *this;
            }
            // Step over the fault; it gives no character. A shift that ended badly is
            // dropped with its closing "-", and reading goes on in direct mode.
            if (nResume == 0 && nResumeState == nState) nResume = 1;
            nPos += nResume;
            nState = nResumeState;
            continue;
        }
        if (nChar != 0) {
            strUcs2 += static_cast<char>((nChar >> 8) & 0xFF);
            strUcs2 += static_cast<char>(nChar & 0xFF);
        }
        nPos += nResult;
    }
    Open("UCS-2", strCharset, bDiscard);
    return Conv(strUcs2);
}

std::string CQLConvParser::IMAPUTF7Enc(const std::string& strCharset, const std::string& strText,
                                       const bool& bDiscard) {
    Open(strCharset, "UCS-2", bDiscard);
    const std::string strUcs2 = Conv(strText);
    std::string strOut;
    unsigned int nState = 0;
    unsigned char szBuf[10];
    for (size_t i = 0; i + 1 < strUcs2.size(); i += 2) {
        const unsigned int nChar = (static_cast<unsigned char>(strUcs2[i]) << 8) |
                                   static_cast<unsigned char>(strUcs2[i + 1]);
        memset(szBuf, 0, sizeof(szBuf));
        const int nResult = imap_utf7_wctomb(nState, szBuf, nChar, sizeof(szBuf));
        if (nResult == -1 && !bDiscard) {
            m_strLastError = "In IMAPUTF7Enc, illegal multibyte sequence";
            throw *this;
        }
        if (nResult == -2) {
            m_strLastError = "In IMAPUTF7Enc, incomplete multibyte sequence";
            throw *this;
        }
        strOut.append(reinterpret_cast<char*>(szBuf), strnlen(reinterpret_cast<char*>(szBuf), 10));
    }
    memset(szBuf, 0, sizeof(szBuf));
    imap_utf7_reset(nState, szBuf, sizeof(szBuf));
    strOut.append(reinterpret_cast<char*>(szBuf), strnlen(reinterpret_cast<char*>(szBuf), 10));
    return strOut;
}

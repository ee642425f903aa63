#include "codec/QLIconv.h"

#include "foundation/QLScan.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <iconv.h>

namespace {

const iconv_t kNoCd = reinterpret_cast<iconv_t>(-1);
const size_t kFail = static_cast<size_t>(-1);
const unsigned char kEsc = 0x1B;
// The most one character can take in ISO-2022-JP-MS: an escape sequence and two bytes.
const size_t kJpMaxChar = 5;
// Texts from this size on take the wide path when they can.
const size_t kWideMin = 1024;

inline iconv_t Cd(void* p) {
    return static_cast<iconv_t>(p);
}

// Names compare without regard to ASCII case, whatever the process locale says.
bool SameName(const char* pszA, const char* pszB, size_t nMax) {
    for (size_t i = 0; i < nMax; ++i) {
        char a = pszA[i], b = pszB[i];
        if (a >= 'a' && a <= 'z') a = static_cast<char>(a - 'a' + 'A');
        if (b >= 'a' && b <= 'z') b = static_cast<char>(b - 'a' + 'A');
        if (a != b) return false;
        if (a == '\0') return true;
    }
    return true;
}

inline bool EqualName(const char* pszA, const char* pszB) {
    return SameName(pszA, pszB, static_cast<size_t>(-1));
}

bool IsName(const char* pszName, const char* const* ppList) {
    for (; *ppList; ++ppList)
        if (EqualName(pszName, *ppList)) return true;
    return false;
}

bool HasPrefix(const char* pszName, const char* pszPrefix) {
    return SameName(pszName, pszPrefix, strlen(pszPrefix));
}

const char* const kUcs2[] = {"UCS-2", "UCS2", "ISO-10646-UCS-2", "CSUNICODE", nullptr};
const char* const kUcs4[] = {"UCS-4", "UCS4", "ISO-10646-UCS-4", "CSUCS4", nullptr};
const char* const kUtf16[] = {"UTF-16", "UTF16", nullptr};
const char* const kUtf32[] = {"UTF-32", "UTF32", nullptr};
const char* const kUtf8[] = {
    "UTF-8", "UTF8", "ISO-10646/UTF8/", "ISO-10646/UTF-8/", "ISO-IR-193", "OSF05010001", nullptr};
// Shift_JIS as mail labels it, which is nearly always Windows code page 932 in practice.
const char* const kShiftJis[] = {"SHIFT_JIS", "SHIFT-JIS",  "SJIS",        "X-SJIS",
                                 "MS_KANJI",  "CSSHIFTJIS", "WINDOWS-31J", nullptr};

// The name handed to iconv for a name given by the caller, and what it implies.
struct Side {
    std::string strName;
    size_t nBom = 0; // 2 or 4: UTF-16 or UTF-32 with a byte-order mark
    bool bJp = false;
};

Side Resolve(const char* pszName) {
    Side side;
    if (EqualName(pszName, "ISO-2022-JP-MS")) {
        side.strName = "CP932";
        side.bJp = true;
    } else if (IsName(pszName, kShiftJis)) {
        side.strName = "CP932";
    } else if (IsName(pszName, kUcs2)) {
        side.strName = "UCS-2BE";
    } else if (IsName(pszName, kUcs4)) {
        side.strName = "UCS-4BE";
    } else if (IsName(pszName, kUtf16)) {
        side.strName = "UTF-16BE";
        side.nBom = 2;
    } else if (IsName(pszName, kUtf32)) {
        side.strName = "UTF-32BE";
        side.nBom = 4;
    } else {
        side.strName = pszName;
    }
    return side;
}

size_t UnitOf(const char* pszName) {
    if (HasPrefix(pszName, "UCS-2") || HasPrefix(pszName, "UCS2") || HasPrefix(pszName, "UTF-16") ||
        HasPrefix(pszName, "UTF16"))
        return 2;
    if (HasPrefix(pszName, "UCS-4") || HasPrefix(pszName, "UCS4") || HasPrefix(pszName, "UTF-32") ||
        HasPrefix(pszName, "UTF32"))
        return 4;
    return 1;
}

void CloseCd(void*& p, bool& bFailed) {
    if (p != nullptr && Cd(p) != kNoCd && iconv_close(Cd(p)) == -1) bFailed = true;
    p = nullptr;
}

// JIS X 0208 row and cell (0x21-0x7E each) to Shift_JIS.
void JisToSjis(unsigned char j1, unsigned char j2, unsigned char& s1, unsigned char& s2) {
    s1 = static_cast<unsigned char>(((j1 - 0x21) >> 1) + 0x81);
    if (s1 > 0x9F) s1 = static_cast<unsigned char>(s1 + 0x40);
    if (j1 & 1) {
        s2 = static_cast<unsigned char>(j2 + 0x1F);
        if (s2 >= 0x7F) ++s2;
    } else {
        s2 = static_cast<unsigned char>(j2 + 0x7E);
    }
}

// Shift_JIS to JIS X 0208; false when the code lies outside rows 1 to 94.
bool SjisToJis(unsigned char s1, unsigned char s2, unsigned char& j1, unsigned char& j2) {
    int nRow2;
    if (s1 >= 0x81 && s1 <= 0x9F)
        nRow2 = (s1 - 0x81) * 2;
    else if (s1 >= 0xE0 && s1 <= 0xEF)
        nRow2 = (s1 - 0xE0 + 31) * 2;
    else
        return false;
    if (s2 < 0x40 || s2 == 0x7F || s2 > 0xFC) return false;
    if (s2 >= 0x9F) {
        j1 = static_cast<unsigned char>(nRow2 + 0x22);
        j2 = static_cast<unsigned char>(s2 - 0x7E);
    } else {
        j1 = static_cast<unsigned char>(nRow2 + 0x21);
        j2 = static_cast<unsigned char>(s2 - (s2 >= 0x80 ? 0x20 : 0x1F));
    }
    return true;
}

// The C library's UTF-8 is that of ISO 10646, with five- and six-byte forms and values up to
// 0x7FFFFFFF. By the first byte of a character: its length (0 where none begins) and the
// range of its second byte, which rules out overlong forms and surrogates.
struct Utf8Lead {
    unsigned char nLen, nLow, nHigh;
};

constexpr std::array<Utf8Lead, 256> MakeUtf8Leads() {
    std::array<Utf8Lead, 256> a{};
    for (int c = 0; c < 256; ++c) {
        const unsigned char nLen = c < 0x80   ? 1
                                   : c < 0xC2 ? 0
                                   : c < 0xE0 ? 2
                                   : c < 0xF0 ? 3
                                   : c < 0xF8 ? 4
                                   : c < 0xFC ? 5
                                   : c < 0xFE ? 6
                                              : 0;
        a[c] = {nLen, 0x80, 0xBF};
    }
    a[0xE0].nLow = 0xA0;  // below: fewer than 0x800
    a[0xED].nHigh = 0x9F; // above: surrogates
    a[0xF0].nLow = 0x90;  // below: fewer than 0x10000
    a[0xF8].nLow = 0x88;  // below: fewer than 0x200000
    a[0xFC].nLow = 0x84;  // below: fewer than 0x4000000
    return a;
}
constexpr std::array<Utf8Lead, 256> kUtf8Lead = MakeUtf8Leads();

inline bool IsTrail(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// The length of the character at the start as the C library's decoder takes it, or 0.
inline size_t Utf8Char(const unsigned char* p, size_t n) {
    const Utf8Lead lead = kUtf8Lead[p[0]];
    if (lead.nLen == 0 || lead.nLen > n) return 0;
    if (lead.nLen == 1) return 1;
    if (p[1] < lead.nLow || p[1] > lead.nHigh) return 0;
    for (size_t j = 2; j < lead.nLen; ++j)
        if (!IsTrail(p[j])) return 0;
    return lead.nLen;
}

} // namespace

CQLIconv::CQLIconv()
    : m_cd(nullptr), m_cdProbe(nullptr), m_cdAux(nullptr), m_cdWideIn(nullptr),
      m_cdWideOut(nullptr), m_nWideBound(0), m_bTextStart(true), m_bUseWide(false),
      m_bDiscard(false), m_nUnit(1), m_nBomFrom(0), m_bBomPending(false), m_bLittleFrom(false),
      m_nBomTo(0), m_bBomToWrite(false), m_bJpFrom(false), m_bJpTo(false), m_eJpIn(JP_ASCII),
      m_eJpOut(JP_ASCII), m_bUtf8Both(false) {}

CQLIconv::~CQLIconv() {
    Close();
}

bool CQLIconv::Open(const char* pszTo, const char* pszFrom) {
    Close();
    if (pszTo == nullptr || pszFrom == nullptr) {
        errno = EINVAL;
        return false;
    }
    // UTF-8 to UTF-8 is copied by CQLConvParser, which then never converts here: the names need
    // no resolving, and the descriptor, whose opening costs more than copying a file name,
    // waits for a first Conv.
    m_bUtf8Both = IsName(pszFrom, kUtf8) && IsName(pszTo, kUtf8);
    const Side from = m_bUtf8Both ? Side{pszFrom} : Resolve(pszFrom);
    const Side to = m_bUtf8Both ? Side{pszTo} : Resolve(pszTo);
    if (!m_bUtf8Both) {
        iconv_t cd = iconv_open(to.strName.c_str(), from.strName.c_str());
        if (cd == kNoCd) return false;
        m_cd = cd;
    }
    m_strFrom = from.strName;
    m_strTo = to.strName;
    m_nUnit = UnitOf(m_strFrom.c_str());
    m_nBomFrom = from.nBom;
    m_bBomPending = from.nBom != 0;
    m_bLittleFrom = false;
    m_nBomTo = to.nBom;
    m_bBomToWrite = to.nBom != 0;
    m_bJpFrom = from.bJp;
    m_bJpTo = to.bJp;
    m_eJpIn = m_eJpOut = JP_ASCII;
    m_bTextStart = true;
    m_bUseWide = false;
    return true;
}

int CQLIconv::Close() {
    m_bUtf8Both = false;
    bool bFailed = false;
    int nErr = 0;
    CloseCd(m_cd, bFailed);
    if (bFailed) nErr = errno;
    CloseCd(m_cdProbe, bFailed);
    CloseCd(m_cdAux, bFailed);
    CloseCd(m_cdWideIn, bFailed);
    CloseCd(m_cdWideOut, bFailed);
    if (!bFailed) return 0;
    if (nErr != 0) errno = nErr;
    return -1;
}

// A UTF-16 or UTF-32 source whose mark asks for the other byte order.
bool CQLIconv::ReopenSource(const std::string& strFrom) {
    iconv_t cd = iconv_open(m_strTo.c_str(), strFrom.c_str());
    if (cd == kNoCd) return false;
    bool bIgnored = false;
    CloseCd(m_cd, bIgnored);
    CloseCd(m_cdProbe, bIgnored);
    m_cd = cd;
    m_strFrom = strFrom;
    if (m_cdWideIn != nullptr) {
        CloseCd(m_cdWideIn, bIgnored);
        cd = iconv_open("WCHAR_T", strFrom.c_str());
        if (cd == kNoCd)
            CloseWide();
        else
            m_cdWideIn = cd;
    }
    return true;
}

void CQLIconv::CloseWide() {
    bool bIgnored = false;
    CloseCd(m_cdWideIn, bIgnored);
    CloseCd(m_cdWideOut, bIgnored);
    m_nWideBound = 0;
}

void CQLIconv::SetDiscardIlseq(bool bDiscard) {
    m_bDiscard = bDiscard;
    m_nWideBound = 0;
    if (!bDiscard || m_bJpFrom || m_bJpTo) return;
    // The wide path holds no output back, so it needs the size of the largest character.
    const char* pszTo = m_strTo.c_str();
    if (EqualName(pszTo, "UTF-8") || EqualName(pszTo, "UTF8"))
        m_nWideBound = 6; // the C library writes values up to 0x7FFFFFFF
    else if (HasPrefix(pszTo, "UTF-16") || HasPrefix(pszTo, "UTF-32") || HasPrefix(pszTo, "UCS-4"))
        m_nWideBound = 4;
    else if (HasPrefix(pszTo, "UCS-2"))
        m_nWideBound = 2;
}

bool CQLIconv::OpenWide() {
    if (m_cdWideIn != nullptr) return true;
    iconv_t cdIn = iconv_open("WCHAR_T", m_strFrom.c_str());
    if (cdIn == kNoCd) return false;
    iconv_t cdOut = iconv_open(m_strTo.c_str(), "WCHAR_T");
    if (cdOut == kNoCd) {
        iconv_close(cdIn);
        return false;
    }
    m_cdWideIn = cdIn;
    m_cdWideOut = cdOut;
    return true;
}

size_t CQLIconv::Conv(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft) {
    if (m_cd == nullptr && m_bUtf8Both) {
        iconv_t cd = iconv_open(m_strTo.c_str(), m_strFrom.c_str());
        if (cd != kNoCd) m_cd = cd;
    }
    if (m_cd == nullptr) {
        errno = EBADF;
        return kFail;
    }
    if (ppIn == nullptr || *ppIn == nullptr) return Reset(ppOut, pnOutLeft);
    if (pnInLeft == nullptr || ppOut == nullptr || *ppOut == nullptr || pnOutLeft == nullptr) {
        errno = EINVAL;
        return kFail;
    }
    if (m_bJpFrom) return ConvFromJp(ppIn, pnInLeft, ppOut, pnOutLeft);
    return ConvCore(ppIn, pnInLeft, ppOut, pnOutLeft, m_bDiscard);
}

size_t CQLIconv::Reset(char** ppOut, size_t* pnOutLeft) {
    m_eJpIn = JP_ASCII;
    m_bTextStart = true;
    m_bBomPending = m_nBomFrom != 0;
    m_bBomToWrite = m_nBomTo != 0;
    if (m_cdWideIn != nullptr) {
        iconv(Cd(m_cdWideIn), nullptr, nullptr, nullptr, nullptr);
        if (ppOut == nullptr || *ppOut == nullptr || pnOutLeft == nullptr)
            iconv(Cd(m_cdWideOut), nullptr, nullptr, nullptr, nullptr);
        else if (iconv(Cd(m_cdWideOut), nullptr, nullptr, ppOut, pnOutLeft) == kFail)
            return kFail;
    }
    if (ppOut == nullptr || *ppOut == nullptr || pnOutLeft == nullptr) {
        iconv(Cd(m_cd), nullptr, nullptr, nullptr, nullptr);
        m_eJpOut = JP_ASCII;
        return 0;
    }
    if (iconv(Cd(m_cd), nullptr, nullptr, ppOut, pnOutLeft) == kFail) return kFail;
    if (m_bJpTo && m_eJpOut != JP_ASCII) {
        if (*pnOutLeft < 3) {
            errno = E2BIG;
            return kFail;
        }
        memcpy(*ppOut, "\x1B(B", 3);
        *ppOut += 3;
        *pnOutLeft -= 3;
        m_eJpOut = JP_ASCII;
    }
    return 0;
}

// Settles the byte order of a UTF-16 or UTF-32 source from its first bytes; a mark is
// consumed, and without one the order is big-endian.
bool CQLIconv::ReadSourceBom(char** ppIn, size_t* pnInLeft) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(*ppIn);
    const size_t n = m_nBomFrom;
    bool bLittle = false, bMark = false;
    if (n == 2 && p[0] == 0xFE && p[1] == 0xFF) {
        bMark = true;
    } else if (n == 2 && p[0] == 0xFF && p[1] == 0xFE) {
        bMark = bLittle = true;
    } else if (n == 4 && p[0] == 0 && p[1] == 0 && p[2] == 0xFE && p[3] == 0xFF) {
        bMark = true;
    } else if (n == 4 && p[0] == 0xFF && p[1] == 0xFE && p[2] == 0 && p[3] == 0) {
        bMark = bLittle = true;
    }
    if (bLittle != m_bLittleFrom) {
        std::string strName = (n == 2 ? "UTF-16" : "UTF-32");
        strName += bLittle ? "LE" : "BE";
        if (!ReopenSource(strName)) return false;
        m_bLittleFrom = bLittle;
    }
    if (bMark) {
        *ppIn += n;
        *pnInLeft -= n;
    }
    m_bBomPending = false;
    return true;
}

size_t CQLIconv::ConvCore(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft,
                          bool bDiscard) {
    if (*pnInLeft == 0) return 0;
    if (m_bTextStart) {
        // Both ways are in their initial state here, so the choice is free.
        m_bTextStart = false;
        m_bUseWide = m_nWideBound > 0 && *pnInLeft >= kWideMin && OpenWide();
    }
    if (m_bBomPending) {
        if (*pnInLeft < m_nBomFrom) {
            errno = EINVAL;
            return kFail;
        }
        if (!ReadSourceBom(ppIn, pnInLeft)) return kFail;
    }
    // A target mark goes in front of the first character: room is kept for it and it is
    // written once something has been converted behind it.
    char* pMark = nullptr;
    if (m_bBomToWrite) {
        if (*pnOutLeft < m_nBomTo) {
            errno = E2BIG;
            return kFail;
        }
        pMark = *ppOut;
        *ppOut += m_nBomTo;
        *pnOutLeft -= m_nBomTo;
    }
    size_t nResult = m_bJpTo ? ConvToJp(ppIn, pnInLeft, ppOut, pnOutLeft, bDiscard)
                     : m_cdWideIn != nullptr
                         ? ConvWide(ppIn, pnInLeft, ppOut, pnOutLeft)
                         : ConvDirect(ppIn, pnInLeft, ppOut, pnOutLeft, bDiscard);
    if (pMark != nullptr) {
        const int nErr = errno;
        if (*ppOut > pMark + m_nBomTo) {
            if (m_nBomTo == 2)
                memcpy(pMark, "\xFE\xFF", 2);
            else
                memcpy(pMark, "\x00\x00\xFE\xFF", 4);
            m_bBomToWrite = false;
        } else {
            *ppOut = pMark;
            *pnOutLeft += m_nBomTo;
        }
        errno = nErr;
    }
    return nResult;
}

size_t CQLIconv::ConvDirect(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft,
                            bool bDiscard) {
    for (;;) {
        if (iconv(Cd(m_cd), ppIn, pnInLeft, ppOut, pnOutLeft) != kFail) return 0;
        if (errno != EILSEQ || !bDiscard) return kFail;
        const size_t nSkip = SkipLength(*ppIn, *pnInLeft);
        *ppIn += nSkip;
        *pnInLeft -= nSkip;
        if (*pnInLeft == 0) return 0;
    }
}

// Discarding into a Unicode target: the source is read into wide characters, no more at a
// time than the output can surely take, so the second step never runs out of room and the
// input position is always exact. A character the target lacks is dropped in the second step.
size_t CQLIconv::ConvWide(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft) {
    const size_t nWideSize = sizeof(wchar_t);
    while (*pnInLeft > 0) {
        size_t nChars = *pnOutLeft / m_nWideBound;
        if (nChars == 0) {
            errno = E2BIG;
            return kFail;
        }
        if (nChars > sizeof(m_szWide) / nWideSize) nChars = sizeof(m_szWide) / nWideSize;
        char* pWide = m_szWide;
        size_t nWideRoom = nChars * nWideSize;
        int nErr = 0;
        if (iconv(Cd(m_cdWideIn), ppIn, pnInLeft, &pWide, &nWideRoom) == kFail) nErr = errno;
        char* pNext = m_szWide;
        size_t nWide = static_cast<size_t>(pWide - m_szWide);
        while (nWide > 0) {
            if (iconv(Cd(m_cdWideOut), &pNext, &nWide, ppOut, pnOutLeft) != kFail) break;
            if (errno != EILSEQ) return kFail; // cannot happen within the bound
            pNext += nWideSize;
            nWide -= nWideSize;
        }
        if (nErr == 0 || nErr == E2BIG) continue;
        if (nErr != EILSEQ) {
            errno = nErr;
            return kFail;
        }
        const size_t nSkip = SkipLength(*ppIn, *pnInLeft);
        *ppIn += nSkip;
        *pnInLeft -= nSkip;
    }
    return 0;
}

// How much to skip at a character that stopped the conversion: the whole character when it
// is valid (the target lacks it), else one unit of the source.
size_t CQLIconv::SkipLength(const char* pIn, size_t nLeft) {
    if (nLeft == 0) return 0;
    const size_t nUnit = m_nUnit < nLeft ? m_nUnit : nLeft;
    if (m_cdProbe == nullptr) {
        iconv_t cd = iconv_open("UCS-4BE", m_strFrom.c_str());
        m_cdProbe = (cd == kNoCd) ? reinterpret_cast<void*>(kNoCd) : cd;
    }
    if (Cd(m_cdProbe) == kNoCd) return nUnit;
    iconv(Cd(m_cdProbe), nullptr, nullptr, nullptr, nullptr);
    char szChar[4];
    char* pProbeIn = const_cast<char*>(pIn);
    size_t nProbeIn = nLeft;
    char* pProbeOut = szChar;
    size_t nProbeOut = sizeof(szChar);
    iconv(Cd(m_cdProbe), &pProbeIn, &nProbeIn, &pProbeOut, &nProbeOut);
    const size_t nUsed = nLeft - nProbeIn;
    if (nProbeOut == 0 && nUsed > 0) return nUsed;
    return nUnit;
}

// Any source to ISO-2022-JP-MS: the C library turns one character at a time into CP932,
// and PutJp writes it with the escape sequence its set needs.
size_t CQLIconv::ConvToJp(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft,
                          bool bDiscard) {
    while (*pnInLeft > 0) {
        if (*pnOutLeft < kJpMaxChar) {
            errno = E2BIG;
            return kFail;
        }
        char* pStart = *ppIn;
        const size_t nStartLeft = *pnInLeft;
        unsigned char szChar[2];
        char* pChar = reinterpret_cast<char*>(szChar);
        size_t nRoom = 1;
        int nErr = 0;
        // A room of one byte takes a single-byte character; a double-byte one then needs two.
        if (iconv(Cd(m_cd), ppIn, pnInLeft, &pChar, &nRoom) == kFail) nErr = errno;
        size_t nGot = 1 - nRoom;
        if (nErr == E2BIG && nGot == 0) {
            nRoom = 2;
            nErr = 0;
            if (iconv(Cd(m_cd), ppIn, pnInLeft, &pChar, &nRoom) == kFail) nErr = errno;
            nGot = 2 - nRoom;
        }
        if (nGot == 0) {
            if (nErr == 0) continue; // only a shift sequence was read
            if (nErr == EILSEQ && bDiscard) {
                const size_t nSkip = SkipLength(*ppIn, *pnInLeft);
                *ppIn += nSkip;
                *pnInLeft -= nSkip;
                continue;
            }
            errno = nErr;
            return kFail;
        }
        if (!PutJp(szChar, nGot, ppOut, pnOutLeft) && !bDiscard) {
            *ppIn = pStart;
            *pnInLeft = nStartLeft;
            errno = EILSEQ;
            return kFail;
        }
    }
    return 0;
}

bool CQLIconv::PutJp(const unsigned char* pChar, size_t nLen, char** ppOut, size_t* pnOutLeft) {
    JpMode eMode;
    unsigned char szBytes[2];
    size_t nBytes;
    if (nLen == 1 && pChar[0] < 0x80) {
        eMode = JP_ASCII;
        szBytes[0] = pChar[0];
        nBytes = 1;
    } else if (nLen == 1 && pChar[0] >= 0xA1 && pChar[0] <= 0xDF) {
        eMode = JP_KANA;
        szBytes[0] = static_cast<unsigned char>(pChar[0] - 0x80);
        nBytes = 1;
    } else if (nLen == 2) {
        unsigned char c1 = pChar[0], c2 = pChar[1];
        if (c1 >= 0xFA && c1 <= 0xFC && !IbmToNec(c1, c2)) return false;
        if (!SjisToJis(c1, c2, szBytes[0], szBytes[1])) return false;
        eMode = JP_X0208;
        nBytes = 2;
    } else {
        return false;
    }
    if (eMode != m_eJpOut) {
        const char* pszEsc = eMode == JP_ASCII ? "\x1B(B" : eMode == JP_KANA ? "\x1B(I" : "\x1B$B";
        memcpy(*ppOut, pszEsc, 3);
        *ppOut += 3;
        *pnOutLeft -= 3;
        m_eJpOut = eMode;
    }
    memcpy(*ppOut, szBytes, nBytes);
    *ppOut += nBytes;
    *pnOutLeft -= nBytes;
    return true;
}

// CP932 encodes the IBM extensions at 0xFA40-0xFC4B, outside the 94 rows that ISO-2022-JP
// can reach; the same characters stand in NEC row 13, JIS row 2 or the NEC-selected rows
// 89 to 92 (0xED40-0xEEFC). The candidate is checked by decoding both codes.
bool CQLIconv::IbmToNec(unsigned char& c1, unsigned char& c2) {
    if (c2 < 0x40 || c2 == 0x7F || c2 > 0xFC) return false;
    const int nIndex = (c1 - 0xFA) * 188 + (c2 - 0x40) - (c2 > 0x7F ? 1 : 0);
    static const unsigned short kSymbols[18] = {0x8754, 0x8755, 0x8756, 0x8757, 0x8758, 0x8759,
                                                0x875A, 0x875B, 0x875C, 0x875D, 0x81CA, 0xEEFA,
                                                0xEEFB, 0xEEFC, 0x878D, 0x8782, 0x8784, 0x81E6};
    int nNec;
    if (nIndex < 10)
        nNec = 0xEEEF + nIndex; // small roman numerals
    else if (nIndex < 28)
        nNec = kSymbols[nIndex - 10];
    else if (nIndex < 28 + 360) {
        const int k = nIndex - 28; // kanji, in the same order in both blocks
        const int nLead = 0xED + k / 188;
        int nTrail = 0x40 + k % 188;
        if (nTrail >= 0x7F) ++nTrail;
        nNec = (nLead << 8) | nTrail;
    } else {
        return false;
    }
    if (m_cdAux == nullptr) {
        iconv_t cd = iconv_open("UCS-4BE", "CP932");
        m_cdAux = (cd == kNoCd) ? reinterpret_cast<void*>(kNoCd) : cd;
    }
    if (Cd(m_cdAux) == kNoCd) return false;
    unsigned char szIbm[2] = {c1, c2};
    unsigned char szNec[2] = {static_cast<unsigned char>(nNec >> 8),
                              static_cast<unsigned char>(nNec & 0xFF)};
    char szOut[8];
    char* pIn = reinterpret_cast<char*>(szIbm);
    size_t nIn = 2;
    char* pOut = szOut;
    size_t nOut = 4;
    if (iconv(Cd(m_cdAux), &pIn, &nIn, &pOut, &nOut) == kFail || nOut != 0) return false;
    pIn = reinterpret_cast<char*>(szNec);
    nIn = 2;
    nOut = 4;
    if (iconv(Cd(m_cdAux), &pIn, &nIn, &pOut, &nOut) == kFail || nOut != 0) return false;
    if (memcmp(szOut, szOut + 4, 4) != 0) return false;
    c1 = szNec[0];
    c2 = szNec[1];
    return true;
}

// ISO-2022-JP-MS to any target. Each run between escape sequences is rewritten into CP932,
// byte for byte of the same length, so a position in the run is a position in the input.
size_t CQLIconv::ConvFromJp(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft) {
    unsigned char szRun[1024];
    const unsigned char* p = reinterpret_cast<const unsigned char*>(*ppIn);
    size_t n = *pnInLeft;
    auto Done = [&](int nErr) {
        *ppIn = reinterpret_cast<char*>(const_cast<unsigned char*>(p));
        *pnInLeft = n;
        if (nErr == 0) return static_cast<size_t>(0);
        errno = nErr;
        return kFail;
    };
    while (n > 0) {
        int nStop = 0;
        if (p[0] == kEsc) {
            // ESC ( B, ESC ( J: ASCII; ESC ( I: katakana; ESC $ @, ESC $ B: JIS X 0208;
            // ESC & @: the announcer of JIS X 0208-1990, which changes nothing.
            size_t nEsc = 0;
            if (n < 3) {
                const bool bPrefix = n == 1 || p[1] == '(' || p[1] == '$' || p[1] == '&';
                nStop = bPrefix ? EINVAL : EILSEQ;
            } else if (p[1] == '(' && (p[2] == 'B' || p[2] == 'J')) {
                m_eJpIn = JP_ASCII;
                nEsc = 3;
            } else if (p[1] == '(' && p[2] == 'I') {
                m_eJpIn = JP_KANA;
                nEsc = 3;
            } else if (p[1] == '$' && (p[2] == '@' || p[2] == 'B')) {
                m_eJpIn = JP_X0208;
                nEsc = 3;
            } else if (p[1] == '&' && p[2] == '@') {
                nEsc = 3;
            } else {
                nStop = EILSEQ;
            }
            if (nEsc > 0) {
                p += nEsc;
                n -= nEsc;
                continue;
            }
        }
        size_t k = 0;
        while (nStop == 0 && k < n && k + 2 <= sizeof(szRun)) {
            const unsigned char b = p[k];
            if (b == kEsc) break;
            if (b <= 0x20 || b == 0x7F) {
                szRun[k++] = b; // controls and blanks stand in every set
            } else if (b >= 0x80) {
                nStop = EILSEQ;
            } else if (m_eJpIn == JP_ASCII) {
                szRun[k++] = b;
            } else if (m_eJpIn == JP_KANA) {
                if (b > 0x5F)
                    nStop = EILSEQ;
                else
                    szRun[k++] = static_cast<unsigned char>(b + 0x80);
            } else if (k + 1 >= n) {
                nStop = EINVAL;
            } else if (p[k + 1] < 0x21 || p[k + 1] > 0x7E) {
                nStop = EILSEQ;
            } else {
                JisToSjis(b, p[k + 1], szRun[k], szRun[k + 1]);
                k += 2;
            }
        }
        if (k > 0) {
            char* pRun = reinterpret_cast<char*>(szRun);
            size_t nRun = k;
            const size_t nResult = ConvCore(&pRun, &nRun, ppOut, pnOutLeft, false);
            const int nErr = errno;
            const size_t nUsed = k - nRun;
            p += nUsed;
            n -= nUsed;
            if (nResult != kFail) continue;
            if (nErr != EILSEQ || !m_bDiscard) return Done(nErr);
            // A character CP932 lacks, or the target cannot take: skip it whole.
            size_t nSkip = (m_eJpIn == JP_X0208 && p[0] > 0x20 && p[0] != 0x7F) ? 2 : 1;
            if (nSkip > n) nSkip = n;
            p += nSkip;
            n -= nSkip;
            continue;
        }
        if (nStop == EILSEQ && m_bDiscard) {
            ++p;
            --n;
            continue;
        }
        return Done(nStop != 0 ? nStop : EILSEQ);
    }
    return Done(0);
}

size_t CQLIconv::Utf8Span(const char* pText, size_t nLen) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pText);
    size_t i = 0;
    for (;;) {
        i += CQLScan::Utf8Run(p + i, nLen - i);
        if (i == nLen) return i;
        const size_t k = Utf8Char(p + i, nLen - i);
        if (k == 0) return i;
        i += k;
    }
}

bool CQLIconv::Utf8Incomplete(const char* pText, size_t nLen) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pText);
    if (nLen == 0 || kUtf8Lead[p[0]].nLen <= nLen) return false;
    for (size_t i = 1; i < nLen; ++i)
        if (!IsTrail(p[i])) return false;
    return true;
}

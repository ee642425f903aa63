#ifndef QLMAIL_CODEC_QLICONV_H
#define QLMAIL_CODEC_QLICONV_H

#include <cstddef>
#include <string>

// The one door to the C library's iconv. It is used like an iconv descriptor and gives the
// behaviour of GNU libiconv that CQLConvParser relies on, where the C library differs:
//
//  - SetDiscardIlseq(true), the ICONV_SET_DISCARD_ILSEQ request: an invalid input byte is
//    skipped (a 2-byte unit for UCS-2/UTF-16 sources, 4 bytes for UCS-4/UTF-32) and the
//    conversion goes on; a valid character that the target cannot represent is skipped
//    whole. Without it, EILSEQ comes back with the input at the offending character.
//  - "UCS-2" and "UCS-4" are big-endian without a byte-order mark. "UTF-16" and "UTF-32"
//    read a byte-order mark at the start of a text and default to big-endian; as a target
//    they write a big-endian mark before the first character.
//  - "ISO-2022-JP-MS": ISO-2022-JP with the CP932 repertoire (JIS X 0208 with NEC row 13
//    and the NEC-selected IBM extensions, half-width katakana by ESC ( I), done here on top
//    of the C library's CP932. ESC ( J is read as ASCII, as Windows does.
//  - Shift_JIS under any of its names (SHIFT_JIS, SHIFT-JIS, SJIS, X-SJIS, MS_KANJI,
//    CSSHIFTJIS, WINDOWS-31J) is CP932 both ways, as Windows writes it and browsers read it:
//    NEC row 13 and the IBM extensions are known, and 0x5C is a backslash, not a yen sign.
//    Text in the JIS mapping (yen sign, wave dash, overline) is still written.
//
// Every other name goes to iconv_open as it is given. Built against GNU libiconv, this class
// would shrink to the Shift_JIS names and a forwarder to libiconv_open, libiconv, libiconvctl
// and libiconv_close.
//
// Performance: the C library converts between two non-Unicode charsets in two steps and, when
// the output is full, converts again what the second step could not take, which makes small
// output buffers slow. When a text of 1 KiB or more is discarded into UTF-8, UTF-16, UTF-32,
// UCS-2 or UCS-4, the two steps are made here, each a single step of the C library, with no
// work done twice. Short texts, such as header values, go the direct way.
//
// Limit: the length of a character to skip is found by a second descriptor started in the
// initial shift state, so for the C library's own stateful sources (ISO-2022-KR, ISO-2022-CN,
// UTF-7) a character that the target cannot represent may be skipped byte by byte.
class CQLIconv {
public:
    CQLIconv();
    ~CQLIconv();
    CQLIconv(const CQLIconv&) = delete;
    CQLIconv& operator=(const CQLIconv&) = delete;

    // As iconv_open(to, from): false with errno set, EINVAL for a name that is not known.
    bool Open(const char* pszTo, const char* pszFrom);
    // As iconv_close: 0, or -1 with errno set. Everything is released either way.
    int Close();
    void SetDiscardIlseq(bool bDiscard);

    // Both names are names of UTF-8. CQLConvParser then copies a text where the C library
    // would take it, and does not come here.
    bool IsUtf8Both() const { return m_bUtf8Both; }
    bool IsDiscarding() const { return m_bDiscard; }
    // How the C library's UTF-8 decoder reads a text: the length of the longest start made of
    // characters it takes, and whether a text that it does not take at its start is rather a
    // character cut off by the end (a first byte followed only by continuation bytes, fewer
    // than it needs), for which it asks for more input instead of refusing it.
    static size_t Utf8Span(const char* pText, size_t nLen);
    static bool Utf8Incomplete(const char* pText, size_t nLen);

    // As iconv(3). A null input writes the closing shift sequence (with a null output too,
    // only the state is reset); either way the next text starts afresh, byte-order marks
    // included. Returns (size_t)-1 with errno E2BIG, EILSEQ or EINVAL, else 0.
    size_t Conv(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft);

private:
    enum JpMode { JP_ASCII, JP_KANA, JP_X0208 };

    size_t ConvCore(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft, bool bDiscard);
    size_t ConvDirect(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft,
                      bool bDiscard);
    size_t ConvToJp(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft, bool bDiscard);
    size_t ConvFromJp(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft);
    size_t Reset(char** ppOut, size_t* pnOutLeft);
    bool ReadSourceBom(char** ppIn, size_t* pnInLeft);
    size_t SkipLength(const char* pIn, size_t nLeft);
    bool PutJp(const unsigned char* pChar, size_t nLen, char** ppOut, size_t* pnOutLeft);
    bool IbmToNec(unsigned char& c1, unsigned char& c2);
    size_t ConvWide(char** ppIn, size_t* pnInLeft, char** ppOut, size_t* pnOutLeft);
    bool ReopenSource(const std::string& strFrom);
    void CloseWide();
    bool OpenWide();

    void* m_cd;      // iconv_t: effective source to effective target
    void* m_cdProbe; // iconv_t: effective source to UCS-4BE, to measure a character to skip
    void* m_cdAux;   // iconv_t: CP932 to UCS-4BE, to check the IBM to NEC mapping
    // When discarding into a Unicode target, the conversion runs in two single steps through
    // the C library's wide characters (see ConvWide); m_cdWideIn reads the source, m_cdWideOut
    // writes the target. Null otherwise.
    void* m_cdWideIn;
    void* m_cdWideOut;
    size_t m_nWideBound; // the most bytes one character takes in the target, 0: no wide path
    bool m_bTextStart;   // nothing of the current text has been read yet
    bool m_bUseWide;     // the current text goes the wide path
    char m_szWide[1024];
    std::string m_strFrom; // effective source name handed to iconv
    std::string m_strTo;   // effective target name handed to iconv
    bool m_bDiscard;
    size_t m_nUnit;     // bytes skipped for an invalid input byte
    size_t m_nBomFrom;  // 2 or 4 for UTF-16/UTF-32 sources, else 0
    bool m_bBomPending; // the source's byte order is not settled yet for this text
    bool m_bLittleFrom; // the source descriptor reads little-endian
    size_t m_nBomTo;    // 2 or 4 for UTF-16/UTF-32 targets, else 0
    bool m_bBomToWrite; // the target's mark is still to be written for this text
    bool m_bJpFrom;
    bool m_bJpTo;
    JpMode m_eJpIn;
    JpMode m_eJpOut;
    bool m_bUtf8Both;
};

#endif

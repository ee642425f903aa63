#ifndef QLMAIL_CODEC_QLCONVPARSER_H
#define QLMAIL_CODEC_QLCONVPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>

class CQLIconv;

/// One charset converter. Repairs the labels that mail carries before they reach the
/// converter (FixCS()), keeps going over cut-off text, and in autodetect mode tries a fixed
/// list of charsets. A failing operation throws a copy of the object; the copy carries only
/// the text. Also home of the modified UTF-7 codec of IMAP mailbox names.
///
///     CQLConvParser conv;
///     if (!conv.Open("ks_c_5601-1987", "UTF-8", true)) return fail(conv.GetLastError());
///     std::string strText = conv.Conv(strBody); // the input itself if conversion fails
///
/// The source may also be one of the pseudo-names "autodetect_utf8" (UTF-8, else
/// ISO-8859-1), "autodetect_kr" (EUC-KR, else ISO-2022-KR) and "autodetect_jp" (Shift_JIS,
/// ISO-2022-JP-2, EUC-JP): the first that converts without an illegal sequence wins. Text
/// labelled Shift_JIS under any of its names is read and written as code page 932.
class QLMAIL_EXPORT CQLConvParser : public CQLExceptionParser {
public:
    /// Nothing open.
    CQLConvParser();
    ///@{
    /// Copies take the error text only: they are what a failing operation throws.
    CQLConvParser(const CQLConvParser& other);
    CQLConvParser& operator=(const CQLConvParser& other);
    ///@}
    /// Closes what is open.
    virtual ~CQLConvParser();

    /// Opens a conversion between two repaired labels; bDiscard skips what the target cannot
    /// take, and illegal input, instead of failing. False with the text set for an unknown
    /// or empty name (no text for a name of 50 bytes or more).
    bool Open(const std::string& strFrom, const std::string& strTo, const bool& bDiscard);
    /// Closes the conversion; throws when the system fails.
    void Close();
    /// The converted bytes; an incomplete character at the end is kept as it stands. Throws
    /// a copy of the object when nothing is open or, without bDiscard, on illegal input.
    std::string Conv(const char* pszText, unsigned long nLen);
    /// The same, but never throws: on a failure the input comes back unconverted, with the
    /// text in GetLastError().
    std::string Conv(const std::string& strText);
    /// Conv() in autodetect mode, which Conv() chooses by itself.
    std::string ConvAutoDetect(const char* pszText, unsigned long nLen);
    /// The label that mail carries, as the converter knows it ("ks_c_5601-1987" is "UHC",
    /// "utf8" "UTF-8", "euc-kr" "UHC" ...). pszOut must hold 50 bytes: it is zero-filled and
    /// receives at most 49.
    void FixCS(const std::string& strLabel, char* pszOut);

    /// An IMAP mailbox name in modified UTF-7, converted into strCharset.
    std::string IMAPUTF7Dec(const std::string& strCharset, const std::string& strText,
                            const bool& bDiscard);
    /// A mailbox name in strCharset, converted into modified UTF-7.
    std::string IMAPUTF7Enc(const std::string& strCharset, const std::string& strText,
                            const bool& bDiscard);
    /// One character from modified UTF-7: the bytes used, -1 for an illegal sequence, -2 when
    /// more input is needed. nState carries the shift state between calls.
    int imap_utf7_mbtowc(unsigned int& nState, unsigned int& nChar, const unsigned char* pszIn,
                         int nLen);
    /// One character into modified UTF-7: the bytes written, -1 when it cannot be encoded, -2
    /// when nRoom is too small.
    int imap_utf7_wctomb(unsigned int& nState, unsigned char* pszOut, unsigned int nChar,
                         int nRoom);
    /// Closes an open shift: the bytes written, -2 when nRoom is too small.
    int imap_utf7_reset(unsigned int& nState, unsigned char* pszOut, int nRoom);

protected:
    /// UTF-8 to UTF-8 is a checked copy unless this is false; tests turn it off to compare the
    /// copy with the conversion.
    bool m_bSameFormCopy;

private:
    static constexpr unsigned long CONV_CHUNK = 1024;

    QLMAIL_LOCAL std::string StrError(const char* pszPrefix);
    QLMAIL_LOCAL std::string CopyUtf8(const char* pszText, unsigned long nLen);

    CQLIconv* m_pConv;
    char m_szBuffer[CONV_CHUNK];
    int m_nAutoDetect;
    std::string m_strTo;
    std::string m_strFrom;
};

#endif

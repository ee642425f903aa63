#ifndef QLMAIL_CODEC_QLCONVPARSER_H
#define QLMAIL_CODEC_QLCONVPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>

class CQLIconv;

// One charset converter. Repairs the labels that mail carries before they reach the
// converter, keeps going over cut-off text, and in autodetect mode tries a fixed list of
// charsets. A failing operation throws a copy of the object; the copy carries only the text.
// Also home of the modified UTF-7 codec of IMAP mailbox names.
class QLMAIL_EXPORT CQLConvParser : public CQLExceptionParser {
public:
    CQLConvParser();
    CQLConvParser(const CQLConvParser& other);
    CQLConvParser& operator=(const CQLConvParser& other);
    virtual ~CQLConvParser();

    bool Open(const std::string& strFrom, const std::string& strTo, const bool& bDiscard);
    void Close();
    std::string Conv(const char* pszText, unsigned long nLen);
    std::string Conv(const std::string& strText);
    std::string ConvAutoDetect(const char* pszText, unsigned long nLen);
    // pszOut must hold 50 bytes: it is zero-filled and receives at most 49.
    void FixCS(const std::string& strLabel, char* pszOut);

    std::string IMAPUTF7Dec(const std::string& strCharset, const std::string& strText,
                            const bool& bDiscard);
    std::string IMAPUTF7Enc(const std::string& strCharset, const std::string& strText,
                            const bool& bDiscard);
    int imap_utf7_mbtowc(unsigned int& nState, unsigned int& nChar, const unsigned char* pszIn,
                         int nLen);
    int imap_utf7_wctomb(unsigned int& nState, unsigned char* pszOut, unsigned int nChar,
                         int nRoom);
    int imap_utf7_reset(unsigned int& nState, unsigned char* pszOut, int nRoom);

protected:
    // UTF-8 to UTF-8 is a checked copy unless this is false; tests turn it off to compare the
    // copy with the conversion.
    bool m_bSameFormCopy;

private:
    static constexpr unsigned long CONV_CHUNK = 1024;

    std::string StrError(const char* pszPrefix);
    std::string CopyUtf8(const char* pszText, unsigned long nLen);

    CQLIconv* m_pConv;
    char m_szBuffer[CONV_CHUNK];
    int m_nAutoDetect;
    std::string m_strTo;
    std::string m_strFrom;
};

#endif

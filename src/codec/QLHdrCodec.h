#ifndef QLMAIL_CODEC_QLHDRCODEC_H
#define QLMAIL_CODEC_QLHDRCODEC_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>

// Decodes raw header values with RFC 2047 encoded words into one charset, and builds encoded
// words. The decoder is tolerant: it never fails a value, and reports doubts through
// HasCharset and IsBadCharset. Made for one value and dropped.
class QLMAIL_EXPORT CQLHdrCodec : public CQLExceptionParser {
public:
    static constexpr int O_HDRCODEC_NONE = 0;
    static constexpr int O_CONV_LTGT = 1;
    static constexpr int O_TRIM_DQ = 2;
    static constexpr int O_ITEM_CS = 4;

    CQLHdrCodec();
    virtual ~CQLHdrCodec();

    std::string Decode(const std::string& strText, const std::string& strToCharset,
                       const std::string& strDefaultCharset, const int& nOptions);
    // The charset that Decode with O_ITEM_CS gives for the text, found without converting
    // anything; the two flags have no meaning afterwards.
    std::string GetWordCharset(const std::string& strText);
    std::string Encode(const std::string& strText, const std::string& strCharset, bool bBase64,
                       int nChunkLen);
    bool HasCharset() { return m_bHasCharset; }
    bool IsBadCharset() { return m_bBadCharset; }

    bool GetToken(const std::string& strText, unsigned int& nPos, std::string& strToken,
                  bool& bEncodedWord);
    bool ParseEW(const std::string& strToken, std::string& strCharset, char& cEncoding,
                 std::string& strEncoded);
    bool DecodeB64(const std::string& strEncoded, std::string& strOut);
    bool DecodeQP(const std::string& strEncoded, std::string& strOut);
    std::string EncodeB64(const std::string& strText);
    std::string EncodeQP(const std::string& strText);
    std::string LtGt(const std::string& strText);
    std::string TrimDQ(const std::string& strText);

private:
    std::string DecodeText(const std::string& strText, const std::string& strToCharset,
                           const std::string& strDefaultCharset, int nOptions, bool bConvert);

    bool m_bBadCharset;
    bool m_bHasCharset;
};

#endif

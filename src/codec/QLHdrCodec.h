#ifndef QLMAIL_CODEC_QLHDRCODEC_H
#define QLMAIL_CODEC_QLHDRCODEC_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>

/// Decodes raw header values with RFC 2047 encoded words into one charset, and builds encoded
/// words. The decoder is tolerant: it never fails a value, and reports doubts through
/// HasCharset and IsBadCharset. Made for one value and dropped:
///
///     CQLHdrCodec codec;
///     std::string strSubject = codec.Decode(strRaw, "UTF-8", "EUC-KR",
///                                           CQLHdrCodec::O_HDRCODEC_NONE);
///
/// Adjacent words of one charset are joined before conversion, so a character split between
/// two words comes out whole; plain text after a word is read in that word's charset, and raw
/// ISO-2022-JP is recognised by its escape sequence.
class QLMAIL_EXPORT CQLHdrCodec : public CQLExceptionParser {
public:
    /// @name Options of Decode(), combined with OR
    ///@{
    static constexpr int O_HDRCODEC_NONE = 0; ///< The decoded text as it is.
    static constexpr int O_CONV_LTGT = 1;     ///< "<" and ">" as HTML entities (LtGt()).
    static constexpr int O_TRIM_DQ = 2;       ///< Backslashes and escaped quotes out (TrimDQ()).
    static constexpr int O_ITEM_CS = 4;       ///< The charset of the words instead of the text.
    ///@}

    CQLHdrCodec();
    virtual ~CQLHdrCodec();

    /// The value with its encoded words decoded and everything converted to strToCharset.
    /// Text outside any word is taken to be in strDefaultCharset (left as it is when that is
    /// empty). When a word's charset can't be opened and strDefaultCharset is set, the whole
    /// value is read in strDefaultCharset instead.
    std::string Decode(const std::string& strText, const std::string& strToCharset,
                       const std::string& strDefaultCharset, const int& nOptions);
    /// The charset that Decode with O_ITEM_CS gives for the text, found without converting
    /// anything; the two flags have no meaning afterwards.
    std::string GetWordCharset(const std::string& strText);
    /// Encoded words of the text, cut into chunks of nChunkLen bytes ("=?charset?B?...?=");
    /// the text itself when the charset is empty.
    std::string Encode(const std::string& strText, const std::string& strCharset, bool bBase64,
                       int nChunkLen);
    /// False when some text of the last Decode() had no declared charset.
    bool HasCharset() { return m_bHasCharset; }
    /// True when a charset of the last Decode() could not be opened.
    bool IsBadCharset() { return m_bBadCharset; }

    /// The next token of the value from nPos on: an encoded word (bEncodedWord) or the plain
    /// text up to the next "=?"; false when nothing is left. Line breaks are dropped.
    bool GetToken(const std::string& strText, unsigned int& nPos, std::string& strToken,
                  bool& bEncodedWord);
    /// Splits an encoded-word token into its lower-cased charset, its encoding letter and its
    /// text; false when a "?" or the closing "?=" is missing.
    bool ParseEW(const std::string& strToken, std::string& strCharset, char& cEncoding,
                 std::string& strEncoded);
    /// The B decoding of a word's text, lenient; false only when no work buffer could be had.
    bool DecodeB64(const std::string& strEncoded, std::string& strOut);
    /// The Q decoding of a word's text; false, with nothing in strOut, on a bad escape.
    bool DecodeQP(const std::string& strEncoded, std::string& strOut);
    /// The text of a B word: base64 without line breaks.
    std::string EncodeB64(const std::string& strText);
    /// The text of a Q word. "?" is not escaped: the text must not hold "?=".
    std::string EncodeQP(const std::string& strText);
    /// "<" and ">" as "&lt;" and "&gt;".
    std::string LtGt(const std::string& strText);
    /// Drops backslashes and the quotes they escape; plain double quotes and Shift_JIS
    /// characters stay.
    std::string TrimDQ(const std::string& strText);

private:
    QLMAIL_LOCAL std::string DecodeText(const std::string& strText, const std::string& strToCharset,
                                        const std::string& strDefaultCharset, int nOptions,
                                        bool bConvert);

    bool m_bBadCharset;
    bool m_bHasCharset;
};

#endif

#ifndef QLMAIL_CODEC_QLCODECPARSER_H
#define QLMAIL_CODEC_QLCODECPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <array>
#include <string>

namespace qlmail_detail {
constexpr std::array<unsigned char, 256> MakeBase64DecTable() {
    std::array<unsigned char, 256> t{};
    for (int i = 0; i < 256; ++i) t[i] = 127;
    t[0] = 64;
    for (int i = 0; i < 26; ++i) {
        t['A' + i] = static_cast<unsigned char>(i);
        t['a' + i] = static_cast<unsigned char>(26 + i);
    }
    for (int i = 0; i < 10; ++i) t['0' + i] = static_cast<unsigned char>(52 + i);
    t['+'] = 62;
    t['/'] = 63;
    return t;
}
} // namespace qlmail_detail

/// Content-transfer encodings of message bodies (base64, quoted-printable, uuencode) and the
/// joining of RFC 2231 continued parameters. Works on whole byte strings in memory. These are
/// not the header decoders (CQLHdrCodec): those are more lenient and have rules of their own.
///
/// Made for one body and dropped:
///
///     std::string strBytes = CQLCodecParser().DecodeB64(strBody, true);
///
/// The decoders are tolerant and do not fail on damaged text. The library passes true for
/// bBinary; DecodeQP() with false ends its result at the first NUL byte.
class QLMAIL_EXPORT CQLCodecParser : public CQLExceptionParser {
public:
    /// The RFC 4648 alphabet.
    static constexpr char base64_table[65] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    /// Indexed by byte: the 6-bit value of an alphabet character, 127 for a byte to skip.
    /// Entry 0 holds 64 and is never consulted; bytes of 0x80 and above are skipped too.
    static constexpr std::array<unsigned char, 256> base64_dec_table =
        qlmail_detail::MakeBase64DecTable();

    CQLCodecParser() {}
    virtual ~CQLCodecParser() {}

    /// Base64, with CR LF after every 54 source bytes when bBreakLine; nLineLen does not move
    /// the break but must not be 0.
    std::string EncodeB64(const std::string& strText, const bool& bBreakLine, bool bBinary,
                          const int& nLineLen);
    /// Decodes base64, skipping line ends and bytes outside the alphabet, up to the first "=".
    /// An unpadded last group that is incomplete is dropped.
    std::string DecodeB64(const std::string& strText, bool bBinary);
    /// The decoding of DecodeB64 written to pOut, which must hold nLen / 4 * 3 + 3 bytes;
    /// returns the number of bytes written. For callers that append to a buffer of their own.
    static unsigned long DecodeB64To(const char* pText, unsigned long nLen, char* pOut);
    /// Quoted-printable, with soft line breaks after about nLineLen columns when bBreakLine;
    /// bBinary encodes line ends too. nLineLen must not be 0.
    std::string EncodeQP(const std::string& strText, const bool& bBreakLine, bool bBinary,
                         const unsigned long& nLineLen);
    /// Decodes quoted-printable; a broken escape is kept as it stands. Throws a
    /// CQLCodecParser when its work buffer cannot be had.
    std::string DecodeQP(const std::string& strText, bool bBinary);
    /// Kept for the interface: always empty. CQLMimeCodec::EncParam is the working encoder.
    std::string EncodeRfc2231(const std::string& strName, const std::string& strValue,
                              const std::string& strCharset, const int& nLineLen);
    /// Joins name*0*=charset'lang'value and its continuations; the value stays percent-encoded,
    /// the name, charset and language come back in the arguments.
    std::string DecodeRfc2231(const std::string& strText, std::string& strParamName,
                              std::string& strCharset, std::string& strLanguage);
    /// Uuencodes the data as a "begin 666" block for the file name, with CR LF line ends.
    std::string EncodeUU(const std::string& strData, const std::string& strFileName);
    /// Decodes the first "begin" block of the text; strFileName gets its name.
    std::string DecodeUU(const std::string& strText, std::string& strFileName);
    /// Copies one line without its carriage returns into pszLine and NUL-terminates it. The
    /// buffer must hold the whole line: there is no length to check against.
    bool ReadDataLine(const std::string& strText, int& nPos, char* pszLine);
};

#endif

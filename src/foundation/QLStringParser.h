#ifndef QLMAIL_FOUNDATION_QLSTRINGPARSER_H
#define QLMAIL_FOUNDATION_QLSTRINGPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <array>
#include <cstdarg>
#include <string>
#include <vector>

namespace qlmail_detail {
enum class ByteTable { Upper, Lower, Trim };
constexpr std::array<unsigned char, 256> MakeByteTable(ByteTable kind) {
    std::array<unsigned char, 256> t{};
    for (int i = 0; i < 256; ++i) {
        unsigned char c = static_cast<unsigned char>(i);
        if (kind == ByteTable::Upper)
            t[i] = (c >= 'a' && c <= 'z') ? static_cast<unsigned char>(c - 'a' + 'A') : c;
        else if (kind == ByteTable::Lower)
            t[i] = (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
        else
            t[i] = (c == 9 || c == 10 || c == 13 || c == 32) ? 1 : 0;
    }
    return t;
}
} // namespace qlmail_detail

/// Byte-string toolbox: case mapping, trimming, splitting, searching, wildcards, line ends
/// and number conversion.
///
/// Most operations work on their arguments only; make a local object to reach them:
///
///     CQLStringParser str;
///     std::string strUpper = str.ToUpper(strName);
///
/// The object is also itself a string, which the no-argument conversions (ToInt() ...) read.
/// Everything works on bytes, in whatever charset they came in; the one charset rule is that
/// a byte with the top bit set protects the byte after it (the trail byte of a double-byte
/// character) from case mapping. Nothing here fails or throws apart from running out of
/// memory: bad input gives an empty, 0 or not-found result.
class QLMAIL_EXPORT CQLStringParser : public CQLExceptionParser, public std::string {
public:
    /// Which end Trim() works on.
    enum TRIM_DIRECTION { TRIM_LEFT = 0, TRIM_RIGHT = 1, TRIM_BOTH = 2 };

    // Indexed by byte value. Vertical tab and form feed are not white space here.
    ///@{
    /// Indexed by byte: upper case, lower case of ASCII letters; 1 for the white space that
    /// Trim() removes (tab, LF, CR, blank).
    static constexpr std::array<unsigned char, 256> m_TableUpper =
        qlmail_detail::MakeByteTable(qlmail_detail::ByteTable::Upper);
    static constexpr std::array<unsigned char, 256> m_TableLower =
        qlmail_detail::MakeByteTable(qlmail_detail::ByteTable::Lower);
    static constexpr std::array<unsigned char, 256> m_TableTrim =
        qlmail_detail::MakeByteTable(qlmail_detail::ByteTable::Trim);
    ///@}

    ///@{
    /// An object holding the text (empty for a null pointer).
    CQLStringParser() {}
    CQLStringParser(const std::string& str) : std::string(str) {}
    CQLStringParser(const char* psz) : std::string(psz ? psz : "") {}
    CQLStringParser& operator=(const std::string& str) {
        std::string::operator=(str);
        return *this;
    }
    CQLStringParser& operator=(const char* psz) {
        std::string::operator=(psz ? psz : "");
        return *this;
    }
    ///@}
    virtual ~CQLStringParser() {}

    ///@{
    /// The text with ASCII letters mapped; a byte with the top bit set and the byte after it
    /// stay as they are.
    std::string ToLower(const std::string& strText);
    std::string ToUpper(const std::string& strText);
    ///@}
    /// The text without white space (tab, LF, CR, blank) at the given ends. Under TRIM_RIGHT
    /// a text of white space only comes back unchanged.
    std::string Trim(const std::string& strText, TRIM_DIRECTION eDirection);
    /// Removes the character c at the given ends, in place; used to strip double quotes.
    void Trim(std::string& strText, TRIM_DIRECTION eDirection, char c);
    /// Every strFrom replaced by strTo, left to right; strFrom must not be empty.
    std::string ReplaceAll(const std::string& strText, const std::string& strFrom,
                           const std::string& strTo);
    ///@{
    /// Splits the text at any of the delimiters into vTokens (emptied first); the number of
    /// fields. Two delimiters in a row make an empty field, a trailing one makes none.
    int Tokenize(const std::string& strText, std::vector<std::string>& vTokens,
                 const std::string& strDelims);
    int Tokenize(const std::string& strText, std::vector<std::string>& vTokens, const char& cDelim);
    ///@}

    /// The position of strFind in strText, or all ones. Only the case-blind search starts at
    /// nOffset; the exact one looks from the start, and nOffset only has to lie in the text.
    unsigned long Search(const std::string& strText, const std::string& strFind,
                         unsigned long nOffset, bool bIgnoreCase);
    /// The first position of the pattern in the buffer, or all ones.
    unsigned long Search(const char* pText, unsigned long nTextLen, const char* pFind,
                         unsigned long nFindLen, bool bIgnoreCase);
    /// 1 if the whole text matches the pattern, where "*" is any run of bytes and "?" one
    /// byte; case counts.
    int WildCmp(const char* pszWild, const char* pszText);
    /// Every line end (CR LF, LF or CR) as CR LF.
    std::string ToCRLF(const std::string& strText);
    /// Every line end (CR LF, LF or CR) as LF.
    std::string ToLF(const std::string& strText);
    /// The text with the bytes that a file name cannot hold (\\ / : * < > | ? and line
    /// breaks) replaced by "_".
    std::string ToFileName(const std::string& strText);

    ///@{
    /// Base-10 conversions by the C library, without checks: leading blanks and a sign are
    /// taken, trailing text is ignored, overflow is not told; 0 for null or empty.
    static unsigned long ToULong(const char* psz);
    static long ToLong(const char* psz);
    static int ToInt(const char* psz);
    static long long ToInt64(const char* psz);
    static double ToDouble(const char* psz);
    ///@}
    /// Equal bytes, ASCII letters compared without case.
    static bool CaseIgnoreEqualChar(char c1, char c2);
    /// isspace as the C locale has it, whatever locale the process runs in.
    static bool IsCSpace(char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
    }
    /// vsnprintf itself.
    static int myvsnprintf(char* pszBuf, unsigned long nMax, const char* pszFormat, va_list args);

    ///@{
    /// The conversions of the object's own text.
    unsigned long ToULong() { return ToULong(c_str()); }
    long ToLong() { return ToLong(c_str()); }
    int ToInt() { return ToInt(c_str()); }
    ///@}
    /// Goes through ToInt on purpose, so it is 32 bits wide, unlike ToInt64(const char*).
    long long ToInt64() { return static_cast<long long>(ToInt()); }
    /// The conversion of the object's own text.
    double ToDouble() { return ToDouble(c_str()); }
};

#endif

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

// Byte-string toolbox. The object is itself a string: the no-argument conversions read it.
// Everything works on bytes; the one charset rule is that a byte with the top bit set
// protects the byte after it (the trail byte of a double-byte character) from case mapping.
class QLMAIL_EXPORT CQLStringParser : public CQLExceptionParser, public std::string {
public:
    enum TRIM_DIRECTION { TRIM_LEFT = 0, TRIM_RIGHT = 1, TRIM_BOTH = 2 };

    // Indexed by byte value. Vertical tab and form feed are not white space here.
    static constexpr std::array<unsigned char, 256> m_TableUpper =
        qlmail_detail::MakeByteTable(qlmail_detail::ByteTable::Upper);
    static constexpr std::array<unsigned char, 256> m_TableLower =
        qlmail_detail::MakeByteTable(qlmail_detail::ByteTable::Lower);
    static constexpr std::array<unsigned char, 256> m_TableTrim =
        qlmail_detail::MakeByteTable(qlmail_detail::ByteTable::Trim);

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
    virtual ~CQLStringParser() {}

    std::string ToLower(const std::string& strText);
    std::string ToUpper(const std::string& strText);
    std::string Trim(const std::string& strText, TRIM_DIRECTION eDirection);
    void Trim(std::string& strText, TRIM_DIRECTION eDirection, char c);
    std::string ReplaceAll(const std::string& strText, const std::string& strFrom,
                           const std::string& strTo);
    int Tokenize(const std::string& strText, std::vector<std::string>& vTokens,
                 const std::string& strDelims);
    int Tokenize(const std::string& strText, std::vector<std::string>& vTokens, const char& cDelim);

    unsigned long Search(const std::string& strText, const std::string& strFind,
                         unsigned long nOffset, bool bIgnoreCase);
    unsigned long Search(const char* pText, unsigned long nTextLen, const char* pFind,
                         unsigned long nFindLen, bool bIgnoreCase);
    int WildCmp(const char* pszWild, const char* pszText);
    std::string ToCRLF(const std::string& strText);
    std::string ToLF(const std::string& strText);
    std::string ToFileName(const std::string& strText);

    static unsigned long ToULong(const char* psz);
    static long ToLong(const char* psz);
    static int ToInt(const char* psz);
    static long long ToInt64(const char* psz);
    static double ToDouble(const char* psz);
    static bool CaseIgnoreEqualChar(char c1, char c2);
    // isspace as the C locale has it, whatever locale the process runs in.
    static bool IsCSpace(char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
    }
    static int myvsnprintf(char* pszBuf, unsigned long nMax, const char* pszFormat, va_list args);

    unsigned long ToULong() { return ToULong(c_str()); }
    long ToLong() { return ToLong(c_str()); }
    int ToInt() { return ToInt(c_str()); }
    // Goes through ToInt on purpose, so it is 32 bits wide.
    long long ToInt64() { return static_cast<long long>(ToInt()); }
    double ToDouble() { return ToDouble(c_str()); }
};

#endif

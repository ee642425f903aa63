#include "foundation/QLStringParser.h"

#include <gtest/gtest.h>

#include <cstdarg>

namespace {

using V = std::vector<std::string>;
const CQLStringParser::TRIM_DIRECTION L = CQLStringParser::TRIM_LEFT,
                                      R = CQLStringParser::TRIM_RIGHT,
                                      B = CQLStringParser::TRIM_BOTH;
const unsigned long kNotFound = static_cast<unsigned long>(-1);

int Format(char* pszBuf, unsigned long nMax, const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    const int n = CQLStringParser::myvsnprintf(pszBuf, nMax, pszFormat, args);
    va_end(args);
    return n;
}

} // namespace

TEST(StringParser, CaseMappingSparesTrailBytes) {
    // A byte of 0x80 and above protects the next byte, even a lone one before ASCII.
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"MiXeD 123", "mixed 123", "MIXED 123"},
        {"\260AB", "\260Ab", "\260AB"},
        {"\260ab", "\260ab", "\260aB"},
        {"x\307\321Y\340", "x\307\321y\340", "X\307\321Y\340"}};
    CQLStringParser s;
    for (const auto& [strIn, strLower, strUpper] : cases) {
        EXPECT_EQ(s.ToLower(strIn), strLower);
        EXPECT_EQ(s.ToUpper(strIn), strUpper);
    }
}

TEST(StringParser, TrimDirections) {
    // Only tab, LF, CR and space are white space; all-blank text survives TRIM_RIGHT.
    const std::tuple<std::string, CQLStringParser::TRIM_DIRECTION, std::string> blanks[] = {
        {"  a  ", L, "a  "}, {"  a  ", R, "  a"}, {" \t ", R, " \t "},
        {" \t ", B, ""},     {"", B, ""},         {"\r\na\v\n", B, "a\v"}};
    CQLStringParser s;
    for (const auto& [strIn, eDir, strWant] : blanks) EXPECT_EQ(s.Trim(strIn, eDir), strWant);

    // In place: TRIM_LEFT with no leading match leaves nothing.
    const std::tuple<std::string, CQLStringParser::TRIM_DIRECTION, char, std::string> chars[] = {
        {"abc", L, 'x', ""},      {"abc", R, 'x', "abc"},   {"abc", B, 'x', "abc"},
        {"xxaxx", L, 'x', "axx"}, {"xxaxx", R, 'x', "xxa"}, {"\"q\"", B, '"', "q"},
        {"xxx", R, 'x', ""},      {"abc", B, '\0', "abc"}};
    for (auto [str, eDir, c, strWant] : chars) {
        s.Trim(str, eDir, c);
        EXPECT_EQ(str, strWant) << eDir << c;
    }
}

TEST(StringParser, ReplaceAllAndTokenize) {
    // Replacements are not scanned again; an empty pattern leaves the text as it is.
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"a-b-c", "-", "+", "a+b+c"},
        {"aaa", "aa", "X", "Xa"},
        {"ab", "b", "bb", "abb"},
        {"abab", "ab", "", ""},
        {"text", "", "X", "text"}};
    CQLStringParser s;
    for (const auto& [strText, strFrom, strTo, strWant] : cases)
        EXPECT_EQ(s.ReplaceAll(strText, strFrom, strTo), strWant);

    // A trailing delimiter makes no empty last field.
    const std::pair<std::string, V> fields[] = {
        {"a,,b", {"a", "", "b"}}, {",a", {"", "a"}}, {"a,", {"a"}}, {",", {""}},
        {",,", {"", ""}},         {"", {}}};
    for (const auto& [strText, vWant] : fields) {
        V v = {"stale"};
        EXPECT_EQ(s.Tokenize(strText, v, ','), static_cast<int>(vWant.size()));
        EXPECT_EQ(v, vWant) << strText;
    }
    V v;
    EXPECT_EQ(s.Tokenize("a b;c", v, std::string(" ;")), 3);
    EXPECT_EQ(v, (V{"a", "b", "c"}));
}

TEST(StringParser, Search) {
    // The exact path checks the offset, then searches from 0; high bytes are never folded.
    const std::tuple<std::string, std::string, unsigned long, bool, unsigned long> cases[] = {
        {"aXbX", "X", 2, false, 1},
        {"aXbX", "X", 2, true, 3},
        {"aXbX", "X", 5, false, kNotFound},
        {"aXbX", "X", 5, true, kNotFound},
        {"aXbX", "X", 4, true, kNotFound},
        {"Hello", "LLO", 0, true, 2},
        {"Hello", "LLO", 0, false, kNotFound},
        {"\307\321", "\347\321", 0, true, kNotFound},
        {"a", "", 0, true, kNotFound}};
    CQLStringParser s;
    for (const auto& [strText, strFind, nOffset, bFold, nWant] : cases) {
        EXPECT_EQ(s.Search(strText, strFind, nOffset, bFold), nWant) << strText << nOffset;
    }
    // The buffer form has no offset and sees past NUL bytes.
    const std::string strBin("a\0bXb", 5);
    EXPECT_EQ(s.Search(strBin.data(), 5, "bx", 2, true), 2u);
    EXPECT_EQ(s.Search(strBin.data(), 5, "bx", 2, false), kNotFound);
    EXPECT_EQ(s.Search(strBin.data(), 5, "bXbb", 4, false), kNotFound);
    EXPECT_EQ(s.Search(nullptr, 5, "b", 1, false), kNotFound);
}

TEST(StringParser, WildCmp) {
    const std::tuple<const char*, const char*, int> cases[] = {
        {"a*c", "abbbc", 1}, {"a?c", "ac", 0},       {"*", "", 1},           {"a*", "a", 1},
        {"", "a", 0},        {"*.eml", "x.emlx", 0}, {"a*b*c", "aXbYbc", 1}, {"A*", "a", 0},
        {"*a?", "bab", 1},   {nullptr, "a", 0},      {"a", nullptr, 0}};
    CQLStringParser s;
    for (const auto& [pszWild, pszText, nWant] : cases)
        EXPECT_EQ(s.WildCmp(pszWild, pszText), nWant) << (pszWild ? pszWild : "null");
}

TEST(StringParser, LineEndsAndFileNames) {
    CQLStringParser s;
    EXPECT_EQ(s.ToCRLF("\r\n\n\ra"), "\r\n\r\n\r\na");
    EXPECT_EQ(s.ToLF("\r\n\n\ra"), "\n\n\na");
    EXPECT_EQ(s.ToFileName("a/b:c\\*<>|?\"\xC7"), "a_b_c______\"\xC7");
    EXPECT_EQ(s.ToFileName("a\n\rb\r\nc"), "a_b__c"); // LF swallows a CR behind it
}

TEST(StringParser, NumberConversions) {
    EXPECT_EQ(CQLStringParser::ToULong("  42abc"), 42u);
    EXPECT_EQ(CQLStringParser::ToLong("-17"), -17);
    EXPECT_EQ(CQLStringParser::ToInt("+8 items"), 8);
    EXPECT_EQ(CQLStringParser::ToInt64("4294967296"), 4294967296LL);
    EXPECT_DOUBLE_EQ(CQLStringParser::ToDouble("2.5e1x"), 25.0);
    for (const char* psz : {static_cast<const char*>(nullptr), "", "junk"}) {
        EXPECT_EQ(CQLStringParser::ToULong(psz), 0u);
        EXPECT_EQ(CQLStringParser::ToLong(psz), 0);
        EXPECT_EQ(CQLStringParser::ToInt(psz), 0);
        EXPECT_EQ(CQLStringParser::ToInt64(psz), 0);
        EXPECT_EQ(CQLStringParser::ToDouble(psz), 0.0);
    }
    // The no-argument ToInt64 goes through ToInt, so it is only 32 bits wide.
    CQLStringParser s("4294967297");
    EXPECT_EQ(s.ToInt64(), 1);
    EXPECT_EQ(s.ToULong(), 4294967297u);

    EXPECT_TRUE(CQLStringParser::CaseIgnoreEqualChar('q', 'Q'));
    EXPECT_FALSE(CQLStringParser::CaseIgnoreEqualChar('\xC7', '\xE7'));
    char szBuf[8];
    EXPECT_EQ(Format(szBuf, sizeof(szBuf), "%s-%d", "abcdef", 42), 9);
    EXPECT_STREQ(szBuf, "abcdef-");
}

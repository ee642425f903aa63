#include "foundation/QLStringParser.h"

#include <gtest/gtest.h>

#include <cstdarg>

namespace {

using TD = CQLStringParser::TRIM_DIRECTION;
const TD L = CQLStringParser::TRIM_LEFT;
const TD R = CQLStringParser::TRIM_RIGHT;
const TD B = CQLStringParser::TRIM_BOTH;
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
    struct Case {
        std::string strIn, strLower, strUpper;
    } cases[] = {
        {"", "", ""},
        {"MiXeD 123", "mixed 123", "MIXED 123"},
        {"\xB0"
         "AB",
         "\xB0"
         "Ab",
         "\xB0"
         "AB"},
        {"\xB0"
         "ab",
         "\xB0"
         "ab",
         "\xB0"
         "aB"},
        {"x\xC7\xD1Y\xE0", "x\xC7\xD1y\xE0", "X\xC7\xD1Y\xE0"}, // a lone high last byte
        {"\x0B\x0C", "\x0B\x0C", "\x0B\x0C"},
    };
    CQLStringParser s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strIn);
        EXPECT_EQ(s.ToLower(c.strIn), c.strLower);
        EXPECT_EQ(s.ToUpper(c.strIn), c.strUpper);
    }
}

TEST(StringParser, TrimDirections) {
    struct Case {
        std::string strIn;
        TD eDir;
        std::string strWant;
    } cases[] = {
        {"  a  ", L, "a  "}, {"  a  ", R, "  a"},     {"  a  ", B, "a"},
        {" \t ", R, " \t "}, {" \t ", B, ""},         {" \t ", L, ""},
        {"", B, ""},         {"\r\na b\n", B, "a b"}, {"\va\f", B, "\va\f"},
    };
    CQLStringParser s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strIn + " dir " + std::to_string(c.eDir));
        EXPECT_EQ(s.Trim(c.strIn, c.eDir), c.strWant);
    }
}

TEST(StringParser, TrimCharacterInPlace) {
    struct Case {
        std::string strIn;
        TD eDir;
        char c;
        std::string strWant;
    } cases[] = {
        {"abc", L, 'x', ""},     {"abc", R, 'x', "abc"},   {"abc", B, 'x', "abc"},
        {"\"q\"", B, '"', "q"},  {"xxaxx", L, 'x', "axx"}, {"xxaxx", R, 'x', "xxa"},
        {"xxx", L, 'x', ""},     {"xxx", R, 'x', ""},      {"xxx", B, 'x', ""},
        {"abc", B, '\0', "abc"}, {"", B, 'x', ""},
    };
    CQLStringParser s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strIn + " dir " + std::to_string(c.eDir));
        std::string str = c.strIn;
        s.Trim(str, c.eDir, c.c);
        EXPECT_EQ(str, c.strWant);
    }
}

TEST(StringParser, ReplaceAll) {
    struct Case {
        std::string strText, strFrom, strTo, strWant;
    } cases[] = {
        {"a-b-c", "-", "+", "a+b+c"}, {"aaa", "aa", "X", "Xa"}, {"ab", "b", "bb", "abb"},
        {"abab", "ab", "", ""},       {"xyz", "q", "Q", "xyz"}, {"", "a", "b", ""},
        {"text", "", "X", "text"}, // an empty pattern leaves the text as it is
    };
    CQLStringParser s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strText + "/" + c.strFrom);
        EXPECT_EQ(s.ReplaceAll(c.strText, c.strFrom, c.strTo), c.strWant);
    }
}

TEST(StringParser, TokenizeTrailingDelimiterRule) {
    using V = std::vector<std::string>;
    struct Case {
        std::string strText;
        V vWant;
    } cases[] = {
        {"a,,b", {"a", "", "b"}}, {",a", {"", "a"}}, {"a,", {"a"}}, {",", {""}},
        {",,", {"", ""}},         {"abc", {"abc"}},  {"", {}},
    };
    CQLStringParser s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strText);
        V v = {"stale"};
        EXPECT_EQ(s.Tokenize(c.strText, v, ','), static_cast<int>(c.vWant.size()));
        EXPECT_EQ(v, c.vWant);
    }
    V v;
    EXPECT_EQ(s.Tokenize("a b;c", v, std::string(" ;")), 3);
    EXPECT_EQ(v, (V{"a", "b", "c"}));
}

TEST(StringParser, Search) {
    struct Case {
        std::string strText, strFind;
        unsigned long nOffset;
        bool bIgnoreCase;
        unsigned long nWant;
    } cases[] = {
        {"aXbX", "X", 2, false, 1}, // the exact path drops the offset
        {"aXbX", "X", 2, true, 3},
        {"aXbX", "X", 5, false, kNotFound},
        {"aXbX", "X", 5, true, kNotFound},
        {"aXbX", "X", 4, true, kNotFound},
        {"Hello", "LLO", 0, true, 2},
        {"Hello", "LLO", 0, false, kNotFound},
        {"\xC7\xD1", "\xE7\xD1", 0, true, kNotFound}, // high bytes are not folded
        {"", "a", 0, false, kNotFound},
        {"a", "", 0, true, kNotFound},
        {"ab", "abc", 0, true, kNotFound},
    };
    CQLStringParser s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strText + "/" + c.strFind + " " + std::to_string(c.bIgnoreCase));
        EXPECT_EQ(s.Search(c.strText, c.strFind, c.nOffset, c.bIgnoreCase), c.nWant);
        if (c.nOffset == 0 && !c.strFind.empty()) {
            EXPECT_EQ(s.Search(c.strText.data(), c.strText.size(), c.strFind.data(),
                               c.strFind.size(), c.bIgnoreCase),
                      c.nWant);
        }
    }
    // The buffer form has no offset and sees past NUL bytes.
    const std::string strBin("a\0bXb", 5);
    EXPECT_EQ(s.Search(strBin.data(), 5, "bx", 2, true), 2u);
    EXPECT_EQ(s.Search(strBin.data(), 5, "bx", 2, false), kNotFound);
    EXPECT_EQ(s.Search(nullptr, 5, "b", 1, false), kNotFound);
    EXPECT_EQ(s.Search(strBin.data(), 5, nullptr, 1, false), kNotFound);
}

TEST(StringParser, WildCmp) {
    struct Case {
        const char* pszWild;
        const char* pszText;
        int nWant;
    } cases[] = {
        {"a*c", "abbbc", 1},    {"a?c", "ac", 0},  {"*", "", 1},          {"", "", 1},
        {"", "a", 0},           {"a*", "a", 1},    {"*.eml", "x.eml", 1}, {"*.eml", "x.emlx", 0},
        {"a*b*c", "aXbYbc", 1}, {"A*", "a", 0},    {"?", "", 0},          {"*a?", "bab", 1},
        {nullptr, "a", 0},      {"a", nullptr, 0},
    };
    CQLStringParser s;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.pszWild ? c.pszWild : "(null)") + " ~ " +
                     (c.pszText ? c.pszText : "(null)"));
        EXPECT_EQ(s.WildCmp(c.pszWild, c.pszText), c.nWant);
    }
}

TEST(StringParser, LineEndsAndFileNames) {
    CQLStringParser s;
    EXPECT_EQ(s.ToCRLF("\r\n\n\r"), "\r\n\r\n\r\n");
    EXPECT_EQ(s.ToLF("\r\n\n\r"), "\n\n\n");
    EXPECT_EQ(s.ToCRLF("a\nb\r\nc"), "a\r\nb\r\nc");
    EXPECT_EQ(s.ToLF("a\rb"), "a\nb");
    EXPECT_EQ(s.ToCRLF(""), "");
    EXPECT_EQ(s.ToLF(""), "");
    EXPECT_EQ(s.ToFileName("a/b:c"), "a_b_c");
    EXPECT_EQ(s.ToFileName("\\*<>|?\"x"), "______\"x");
    EXPECT_EQ(s.ToFileName("a\n\rb"), "a_b");
    EXPECT_EQ(s.ToFileName("a\r\nb"), "a__b");
    EXPECT_EQ(s.ToFileName("\xC7\xD1.txt"), "\xC7\xD1.txt");
    EXPECT_EQ(s.ToFileName(""), "");
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
    // The object's own contents; the no-argument ToInt64 is only 32 bits wide.
    CQLStringParser s("4294967297");
    EXPECT_EQ(s.ToInt64(), 1);
    EXPECT_EQ(s.ToULong(), 4294967297u);
    EXPECT_EQ(CQLStringParser::ToInt64(s.c_str()), 4294967297LL);
    s = "-3.5";
    EXPECT_EQ(s.ToInt(), -3);
    EXPECT_EQ(s.ToLong(), -3);
    EXPECT_DOUBLE_EQ(s.ToDouble(), -3.5);

    EXPECT_TRUE(CQLStringParser::CaseIgnoreEqualChar('q', 'Q'));
    EXPECT_FALSE(CQLStringParser::CaseIgnoreEqualChar('\xC7', '\xE7'));
    char szBuf[8];
    EXPECT_EQ(Format(szBuf, sizeof(szBuf), "%s-%d", "abcdef", 42), 9);
    EXPECT_STREQ(szBuf, "abcdef-");
}

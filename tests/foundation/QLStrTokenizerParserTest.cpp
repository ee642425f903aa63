#include "foundation/QLStrTokenizerParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Every field until null; a field's pointer must lie inside the buffer.
std::vector<std::string> Fields(CQLStrTokenizerParser& tok, const char* pBuf, size_t nBufLen) {
    std::vector<std::string> v;
    unsigned long nLen = 99;
    while (const char* p = tok.GetNext(nLen)) {
        EXPECT_GE(p, pBuf);
        EXPECT_LE(p + nLen, pBuf + nBufLen);
        v.emplace_back(p, nLen);
        nLen = 99;
    }
    EXPECT_EQ(nLen, 0u);
    return v;
}

using V = std::vector<std::string>;

} // namespace

TEST(StrTokenizer, BothModes) {
    struct Case {
        std::string strBuf;
        V vWithLen;  // fields when the length is given
        V vNulEnded; // fields when the buffer ends at its NUL
    } cases[] = {
        {"a,b", {"a", "b"}, {"a"}},
        {"a,b,", {"a", "b"}, {"a", "b"}},
        {",,", {"", ""}, {"", ""}},
        {",a", {"", "a"}, {""}},
        {"", {}, {}},
        {"abc", {"abc"}, {}},
        {std::string("a\0b,c", 5), {std::string("a\0b", 3), "c"}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strBuf);
        CQLStrTokenizerParser tok(c.strBuf.data(), c.strBuf.size(), ',');
        EXPECT_EQ(Fields(tok, c.strBuf.data(), c.strBuf.size()), c.vWithLen);
        tok.Set(c.strBuf.c_str(), ',');
        EXPECT_EQ(Fields(tok, c.strBuf.data(), c.strBuf.size()), c.vNulEnded);
    }
}

TEST(StrTokenizer, CursorAndLimits) {
    const char szBuf[] = "ab,cd,";
    // The length bounds the scan even where the buffer goes on.
    CQLStrTokenizerParser tok(szBuf, 4, ',');
    EXPECT_EQ(Fields(tok, szBuf, 4), (V{"ab", "c"}));
    tok.InitCursor();
    unsigned long nLen = 0;
    EXPECT_EQ(tok.GetNext(nLen), szBuf);
    EXPECT_EQ(nLen, 2u);

    // An unclosed last field is not delivered, however often it is asked for.
    CQLStrTokenizerParser nul("x;y", ';');
    EXPECT_EQ(Fields(nul, "x;y", 3), (V{"x"}));
    EXPECT_EQ(nul.GetNext(nLen), nullptr);
    EXPECT_EQ(nLen, 0u);
    nul.Set(szBuf, ',');
    EXPECT_EQ(Fields(nul, szBuf, 6), (V{"ab", "cd"}));
}

#include "foundation/QLStrTokenizerParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using V = std::vector<std::string>;

// Every field until null; a field must lie inside the buffer.
V Fields(CQLStrTokenizerParser& tok, const char* pBuf, size_t nBufLen) {
    V v;
    unsigned long nLen = 99;
    while (const char* p = tok.GetNext(nLen)) {
        EXPECT_TRUE(p >= pBuf && p + nLen <= pBuf + nBufLen);
        v.emplace_back(p, nLen);
    }
    EXPECT_EQ(nLen, 0u);
    return v;
}

} // namespace

TEST(StrTokenizer, BothModes) {
    // With a length the last field comes with or without its delimiter; NUL-terminated it
    // must be closed by one.
    const std::tuple<std::string, V, V> cases[] = {
        {"a,b", {"a", "b"}, {"a"}},
        {"a,b,", {"a", "b"}, {"a", "b"}},
        {",,", {"", ""}, {"", ""}},
        {"", {}, {}},
        {std::string("a\0b,c", 5), {std::string("a\0b", 3), "c"}, {}}};
    for (const auto& [strBuf, vWithLen, vNulEnded] : cases) {
        CQLStrTokenizerParser tok(strBuf.data(), strBuf.size(), ',');
        EXPECT_EQ(Fields(tok, strBuf.data(), strBuf.size()), vWithLen);
        tok.Set(strBuf.c_str(), ',');
        EXPECT_EQ(Fields(tok, strBuf.data(), strBuf.size()), vNulEnded);
    }

    // The length bounds the scan even where the buffer goes on; InitCursor starts again.
    const char szBuf[] = "ab,cd,";
    CQLStrTokenizerParser tok(szBuf, 4, ',');
    EXPECT_EQ(Fields(tok, szBuf, 4), (V{"ab", "c"}));
    tok.InitCursor();
    EXPECT_EQ(Fields(tok, szBuf, 4), (V{"ab", "c"}));
    unsigned long nLen = 7;
    CQLStrTokenizerParser nul("x;y", ';');
    EXPECT_EQ(Fields(nul, "x;y", 3), (V{"x"}));
    EXPECT_EQ(nul.GetNext(nLen), nullptr); // the unclosed field stays undelivered
    EXPECT_EQ(nLen, 0u);
}

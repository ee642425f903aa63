#include "codec/QLConvParser.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

// The decoded UTF-8 text, or "!" and the text of the error.
std::string Dec(const std::string& strText, bool bDiscard) {
    CQLConvParser conv;
    try {
        return conv.IMAPUTF7Dec("UTF-8", strText, bDiscard);
    } catch (CQLConvParser& e) {
        return "!" + e.GetLastError();
    }
}

const unsigned int kReset = ~0u;

// "count:written" of one imap_utf7_wctomb call, or of imap_utf7_reset for kReset.
std::string Put(unsigned int& nState, unsigned int nChar, int nRoom) {
    CQLConvParser conv;
    unsigned char szOut[16] = {0};
    const int n = nChar == kReset ? conv.imap_utf7_reset(nState, szOut, nRoom)
                                  : conv.imap_utf7_wctomb(nState, szOut, nChar, nRoom);
    return std::to_string(n) + ":" + reinterpret_cast<char*>(szOut);
}

// "count:character in hex" of one imap_utf7_mbtowc call.
std::string Get(unsigned int& nState, const char* pszIn, int nLen) {
    CQLConvParser conv;
    unsigned int nChar = 0xEEEE; // shows a character that was not written
    const int n =
        conv.imap_utf7_mbtowc(nState, nChar, reinterpret_cast<const unsigned char*>(pszIn), nLen);
    char szOut[32];
    snprintf(szOut, sizeof(szOut), "%d:%X", n, nChar);
    return szOut;
}

} // namespace

TEST(ImapUtf7, RoundTrips) {
    const struct {
        const char* pszCharset;
        std::string strName;
        std::string strEncoded;
    } kCases[] = {
        {"UTF-8", "Entw\xC3\xBCrfe", "Entw&APw-rfe"},
        {"UTF-8", "a&b", "a&-b"},
        {"UTF-8", "\xC3\x84\xC3\x96\xC3\x9C", "&AMQA1gDc-"}, // one shift for a run
        {"UTF-8", "\xED\x95\x9C\xEA\xB8\x80", "&1VyuAA-"},   // 한글, ends shifted
        {"euc-kr", "\xC7\xD1\xB1\xDB/x", "&1VyuAA-/x"},
        {"ks_c_5601-1987", "\x8C\x63", "&tiA-"},       // 똠
        {"shift_jis", "\x93\xFA\x96\x7B", "&ZeVnLA-"}, // 日本
        {"UTF-8", "a~b+c\\d e", "a~b+c\\d e"},
        {"UTF-8", "a!b", "a&ACE-b"},
        {"UTF-8", "", ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.strName);
        CQLConvParser conv;
        EXPECT_EQ(conv.IMAPUTF7Enc(c.pszCharset, c.strName, false), c.strEncoded);
        EXPECT_EQ(conv.IMAPUTF7Dec(c.pszCharset, c.strEncoded, false), c.strName);
    }
    // A target that cannot be opened gives the UCS-2 bytes.
    CQLConvParser conv;
    EXPECT_EQ(conv.IMAPUTF7Dec("no-such", "&APw-", false), std::string("\x00\xFC", 2));
}

TEST(ImapUtf7, Decode) {
    const std::string kIllegal = "!In IMAPUTF7Dec, illegal multibyte sequence";
    const std::string kIncomplete = "!In IMAPUTF7Dec, incomplete multibyte sequence";
    const struct {
        std::string strIn;
        bool bDiscard;
        std::string strOut;
    } kCases[] = {
        // clang-format off
        // Printable ASCII stands as it is, and an empty shift vanishes.
        {"a!b_&-", false, "a!b_&"}, {"& x", false, " x"}, {"&AGE-&AGI-", false, "ab"},
        {"&AGE.b", false, "a.b"},
        // Pending bits not zero, half a character, a high surrogate alone or without a low
        // one behind it, bytes outside the direct set; texts cut off inside a shift.
        {"&AGF-", false, kIllegal}, {"&AG-x", false, kIllegal}, {"&2ED-", false, kIllegal},
        {"&2EAAQQ-", false, kIllegal}, {"a\x80", false, kIllegal}, {"a\x01", false, kIllegal},
        {"&AG", false, kIncomplete}, {"a&", false, kIncomplete}, {"&AGE-&", false, kIncomplete},
        {"&AG", true, kIncomplete},
        // With discard the faults give no character and decoding goes on behind them.
        {"a\200b", true, "ab"}, {"&AGF-bc", true, "abc"}, {"&AG-xy", true, "xy"},
        {"&AG.xy", true, ".xy"}, {"\x80", true, ""}, {"&2EAAQQ-z", true, "z"},
        {"&AGE-\x80", true, "a"}, {"\x80\x80\x80&AGE-", true, "a"},
        // clang-format on
    };
    for (const auto& c : kCases) EXPECT_EQ(Dec(c.strIn, c.bDiscard), c.strOut) << c.strIn;
}

TEST(ImapUtf7, CharacterFunctions) {
    // A character beyond the BMP goes out as a surrogate pair and comes back whole.
    unsigned int nState = 0;
    EXPECT_EQ(Put(nState, 0x2000B, 16), "6:&2EDcC");
    EXPECT_EQ(Put(nState, kReset, 10), "2:w-");
    EXPECT_EQ(nState, 0u);
    EXPECT_EQ(Get(nState, "&2EDcCw-", 8), "7:2000B");

    // Too little room, nothing encodable, nothing to read.
    nState = 0;
    EXPECT_EQ(Put(nState, 0xFC, 2), "-2:");
    EXPECT_EQ(Put(nState, 0x110000, 16).substr(0, 3), "-1:");
    EXPECT_EQ(Put(nState, 'a', 0), "-2:");
    EXPECT_EQ(Get(nState, "", 0), "-2:EEEE");
    EXPECT_EQ(Put(nState, kReset, 0), "0:");

    // The "-" that ends a shift is always written, and counted only before a base64 letter.
    EXPECT_EQ(Put(nState, 0xFC, 16), "3:&AP");
    const unsigned int nShifted = nState;
    EXPECT_EQ(Put(nState, ' ', 8), "2:w- ");
    nState = nShifted;
    EXPECT_EQ(Put(nState, 'b', 8), "3:w-b");
    // Room is checked for the "-" too, so a short buffer is never overrun.
    nState = nShifted;
    EXPECT_EQ(Put(nState, ' ', 2), "-2:");
    EXPECT_EQ(nState, nShifted);
    EXPECT_EQ(Put(nState, ' ', 3), "2:w- ");
    nState = nShifted;
    EXPECT_EQ(Put(nState, kReset, 1), "-2:");
    EXPECT_EQ(Put(nState, kReset, 2), "2:w-");
    EXPECT_EQ(nState, 0u);
    // Three units fill whole groups: nothing pending, so the "-" and the character need 2.
    for (int i = 0; i < 3; ++i) Put(nState, 0xFC, 16);
    const unsigned int nWhole = nState;
    EXPECT_EQ(Put(nState, ' ', 1), "-2:");
    EXPECT_EQ(Put(nState, ' ', 2), "1:- ");
    nState = nWhole;
    EXPECT_EQ(Put(nState, kReset, 0), "-2:");
    EXPECT_EQ(Put(nState, kReset, 1), "1:-");
}

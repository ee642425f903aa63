#include "codec/QLConvParser.h"
#include "codec/QLHdrCodec.h"

#include <gtest/gtest.h>

#include <string>

using S = std::string;

namespace {

// NEC row 13 (① Ⅴ ㈱ № ℡ ㍻ ㎏ ㎡), IBM extensions (ⅰ 髙), then a backslash and a tilde
// between letters: in CP932 and in UTF-8.
const S kCp932 = "\x87\x40\x87\x58\x87\x8A\x87\x82\x87\x84\x87\x7E\x87\x73\x87\x75"
                 "\xFA\x40\xFB\xFC"
                 "a\\b~c";
const S kUtf8 = "\xE2\x91\xA0\xE2\x85\xA4\xE3\x88\xB1\xE2\x84\x96\xE2\x84\xA1\xE3\x8D\xBB"
                "\xE3\x8E\x8F\xE3\x8E\xA1\xE2\x85\xB0\xE9\xAB\x99"
                "a\\b~c";
const S kCircled1 = "\xE2\x91\xA0"; // ①, CP932 87 40

// Every spelling of Shift_JIS that mail uses, in several cases, some with "_" for "-".
const char* const kLabels[] = {"shift_jis",  "Shift_JIS",   "SHIFT-JIS",  "shift-jis", "sjis",
                               "SJIS",       "x-sjis",      "X_SJIS",     "ms_kanji",  "MS_Kanji",
                               "csShiftJIS", "windows-31j", "Windows_31J"};

S Conv(const S& strFrom, const S& strTo, const S& strText) {
    CQLConvParser conv;
    if (!conv.Open(strFrom, strTo, true)) return "!" + conv.GetLastError();
    try {
        return conv.Conv(strText.data(), strText.size());
    } catch (CQLConvParser& e) {
        return "!" + e.GetLastError();
    }
}

} // namespace

TEST(ShiftJis, EveryLabelIsCp932BothWays) {
    for (const char* pszLabel : kLabels) {
        SCOPED_TRACE(pszLabel);
        EXPECT_EQ(Conv(pszLabel, "UTF-8", kCp932), kUtf8);
        EXPECT_EQ(Conv("UTF-8", pszLabel, kUtf8), kCp932);
        // The JIS forms of the yen sign, the overline and the wave dash are still written.
        EXPECT_EQ(Conv("UTF-8", pszLabel, "\xC2\xA5\xE2\x80\xBE\xE3\x80\x9C"), "\\~\x81\x60");
        // Between two labels of the same charset nothing changes.
        EXPECT_EQ(Conv(pszLabel, "shift_jis", kCp932), kCp932);
    }
    // The first autodetect try takes CP932, so the text is not taken for EUC-JP or refused.
    EXPECT_EQ(Conv("autodetect_jp", "UTF-8", kCp932), kUtf8);
}

// Encoded words, raw header bytes under a default charset, and mailbox names all reach CP932.
TEST(ShiftJis, HeadersAndMailboxNames) {
    const struct {
        S strText, strDefault, strExpect;
    } kCases[] = {
        {"=?shift_jis?B?h0Bch4o=?=", "", kCircled1 + "\\\xE3\x88\xB1"},
        {"=?SJIS?Q?=87=40=5C?= x", "", kCircled1 + "\\ x"},
        // ① split over two words is joined on its bytes.
        {"=?x-sjis?Q?=87?= =?x-sjis?Q?=40?=", "", kCircled1},
        {"\x87\x40\\", "csShiftJIS", kCircled1 + "\\"},
        {"=?foo?Q?=87=40?=", "ms_kanji", kCircled1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.strText);
        CQLHdrCodec codec;
        EXPECT_EQ(codec.Decode(c.strText, "UTF-8", c.strDefault, CQLHdrCodec::O_HDRCODEC_NONE),
                  c.strExpect);
    }

    // The backslash stays a backslash, so it is written directly and not as a yen sign.
    CQLConvParser conv;
    const bool bDiscard = true;
    EXPECT_EQ(conv.IMAPUTF7Enc("shift_jis", "\x87\x40\\", bDiscard), "&JGA-\\");
    EXPECT_EQ(conv.IMAPUTF7Dec("sjis", "&JGA-\\", bDiscard), "\x87\x40\\");
}

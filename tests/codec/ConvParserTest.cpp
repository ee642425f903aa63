#include "codec/QLConvParser.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

using S = std::string;

namespace {

S Fix(const S& strLabel) {
    CQLConvParser conv;
    // Exactly the documented 50 bytes on the heap, so that a write past them is caught.
    std::unique_ptr<char[]> pBuf(new char[50]);
    memset(pBuf.get(), 'x', 50);
    conv.FixCS(strLabel, pBuf.get());
    return S(pBuf.get());
}

// What Conv on pointer and length gives, or "!" and the text of the failure.
S Conv(CQLConvParser& conv, const S& strText) {
    try {
        return conv.Conv(strText.data(), strText.size());
    } catch (CQLConvParser& e) {
        return "!" + e.GetLastError();
    }
}

S Conv(const S& strFrom, const S& strTo, const S& strText, bool bDiscard = true) {
    CQLConvParser conv;
    if (!conv.Open(strFrom, strTo, bDiscard)) return "!" + conv.GetLastError();
    return Conv(conv, strText);
}

const S kHan = "\xED\x95\x9C";               // 한
const S kTtom = "\xEB\x98\xA0";              // 똠, only in UHC
const S kNihon = "\xE6\x97\xA5\xE6\x9C\xAC"; // 日本
const S kInOpen = S("In Open, ") + strerror(EINVAL);
const S kEilseq = S("In Conv EILSEQ, ") + strerror(EILSEQ);

} // namespace

TEST(ConvParser, FixCSRulesInOrder) {
    // clang-format off
    const char* kCases[][2] = {
        {"ks_c_5601-1987", "UHC"}, {"KS-C-5601/1987", "UHC"}, {"ksc5601", "EUC-KR"},
        {"ks_c_5601-1989", "EUC-KR"}, {"ms949", "CP949"}, {"ms-foo", "ms-foo"},
        {"ms_949", "ms_949"}, {"shift_jis", "shift-jis"}, {"x_windows_949", "x-windows-949"},
        {"X-Windows-874", "CP874"}, {"x-windows-93", "CP93"}, {"x-windows-9", "x-windows-9"}, {"IBM-eucKR", "EUC-KR"},
        {"5601", "EUC-KR"}, {"utf8", "UTF-8"}, {"utf-8", "utf-8"},
        {"iso-2022-jp", "ISO-2022-JP-MS"}, {"csISO2022JP", "ISO-2022-JP-MS"},
        {"ISO-2022-JP-2", "ISO-2022-JP-2"}, {"gb2312", "GBK"}, {"GB-2312", "GBK"}, {"g", "GBK"},
        {"gb23120", "gb23120"}, {"euc-kr", "UHC"}, {"EUCKR", "UHC"}, {"eu", "UHC"},
        {"euc-jp", "euc-jp"}, {"euc_kr", "euc-kr"}, {"", "GBK"}, {"koi8-r", "koi8-r"},
        // Shift_JIS labels keep their texts; what stands behind them is the converter's.
        {"Shift_JIS", "Shift-JIS"}, {"x_sjis", "x-sjis"}, {"sjis", "sjis"},
        {"MS_Kanji", "MS_Kanji"}, {"csShiftJIS", "csShiftJIS"}, {"windows-31j", "windows-31j"},
    };
    // clang-format on
    for (const auto& c : kCases) EXPECT_EQ(Fix(c[0]), c[1]) << c[0];

    // Long labels stay inside the buffer and are cut to 49 bytes.
    EXPECT_EQ(Fix(S(80, 'a')), S(49, 'a'));
    EXPECT_EQ(Fix("utf8" + S(45, '9')), "UTF-8" + S(44, '9'));
}

TEST(ConvParser, OpenAndState) {
    CQLConvParser conv;
    auto OpenError = [&conv](const S& strFrom, const S& strTo) {
        conv.SetLastError("before");
        return conv.Open(strFrom, strTo, true) ? "(opened)" : conv.GetLastError();
    };
    EXPECT_EQ(OpenError("", "UTF-8"), "From Character set is empty");
    EXPECT_EQ(OpenError("UTF-8", ""), "To Character set is empty");
    EXPECT_EQ(OpenError("no-such-charset", "UTF-8"), kInOpen);
    EXPECT_EQ(Conv(conv, "x"), "!In Conv, Not opened");
    // A name of 50 bytes or more fails without a text of its own.
    EXPECT_EQ(OpenError(S(50, 'a'), "UTF-8"), "before");
    EXPECT_EQ(OpenError("UTF-8", "UTF-" + S(46, '8')), "before");
    EXPECT_EQ(OpenError("UTF-8", S(49, 'x')), kInOpen);
    EXPECT_EQ(OpenError("__autodetect_kr", "UTF-8"), kInOpen);

    // An empty name leaves what is open alone; a success keeps an old text.
    ASSERT_TRUE(conv.Open("euc-kr", "UTF-8", true));
    EXPECT_FALSE(conv.Open("", "UTF-8", true));
    EXPECT_EQ(conv.Conv(S("\xC7\xD1")), kHan);
    EXPECT_EQ(conv.GetLastError(), "From Character set is empty");
    EXPECT_EQ(conv.Conv(nullptr, 5), "");
    EXPECT_EQ(conv.Conv("abc", 0), "");
    conv.Close();
    conv.Close();
    EXPECT_EQ(Conv(conv, ""), "!In Conv, Not opened");

    // The copy carries the text and nothing else.
    ASSERT_TRUE(conv.Open("UTF-8", "UTF-16", true));
    CQLConvParser copy(conv);
    EXPECT_EQ(copy.GetLastError(), "In Conv, Not opened");
    EXPECT_EQ(Conv(copy, "a"), "!In Conv, Not opened");

    // The string form hands back its input and keeps the text, also in autodetect mode.
    ASSERT_TRUE(conv.Open("UTF-8", "euc-kr", false));
    EXPECT_EQ(conv.Conv(S("a\377b")), "a\377b");
    EXPECT_EQ(conv.GetLastError(), kEilseq);
    ASSERT_TRUE(conv.Open("autodetect_kr", "UTF-8", true));
    conv.SetLastError("");
    EXPECT_EQ(conv.Conv(S("\xFF\xFF")), "\xFF\xFF");
    EXPECT_EQ(conv.GetLastError(), kEilseq);
    // Back to a plain converter after autodetect mode; each text reads its own byte-order mark.
    ASSERT_TRUE(conv.Open("UTF-16", "UTF-8", true));
    EXPECT_EQ(conv.Conv(S("\377\376A\0", 4)), "A");
    EXPECT_EQ(conv.Conv(S("\0A", 2)), "A");
}

// Mail labels, repaired, on real bytes.
TEST(ConvParser, ConvertsMailLabels) {
    const struct {
        const char* pszLabel;
        S strBytes;
        S strUtf8;
    } kCases[] = {
        {"euc-kr", "\xC7\xD1\x8C\x63", kHan + kTtom},
        {"ks_c_5601-1987", "\x8C\x63", kTtom},
        {"iso-2022-kr", "\x1B$)C\x0EGQ\x0F!", kHan + "!"},
        {"shift_jis", "\x93\xFA\x96\x7B", kNihon},
        {"cp932", "\x87\x40\x87\x54\xFB\xFC", "\xE2\x91\xA0\xE2\x85\xA0\xE9\xAB\x99"},
        // NEC row 13 (①), an IBM kanji (髙) and half-width katakana (ｱ).
        {"ISO-2022-JP", "\x1B$BF|K\\-!|b\x1B(I1\x1B(B.",
         kNihon + "\xE2\x91\xA0\xE9\xAB\x99\xEF\xBD\xB1."},
        {"euc-jp", "\xC6\xFC\xCB\xDC", kNihon},
        {"gb2312", "\xD6\xD0\xE9\x46", "\xE4\xB8\xAD\xE9\x95\x95"},
        {"big5", "\xA4\xA4\xA4\xE5", "\xE4\xB8\xAD\xE6\x96\x87"},
        {"iso-8859-1", "caf\xE9", "caf\xC3\xA9"},
        {"windows-1252", "\x80\x93", "\xE2\x82\xAC\xE2\x80\x9C"},
    };
    // Each converts to UTF-8 and back to the same bytes.
    for (const auto& c : kCases) {
        EXPECT_EQ(Conv(c.pszLabel, "UTF-8", c.strBytes), c.strUtf8) << c.pszLabel;
        EXPECT_EQ(Conv("UTF-8", c.pszLabel, c.strUtf8), c.strBytes) << c.pszLabel;
    }
    // Large texts cross many output blocks and take another way through the C library,
    // with bad bytes discarded and a byte-order mark written once.
    S strBig, strExpect, strU16 = "\376\377";
    for (int i = 0; i < 3000; ++i)
        strBig += "\xC7\xD1\377a", strExpect += kHan + "a", strU16 += S("\0a", 2);
    EXPECT_EQ(Conv("euc-kr", "UTF-8", strBig), strExpect);
    EXPECT_EQ(Conv("UTF-8", "UTF-16", S(3000, 'a')), strU16);
}

TEST(ConvParser, TailsIllegalSequencesAndAutodetect) {
    const struct {
        const char* pszFrom;
        const char* pszTo;
        bool bDiscard;
        S strIn, strOut;
    } kCases[] = {
        // A cut tail of n bytes gives n copies of its first byte, never an exception.
        {"UTF-8", "UTF-8", false, "a\xED\x95", "a\xED\xED"},
        {"euc-kr", "UTF-8", true, "\xC7\xD1\xC7", kHan + "\xC7"},
        {"ISO-2022-JP", "UTF-8", true, "a\x1B$", "a\x1B\x1B"},
        {"ISO-2022-JP", "UTF-8", true, "\x1B$BF|K", "\xE6\x97\xA5K"},
        {"UTF-16", "UTF-8", true, "\xFE", "\xFE"},
        // Illegal input throws, unless discarded with characters the target lacks.
        {"UTF-8", "euc-kr", false, "a\377b", "!" + kEilseq},
        {"UTF-8", "euc-kr", true, "a\xFF" + kHan + kTtom, "a\xC7\xD1\x8C\x63"},
        {"UTF-8", "ksc5601", true, "a" + kTtom + kHan, "a\xC7\xD1"},
        // Autodetect: UTF-8, else Latin-1 for the whole text; a cut-off character is no fault.
        {"autodetect_utf8", "UTF-8", true, kHan, kHan},
        {"autodetect_utf8x", "UTF-8", true, "\xC3\xA9 caf\xE9 x", "\xC3\x83\xC2\xA9 caf\xC3\xA9 x"},
        {"autodetect_utf8", "UTF-8", true, "a\xED\x95", "a\xED\xED"},
        {"_autodetect_kr", "UTF-8", true, "\xC7\xD1\x8C\x63", kHan + kTtom},
        {"AUTODETECT_KR", "UTF-8", true, "\xFF\xFF", "!" + kEilseq}, // the last try's text
        // Valid as Shift_JIS (two half-width katakana), so EUC-JP is never tried.
        {"_autodetect_jp", "UTF-8", true, "\xC6\xC6", "\xEF\xBE\x86\xEF\xBE\x86"},
        // Not Shift_JIS, not 7-bit ISO-2022-JP-2: EUC-JP.
        {"autodetect_jp", "UTF-8", true, "\xC6\xFC\xCB\xDC", kNihon},
        // 7-bit ISO-2022-JP is valid Shift_JIS (read as CP932) too, escapes and all.
        {"autodetect_jp", "UTF-8", true, "\x1B$BF|K\\\x1B(B", "\x1B$BF|K\\\x1B(B"},
        // A target that cannot be opened fails the first try.
        {"autodetect_kr", "no-such-charset", true, "a", "!In Conv, " + kInOpen},
    };
    for (const auto& c : kCases)
        EXPECT_EQ(Conv(c.pszFrom, c.pszTo, c.strIn, c.bDiscard), c.strOut)
            << c.pszFrom << " " << c.strIn;
}

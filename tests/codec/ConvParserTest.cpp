#include "codec/QLConvParser.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

namespace {

std::string Fix(const std::string& strLabel) {
    CQLConvParser conv;
    // Exactly the documented 50 bytes on the heap, so that a write past them is caught.
    std::unique_ptr<char[]> pBuf(new char[50]);
    memset(pBuf.get(), 'x', 50);
    conv.FixCS(strLabel, pBuf.get());
    return std::string(pBuf.get());
}

std::string ConvOnce(const std::string& strFrom, const std::string& strTo,
                     const std::string& strText, bool bDiscard = true) {
    CQLConvParser conv;
    EXPECT_TRUE(conv.Open(strFrom, strTo, bDiscard)) << strFrom << ": " << conv.GetLastError();
    return conv.Conv(strText.data(), strText.size());
}

std::string Thrown(CQLConvParser& conv, const std::string& strText) {
    try {
        conv.Conv(strText.data(), strText.size());
    } catch (CQLConvParser& e) {
        return e.GetLastError();
    }
    return "(nothing thrown)";
}

const std::string kHan = "\xED\x95\x9C";               // 한
const std::string kTtom = "\xEB\x98\xA0";              // 똠, only in UHC
const std::string kNihon = "\xE6\x97\xA5\xE6\x9C\xAC"; // 日本

} // namespace

TEST(ConvParser, FixCSRulesInOrder) {
    const struct {
        const char* pszLabel;
        const char* pszFixed;
    } kCases[] = {
        {"ks_c_5601-1987", "UHC"},
        {"KS-C-5601/1987", "UHC"},
        {"ksc5601", "EUC-KR"},
        {"ks_c_5601-1989", "EUC-KR"},
        {"ksx_5601_1987", "EUC-KR"},
        {"ms949", "CP949"},
        {"MS932", "CP932"},
        {"ms-foo", "ms-foo"},
        {"ms_949", "ms_949"},
        {"shift_jis", "shift-jis"},
        {"x_windows_949", "x-windows-949"},
        {"x-windows-949", "CP949"},
        {"X-Windows-874", "CP874"},
        {"x-windows-9", "x-windows-9"},
        {"IBM-eucKR", "EUC-KR"},
        {"5601", "EUC-KR"},
        {"utf8", "UTF-8"},
        {"UTF16", "UTF-16"},
        {"utf-8", "utf-8"},
        {"utfx", "utfx"},
        {"iso-2022-jp", "ISO-2022-JP-MS"},
        {"csISO2022JP", "ISO-2022-JP-MS"},
        {"ISO-2022-JP-2", "ISO-2022-JP-2"},
        {"gb2312", "GBK"},
        {"GB-2312", "GBK"},
        {"g", "GBK"},
        {"gb23120", "gb23120"},
        {"euc-kr", "UHC"},
        {"EUCKR", "UHC"},
        {"euc", "UHC"},
        {"euc-", "UHC"},
        {"eu", "UHC"},
        {"euc-jp", "euc-jp"},
        {"euc_kr", "euc-kr"},
        {"", "GBK"},
        {"koi8-r", "koi8-r"},
    };
    for (const auto& c : kCases) EXPECT_EQ(Fix(c.pszLabel), c.pszFixed) << c.pszLabel;

    // Long labels stay inside the buffer and are cut to 49 bytes.
    EXPECT_EQ(Fix(std::string(80, 'a')), std::string(49, 'a'));
    EXPECT_EQ(Fix("utf8" + std::string(45, '9')), "UTF-8" + std::string(44, '9'));
}

TEST(ConvParser, OpenFailures) {
    CQLConvParser conv;
    EXPECT_FALSE(conv.Open("", "UTF-8", true));
    EXPECT_EQ(conv.GetLastError(), "From Character set is empty");
    EXPECT_FALSE(conv.Open("UTF-8", "", true));
    EXPECT_EQ(conv.GetLastError(), "To Character set is empty");

    EXPECT_FALSE(conv.Open("no-such-charset", "UTF-8", true));
    EXPECT_EQ(conv.GetLastError(), std::string("In Open, ") + strerror(EINVAL));
    EXPECT_EQ(Thrown(conv, "x"), "In Conv, Not opened");

    // A name of 50 bytes or more fails without a text of its own.
    conv.SetLastError("before");
    EXPECT_FALSE(conv.Open(std::string(50, 'a'), "UTF-8", true));
    EXPECT_FALSE(conv.Open("UTF-8", "UTF-" + std::string(46, '8'), true));
    EXPECT_EQ(conv.GetLastError(), "before");
    EXPECT_FALSE(conv.Open("UTF-8", std::string(49, 'x'), true));
    EXPECT_EQ(conv.GetLastError(), std::string("In Open, ") + strerror(EINVAL));

    // An empty name leaves what is open alone; a success keeps an old text.
    ASSERT_TRUE(conv.Open("euc-kr", "UTF-8", true));
    EXPECT_FALSE(conv.Open("", "UTF-8", true));
    EXPECT_EQ(conv.Conv(std::string("\xC7\xD1")), kHan);
    EXPECT_EQ(conv.GetLastError(), "From Character set is empty");

    EXPECT_EQ(conv.Conv(nullptr, 5), "");
    EXPECT_EQ(conv.Conv("abc", 0), "");
    conv.Close();
    conv.Close();
    EXPECT_EQ(Thrown(conv, ""), "In Conv, Not opened");

    // The copy carries the text and nothing else.
    ASSERT_TRUE(conv.Open("UTF-8", "UTF-16", true));
    CQLConvParser copy(conv);
    EXPECT_EQ(copy.GetLastError(), "In Conv, Not opened");
    EXPECT_EQ(Thrown(copy, "a"), "In Conv, Not opened");
}

// Mail labels, repaired, on real bytes.
TEST(ConvParser, ConvertsMailLabels) {
    const struct {
        const char* pszLabel;
        std::string strBytes;
        std::string strUtf8;
    } kCases[] = {
        {"euc-kr", "\xC7\xD1\x8C\x63", kHan + kTtom},
        {"EUCKR", "\x8C\x63", kTtom},
        {"ks_c_5601-1987", "\x8C\x63", kTtom},
        {"x-windows-949", "\x8C\x63", kTtom},
        {"ms949", "\x8C\x63", kTtom},
        {"ksc5601", "\xC7\xD1", kHan},
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
        {"utf8", kHan, kHan},
    };
    // Each converts to UTF-8 and back to the same bytes.
    for (const auto& c : kCases) {
        EXPECT_EQ(ConvOnce(c.pszLabel, "UTF-8", c.strBytes), c.strUtf8) << c.pszLabel;
        EXPECT_EQ(ConvOnce("UTF-8", c.pszLabel, c.strUtf8), c.strBytes) << c.pszLabel;
    }
    // A large text crosses many output blocks.
    std::string strBig;
    for (int i = 0; i < 3000; ++i)
        strBig += "\xC7\xD1"
                  "a";
    std::string strExpect;
    for (int i = 0; i < 3000; ++i) strExpect += kHan + "a";
    EXPECT_EQ(ConvOnce("euc-kr", "UTF-8", strBig), strExpect);
}

TEST(ConvParser, IncompleteTailsAndIllegalSequences) {
    // A cut tail of n bytes gives n copies of its first byte, never an exception.
    EXPECT_EQ(ConvOnce("UTF-8", "UTF-8", "a\xED\x95", false), "a\xED\xED");
    EXPECT_EQ(ConvOnce("euc-kr", "UTF-8", "\xC7\xD1\xC7"), kHan + "\xC7");
    EXPECT_EQ(ConvOnce("ISO-2022-JP", "UTF-8", "a\x1B$"), "a\x1B\x1B");
    EXPECT_EQ(ConvOnce("ISO-2022-JP", "UTF-8", "\x1B$BF|K"), "\xE6\x97\xA5K");
    EXPECT_EQ(ConvOnce("UTF-16", "UTF-8", "\xFE"), "\xFE");

    CQLConvParser conv;
    ASSERT_TRUE(conv.Open("UTF-8", "euc-kr", false));
    const std::string strEilseq = std::string("In Conv EILSEQ, ") + strerror(EILSEQ);
    EXPECT_EQ(Thrown(conv, "a\xFF"
                           "b"),
              strEilseq);
    // The string form hands back its input and keeps the text.
    conv.SetLastError("");
    EXPECT_EQ(conv.Conv(std::string("a\xFF"
                                    "b")),
              "a\xFF"
              "b");
    EXPECT_EQ(conv.GetLastError(), strEilseq);
    // Discarding drops bad bytes and characters the target lacks.
    EXPECT_EQ(ConvOnce("UTF-8", "euc-kr", "a\xFF" + kHan + kTtom, true), "a\xC7\xD1\x8C\x63");
    EXPECT_EQ(ConvOnce("UTF-8", "ksc5601", "a" + kTtom + kHan, true), "a\xC7\xD1");
    EXPECT_EQ(ConvOnce("UTF-8", "iso-8859-1", "a" + kHan + "b", true), "ab");
}

TEST(ConvParser, AutodetectModes) {
    CQLConvParser conv;
    for (const char* pszName : {"_autodetect_jp", "AUTODETECT_KR", "autodetect_utf8x"})
        EXPECT_TRUE(conv.Open(pszName, "UTF-8", true)) << pszName;
    EXPECT_FALSE(conv.Open("__autodetect_kr", "UTF-8", true));

    ASSERT_TRUE(conv.Open("autodetect_utf8", "UTF-8", true));
    EXPECT_EQ(conv.Conv(kHan.data(), kHan.size()), kHan);
    // Illegal UTF-8: the whole text is taken as Latin-1, from its first byte.
    EXPECT_EQ(conv.Conv(std::string("\xC3\xA9 caf\xE9 x")), "\xC3\x83\xC2\xA9 caf\xC3\xA9 x");
    // A cut-off character passes the first try.
    EXPECT_EQ(conv.Conv(std::string("a\xED\x95")), "a\xED\xED");

    ASSERT_TRUE(conv.Open("_autodetect_kr", "UTF-8", true));
    EXPECT_EQ(conv.Conv(std::string("\xC7\xD1\x8C\x63")), kHan + kTtom);
    // Nothing fits: the text of the last try comes out.
    conv.SetLastError("");
    EXPECT_EQ(Thrown(conv, "\xFF\xFF"), std::string("In Conv EILSEQ, ") + strerror(EILSEQ));
    EXPECT_EQ(conv.Conv(std::string("\xFF\xFF")), "\xFF\xFF");

    ASSERT_TRUE(conv.Open("autodetect_jp", "UTF-8", true));
    // Valid as Shift_JIS (two half-width katakana), so EUC-JP is never tried.
    EXPECT_EQ(conv.Conv(std::string("\xC6\xC6")), "\xEF\xBE\x86\xEF\xBE\x86");
    // Not Shift_JIS, not 7-bit ISO-2022-JP-2: EUC-JP.
    EXPECT_EQ(conv.Conv(std::string("\xC6\xFC\xCB\xDC")), kNihon);
    // 7-bit ISO-2022-JP is valid Shift_JIS too, where 0x5C is the yen sign.
    EXPECT_EQ(conv.Conv(std::string("\x1B$BF|K\\\x1B(B")), "\x1B$BF|K\xC2\xA5\x1B(B");

    // A target that cannot be opened fails the first try.
    ASSERT_TRUE(conv.Open("autodetect_kr", "no-such-charset", true));
    EXPECT_EQ(Thrown(conv, "a"), std::string("In Conv, In Open, ") + strerror(EINVAL));
    // Back to a plain converter after autodetect mode.
    ASSERT_TRUE(conv.Open("euc-kr", "UTF-8", true));
    EXPECT_EQ(conv.Conv(std::string("\xC7\xD1")), kHan);
}

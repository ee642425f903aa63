#include "codec/QLHdrCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const std::string kHan = "\xED\x95\x9C";  // 한, EUC-KR C7 D1
const std::string kGeul = "\xEA\xB8\x80"; // 글, EUC-KR B1 DB

} // namespace

TEST(HdrCodec, DecodeHardCases) {
    const int kNone = CQLHdrCodec::O_HDRCODEC_NONE, kCs = CQLHdrCodec::O_ITEM_CS;
    const struct {
        std::string strText, strDefault;
        int nOptions;
        std::string strExpect;
        bool bHasCharset, bBadCharset;
    } kCases[] = {
        // A character split over two words, with and without a fold between them.
        {"=?euc-kr?B?xw==?= =?euc-kr?B?0Q==?=", "", kNone, kHan, true, false},
        {"=?euc-kr?B?xw==?=\r\n =?euc-kr?B?0Q==?=", "", kNone, kHan, true, false},
        // Plain text before a word has no charset, after a word it takes the word's.
        {"abc =?euc-kr?B?x9E=?=", "", kNone, "abc " + kHan, false, false},
        {"=?euc-kr?B?x9E=?= \xB1\xDB", "", kNone, kHan + " " + kGeul, true, false},
        {"=?euc-kr?B?x9E=?= =?ISO-8859-1?Q?caf=E9?=", "", kNone, kHan + "caf\xC3\xA9", true, false},
        // Raw ISO-2022-JP, seen only when the escape ends 3 bytes before the token does.
        {"\x1B$BF|K\\-!\x1B(B", "", kNone, "\xE6\x97\xA5\xE6\x9C\xAC\xE2\x91\xA0", true, false},
        {"xx\x1B$BF", "", kNone, "xx\x1B$BF", false, false},
        {"a=?utf-8?Q?x=ZZy?=b", "", kNone, "ab", false, false}, // a bad Q escape drops its word
        // Unknown charsets and "us-ascii" as last word.
        {"=?foo?B?x9E=?=", "euc-kr", kNone, kHan, true, true},
        {"=?foo?B?x9E=?=", "", kNone, "\xC7\xD1", true, true},
        {"=?us-ascii?Q?abc?=", "euc-kr", kNone, "abc", true, false},
        {"=?US-ASCII?Q?abc?=", "", kNone, "abc", true, true},
        {"\xC7\xD1", "euc-kr", kNone, kHan, false, false},
        {"\xC7\xD1", "", kNone, "\xC7\xD1", false, false},
        // Damaged words.
        {"=?utf-8?x?a_b?=", "", kNone, "a b", true, false},
        {"=?utf-8?Q?ab=00cd?=e", "", kNone, "abe", true, false},
        {"=?utf-8?Q?abc", "", kNone, "=?utf-8?Q?abc", false, false},
        {"=?a b?=", "", kNone, "=?a b?=", true, true},
        // Options.
        {"=?EUC-KR?B?x9E=?=", "", kCs, "euc-kr", true, false},
        {"x\x1B$BF|\x1B(B", "", kCs, "iso-2022-jp", true, false},
        {"plain", "", kCs, "", false, false},
        {"=?utf-8?Q?=22a=5C=22b=22_<c>?=", "", CQLHdrCodec::O_CONV_LTGT | CQLHdrCodec::O_TRIM_DQ,
         "\"ab\" &lt;c&gt;", true, false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.strText);
        CQLHdrCodec codec;
        EXPECT_EQ(codec.Decode(c.strText, "UTF-8", c.strDefault, c.nOptions), c.strExpect);
        EXPECT_EQ(codec.HasCharset(), c.bHasCharset);
        EXPECT_EQ(codec.IsBadCharset(), c.bBadCharset);
    }

    // An empty value gives nothing and leaves the flags of the last one.
    CQLHdrCodec codec;
    codec.Decode("=?foo?Q?a?=", "UTF-8", "", CQLHdrCodec::O_HDRCODEC_NONE);
    EXPECT_EQ(codec.Decode("", "UTF-8", "", CQLHdrCodec::O_HDRCODEC_NONE), "");
    EXPECT_TRUE(codec.IsBadCharset());
    // A target that cannot be opened leaves the bytes as they are.
    EXPECT_EQ(codec.Decode("=?euc-kr?B?x9E=?=", "no-such", "", CQLHdrCodec::O_HDRCODEC_NONE),
              "\xC7\xD1");
    EXPECT_TRUE(codec.IsBadCharset());
}

TEST(HdrCodec, Tokens) {
    CQLHdrCodec codec;
    const std::string strText = "a b =?x?Q?c d?=\r\n =?y ?B?e?=f\r\ng=?z?Q?h";
    unsigned int nPos = 0;
    std::string strToken, strSeen;
    bool bEW = true;
    // Encoded words are marked with "*".
    while (codec.GetToken(strText, nPos, strToken, bEW))
        strSeen += (bEW ? "*" : "") + strToken + "|";
    EXPECT_EQ(strSeen, "a b |*=?x?Q?c d?=|* =?y ?B?e?=|fg|=?z?Q?h|");
    EXPECT_EQ(strToken, "");
    EXPECT_FALSE(bEW);

    std::string strCharset, strEncoded;
    char cEncoding = 0;
    EXPECT_TRUE(codec.ParseEW(" =?Euc-KR?qx?abc?=", strCharset, cEncoding, strEncoded));
    EXPECT_EQ(strCharset + "|" + cEncoding + "|" + strEncoded, "euc-kr|Q| abc");
    // A false return keeps the charset as far as it was read.
    EXPECT_FALSE(codec.ParseEW("=?utf-8?Q", strCharset, cEncoding, strEncoded));
    EXPECT_EQ(strCharset, "utf-8");
}

TEST(HdrCodec, LenientDecoders) {
    CQLHdrCodec codec;
    // Decoder, input, result ("!" for a false return). In Q blanks before a carriage return
    // go, and a soft break at a line feed sets the trim mark but one at CR does not.
    // clang-format off
    const char* kCases[][3] = {
        {"Q", "a_b c", "a b c"}, {"Q", "a \r\nb", "a\r\nb"}, {"Q", "a \nb", "a \nb"},
        {"Q", "a=\r\nb", "ab"}, {"Q", "a =\nb", "a b"}, {"Q", "a =\r\n\r\nb", "a\r\nb"},
        {"Q", "=41=4a=", "AJ"}, {"Q", " \tx", " \tx"}, {"Q", "=4", "!"}, {"Q", "a=G1", "!"},
        {"Q", "a=4\x01", "!"}, {"B", "YWJj", "abc"}, {"B", "  YW Jj", "  abc"},
        {"B", "YWI=Yw==", "ab"}, {"B", "YWJ", "ab"}, {"B", "=YWJj", ""}, {"B", "", ""}, {"B", "Y", ""},
    };
    // clang-format on
    for (const auto& c : kCases) {
        std::string strOut = "old";
        const bool bOk =
            *c[0] == 'Q' ? codec.DecodeQP(c[1], strOut) : codec.DecodeB64(c[1], strOut);
        EXPECT_EQ(bOk ? strOut : "!" + strOut, c[2]) << c[1];
    }
    std::string strOut;
    EXPECT_TRUE(codec.DecodeQP(std::string("a=\0b", 4), strOut));
    EXPECT_EQ(strOut, std::string("a\0b", 3));
}

TEST(HdrCodec, EncodeAndHelpers) {
    CQLHdrCodec codec;
    EXPECT_EQ(codec.EncodeQP(std::string("a b=?_\x7F\x01\xC7")), "a_b=3D?_=7F=01=C7");

    EXPECT_EQ(codec.Encode("", "utf-8", true, 10), "");
    EXPECT_EQ(codec.Encode("abc", "", true, 10), "abc");
    EXPECT_EQ(codec.Encode("abcd", "x", true, 3), "=?x?B?YWJj?=\r\n\t=?x?B?ZA==?=");
    EXPECT_EQ(codec.Encode("a b", "x", false, 100), "=?x?Q?a_b?=");
    EXPECT_EQ(codec.Encode("abcd", "x", false, -1), "=?x?Q?abcd?=");
    EXPECT_EQ(codec.Encode("abcd", "x", false, 0), "=?x?Q?abcd?=");

    EXPECT_EQ(codec.LtGt("<a>&"), "&lt;a&gt;&");
    EXPECT_EQ(codec.TrimDQ("\"x\""), "\"x\"");
    EXPECT_EQ(codec.TrimDQ("a\\\"b\\\\"), "ab");
    // 0x95 0x5C is a Shift_JIS character whose trail byte looks like a backslash.
    EXPECT_EQ(codec.TrimDQ("\x95\\\\x"), "\x95\\x");
    EXPECT_EQ(codec.TrimDQ("\x95"), "\x95");
}

TEST(HdrCodec, DamagedInputStaysInBounds) {
    CQLHdrCodec codec;
    const char* kInputs[] = {"=?",      "a=?",       "=?=",        "=?x?",        "=?x?Q?",
                             "=?x?Q?=", "=?x?Q?a?",  "=?x?B?=?=",  "\x1B$B",      "a\x1B$",
                             " \r\n",   "=?x?Q?=?=", "=?x?q?a=?=", "=?\r\n?Q?a?="};
    for (const char* pszIn : kInputs) {
        for (int nOptions = 0; nOptions < 8; ++nOptions) {
            codec.Decode(pszIn, "UTF-8", "", nOptions);
            codec.Decode(pszIn, "UTF-8", "euc-kr", nOptions);
        }
    }
    EXPECT_EQ(codec.Decode("=?x?Q?=?=", "UTF-8", "", 0), "");
    EXPECT_EQ(codec.Decode(" \r\n", "UTF-8", "", 0), " ");
    const std::string strLong = "=?" + std::string(60, 'a') + "?Q?b?=";
    EXPECT_EQ(codec.Decode(strLong, "UTF-8", "", 0), "b");
    EXPECT_TRUE(codec.IsBadCharset());
}

#include "codec/QLHdrCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const std::string kHan = "\xED\x95\x9C";  // 한, EUC-KR C7 D1
const std::string kGeul = "\xEA\xB8\x80"; // 글, EUC-KR B1 DB

struct DecodeCase {
    const char* pszName;
    std::string strText;
    std::string strDefault;
    int nOptions;
    std::string strExpect;
    bool bHasCharset;
    bool bBadCharset;
};

} // namespace

TEST(HdrCodec, DecodeHardCases) {
    const int kNone = CQLHdrCodec::O_HDRCODEC_NONE;
    const DecodeCase kCases[] = {
        {"character split over two words", "=?euc-kr?B?xw==?= =?euc-kr?B?0Q==?=", "", kNone, kHan,
         true, false},
        {"fold between words", "=?euc-kr?B?xw==?=\r\n =?euc-kr?B?0Q==?=", "", kNone, kHan, true,
         false},
        {"plain before a word has no charset", "abc =?euc-kr?B?x9E=?=", "", kNone, "abc " + kHan,
         false, false},
        {"plain after a word takes its charset", "=?euc-kr?B?x9E=?= \xB1\xDB", "", kNone,
         kHan + " " + kGeul, true, false},
        {"words of two charsets", "=?euc-kr?B?x9E=?= =?ISO-8859-1?Q?caf=E9?=", "", kNone,
         kHan + "caf\xC3\xA9", true, false},
        {"label repaired on the way", "=?ks_c_5601-1987?B?jGM=?=", "", kNone, "\xEB\x98\xA0", true,
         false},
        {"raw ISO-2022-JP", "\x1B$BF|K\\-!\x1B(B", "", kNone,
         "\xE6\x97\xA5\xE6\x9C\xAC\xE2\x91\xA0", true, false},
        {"escape too near the end", "xx\x1B$BF", "", kNone, "xx\x1B$BF", false, false},
        {"bad Q escape", "a=?utf-8?Q?x=ZZy?=b", "", kNone, "ab", false, false},
        {"bad Q escape alone", "=?cs?Q?a=ZZb?=", "", kNone, "", true, false},
        {"unknown charset, default applies", "=?foo?B?x9E=?=", "euc-kr", kNone, kHan, true, true},
        {"unknown charset, no default", "=?foo?B?x9E=?=", "", kNone, "\xC7\xD1", true, true},
        {"us-ascii last takes the default", "=?us-ascii?Q?abc?=", "euc-kr", kNone, "abc", true,
         false},
        {"us-ascii last without default", "=?US-ASCII?Q?abc?=", "", kNone, "abc", true, true},
        {"raw text, default charset", "\xC7\xD1", "euc-kr", kNone, kHan, false, false},
        {"raw text, no default", "\xC7\xD1", "", kNone, "\xC7\xD1", false, false},
        {"other encoding letters are Q", "=?utf-8?x?a_b?=", "", kNone, "a b", true, false},
        {"decoded NUL cuts the word", "=?utf-8?Q?ab=00cd?=e", "", kNone, "abe", true, false},
        {"base64 with foreign bytes", "=?utf-8?B?Y*W Jj?=", "", kNone, "abc", true, false},
        {"unterminated word is plain", "=?utf-8?Q?abc", "", kNone, "=?utf-8?Q?abc", false, false},
        {"word without its sections", "=?a b?=", "", kNone, "=?a b?=", true, true},
        {"charset wanted", "=?EUC-KR?B?x9E=?=", "", CQLHdrCodec::O_ITEM_CS, "euc-kr", true, false},
        {"charset of raw ISO-2022-JP", "x\x1B$BF|\x1B(B", "", CQLHdrCodec::O_ITEM_CS, "iso-2022-jp",
         true, false},
        {"no charset in a plain value", "plain", "", CQLHdrCodec::O_ITEM_CS, "", false, false},
        {"angle brackets and quotes", "=?utf-8?Q?=22a=5C=22b=22_<c>?=", "",
         CQLHdrCodec::O_CONV_LTGT | CQLHdrCodec::O_TRIM_DQ, "\"ab\" &lt;c&gt;", true, false},
    };
    for (const DecodeCase& c : kCases) {
        SCOPED_TRACE(c.pszName);
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
    std::vector<std::pair<std::string, bool>> tokens;
    unsigned int nPos = 0;
    std::string strToken;
    bool bEW = true;
    while (codec.GetToken(strText, nPos, strToken, bEW)) tokens.emplace_back(strToken, bEW);
    const std::vector<std::pair<std::string, bool>> kExpect = {
        {"a b ", false}, {"=?x?Q?c d?=", true}, {" =?y ?B?e?=", true},
        {"fg", false},   {"=?z?Q?h", false},
    };
    EXPECT_EQ(tokens, kExpect);
    EXPECT_EQ(strToken, "");
    EXPECT_FALSE(bEW);

    std::string strCharset, strEncoded;
    char cEncoding = 0;
    EXPECT_TRUE(codec.ParseEW(" =?Euc-KR?qx?abc?=", strCharset, cEncoding, strEncoded));
    EXPECT_EQ(strCharset, "euc-kr");
    EXPECT_EQ(cEncoding, 'Q');
    EXPECT_EQ(strEncoded, " abc");
    // A false return keeps the charset as far as it was read.
    EXPECT_FALSE(codec.ParseEW("=?utf-8?Q", strCharset, cEncoding, strEncoded));
    EXPECT_EQ(strCharset, "utf-8");
    EXPECT_FALSE(codec.ParseEW("=?", strCharset, cEncoding, strEncoded));
    EXPECT_EQ(strCharset, "");
    EXPECT_EQ(cEncoding, 'B');
    EXPECT_FALSE(codec.ParseEW("", strCharset, cEncoding, strEncoded));
}

TEST(HdrCodec, LenientDecoders) {
    CQLHdrCodec codec;
    const struct {
        const char* pszIn;
        bool bOk;
        std::string strOut;
    } kQ[] = {
        {"a_b c", true, "a b c"}, {"a \r\nb", true, "a\r\nb"}, // blanks before a line end go
        {"a \nb", true, "a \nb"}, {"a=\r\nb", true, "ab"},
        {"a =\nb", true, "a b"},  {"a =\r\n\r\nb", true, "a\r\nb"},
        {"=41=4a=", true, "AJ"},  {" \tx", true, " \tx"},
        {"=4", false, ""},        {"a=G1", false, ""},
        {"a=4\x01", false, ""},
    };
    for (const auto& c : kQ) {
        std::string strOut = "old";
        EXPECT_EQ(codec.DecodeQP(c.pszIn, strOut), c.bOk) << c.pszIn;
        EXPECT_EQ(strOut, c.strOut) << c.pszIn;
    }
    std::string strOut;
    EXPECT_TRUE(codec.DecodeQP(std::string("a=\0b", 4), strOut));
    EXPECT_EQ(strOut, std::string("a\0b", 3));

    const struct {
        const char* pszIn;
        std::string strOut;
    } kB[] = {
        {"YWJj", "abc"}, {"  YW Jj", "  abc"}, {"YWI=Yw==", "ab"},
        {"YWJ", "ab"},   {"=YWJj", ""},        {"", ""},
        {"Y", ""},
    };
    for (const auto& c : kB) {
        EXPECT_TRUE(codec.DecodeB64(c.pszIn, strOut));
        EXPECT_EQ(strOut, c.strOut) << c.pszIn;
    }
}

TEST(HdrCodec, EncodeAndHelpers) {
    CQLHdrCodec codec;
    EXPECT_EQ(codec.EncodeQP(std::string("a b=?_\x7F\x01\xC7")), "a_b=3D?_=7F=01=C7");
    EXPECT_EQ(codec.EncodeB64("abcd"), "YWJjZA==");
    EXPECT_EQ(codec.EncodeB64("ab"), "YWI=");
    EXPECT_EQ(codec.EncodeB64(""), "");

    EXPECT_EQ(codec.Encode("", "utf-8", true, 10), "");
    EXPECT_EQ(codec.Encode("abc", "", true, 10), "abc");
    EXPECT_EQ(codec.Encode("abcd", "x", true, 3), "=?x?B?YWJj?=\r\n\t=?x?B?ZA==?=");
    EXPECT_EQ(codec.Encode("a b", "x", false, 100), "=?x?Q?a_b?=");
    EXPECT_EQ(codec.Encode("abcd", "x", false, -1), "=?x?Q?abcd?=");
    EXPECT_EQ(codec.Encode("abcd", "x", false, 0), "=?x?Q?abcd?=");

    // Words cut inside characters decode back whole.
    const std::string strText = kHan + kGeul + " " + kHan;
    for (bool bBase64 : {true, false}) {
        const std::string strWords = codec.Encode(strText, "utf-8", bBase64, 2);
        EXPECT_EQ(codec.Decode(strWords, "UTF-8", "", CQLHdrCodec::O_HDRCODEC_NONE), strText);
        EXPECT_EQ(codec.Decode(strWords, "euc-kr", "", CQLHdrCodec::O_HDRCODEC_NONE),
                  "\xC7\xD1\xB1\xDB \xC7\xD1");
    }

    EXPECT_EQ(codec.LtGt("<a>&"), "&lt;a&gt;&");
    EXPECT_EQ(codec.LtGt(""), "");
    EXPECT_EQ(codec.TrimDQ("\"x\""), "\"x\"");
    EXPECT_EQ(codec.TrimDQ("a\\\"b"), "ab");
    EXPECT_EQ(codec.TrimDQ("\\\\"), "");
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

// The decoder's shortcuts give what the full decode gives.
#include "codec/QLConvParser.h"
#include "codec/QLHdrCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

TEST(HdrCodec, ShortcutsAgreeWithTheFullDecode) {
    // GetWordCharset gives what Decode with O_ITEM_CS gives.
    const std::vector<std::string> vTexts = {
        "plain subject", "=?EUC-KR?B?x9HB2w==?= report",
        "a =?us-ascii?Q?x?=", "=?UTF-8?Q?bad=ZZ?=", "raw \x1B$B$3$s\x1B(B text",
        "=?x-bogus?B?YQ==?= =?utf-8?B?Yg==?=", "=?broken", "raw \xED\x95\x9C subject", "a = b ? c",
        // words whose text decides the answer
        "=?us-ascii?B?AA==?=", "=?US-ASCII?Q?\?=", "x =?us-ascii?B?AA==?=",
        "=?utf-8?B?YQ==?= =?us-ascii?B?AA==?=", "=?us-ascii?B?YQ==?= =?us-ascii?Q?=00?=",
        "=??Q?x?=", "=??B?AA==?= tail", "\r\n", " \t", ""};
    for (const std::string& strText : vTexts) {
        CQLHdrCodec a, b;
        EXPECT_EQ(a.GetWordCharset(strText), b.Decode(strText, "UTF-8", "", CQLHdrCodec::O_ITEM_CS))
            << strText;
        // Without encoded words nothing is converted, so the flags agree too.
        if (strText.find("=?") != std::string::npos) continue;
        EXPECT_EQ(a.HasCharset(), b.HasCharset()) << strText;
        EXPECT_EQ(a.IsBadCharset(), b.IsBadCharset()) << strText;
    }
    // The labels that skip the converter open, and carry printable ASCII as it is.
    std::vector<std::string> vAscii = {
        "us-ascii", "ASCII",  "utf-8",  "utf8",        "latin1", "euc-kr", "ks_c_5601-1987",
        "cp949",    "uhc",    "euc-jp", "iso-2022-jp", "gb2312", "gbk",    "gb18030",
        "big5",     "koi8-r", "koi8-u"};
    for (int n = 1; n <= 16; ++n)
        if (n != 12) vAscii.push_back("iso-8859-" + std::to_string(n));
    for (int n = 0; n <= 8; ++n) {
        vAscii.push_back("windows-125" + std::to_string(n));
        vAscii.push_back("cp125" + std::to_string(n));
    }
    std::string strPrintable;
    for (char c = 0x20; c < 0x7F; ++c)
        if (c != '=' && c != '\\' && c != '~') strPrintable += c;
    for (const std::string& strLabel : vAscii) {
        CQLConvParser conv;
        ASSERT_TRUE(conv.Open(strLabel, "UTF-8", true)) << strLabel;
        EXPECT_EQ(conv.Conv(strPrintable), strPrintable) << strLabel;
    }
    for (const char* pszOther : {"windows-1259", "iso-8859-12", "iso-8859-01", "cp1259"}) {
        CQLHdrCodec codec;
        codec.Decode("plain", "UTF-8", pszOther, 0);
        EXPECT_TRUE(codec.IsBadCharset()) << pszOther;
    }
    // Plain ASCII in an ASCII charset skips the converter; a label spelled so that it is not
    // recognised takes the long way, with the same result and flags.
    const std::vector<std::pair<std::string, std::string>> vLabels = {
        {"iso-8859-1", "ISO_8859-1"}, {"euc-kr", "EUCKR"}, {"", ""}, {"utf-8", "UTF8"}};
    for (const auto& labels : vLabels) {
        for (const char* pszText : {"report.pdf", " two  words ", "a\"b<c>", "x?y"}) {
            for (int nOptions : {0, CQLHdrCodec::O_CONV_LTGT | CQLHdrCodec::O_TRIM_DQ}) {
                CQLHdrCodec fast, slow;
                EXPECT_EQ(fast.Decode(pszText, "UTF-8", labels.first, nOptions),
                          slow.Decode(pszText, "UTF-8", labels.second, nOptions))
                    << pszText << " " << labels.first;
                EXPECT_EQ(fast.HasCharset(), slow.HasCharset());
                EXPECT_EQ(fast.IsBadCharset(), slow.IsBadCharset());
            }
        }
    }
}

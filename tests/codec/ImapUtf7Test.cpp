#include "codec/QLConvParser.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Thrown(bool bEncode, const std::string& strCharset, const std::string& strText,
                   bool bDiscard = false) {
    CQLConvParser conv;
    try {
        if (bEncode)
            conv.IMAPUTF7Enc(strCharset, strText, bDiscard);
        else
            conv.IMAPUTF7Dec(strCharset, strText, bDiscard);
    } catch (CQLConvParser& e) {
        return e.GetLastError();
    }
    return "(nothing thrown)";
}

} // namespace

TEST(ImapUtf7, RoundTrips) {
    const struct {
        const char* pszCharset;
        std::string strName;
        std::string strEncoded;
    } kCases[] = {
        {"UTF-8", "Entw\xC3\xBCrfe", "Entw&APw-rfe"},
        {"UTF-8", "&", "&-"},
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
    CQLConvParser conv;
    // The decoder takes printable ASCII as it stands, and an empty shift vanishes.
    EXPECT_EQ(conv.IMAPUTF7Dec("UTF-8", "a!b_&-", false), "a!b_&");
    EXPECT_EQ(conv.IMAPUTF7Dec("UTF-8", "& x", false), " x");
    EXPECT_EQ(conv.IMAPUTF7Dec("UTF-8", "&AGE-&AGI-", false), "ab");
    EXPECT_EQ(conv.IMAPUTF7Dec("UTF-8", "&AGE.b", false), "a.b");
    // A target that cannot be opened gives the UCS-2 bytes.
    EXPECT_EQ(conv.IMAPUTF7Dec("no-such", "&APw-", false), std::string("\x00\xFC", 2));
}

TEST(ImapUtf7, Errors) {
    const std::string kIllegal = "In IMAPUTF7Dec, illegal multibyte sequence";
    const std::string kIncomplete = "In IMAPUTF7Dec, incomplete multibyte sequence";
    EXPECT_EQ(Thrown(false, "UTF-8", "&AGF-"), kIllegal);    // pending bits not zero
    EXPECT_EQ(Thrown(false, "UTF-8", "&AG-x"), kIllegal);    // half a character
    EXPECT_EQ(Thrown(false, "UTF-8", "&2ED-"), kIllegal);    // high surrogate alone
    EXPECT_EQ(Thrown(false, "UTF-8", "&2EAAQQ-"), kIllegal); // no low surrogate behind it
    EXPECT_EQ(Thrown(false, "UTF-8", "a\x80"), kIllegal);
    EXPECT_EQ(Thrown(false, "UTF-8", "a\x01"), kIllegal);
    EXPECT_EQ(Thrown(false, "UTF-8", "&AG"), kIncomplete);
    EXPECT_EQ(Thrown(false, "UTF-8", "a&"), kIncomplete);
    EXPECT_EQ(Thrown(false, "UTF-8", "&AGE-&"), kIncomplete);
    // Discarding does not cover a cut-off text.
    EXPECT_EQ(Thrown(false, "UTF-8", "&AG", true), kIncomplete);

    // With discard the faults give no character and decoding goes on behind them.
    CQLConvParser conv;
    const struct {
        const char* pszIn;
        const char* pszOut;
    } kDiscard[] = {
        {"a\x80"
         "b",
         "ab"},
        {"&AGF-bc", "abc"},
        {"&AG-xy", "xy"},
        {"&AG.xy", ".xy"},
        {"\x80", ""},
        {"&AGF.x", "a.x"},
        {"&2EAAQQ-z", "z"},
        {"&AGE-\x80", "a"},
        {"\x80\x80\x80&AGE-", "a"},
    };
    for (const auto& c : kDiscard)
        EXPECT_EQ(conv.IMAPUTF7Dec("UTF-8", c.pszIn, true), c.pszOut) << c.pszIn;
}

TEST(ImapUtf7, CharacterFunctions) {
    CQLConvParser conv;
    unsigned char szBuf[16] = {0};
    unsigned int nState = 0;
    // A character beyond the BMP goes out as a surrogate pair and comes back whole.
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szBuf, 0x2000B, 16), 6);
    EXPECT_EQ(conv.imap_utf7_reset(nState, szBuf + 6, 10), 2);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(szBuf)), "&2EDcCw-");
    EXPECT_EQ(nState, 0u);
    unsigned int nChar = 0;
    EXPECT_EQ(conv.imap_utf7_mbtowc(nState, nChar, szBuf, 8), 7);
    EXPECT_EQ(nChar, 0x2000Bu);

    // Too little room, nothing encodable, nothing to read.
    nState = 0;
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szBuf, 0xFC, 2), -2);
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szBuf, 0x110000, 16), -1);
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szBuf, 'a', 0), -2);
    EXPECT_EQ(conv.imap_utf7_mbtowc(nState, nChar, szBuf, 0), -2);
    EXPECT_EQ(conv.imap_utf7_reset(nState, szBuf, 0), 0);

    // The "-" that ends a shift is always written, and counted only before a base64 letter.
    nState = 0;
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szBuf, 0xFC, 16), 3);
    unsigned char szEnd[8] = {0};
    unsigned int nSaved = nState;
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szEnd, ' ', 8), 2);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(szEnd)), "w- ");
    nState = nSaved;
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szEnd, 'b', 8), 3);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(szEnd)), "w-b");
    // Room is checked for the "-" too, so a short buffer is never overrun.
    nState = nSaved;
    EXPECT_EQ(conv.imap_utf7_wctomb(nState, szEnd, ' ', 2), -2);
    EXPECT_EQ(nState, nSaved);
    EXPECT_EQ(conv.imap_utf7_reset(nState, szEnd, 1), -2);
    EXPECT_EQ(conv.imap_utf7_reset(nState, szEnd, 2), 2);
    EXPECT_EQ(nState, 0u);

    // A "-" that ends the input reads as the character 0; otherwise the next one is read too.
    nState = 0;
    const unsigned char szIn[] = "&AGE--";
    EXPECT_EQ(conv.imap_utf7_mbtowc(nState, nChar, szIn, 6), 4);
    EXPECT_EQ(nChar, 'a');
    nSaved = nState;
    EXPECT_EQ(conv.imap_utf7_mbtowc(nState, nChar, szIn + 4, 1), 1);
    EXPECT_EQ(nChar, 0u);
    nState = nSaved;
    EXPECT_EQ(conv.imap_utf7_mbtowc(nState, nChar, szIn + 4, 2), 2);
    EXPECT_EQ(nChar, static_cast<unsigned int>('-'));
    EXPECT_EQ(nState, 0u);
}

#include "codec/QLIconv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

struct Result {
    std::string strOut;
    int nErr = 0;     // errno of the failing call, 0 when all went through
    size_t nLeft = 0; // input left at that point
};

// Whole-text conversion the way a caller of iconv does it: small output buffers, then flush.
Result Convert(const char* pszFrom, const char* pszTo, const std::string& strIn, bool bDiscard,
               size_t nRoom = 64) {
    Result r;
    CQLIconv conv;
    if (!conv.Open(pszTo, pszFrom)) {
        r.nErr = errno;
        return r;
    }
    conv.SetDiscardIlseq(bDiscard);
    char* pIn = const_cast<char*>(strIn.data());
    size_t nIn = strIn.size();
    std::string strBuf(nRoom, '\0');
    while (nIn > 0) {
        char* pOut = &strBuf[0];
        size_t nOut = nRoom;
        const size_t n = conv.Conv(&pIn, &nIn, &pOut, &nOut);
        r.strOut.append(strBuf.data(), nRoom - nOut);
        if (n == static_cast<size_t>(-1) && (errno != E2BIG || nOut == nRoom)) {
            r.nErr = errno;
            r.nLeft = nIn;
            return r;
        }
    }
    char* pOut = &strBuf[0];
    size_t nOut = nRoom;
    EXPECT_NE(conv.Conv(nullptr, nullptr, &pOut, &nOut), static_cast<size_t>(-1));
    r.strOut.append(strBuf.data(), nRoom - nOut);
    return r;
}

} // namespace

TEST(Iconv, Iso2022JpMsDetails) {
    // ESC ( J is read as ASCII, the 1990 announcer is passed over, lines end as they are.
    EXPECT_EQ(
        Convert("ISO-2022-JP-MS", "UTF-8", "\x1B(Ja\\b\x1B&@\x1B$BF|\r\n\x1B(B", false).strOut,
        "a\\b\xE6\x97\xA5\r\n");
    // Roman numerals and small ones, which CP932 keeps among the IBM codes, go to NEC codes.
    EXPECT_EQ(Convert("UTF-8", "ISO-2022-JP-MS", "\xE2\x85\xA0\xE2\x85\xB0", false).strOut,
              "\x1B$B-5|q\x1B(B");
    EXPECT_EQ(Convert("ISO-2022-JP-MS", "UTF-8", "\x1B$B-5|q\x1B(B", false).strOut,
              "\xE2\x85\xA0\xE2\x85\xB0");
    // Text for the same descriptor twice: the shift is closed at each end.
    EXPECT_EQ(Convert("ISO-2022-JP-MS", "ISO-2022-JP-MS", "a\x1B$BF|\x1B(Bb", false).strOut,
              "a\x1B$BF|\x1B(Bb");
    // A cut-off escape sequence or character is incomplete, not illegal.
    for (const char* pszCut : {"a\x1B", "a\x1B$", "a\x1B(", "\x1B$BF"}) {
        Result r = Convert("ISO-2022-JP-MS", "UTF-8", pszCut, false);
        EXPECT_EQ(r.nErr, EINVAL) << pszCut;
    }
    Result bad = Convert("ISO-2022-JP-MS", "UTF-8", "ab\x1B$Z", false);
    EXPECT_EQ(bad.nErr, EILSEQ);
    EXPECT_EQ(bad.nLeft, 3u);
    EXPECT_EQ(bad.strOut, "ab");
    // A user-defined character has no JIS code.
    EXPECT_EQ(Convert("UTF-8", "ISO-2022-JP-MS", "a\xEE\x80\x80", false).nErr, EILSEQ);
    EXPECT_EQ(Convert("UTF-8", "ISO-2022-JP-MS",
                      "a\xEE\x80\x80"
                      "b",
                      true)
                  .strOut,
              "ab");
}

TEST(Iconv, ByteOrder) {
    const std::string kBeA("\x00"
                           "A",
                           2),
        kLeA("A\x00", 2);
    EXPECT_EQ(Convert("UTF-8", "UCS-2", "A", false).strOut, kBeA);
    EXPECT_EQ(Convert("UTF-8", "UCS-4", "A", false).strOut, std::string("\x00\x00\x00"
                                                                        "A",
                                                                        4));
    EXPECT_EQ(Convert("UTF-8", "UTF-16", "A", false).strOut, "\xFE\xFF" + kBeA);
    EXPECT_EQ(Convert("UTF-8", "UTF-32", "A", false).strOut,
              std::string("\x00\x00\xFE\xFF\x00\x00\x00"
                          "A",
                          8));
    EXPECT_EQ(Convert("UTF-8", "UTF-16", "", false).strOut, "");
    EXPECT_EQ(Convert("UCS-2", "UTF-8", kBeA + "\xD5\x5C", false).strOut, "A\xED\x95\x9C");
    EXPECT_EQ(Convert("UTF-16", "UTF-8", kBeA, false).strOut, "A");
    EXPECT_EQ(Convert("UTF-16", "UTF-8", "\xFE\xFF" + kBeA, false).strOut, "A");
    EXPECT_EQ(Convert("UTF-16", "UTF-8", "\xFF\xFE" + kLeA + kLeA, false).strOut, "AA");
    EXPECT_EQ(Convert("UTF-32", "UTF-8",
                      std::string("\xFF\xFE\x00\x00"
                                  "A\x00\x00\x00",
                                  8),
                      false)
                  .strOut,
              "A");
    EXPECT_EQ(Convert("UTF-32", "UTF-8",
                      std::string("\x00\x00\x00"
                                  "B",
                                  4),
                      false)
                  .strOut,
              "B");
    EXPECT_EQ(Convert("UTF-16", "UTF-8", "\xFE", false).nErr, EINVAL);

    // Each text after a flush reads its own mark.
    CQLIconv conv;
    ASSERT_TRUE(conv.Open("UTF-8", "UTF-16"));
    for (const std::string& strIn : {"\xFF\xFE" + kLeA, kBeA}) {
        char szOut[16];
        char* pIn = const_cast<char*>(strIn.data());
        size_t nIn = strIn.size();
        char* pOut = szOut;
        size_t nOut = sizeof(szOut);
        ASSERT_EQ(conv.Conv(&pIn, &nIn, &pOut, &nOut), 0u);
        ASSERT_EQ(conv.Conv(nullptr, nullptr, &pOut, &nOut), 0u);
        EXPECT_EQ(std::string(szOut, pOut), "A");
    }
}

TEST(Iconv, DiscardingIllegalSequences) {
    // Without the request the converter stops at the bad byte.
    Result r = Convert("UTF-8", "UTF-16BE",
                       "a\xFF"
                       "b",
                       false);
    EXPECT_EQ(r.nErr, EILSEQ);
    EXPECT_EQ(r.nLeft, 2u);
    // With it, an invalid byte goes and the rest comes through, also over many buffers.
    EXPECT_EQ(Convert("UTF-8", "UTF-8",
                      "a\xFF"
                      "b\xC3",
                      true)
                  .nErr,
              EINVAL);
    EXPECT_EQ(Convert("UTF-8", "UTF-8",
                      "a\xFF\xFE"
                      "b",
                      true)
                  .strOut,
              "ab");
    EXPECT_EQ(Convert("EUC-KR", "UTF-8", "\xC7\xD1\xFF\xB1\xDB", true).strOut,
              "\xED\x95\x9C\xEA\xB8\x80");
    // A valid character the target lacks goes whole: 한 has no Latin-1 form.
    EXPECT_EQ(Convert("UTF-8", "ISO-8859-1",
                      "a\xED\x95\x9C"
                      "b",
                      true)
                  .strOut,
              "ab");
    EXPECT_EQ(Convert("UTF-8", "ISO-8859-1",
                      "a\xED\x95\x9C"
                      "b",
                      false)
                  .nErr,
              EILSEQ);
    // UCS-2 and UCS-4 sources skip a whole unit; a lone surrogate is invalid.
    EXPECT_EQ(Convert("UCS-2", "UTF-8",
                      std::string("\xD8\x00\x00"
                                  "A",
                                  4),
                      true)
                  .strOut,
              "A");
    EXPECT_EQ(Convert("UCS-4", "UTF-8",
                      std::string("\x80\x00\x00\x00\x00\x00\x00"
                                  "B",
                                  8),
                      true)
                  .strOut,
              "B");
    // Beyond the BMP there is no UCS-2.
    EXPECT_EQ(Convert("UTF-8", "UCS-2",
                      "\xF0\xA0\x80\x8B"
                      "A",
                      true)
                  .strOut,
              std::string("\x00"
                          "A",
                          2));
    // In ISO-2022-JP-MS an unassigned JIS pair goes whole, the rest keeps its pairing.
    EXPECT_EQ(Convert("ISO-2022-JP-MS", "UTF-8", "\x1B$B)!F|\x1B(B", true).strOut, "\xE6\x97\xA5");
    EXPECT_EQ(Convert("ISO-2022-JP-MS", "UTF-8",
                      "\x80"
                      "a\x1B$Qb",
                      true)
                  .strOut,
              "a$Qb");
}

TEST(Iconv, UnknownNamesAndSmallBuffers) {
    CQLIconv conv;
    errno = 0;
    EXPECT_FALSE(conv.Open("UTF-8", "no-such-charset"));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(conv.Open("x-unknown", "UTF-8"));
    // Output offered a few bytes at a time still gives the whole text.
    const std::string strJis = "\x1B$BF|K\\\x1B(IA\x1B(Bxyz";
    EXPECT_EQ(
        Convert("UTF-8", "ISO-2022-JP-MS", "\xE6\x97\xA5\xE6\x9C\xAC\xEF\xBE\x81xyz", false, 8)
            .strOut,
        strJis);
    EXPECT_EQ(Convert("ISO-2022-JP-MS", "UTF-16", strJis, false, 4).strOut,
              std::string("\xFE\xFF\x65\xE5\x67\x2C\xFF\x81\x00x\x00y\x00z", 14));
}

// Long texts go another way through the C library than short ones; both must agree.
TEST(Iconv, LongTextsMatchShortOnes) {
    const struct {
        const char* pszFrom;
        const char* pszTo;
        std::string strHead; // input given once, in front
        std::string strPiece;
        size_t nMark; // bytes of the mark the output starts with
    } kCases[] = {
        {"UTF-8", "UTF-8", "", "a\xFF\xED\x95\x9C\xC3", 0},
        {"UHC", "UTF-8", "", "\xC7\xD1\xFF\x8C\x63 ", 0},
        {"UTF-8", "UCS-2", "", "A\xF0\x9F\x98\x80\xC3\xA9", 0},
        {"UTF-8", "UTF-16", "", "A\xF0\x9F\x98\x80\xC3\xA9", 2},
        {"UTF-16", "UTF-8", "\xFF\xFE", std::string("A\x00\x00\xD8\x5C\xD5", 6), 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.pszFrom) + " to " + c.pszTo);
        const std::string strShort =
            Convert(c.pszFrom, c.pszTo, c.strHead + c.strPiece, true, 1024).strOut;
        std::string strLong = c.strHead, strExpect = strShort.substr(0, c.nMark);
        for (int i = 0; i < 700; ++i) {
            strLong += c.strPiece;
            strExpect += strShort.substr(c.nMark);
        }
        EXPECT_EQ(Convert(c.pszFrom, c.pszTo, strLong, true, 1024).strOut, strExpect);
    }
}

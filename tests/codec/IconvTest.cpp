#include "codec/QLIconv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

using namespace std::string_literals;

namespace {

// Whole-text conversion the way a caller of iconv does it: small output buffers, then flush.
// A failure appends "!", the errno name and "@" with the count of input bytes left.
std::string Convert(const char* pszFrom, const char* pszTo, const std::string& strIn, bool bDiscard,
                    size_t nRoom = 64) {
    CQLIconv conv;
    if (!conv.Open(pszTo, pszFrom)) return "!open";
    conv.SetDiscardIlseq(bDiscard);
    std::string strOut, strBuf(nRoom, '\0');
    char* pIn = const_cast<char*>(strIn.data());
    size_t nIn = strIn.size();
    while (nIn > 0) {
        char* pOut = &strBuf[0];
        size_t nOut = nRoom;
        const size_t n = conv.Conv(&pIn, &nIn, &pOut, &nOut);
        strOut.append(strBuf.data(), nRoom - nOut);
        if (n == static_cast<size_t>(-1) && (errno != E2BIG || nOut == nRoom))
            return strOut +
                   (errno == EILSEQ   ? "!EILSEQ@"
                    : errno == EINVAL ? "!EINVAL@"
                                      : "!?@") +
                   std::to_string(nIn);
    }
    char* pOut = &strBuf[0];
    size_t nOut = nRoom;
    EXPECT_NE(conv.Conv(nullptr, nullptr, &pOut, &nOut), static_cast<size_t>(-1));
    return strOut.append(strBuf.data(), nRoom - nOut);
}

} // namespace

TEST(Iconv, Conversions) {
    const char* kJp = "ISO-2022-JP-MS";
    const struct {
        const char* pszFrom;
        const char* pszTo;
        bool bDiscard;
        std::string strIn, strOut;
    } kCases[] = {
        // ESC ( J is read as ASCII, the 1990 announcer is passed over, lines end as they are.
        {kJp, "UTF-8", false, "\x1B(Ja\\b\x1B&@\x1B$BF|\r\n\x1B(B", "a\\b\xE6\x97\xA5\r\n"},
        // Roman numerals and small ones, which CP932 keeps among the IBM codes, go to NEC codes.
        {"UTF-8", kJp, false, "\xE2\x85\xA0\xE2\x85\xB0", "\x1B$B-5|q\x1B(B"},
        {kJp, "UTF-8", false, "\x1B$B-5|q\x1B(B", "\xE2\x85\xA0\xE2\x85\xB0"},
        // A cut-off escape sequence or character is incomplete, a wrong one illegal.
        {kJp, "UTF-8", false, "a\x1B", "a!EINVAL@1"},
        {kJp, "UTF-8", false, "a\x1B(", "a!EINVAL@2"},
        {kJp, "UTF-8", false, "\x1B$BF", "!EINVAL@1"},
        {kJp, "UTF-8", false, "ab\x1B$Z", "ab!EILSEQ@3"},
        // A user-defined character has no JIS code; an unassigned JIS pair goes whole.
        {"UTF-8", kJp, false, "a\xEE\x80\x80", "a!EILSEQ@3"},
        {"UTF-8", kJp, true, "a\xEE\x80\x80z", "az"},
        {kJp, "UTF-8", true, "\x1B$B)!F|\x1B(B", "\xE6\x97\xA5"},
        {kJp, "UTF-8", true, "\200a\x1B$Qb", "a$Qb"},
        // UTF-16 and UTF-32 read and write a byte-order mark.
        {"UTF-8", "UTF-32", false, "A", "\0\0\376\377\0\0\0A"s},
        {"UTF-16", "UTF-8", false, "\377\376A\0A\0"s, "AA"},
        {"UTF-32", "UTF-8", false, "\377\376\0\0A\0\0\0"s, "A"},
        // Without discarding the converter stops at a bad byte; with it, the byte goes, and a
        // cut tail stays incomplete.
        {"UTF-8", "UTF-16BE", false, "a\377b", "\0a!EILSEQ@2"s},
        {"UTF-8", "UTF-8", true, "a\377\376b\xC3", "ab!EINVAL@1"},
        {"EUC-KR", "UTF-8", true, "\xC7\xD1\xFF\xB1\xDB", "\xED\x95\x9C\xEA\xB8\x80"},
        // A valid character the target lacks goes whole: 한 has no Latin-1 form, nor 𠀋 UCS-2.
        {"UTF-8", "ISO-8859-1", true, "a\xED\x95\x9C"s + "b", "ab"},
        {"UTF-8", "UCS-2", true, "\xF0\xA0\x80\x8B"s + "A", "\0A"s},
        // UCS-2 and UCS-4 sources skip a whole unit; a lone surrogate is invalid.
        {"UCS-2", "UTF-8", true, "\xD8\0\0A"s, "A"},
        {"UCS-4", "UTF-8", true, "\x80\0\0\0\0\0\0B"s, "B"},
        {"UTF-8", "no-such-charset", false, "", "!open"},
    };
    for (const auto& c : kCases)
        EXPECT_EQ(Convert(c.pszFrom, c.pszTo, c.strIn, c.bDiscard), c.strOut)
            << c.pszFrom << " to " << c.pszTo << ": " << c.strIn;

    // Output offered a few bytes at a time still gives the whole text, shifts closed.
    const std::string strJis = "\x1B$BF|K\\\x1B(IA\x1B(Bxyz";
    EXPECT_EQ(Convert("UTF-8", kJp, "\xE6\x97\xA5\xE6\x9C\xAC\xEF\xBE\x81xyz", false, 8), strJis);
    EXPECT_EQ(Convert(kJp, "UTF-16", strJis, false, 4),
              "\376\377\x65\xE5\x67\x2C\xFF\x81\0x\0y\0z"s);
}

// A closed converter converts nothing, a UTF-8 pair, whose descriptor waits for the first text,
// as much as any other.
TEST(Iconv, ClosedConvertsNothing) {
    for (const char* pszTo : {"UTF-8", "UTF-16BE"}) {
        CQLIconv conv;
        ASSERT_TRUE(conv.Open(pszTo, "UTF-8"));
        EXPECT_EQ(conv.Close(), 0);
        char szIn[] = "a", szOut[8];
        char *pIn = szIn, *pOut = szOut;
        size_t nIn = 1, nOut = sizeof(szOut);
        errno = 0;
        EXPECT_EQ(conv.Conv(&pIn, &nIn, &pOut, &nOut), static_cast<size_t>(-1)) << pszTo;
        EXPECT_EQ(errno, EBADF) << pszTo;
    }
}

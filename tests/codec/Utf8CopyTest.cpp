#include "codec/QLConvParser.h"
#include "codec/QLIconv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <random>
#include <string>

using S = std::string;

namespace {

// The converter with the same-form copy turned off: UTF-8 to UTF-8 goes through the C library.
class IconvRoad : public CQLConvParser {
public:
    IconvRoad() { m_bSameFormCopy = false; }
};

// Conv on pointer and length, or "!" and the text of the failure.
S Conv(CQLConvParser& conv, const S& strText) {
    try {
        return conv.Conv(strText.data(), strText.size());
    } catch (CQLConvParser& e) {
        return "!" + e.GetLastError();
    }
}

// Both roads over one text: the copy's result, after checking that the C library agrees.
S BothRoads(CQLConvParser& copy, CQLConvParser& iconv, const S& strText) {
    const S strCopy = Conv(copy, strText);
    EXPECT_EQ(strCopy, Conv(iconv, strText)) << ::testing::PrintToString(strText);
    return strCopy;
}

const S kEilseq = "!In Conv EILSEQ, " + S(strerror(EILSEQ));

// Pieces that random texts are made of: characters at the edges of each form, and every kind of
// sequence the decoder refuses or waits for.
const char* const kPieces[] = {
    "a", " ", "\r\n", "\x7F", "\0", "\xC2\x80", "\xDF\xBF", "\xC3\xA9", "\xE0\xA0\x80",
    "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF", "\xED\x95\x9C", "\xF0\x90\x80\x80",
    "\xF4\x8F\xBF\xBF",
    // Above U+10FFFF and the five- and six-byte forms, which the C library still reads.
    "\xF4\x90\x80\x80", "\xF7\xBF\xBF\xBF", "\xF8\x88\x80\x80\x80", "\xFB\xBF\xBF\xBF\xBF",
    "\xFC\x84\x80\x80\x80\x80", "\xFD\xBF\xBF\xBF\xBF\xBF",
    // Overlong forms and surrogates.
    "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
    "\xF0\x80\x80\x80", "\xF0\x8F\xBF\xBF", "\xF8\x87\xBF\xBF\xBF", "\xFC\x83\xBF\xBF\xBF\xBF",
    // Cut characters, stray continuation bytes, bytes that start nothing.
    "\xC3", "\xE3\x81", "\xF0\x90", "\xF0\x90\x80", "\xF8\x88\x80\x80", "\xFC\x84\x80\x80\x80",
    "\x80", "\xBF", "\xFE", "\xFF", "\xF5", "\xE0", "\xED"};

// A text of pieces, now and then a random byte, sometimes long runs of one piece.
S RandomText(std::mt19937& rng, size_t nMax) {
    std::uniform_int_distribution<size_t> pick(0, sizeof(kPieces) / sizeof(kPieces[0]) - 1);
    const size_t nLen = std::uniform_int_distribution<size_t>(0, nMax)(rng);
    S str;
    while (str.size() < nLen) {
        switch (rng() % 8) {
        case 0:
            str += static_cast<char>(rng() & 0xFF);
            break;
        case 1:
            str.append(rng() % 40, 'x');
            break;
        case 2: {
            const char* psz = kPieces[pick(rng)];
            for (size_t n = rng() % 12; n > 0; --n) str.append(psz, psz[0] ? strlen(psz) : 1);
            break;
        }
        default: {
            const char* psz = kPieces[pick(rng)];
            str.append(psz, psz[0] ? strlen(psz) : 1);
        }
        }
    }
    return str;
}

} // namespace

TEST(Utf8Copy, KindsOfBadSequence) {
    const struct {
        S strIn, strDiscard, strKeep; // results with and without discarding
    } kCases[] = {
        // Overlong forms, surrogates and bytes that start nothing go byte by byte.
        {"a\xC0\x80z", "az", kEilseq},
        {"\xE0\x9F\xBF\xE0\xA0\x80", "\xE0\xA0\x80", kEilseq},
        {"\xED\xA0\x80\xED\x9F\xBF", "\xED\x9F\xBF", kEilseq},
        {"\xF0\x8F\xBF\xBF\xF0\x90\x80\x80", "\xF0\x90\x80\x80", kEilseq},
        {"\xF8\x87\xBF\xBF\xBF|\xFC\x83\xBF\xBF\xBF\xBF|", "||", kEilseq},
        {"\x80\xBF\xFE\xFF\xC1z", "z", kEilseq},
        // Values above U+10FFFF and the longer forms are read and written as they stand.
        {"\xF4\x90\x80\x80\xF7\xBF\xBF\xBF\xF8\x88\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF",
         "\xF4\x90\x80\x80\xF7\xBF\xBF\xBF\xF8\x88\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF",
         "\xF4\x90\x80\x80\xF7\xBF\xBF\xBF\xF8\x88\x80\x80\x80\xFD\xBF\xBF\xBF\xBF\xBF"},
        // A character cut in the middle of the text loses its bytes and nothing else.
        {"\xE3\x81z\xF0\x90\x80\xC3\xA9", "z\xC3\xA9", kEilseq},
        // Cut by the end: its first byte once for each of its bytes, even when no byte could
        // complete it, and also when not discarding.
        {"a\xE3\x81", "a\xE3\xE3", "a\xE3\xE3"},
        {"a\xE0\x80", "a\xE0\xE0", "a\xE0\xE0"},
        {"a\xED\xA0", "a\xED\xED", "a\xED\xED"},
        {"\xF5", "\xF5", "\xF5"},
        {"\xFC\x84\x80\x80\x80", "\xFC\xFC\xFC\xFC\xFC", "\xFC\xFC\xFC\xFC\xFC"},
        {"\x80\xF0\x90\x80", "\xF0\xF0\xF0", kEilseq},
        {"a\xC3\xC3", "a\xC3", kEilseq},
    };
    CQLConvParser copy, keep;
    IconvRoad iconv, iconvKeep;
    ASSERT_TRUE(copy.Open("utf8", "UTF-8", true));
    ASSERT_TRUE(iconv.Open("utf8", "UTF-8", true));
    ASSERT_TRUE(keep.Open("UTF-8", "utf-8", false));
    ASSERT_TRUE(iconvKeep.Open("UTF-8", "utf-8", false));
    for (const auto& c : kCases) {
        SCOPED_TRACE(::testing::PrintToString(c.strIn));
        EXPECT_EQ(BothRoads(copy, iconv, c.strIn), c.strDiscard);
        EXPECT_EQ(BothRoads(keep, iconvKeep, c.strIn), c.strKeep);
        // The same in the middle of a long text, which the C library converts another way.
        const S strPad(1500, '.');
        const S strLong = strPad + c.strIn;
        EXPECT_EQ(BothRoads(copy, iconv, strLong), strPad + c.strDiscard);
    }
    // Nothing behind the given length is read, though it would complete the character.
    const S strMore = "a\xE3\x81\x82";
    for (CQLConvParser* pConv : {&copy, &keep, static_cast<CQLConvParser*>(&iconv)})
        EXPECT_EQ(pConv->Conv(strMore.data(), 3), "a\xE3\xE3");
}

// Every text of up to three bytes over bytes from each class, then many random texts of up to
// 3 KB that cross the converter's blocks, through both roads in both modes and several labels.
TEST(Utf8Copy, SameAsTheCLibrary) {
    const unsigned char kBytes[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF,
                                    0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xED, 0xEF, 0xF0,
                                    0xF4, 0xF5, 0xF7, 0xF8, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF};
    const char* kLabels[][2] = {
        {"UTF-8", "UTF-8"}, {"utf8", "Utf_8"}, {"ISO-10646/UTF8/", "utf-8"}};
    for (const bool bDiscard : {true, false}) {
        for (const auto& labels : kLabels) {
            CQLConvParser copy;
            IconvRoad iconv;
            ASSERT_TRUE(copy.Open(labels[0], labels[1], bDiscard));
            ASSERT_TRUE(iconv.Open(labels[0], labels[1], bDiscard));
            for (unsigned char a : kBytes) {
                const S strA(1, static_cast<char>(a));
                BothRoads(copy, iconv, strA);
                for (unsigned char b : kBytes) {
                    const S strAB = strA + static_cast<char>(b);
                    BothRoads(copy, iconv, strAB);
                    for (unsigned char c : kBytes)
                        BothRoads(copy, iconv, strAB + static_cast<char>(c));
                }
            }
            std::mt19937 rng(bDiscard ? 9 : 10);
            for (int i = 0; i < 400 && !::testing::Test::HasFailure(); ++i)
                BothRoads(copy, iconv, RandomText(rng, 3000));
        }
    }
    // Autodetection tries UTF-8 without discarding, then Latin-1 for the whole text.
    CQLConvParser copy;
    IconvRoad iconv;
    ASSERT_TRUE(copy.Open("autodetect_utf8", "UTF-8", true));
    ASSERT_TRUE(iconv.Open("autodetect_utf8", "UTF-8", true));
    std::mt19937 rng(11);
    for (int i = 0; i < 200; ++i) BothRoads(copy, iconv, RandomText(rng, 600));
}

TEST(Utf8Copy, OnlyBetweenNamesOfUtf8) {
    const struct {
        const char* pszFrom;
        const char* pszTo;
        bool bCopy;
    } kCases[] = {
        {"UTF-8", "utf8", true},           {"iso-10646/utf-8/", "ISO-IR-193", true},
        {"osf05010001", "UTF-8", true},    {"UTF-8", "UTF-16", false},
        {"UTF-16", "UTF-8", false},        {"UTF-8", "ISO-8859-1", false},
        {"UTF-8//IGNORE", "UTF-8", false},
    };
    for (const auto& c : kCases) {
        CQLIconv conv;
        ASSERT_TRUE(conv.Open(c.pszTo, c.pszFrom)) << c.pszFrom;
        EXPECT_EQ(conv.IsUtf8Both(), c.bCopy) << c.pszFrom << " to " << c.pszTo;
    }
}

#include "foundation/QLScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iconv.h>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using S = std::string;
using SV = std::string_view;
using namespace std::string_view_literals;

// Every form this build has and this processor runs: each is checked against plain string
// searches, so the vector forms and the portable one are held to the same results.
std::vector<CQLScan::Form> Forms() {
    std::vector<CQLScan::Form> v;
    for (CQLScan::Form e : {CQLScan::PORTABLE, CQLScan::SSE2, CQLScan::AVX2})
        if (CQLScan::Runs(e)) v.push_back(e);
    return v;
}

// Random bytes of a few kinds, so that matches, near misses and line ends are frequent, with
// runs of one byte now and then.
S RandomBytes(std::mt19937& rng, size_t nLen, SV alphabet) {
    S str;
    while (str.size() < nLen) {
        const char c = alphabet[rng() % alphabet.size()];
        str.append(rng() % 16 == 0 ? rng() % 70 : 1, c);
    }
    str.resize(nLen);
    return str;
}

size_t Length(std::mt19937& rng) {
    // Mostly around the vector widths; sometimes long enough for the byte-wide counters to
    // be summed several times.
    return rng() % 20 == 0 ? 8000 + rng() % 12000 : rng() % 200;
}

} // namespace

TEST(Scan, VectorFormsAreBuiltForX86) {
    const std::vector<CQLScan::Form> vForms = Forms();
    EXPECT_EQ(vForms.back(), CQLScan::Best());
#if defined(__x86_64__) && !defined(QLMAIL_PORTABLE)
    EXPECT_TRUE(CQLScan::Runs(CQLScan::SSE2));
#else
    EXPECT_EQ(vForms.size(), 1u);
#endif
    // A form that does not run here falls back to one that does.
    const S str(100, '\n');
    EXPECT_EQ(CQLScan::CountLF(str.data(), str.size(), CQLScan::AVX2), 100u);
}

TEST(Scan, NewlinesAndSearchesAsPlainSearchesGiveThem) {
    std::mt19937 rng(13);
    for (int nRound = 0; nRound < 4000 && !HasFailure(); ++nRound) {
        // Pointers at every alignment, the needle's first byte often a newline, matches at
        // the very end and needles with a NUL.
        const SV kAlphabets[] = {"\n-ab"sv, "\n-\r\0xyz"sv, "\n"sv};
        const S strAll = RandomBytes(rng, Length(rng) + 16, kAlphabets[nRound % 3]);
        const size_t nSkip = rng() % 16;
        SV hay(strAll.data() + nSkip, strAll.size() - nSkip);
        S strNeedle;
        switch (rng() % 4) {
        case 0: {
            const size_t nAt = hay.empty() ? 0 : rng() % hay.size();
            strNeedle = S(hay.substr(nAt, 1 + rng() % 40));
            break;
        }
        case 1:
            strNeedle = S(hay.substr(hay.size() - std::min<size_t>(hay.size(), rng() % 40)));
            break;
        default:
            strNeedle = "\n-" + RandomBytes(rng, rng() % 6, "-ab\0x"sv);
        }
        if (rng() % 8 == 0) hay = hay.substr(0, rng() % (hay.size() + 1));

        const size_t nAt = hay.find(strNeedle);
        const char* pExpect = nAt == SV::npos ? nullptr : hay.data() + nAt;
        const size_t nUpTo = nAt == SV::npos ? hay.size() : std::min(nAt + 1, hay.size());
        const unsigned long nLF = std::count(hay.begin(), hay.begin() + nUpTo, '\n');
        const unsigned long nAllLF = std::count(hay.begin(), hay.end(), '\n');
        EXPECT_EQ(CQLScan::CountLF(hay.data(), hay.size()), nAllLF); // the parser's entry
        for (CQLScan::Form e : Forms()) {
            SCOPED_TRACE("round " + std::to_string(nRound) + ", form " + std::to_string(e) +
                         ", needle " + ::testing::PrintToString(strNeedle));
            EXPECT_EQ(CQLScan::CountLF(hay.data(), hay.size(), e), nAllLF);
            unsigned long nGot = 12345;
            EXPECT_EQ(
                CQLScan::Find(hay.data(), hay.size(), strNeedle.data(), strNeedle.size(), &nGot, e),
                pExpect);
            EXPECT_EQ(nGot, nLF);
            EXPECT_EQ(CQLScan::Find(hay.data(), hay.size(), strNeedle.data(), strNeedle.size(),
                                    nullptr, e),
                      pExpect);
        }
    }
}

TEST(Scan, LineEndsAndHeaderLinesAsPlainSearchesGiveThem) {
    std::mt19937 rng(14);
    for (int nRound = 0; nRound < 4000 && !HasFailure(); ++nRound) {
        const S strAll =
            RandomBytes(rng, rng() % 100 + 16, nRound % 2 ? "ab:c \r\n"sv : "abcdefgh:"sv);
        const size_t nSkip = rng() % 16;
        const SV text(strAll.data() + nSkip, strAll.size() - nSkip);

        const size_t nEnd = std::min(text.find_first_of("\r\n"), text.size());
        const size_t nLF = text.find('\n');
        const size_t nLine = nLF == SV::npos ? text.size() : nLF + 1;
        const size_t nColon = text.substr(0, nLine).find(':');
        const char* pColon = nColon == SV::npos ? nullptr : text.data() + nColon;
        // The parser's entries, inline in the form the build prefers.
        EXPECT_EQ(CQLScan::LineEnd(text.data(), text.size()), text.data() + nEnd);
        const char* pFound = text.data();
        EXPECT_EQ(CQLScan::HeaderLine(text.data(), text.size(), pFound), nLine);
        EXPECT_EQ(pFound, pColon);
        for (CQLScan::Form e : Forms()) {
            SCOPED_TRACE(::testing::PrintToString(S(text)) + " form " + std::to_string(e));
            EXPECT_EQ(CQLScan::LineEnd(text.data(), text.size(), e), text.data() + nEnd);
            const char* pGot = text.data(); // not null: a line without a colon must clear it
            EXPECT_EQ(CQLScan::HeaderLine(text.data(), text.size(), pGot, e), nLine);
            EXPECT_EQ(pGot, pColon);
        }
    }
}

// A run is whole characters that the C library decodes, wherever each form ends it.
TEST(Scan, Utf8RunsAreWholeCharacters) {
    const char* const kPieces[] = {
        "a", "\r\n", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEF\xBF\xBF",
        "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\xF7\xBF\xBF\xBF",
        // Overlong forms, surrogates, the five-byte form, cut characters, lone bytes.
        "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
        "\xF8\x88\x80\x80\x80", "\xE3\x81", "\xF0\x90\x80", "\x80", "\xFE"};
    const size_t nPieces = sizeof(kPieces) / sizeof(kPieces[0]);
    iconv_t cd = iconv_open("UTF-8", "UTF-8");
    ASSERT_NE(cd, reinterpret_cast<iconv_t>(-1));
    std::mt19937 rng(15);
    for (int nRound = 0; nRound < 3000 && !HasFailure(); ++nRound) {
        // Mostly good characters, so that runs get long; a bad piece now and then.
        S str;
        const size_t nLen = rng() % 160;
        while (str.size() < nLen) str += kPieces[rng() % 4 == 0 ? rng() % nPieces : rng() % 10];
        const unsigned char* p = reinterpret_cast<const unsigned char*>(str.data());
        for (CQLScan::Form e : Forms()) {
            SCOPED_TRACE(::testing::PrintToString(str) + " form " + std::to_string(e));
            const size_t nRun = CQLScan::Utf8Run(p, str.size(), e);
            ASSERT_LE(nRun, str.size());
            S strOut(nRun * 2 + 1, '\0');
            char* pIn = str.data();
            char* pOut = strOut.data();
            size_t nIn = nRun, nOut = strOut.size();
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
            EXPECT_NE(iconv(cd, &pIn, &nIn, &pOut, &nOut), static_cast<size_t>(-1));
            EXPECT_EQ(nIn, 0u);
        }
    }
    iconv_close(cd);
}

#include "codec/QLCodecParser.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using S = std::string;

S RandomBytes(size_t n, unsigned nSeed) {
    std::mt19937 gen(nSeed);
    S s(n, '\0');
    for (auto& c : s) c = static_cast<char>(gen() & 0xFF);
    return s;
}

struct Case {
    S in;
    S out;
};

} // namespace

TEST(CodecParser, EncodeB64LineBreaksAndPadding) {
    CQLCodecParser codec;
    const bool bBreak = true, bNoBreak = false;
    EXPECT_EQ(codec.EncodeB64("A", bBreak, true, 54), "QQ==");
    EXPECT_EQ(codec.EncodeB64("AB", bBreak, true, 54), "QUI=");
    // A full line of 54 bytes is followed by a line end, a padded tail is not.
    S strLine;
    for (int i = 0; i < 18; ++i) strLine += "eHh4";
    EXPECT_EQ(codec.EncodeB64(S(54, 'x'), bBreak, true, 54), strLine + "\r\n");
    EXPECT_EQ(codec.EncodeB64(S(55, 'x'), bBreak, true, 54), strLine + "\r\neA==");
    // The line length argument does not move the break, and without breaks there are none.
    const S s200 = RandomBytes(200, 1);
    EXPECT_EQ(codec.EncodeB64(s200, bBreak, true, 76), codec.EncodeB64(s200, bBreak, false, 54));
    EXPECT_EQ(codec.EncodeB64(s200, bNoBreak, true, 0).size(), 268u);

    for (size_t n : {1u, 2u, 53u, 54u, 55u, 108u, 100000u}) {
        const S data = RandomBytes(n, static_cast<unsigned>(n));
        EXPECT_EQ(codec.DecodeB64(codec.EncodeB64(data, bBreak, true, 54), true), data) << n;
    }
}

TEST(CodecParser, DecodeB64Quirks) {
    CQLCodecParser codec;
    const std::vector<Case> cases = {
        {"", ""},
        {"QUI=", "AB"},
        {"QUJDRA", "ABC"}, // an unpadded partial group is dropped
        {"QUI", ""},
        {"QU9", "AO"},                  // ... unless its last value is 61, the code of "="
        {"QU9\r\n", ""},                // a skipped byte after it does not protect it
        {"QUI=QUJD", "AB"},             // "=" stops at once
        {" Q U\r\nJ*D!", "ABC"},        // blanks, line ends and foreign bytes are skipped
        {"\xffQ\x80UJD\xc3", "ABC"},    // high bytes too
        {S("QUJDQU\0QUJD", 11), "ABC"}, // a NUL ends the text as its end does
    };
    for (const auto& c : cases) EXPECT_EQ(codec.DecodeB64(c.in, true), c.out) << c.in;
}

TEST(CodecParser, EncodeQP) {
    CQLCodecParser codec;
    const bool bBreak = true, bNoBreak = false;
    // clang-format off
    const std::vector<Case> cases = {{"a \r\n", "a=20\r\n"}, {"a\t\nb", "a=09\nb"}, {"a ", "a "},
                                     {"x=y", "x=3Dy"}, {"\x7f\x01\xea~!", "=7F=01=EA~!"}};
    // clang-format on
    for (const auto& c : cases) EXPECT_EQ(codec.EncodeQP(c.in, bNoBreak, false, 76), c.out) << c.in;
    EXPECT_EQ(codec.EncodeQP("a \r\n", bNoBreak, true, 76), "a =0D=0A");

    // The soft break comes once the column exceeds the limit, checked after each byte.
    EXPECT_EQ(codec.EncodeQP(S(76, 'a'), bBreak, false, 76), S(76, 'a'));
    EXPECT_EQ(codec.EncodeQP(S(77, 'a'), bBreak, false, 76), S(77, 'a') + "=\r\n");
    EXPECT_EQ(codec.EncodeQP(S(75, 'a') + "=b", bBreak, false, 76), S(75, 'a') + "=3D=\r\nb");
    // A hard line end resets the column in text mode only.
    const S strTwoLines = S(50, 'a') + "\n" + S(50, 'a');
    EXPECT_EQ(codec.EncodeQP(strTwoLines, bBreak, false, 76), strTwoLines);

    for (size_t n : {1u, 77u, 5000u}) {
        const S data = RandomBytes(n, static_cast<unsigned>(n) + 100);
        for (bool bBinary : {true, false})
            EXPECT_EQ(codec.DecodeQP(codec.EncodeQP(data, bBreak, bBinary, 76), true), data) << n;
    }
}

TEST(CodecParser, DecodeQP) {
    CQLCodecParser codec;
    // A lone carriage return is no line end; an escape cut off by the end stays literal.
    // clang-format off
    const std::vector<Case> cases = {
        {"", ""}, {"a=\r\nb", "ab"}, {"a= \t\nb", "ab"}, {"a=\rb", "a=\rb"}, {"a=ZZb", "a=ZZb"},
        {"a=", "a="}, {"a=4", "a=4"}, {"a= ", "a= "}, {"=41=4a=4A", "AJJ"}, {"==41", "=A"},
        {"a \r\nb\t\n", "a \r\nb\t\n"},
    };
    // clang-format on
    for (const auto& c : cases) EXPECT_EQ(codec.DecodeQP(c.in, true), c.out) << c.in;

    EXPECT_EQ(codec.DecodeQP("a=00b", true), S("a\0b", 3));
    EXPECT_EQ(codec.DecodeQP("a=00b", false), "a");
}

TEST(CodecParser, DecodeRfc2231) {
    CQLCodecParser codec;
    // Input and "value|name|charset|language"; an empty input leaves the outputs alone.
    const std::vector<Case> cases = {
        {"", "|old|old|old"},
        {"f*0*=UTF-8''%EC%95;\r\n\tf*1*=%88.txt", "%EC%95%88.txt|f|UTF-8|"},
        {"filename*0=\"a\"; filename*1=\"b\"", "ab|filename||"},
        {"t*0*=us-ascii'en'abc\r\n\tt*1*=def\r\n\tother*2*=xyz", "abcdef|t|us-ascii|en"},
        {"n*0*=a;b", "a;b|n||"},
        {"n*0*=cs'la'it's", "it's|n|cs|la"},
        {"n*0*=a\"b", "ab|n||"},
        // Texts that end inside a value.
        {"n*0*=ab\"", "ab|n||"},
        {"n*0=\"unclosed", "unclosed|n||"},
        {"n*0=\"a\nb\"", "a|n||"},
        {"n*0*=", "|n||"},
    };
    for (const auto& c : cases) {
        S name = "old", charset = "old", language = "old";
        const S value = codec.DecodeRfc2231(c.in, name, charset, language);
        EXPECT_EQ(value + "|" + name + "|" + charset + "|" + language, c.out) << c.in;
    }
    EXPECT_EQ(codec.EncodeRfc2231("n", "v", "UTF-8", 10), "");
}

TEST(CodecParser, UUencode) {
    CQLCodecParser codec;
    EXPECT_EQ(codec.EncodeUU("Cat", "a.txt"), "\r\nbegin 666 a.txt\r\n#0V%T\r\n`\r\nend\r\n");
    EXPECT_EQ(codec.EncodeUU("", "f"), "\r\nbegin 666 f\r\n`\r\n`\r\nend\r\n");
    // Zero values are written as "`", never as a blank.
    EXPECT_EQ(codec.EncodeUU(S(3, '\0'), "f"), "\r\nbegin 666 f\r\n#````\r\n`\r\nend\r\n");
    S strLine = "M";
    for (int i = 0; i < 15; ++i) strLine += ">'AX";
    EXPECT_EQ(codec.EncodeUU(S(45, 'x'), "f"),
              "\r\nbegin 666 f\r\n" + strLine + "\r\n`\r\nend\r\n");

    for (size_t n : {0u, 1u, 2u, 44u, 45u, 46u, 1000u}) {
        const S data = RandomBytes(n, static_cast<unsigned>(n) + 200);
        S name;
        EXPECT_EQ(codec.DecodeUU(codec.EncodeUU(data, "report.pdf"), name), data) << n;
        EXPECT_EQ(name, "report.pdf");
    }
}

TEST(CodecParser, DecodeUUQuirks) {
    CQLCodecParser codec;
    S name = "untouched";
    EXPECT_EQ(codec.DecodeUU("no header here\n#0V%T\n", name), "");
    EXPECT_EQ(name, "untouched");
    // Mode digits and blanks are skipped up to the name, digits of the name included.
    EXPECT_EQ(codec.DecodeUU("begin 644 07x.txt\n#0V%T\n`\n", name), "Cat");
    EXPECT_EQ(name, "x.txt");
    // Without a terminator the text simply ends; the "end" line counts as 5 bytes of data.
    EXPECT_EQ(codec.DecodeUU("begin 644 x\n#0V%T", name), "Cat");
    EXPECT_EQ(codec.DecodeUU("begin 644 x\n#0V%T\nend\n", name).size(), 8u);
    // An empty line, a terminator whose blank was stripped, ends the data.
    EXPECT_EQ(codec.DecodeUU("begin 644 x\n#0V%T\n\nend\n", name), "Cat");
    // A line longer than the decoder's buffer is cut, not overrun.
    EXPECT_EQ(codec.DecodeUU("begin 644 x\n#0V%T" + S(40000, 'A') + "\n`\n", name), "Cat");
    EXPECT_EQ(codec.DecodeUU("begin 644 " + S(40000, 'n') + "\n`\n", name), "");
    EXPECT_LT(name.size(), 16384u);
    EXPECT_EQ(codec.DecodeUU("begin\n#0V%T\n`\n", name), "Cat");
    EXPECT_EQ(name, "");
}

TEST(CodecParser, ReadDataLine) {
    CQLCodecParser codec;
    const S text = "ab\r\nc\rd\n\nlast";
    char szLine[64];
    int nPos = 0;
    S strSeen;
    while (codec.ReadDataLine(text, nPos, szLine))
        strSeen += S(szLine) + "@" + std::to_string(nPos) + " ";
    EXPECT_EQ(strSeen, "ab@4 cd@8 @9 last@13 ");
    nPos = 0;
    EXPECT_FALSE(codec.ReadDataLine(text, nPos, nullptr));
    nPos = -1;
    EXPECT_FALSE(codec.ReadDataLine(text, nPos, szLine));
}

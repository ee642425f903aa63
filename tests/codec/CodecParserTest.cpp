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
    EXPECT_EQ(codec.EncodeB64("", bBreak, true, 54), "");
    EXPECT_EQ(codec.EncodeB64("A", bBreak, true, 54), "QQ==");
    EXPECT_EQ(codec.DecodeB64("QQ==", false), "A");
    EXPECT_EQ(codec.EncodeB64("AB", bBreak, true, 54), "QUI=");
    EXPECT_EQ(codec.EncodeB64("ABC", bBreak, true, 54), "QUJD");

    // A full line of 54 bytes is followed by a line end, a padded tail is not.
    const S s54(54, 'x'), s55(55, 'x');
    const S enc54 = codec.EncodeB64(s54, bBreak, true, 54);
    ASSERT_EQ(enc54.size(), 74u);
    EXPECT_EQ(enc54.substr(72), "\r\n");
    const S enc55 = codec.EncodeB64(s55, bBreak, true, 54);
    ASSERT_EQ(enc55.size(), 78u);
    EXPECT_EQ(enc55.substr(72, 2), "\r\n");
    EXPECT_EQ(enc55.substr(74), "eA==");

    // The line length argument does not move the break, and without breaks there are none.
    const S s200 = RandomBytes(200, 1);
    EXPECT_EQ(codec.EncodeB64(s200, bBreak, true, 76), codec.EncodeB64(s200, bBreak, false, 54));
    EXPECT_EQ(codec.EncodeB64(s200, bNoBreak, true, 0).find('\r'), S::npos);
    EXPECT_EQ(codec.EncodeB64(s200, bNoBreak, true, 0).size(), 268u);
}

TEST(CodecParser, DecodeB64Quirks) {
    CQLCodecParser codec;
    const std::vector<Case> cases = {
        {"", ""},
        {"QUJD", "ABC"},
        {"QUI=", "AB"},
        {"QUI", ""}, // an unpadded partial group is dropped
        {"QUJDRA", "ABC"},
        {"QUJDRA==", "ABCD"},
        {"QU9", "AO"},   // ... unless its last value is 61, the code of "="
        {"QU9\r\n", ""}, // a skipped byte after it does not protect it
        {"QU9 ", ""},
        {"QUI=QUJD", "AB"}, // "=" stops at once
        {"QU\r\nJD", "ABC"},
        {" Q U J D ", "ABC"},
        {"Q*U!J#D", "ABC"},
        {"\xffQ\x80UJD\xc3", "ABC"}, // high bytes are skipped
        {S("QUJD\0QUJD", 9), "ABC"}, // a NUL ends the text
        {S("QUJDQU\0", 7), "ABC"},
    };
    for (const auto& c : cases) EXPECT_EQ(codec.DecodeB64(c.in, true), c.out) << c.in;
}

TEST(CodecParser, B64RoundTripThroughNoise) {
    CQLCodecParser codec;
    const bool bBreak = true;
    std::mt19937 gen(7);
    const S noise = S("\r\n \t*!\x80\xff", 8);
    for (size_t n : {1u, 2u, 3u, 53u, 54u, 55u, 57u, 108u, 1000u, 100000u}) {
        const S data = RandomBytes(n, static_cast<unsigned>(n));
        const S enc = codec.EncodeB64(data, bBreak, true, 54);
        ASSERT_EQ(codec.DecodeB64(enc, true), data) << n;
        // Bytes outside the alphabet anywhere in the text are passed over.
        S noisy;
        for (char c : enc) {
            if (gen() % 7 == 0) noisy += noise[gen() % noise.size()];
            noisy += c;
        }
        ASSERT_EQ(codec.DecodeB64(noisy, true), data) << n;
    }
}

TEST(CodecParser, EncodeQP) {
    CQLCodecParser codec;
    const bool bBreak = true, bNoBreak = false;
    struct QPCase {
        S in;
        bool bBinary;
        S out;
    };
    const std::vector<QPCase> cases = {
        {"a \r\n", false, "a=20\r\n"},
        {"a\t\nb", false, "a=09\nb"},
        {"a ", false, "a "},
        {"a b", false, "a b"},
        {"a \r\n", true, "a =0D=0A"},
        {"x=y", false, "x=3Dy"},
        {"\x7f\x01\xea~!", false, "=7F=01=EA~!"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(codec.EncodeQP(c.in, bNoBreak, c.bBinary, 76), c.out) << c.in;

    // The soft break comes once the column exceeds the limit, checked after each byte.
    EXPECT_EQ(codec.EncodeQP(S(76, 'a'), bBreak, false, 76), S(76, 'a'));
    EXPECT_EQ(codec.EncodeQP(S(77, 'a'), bBreak, false, 76), S(77, 'a') + "=\r\n");
    EXPECT_EQ(codec.EncodeQP(S(75, 'a') + "=b", bBreak, false, 76), S(75, 'a') + "=3D=\r\nb");
    // A hard line end resets the column in text mode only.
    EXPECT_EQ(codec.EncodeQP(S(50, 'a') + "\n" + S(50, 'a'), bBreak, false, 76),
              S(50, 'a') + "\n" + S(50, 'a'));
    EXPECT_EQ(codec.EncodeQP(S(10, 'a'), bBreak, false, 4), "aaaaa=\r\naaaaa=\r\n");
}

TEST(CodecParser, DecodeQP) {
    CQLCodecParser codec;
    const std::vector<Case> cases = {
        {"", ""},
        {"a=\r\nb", "ab"},
        {"a= \t\nb", "ab"},
        {"a=  \r\nb", "ab"},
        {"a=\rb", "a=\rb"}, // a lone carriage return is no line end
        {"a=ZZb", "a=ZZb"},
        {"a=", "a="},
        {"a=4", "a=4"},
        {"a= ", "a= "},
        {"=41=4a=4A", "AJJ"},
        {"a  \r\nb\t\n", "a  \r\nb\t\n"},
        {"==41", "=A"},
    };
    for (const auto& c : cases) EXPECT_EQ(codec.DecodeQP(c.in, true), c.out) << c.in;

    EXPECT_EQ(codec.DecodeQP("a=00b", true), S("a\0b", 3));
    EXPECT_EQ(codec.DecodeQP("a=00b", false), "a");
    EXPECT_EQ(codec.DecodeQP(S("a\0b", 3), false), "a");
}

TEST(CodecParser, QPRoundTrip) {
    CQLCodecParser codec;
    const bool bBreak = true;
    for (size_t n : {1u, 75u, 76u, 77u, 5000u}) {
        const S data = RandomBytes(n, static_cast<unsigned>(n) + 100);
        for (bool bBinary : {true, false}) {
            const S enc = codec.EncodeQP(data, bBreak, bBinary, 76);
            EXPECT_EQ(codec.DecodeQP(enc, true), data) << n << " binary " << bBinary;
        }
    }
}

TEST(CodecParser, DecodeRfc2231) {
    CQLCodecParser codec;
    struct RCase {
        S in, value, name, charset, language;
    };
    const std::vector<RCase> cases = {
        {"filename*0*=UTF-8''%EC%95;\r\n\tfilename*1*=%88.txt", "%EC%95%88.txt", "filename",
         "UTF-8", ""},
        {"filename*0=\"a\"; filename*1=\"b\"", "ab", "filename", "", ""},
        {"title*0*=us-ascii'en'abc\r\n\ttitle*1*=def\r\n\tother*2*=xyz", "abcdef", "title",
         "us-ascii", "en"},
        {"n*0*=a\n\tn*1*=b", "ab", "n", "", ""},
        {"n*0*=a;b", "a;b", "n", "", ""},
        {"n*0*=cs'la'it's", "it's", "n", "cs", "la"},
        {"n*0*=a\"b", "ab", "n", "", ""},
        {"n*0*=ab\"", "ab", "n", "", ""},
        {"n*0=\"unclosed", "unclosed", "n", "", ""},
        {"n*0=\"a\nb\"", "a", "n", "", ""},
        {"n*0*=", "", "n", "", ""},
    };
    for (const auto& c : cases) {
        S name = "old", charset = "old", language = "old";
        EXPECT_EQ(codec.DecodeRfc2231(c.in, name, charset, language), c.value) << c.in;
        EXPECT_EQ(name, c.name) << c.in;
        EXPECT_EQ(charset, c.charset) << c.in;
        EXPECT_EQ(language, c.language) << c.in;
    }
    S name = "old", charset = "old", language = "old";
    EXPECT_EQ(codec.DecodeRfc2231("", name, charset, language), "");
    EXPECT_EQ(name + charset + language, "oldoldold");
    EXPECT_EQ(codec.EncodeRfc2231("n", "v", "UTF-8", 10), "");
}

TEST(CodecParser, EncodeUU) {
    CQLCodecParser codec;
    EXPECT_EQ(codec.EncodeUU("Cat", "a.txt"), "\r\nbegin 666 a.txt\r\n#0V%T\r\n`\r\nend\r\n");
    EXPECT_EQ(codec.EncodeUU("", "f"), "\r\nbegin 666 f\r\n`\r\n`\r\nend\r\n");
    // Zero values are written as "`", never as a blank.
    EXPECT_EQ(codec.EncodeUU(S(3, '\0'), "f"), "\r\nbegin 666 f\r\n#````\r\n`\r\nend\r\n");
    const S enc45 = codec.EncodeUU(S(45, 'x'), "f");
    EXPECT_EQ(enc45.substr(15, 1), "M");
    EXPECT_EQ(enc45.size(), 15u + 1 + 60 + 2 + 8);
}

TEST(CodecParser, DecodeUU) {
    CQLCodecParser codec;
    for (size_t n : {0u, 1u, 2u, 44u, 45u, 46u, 90u, 1000u}) {
        const S data = RandomBytes(n, static_cast<unsigned>(n) + 200);
        S name;
        EXPECT_EQ(codec.DecodeUU(codec.EncodeUU(data, "report.pdf"), name), data) << n;
        EXPECT_EQ(name, "report.pdf");
    }
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
    std::vector<S> lines;
    std::vector<int> positions;
    while (codec.ReadDataLine(text, nPos, szLine)) {
        lines.push_back(szLine);
        positions.push_back(nPos);
    }
    EXPECT_EQ(lines, (std::vector<S>{"ab", "cd", "", "last"}));
    EXPECT_EQ(positions, (std::vector<int>{4, 8, 9, 13}));
    nPos = 0;
    EXPECT_FALSE(codec.ReadDataLine(text, nPos, nullptr));
    nPos = -1;
    EXPECT_FALSE(codec.ReadDataLine(text, nPos, szLine));
    nPos = 0;
    EXPECT_FALSE(codec.ReadDataLine("", nPos, szLine));
}

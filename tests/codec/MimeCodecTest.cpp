#include "codec/QLMimeCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using S = std::string;

TEST(MimeCodec, URLCodec) {
    CQLMimeCodec codec;
    const std::vector<std::pair<S, S>> cases = {
        {"a+b%41", "a bA"},
        {"%4a%4A", "JJ"},
        {"%e4%B8%AD", "\xe4\xb8\xad"},
        {"%zz", "S"},          // no validation: ('z' * 16 - 112) + ('Z' - 55)
        {"%\xff\xff", "\xbf"}, // high bytes count as not above 64
        {"%", "%"},            // a "%" near the end is kept, nothing read past the NUL
        {"a%4", "a%4"},
        {"%+", "% "},
        {"", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(codec.URLDecode(c.first.c_str()), c.second) << c.first;
    EXPECT_EQ(codec.URLDecode(nullptr), "");
    EXPECT_EQ(codec.DecParam(S("a%41\0%42", 8)), "aA");

    EXPECT_EQ(codec.URLEncode("a b"), "a%20b");
    EXPECT_EQ(codec.URLEncode("a/b@c.d_e-f"), "a/b@c.d_e-f");
    EXPECT_EQ(codec.URLEncode("\xea+~?"), "%ea%2b%7e%3f");
    EXPECT_EQ(codec.URLEncode(nullptr), "");

    S all;
    for (int i = 1; i < 256; ++i) all += static_cast<char>(i);
    EXPECT_EQ(codec.URLDecode(codec.URLEncode(all.c_str()).c_str()), all);
}

TEST(MimeCodec, EncParamSegments) {
    CQLMimeCodec codec;
    EXPECT_EQ(codec.EncParam("filename", "abc", "UTF-8", 1000), "filename*0*=UTF-8''abc");

    // "f*0*=UTF-8''" is 12 bytes; the value is "%ea%b0%80". A cut never splits an escape:
    // at a "%" it cuts there, one byte before it moves the byte over, and two bytes before
    // it writes both bytes on either side of the cut.
    const S strValue = "\xea\xb0\x80";
    EXPECT_EQ(codec.EncParam("f", strValue, "UTF-8", 12), "f*0*=UTF-8''\r\n\tf*1*=%ea%b0%80");
    EXPECT_EQ(codec.EncParam("f", strValue, "UTF-8", 14), "f*0*=UTF-8''%ea\r\n\tf*1*=%b0%80");
    EXPECT_EQ(codec.EncParam("f", strValue, "UTF-8", 13), "f*0*=UTF-8''%ea\r\n\tf*1*=ea%b0%80");
    // A continuation holds one byte more than the limit, and no ";" ends a line.
    EXPECT_EQ(codec.EncParam("f", "abcdefghij", "", 8), "f*0*=''a\r\n\tf*1*=bcdefghij");

    // Segment numbers are one character and run on past "9".
    S strExpect = "n*0*=''";
    for (char c : S("123456789:;")) strExpect += S("\r\n\tn*") + c + "*=" + S(8, 'x');
    EXPECT_EQ(codec.EncParam("n", S(88, 'x'), "", 7), strExpect);
}

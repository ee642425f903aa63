#include "foundation/QLMimeEnvelope.h"

#include <gtest/gtest.h>

TEST(MimeEnvelope, RecipientsJoinedAndInit) {
    // Each address ends at its first NUL; an empty one still brings its delimiter.
    const std::tuple<std::vector<std::string>, char, std::string> cases[] = {
        {{}, ',', ""},
        {{"a@x"}, ',', "a@x"},
        {{"a", "", "b"}, ',', "a,,b"},
        {{std::string("a\0hidden", 8), "b"}, ' ', "a b"}};
    for (const auto& [vRcpt, cDelim, strWant] : cases) {
        CQLMimeEnvelope env;
        for (const std::string& str : vRcpt) env.AddRcptTo({str, 0});
        EXPECT_EQ(env.GetRcptByDel(cDelim), strWant);
    }

    CQLMimeEnvelope env;
    env.SetMailFrom("sender@example.org, tail", 18);
    EXPECT_EQ(env.GetMailFrom(), "sender@example.org");
    env.SetMailFrom(nullptr, 5);
    EXPECT_EQ(env.GetMailFrom(), "");
    env.SetMailFrom(std::string("s@x"));
    env.AddRcptTo({"r@x", 42});
    env.Init();
    EXPECT_EQ(env.GetMailFrom(), "");
    EXPECT_TRUE(env.GetRcpt().empty());
}

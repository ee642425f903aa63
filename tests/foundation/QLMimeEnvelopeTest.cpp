#include "foundation/QLMimeEnvelope.h"

#include <gtest/gtest.h>

TEST(MimeEnvelope, RecipientsJoined) {
    struct Case {
        std::vector<std::string> vRcpt;
        char cDelim;
        std::string strWant;
    } cases[] = {
        {{}, ',', ""},
        {{"a@x"}, ',', "a@x"},
        {{"a", "b", "c"}, ',', "a,b,c"},
        {{"a", "", "b"}, ',', "a,,b"},
        {{""}, ';', ""},
        {{std::string("a\0hidden", 8), "b"}, ' ', "a b"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strWant);
        CQLMimeEnvelope env;
        for (const std::string& str : c.vRcpt) env.AddRcptTo({str, 0});
        EXPECT_EQ(env.GetRcptByDel(c.cDelim), c.strWant);
    }
}

TEST(MimeEnvelope, FieldsByReferenceAndInit) {
    CQLMimeEnvelope env;
    EXPECT_EQ(env.GetMailFrom(), "");
    EXPECT_TRUE(env.GetRcpt().empty());

    env.SetMailFrom("sender@example.org, tail", 18);
    EXPECT_EQ(env.GetMailFrom(), "sender@example.org");
    env.GetMailFrom() += ".kr";
    EXPECT_EQ(env.GetMailFrom(), "sender@example.org.kr");
    env.SetMailFrom(nullptr, 5);
    EXPECT_EQ(env.GetMailFrom(), "");
    env.SetMailFrom(std::string("s@x"));

    CQLMimeEnvelope::RCPTTO rcpt;
    rcpt.strRcpt = "r@x";
    rcpt.nFlag = 42;
    env.AddRcptTo(rcpt);
    rcpt.strRcpt = "changed";
    ASSERT_EQ(env.GetRcpt().size(), 1u);
    EXPECT_EQ(env.GetRcpt()[0].strRcpt, "r@x");
    EXPECT_EQ(env.GetRcpt()[0].nFlag, 42);

    CQLMimeEnvelope copy(env);
    env.Init();
    EXPECT_EQ(env.GetMailFrom(), "");
    EXPECT_TRUE(env.GetRcpt().empty());
    EXPECT_EQ(copy.GetRcptByDel(','), "r@x");
}

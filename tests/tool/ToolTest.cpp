// Runs the command-line tool as a user would, through the shell.
#include "mime/QLMimeMsg.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>

namespace {

struct RunResult {
    int nExit;
    std::string strOut;
};

RunResult RunTool(const std::string& strArgs, const std::string& strStdin = "") {
    // CTest names the tool; run by hand, the program uses the one built beside it.
    const char* pszTool = std::getenv("QLMAIL_TOOL");
    std::string strCmd = "printf '" + strStdin + "' | '" + (pszTool ? pszTool : QLMAIL_TOOL_PATH) +
                         "' " + strArgs + " 2>&1";
    RunResult r{-1, ""};
    FILE* p = popen(strCmd.c_str(), "r");
    if (p == nullptr) return r;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.strOut.append(buf.data(), n);
    int status = pclose(p);
    r.nExit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

} // namespace

TEST(Tool, VersionHelpAndDecoders) {
    EXPECT_EQ(RunTool("--version").strOut, "qlmail 1.00.0032\n");
    RunResult help = RunTool("--help");
    EXPECT_EQ(help.nExit, 0);
    EXPECT_NE(help.strOut.find("usage: qlmail"), std::string::npos);
    EXPECT_EQ(RunTool("b64", "aGVs\\r\\nbG8=").strOut, "hello");
    EXPECT_EQ(RunTool("qp", "caf=C3=A9=\\r\\n!").strOut, "caf\xC3\xA9!");
}

TEST(Tool, BadUsageIsExitTwoWithOneLine) {
    for (const char* pszArgs : {"", "bogus", "b64 extra", "--versions"}) {
        RunResult r = RunTool(pszArgs);
        EXPECT_EQ(r.nExit, 2) << pszArgs;
        ASSERT_FALSE(r.strOut.empty()) << pszArgs;
        EXPECT_EQ(r.strOut.find('\n'), r.strOut.size() - 1) << pszArgs << ": " << r.strOut;
    }
}

namespace {

std::string Sample(const char* pszName) {
    return std::string(QLMAIL_SOURCE_DIR) + "/samples/" + pszName;
}

} // namespace

TEST(Tool, PartsAndFormatOfTheSamples) {
    RunResult parts = RunTool("parts " + Sample("alternative-inline-image.eml"));
    EXPECT_EQ(parts.nExit, 0);
    // A heading and one line per part: the top, plain, related, html, the inline picture.
    EXPECT_EQ(std::count(parts.strOut.begin(), parts.strOut.end(), '\n'), 6);
    EXPECT_NE(parts.strOut.find("\n2.2.\timage/gif\tbase64\t"), std::string::npos) << parts.strOut;
    EXPECT_NE(parts.strOut.find("\t<dot@example.com>\tdot.gif\n"), std::string::npos);

    RunResult json = RunTool("parts --json " + Sample("korean-attachment.eml"));
    EXPECT_EQ(json.nExit, 0);
    EXPECT_NE(
        json.strOut.find("\"filename\": \"\xEB\xB6\x84\xEA\xB8\xB0 \xEB\xA7\xA4\xEC\xB6\x9C.txt\""),
        std::string::npos)
        << json.strOut;
    EXPECT_NE(json.strOut.find("\"number\": \"2.\", \"type\": \"application\""), std::string::npos);
    // The top of the message has one name in both forms.
    EXPECT_NE(json.strOut.find("{\"number\": \"top\", \"type\": \"multipart\""), std::string::npos);
    EXPECT_NE(parts.strOut.find("\ntop\tmultipart/alternative\t"), std::string::npos);

    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(Sample("plain.eml"), true));
    EXPECT_EQ(RunTool("format " + Sample("plain.eml")).strOut, msg.GetFormat());
    RunResult formatJson = RunTool("format --json " + Sample("plain.eml"));
    EXPECT_NE(formatJson.strOut.find("\\u0005\"}"), std::string::npos) << formatJson.strOut;
}

TEST(Tool, MessageCommandFailures) {
    for (const char* pszArgs :
         {"parts /nonexistent/x.eml", "format /", "parts --json /nonexistent"}) {
        RunResult r = RunTool(pszArgs);
        EXPECT_EQ(r.nExit, 1) << pszArgs;
        EXPECT_EQ(r.strOut.find('\n'), r.strOut.size() - 1) << pszArgs << ": " << r.strOut;
    }
    EXPECT_EQ(RunTool("parts").nExit, 2);
    EXPECT_EQ(RunTool("format a b").nExit, 2);
}

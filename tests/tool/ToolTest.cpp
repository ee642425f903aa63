// Runs the command-line tool as a user would, through the shell.
#include <gtest/gtest.h>

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
    const char* pszTool = std::getenv("QLMAIL_TOOL");
    EXPECT_NE(pszTool, nullptr) << "QLMAIL_TOOL is not set";
    std::string strCmd =
        "printf '" + strStdin + "' | '" + (pszTool ? pszTool : "") + "' " + strArgs + " 2>&1";
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

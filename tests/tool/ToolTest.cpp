// Runs the command-line tool as a user would, through the shell.
#include "foundation/TempDir.h"
#include "mime/QLMimeMsg.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
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

namespace {

// A copy of a sample in a directory of its own, with its format string stored beside it.
struct Stored {
    CTempDir dir;
    std::string strPath;
    explicit Stored(const char* pszSample) : strPath(dir.Path("m.eml")) {
        std::ofstream(strPath, std::ios::binary) << CTempDir::ReadAll(Sample(pszSample));
        std::ofstream(strPath + ".fmt", std::ios::binary) << FormatOf();
    }
    std::string FormatOf() const {
        CQLMimeMsg msg;
        msg.Open(strPath, true);
        return msg.GetFormat();
    }
    std::string Bytes() const { return CTempDir::ReadAll(strPath); }
    // The stored format string is that of a fresh parse of the rewritten message.
    void ExpectFormatFresh() const {
        EXPECT_EQ(CTempDir::ReadAll(strPath + ".fmt"), FormatOf());
        for (const auto& e : std::filesystem::directory_iterator(dir.Dir()))
            EXPECT_TRUE(e.path() == strPath || e.path() == strPath + ".fmt") << e.path();
    }
    std::string Body(int k) const {
        CQLMimeMsg msg;
        msg.Open(strPath, true);
        std::string s;
        msg[k]->GetBody(s, true);
        return s;
    }
};

bool OneLine(const RunResult& r) {
    return !r.strOut.empty() && r.strOut.find('\n') == r.strOut.size() - 1;
}

} // namespace

TEST(Tool, EditWritesTheHeaderBack) {
    Stored m("plain.eml");
    RunResult r = RunTool("edit " + m.strPath +
                          " --add 'X-First: 1' --front --set 'Subject: new' --set 'X-Set: s' "
                          "--del Date --del X-Absent");
    EXPECT_EQ(r.nExit, 0) << r.strOut;
    EXPECT_EQ(r.strOut, "");
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(m.strPath, true));
    EXPECT_EQ(m.Bytes().rfind("X-Set: s\r\nX-First: 1\r\n", 0), 0u);
    EXPECT_EQ(msg.FindHdrItem("Subject")->m_strValue, "new");
    EXPECT_EQ(msg.FindHdrItem("Date"), nullptr);
    m.ExpectFormatFresh();

    r = RunTool("edit " + m.strPath + " --add 'X-Word: caf\xC3\xA9' --encode q --charset UTF-8");
    EXPECT_EQ(r.nExit, 0) << r.strOut;
    EXPECT_NE(m.Bytes().find("X-Word: =?UTF-8?Q?caf=C3=A9?=\r\n"), std::string::npos);
    // Nothing to change: the message stays, with a note.
    const std::string strBefore = m.Bytes();
    r = RunTool("edit " + m.strPath + " --del X-Absent");
    EXPECT_EQ(r.nExit, 0);
    EXPECT_TRUE(OneLine(r)) << r.strOut;
    EXPECT_EQ(m.Bytes(), strBefore);

    for (const std::string& strArgs :
         {"edit " + m.strPath, "edit " + m.strPath + " --add novalue",
          "edit " + m.strPath + " --add 'X: 1' --encode b",
          "edit " + m.strPath + " --add 'X: 1' --encode x --charset UTF-8",
          std::string("edit --add 'X: 1'"), "edit " + m.strPath + " --bogus",
          "edit " + m.strPath + " --del"}) {
        r = RunTool(strArgs);
        EXPECT_EQ(r.nExit, 2) << strArgs;
        EXPECT_TRUE(OneLine(r)) << strArgs << ": " << r.strOut;
    }
    EXPECT_EQ(m.Bytes(), strBefore);
}

TEST(Tool, SetBodyOfAPart) {
    Stored m("korean-attachment.eml");
    CTempDir data;
    const std::string strData = data.MakeFile("from a file\r\n");
    RunResult r = RunTool("set-body " + m.strPath + " 2 --from " + strData);
    EXPECT_EQ(r.nExit, 0) << r.strOut;
    EXPECT_EQ(m.Body(2), "from a file\r\n"); // base64, as the part's header says
    m.ExpectFormatFresh();
    r = RunTool("set-body " + m.strPath + " 1. --text 'plain now' --encoding 7bit");
    EXPECT_EQ(r.nExit, 0) << r.strOut;
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(m.strPath, true));
    std::string strRaw;
    msg[1]->GetBody(strRaw, false);
    EXPECT_EQ(strRaw, "plain now\r\n");
    m.ExpectFormatFresh();

    const std::string strBefore = m.Bytes();
    for (const char* pszArgs : {" 3. --text x", " top --text x", " 1. --from /nonexistent/x"}) {
        r = RunTool("set-body " + m.strPath + pszArgs);
        EXPECT_EQ(r.nExit, 1) << pszArgs;
        EXPECT_TRUE(OneLine(r)) << pszArgs << ": " << r.strOut;
    }
    for (const char* pszArgs :
         {" 1.", " 1. --text a --from b", " 1. --text a --encoding uu", " --text a"}) {
        r = RunTool("set-body " + m.strPath + pszArgs);
        EXPECT_EQ(r.nExit, 2) << pszArgs;
    }
    EXPECT_EQ(m.Bytes(), strBefore);
}

TEST(Tool, BannerAndTags) {
    Stored m("alternative-inline-image.eml");
    RunResult r = RunTool("banner " + m.strPath + " 'Sent with care'");
    EXPECT_EQ(r.nExit, 0) << r.strOut;
    EXPECT_NE(m.Body(1).find("\r\nSent with care\r\n"), std::string::npos) << m.Body(1);
    r = RunTool("banner " + m.strPath + " 'Sent with care' --html");
    EXPECT_EQ(r.nExit, 0) << r.strOut;
    EXPECT_NE(m.Body(3).find("<BR>\r\nSent with care<BR>\r\n"), std::string::npos);
    r = RunTool("confirm-tag " + m.strPath +
                " --url https://mail.example.com --port 8443 --path /app --msgid '<i@x>' "
                "--sender s@x --receiver r@x --subject hi");
    EXPECT_EQ(r.nExit, 0) << r.strOut;
    EXPECT_NE(m.Body(3).find("<img src='https://mail.example.com:8443/app/historySent.ql?"),
              std::string::npos);
    m.ExpectFormatFresh();
    // No macro in the html part: a failure, and the message stays.
    const std::string strBefore = m.Bytes();
    r = RunTool("edm-tag " + m.strPath + " --url http://h --port 80 --data d");
    EXPECT_EQ(r.nExit, 1);
    EXPECT_EQ(r.strOut, "qlmail: " + m.strPath +
                            ": In AddEDMTag(), '##EDM_REJECT_URL##' macro is not exist\n");
    EXPECT_EQ(m.Bytes(), strBefore);
    for (const char* pszArgs :
         {"edm-tag FILE --url h --data d", "edm-tag FILE --url h --port x --data d",
          "edm-tag FILE --url h --port 80", "confirm-tag FILE --url h --port 80 --msgid i",
          "banner FILE", "banner FILE a b"}) {
        std::string strArgs = pszArgs;
        strArgs.replace(strArgs.find("FILE"), 4, m.strPath);
        r = RunTool(strArgs);
        EXPECT_EQ(r.nExit, 2) << pszArgs;
        EXPECT_TRUE(OneLine(r)) << pszArgs << ": " << r.strOut;
    }

    // A message without an html part: nothing written, a note, success.
    Stored plain("plain.eml");
    const std::string strPlain = plain.Bytes();
    r = RunTool("edm-tag " + plain.strPath + " --url http://h --port 80 --data d");
    EXPECT_EQ(r.nExit, 0);
    EXPECT_TRUE(OneLine(r)) << r.strOut;
    r = RunTool("banner " + plain.strPath + " b --html");
    EXPECT_EQ(r.nExit, 0);
    EXPECT_EQ(plain.Bytes(), strPlain);
}

TEST(Tool, TreeAttachments) {
    RunResult r = RunTool("attachments --tree " + Sample("korean-attachment.eml"));
    EXPECT_EQ(r.nExit, 0);
    EXPECT_EQ(std::count(r.strOut.begin(), r.strOut.end(), '\n'), 2) << r.strOut;
    EXPECT_NE(r.strOut.find("\n2.\t\xEB\xB6\x84\xEA\xB8\xB0 \xEB\xA7\xA4\xEC\xB6\x9C.txt\t"),
              std::string::npos)
        << r.strOut;
    r = RunTool("attachments --tree --json " + Sample("alternative-inline-image.eml"));
    EXPECT_EQ(r.nExit, 0);
    EXPECT_NE(r.strOut.find("\"attachments\": [\n]}"), std::string::npos) << r.strOut;
    EXPECT_EQ(RunTool("attachments --tree /nonexistent").nExit, 1);
    EXPECT_EQ(RunTool("attachments --tree").nExit, 2);
}

TEST(Tool, RewriteFailureLeavesTheMessage) {
    // A directory in the way of every temporary name of the coming seconds.
    Stored m("plain.eml");
    const std::string strBefore = m.Bytes();
    const long nNow = static_cast<long>(time(nullptr));
    for (long t = nNow - 1; t <= nNow + 30; ++t)
        std::filesystem::create_directory(m.strPath + "." + std::to_string(t) + ".tmp");
    for (const char* pszArgs : {" --add 'X: 1'", ""}) {
        const RunResult r =
            RunTool((*pszArgs ? "edit " : "banner ") + m.strPath + (*pszArgs ? pszArgs : " b"));
        EXPECT_EQ(r.nExit, 1);
        EXPECT_TRUE(OneLine(r)) << r.strOut;
        EXPECT_NE(r.strOut.find("Is a directory"), std::string::npos) << r.strOut;
    }
    EXPECT_EQ(m.Bytes(), strBefore);
}

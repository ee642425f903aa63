// The raw header block and single header values, with the cache and the level match.
#include "reader/ReaderTestUtil.h"

#include <filesystem>

namespace {

const std::string kHeader = "From: =?UTF-8?B?7ZmN6ri464+Z?= <a@b.c>\n"
                            "Subject: =?euc-kr?B?vsiz58fPvLy/5A==?=\n"
                            "X-Folded: one\n two\n"
                            "Content-Type: text/plain\n";

} // namespace

TEST(MsgInfoHeader, RawBlockAndValues) {
    for (const auto& [strForm, strMsg] : BothForms(kHeader + "\nbody\n")) {
        SCOPED_TRACE(strForm);
        CTempDir dir;
        const Stored s = Store(dir, strMsg);
        CQLMimeMsgInfo info(s.strPath, s.strFormat);
        const std::string strEol = strForm == "LF" ? "\n" : "\r\n";
        std::string strOut = "old";
        ASSERT_TRUE(info.GetHeader(strOut, ""));
        EXPECT_EQ(strOut, strMsg.substr(0, strMsg.find(strEol + strEol) + strEol.size()));
        EXPECT_FALSE(info.GetHeader(strOut, "x"));
        EXPECT_EQ(info.GetLastError(), "No Header string");

        // Raw values keep a bare LF and the fold; lookups ignore case but not length.
        const std::string strLF = strForm == "LF" ? "\n" : "";
        struct Case {
            const char* pszName;
            bool bDecode;
            std::string strWant;
        } cases[] = {
            {"subject", false, "=?euc-kr?B?vsiz58fPvLy/5A==?=" + strLF},
            {"SUBJECT", true, "안녕하세요"},
            {"From", true, "홍길동 <a@b.c>"},
            {"X-Folded", false, "one" + strEol + " two" + strLF},
        };
        for (const Case& c : cases) {
            ASSERT_TRUE(info.GetHeaderValue(c.pszName, strOut, c.bDecode, "", "UTF-8", ""))
                << c.pszName;
            EXPECT_EQ(strOut, c.strWant) << c.pszName;
        }
        EXPECT_FALSE(info.GetHeaderValue("subj", strOut, false, "", "UTF-8", ""));
        EXPECT_EQ(info.GetLastError(), "No Such Header Item");
        EXPECT_FALSE(info.GetHeaderValue("Subject", strOut, false, "", "UTF-8", "x"));
        EXPECT_EQ(info.GetLastError(), "No Such Header Block");

        // Cached: the values still answer once the file is gone; a missing name still misses.
        std::filesystem::remove(s.strPath);
        ASSERT_TRUE(info.GetHeaderValue("Subject", strOut, true, "", "UTF-8", ""));
        EXPECT_EQ(strOut, "안녕하세요");
        EXPECT_FALSE(info.GetHeaderValue("To", strOut, true, "", "UTF-8", ""));
        EXPECT_EQ(info.GetLastError(), "No Such Header Item");
        EXPECT_FALSE(info.GetHeader(strOut, ""));
        EXPECT_EQ(info.GetLastError().rfind("In CQLMimeMsgInfo::GetHeader, In Open(", 0), 0u)
            << info.GetLastError();
        // A path that has become a directory opens, and fails at the read.
        std::filesystem::create_directory(s.strPath);
        EXPECT_FALSE(info.GetHeader(strOut, ""));
        EXPECT_EQ(info.GetLastError().rfind("In CQLMimeMsgInfo::GetHeader, In Read(", 0), 0u)
            << info.GetLastError();
    }
}

TEST(MsgInfoHeader, MessageCharsetDecidesOverTheDefault) {
    CTempDir dir;
    const std::string strMsg = "Subject: \xbe\xc8\nContent-Type: text/plain; charset=euc-kr\n\nx\n";
    const Stored s = Store(dir, strMsg);
    std::string strOut;
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    ASSERT_TRUE(info.GetHeaderValue("Subject", strOut, true, "iso-8859-1", "UTF-8", ""));
    EXPECT_EQ(strOut, "안");
    // Without a charset of the message the caller's default counts.
    CQLMimeMsgInfo bare(s.strPath, SetField(s.strFormat, 0, 14, ""));
    ASSERT_TRUE(bare.GetHeaderValue("Subject", strOut, true, "iso-8859-1", "UTF-8", ""));
    EXPECT_EQ(strOut, "\xc2\xbe\xc3\x88");
}

// Records with a filled level field address header blocks of their own. The cache keeps the
// first block's items in front, and keeps its key when a name is missing in a fresh block.
TEST(MsgInfoHeader, LevelMatchWithTwoBlocks) {
    CTempDir dir;
    const std::string strMsg =
        "From: outer\nSubject: outer subject\n"
        "Content-Type: multipart/mixed; boundary=b\n\n"
        "--b\nContent-Type: message/rfc822\n\n"
        "From: inner\nSubject: inner subject\nX-Inner: only\n\nbody\n--b--\n";
    const Stored s = Store(dir, strMsg);
    // Record 1 is the enclosed message: its header starts at its body.
    CQLMimeMsgInfo::CQLMimeMsgInfoItem item;
    item.Set(s.strFormat.c_str() + s.strFormat.find('\x05') + 1);
    ASSERT_EQ(strMsg.compare(item.m_nBSO, 5, "From:"), 0);
    std::string strFormat = SetField(s.strFormat, 0, 13, "A");
    strFormat = SetField(strFormat, 1, 13, "B");
    strFormat = SetField(strFormat, 1, 0, std::to_string(item.m_nBSO));
    strFormat = SetField(strFormat, 1, 1, std::to_string(strMsg.find("\n\nbody") + 1));

    std::string strOut;
    CQLMimeMsgInfo info(s.strPath, strFormat);
    ASSERT_TRUE(info.GetHeader(strOut, "B"));
    EXPECT_EQ(strOut, "From: inner\nSubject: inner subject\nX-Inner: only\n");
    EXPECT_FALSE(info.GetHeader(strOut, ""));
    EXPECT_FALSE(info.GetHeaderValue("From", strOut, false, "", "UTF-8", ""));
    EXPECT_EQ(info.GetLastError(), "No Such Header Block");

    ASSERT_TRUE(info.GetHeaderValue("Subject", strOut, false, "", "UTF-8", "A"));
    EXPECT_EQ(strOut, "outer subject\n");
    ASSERT_TRUE(info.GetHeaderValue("Subject", strOut, false, "", "UTF-8", "B"));
    EXPECT_EQ(strOut, "outer subject\n"); // the first block's item wins
    ASSERT_TRUE(info.GetHeaderValue("X-Inner", strOut, false, "", "UTF-8", "B"));
    EXPECT_EQ(strOut, "only\n");

    CQLMimeMsgInfo other(s.strPath, strFormat);
    ASSERT_TRUE(other.GetHeaderValue("From", strOut, false, "", "UTF-8", "A"));
    EXPECT_FALSE(other.GetHeaderValue("Missing", strOut, false, "", "UTF-8", "B"));
    EXPECT_TRUE(other.m_bHdrParsed);
    EXPECT_EQ(other.m_strHdrLevel, "A");
    // Level A now answers from a list that holds B's items too.
    ASSERT_TRUE(other.GetHeaderValue("X-Inner", strOut, false, "", "UTF-8", "A"));
    EXPECT_EQ(strOut, "only\n");
}

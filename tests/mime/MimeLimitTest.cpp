// What a parse makes of messages past its limits: entities past the first one over the limit
// get no part, while the multiparts around them still end where their delimiters say; a
// message that 32-bit offsets can't describe is refused before its body is read.
#include "mime/MimeTestUtil.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

struct Opened {
    bool bOpen = false;
    std::string strError;
    std::vector<Entry> vEntries;
};

Opened OpenIn(const std::string& strMsg, bool bFile, const CTempDir& dir) {
    Opened out;
    CQLMimeMsg msg;
    out.bOpen = bFile ? msg.Open(dir.MakeFile(strMsg), true) : msg.Open(strMsg, false);
    out.strError = msg.GetLastError();
    out.vEntries = Entries(msg);
    return out;
}

uint32_t After(const std::string& s, const std::string& what) {
    const size_t n = s.rfind(what);
    EXPECT_NE(n, std::string::npos) << what;
    return static_cast<uint32_t>(n + what.size());
}

} // namespace

TEST(MimeLimit, PastTheLimitOnlyTheFirstExtraEntityIsListed) {
    CTempDir dir;
    // 3000 parts under one top: the top and 1999 parts are the 2000 entities, part 2000 is
    // over, and the 1000 behind it are walked over.
    std::string strSiblings = "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n";
    for (int i = 0; i < 3000; ++i) strSiblings += "--b\r\n\r\npart " + std::to_string(i) + "\r\n";
    strSiblings += "--b--\r\nepilogue\r\n";
    // 2600 levels: the entity at depth 2001 is over, and everything inside it is walked over.
    std::string strHead, strTail, strDepth;
    for (int i = 1; i < 2600; ++i) {
        const std::string b = "=_" + std::to_string(i) + "_=";
        strHead += "Content-Type: multipart/mixed; boundary=\"" + b + "\"\r\n\r\n--" + b + "\r\n";
        strTail = "\r\n--" + b + "--\r\n" + strTail;
    }
    const std::string strNested = strHead + "Content-Type: text/plain\r\n\r\ndeep" + strTail;
    for (int i = 0; i < 2000; ++i) strDepth += "1.";

    for (bool bFile : {false, true}) {
        SCOPED_TRACE(bFile ? "file" : "memory");
        const Opened sib = OpenIn(strSiblings, bFile, dir);
        EXPECT_FALSE(sib.bOpen);
        EXPECT_EQ(sib.strError, "In Open(), stack overflow.");
        ASSERT_EQ(sib.vEntries.size(), 2001u);
        EXPECT_EQ(sib.vEntries[1999].depth, "1999.");
        EXPECT_EQ(sib.vEntries[1999].beo, After(strSiblings, "part 1998\r\n"));
        EXPECT_EQ(sib.vEntries[2000].depth, "2000.");
        EXPECT_EQ(Offsets(sib.vEntries[2000]), std::vector<uint32_t>(8, 0));
        // The top still ends behind its closing delimiter.
        EXPECT_EQ(sib.vEntries[0].teo, After(strSiblings, "--b--"));

        const Opened deep = OpenIn(strNested, bFile, dir);
        EXPECT_FALSE(deep.bOpen);
        EXPECT_EQ(deep.strError, "In Open(), stack overflow.");
        ASSERT_EQ(deep.vEntries.size(), 2001u);
        EXPECT_EQ(deep.vEntries[2000].depth, strDepth);
        EXPECT_EQ(Offsets(deep.vEntries[2000]), std::vector<uint32_t>(8, 0));
        // Each level around it ends behind its own closing delimiter.
        for (int nLevel : {1, 1000, 1999}) {
            SCOPED_TRACE(nLevel);
            const Entry& e = deep.vEntries[nLevel];
            EXPECT_EQ(e.ct, CQLMimeConst::MULTIPART);
            EXPECT_EQ(e.beo, After(strNested, "--=_" + std::to_string(nLevel + 1) + "_=--"));
            EXPECT_EQ(e.teo, e.beo);
        }
        EXPECT_EQ(deep.vEntries[0].teo, After(strNested, "--=_1_=--"));
    }
}

namespace {

// A sparse file of nSize bytes that begins with strHead, or empty when the file system can't
// hold it.
std::string SparseFile(const CTempDir& dir, const std::string& strHead, off_t nSize) {
    const std::string strPath = dir.Path("sparse-" + std::to_string(nSize));
    const int nFD = open(strPath.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    if (nFD < 0) return std::string();
    const bool bOk =
        write(nFD, strHead.data(), strHead.size()) == static_cast<ssize_t>(strHead.size()) &&
        ftruncate(nFD, nSize) == 0;
    close(nFD);
    return bOk ? strPath : std::string();
}

} // namespace

TEST(MimeLimit, MessagesPast4GiBAreRefused) {
    CTempDir dir;
    // A multipart without a boundary: its parse reads the header and nothing behind it.
    const std::string strHead = "From: a\r\nContent-Type: multipart/mixed\r\n\r\n";
    const off_t n4GiB = off_t(1) << 32;
    for (off_t nSize : {n4GiB, n4GiB + 12345}) {
        const std::string strPath = SparseFile(dir, strHead, nSize);
        if (strPath.empty()) GTEST_SKIP() << "the file system holds no sparse file of 4 GiB";
        CQLMimeMsg msg;
        EXPECT_FALSE(msg.Open(strPath, true));
        EXPECT_EQ(msg.GetLastError(), "In Open(), message too large");
        EXPECT_TRUE(msg.empty());
        EXPECT_EQ(msg.GetFormat(), "");

        // The tool says so and fails.
        const char* pszTool = std::getenv("QLMAIL_TOOL");
        if (pszTool == nullptr) continue;
        const std::string strCmd = std::string("'") + pszTool + "' parts '" + strPath + "' 2>&1";
        FILE* pPipe = popen(strCmd.c_str(), "r");
        ASSERT_NE(pPipe, nullptr);
        char szLine[512] = "";
        const bool bLine = fgets(szLine, sizeof(szLine), pPipe) != nullptr;
        const int nStatus = pclose(pPipe);
        EXPECT_TRUE(bLine);
        EXPECT_EQ(std::string(szLine), "qlmail: " + strPath + ": In Open(), message too large\n");
        EXPECT_EQ(WEXITSTATUS(nStatus), 1);
    }

    // One byte less still opens, with the offsets of its header.
    const std::string strPath = SparseFile(dir, strHead, n4GiB - 1);
    ASSERT_FALSE(strPath.empty());
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open(strPath, true)) << msg.GetLastError();
    ASSERT_EQ(msg.size(), 1u);
    const uint32_t nHdrEnd = static_cast<uint32_t>(strHead.size() - 2);
    EXPECT_EQ(Offsets(EntryOf(*msg[0])),
              (std::vector<uint32_t>{0, nHdrEnd, 0, 0, 0, nHdrEnd, 0, 0}));
    EXPECT_EQ(msg[0]->m_CT, CQLMimeConst::MULTIPART);
}

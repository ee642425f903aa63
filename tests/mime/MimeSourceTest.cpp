// The two message sources: memory and file, and where they deliberately differ.
#include "mime/MimeTestUtil.h"

#include <fcntl.h>
#include <sstream>

namespace {

struct Sources {
    CTempDir dir;
    CQLMimeStr mem;
    CQLMimeFile file;
    explicit Sources(const std::string& strData) {
        mem.SetData(strData, false);
        EXPECT_TRUE(file.SetData(dir.MakeFile(strData), true)) << file.GetLastError();
    }
};

} // namespace

TEST(MimeSource, FindCountsLinesDifferently) {
    Sources src("ab\ncd\nXY\nef");
    int nMemLine = 100, nFileLine = 0, bCRLF = 0;
    // Memory replaces the counter and counts the newline at the match; a file adds to it.
    EXPECT_EQ(src.mem.Find("\nXY", 1, &nMemLine, &bCRLF), 5u);
    EXPECT_EQ(nMemLine, 2);
    EXPECT_EQ(src.file.Find("\nXY", 1, &nFileLine, &bCRLF), 5u);
    EXPECT_EQ(nFileLine, 1);
    EXPECT_EQ(bCRLF, 0);
    // The CR LF test looks at the place where the search began, not at the match.
    Sources crlf("ab\r\nxyz\r\nxyz");
    for (CQLIMimeStr* p :
         {static_cast<CQLIMimeStr*>(&crlf.mem), static_cast<CQLIMimeStr*>(&crlf.file)}) {
        bCRLF = 0;
        EXPECT_EQ(p->Find("xyz", 1, nullptr, &bCRLF), 4u);
        EXPECT_EQ(bCRLF, 0);
        EXPECT_EQ(p->Find("xyz", 0, nullptr, &bCRLF), 4u);
        EXPECT_EQ(bCRLF, 1);
        bCRLF = 0;
        EXPECT_EQ(p->Find("xyz", 6, nullptr, &bCRLF), 9u);
        EXPECT_EQ(bCRLF, 0);
    }
    // Past the end: not found, without a text.
    EXPECT_EQ(src.mem.Find("ab", 50, nullptr, nullptr), CQLIMimeStr::NOT_FOUND);
    EXPECT_EQ(src.file.Find("ab", 11, nullptr, nullptr), CQLIMimeStr::NOT_FOUND);
    EXPECT_EQ(src.file.GetLastError(), "");
}

TEST(MimeSource, MemorySearchCountsLinesAtEveryVectorEdge) {
    // Matches and near misses at each position around the 16- and 32-byte steps of the
    // vector search, with newlines and candidate first bytes scattered before them.
    for (size_t nLen = 0; nLen < 140; ++nLen) {
        std::string strHay;
        for (size_t i = 0; i < nLen; ++i) strHay += "ab\n-"[(i * 7 + nLen) % 4];
        for (const std::string strFind : {"\n--zz", "\n-", "zz", "\n"}) {
            for (size_t nAt = 0; nAt <= nLen; nAt += 5) {
                const std::string strData = strHay.substr(0, nAt) + strFind + strHay.substr(nAt);
                CQLMimeStr mem;
                mem.SetData(strData, false);
                for (unsigned long nFrom : {0ul, 1ul, 3ul}) {
                    int nLine = -1;
                    const size_t nExpect = strData.find(strFind, nFrom);
                    const unsigned long nHit = mem.Find(strFind, nFrom, &nLine, nullptr);
                    SCOPED_TRACE(strData + " from " + std::to_string(nFrom));
                    if (nExpect == std::string::npos) {
                        EXPECT_EQ(nHit, CQLIMimeStr::NOT_FOUND);
                        if (nFrom > strData.size()) continue;
                        // Without a match the whole haystack is counted.
                        unsigned long nLF = 0;
                        EXPECT_EQ(CQLIMimeStr::FindBytes(strData.data() + nFrom,
                                                         strData.size() - nFrom, strFind.data(),
                                                         strFind.size(), &nLF),
                                  nullptr);
                        EXPECT_EQ(nLF, CQLIMimeStr::GetLineCnt(strData.data() + nFrom,
                                                               strData.size() - nFrom));
                        continue;
                    }
                    ASSERT_EQ(nHit, nExpect);
                    EXPECT_EQ(static_cast<unsigned long>(nLine),
                              CQLIMimeStr::GetLineCnt(strData, nFrom, nExpect));
                }
            }
        }
    }
}

TEST(MimeSource, FileSearchesInOverlappingBlocks) {
    std::string strData(10000, 'a');
    for (size_t i = 100; i < strData.size(); i += 100) strData[i] = '\n';
    strData.replace(4094, 5, "\n--zz"); // straddles the first block edge
    strData.replace(8190, 5, "\n--zz");
    Sources src(strData);
    int nLines = 0;
    EXPECT_EQ(src.file.Find("\n--zz", 0, &nLines, nullptr), 4094u);
    EXPECT_EQ(nLines, 41);
    EXPECT_EQ(src.file.Find("\n--zz", 4095, nullptr, nullptr), 8190u);
    EXPECT_EQ(src.mem.Find("\n--zz", 4095, nullptr, nullptr), 8190u);
    // A pattern of a whole block never fits a block.
    const std::string strLong = strData.substr(200, 4096);
    EXPECT_EQ(src.mem.Find(strLong, 0, nullptr, nullptr), 200u);
    EXPECT_EQ(src.file.Find(strLong, 0, nullptr, nullptr), CQLIMimeStr::NOT_FOUND);
}

TEST(MimeSource, FileSearchSeesWhatAnEarlierBlockLeftBehind) {
    std::string strData(4200, '.');
    strData.replace(300, 3, "XYZ");
    Sources src(strData);
    EXPECT_EQ(src.file.Find("XYZ", 0, nullptr, nullptr), 300u);
    // The last block is short: behind its NUL the scratch buffer still holds the first
    // block, and its "XYZ" is taken as a match past the end of the file.
    EXPECT_EQ(src.file.Find("XYZ", 4150, nullptr, nullptr), 4450u);
    EXPECT_EQ(src.mem.Find("XYZ", 4150, nullptr, nullptr), CQLIMimeStr::NOT_FOUND);
}

TEST(MimeSource, LineCountsAndSubStrings) {
    Sources src("a\nb\nc");
    // Memory includes the byte behind the range; a file does not, and refuses an empty range.
    EXPECT_EQ(src.mem.FastLineCnt(0, 1), 1u);
    EXPECT_EQ(src.file.FastLineCnt(0, 1), 0u);
    EXPECT_EQ(src.mem.FastLineCnt(1, 0), 1u);
    EXPECT_EQ(src.mem.FastLineCnt(0, 0), 0u);
    EXPECT_EQ(src.file.FastLineCnt(1, 0), 0u);
    EXPECT_EQ(src.file.GetLastError(), "In CQLMimeFile::FastLineCnt(), invalid parameter");
    EXPECT_EQ(src.file.FastLineCnt(0, 5), 2u);

    char szBuf[16];
    EXPECT_EQ(src.mem.SubStr(szBuf, 1, 0), 0u);
    EXPECT_EQ(src.mem.GetLastError(), "In CQLMimeStr::SubStr, invalid parameter");
    EXPECT_EQ(src.file.SubStr(szBuf, 1, 0), 0u);
    EXPECT_EQ(src.file.GetLastError(), "In CQLMimeFile::SubStr(), invalid parameter");
    Sources other("xyz");
    EXPECT_EQ(other.mem.SubStr(1, 0), "");
    EXPECT_EQ(other.mem.GetLastError(), "In CQLMimeStr::SubStr, invalid parameter");
    EXPECT_EQ(other.file.SubStr(1, 0), "");
    EXPECT_EQ(other.file.GetLastError(), "");

    // Ranges running past the end give what exists.
    for (CQLIMimeStr* p :
         {static_cast<CQLIMimeStr*>(&src.mem), static_cast<CQLIMimeStr*>(&src.file)}) {
        std::string strOut;
        EXPECT_EQ(p->SubStr(2, 100), "b\nc");
        EXPECT_EQ(p->SubStr(2, 1), "b");
        EXPECT_EQ(p->SubStr(2, 100, strOut), 3u);
        EXPECT_EQ(strOut, "b\nc");
        EXPECT_EQ(p->SubStr(szBuf, 4, 100), 1u);
        EXPECT_STREQ(szBuf, "c");
        EXPECT_EQ(p->GetChar(4), 'c');
        EXPECT_EQ(p->GetChar(5), '\0');
        EXPECT_EQ(p->GetChar(100000), '\0');
    }
    EXPECT_EQ(src.file.SubStr(szBuf, 5, 3), 0u);
    EXPECT_EQ(src.file.GetLastError(), "In SubStr(), end of file.");
}

TEST(MimeSource, StreamsAndDescriptors) {
    std::string strData(3000, 'z');
    strData[10] = '\0';
    Sources src(strData);
    // A file delivers text: each 1024-byte block only up to its first NUL.
    std::ostringstream fileOut, memOut;
    EXPECT_EQ(src.file.SubStr(0, 3000, fileOut), 3000u);
    EXPECT_EQ(fileOut.str(), std::string(10, 'z') + std::string(1976, 'z'));
    EXPECT_EQ(src.mem.SubStr(0, 3000, memOut), 3000u);
    EXPECT_EQ(memOut.str(), strData);
    EXPECT_THROW(src.mem.SubStr(4000, 1, memOut), std::out_of_range);

    const std::string strPath = src.dir.Path("out");
    for (CQLIMimeStr* p :
         {static_cast<CQLIMimeStr*>(&src.mem), static_cast<CQLIMimeStr*>(&src.file)}) {
        const int nFD = open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ASSERT_GE(nFD, 0);
        EXPECT_EQ(p->SubStr(5, 2995, nFD), 2995u);
        close(nFD);
        EXPECT_EQ(CTempDir::ReadAll(strPath), strData.substr(5));
        CQLFileParser out;
        out.SetFileName(strPath, false);
        ASSERT_TRUE(out.Open(CQLFileParser::FILE_WRITE | CQLFileParser::FILE_TRUNC));
        EXPECT_EQ(p->SubStr(2000, 1000, out), 1000u);
        out.Close();
        EXPECT_EQ(CTempDir::ReadAll(strPath), strData.substr(2000));
    }
}

TEST(MimeSource, LoadingAFile) {
    CTempDir dir;
    CQLMimeFile file;
    EXPECT_FALSE(file.SetData(dir.Path("missing/msg.eml"), true));
    EXPECT_EQ(file.GetLastError(), "In SetData(), In Open(" + dir.Path("missing/msg.eml") +
                                       "), No such file or directory");
    EXPECT_EQ(file.GetLength(), 0u);
    ASSERT_TRUE(file.SetData(dir.MakeFile("12345"), true));
    EXPECT_EQ(file.GetLength(), 5u);
    EXPECT_EQ(file.GetType(), 1);
    // A second load reopens and forgets what was read before.
    EXPECT_EQ(file.SubStr(0, 5), "12345");
    ASSERT_TRUE(file.SetData(dir.MakeFile("abc"), true));
    EXPECT_EQ(file.SubStr(0, 5), "abc");
    file.Close();
    EXPECT_EQ(file.SubStr(0, 5), "");
    EXPECT_EQ(CQLIMimeStr::GetLineCnt("a\nb\n", 3), 1u);
    EXPECT_EQ(CQLIMimeStr::GetLineCnt(nullptr, 3), 0u);
    EXPECT_EQ(CQLIMimeStr::GetLineCnt(std::string("a\nb\n"), 1, 3), 2u);
}

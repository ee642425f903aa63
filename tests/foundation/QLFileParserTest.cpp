#include "foundation/QLFileParser.h"
#include "foundation/TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Reaches the fields that have no accessor.
class CProbe : public CQLFileParser {
public:
    using CQLFileParser::CQLFileParser;
    const std::string& Ext() const { return m_strFileExt; }
    const std::string& Dir() const { return m_strPath; }
    int Mode() const { return m_nMode; }
    long long FilePos() const { return m_nFilePos; }
    int BufferLen() const { return m_nBufferLen; }
};

std::string Cwd() {
    char sz[4096];
    EXPECT_NE(getcwd(sz, sizeof(sz)), nullptr);
    std::string str = sz;
    if (str.back() != '/') str += '/';
    return str;
}

bool FdIsOpen(int nFD) {
    return fcntl(nFD, F_GETFD) != -1;
}

const int kRead = CQLFileParser::FILE_READ | CQLFileParser::FILE_BINARY;
const int kStream = CQLFileParser::FILE_STREAM;

class FileParser : public ::testing::Test {
protected:
    CTempDir m_tmp;
};

// Both read forms: descriptor and stream.
class FileParserForms : public FileParser, public ::testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Forms, FileParserForms, ::testing::Values(0, kStream),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return info.param ? std::string("Stream") : std::string("Descriptor");
                         });

} // namespace

TEST(FileParserName, SplitsAndNormalisesPaths) {
    const std::string strCwd = Cwd();
    struct Case {
        const char* pszName;
        bool bNormalize;
        std::string strPath;
        const char* pszBase;
    } cases[] = {
        {"plain.eml", false, strCwd, "plain.eml"},
        {"plain.eml", true, strCwd, "plain.eml"},
        {"/a/./b/../c/f", true, "//a/c/", "f"},
        {"/a/./b/../c/f", false, "/a/./b/../c/", "f"},
        {"/a/../b/f", true, "//b/", "f"},
        {"/../a/f", true, "/a/", "f"},
        {"/../../a/f", true, "/../a/", "f"},
        {"/a//b/f", true, "//a//b/", "f"},
        {"/f", true, "//", "f"},
        {"x/../y/f", true, "/" + strCwd + "y/", "f"},
        {"x/../y/f", false, "x/../y/", "f"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszName);
        CProbe f(c.pszName, c.bNormalize);
        EXPECT_EQ(f.Dir(), c.strPath);
        EXPECT_EQ(f.GetFileName(), c.pszBase);
        EXPECT_EQ(f.GetPath(), c.strPath + c.pszBase);
    }
}

TEST(FileParserName, TrailingSlashThrowsAndKeepsWhatWasSet) {
    CProbe f;
    try {
        f.SetFileName("/var/mail/", true);
        FAIL() << "no throw";
    } catch (CQLFileParser& e) {
        EXPECT_EQ(e.GetLastError(), "In SetFileName(), invalid filename[/var/mail/]");
    }
    EXPECT_EQ(f.GetLastError(), "In SetFileName(), invalid filename[/var/mail/]");
    EXPECT_EQ(f.Dir(), "/var/mail/");
    EXPECT_EQ(f.GetFileName(), "");
    EXPECT_THROW({ CQLFileParser oBad("dir/", false); }, CQLFileParser);
}

TEST(FileParserName, SetFileExtTakesTextAfterLastInnerDot) {
    struct Case {
        const char* pszName;
        const char* pszExt;
    } cases[] = {{"a.b.txt", "txt"}, {".profile", "old"}, {"noext", "old"},
                 {"", "old"},        {"x.", ""},          {nullptr, "old"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszName ? c.pszName : "(null)");
        CProbe f;
        std::string strUnused;
        f.SetFileExt("seed.old", strUnused);
        EXPECT_EQ(f.SetFileExt(c.pszName, strUnused), 0);
        EXPECT_EQ(f.Ext(), c.pszExt);
    }
}

TEST_F(FileParser, OpenFailuresGiveTheirTexts) {
    const std::string strFile = m_tmp.MakeFile("x");
    const std::string strMissing = m_tmp.Path("nodir/m.eml");
    const std::string strUnderFile = strFile + "/m.eml";
    struct Case {
        std::string strPath;
        int nMode;
        std::string strText;
    } cases[] = {
        {strMissing, kRead, "In Open(" + strMissing + "), " + strerror(ENOENT)},
        {strMissing, CQLFileParser::FILE_WRITE, "In Open(" + strMissing + "), " + strerror(ENOENT)},
        {strUnderFile, kRead, "In Open(" + strUnderFile + "), " + strerror(ENOTDIR)},
        // The stream form names only the base name.
        {strMissing, kRead | kStream, std::string("In Open(m.eml), ") + strerror(ENOENT)},
        {strUnderFile, CQLFileParser::FILE_RW | kStream,
         std::string("In Open(m.eml), ") + strerror(ENOTDIR)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strPath + " mode " + std::to_string(c.nMode));
        CQLFileParser f(c.strPath, false);
        EXPECT_FALSE(f.Open(c.nMode));
        EXPECT_FALSE(f.IsOpen());
        EXPECT_EQ(f.GetFD(), -1);
        EXPECT_EQ(f.GetLastError(), c.strText);
    }
    // No access bit at all: an empty stream mode, which the system library refuses.
    CQLFileParser f(strFile, false);
    EXPECT_FALSE(f.Open(CQLFileParser::FILE_BINARY | kStream));
    EXPECT_EQ(f.GetLastError(), "In Open(" + f.GetFileName() + "), " + strerror(EINVAL));
}

TEST_F(FileParser, OpenWithoutNameLeavesAGivenDescriptorAlone) {
    const std::string strFile = m_tmp.MakeFile("abc");
    const int nFD = open(strFile.c_str(), O_RDONLY);
    ASSERT_GE(nFD, 0);
    {
        CQLFileParser f;
        f.SetFD(nFD);
        EXPECT_FALSE(f.Open(kRead));
        EXPECT_EQ(f.GetLastError(), "In Open(), m_strFileName is empty, Please make sure "
                                    "SetFileName(), before call Open()");
        EXPECT_FALSE(f.IsOpen());
        char sz[4] = {0};
        EXPECT_EQ(f.Read(sz, 3), 3u);
        EXPECT_STREQ(sz, "abc");
        EXPECT_EQ(f.GetSize(), 3);
        EXPECT_THROW(f.Write("z", 1), CQLFileParser);
        EXPECT_EQ(f.GetLastError(), "In Write(), Access denied, This file has ReadOnly flag.");
        f.Close();
    }
    // Neither Close nor the destructor closes a descriptor handed in by SetFD.
    EXPECT_TRUE(FdIsOpen(nFD));
    close(nFD);
}

TEST(FileParserPipe, UnseekableDescriptor) {
    int aFD[2];
    ASSERT_EQ(pipe(aFD), 0);
    ASSERT_EQ(write(aFD[1], "abc", 3), 3);
    close(aFD[1]);
    CQLFileParser f;
    f.SetFD(aFD[0]);
    char c = 0;
    ASSERT_TRUE(f.ReadFromBuffer(c));
    // The count starts from the failed lseek's -1, and only a count above 0 is trusted.
    EXPECT_EQ(f.GetPos(), -1);
    ASSERT_TRUE(f.ReadFromBuffer(c));
    EXPECT_EQ(c, 'b');
    EXPECT_EQ(f.GetPos(), 1);
    EXPECT_FALSE(f.SetPos(0, CQLFileParser::POS_SET));
    EXPECT_EQ(f.GetLastError(),
              std::string("In SetPos(), off_t[0], pos[0], size[0], err[") + strerror(ESPIPE) + "]");
    close(aFD[0]);
}

TEST_F(FileParser, PermissionDeniedOpen) {
    if (geteuid() == 0) GTEST_SKIP() << "running as root, which ignores file permissions";
    const std::string strFile = m_tmp.MakeFile("x");
    ASSERT_EQ(chmod(strFile.c_str(), 0444), 0);
    CQLFileParser f(strFile, false);
    EXPECT_FALSE(f.Open(CQLFileParser::FILE_WRITE));
    EXPECT_EQ(f.GetLastError(), "In Open(" + strFile + "), " + strerror(EACCES));
}

TEST_F(FileParser, WriteRefusals) {
    const std::string strFile = m_tmp.MakeFile("keep");
    for (int nForm : {0, kStream}) {
        CQLFileParser f(strFile, false);
        ASSERT_TRUE(f.Open(kRead | nForm));
        try {
            f.Write("new", 3);
            FAIL() << "no throw";
        } catch (CQLExceptionParser& e) {
            // The object itself flies, so a handler can tell the file class apart.
            EXPECT_NE(dynamic_cast<CQLFileParser*>(&e), nullptr);
            EXPECT_EQ(e.GetLastError(), "In Write(), Access denied, This file has ReadOnly flag.");
        }
        EXPECT_THROW(f.Write(std::string()), CQLFileParser);
        try {
            f.Write(nullptr, 3);
            FAIL() << "no throw";
        } catch (CQLFileParser& e) {
            EXPECT_EQ(e.GetLastError(), "In Write(), Invalid data ptr.");
        }
    }
    EXPECT_EQ(CTempDir::ReadAll(strFile), "keep");
}

TEST_F(FileParser, WriteModes) {
    using P = CQLFileParser;
    struct Case {
        const char* pszWhat;
        int nMode;
        const char* pszResult;
    } cases[] = {
        {"write without truncate overwrites in place", P::FILE_WRITE, "XYcdef"},
        {"truncate", P::FILE_WRITE | P::FILE_TRUNC | P::FILE_BINARY, "XY"},
        {"read-write", P::FILE_RW, "XYcdef"},
        {"append", P::FILE_APPEND, "abcdefXY"},
        {"stream write", P::FILE_WRITE | kStream, "XY"},
        {"stream append", P::FILE_WRITE | P::FILE_APPEND | kStream, "abcdefXY"},
        {"stream read-write", P::FILE_RW | kStream | P::FILE_BINARY, "XY"},
        {"stream append read-write", P::FILE_RW | P::FILE_APPEND | kStream, "abcdefXY"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszWhat);
        const std::string strFile = m_tmp.MakeFile("abcdef");
        CQLFileParser f(strFile, false);
        ASSERT_TRUE(f.Open(c.nMode));
        EXPECT_TRUE(f.IsOpen());
        EXPECT_EQ(f.Write(std::string("XY")), 2);
        EXPECT_EQ(f.Write("Z", 0), 0);
        EXPECT_TRUE(f.Flush());
        f.Close();
        EXPECT_EQ(CTempDir::ReadAll(strFile), c.pszResult);
    }
}

TEST_F(FileParser, WriteWithAppendAsksForWriteOnlyAndReadWriteAtOnce) {
    // O_WRONLY | O_RDWR is the access mode that allows neither reading nor writing.
    const std::string strFile = m_tmp.MakeFile("abc");
    CQLFileParser f(strFile, false);
    ASSERT_TRUE(f.Open(CQLFileParser::FILE_WRITE | CQLFileParser::FILE_APPEND));
    try {
        f.Write("x", 1);
        FAIL() << "no throw";
    } catch (CQLFileParser& e) {
        EXPECT_EQ(e.GetLastError(), "In Write(" + f.GetFileName() + "), " + strerror(EBADF));
    }
    EXPECT_EQ(CTempDir::ReadAll(strFile), "abc");
}

TEST_F(FileParser, NewFilesGetTheUsualPermissions) {
    const mode_t nOld = umask(027);
    CQLFileParser f(m_tmp.Path("new.eml"), false);
    const bool bOpened = f.Open(CQLFileParser::FILE_WRITE | CQLFileParser::FILE_TRUNC);
    umask(nOld);
    ASSERT_TRUE(bOpened);
    struct stat st;
    ASSERT_EQ(stat(f.GetPath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_TRUE(f.Exists());
    EXPECT_TRUE(CQLFileParser::Exists(f.GetPath()));
    EXPECT_FALSE(CQLFileParser::Exists(m_tmp.Path("absent")));
}

TEST_P(FileParserForms, ReadLineAndItsLineEnds) {
    struct Case {
        const char* pszWhat;
        std::string strContent;
        bool bStrip;
        std::vector<std::string> vLines;
    } cases[] = {
        {"crlf stripped", "a\r\nb", true, {"a", "b"}},
        {"crlf kept", "a\r\nb", false, {"a\r\n", "b"}},
        {"one lf", "\n", true, {""}},
        {"one lf kept", "\n", false, {"\n"}},
        {"only one cr removed", "x\r\r\ny\n", true, {"x\r", "y"}},
        {"lone cr is no line end", "p\rq\n", true, {"p\rq"}},
        {"empty lines", "\n\r\n\n", true, {"", "", ""}},
        {"empty file", "", true, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszWhat);
        CQLFileParser f(m_tmp.MakeFile(c.strContent), false);
        ASSERT_TRUE(f.Open(kRead | GetParam()));
        std::string strLine = "stale";
        for (const std::string& strWant : c.vLines) {
            ASSERT_TRUE(f.ReadLine(strLine, c.bStrip));
            EXPECT_EQ(strLine, strWant);
        }
        EXPECT_FALSE(f.ReadLine(strLine, c.bStrip));
        EXPECT_EQ(strLine, "");
        EXPECT_TRUE(f.IsEnd());
        EXPECT_FALSE(f.ReadLine(strLine, c.bStrip));
    }
}

TEST_P(FileParserForms, LinesAcrossTheReadAheadBoundary) {
    // About 40 KiB of lines of every length from 0 to 600, the last one without its LF.
    std::string strContent;
    std::vector<std::string> vWant;
    for (size_t n = 0; strContent.size() < 40000; n = (n + 37) % 601) {
        vWant.push_back(PatternBytes(n));
        strContent += vWant.back() + (n % 2 ? "\r\n" : "\n");
    }
    vWant.push_back("tail without line end");
    strContent += vWant.back();

    CQLFileParser f(m_tmp.MakeFile(strContent), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    std::string strLine;
    size_t nLine = 0, nPos = 0;
    while (f.ReadLine(strLine, true)) {
        ASSERT_LT(nLine, vWant.size());
        ASSERT_EQ(strLine, vWant[nLine]) << "line " << nLine;
        nPos = strContent.find('\n', nPos);
        if (nPos != std::string::npos) {
            ++nPos;
            EXPECT_EQ(f.GetPos(), static_cast<long long>(nPos)) << "line " << nLine;
        }
        ++nLine;
    }
    EXPECT_EQ(nLine, vWant.size());
    EXPECT_TRUE(f.IsEnd());
}

TEST_P(FileParserForms, ReadFromBufferToTheEnd) {
    const std::string strContent = PatternBytes(8192 * 2 + 5);
    CQLFileParser f(m_tmp.MakeFile(strContent), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    std::string strGot;
    char c = 0;
    while (f.ReadFromBuffer(c)) {
        strGot += c;
        ASSERT_EQ(f.GetPos(), static_cast<long long>(strGot.size()));
    }
    EXPECT_EQ(strGot, strContent);
    EXPECT_TRUE(f.IsEnd());
    // End of file is no failure: no throw, but the text is left behind.
    EXPECT_EQ(f.GetLastError(), "In ReadFromBuffer(" + f.GetFileName() + "), End Of File");
    EXPECT_FALSE(f.ReadFromBuffer(c));
}

TEST_P(FileParserForms, ReadOverwritesWhatTheBufferGave) {
    const std::string strContent = PatternBytes(20000);
    CProbe f(m_tmp.MakeFile(strContent), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    char c = 0;
    ASSERT_TRUE(f.ReadFromBuffer(c));
    EXPECT_EQ(c, strContent[0]);
    ASSERT_EQ(f.BufferLen(), 8191);

    // Less than buffered: served from the buffer alone.
    std::vector<char> vBuf(9000, '\0');
    EXPECT_EQ(f.Read(vBuf.data(), 10), 10u);
    EXPECT_EQ(std::string(vBuf.data(), 10), strContent.substr(1, 10));
    EXPECT_EQ(f.FilePos(), -1);

    // More than buffered: the 8181 buffered bytes are copied, then the next 4 bytes of the
    // file land on top of them and only those 4 are counted.
    EXPECT_EQ(f.Read(vBuf.data(), 8185), 4u);
    EXPECT_EQ(std::string(vBuf.data(), 4), strContent.substr(8192, 4));
    EXPECT_EQ(std::string(vBuf.data() + 4, 8181 - 4), strContent.substr(11 + 4, 8181 - 4));
    EXPECT_EQ(f.GetPos(), 8196);

    // Exactly what is buffered: delivered, but reported as 0.
    ASSERT_TRUE(f.SetPos(0, CQLFileParser::POS_SET));
    ASSERT_TRUE(f.ReadFromBuffer(c));
    EXPECT_EQ(f.Read(vBuf.data(), 8191), 0u);
    EXPECT_EQ(std::string(vBuf.data(), 8191), strContent.substr(1, 8191));
    EXPECT_FALSE(f.IsEnd());
}

TEST_P(FileParserForms, ReadReportsTheEndAsEachFormDoes) {
    CQLFileParser f(m_tmp.MakeFile("0123456789"), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    std::string str;
    EXPECT_EQ(f.Read(str, 4), 4u);
    EXPECT_EQ(str, "0123");
    EXPECT_FALSE(f.IsEnd());
    EXPECT_EQ(f.Read(str, 100), 6u);
    EXPECT_EQ(str, "456789");
    // The descriptor form meets the end inside the short read; the stream form leaves it to
    // the next call.
    EXPECT_EQ(f.IsEnd(), GetParam() == 0);
    EXPECT_EQ(f.Read(str, 100), 0u);
    EXPECT_EQ(str, "");
    EXPECT_TRUE(f.IsEnd());
    EXPECT_EQ(f.Read(nullptr, 5), 0u);
}

TEST_P(FileParserForms, SetPosAndTheEndFlag) {
    const std::string strContent = "0123456789";
    CQLFileParser f(m_tmp.MakeFile(strContent), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    std::string strLine;
    ASSERT_TRUE(f.ReadLine(strLine, true));
    ASSERT_TRUE(f.IsEnd());

    // To the end or beyond: the flag stays.
    EXPECT_TRUE(f.SetPos(0, CQLFileParser::POS_END));
    EXPECT_TRUE(f.IsEnd());
    EXPECT_TRUE(f.SetPos(25, CQLFileParser::POS_SET));
    EXPECT_TRUE(f.IsEnd());

    // Inside the file: cleared, with the buffer emptied.
    EXPECT_TRUE(f.SetPos(0, CQLFileParser::POS_SET));
    EXPECT_FALSE(f.IsEnd());
    char c = 0;
    ASSERT_TRUE(f.ReadFromBuffer(c));
    EXPECT_EQ(c, '0');

    using P = CQLFileParser;
    struct Seek {
        long nOffset;
        int nPos;
    };
    struct Case {
        std::vector<Seek> vSeeks;
        char cNext;
    } cases[] = {
        {{{3, P::POS_SET}}, '3'},  {{{3, P::POS_SET}, {2, P::POS_CUR}}, '5'},
        {{{-1, P::POS_END}}, '9'}, {{{-4, P::POS_END}}, '6'},
        {{{7, 7}}, '7'}, // an unknown origin counts from the start
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.cNext);
        for (const Seek& s : k.vSeeks)
            ASSERT_TRUE(f.SetPos(s.nOffset, static_cast<P::POS>(s.nPos)));
        ASSERT_TRUE(f.ReadFromBuffer(c));
        EXPECT_EQ(c, k.cNext);
    }
}

TEST_P(FileParserForms, SetPosInAnEmptyFileKeepsTheEnd) {
    CQLFileParser f(m_tmp.MakeFile(""), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    char c = 0;
    EXPECT_FALSE(f.ReadFromBuffer(c));
    ASSERT_TRUE(f.IsEnd());
    EXPECT_TRUE(f.SetPos(0, CQLFileParser::POS_SET));
    EXPECT_TRUE(f.IsEnd());
}

TEST_P(FileParserForms, SetPosFailureText) {
    CQLFileParser f(m_tmp.MakeFile("0123456789"), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    EXPECT_FALSE(f.SetPos(-5, CQLFileParser::POS_SET));
    EXPECT_EQ(f.GetLastError(), "In SetPos(" + f.GetFileName() +
                                    "), off_t[-5], pos[0], size[10], err[" + strerror(EINVAL) +
                                    "]");

    // The text is cut to 255 bytes.
    const std::string strLong(200, 'n');
    CQLFileParser g(m_tmp.Path(strLong), false);
    ASSERT_TRUE(g.Open(CQLFileParser::FILE_RW | GetParam()));
    ASSERT_EQ(g.Write(std::string("abc")), 3);
    ASSERT_TRUE(g.Flush());
    EXPECT_FALSE(g.SetPos(-123456789, CQLFileParser::POS_CUR));
    const std::string strFull = "In SetPos(" + strLong +
                                "), off_t[-123456789], pos[1], size[3], err[" + strerror(EINVAL) +
                                "]";
    ASSERT_GT(strFull.size(), 255u);
    EXPECT_EQ(g.GetLastError(), strFull.substr(0, 255));
}

TEST_P(FileParserForms, IsLFLooksAtTheFirstLineEnd) {
    struct Case {
        const char* pszContent;
        bool bLF;
    } cases[] = {{"ab\ncd\r\n", true}, {"ab\r\ncd\n", false}, {"abc", false}, {"", false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszContent);
        CQLFileParser f(m_tmp.MakeFile(c.pszContent), false);
        ASSERT_TRUE(f.Open(kRead | GetParam()));
        EXPECT_EQ(f.IsLF(), c.bLF);
    }
}

TEST_P(FileParserForms, ReadOfADirectoryThrows) {
    CQLFileParser d(m_tmp.Dir(), false);
    ASSERT_TRUE(d.Open(kRead | GetParam()));
    char sz[8];
    try {
        d.Read(sz, sizeof(sz));
        FAIL() << "no throw";
    } catch (CQLFileParser& e) {
        EXPECT_EQ(e.GetLastError(), "In Read(" + d.GetFileName() + "), " + strerror(EISDIR));
    }
    // ReadLine passes a read failure on as a plain exception.
    std::string strLine;
    try {
        d.ReadLine(strLine, true);
        FAIL() << "no throw";
    } catch (CQLFileParser&) {
        FAIL() << "should be a plain CQLExceptionParser";
    } catch (CQLExceptionParser& e) {
        EXPECT_EQ(e.GetLastError(), "In Read(" + d.GetFileName() + "), " + strerror(EISDIR));
        EXPECT_EQ(e.GetErrorCode(), 0);
    }
    EXPECT_FALSE(d.IsLF());
}

TEST_P(FileParserForms, ReopenKeepsTheReadAhead) {
    CQLFileParser f(m_tmp.MakeFile("abc"), false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    char c = 0;
    ASSERT_TRUE(f.ReadFromBuffer(c));
    EXPECT_EQ(c, 'a');
    ASSERT_TRUE(f.Open(kRead | GetParam())); // closes and opens again
    ASSERT_TRUE(f.ReadFromBuffer(c));
    EXPECT_EQ(c, 'b');
}

TEST_F(FileParser, SizesAndTheirFailures) {
    const std::string strFile = m_tmp.MakeFile(PatternBytes(12345));
    EXPECT_EQ(CQLFileParser::GetSize(strFile), 12345);
    CQLFileParser f(strFile, false);
    EXPECT_EQ(f.GetSize(), 12345); // by path while closed
    ASSERT_TRUE(f.Open(kRead | kStream));
    EXPECT_EQ(f.GetSize(), 12345);
    EXPECT_GE(f.GetFD(), 0);
    EXPECT_EQ(f.GetSize(), 12345); // by the stream's descriptor now

    try {
        CQLFileParser::GetSize(m_tmp.Path("absent"));
        FAIL() << "no throw";
    } catch (CQLFileParser&) {
        FAIL() << "the static form has no object to throw";
    } catch (CQLExceptionParser& e) {
        EXPECT_EQ(e.GetLastError(), std::string("In GetSize(), ") + strerror(ENOENT));
    }

    const int nClosed = open(strFile.c_str(), O_RDONLY);
    ASSERT_GE(nClosed, 0);
    close(nClosed);
    CQLFileParser g;
    g.SetFD(nClosed);
    try {
        g.GetSize();
        FAIL() << "no throw";
    } catch (CQLFileParser& e) {
        EXPECT_EQ(e.GetLastError(), std::string("In GetSize(), ") + strerror(EBADF));
    }
}

TEST_F(FileParser, CloseRules) {
    CProbe never;
    never.Close();
    never.Close();
    EXPECT_FALSE(never.IsOpen());

    CProbe f(m_tmp.MakeFile("abc"), false);
    ASSERT_TRUE(f.Open(kRead));
    std::string str;
    f.Read(str, 10);
    ASSERT_TRUE(f.IsEnd());
    f.Close();
    EXPECT_FALSE(f.IsOpen());
    EXPECT_FALSE(f.IsEnd());
    EXPECT_EQ(f.GetFD(), -1);
    EXPECT_EQ(f.Mode(), 0);
    EXPECT_FALSE(f.GetFileName().empty()); // the name stays for a later Open
    f.Close();
    ASSERT_TRUE(f.Open(kRead));
    EXPECT_EQ(f.Mode(), kRead | CQLFileParser::FILE_OPENED);
}

TEST_F(FileParser, AssignmentSharesTheHandleAndTheSecondCloseFails) {
    CProbe a(m_tmp.MakeFile("abc"), false);
    ASSERT_TRUE(a.Open(kRead));
    {
        CProbe b;
        b = a;
        EXPECT_EQ(b.GetFD(), a.GetFD());
        EXPECT_TRUE(b.IsOpen());
        b.Close();
    }
    try {
        a.Close();
        FAIL() << "no throw";
    } catch (CQLFileParser& e) {
        EXPECT_EQ(e.GetLastError(), "In Close(" + a.GetFileName() + "), " + strerror(EBADF));
    }
    // The state is kept after a failed close; the destructor swallows the second failure.
    EXPECT_TRUE(a.IsOpen());
}

TEST_F(FileParser, CopyConstructionTakesNameAndTextOnly) {
    CProbe f(m_tmp.MakeFile("abc"), false);
    ASSERT_TRUE(f.Open(kRead));
    f.SetLastError("earlier text");
    char c = 0;
    ASSERT_TRUE(f.ReadFromBuffer(c));
    CProbe g(f);
    EXPECT_FALSE(g.IsOpen());
    EXPECT_EQ(g.GetFD(), -1);
    EXPECT_EQ(g.BufferLen(), 0);
    EXPECT_EQ(g.GetPath(), f.GetPath());
    EXPECT_EQ(g.GetLastError(), "earlier text");
    EXPECT_EQ(g.GetErrorCode(), 0);
    // The original keeps its descriptor.
    EXPECT_TRUE(FdIsOpen(f.GetFD()));
}

TEST_F(FileParser, DescriptorZeroIsNeverClosed) {
    const int nSaved = dup(0);
    if (nSaved < 0) GTEST_SKIP() << "no standard input to borrow descriptor 0 from";
    close(0);
    bool bStillOpen = false;
    {
        CQLFileParser f(m_tmp.MakeFile("abc"), false);
        const bool bOpened = f.Open(kRead);
        if (bOpened && f.GetFD() == 0) {
            f.Close();
            bStillOpen = FdIsOpen(0);
        }
    }
    dup2(nSaved, 0);
    close(nSaved);
    EXPECT_TRUE(bStillOpen);
}

TEST_F(FileParser, IndirectWriteAndCopyToADescriptor) {
    const std::string strContent = PatternBytes(8096 * 3 + 17);
    const std::string strSrc = m_tmp.MakeFile(strContent);
    const std::string strDest = m_tmp.MakeFile("");

    CQLFileParser f;
    int nFD = open(strDest.c_str(), O_WRONLY);
    ASSERT_GE(nFD, 0);
    EXPECT_TRUE(f.Copy(strSrc, nFD));
    EXPECT_EQ(f.IndirectWrite(nFD, "++", 2), 2u);
    EXPECT_EQ(f.IndirectWrite(nFD, nullptr, 2), 0u);
    EXPECT_EQ(f.IndirectWrite(nFD, "++", 0), 0u);
    close(nFD);
    EXPECT_EQ(CTempDir::ReadAll(strDest), strContent + "++");

    struct Case {
        std::string strSrc;
        int nFD;
        std::string strText;
    } cases[] = {
        {"", 1, "In Copy(), strSrcPath is empty."},
        {strSrc, -1, "In Copy(), bad file fd."},
        {m_tmp.Path("absent"), 1,
         "In Copy(), fail to open " + m_tmp.Path("absent") + ", because " + strerror(ENOENT)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strText);
        CQLFileParser g;
        EXPECT_FALSE(g.Copy(c.strSrc, c.nFD));
        EXPECT_EQ(g.GetLastError(), c.strText);
    }

    // A descriptor that refuses writes makes the copy short.
    nFD = open(strDest.c_str(), O_RDONLY);
    ASSERT_GE(nFD, 0);
    CQLFileParser g;
    EXPECT_EQ(g.IndirectWrite(nFD, "ab", 2), 0u);
    EXPECT_EQ(g.GetLastError(), std::string("In IndirectWrite(), ") + strerror(EBADF));
    g.SetLastError("");
    EXPECT_FALSE(g.Copy(strSrc, nFD));
    EXPECT_EQ(g.GetLastError(), std::string("In IndirectWrite(), ") + strerror(EBADF));
    close(nFD);
}

TEST_F(FileParser, StaticCopy) {
    const std::string strBig = PatternBytes(8192 * 4 + 100);
    const std::string strSrc = m_tmp.MakeFile(strBig);
    std::string strError;

    // New destination, then overwrite of a longer file, which is truncated.
    const std::string strDest = m_tmp.Path("copy.eml");
    EXPECT_TRUE(CQLFileParser::Copy(strSrc, strDest, strError, false));
    EXPECT_EQ(CTempDir::ReadAll(strDest), strBig);
    const std::string strLonger = m_tmp.MakeFile(strBig + strBig);
    EXPECT_TRUE(CQLFileParser::Copy(strSrc, strLonger, strError, true));
    EXPECT_EQ(CTempDir::ReadAll(strLonger), strBig);
    EXPECT_EQ(strError, "");

    // An empty source makes an empty copy.
    const std::string strEmptyCopy = m_tmp.Path("empty.eml");
    EXPECT_TRUE(CQLFileParser::Copy(m_tmp.MakeFile(""), strEmptyCopy, strError, false));
    EXPECT_TRUE(CQLFileParser::Exists(strEmptyCopy));
    EXPECT_EQ(CQLFileParser::GetSize(strEmptyCopy), 0);

    const std::string strOther = m_tmp.MakeFile("other");
    const std::string strMissing = m_tmp.Path("nodir/x.eml");
    struct Case {
        std::string strSrc, strDest;
        bool bOverwrite;
        std::string strText;
    } cases[] = {
        {strSrc, strOther, false, "In CQLFileParser::Copy(), destination file exists"},
        {strMissing, m_tmp.Path("y.eml"), true,
         "In CQLFileParser::Copy(), fail to open src file, In Open(" + strMissing + "), " +
             strerror(ENOENT)},
        {strSrc, strMissing, false,
         "In CQLFileParser::Copy(), fail to open dest file, In Open(" + strMissing + "), " +
             strerror(ENOENT)},
        {strSrc, strSrc + "/x", true,
         "In CQLFileParser::Copy(), fail to open dest file, In Open(" + strSrc + "/x), " +
             strerror(ENOTDIR)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.strText);
        strError.clear();
        EXPECT_FALSE(CQLFileParser::Copy(c.strSrc, c.strDest, strError, c.bOverwrite));
        EXPECT_EQ(strError, c.strText);
    }
    EXPECT_EQ(CTempDir::ReadAll(strOther), "other");
    EXPECT_FALSE(CQLFileParser::Exists(m_tmp.Path("y.eml")));

    // A read failure passes out as thrown (a directory opens, but does not read).
    if (CQLFileParser::GetSize(m_tmp.Dir()) > 0) {
        EXPECT_THROW(CQLFileParser::Copy(m_tmp.Dir(), m_tmp.Path("d.eml"), strError, true),
                     CQLFileParser);
    }

    // The member form copies its own file and keeps the text itself.
    CQLFileParser f(strSrc, false);
    ASSERT_TRUE(f.Open(kRead));
    EXPECT_FALSE(f.Copy(strOther, false));
    EXPECT_FALSE(f.IsOpen());
    EXPECT_EQ(f.GetLastError(), "In CQLFileParser::Copy(), destination file exists");
    EXPECT_TRUE(f.Copy(strOther, true));
    EXPECT_EQ(CTempDir::ReadAll(strOther), strBig);
}

TEST_F(FileParser, TextsSurviveLaterSuccess) {
    CQLFileParser f;
    EXPECT_FALSE(f.Open(kRead));
    const std::string strText = f.GetLastError();
    ASSERT_FALSE(strText.empty());
    f.SetFileName(m_tmp.MakeFile("abc\n"), false);
    ASSERT_TRUE(f.Open(kRead));
    std::string strLine;
    ASSERT_TRUE(f.ReadLine(strLine, true));
    EXPECT_EQ(f.GetLastError(), strText);
}

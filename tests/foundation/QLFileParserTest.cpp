#include "foundation/QLFileParser.h"
#include "foundation/TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using P = CQLFileParser;
const int kRead = P::FILE_READ | P::FILE_BINARY;
using V = std::vector<std::string>;
const std::string kReadOnly = "In Write(), Access denied, This file has ReadOnly flag.";

// The text of what fn throws, marked by whether the file object itself flew.
template <class F> std::string Thrown(F fn) {
    try {
        fn();
    } catch (CQLExceptionParser& e) {
        return (dynamic_cast<CQLFileParser*>(&e) ? "file: " : "plain: ") + e.GetLastError();
    }
    return "no throw";
}

std::string Sys(int nErr) {
    return strerror(nErr);
}

bool FdIsOpen(int nFD) {
    return fcntl(nFD, F_GETFD) != -1;
}

class CExtProbe : public CQLFileParser {
public:
    const std::string& Ext() const { return m_strFileExt; }
};

// Each test runs in both forms: descriptor (0) and stream.
class FileParser : public ::testing::TestWithParam<int> {
protected:
    std::unique_ptr<CQLFileParser> Opened(const std::string& strContent, int nMode = kRead) {
        auto f = std::make_unique<CQLFileParser>(m_tmp.MakeFile(strContent), false);
        EXPECT_TRUE(f->Open(nMode | GetParam())) << f->GetLastError();
        return f;
    }
    std::string OpenText(const std::string& strPath, int nMode) {
        CQLFileParser f(strPath, false);
        EXPECT_FALSE(f.Open(nMode) || f.IsOpen());
        return f.GetLastError();
    }
    CTempDir m_tmp;
};
INSTANTIATE_TEST_SUITE_P(Forms, FileParser, ::testing::Values(0, P::FILE_STREAM));

} // namespace

TEST(FileParserName, SplitsNormalisesAndRejects) {
    char szCwd[4096];
    ASSERT_NE(getcwd(szCwd, sizeof(szCwd)), nullptr);
    std::string strCwd = szCwd;
    if (strCwd.back() != '/') strCwd += '/';
    // "@" stands for the current directory. The leading empty token guards the root, so the
    // first ".." beyond it removes the guard.
    const std::tuple<const char*, bool, std::string> cases[] = {
        {"plain.eml", false, "@plain.eml"}, {"plain.eml", true, "@plain.eml"},
        {"/a/./b/../c/f", true, "//a/c/f"}, {"/a/./b/../c/f", false, "/a/./b/../c/f"},
        {"/../a/f", true, "/a/f"},          {"/../../a/f", true, "/../a/f"},
        {"/a//b/f", true, "//a//b/f"},      {"x/../y/f", true, "/@y/f"}};
    for (auto [pszName, bNormalize, strPath] : cases) {
        if (strPath.find('@') != std::string::npos) strPath.replace(strPath.find('@'), 1, strCwd);
        CQLFileParser f(pszName, bNormalize);
        EXPECT_EQ(f.GetPath(), strPath) << pszName;
        EXPECT_EQ(f.GetFileName(), strPath.substr(strPath.rfind('/') + 1));
    }

    CExtProbe f;
    const std::string strInvalid = "In SetFileName(), invalid filename[/var/mail/]";
    EXPECT_EQ(Thrown([&] { f.SetFileName("/var/mail/", true); }), "file: " + strInvalid);
    EXPECT_EQ(f.GetLastError(), strInvalid);
    EXPECT_EQ(f.GetPath(), "/var/mail/"); // the path stays as set
    std::string strUnused;
    const std::pair<const char*, const char*> exts[] = {
        {"a.b.txt", "txt"}, {".profile", "txt"}, {nullptr, "txt"}, {"x.", ""}};
    for (const auto& [pszName, pszExt] : exts) {
        EXPECT_EQ(f.SetFileExt(pszName, strUnused), 0);
        EXPECT_EQ(f.Ext(), pszExt);
    }
}

TEST_P(FileParser, FailureTexts) {
    const std::string strFile = m_tmp.MakeFile("0123456789");
    const std::string strMissing = m_tmp.Path("nodir/m.eml"), strUnder = strFile + "/m.eml";
    // The descriptor form names the full path, the stream form the base name only.
    const bool bStream = GetParam() != 0;
    const std::string strName = bStream ? strFile.substr(m_tmp.Dir().size() + 1) : strFile;
    EXPECT_EQ(OpenText(strMissing, kRead | GetParam()),
              "In Open(" + (bStream ? "m.eml" : strMissing) + "), " + Sys(ENOENT));
    EXPECT_EQ(OpenText(strUnder, P::FILE_RW | GetParam()),
              "In Open(" + (bStream ? "m.eml" : strUnder) + "), " + Sys(ENOTDIR));
    if (bStream) { // no access bit makes an empty mode, which the system library refuses
        EXPECT_EQ(OpenText(strFile, P::FILE_BINARY | GetParam()),
                  "In Open(" + strName + "), " + Sys(EINVAL));
    }
    if (geteuid() != 0) { // root ignores file permissions
        ASSERT_EQ(chmod(strFile.c_str(), 0444), 0);
        EXPECT_EQ(OpenText(strFile, P::FILE_WRITE | GetParam()),
                  "In Open(" + strName + "), " + Sys(EACCES));
    }

    CQLFileParser f(strFile, false);
    ASSERT_TRUE(f.Open(kRead | GetParam()));
    EXPECT_EQ(Thrown([&] { f.Write("new", 3); }), "file: " + kReadOnly);
    EXPECT_EQ(Thrown([&] { f.Write(std::string()); }), "file: " + kReadOnly);
    EXPECT_EQ(Thrown([&] { f.Write(nullptr, 3); }), "file: In Write(), Invalid data ptr.");
    EXPECT_EQ(CTempDir::ReadAll(strFile), "0123456789");
    EXPECT_FALSE(f.SetPos(-5, P::POS_SET));
    EXPECT_EQ(f.GetLastError(), "In SetPos(" + f.GetFileName() +
                                    "), off_t[-5], pos[0], size[10], err[" + Sys(EINVAL) + "]");
    const std::string strLong(200, 'n'); // the SetPos text is cut to 255 bytes
    CQLFileParser g(m_tmp.Path(strLong), false);
    ASSERT_TRUE(g.Open(P::FILE_RW | GetParam()));
    ASSERT_TRUE(g.Write(std::string("abc")) == 3 && g.Flush());
    EXPECT_FALSE(g.SetPos(-123456789, P::POS_CUR));
    EXPECT_EQ(g.GetLastError(), ("In SetPos(" + strLong +
                                 "), off_t[-123456789], pos[1], size[3], err[" + Sys(EINVAL) + "]")
                                    .substr(0, 255));
    EXPECT_EQ(Thrown([&] { P::GetSize(strMissing); }), "plain: In GetSize(), " + Sys(ENOENT));

    // A directory opens but does not read; ReadLine passes that on as a plain exception.
    CQLFileParser d(m_tmp.Dir(), false);
    ASSERT_TRUE(d.Open(kRead | GetParam()));
    const std::string strRead = "In Read(" + d.GetFileName() + "), " + Sys(EISDIR);
    char sz[8];
    EXPECT_EQ(Thrown([&] { d.Read(sz, sizeof(sz)); }), "file: " + strRead);
    std::string strLine;
    EXPECT_EQ(Thrown([&] { d.ReadLine(strLine, true); }), "plain: " + strRead);
    EXPECT_FALSE(d.IsLF());
}

TEST_P(FileParser, WriteModes) {
    const bool bStream = GetParam() != 0;
    const std::pair<int, const char*> cases[] = {
        {P::FILE_WRITE, bStream ? "XY" : "XYcdef"}, // a descriptor overwrites in place
        {P::FILE_WRITE | P::FILE_TRUNC | P::FILE_BINARY, "XY"},
        {P::FILE_RW | P::FILE_APPEND, "abcdefXY"}};
    for (const auto& [nMode, pszResult] : cases) {
        auto f = Opened("abcdef", nMode);
        EXPECT_EQ(f->Write(std::string("XY")) + f->Write("Z", 0), 2);
        EXPECT_TRUE(f->Flush());
        f->Close();
        EXPECT_EQ(CTempDir::ReadAll(f->GetPath()), pszResult) << nMode;
    }
    if (bStream) return;

    // Write with append asks for O_WRONLY | O_RDWR, which allows no writing at all.
    auto f = Opened("abc", P::FILE_WRITE | P::FILE_APPEND);
    EXPECT_EQ(Thrown([&] { f->Write("XY", 2); }),
              "file: In Write(" + f->GetFileName() + "), " + Sys(EBADF));
    // New files get 0666 less the mask.
    const mode_t nOld = umask(027);
    CQLFileParser g(m_tmp.Path("new"), false);
    const bool bOpened = g.Open(P::FILE_WRITE);
    umask(nOld);
    struct stat st;
    ASSERT_TRUE(bOpened && stat(g.GetPath().c_str(), &st) == 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_TRUE(g.Exists() && !P::Exists(m_tmp.Path("absent")));
}

TEST_P(FileParser, ReadLineAndIsLF) {
    const std::tuple<std::string, bool, V, bool> cases[] = {
        {"a\r\nb", false, {"a\r\n", "b"}, false},
        {"\n", true, {""}, true},
        {"x\r\r\ny\n", true, {"x\r", "y"}, false},
        {"p\rq\n", true, {"p\rq"}, false},
        {"ab\ncd\r\n", true, {"ab", "cd"}, true}};
    for (const auto& [strContent, bStrip, vLines, bLF] : cases) {
        auto f = Opened(strContent);
        V v;
        std::string strLine = "stale";
        while (f->ReadLine(strLine, bStrip)) v.push_back(strLine);
        EXPECT_EQ(v, vLines);
        EXPECT_TRUE(strLine.empty() && f->IsEnd() && f->SetPos(0, P::POS_SET));
        EXPECT_EQ(f->IsLF(), bLF) << strContent;
    }
}

TEST_P(FileParser, LinesAcrossTheReadAheadBoundary) {
    // About 40 KiB of lines of every length from 0 to 600, the last one without its LF.
    std::string strContent;
    V vWant;
    for (size_t n = 0; strContent.size() < 40000; n = (n + 37) % 601) {
        vWant.push_back(PatternBytes(n));
        strContent += vWant.back() + (n % 2 ? "\r\n" : "\n");
    }
    vWant.push_back("tail without line end");
    strContent += vWant.back();

    auto f = Opened(strContent);
    std::string strLine;
    size_t nLine = 0, nPos = 0;
    while (f->ReadLine(strLine, true)) {
        ASSERT_LT(nLine, vWant.size());
        ASSERT_EQ(strLine, vWant[nLine]) << "line " << nLine;
        if ((nPos = strContent.find('\n', nPos)) != std::string::npos) {
            EXPECT_EQ(f->GetPos(), static_cast<long long>(++nPos)) << "line " << nLine;
        }
        ++nLine;
    }
    EXPECT_EQ(nLine, vWant.size());
    // End of file is no failure: no throw, but the text is left behind.
    EXPECT_EQ(f->GetLastError(), "In ReadFromBuffer(" + f->GetFileName() + "), End Of File");

    // Lines seen where they lie in the buffer are the lines ReadLine copies out, with the
    // same positions and the same end.
    auto g = Opened(strContent);
    ASSERT_TRUE(f->SetPos(0, P::POS_SET));
    const char* pLine = nullptr;
    unsigned long nView = 0;
    std::string strScratch;
    for (nLine = 0; f->ReadLine(strLine, false); ++nLine) {
        ASSERT_TRUE(g->ReadLineView(pLine, nView, strScratch)) << "line " << nLine;
        ASSERT_EQ(std::string(pLine, nView), strLine) << "line " << nLine;
        ASSERT_EQ(g->GetPos(), f->GetPos()) << "line " << nLine;
    }
    EXPECT_FALSE(g->ReadLineView(pLine, nView, strScratch));
    EXPECT_TRUE(g->IsEnd());
    EXPECT_EQ(g->GetLastError(), "In ReadFromBuffer(" + g->GetFileName() + "), End Of File");
}

TEST_P(FileParser, PositionedReads) {
    const std::string strContent = PatternBytes(100) + "\n" + PatternBytes(19899);
    auto f = Opened(strContent);
    std::string strLine;
    ASSERT_TRUE(f->ReadLine(strLine, false)); // the buffer holds what follows
    const long long nPos = f->GetPos();
    const std::tuple<long long, unsigned long, std::string> cases[] = {
        {5, 10, strContent.substr(5, 10)},
        {9000, 11000, strContent.substr(9000)}, // as far as the file goes
        {19999, 1, strContent.substr(19999)},
        {20000, 5, ""},
        {30000, 5, ""},
        {0, 0, ""}};
    for (const auto& [nOffset, nLen, strWant] : cases) {
        std::string str = "stale";
        EXPECT_EQ(f->ReadAt(nOffset, str, nLen), strWant.size()) << nOffset;
        EXPECT_EQ(str, strWant) << nOffset;
    }
    // The descriptor form leaves the reader where it was; a stream reads at its own position.
    if (GetParam() == 0) {
        EXPECT_EQ(f->GetPos(), nPos);
        char c = 0;
        ASSERT_TRUE(f->ReadFromBuffer(c));
        EXPECT_EQ(c, strContent[nPos]);
    }

    auto d = std::make_unique<CQLFileParser>(m_tmp.Dir(), false);
    ASSERT_TRUE(d->Open(kRead | GetParam()));
    std::string str;
    EXPECT_EQ(Thrown([&] { d->ReadAt(0, str, 10); }),
              "file: In Read(" + d->GetFileName() + "), " + Sys(EISDIR));
}

TEST_P(FileParser, ReadOverwritesWhatTheBufferGaveAndMeetsTheEnd) {
    const std::string strContent = PatternBytes(20000);
    auto f = Opened(strContent);
    char c = 0;
    ASSERT_TRUE(f->ReadFromBuffer(c)); // 8191 bytes left in the buffer
    std::vector<char> vBuf(20000, '\0');
    EXPECT_EQ(f->Read(vBuf.data(), 10), 10u);
    EXPECT_EQ(std::string(vBuf.data(), 10), strContent.substr(1, 10));

    // More than buffered: the 8181 buffered bytes are copied, then the next 4 bytes of the
    // file land on top of them and only those 4 are counted.
    EXPECT_EQ(f->Read(vBuf.data(), 8185), 4u);
    EXPECT_EQ(std::string(vBuf.data(), 4), strContent.substr(8192, 4));
    EXPECT_EQ(std::string(vBuf.data() + 4, 8181 - 4), strContent.substr(11 + 4, 8181 - 4));
    EXPECT_EQ(f->GetPos(), 8196);

    // Exactly what is buffered: delivered, but reported as 0.
    ASSERT_TRUE(f->SetPos(0, P::POS_SET) && f->ReadFromBuffer(c));
    EXPECT_EQ(f->Read(vBuf.data(), 8191), 0u);
    EXPECT_EQ(std::string(vBuf.data(), 8191), strContent.substr(1, 8191));

    // One byte left is the same case: and the position is the system's again.
    auto g = Opened(strContent);
    for (int i = 0; i < 8191; ++i) ASSERT_TRUE(g->ReadFromBuffer(c));
    EXPECT_EQ(g->Read(vBuf.data(), 1), 0u);
    EXPECT_EQ(vBuf[0], strContent[8191]);
    EXPECT_EQ(g->GetPos(), 8192);

    // The descriptor form meets the end inside a short read; the stream form on the next.
    std::string str;
    EXPECT_EQ(f->Read(str, 20000), 20000u - 8192);
    EXPECT_EQ(str, strContent.substr(8192));
    EXPECT_EQ(f->IsEnd(), GetParam() == 0);
    EXPECT_EQ(f->Read(str, 100), 0u);
    EXPECT_TRUE(str.empty() && f->IsEnd());
}

TEST_P(FileParser, SetPosAndTheEndFlag) {
    auto f = Opened("0123456789");
    std::string strLine;
    ASSERT_TRUE(f->ReadLine(strLine, true) && f->IsEnd());
    // To the end or beyond the flag stays; inside the file it is cleared, the buffer emptied.
    EXPECT_TRUE(f->SetPos(0, P::POS_END) && f->IsEnd());
    EXPECT_TRUE(f->SetPos(25, P::POS_SET) && f->IsEnd());
    EXPECT_TRUE(f->SetPos(0, P::POS_SET) && !f->IsEnd());

    // Each seek starts from offset 3; an unknown origin counts from the start.
    const std::tuple<long, int, char> cases[] = {
        {0, P::POS_SET, '0'}, {2, P::POS_CUR, '5'}, {-4, P::POS_END, '6'}, {7, 7, '7'}};
    char c = 0;
    for (const auto& [nOffset, nPos, cNext] : cases) {
        ASSERT_TRUE(f->SetPos(3, P::POS_SET));
        ASSERT_TRUE(f->SetPos(nOffset, static_cast<P::POS>(nPos)));
        ASSERT_TRUE(f->ReadFromBuffer(c));
        EXPECT_EQ(c, cNext);
    }

    auto g = Opened(""); // an empty file keeps its end
    EXPECT_FALSE(g->ReadFromBuffer(c));
    EXPECT_TRUE(g->SetPos(0, P::POS_SET) && g->IsEnd());
}

TEST_P(FileParser, BorrowedDescriptor) {
    auto f = Opened("abc\n");
    const int nFD = open(f->GetPath().c_str(), O_RDONLY);
    {
        CQLFileParser b;
        b.SetFD(nFD);
        EXPECT_FALSE(b.Open(kRead)); // leaves the descriptor alone
        EXPECT_EQ(b.GetLastError(), "In Open(), m_strFileName is empty, Please make sure "
                                    "SetFileName(), before call Open()");
        char sz[4] = {0};
        EXPECT_TRUE(b.Read(sz, 3) == 3 && b.GetSize() == 4 && !b.IsOpen());
        EXPECT_STREQ(sz, "abc");
        EXPECT_EQ(Thrown([&] { b.Write("z", 1); }), "file: " + kReadOnly);
        b.Close();
        // A later success on the object leaves the text of the earlier failure.
        b.SetFileName(f->GetPath(), false);
        std::string strLine;
        ASSERT_TRUE(b.Open(kRead | GetParam()) && b.ReadLine(strLine, true));
        EXPECT_EQ(b.GetLastError(), kReadOnly);
    }
    EXPECT_TRUE(FdIsOpen(nFD)); // never closed by the object
    close(nFD);
    CQLFileParser z;
    z.SetFD(nFD);
    EXPECT_EQ(Thrown([&] { z.GetSize(); }), "file: In GetSize(), " + Sys(EBADF));
}

TEST_P(FileParser, Lifecycle) {
    CQLFileParser never;
    never.Close();
    never.Close();
    auto f = Opened("abc");
    f->SetLastError("earlier text");
    char c = 0;
    ASSERT_TRUE(f->ReadFromBuffer(c));
    // A copy takes name and text only: it is closed and owns nothing.
    CQLFileParser g(*f);
    EXPECT_TRUE(!g.IsOpen() && g.GetFD() == -1 && FdIsOpen(f->GetFD()));
    EXPECT_EQ(g.GetPath(), f->GetPath());
    EXPECT_EQ(g.GetLastError(), "earlier text");
    // Opening again closes first and keeps the read-ahead.
    ASSERT_TRUE(f->Open(kRead | GetParam()) && f->ReadFromBuffer(c));
    EXPECT_EQ(c, 'b');
    f->Close();
    EXPECT_TRUE(!f->IsOpen() && !f->IsEnd() && f->GetFD() == -1);

    // Assignment shares the handle, so the second close fails and keeps the state.
    ASSERT_TRUE(f->Open(kRead));
    {
        CQLFileParser a;
        a = *f;
    }
    EXPECT_EQ(Thrown([&] { f->Close(); }),
              "file: In Close(" + f->GetFileName() + "), " + Sys(EBADF));
    EXPECT_TRUE(f->IsOpen());
}

TEST(FileParserFd, DescriptorZeroIsNeverClosed) {
    CTempDir tmp;
    const int nSaved = dup(0);
    if (nSaved < 0) GTEST_SKIP() << "no standard input to borrow descriptor 0 from";
    close(0);
    bool bStillOpen = false;
    {
        CQLFileParser f(tmp.MakeFile("abc"), false);
        if (f.Open(kRead) && f.GetFD() == 0) {
            f.Close();
            bStillOpen = FdIsOpen(0);
        }
    }
    dup2(nSaved, 0);
    close(nSaved);
    EXPECT_TRUE(bStillOpen);
}

TEST_P(FileParser, Copies) {
    const std::string strBig = PatternBytes(8192 * 4 + 100), strSrc = m_tmp.MakeFile(strBig);
    const std::string strOther = m_tmp.MakeFile("other"), strDest = m_tmp.MakeFile(strBig + "+");
    std::string strError;
    EXPECT_TRUE(P::Copy(strSrc, m_tmp.Path("new"), strError, false));
    EXPECT_TRUE(P::Copy(strSrc, strDest, strError, true)); // truncated
    EXPECT_EQ(strError, "");
    EXPECT_EQ(CTempDir::ReadAll(m_tmp.Path("new")), strBig);
    EXPECT_EQ(CTempDir::ReadAll(strDest), strBig);

    const std::string strMissing = m_tmp.Path("nodir/x"), strPre = "In CQLFileParser::Copy(), ";
    EXPECT_FALSE(P::Copy(strSrc, strOther, strError, false));
    EXPECT_EQ(strError, strPre + "destination file exists");
    EXPECT_FALSE(P::Copy(strMissing, m_tmp.Path("y"), strError, true));
    EXPECT_EQ(strError,
              strPre + "fail to open src file, In Open(" + strMissing + "), " + Sys(ENOENT));
    EXPECT_FALSE(P::Copy(strSrc, strMissing, strError, false));
    EXPECT_EQ(strError,
              strPre + "fail to open dest file, In Open(" + strMissing + "), " + Sys(ENOENT));
    EXPECT_TRUE(CTempDir::ReadAll(strOther) == "other" && !P::Exists(m_tmp.Path("y")));
    if (P::GetSize(m_tmp.Dir()) > 0) { // a read failure passes out as thrown
        EXPECT_THROW(P::Copy(m_tmp.Dir(), m_tmp.Path("d"), strError, true), CQLFileParser);
    }
    // The member form closes itself, copies its own file and keeps the text itself.
    auto f = Opened("mine");
    EXPECT_FALSE(f->Copy(strOther, false) || f->IsOpen());
    EXPECT_EQ(f->GetLastError(), strPre + "destination file exists");
    EXPECT_TRUE(f->Copy(strOther, true));
    EXPECT_EQ(CTempDir::ReadAll(strOther), "mine");

    // To a caller's descriptor, in pieces of 8096.
    int nFD = open(strDest.c_str(), O_WRONLY | O_TRUNC);
    EXPECT_TRUE(f->Copy(strSrc, nFD) && f->IndirectWrite(nFD, "++", 2) == 2);
    EXPECT_EQ(f->IndirectWrite(nFD, nullptr, 2), 0u);
    close(nFD);
    EXPECT_EQ(CTempDir::ReadAll(strDest), strBig + "++");
    nFD = open(strDest.c_str(), O_RDONLY); // refuses writes, so the copy falls short
    const std::tuple<std::string, int, std::string> cases[] = {
        {"", 1, "In Copy(), strSrcPath is empty."},
        {strSrc, -1, "In Copy(), bad file fd."},
        {strMissing, 1, "In Copy(), fail to open " + strMissing + ", because " + Sys(ENOENT)},
        {strSrc, nFD, "In IndirectWrite(), " + Sys(EBADF)}};
    for (const auto& [strFrom, nTo, strWant] : cases) {
        CQLFileParser g;
        EXPECT_FALSE(g.Copy(strFrom, nTo));
        EXPECT_EQ(g.GetLastError(), strWant);
    }
    close(nFD);
}

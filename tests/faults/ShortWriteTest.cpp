// Writes that the system takes in pieces, or refuses: every writer of the library loops until
// all bytes are out, and reports a refusal with the system's text.
#include "faults/FaultSeam.h"
#include "foundation/QLFileParser.h"
#include "foundation/TempDir.h"
#include "mime/QLMimeFile.h"
#include "mime/QLMimeStr.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

using P = CQLFileParser;

class ShortWrites : public FaultTest {
protected:
    CTempDir m_Dir;
    const std::string m_strData = PatternBytes(20000);

    // A descriptor on a new file, and the file's path.
    int NewFile(std::string& strPath) {
        strPath = m_Dir.Path("out-" + std::to_string(++m_nFiles));
        return open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }

private:
    int m_nFiles = 0;
};

} // namespace

TEST_F(ShortWrites, EveryWriterLoopsUntilAllIsOut) {
    seam::ShortWrites(7);

    P file(m_Dir.Path("written"), false);
    ASSERT_TRUE(file.Open(P::FILE_WRITE | P::FILE_BINARY));
    EXPECT_EQ(file.Write(m_strData), static_cast<long long>(m_strData.size()));
    file.Close();
    EXPECT_EQ(CTempDir::ReadAll(m_Dir.Path("written")), m_strData);
    EXPECT_EQ(seam::Count(seam::Call::Write), (20000 + 6) / 7);

    std::string strPath;
    int nFD = NewFile(strPath);
    EXPECT_EQ(file.IndirectWrite(nFD, m_strData.data(), m_strData.size()), m_strData.size());
    close(nFD);
    EXPECT_EQ(CTempDir::ReadAll(strPath), m_strData);

    const std::string strSource = m_Dir.MakeFile(m_strData);
    nFD = NewFile(strPath);
    EXPECT_TRUE(file.Copy(strSource, nFD));
    close(nFD);
    EXPECT_EQ(CTempDir::ReadAll(strPath), m_strData);

    // Both message sources deliver a range to a descriptor whole.
    CQLMimeStr mem;
    mem.SetData(m_strData, false);
    CQLMimeFile disk;
    ASSERT_TRUE(disk.SetData(strSource, true));
    for (CQLIMimeStr* pSource :
         {static_cast<CQLIMimeStr*>(&mem), static_cast<CQLIMimeStr*>(&disk)}) {
        nFD = NewFile(strPath);
        EXPECT_EQ(pSource->SubStr(5, 19990, nFD), 19990u);
        close(nFD);
        EXPECT_EQ(CTempDir::ReadAll(strPath), m_strData.substr(5, 19990));
    }
}

TEST_F(ShortWrites, ARefusedWriteIsReported) {
    const std::string strEIO = strerror(EIO);
    P file(m_Dir.Path("refused"), false);
    ASSERT_TRUE(file.Open(P::FILE_WRITE | P::FILE_BINARY));
    seam::ShortWrites(100);
    seam::FailNth(seam::Call::Write, 3, EIO);
    try {
        file.Write(m_strData);
        ADD_FAILURE() << "no throw";
    } catch (CQLFileParser& e) {
        EXPECT_EQ(e.GetLastError(), "In Write(refused), " + strEIO);
    }
    file.Close();
    EXPECT_EQ(CTempDir::ReadAll(m_Dir.Path("refused")), m_strData.substr(0, 200));

    // A write interrupted before it put anything is tried again.
    ASSERT_TRUE(file.Open(P::FILE_WRITE | P::FILE_TRUNC | P::FILE_BINARY));
    seam::FailNth(seam::Call::Write, 1, EINTR);
    EXPECT_EQ(file.Write("abc", 3), 3);
    file.Close();
    EXPECT_EQ(CTempDir::ReadAll(m_Dir.Path("refused")), "abc");

    // The caller's descriptor: a short count and the text, no throw.
    std::string strPath;
    int nFD = NewFile(strPath);
    seam::FailNth(seam::Call::Write, 2, EIO);
    EXPECT_EQ(file.IndirectWrite(nFD, m_strData.data(), m_strData.size()), 100u);
    EXPECT_EQ(file.GetLastError(), "In IndirectWrite(), " + strEIO);
    close(nFD);

    CQLMimeStr mem;
    mem.SetData(m_strData, false);
    nFD = NewFile(strPath);
    seam::FailNth(seam::Call::Write, 2, EIO);
    EXPECT_EQ(mem.SubStr(0, m_strData.size(), nFD), 0u);
    EXPECT_EQ(mem.GetLastError(), "In CQLMimeStr::SubStr(), " + strEIO);
    close(nFD);
}

// Streaming keeps memory flat: the peak of a 200 MiB part is that of a 1 KiB one.
#include "reader/ReaderTestUtil.h"

#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

long PeakKiB() {
    std::ifstream in("/proc/self/status");
    std::string strLine;
    while (std::getline(in, strLine))
        if (strLine.rfind("VmHWM:", 0) == 0) return std::stol(strLine.substr(6));
    return -1;
}

const size_t kLine = 78; // 76 characters of base64 and CR LF, decoding to 57 bytes

// A stored message with one base64 part of nLines lines, indexed by parsing its file.
Stored WriteMessage(const CTempDir& dir, const std::string& strName, size_t nLines) {
    const std::string strPath = dir.Path(strName);
    {
        std::ofstream out(strPath, std::ios::binary);
        out << "Content-Type: application/octet-stream; name=big.bin\r\n"
               "Content-Transfer-Encoding: base64\r\n\r\n";
        std::string strLine;
        for (int i = 0; i < 19; ++i) strLine += "QUJD";
        strLine += "\r\n";
        std::string strChunk;
        for (int i = 0; i < 4096; ++i) strChunk += strLine;
        for (size_t n = 0; n < nLines; n += 4096)
            out.write(strChunk.data(),
                      static_cast<std::streamsize>(std::min<size_t>(4096, nLines - n) * kLine));
    }
    CQLMimeMsg msg;
    EXPECT_TRUE(msg.Open(strPath, true));
    return Stored{strPath, msg.GetFormat()};
}

struct Rise {
    long nKiB;
    unsigned long nDecoded;
};

// In a child process, so that nothing else shapes its heap: the peak is reset once the
// part is found, and read again after it has been streamed to its end.
Rise StreamPeakRise(const Stored& s) {
    int fds[2];
    if (pipe(fds) != 0) return {-1, 0};
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        Rise r{-1, 0};
        CQLMimeMsgInfo info(s.strPath, s.strFormat);
        info.InitAttachCursor();
        CQLMimeAttachInfo a;
        std::string strBlock;
        if (info.GetNextAttach(a, "", "UTF-8", "") && info.OpenAttach(a)) {
            std::ofstream("/proc/self/clear_refs") << "5";
            const long nBefore = PeakKiB();
            while (info.GetAttachContentNext(strBlock, true)) r.nDecoded += strBlock.size();
            r.nKiB = PeakKiB() - nBefore;
        }
        const ssize_t nPut = write(fds[1], &r, sizeof(r));
        _exit(nPut == sizeof(r) ? 0 : 1);
    }
    close(fds[1]);
    Rise r{-1, 0};
    const ssize_t nGot = read(fds[0], &r, sizeof(r));
    close(fds[0]);
    int nStatus = 0;
    waitpid(pid, &nStatus, 0);
    if (nGot != sizeof(r)) r.nKiB = -1;
    return r;
}

} // namespace

TEST(MsgInfoMemory, StreamingKeepsThePeakFlat) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's quarantine distorts peak memory";
#endif
    CTempDir dir;
    const size_t nBigLines = (200u << 20) / kLine;
    const Stored small = WriteMessage(dir, "small.eml", 1024 / kLine);
    const Stored big = WriteMessage(dir, "big.eml", nBigLines);

    const Rise rSmall = StreamPeakRise(small);
    const Rise rBig = StreamPeakRise(big);
    ASSERT_GE(rSmall.nKiB, 0);
    ASSERT_GE(rBig.nKiB, 0);
    EXPECT_EQ(rBig.nDecoded, nBigLines * 57);
    EXPECT_LE(rBig.nKiB - rSmall.nKiB, 4 * 1024)
        << "small part: +" << rSmall.nKiB << " KiB, big part: +" << rBig.nKiB << " KiB";
}

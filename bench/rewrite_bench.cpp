// Rewriting a stored message in place, in bytes of file rewritten a second, beside copying the
// same file as cp does (FICLONE where it can, else copy_file_range, else read and write),
// measured in the same run.
#include "mime/QLMimeMsg.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/fs.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

const size_t kMiB = 1 << 20;

// A mixed message: a short text, a part of nBody bytes of base64 lines, a short text.
std::string MakeMessage(size_t nBody) {
    std::string s = "From: bench@example.org\r\nSubject: rewrite\r\nMessage-ID: <r@example.org>\r\n"
                    "Content-Type: multipart/mixed; boundary=\"=_b_=\"\r\n\r\n"
                    "--=_b_=\r\nContent-Type: text/plain\r\n\r\nbefore\r\n"
                    "--=_b_=\r\nContent-Type: application/octet-stream\r\n"
                    "Content-Transfer-Encoding: base64\r\n\r\n";
    const std::string strLine(76, 'Q');
    for (size_t n = 0; n < nBody; n += 78) s += strLine + "\r\n";
    return s + "--=_b_=\r\nContent-Type: text/plain\r\n\r\nafter\r\n--=_b_=--\r\n";
}

// A directory of its own, for the message and its temporary files.
class BenchDir {
public:
    BenchDir() {
        char szDir[] = "/tmp/qlmail-rewrite-bench-XXXXXX";
        m_strDir = mkdtemp(szDir) ? szDir : "/tmp";
    }
    ~BenchDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_strDir, ec);
    }
    std::string Write(const std::string& strName, const std::string& strData) const {
        const std::string strPath = m_strDir + "/" + strName;
        std::ofstream(strPath, std::ios::binary) << strData;
        return strPath;
    }

private:
    std::string m_strDir;
};

void SetRate(benchmark::State& state, size_t nBytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(nBytes));
}

// A new field written back, then taken out again without a write-back: one rewrite of the
// whole file an iteration, the size staying the same.
void BM_AddHdrItemWriteBack(benchmark::State& state) {
    BenchDir dir;
    const std::string strPath = dir.Write("msg.eml", MakeMessage(10 * kMiB));
    CQLMimeMsg msg;
    if (!msg.Open(strPath, true)) state.SkipWithError("open failed");
    for (auto _ : state) {
        if (!msg.AddHdrItem("X-Bench", "1", CQLMimeConst::ENCODER_7BIT, "", false, false, true))
            state.SkipWithError(msg.GetLastError().c_str());
        msg.DelHdrItem("X-Bench", false);
    }
    SetRate(state, std::filesystem::file_size(strPath));
}
BENCHMARK(BM_AddHdrItemWriteBack)->Unit(benchmark::kMillisecond)->UseRealTime();

// The 1 MiB part of a message replaced by 1 MiB of data, as it is or encoded.
void BM_SetBody(benchmark::State& state) {
    const auto eEncoder = static_cast<CQLMimeConst::ENCODER>(state.range(0));
    BenchDir dir;
    const std::string strPath = dir.Write("msg.eml", MakeMessage(kMiB));
    CQLMimeMsg msg;
    if (!msg.Open(strPath, true)) state.SkipWithError("open failed");
    std::string strData;
    const std::string strLine = std::string(76, 'Z') + "\r\n";
    while (strData.size() < kMiB) strData += strLine;
    if (eEncoder == CQLMimeConst::ENCODER_BASE64) strData.resize(kMiB * 3 / 4);
    for (auto _ : state)
        if (!msg[2]->SetBody(strData, false, eEncoder))
            state.SkipWithError(msg[2]->GetLastError().c_str());
    SetRate(state, std::filesystem::file_size(strPath));
}
BENCHMARK(BM_SetBody)
    ->Arg(CQLMimeConst::ENCODER_7BIT)
    ->Arg(CQLMimeConst::ENCODER_BASE64)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// What cp 9 does with a regular file: a clone, else copy_file_range, else read and write.
bool CopyAsCp(const std::string& strFrom, const std::string& strTo) {
    const int nIn = open(strFrom.c_str(), O_RDONLY);
    const int nOut = open(strTo.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    bool bOk = nIn >= 0 && nOut >= 0;
    if (bOk && ioctl(nOut, FICLONE, nIn) != 0) {
        ssize_t n = 0;
        while ((n = copy_file_range(nIn, nullptr, nOut, nullptr, 1L << 30, 0)) > 0) {
        }
        if (n < 0) {
            static char szBuf[128 * 1024];
            lseek(nIn, 0, SEEK_SET);
            while ((n = read(nIn, szBuf, sizeof(szBuf))) > 0)
                bOk = bOk && write(nOut, szBuf, n) == n;
        }
    }
    if (nIn >= 0) close(nIn);
    if (nOut >= 0) close(nOut);
    return bOk;
}

void BM_CopyAsCp(benchmark::State& state) {
    BenchDir dir;
    const size_t nSize = static_cast<size_t>(state.range(0)) * kMiB;
    const std::string strPath = dir.Write("msg.eml", MakeMessage(nSize));
    const std::string strCopy = strPath + ".copy";
    // A new file each time, as cp makes one: truncating the last copy would make ext4 flush it.
    for (auto _ : state) {
        if (!CopyAsCp(strPath, strCopy)) state.SkipWithError("copy failed");
        state.PauseTiming();
        unlink(strCopy.c_str());
        state.ResumeTiming();
    }
    SetRate(state, std::filesystem::file_size(strPath));
}
BENCHMARK(BM_CopyAsCp)->Arg(10)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();

// The C++ half of ReadBench: streams the first attachment of a message through
// CQLMimeMsgInfo, as the natives do, and prints the decoded megabytes per second.
#include "mime/QLMimeMsg.h"
#include "reader/QLMimeAttachInfo.h"
#include "reader/QLMimeMsgInfo.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

unsigned long StreamOnce(CQLMimeMsgInfo& info, const CQLMimeAttachInfo& attach) {
    unsigned long nTotal = 0;
    std::string strBlock;
    if (!info.OpenAttach(attach)) return 0;
    while (info.GetAttachContentNext(strBlock, true)) nTotal += strBlock.size();
    info.CloseAttach();
    return nTotal;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: bench_java_stream_cpp FILE REPEATS\n", stderr);
        return 2;
    }
    const std::string strPath = argv[1];
    const int nRepeats = std::atoi(argv[2]);
    CQLMimeMsg msg;
    if (!msg.Open(strPath, true)) {
        std::fprintf(stderr, "%s\n", msg.GetLastError().c_str());
        return 1;
    }
    CQLMimeMsgInfo info(strPath, msg.GetFormat());
    msg.Close();
    CQLMimeAttachInfo attach;
    info.InitAttachCursor();
    if (!info.GetNextAttach(attach, "", "UTF-8", "")) {
        std::fprintf(stderr, "%s\n", info.GetLastError().c_str());
        return 1;
    }
    StreamOnce(info, attach); // warm-up: page cache and allocator
    unsigned long nBytes = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < nRepeats; ++i) nBytes += StreamOnce(info, attach);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    std::printf("%.1f\n", nBytes / elapsed.count() / 1e6);
    return 0;
}

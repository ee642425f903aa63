// The message tree beyond what the peer harness measures: a typical nested message parsed in
// memory again and again, rebuilding from a format string, parsing a file with many parts,
// and reading an attachment back through a file source.
#include "mime/QLMimeMsg.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

// A multipart message with nParts leaves, each holding nBody bytes of base64 lines.
std::string MakeMessage(int nParts, size_t nBody) {
    std::string strLine(76, 'A');
    std::string s = "From: bench@example.org\r\nSubject: =?UTF-8?B?67O06rOg7ISc?=\r\n"
                    "Content-Type: multipart/mixed; boundary=\"=_bench_=\"\r\n\r\n";
    for (int i = 0; i < nParts; ++i) {
        s += "--=_bench_=\r\nContent-Type: application/octet-stream; name=\"part" +
             std::to_string(i) + ".bin\"\r\nContent-Transfer-Encoding: base64\r\n\r\n";
        for (size_t n = 0; n < nBody; n += 78) s += strLine + "\r\n";
    }
    return s + "--=_bench_=--\r\n";
}

class TempMessage {
public:
    explicit TempMessage(const std::string& strData) {
        char szName[] = "/tmp/qlmail-bench-XXXXXX";
        const int nFD = mkstemp(szName);
        m_strPath = szName;
        if (nFD >= 0) {
            if (write(nFD, strData.data(), strData.size()) < 0) m_strPath.clear();
            close(nFD);
        }
    }
    ~TempMessage() { unlink(m_strPath.c_str()); }
    const std::string& Path() const { return m_strPath; }

private:
    std::string m_strPath;
};

// About 16 KB, as mail mostly is: a dozen trace and address fields, an alternative text and
// HTML pair inside a mixed multipart, and a base64 attachment.
std::string MakeNestedMessage() {
    std::string s;
    for (int i = 0; i < 6; ++i)
        s += "Received: from relay" + std::to_string(i) +
             ".example.net (relay.example.net [192.0.2." + std::to_string(i) +
             "])\r\n\tby mx.example.org with ESMTPS id 4f" + std::to_string(i) +
             "c2; Mon, 2 Nov 2026 10:0" + std::to_string(i) + ":00 +0900\r\n";
    s += "From: =?UTF-8?B?7ZmN6ri464+Z?= <hong@example.org>\r\nTo: team@example.org\r\n"
         "Subject: =?UTF-8?B?7ZqM7J2YIOyekOujjA==?=\r\nDate: Mon, 2 Nov 2026 10:06:00 +0900\r\n"
         "Message-ID: <bench.1@example.org>\r\nMIME-Version: 1.0\r\n"
         "Content-Type: multipart/mixed; boundary=\"=_outer_=\"\r\n\r\n"
         "--=_outer_=\r\nContent-Type: multipart/alternative; boundary=\"=_inner_=\"\r\n\r\n"
         "--=_inner_=\r\nContent-Type: text/plain; charset=UTF-8\r\n"
         "Content-Transfer-Encoding: quoted-printable\r\n\r\n";
    for (int i = 0; i < 40; ++i)
        s += "The minutes of the meeting are attached, line " + std::to_string(i) + ".\r\n";
    s += "--=_inner_=\r\nContent-Type: text/html; charset=UTF-8\r\n\r\n";
    for (int i = 0; i < 40; ++i)
        s += "<p>The minutes of the meeting, line " + std::to_string(i) + ".</p>\r\n";
    s += "--=_inner_=--\r\n--=_outer_=\r\nContent-Type: application/pdf; name=\"minutes.pdf\"\r\n"
         "Content-Disposition: attachment; filename=\"minutes.pdf\"\r\n"
         "Content-Transfer-Encoding: base64\r\n\r\n";
    const std::string strLine(76, 'Q');
    while (s.size() < 16000) s += strLine + "\r\n";
    return s + "--=_outer_=--\r\n";
}

void BM_ParseNestedInMemory(benchmark::State& state) {
    const std::string strMsg = MakeNestedMessage();
    for (auto _ : state) {
        CQLMimeMsg msg;
        msg.Open(strMsg, false);
        benchmark::DoNotOptimize(msg.GetFormat());
        msg.Close();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(strMsg.size()));
}
BENCHMARK(BM_ParseNestedInMemory);

void BM_OpenFromFormat(benchmark::State& state) {
    const std::string strMsg = MakeMessage(static_cast<int>(state.range(0)), 2000);
    CQLMimeMsg parsed;
    parsed.Open(strMsg, false);
    const std::string strFormat = parsed.GetFormat();
    const bool bParseHdr = state.range(1) != 0;
    for (auto _ : state) {
        CQLMimeMsg msg;
        msg.Open(strMsg.c_str(), strMsg.size(), strFormat.c_str(), false, bParseHdr, bParseHdr);
        benchmark::DoNotOptimize(msg.size());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(parsed.size()));
}
BENCHMARK(BM_OpenFromFormat)->Args({40, 0})->Args({40, 1});

void BM_ParseFileManyParts(benchmark::State& state) {
    const std::string strMsg = MakeMessage(static_cast<int>(state.range(0)), 8000);
    TempMessage file(strMsg);
    for (auto _ : state) {
        CQLMimeMsg msg;
        msg.Open(file.Path(), true);
        benchmark::DoNotOptimize(msg.GetFormat());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(strMsg.size()));
}
BENCHMARK(BM_ParseFileManyParts)->Arg(10)->Arg(200);

void BM_ReadAttachmentFromFile(benchmark::State& state) {
    const std::string strMsg = MakeMessage(1, 10 << 20);
    TempMessage file(strMsg);
    CQLMimeMsg msg;
    msg.Open(file.Path(), true);
    std::string strBody;
    for (auto _ : state) {
        msg[1]->GetBody(strBody, true);
        benchmark::DoNotOptimize(strBody.data());
    }
    state.SetBytesProcessed(state.iterations() *
                            static_cast<int64_t>(msg[1]->m_nBEO - msg[1]->m_nBSO));
}
BENCHMARK(BM_ReadAttachmentFromFile)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

// How parse cost grows with the size of each shape a crafted message can grow: every shape is
// parsed at n and at 2n, in memory and from a file, with n such that a parse takes some 50 ms
// where the shape lets it, and the run ends with the ratios of the CPU times,
// time(2n)/time(n), which stay near 2 when the cost is linear. Then the cost of a large leaf
// deep down against the same leaf one level down, and the time and peak memory of refusing
// messages far past the entity limit, each in a process of its own.
//
//   bench_scaling [--warm-allocator] [--benchmark_filter=...]
//                                               benchmarks, ratios, leaf growth, refusals;
//                                               --warm-allocator keeps freed memory for the next
//                                               parse, so that the page faults of fresh memory,
//                                               which glibc's thresholds give some sizes and
//                                               not others, do not weigh on the ratios
//   bench_scaling --peak FILE mem|file          one Open of FILE: "seconds peak-KiB open"
#include "mime/QLMimeMsg.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string Repeat(const std::string& s, size_t n) {
    std::string out;
    out.reserve(s.size() * n);
    for (size_t i = 0; i < n; ++i) out += s;
    return out;
}

// n - 1 multipart levels, each with its own boundary, around one text leaf of nLeaf bytes.
std::string Nested(size_t n, size_t nLeaf) {
    std::string strHead, strTail;
    for (size_t i = 1; i < n; ++i) {
        const std::string b = "=_level" + std::to_string(i) + "_=";
        strHead += "Content-Type: multipart/mixed; boundary=\"" + b + "\"\r\n\r\n--" + b + "\r\n";
        strTail = "\r\n--" + b + "--\r\n" + strTail;
    }
    const std::string strLine(76, 'Q');
    std::string strLeaf;
    strLeaf.reserve(nLeaf + 80);
    while (strLeaf.size() < nLeaf) strLeaf += strLine + "\r\n";
    return strHead + "Content-Type: text/plain\r\n\r\n" + strLeaf + strTail;
}

const char* const kTop =
    "From: a@example.org\r\nContent-Type: multipart/mixed; boundary=\"=_b_=\"\r\n"
    "\r\n--=_b_=\r\nContent-Type: text/plain\r\n\r\n";

// One text part whose body holds the given lines n times, then the closing delimiter.
std::string PartWithLines(const std::string& strLine, size_t n) {
    return kTop + Repeat(strLine, n) + "--=_b_=--\r\n";
}

std::string Siblings(size_t n) {
    return std::string(kTop) + "x\r\n" +
           Repeat("--=_b_=\r\nContent-Type: text/plain\r\n\r\nsome text\r\n", n - 1) +
           "--=_b_=--\r\n";
}

struct Shape {
    const char* pszName;
    size_t n; // the smaller size; the larger is 2n
    std::function<std::string(size_t)> make;
};

const std::vector<Shape>& Shapes() {
    static const std::vector<Shape> vShapes = {
        {"nesting depth", 1000, [](size_t n) { return Nested(n, 16); }},
        {"siblings (under the limit)", 999, [](size_t n) { return Siblings(n + 1); }},
        {"siblings (past the limit)", 500000, [](size_t n) { return Siblings(n); }},
        {"nesting (past the limit)", 25000, [](size_t n) { return Nested(n, 16); }},
        {"long folded field", 1000000,
         [](size_t n) {
             return "Subject: start\r\n" + Repeat(" continued text of the field\r\n", n) +
                    "\r\nbody\r\n";
         }},
        {"many fields", 250000,
         [](size_t n) {
             std::string s;
             for (size_t i = 0; i < n; ++i) s += "X-Field-" + std::to_string(i) + ": value\r\n";
             return s + "\r\nbody\r\n";
         }},
        {"many encoded words", 200000,
         [](size_t n) {
             return "Subject: first\r\n" + Repeat(" =?UTF-8?B?7ZWc6rWt7Ja0?=\r\n", n) +
                    "\r\nbody\r\n";
         }},
        {"boundary-prefix lines", 1000000,
         [](size_t n) { return PartWithLines("--=_b_=X not a delimiter\r\n", n); }},
        {"dash lines", 1000000,
         [](size_t n) { return PartWithLines("-- \r\n------------------\r\n", n / 2); }},
        {"RFC 2231 sections", 100000,
         [](size_t n) {
             std::string s = "Content-Type: application/octet-stream\r\n"
                             "Content-Disposition: attachment;\r\n";
             for (size_t i = 0; i < n; ++i)
                 s += " filename*" + std::to_string(i) + "*=%ED%95%9C%EA%B5%AD;\r\n";
             return s + " size=1\r\n\r\nbody\r\n";
         }},
        {"soft line breaks", 4000000,
         [](size_t n) {
             return std::string(kTop) +
                    "x\r\n--=_b_=\r\nContent-Type: message/rfc822\r\n"
                    "Content-Transfer-Encoding: quoted-printable\r\n\r\n"
                    "Subject: =\r\nthe embedded one\r\n\r\n" +
                    Repeat("soft =\r\nbreaks =\r\n", n / 2) + "\r\n--=_b_=--\r\n";
         }},
        {"header without a line end", 32000000,
         [](size_t n) { return "Subject: " + std::string(n, 'x'); }},
    };
    return vShapes;
}

// A message written to a file for the time of the run.
class TempMessage {
public:
    explicit TempMessage(const std::string& strData) {
        char szName[] = "/tmp/qlmail-scaling-XXXXXX";
        const int nFD = mkstemp(szName);
        m_strPath = szName;
        if (nFD >= 0) {
            size_t nDone = 0;
            while (nDone < strData.size()) {
                const ssize_t n = write(nFD, strData.data() + nDone, strData.size() - nDone);
                if (n <= 0) break;
                nDone += static_cast<size_t>(n);
            }
            close(nFD);
        }
    }
    ~TempMessage() { unlink(m_strPath.c_str()); }
    const std::string& Path() const { return m_strPath; }

private:
    std::string m_strPath;
};

void BM_Open(benchmark::State& state, const std::string* pMessage, const TempMessage* pFile) {
    for (auto _ : state) {
        CQLMimeMsg msg;
        benchmark::DoNotOptimize(pFile ? msg.Open(pFile->Path(), true)
                                       : msg.Open(*pMessage, false));
    }
}

// Collects the time of every run for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& vRuns) override {
        ConsoleReporter::ReportRuns(vRuns);
        for (const Run& run : vRuns)
            if (!run.error_occurred) m_mTimes[run.benchmark_name()] = run.GetAdjustedCPUTime();
    }
    double Time(const std::string& strName) const {
        auto it = m_mTimes.find(strName);
        return it == m_mTimes.end() ? -1 : it->second;
    }

private:
    std::map<std::string, double> m_mTimes;
};

std::string Name(const std::string& strShape, const char* pszMode, size_t n) {
    return strShape + "/" + pszMode + "/" + std::to_string(n);
}

const char* const kModes[] = {"mem", "file"};

// Messages stay alive for the whole run: benchmarks refer to them.
std::vector<std::unique_ptr<std::string>> g_vMessages;
std::vector<std::unique_ptr<TempMessage>> g_vFiles;

void Register(const std::string& strShape, size_t n, const std::string& strMsg) {
    g_vMessages.push_back(std::make_unique<std::string>(strMsg));
    g_vFiles.push_back(std::make_unique<TempMessage>(strMsg));
    const std::string* pMsg = g_vMessages.back().get();
    const TempMessage* pFile = g_vFiles.back().get();
    benchmark::RegisterBenchmark(Name(strShape, "mem", n).c_str(), BM_Open, pMsg, nullptr)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(Name(strShape, "file", n).c_str(), BM_Open, pMsg, pFile)
        ->Unit(benchmark::kMillisecond);
}

// One Open in this process: its time and the peak memory it added to what was there before.
int PeakMain(const char* pszPath, bool bFile) {
    std::string strData;
    if (!bFile) {
        std::ifstream in(pszPath, std::ios::binary);
        in.seekg(0, std::ios::end);
        strData.resize(static_cast<size_t>(in.tellg()));
        in.seekg(0);
        in.read(&strData[0], static_cast<std::streamsize>(strData.size()));
    }
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    const auto t0 = std::chrono::steady_clock::now();
    bool bOpen = false;
    {
        CQLMimeMsg msg;
        bOpen = bFile ? msg.Open(pszPath, true) : msg.Open(strData, false);
        std::printf("%s\n", msg.GetLastError().c_str());
    }
    const double dSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    getrusage(RUSAGE_SELF, &after);
    auto cpu = [](const rusage& r) {
        return r.ru_utime.tv_sec + r.ru_stime.tv_sec +
               (r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
    };
    std::printf("%.4f %.4f %ld %d\n", dSeconds, cpu(after) - cpu(before),
                after.ru_maxrss - before.ru_maxrss, bOpen ? 1 : 0);
    return 0;
}

// Runs PeakMain in a fresh process and prints its figures.
void Refusal(const char* pszWhat, const std::string& strMsg) {
    TempMessage file(strMsg);
    char szExe[4096] = "";
    if (readlink("/proc/self/exe", szExe, sizeof(szExe) - 1) < 0) return;
    for (const char* pszMode : kModes) {
        const std::string strCmd =
            std::string(szExe) + " --peak " + file.Path() + " " + pszMode + " 2>&1";
        FILE* pPipe = popen(strCmd.c_str(), "r");
        if (pPipe == nullptr) continue;
        char szError[512] = "", szLine[256] = "";
        if (fgets(szError, sizeof(szError), pPipe) == nullptr ||
            fgets(szLine, sizeof(szLine), pPipe) == nullptr)
            szLine[0] = '\0';
        pclose(pPipe);
        szError[strcspn(szError, "\n")] = '\0';
        double dSeconds = 0, dCPU = 0;
        long nKiB = 0;
        int nOpen = 0;
        std::sscanf(szLine, "%lf %lf %ld %d", &dSeconds, &dCPU, &nKiB, &nOpen);
        std::printf("%-26s %-4s %6.1f MB %7.3f s (CPU %5.3f s) %6.1f MiB  %s, \"%s\"\n", pszWhat,
                    pszMode, strMsg.size() / 1e6, dSeconds, dCPU, nKiB / 1024.0,
                    nOpen ? "opened" : "refused", szError);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--peak") == 0)
        return PeakMain(argv[2], std::strcmp(argv[3], "file") == 0);
    if (argc > 1 && std::strcmp(argv[1], "--warm-allocator") == 0) {
        mallopt(M_MMAP_MAX, 0);
        mallopt(M_TRIM_THRESHOLD, INT_MAX);
        std::printf("allocator kept warm: no mmap, no trim\n");
        --argc;
        ++argv;
    }

    for (const Shape& shape : Shapes())
        for (size_t n : {shape.n, 2 * shape.n}) Register(shape.pszName, n, shape.make(n));
    const size_t kSmallLeaf = 4 << 10, kLargeLeaf = 4 << 20;
    for (size_t nDepth : {2, 1999})
        for (size_t nLeaf : {kSmallLeaf, kLargeLeaf})
            Register("leaf at depth " + std::to_string(nDepth), nLeaf, Nested(nDepth, nLeaf));

    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::printf("\ntime(2n)/time(n)                      n        mem   file\n");
    for (const Shape& shape : Shapes()) {
        std::printf("%-34s %8zu", shape.pszName, shape.n);
        for (const char* pszMode : kModes) {
            const double t1 = reporter.Time(Name(shape.pszName, pszMode, shape.n));
            const double t2 = reporter.Time(Name(shape.pszName, pszMode, 2 * shape.n));
            if (t1 > 0 && t2 > 0)
                std::printf("  %5.2f", t2 / t1);
            else
                std::printf("      -");
        }
        std::printf("\n");
    }

    std::printf("\nleaf grown from 4 KB to 4 MB: time added at depth 1999 / at depth 2\n");
    for (const char* pszMode : kModes) {
        auto added = [&](size_t nDepth) {
            const std::string strShape = "leaf at depth " + std::to_string(nDepth);
            return reporter.Time(Name(strShape, pszMode, kLargeLeaf)) -
                   reporter.Time(Name(strShape, pszMode, kSmallLeaf));
        };
        const double dDeep = added(1999), dShallow = added(2);
        std::printf("%-4s  %9.3f ms / %7.3f ms = %6.2f\n", pszMode, dDeep, dShallow,
                    dShallow > 0 ? dDeep / dShallow : 0.0);
    }

    std::printf("\nrefused past the entity limit, one Open in a process of its own: time, peak "
                "memory above what the process held before\n");
    Refusal("1,000,000 sibling parts", Siblings(1000000));
    Refusal("100,000 nested levels", Nested(100000, 16));
    benchmark::Shutdown();
    return 0;
}

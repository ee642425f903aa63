#include "codec/QLConvParser.h"
#include "codec/QLHdrCodec.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

const size_t kMiB = 1024 * 1024;

// About 1 MiB of text made of repeated lines.
std::string Repeat(const std::string& strLine) {
    std::string str;
    while (str.size() < kMiB) str += strLine;
    return str;
}

// About 1 MiB of Korean text in EUC-KR: lines of Hangul with ASCII between them.
std::string MakeEucKr() {
    return Repeat("\xC7\xD1\xB1\xDB \xB8\xDE\xC0\xCF \xC5\xD7\xBD\xBA\xC6\xAE "
                  "abc 123 \xBE\xC8\xB3\xE7\xC7\xCF\xBC\xBC\xBF\xE4.\r\n");
}

void Convert(benchmark::State& state, const char* pszFrom, const std::string& strText) {
    CQLConvParser conv;
    const bool bDiscard = true;
    if (!conv.Open(pszFrom, "UTF-8", bDiscard)) {
        state.SkipWithError("cannot open the converter");
        return;
    }
    for (auto _ : state) {
        std::string strOut = conv.Conv(strText.data(), strText.size());
        benchmark::DoNotOptimize(strOut.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * strText.size()));
}

void BM_ConvEucKrToUtf8(benchmark::State& state) {
    static const std::string strText = MakeEucKr();
    Convert(state, "euc-kr", strText);
}
BENCHMARK(BM_ConvEucKrToUtf8)->Unit(benchmark::kMillisecond);

// English mail text with an accented word now and then.
void BM_ConvUtf8ToUtf8Ascii(benchmark::State& state) {
    static const std::string strText =
        Repeat("Dear all, the meeting notes are attached; please reply before Friday. "
               "Caf\xC3\xA9 at 10:00.\r\n");
    Convert(state, "UTF-8", strText);
}
BENCHMARK(BM_ConvUtf8ToUtf8Ascii)->Unit(benchmark::kMillisecond);

// Korean mail text: Hangul words with blanks and punctuation between them (69 of the 79
// bytes of a line are Hangul).
void BM_ConvUtf8ToUtf8Korean(benchmark::State& state) {
    static const std::string strText = Repeat(
        "\xEC\x95\x88\xEB\x85\x95\xED\x95\x98\xEC\x84\xB8\xEC\x9A\x94. \xED\x9A\x8C\xEC\x9D\x98 "
        "\xEC\x9E\x90\xEB\xA3\x8C\xEB\xA5\xBC "
        "\xEC\xB2\xA8\xEB\xB6\x80\xED\x95\xA9\xEB\x8B\x88\xEB\x8B\xA4. "
        "\xED\x99\x95\xEC\x9D\xB8 "
        "\xEB\xB6\x80\xED\x83\x81\xEB\x93\x9C\xEB\xA6\xBD\xEB\x8B\x88\xEB\x8B\xA4.\r\n");
    Convert(state, "UTF-8", strText);
}
BENCHMARK(BM_ConvUtf8ToUtf8Korean)->Unit(benchmark::kMillisecond);

// A subject line of about 200 bytes with two encoded words folded apart.
void BM_HdrDecodeSubject(benchmark::State& state) {
    const std::string strSubject =
        "Re: [dev] "
        "=?ks_c_5601-1987?B?x9Gx2yDF1726xq4guN7AzyDBprjxwNS0z7TZIMi4wMcgwM/BpCC+yLO7teW4s7TPtNk=?="
        "\r\n =?utf-8?Q?=ED=9A=8C=EC=9D=98_=EC=9E=90=EB=A3=8C_=EC=B2=A8=EB=B6=80?= (2) - please "
        "reply by Friday";
    for (auto _ : state) {
        CQLHdrCodec codec;
        std::string strOut =
            codec.Decode(strSubject, "UTF-8", "euc-kr", CQLHdrCodec::O_HDRCODEC_NONE);
        benchmark::DoNotOptimize(strOut.data());
    }
    state.SetLabel(std::to_string(strSubject.size()) + " bytes");
}
BENCHMARK(BM_HdrDecodeSubject);

} // namespace

BENCHMARK_MAIN();

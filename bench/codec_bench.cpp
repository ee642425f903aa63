// Decoding speed of the transfer codecs on attachment-sized bodies: 10 MiB of mail text in
// lines of 76 characters with CR LF line ends.
#include "codec/QLCodecParser.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>

namespace {

constexpr size_t kBodySize = 10u << 20;

std::string RandomBytes(size_t n, unsigned nSeed) {
    std::mt19937 gen(nSeed);
    std::string s(n, '\0');
    for (auto& c : s) c = static_cast<char>(gen() & 0xFF);
    return s;
}

// Base64 as mailers write it: 57 source bytes, 76 characters, CR LF.
const std::string& Base64Body() {
    static const std::string strBody = [] {
        CQLCodecParser codec;
        const bool bNoBreak = false;
        const std::string strFlat =
            codec.EncodeB64(RandomBytes(kBodySize / 78 * 57, 1), bNoBreak, true, 76);
        std::string strOut;
        strOut.reserve(strFlat.size() + strFlat.size() / 76 * 2 + 2);
        for (size_t i = 0; i < strFlat.size(); i += 76) {
            strOut.append(strFlat, i, 76);
            strOut += "\r\n";
        }
        return strOut;
    }();
    return strBody;
}

// Quoted-printable of mail text with soft breaks at 76 columns. bKorean gives UTF-8 Korean
// prose, where most bytes are escapes; otherwise it is plain English with a few escapes.
std::string QPBody(bool bKorean) {
    const std::string strLine =
        bKorean ? "\xec\x95\x88\xeb\x85\x95\xed\x95\x98\xec\x84\xb8\xec\x9a\x94. "
                  "\xed\x9a\x8c\xec\x9d\x98 \xec\x9e\x90\xeb\xa3\x8c\xeb\xa5\xbc "
                  "\xeb\xb3\xb4\xeb\x82\xb4 \xeb\x93\x9c\xeb\xa6\xbd\xeb\x8b\x88\xeb\x8b\xa4.\r\n"
                : "Dear all, please find the minutes of today's meeting attached = see "
                  "section 2 for the caf\xc3\xa9 budget and next steps.\r\n";
    std::string strText;
    while (strText.size() < kBodySize / 2) strText += strLine;
    CQLCodecParser codec;
    const bool bBreak = true;
    std::string strBody = codec.EncodeQP(strText, bBreak, false, 76);
    while (strBody.size() < kBodySize) strBody += strBody;
    strBody.resize(kBodySize);
    return strBody;
}

void BM_DecodeB64(benchmark::State& state) {
    const std::string& strBody = Base64Body();
    CQLCodecParser codec;
    for (auto _ : state) {
        std::string strOut = codec.DecodeB64(strBody, true);
        benchmark::DoNotOptimize(strOut.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(strBody.size()));
}

void BM_DecodeQP(benchmark::State& state) {
    static const std::string strEnglish = QPBody(false);
    static const std::string strKorean = QPBody(true);
    const std::string& strBody = state.range(0) ? strKorean : strEnglish;
    CQLCodecParser codec;
    for (auto _ : state) {
        std::string strOut = codec.DecodeQP(strBody, true);
        benchmark::DoNotOptimize(strOut.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(strBody.size()));
    state.SetLabel(state.range(0) ? "korean" : "english");
}

void BM_EncodeB64(benchmark::State& state) {
    static const std::string strData = RandomBytes(kBodySize / 4 * 3, 2);
    CQLCodecParser codec;
    const bool bBreak = true;
    for (auto _ : state) {
        std::string strOut = codec.EncodeB64(strData, bBreak, true, 54);
        benchmark::DoNotOptimize(strOut.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(strData.size()));
}

} // namespace

BENCHMARK(BM_DecodeB64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeQP)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeB64)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

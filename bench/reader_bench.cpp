// The reading facade as a mail web application uses it: a stored message opened through its
// format string for a header request, a text request and an attachment download.
//
// Messages are written to a private temp directory the first time a benchmark needs them
// (the biggest is 200 MiB) and indexed once, as a store does on arrival; the directory is
// removed when the program ends.
//
// bytes_per_second counts source bytes: the body as it stands in the file (BSO to BEO),
// before any decoding. out_per_second counts what the call delivers.
#include "codec/QLCodecParser.h"
#include "foundation/QLFileParser.h"
#include "mime/QLMimeConst.h"
#include "mime/QLMimeMsg.h"
#include "reader/QLMimeMsgInfo.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace {

const std::string kUtf8 = "UTF-8";
const std::string kNone;
const size_t kKiB = 1024;
const size_t kMiB = 1024 * kKiB;

// ---- stored messages ----

class CBenchDir {
public:
    CBenchDir()
        : m_strDir(std::filesystem::temp_directory_path().string() + "/qlmail-bench-XXXXXX") {
        if (mkdtemp(m_strDir.data()) == nullptr) m_strDir.clear();
    }
    ~CBenchDir() {
        std::error_code ec;
        if (!m_strDir.empty()) std::filesystem::remove_all(m_strDir, ec);
    }
    std::string Path(const std::string& strName) const { return m_strDir + "/" + strName; }
    bool Ok() const { return !m_strDir.empty(); }

private:
    std::string m_strDir;
};

CBenchDir* g_pDir = nullptr;

struct Stored {
    std::string strPath;
    std::string strFormat;
    bool bOk = false;
};

// Indexes a written file as the store does: one parse, the format string kept.
Stored Index(const std::string& strPath) {
    Stored s;
    s.strPath = strPath;
    CQLMimeMsg msg;
    if (!msg.Open(strPath, true)) return s;
    s.strFormat = msg.GetFormat();
    s.bOk = true;
    return s;
}

// The top header of a message as it arrives: trace fields, encoded words, a multipart.
std::string TopHeader(const std::string& strBoundary) {
    std::string s;
    for (int i = 0; i < 5; ++i)
        s += "Received: from relay" + std::to_string(i) + ".example.net (relay" +
             std::to_string(i) + ".example.net [192.0.2." + std::to_string(10 + i) +
             "])\r\n\tby mx.example.org (Postfix) with ESMTPS id 4Fq" + std::to_string(i) +
             "Zk2; Mon, 2 Nov 2026 10:0" + std::to_string(i) + ":00 +0900 (KST)\r\n";
    s += "From: =?UTF-8?B?7ZmN6ri464+Z?= <hong@example.org>\r\n"
         "To: =?EUC-KR?B?sei/tcj1?= <kim@example.org>, team@example.org\r\n"
         "Subject: =?UTF-8?B?W+qwnOuwnO2MgF0g7ZqM7J2YIOyekOujjCDsspjrtoA=?=\r\n"
         " =?UTF-8?Q?_(2=EC=B0=A8)?=\r\n"
         "Date: Mon, 2 Nov 2026 10:06:00 +0900\r\n"
         "Message-ID: <20261102100600.4Fq0Zk2@mx.example.org>\r\n"
         "MIME-Version: 1.0\r\n"
         "Content-Type: multipart/mixed; boundary=\"" +
         strBoundary + "\"\r\n\r\n";
    return s;
}

// nLen bytes of base64 text in 76-character lines with CR LF, decoding to distinct bytes.
std::string Base64Lines(size_t nLen) {
    std::string strData(nLen / 78 * 57 + 57, '\0');
    for (size_t i = 0; i < strData.size(); ++i)
        strData[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    CQLCodecParser codec;
    const std::string strFlat = codec.EncodeB64(strData, false, true, 76);
    std::string s;
    s.reserve(nLen + 80);
    for (size_t i = 0; i + 76 <= strFlat.size() && s.size() + 78 <= nLen; i += 76) {
        s.append(strFlat, i, 76);
        s += "\r\n";
    }
    return s;
}

// A message of about nSize bytes: a short text part and a base64 attachment filling the rest.
// The attachment is written in pieces, so that a 200 MiB message costs no 200 MiB of memory.
bool WriteSizedMessage(const std::string& strPath, size_t nSize) {
    std::ofstream out(strPath, std::ios::binary);
    const std::string strBoundary = "=_qlmail_bench_=";
    std::string strHead = TopHeader(strBoundary) + "--" + strBoundary +
                          "\r\nContent-Type: text/plain; charset=UTF-8\r\n"
                          "Content-Transfer-Encoding: 8bit\r\n\r\n"
                          "The report is attached.\r\n\r\n--" +
                          strBoundary +
                          "\r\nContent-Type: application/pdf; name=\"report.pdf\"\r\n"
                          "Content-Disposition: attachment; filename=\"report.pdf\"\r\n"
                          "Content-Transfer-Encoding: base64\r\n\r\n";
    const std::string strTail = "\r\n--" + strBoundary + "--\r\n";
    out << strHead;
    size_t nLeft =
        nSize > strHead.size() + strTail.size() + 78 ? nSize - strHead.size() - strTail.size() : 78;
    const std::string strPiece = Base64Lines(std::min(nLeft, 4 * kMiB));
    while (nLeft >= strPiece.size()) {
        out << strPiece;
        nLeft -= strPiece.size();
    }
    out << strPiece.substr(0, nLeft / 78 * 78) << strTail;
    return static_cast<bool>(out);
}

// Each message is made once per run, on first use.
const Stored& StoredMessage(const std::string& strName, const std::string& (*pMake)(),
                            size_t nSize = 0) {
    static std::map<std::string, Stored> mMessages;
    auto it = mMessages.find(strName);
    if (it != mMessages.end()) return it->second;
    const std::string strPath = g_pDir->Path(strName);
    bool bWritten = false;
    if (pMake != nullptr) {
        std::ofstream out(strPath, std::ios::binary);
        out << pMake();
        bWritten = static_cast<bool>(out);
    } else {
        bWritten = WriteSizedMessage(strPath, nSize);
    }
    Stored s = bWritten ? Index(strPath) : Stored{};
    return mMessages.emplace(strName, s).first->second;
}

// ---- header request ----

// A fresh object over the stored string, then the decoded Subject and From, as the message
// list of the web application asks them. Flat in the message's size: only the top header
// block is read.
void BM_HeaderRequest(benchmark::State& state) {
    const size_t nSize = static_cast<size_t>(state.range(0)) * kKiB;
    const Stored& s = StoredMessage("sized-" + std::to_string(nSize), nullptr, nSize);
    if (!s.bOk) return state.SkipWithError("cannot write or index the message");
    std::string strSubject, strFrom;
    for (auto _ : state) {
        CQLMimeMsgInfo info(s.strPath, s.strFormat);
        if (!info.GetHeaderValue("Subject", strSubject, true, kUtf8, kUtf8, kNone) ||
            !info.GetHeaderValue("From", strFrom, true, kUtf8, kUtf8, kNone))
            return state.SkipWithError(info.GetLastError().c_str());
        benchmark::DoNotOptimize(strSubject.data());
        benchmark::DoNotOptimize(strFrom.data());
    }
    state.SetLabel(std::to_string(CQLFileParser::GetSize(s.strPath)) + " bytes");
}
BENCHMARK(BM_HeaderRequest)
    ->Arg(2)
    ->Arg(64)
    ->Arg(1024)
    ->Arg(16 * 1024)
    ->Arg(200 * 1024)
    ->Unit(benchmark::kMicrosecond);

// ---- text request ----

// Body bytes between the stored offsets of every text/plain record.
int64_t PlainBodyBytes(const Stored& s) {
    CQLMimeMsgInfo info(s.strFormat);
    CQLMimeMsgInfo::CQLMimeMsgInfoItem item;
    int64_t nBytes = 0;
    info.InitAttachCursor();
    for (const char* p = info.m_Tokenizer.GetNext(info.m_nTokenLen); p != nullptr;
         p = info.m_Tokenizer.GetNext(info.m_nTokenLen)) {
        item.Set(p);
        if (item.m_CT == CQLMimeConst::TEXT && item.m_SubCT == CQLMimeConst::PLAIN &&
            item.m_strFilename.empty())
            nBytes += item.m_nBEO - item.m_nBSO;
    }
    return nBytes;
}

void TextRequest(benchmark::State& state, const Stored& s) {
    if (!s.bOk) return state.SkipWithError("cannot write or index the message");
    std::string strOut;
    for (auto _ : state) {
        CQLMimeMsgInfo info(s.strPath, s.strFormat);
        if (!info.GetText(strOut, false, kUtf8, kNone, kUtf8, true, kNone))
            return state.SkipWithError(info.GetLastError().c_str());
        benchmark::DoNotOptimize(strOut.data());
    }
    state.SetBytesProcessed(state.iterations() * PlainBodyBytes(s));
    state.counters["out_per_second"] = benchmark::Counter(
        static_cast<double>(strOut.size()), benchmark::Counter::kIsIterationInvariantRate,
        benchmark::Counter::OneK::kIs1024);
}

const std::string kEnglishLine = "Dear all, the minutes of today's meeting are attached; please "
                                 "reply before Friday. Caf\xC3\xA9 at 10:00.\r\n";
const std::string kKoreanLine =
    "\xEC\x95\x88\xEB\x85\x95\xED\x95\x98\xEC\x84\xB8\xEC\x9A\x94. \xED\x9A\x8C\xEC\x9D\x98 "
    "\xEC\x9E\x90\xEB\xA3\x8C\xEB\xA5\xBC \xEC\xB2\xA8\xEB\xB6\x80\xED\x95\xA9\xEB\x8B\x88"
    "\xEB\x8B\xA4. \xED\x99\x95\xEC\x9D\xB8 \xEB\xB6\x80\xED\x83\x81\xEB\x93\x9C\xEB\xA6\xBD"
    "\xEB\x8B\x88\xEB\x8B\xA4.\r\n";

std::string Repeat(const std::string& strLine, size_t nLen) {
    std::string s;
    while (s.size() + strLine.size() <= nLen) s += strLine;
    return s;
}

// A single text/plain part of 1 MiB in UTF-8, as it stands in the file: 8bit, or
// quoted-printable with soft breaks at 76 columns.
std::string TextMessage(bool bKorean, bool bQP) {
    const std::string strText = Repeat(bKorean ? kKoreanLine : kEnglishLine, kMiB);
    std::string strBody = strText;
    if (bQP) {
        CQLCodecParser codec;
        strBody = codec.EncodeQP(strText, true, false, 76);
        strBody.resize(strBody.rfind("\r\n", kMiB) + 2);
    }
    return "From: a@example.org\r\nSubject: text\r\nMIME-Version: 1.0\r\n"
           "Content-Type: text/plain; charset=UTF-8\r\nContent-Transfer-Encoding: " +
           std::string(bQP ? "quoted-printable" : "8bit") + "\r\n\r\n" + strBody;
}

const std::string& English8bit() {
    static const std::string s = TextMessage(false, false);
    return s;
}
const std::string& EnglishQP() {
    static const std::string s = TextMessage(false, true);
    return s;
}
const std::string& Korean8bit() {
    static const std::string s = TextMessage(true, false);
    return s;
}
const std::string& KoreanQP() {
    static const std::string s = TextMessage(true, true);
    return s;
}

void BM_GetText1MiB(benchmark::State& state) {
    static const struct {
        const char* pszName;
        const std::string& (*pMake)();
    } kBodies[] = {{"english-8bit", English8bit},
                   {"english-qp", EnglishQP},
                   {"korean-8bit", Korean8bit},
                   {"korean-qp", KoreanQP}};
    const auto& body = kBodies[state.range(0)];
    state.SetLabel(body.pszName);
    TextRequest(state, StoredMessage(body.pszName, body.pMake));
}
BENCHMARK(BM_GetText1MiB)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

// About 8 KiB as mail mostly is: a plain and an html alternative in quoted-printable,
// Korean in UTF-8 or in EUC-KR.
std::string AlternativeMessage(bool bEucKr) {
    const std::string strKoreanEucKr = "\xC7\xD1\xB1\xDB \xB8\xDE\xC0\xCF \xC5\xD7\xBD\xBA\xC6\xAE "
                                       "abc 123 \xBE\xC8\xB3\xE7\xC7\xCF\xBC\xBC\xBF\xE4.\r\n";
    const std::string strLine = bEucKr ? strKoreanEucKr : kKoreanLine;
    const std::string strCharset = bEucKr ? "EUC-KR" : "UTF-8";
    CQLCodecParser codec;
    const std::string strPlain = codec.EncodeQP(Repeat(strLine, 3 * kKiB), true, false, 76);
    const std::string strHtml = codec.EncodeQP(
        "<html><body><p>" + Repeat(strLine, 3 * kKiB) + "</p></body></html>", true, false, 76);
    return TopHeader("=_alt_=") + "--=_alt_=\r\nContent-Type: text/plain; charset=" + strCharset +
           "\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n" + strPlain +
           "\r\n--=_alt_=\r\nContent-Type: text/html; charset=" + strCharset +
           "\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n" + strHtml +
           "\r\n--=_alt_=--\r\n";
}

const std::string& AlternativeUtf8() {
    static const std::string s = AlternativeMessage(false);
    return s;
}
const std::string& AlternativeEucKr() {
    static const std::string s = AlternativeMessage(true);
    return s;
}

void BM_TextRequest8KiB(benchmark::State& state) {
    const bool bEucKr = state.range(0) != 0;
    state.SetLabel(bEucKr ? "euc-kr" : "utf-8");
    TextRequest(state, bEucKr ? StoredMessage("alt-euckr", AlternativeEucKr)
                              : StoredMessage("alt-utf8", AlternativeUtf8));
}
BENCHMARK(BM_TextRequest8KiB)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// ---- attachments ----

// The first attachment of a stored message, found as the download page finds it.
bool FirstAttach(CQLMimeMsgInfo& info, CQLMimeAttachInfo& attach) {
    info.InitAttachCursor();
    return info.GetNextAttach(attach, kUtf8, kUtf8, kNone);
}

// Streams one part to its end; returns the decoded bytes.
int64_t StreamAll(CQLMimeMsgInfo& info, const CQLMimeAttachInfo& attach, std::string& strBlock) {
    int64_t nOut = 0;
    if (!info.OpenAttach(attach)) return -1;
    while (info.GetAttachContentNext(strBlock, true)) nOut += static_cast<int64_t>(strBlock.size());
    info.CloseAttach();
    return nOut;
}

// A download: blocks of about 10240 source bytes, decoded as they come, each dropped.
void BM_StreamAttach(benchmark::State& state) {
    const size_t nSize = static_cast<size_t>(state.range(0)) * kMiB;
    const Stored& s = StoredMessage("sized-" + std::to_string(nSize), nullptr, nSize);
    if (!s.bOk) return state.SkipWithError("cannot write or index the message");
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    CQLMimeAttachInfo attach;
    if (!FirstAttach(info, attach)) return state.SkipWithError("no attachment");
    std::string strBlock;
    int64_t nOut = 0;
    for (auto _ : state) nOut = StreamAll(info, attach, strBlock);
    if (nOut < 0) return state.SkipWithError(info.GetLastError().c_str());
    state.SetBytesProcessed(state.iterations() * (attach.m_nEndPos - attach.m_nStartPos));
    state.counters["out_per_second"] =
        benchmark::Counter(static_cast<double>(nOut), benchmark::Counter::kIsIterationInvariantRate,
                           benchmark::Counter::OneK::kIs1024);
}
BENCHMARK(BM_StreamAttach)->Arg(10)->Unit(benchmark::kMillisecond);

// The yardstick of the stream: the same source bytes, already in memory, decoded in one call.
void BM_DecodeB64Bulk(benchmark::State& state) {
    const size_t nSize = static_cast<size_t>(state.range(0)) * kMiB;
    const Stored& s = StoredMessage("sized-" + std::to_string(nSize), nullptr, nSize);
    if (!s.bOk) return state.SkipWithError("cannot write or index the message");
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    CQLMimeAttachInfo attach;
    if (!FirstAttach(info, attach)) return state.SkipWithError("no attachment");
    std::string strBody;
    CQLFileParser file(s.strPath, false);
    file.Open(CQLFileParser::FILE_READ);
    file.SetPos(static_cast<long>(attach.m_nStartPos), CQLFileParser::POS_SET);
    file.Read(strBody, attach.m_nEndPos - attach.m_nStartPos);
    CQLCodecParser codec;
    size_t nOut = 0;
    for (auto _ : state) {
        std::string strOut = codec.DecodeB64(strBody, true);
        nOut = strOut.size();
        benchmark::DoNotOptimize(strOut.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(strBody.size()));
    state.counters["out_per_second"] =
        benchmark::Counter(static_cast<double>(nOut), benchmark::Counter::kIsIterationInvariantRate,
                           benchmark::Counter::OneK::kIs1024);
}
BENCHMARK(BM_DecodeB64Bulk)->Arg(10)->Unit(benchmark::kMillisecond);

long StatusKiB(const char* pszField) {
    std::ifstream in("/proc/self/status");
    std::string strLine;
    const size_t nField = strlen(pszField);
    while (std::getline(in, strLine))
        if (strLine.compare(0, nField, pszField) == 0) return std::stol(strLine.substr(nField));
    return -1;
}

// The 200 MiB attachment streamed to its end: the peak resident size of the process, and how
// far the stream raised it (the peak is reset to the present size before the stream starts).
void BM_StreamAttachPeak(benchmark::State& state) {
    const size_t nSize = 200 * kMiB;
    const Stored& s = StoredMessage("sized-" + std::to_string(nSize), nullptr, nSize);
    if (!s.bOk) return state.SkipWithError("cannot write or index the message");
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    CQLMimeAttachInfo attach;
    if (!FirstAttach(info, attach)) return state.SkipWithError("no attachment");
    std::string strBlock;
    long nRise = 0;
    for (auto _ : state) {
        std::ofstream("/proc/self/clear_refs") << "5";
        const long nBefore = StatusKiB("VmHWM:");
        if (StreamAll(info, attach, strBlock) < 0)
            return state.SkipWithError(info.GetLastError().c_str());
        nRise = std::max(nRise, StatusKiB("VmHWM:") - nBefore);
    }
    state.SetBytesProcessed(state.iterations() * (attach.m_nEndPos - attach.m_nStartPos));
    state.counters["peak_rise_KiB"] = static_cast<double>(nRise);
    state.counters["peak_KiB"] = static_cast<double>(StatusKiB("VmHWM:"));
}
BENCHMARK(BM_StreamAttachPeak)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    CBenchDir dir;
    if (!dir.Ok()) {
        fprintf(stderr, "cannot make a temp directory\n");
        return 1;
    }
    g_pDir = &dir;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

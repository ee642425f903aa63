// Arbitrary bytes as a message: parse in memory and from a file, write the format string,
// rebuild from it, and read every part. The two sources must give the same tree, and so must
// parses that look their delimiters up in an index, which Open uses only for messages far
// larger than a fuzzer's inputs. Then the message is rewritten in memory, and the patched
// offsets must agree with a fresh parse.
#include "FuzzCommon.h"

#include "../tests/mime/RewriteCheck.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

// A comma, 0x05 or NUL in a string field shifts or cuts the records behind it.
bool HasDelimiter(const CQLMimeMsg& msg) {
    const std::string strDelims(",\x05\0", 3);
    for (const CQLMimeMsg* p : msg) {
        for (const std::string* s :
             {&p->m_strDepth, &p->m_strCharSet, &p->m_strCID, &p->m_strFilename})
            if (s->find_first_of(strDelims) != std::string::npos) return true;
    }
    return false;
}

// Searches for a boundary of a whole 4096-byte block or more never succeed in a file.
bool HasLongBoundary(const CQLMimeMsg& msg) {
    for (const CQLMimeMsg* p : msg)
        if (p->m_Hdr.GetBoundary().size() + 3 >= 4096) return true;
    return false;
}

void Check(bool bOk, const char* pszWhat) {
    if (!bOk) {
        std::fprintf(stderr, "fuzz_message: %s\n", pszWhat);
        std::abort();
    }
}

// Checks the write-back of entry k that has just happened, as the tests do. Answers whether
// the patched list differs from a fresh parse where the tables allow it.
bool CheckRewrite(CQLMimeMsg& msg, const std::vector<rewrite_check::Cells>& before,
                  const std::string& strOld, bool bBody, int k) {
    using namespace rewrite_check;
    std::string strNew;
    msg.Save(strNew);
    const int64_t nDelta =
        static_cast<int64_t>(strNew.size()) - static_cast<int64_t>(strOld.size());
    const auto range = EditedRange(before[k], bBody);
    Check(strNew.compare(0, range.first, strOld, 0, range.first) == 0 &&
              strNew.compare(range.second + nDelta, std::string::npos, strOld, range.second,
                             std::string::npos) == 0,
          "a rewrite changed bytes outside its range");
    const std::vector<Cells> after = Snapshot(msg);
    std::string strError = PatchedByTable(before, after, bBody, k, nDelta);
    if (strError.empty()) {
        CQLMimeMsg fresh;
        fresh.Open(strNew, false);
        bool bDiffers = false;
        strError = LikeFresh(before, after, Snapshot(fresh), nDelta, bDiffers);
        if (strError.empty()) return bDiffers;
    }
    std::fprintf(stderr, "fuzz_message: %s rewrite of entry %d: %s\n", bBody ? "body" : "header", k,
                 strError.c_str());
    std::abort();
}

// A header field written back on one entry, then the body of one leaf replaced, both chosen by
// the input's bytes, on entries whose edit leaves the shape of the message alone (elsewhere an
// edit may change which parts a damaged message has, which no patching could follow).
void RewriteInMemory(const std::string& strData) {
    using namespace rewrite_check;
    CQLMimeMsg msg;
    if (!msg.Open(strData, false) || msg.empty()) return;
    size_t nPick = strData.size();
    for (unsigned char c : strData.substr(0, 16)) nPick = nPick * 31 + c;
    for (bool bBody : {false, true}) {
        const std::vector<Cells> before = Snapshot(msg);
        std::string strOld;
        msg.Save(strOld);
        std::vector<size_t> vSane;
        const bool bWellFormed = WellFormed(before) && DelimitersStay(msg, strOld);
        for (size_t i = 0; i < before.size() && bWellFormed; ++i)
            if (Editable(before, i, bBody, strOld)) vSane.push_back(i);
        if (vSane.empty()) continue;
        const size_t k = vSane[nPick % vSane.size()];
        nPick /= 7;
        static const CQLMimeConst::ENCODER kEncoders[] = {
            CQLMimeConst::ENCODER_7BIT, CQLMimeConst::ENCODER_BASE64, CQLMimeConst::ENCODER_QP};
        const CQLMimeConst::ENCODER eEncoder = kEncoders[nPick % 3];
        const bool bDone =
            bBody ? msg[k]->SetBody("fuzz body" + BodyLineEnd(before[k], strOld), false, eEncoder)
                  : msg[k]->AddHdrItem("X-Fuzz", "value", eEncoder, "UTF-8", nPick % 2 != 0,
                                       nPick % 4 < 2, true);
        Check(bDone, "a rewrite in memory failed");
        if (CheckRewrite(msg, before, strOld, bBody, static_cast<int>(k))) {
            // The tables left the list unlike the message: the next edit starts afresh.
            std::string strNew;
            msg.Save(strNew);
            if (!msg.Open(strNew, false) || msg.empty()) return;
        }
    }
}

bool SameParts(const CQLMimeMsg& a, const CQLMimeMsg& b) {
    return a.m_nHSO == b.m_nHSO && a.m_nHEO == b.m_nHEO && a.m_nTSO == b.m_nTSO &&
           a.m_nTEO == b.m_nTEO && a.m_nMSO == b.m_nMSO && a.m_nMEO == b.m_nMEO &&
           a.m_nBSO == b.m_nBSO && a.m_nBEO == b.m_nBEO && a.m_strDepth == b.m_strDepth &&
           a.m_CT == b.m_CT && a.m_SubCT == b.m_SubCT && a.m_Encoder == b.m_Encoder &&
           a.m_nLineCnt == b.m_nLineCnt && a.m_strCharSet == b.m_strCharSet &&
           a.m_strCID == b.m_strCID && a.m_strFilename == b.m_strFilename;
}

// A source whose parses index every message.
template <class Source> class Indexed : public Source {
public:
    Indexed() {
        this->m_nIndexFrom = 0;
        this->m_nIndexAfter = 0;
    }
};

// Parses through the index and checks the parts against those of an Open of the same source
// kind. A file source must also leave its scratch buffer as the direct searches left it,
// which searches that run into the end of the file can see.
template <class Source>
void CheckIndexed(const std::string& strLoad, bool bFile, CQLMimeMsg& direct, bool bOpen) {
    Indexed<Source> source;
    if (!source.SetData(strLoad, bFile)) return;
    CQLMimeMsg tmp;
    CQLFixedObjPoolParser<CQLMimeMsg> pool;
    int nPartCnt = 0, nParseCnt = 0;
    tmp.Parse(&source, 0, source.GetLength(), nPartCnt, pool, nParseCnt, false);
    Check(tmp.size() == direct.size(), "the index gives other parts");
    for (size_t i = 0; i < tmp.size(); ++i)
        Check(SameParts(*tmp[i], *direct[i]), "the index gives another part");
    if (bOpen) Check(tmp.GetLastError() == direct.GetLastError(), "the index gives another error");
    if (!bFile) return;
    const unsigned long nLength = source.GetLength();
    for (unsigned long nBack : {1ul, 100ul}) {
        const unsigned long nFrom = nLength > nBack ? nLength - nBack : 0;
        int nLineA = 0, nLineB = 0;
        Check(source.Find("\n--", nFrom, &nLineA, nullptr) ==
                      direct.m_MimeFile.Find("\n--", nFrom, &nLineB, nullptr) &&
                  nLineA == nLineB,
              "the index leaves another scratch buffer");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    AbortOnPlantedInput(pData, nSize);
    const std::string strData(reinterpret_cast<const char*>(pData), nSize);
    CQLMimeMsg mem;
    const bool bMem = mem.Open(strData, false);
    const std::string strFormat = mem.GetFormat();

    MemFile file(strData);
    CQLMimeMsg fromFile;
    const bool bFile = fromFile.Open(file.Path(), true);
    if (!strData.empty() && !HasLongBoundary(mem)) {
        Check(bMem == bFile, "memory and file disagree on Open");
        Check(mem.size() == fromFile.size(), "memory and file disagree on the parts");
        for (size_t i = 0; i < mem.size(); ++i) {
            const CQLMimeMsg& a = *mem[i];
            const CQLMimeMsg& b = *fromFile[i];
            Check(a.m_nHSO == b.m_nHSO && a.m_nHEO == b.m_nHEO && a.m_nTSO == b.m_nTSO &&
                      a.m_nTEO == b.m_nTEO && a.m_nMSO == b.m_nMSO && a.m_nMEO == b.m_nMEO &&
                      a.m_nBSO == b.m_nBSO && a.m_nBEO == b.m_nBEO,
                  "memory and file disagree on offsets");
            Check(a.m_strDepth == b.m_strDepth && a.m_CT == b.m_CT && a.m_SubCT == b.m_SubCT &&
                      a.m_Encoder == b.m_Encoder && a.m_strCharSet == b.m_strCharSet &&
                      a.m_strCID == b.m_strCID && a.m_strFilename == b.m_strFilename,
                  "memory and file disagree on a part");
        }
    }

    if (bMem && !strFormat.empty() && !HasDelimiter(mem)) {
        for (bool bParseHdr : {false, true}) {
            CQLMimeMsg rebuilt;
            Check(rebuilt.Open(strData.c_str(), strData.size(), strFormat.c_str(), false, bParseHdr,
                               bParseHdr),
                  "a format string does not open");
            // The message text is taken up to its first NUL when rebuilt.
            if (strData.find('\0') == std::string::npos)
                Check(rebuilt.GetFormat() == strFormat, "the format string does not round-trip");
            // With headers it reads as the parsed message does.
            if (!bParseHdr) ReadEveryPart(rebuilt);
        }
    }
    // Only a multipart searches for delimiters.
    const bool bMultipart = std::any_of(mem.begin(), mem.end(), [](const CQLMimeMsg* p) {
        return p->m_CT == CQLMimeConst::MULTIPART;
    });
    if (bMultipart) {
        CheckIndexed<CQLMimeStr>(strData, false, mem, bMem);
        CheckIndexed<CQLMimeFile>(file.Path(), true, fromFile, bFile);
    }
    ReadEveryPart(mem);
    ReadEveryPart(fromFile, false);
    RewriteInMemory(strData);
    return 0;
}

// Arbitrary bytes as a message: parse in memory and from a file, write the format string,
// rebuild from it, and read every part. The two sources must give the same tree.
#include "FuzzCommon.h"

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
            ReadEveryPart(rebuilt);
        }
    }
    ReadEveryPart(mem);
    ReadEveryPart(fromFile);
    return 0;
}

#include "mime/QLIMimeStr.h"

#include "foundation/QLScan.h"
#include "foundation/QLStringParser.h"

#include <algorithm>
#include <climits>
#include <cstring>

CQLIMimeStr::CQLIMimeStr()
    : m_nLength(0), m_pszData(nullptr), m_nIndexFrom(DelimiterIndex::MIN_LENGTH),
      m_nIndexAfter(DelimiterIndex::PASSES), m_bParsing(false), m_bIndexTried(false),
      m_nSearched(0) {}

// The index belongs to a parse of this object, not to its copies.
CQLIMimeStr::CQLIMimeStr(const CQLIMimeStr& other)
    : CQLExceptionParser(other), m_File(other.m_File), m_strData(other.m_strData),
      m_nLength(other.m_nLength), m_pszData(other.m_pszData), m_nIndexFrom(other.m_nIndexFrom),
      m_nIndexAfter(other.m_nIndexAfter), m_bParsing(false), m_bIndexTried(false), m_nSearched(0) {}

CQLIMimeStr& CQLIMimeStr::operator=(const CQLIMimeStr& other) {
    if (this == &other) return *this;
    CQLExceptionParser::operator=(other);
    m_File = other.m_File;
    m_strData = other.m_strData;
    m_nLength = other.m_nLength;
    m_pszData = other.m_pszData;
    return *this;
}

CQLIMimeStr::~CQLIMimeStr() {}

bool CQLIMimeStr::SetData(const std::string& strData, bool bFile) {
    BeforeReload();
    if (!bFile) {
        m_strData = strData;
        m_nLength = m_strData.size();
        m_pszData = m_strData.data();
        return true;
    }
    try {
        m_File.SetFileName(strData, false);
        if (!m_File.Open(CQLFileParser::FILE_READ | CQLFileParser::FILE_BINARY))
            throw CQLExceptionParser(m_File.GetLastError(), 0);
        const long long nSize = OpenedFileSize();
        m_strData = strData;
        m_nLength = nSize < 0 ? 0 : static_cast<unsigned long>(nSize);
        m_pszData = m_strData.data();
    } catch (CQLExceptionParser&) {
        m_strLastError = "In SetData(), " + m_File.GetLastError();
        return false;
    }
    return true;
}

bool CQLIMimeStr::SetDataPtr(const char* pszData, unsigned long nLen, bool bFile) {
    if (!bFile) {
        m_nLength = nLen;
        m_pszData = pszData;
        return true;
    }
    const std::string strPath = pszData ? pszData : "";
    if (!SetData(strPath, true)) {
        m_strLastError = "In SetDataPtr(), " + m_File.GetLastError();
        return false;
    }
    m_pszData = pszData;
    return true;
}

const char* CQLIMimeStr::FindBytes(const char* pHay, size_t nHay, const char* pNeedle,
                                   size_t nNeedle, unsigned long* pnLF) {
    return CQLScan::Find(pHay, nHay, pNeedle, nNeedle, pnLF);
}

unsigned long CQLIMimeStr::GetLineCnt(const char* pszData, const unsigned long& nLen) {
    if (pszData == nullptr || nLen == 0) return 0;
    return CQLScan::CountLF(pszData, nLen);
}

unsigned long CQLIMimeStr::GetLineCnt(const std::string& strData, const unsigned long& nFrom,
                                      const unsigned long& nTo) {
    const unsigned long nSize = strData.size();
    if (nFrom >= nSize || nTo < nFrom) return 0;
    const unsigned long nEnd = std::min(nTo, nSize - 1) + 1;
    return GetLineCnt(strData.data() + nFrom, nEnd - nFrom);
}

// ---------------------------------------------------------------------------------------------
// Delimiter searches

namespace {

// What a delimiter search makes of a match of strFind at nHit, given the three bytes behind it
// (NUL past the end): the delimiter's offset, one more for a CR LF line end, or NOT_FOUND when
// the match only begins a longer line. bBlanksToEnd: a closing "--" with white space behind it,
// which counts only when the end of the source lies within the 512 bytes behind the match.
unsigned long DelimiterAt(unsigned long nHit, const char* pAfter, bool& bBlanksToEnd,
                          unsigned long nAfterToEnd) {
    bBlanksToEnd = false;
    if (pAfter[0] == '\r') return nHit + (pAfter[1] == '\n' ? 1 : 0);
    if (pAfter[0] == '\n') return nHit;
    if (pAfter[0] == '-' && pAfter[1] == '-') {
        if (pAfter[2] == '\n' || pAfter[2] == '\r' || nAfterToEnd == 2) return nHit;
        bBlanksToEnd = CQLStringParser::IsCSpace(pAfter[2]);
    }
    return CQLIMimeStr::NOT_FOUND;
}

} // namespace

unsigned long CQLIMimeStr::FindBoundary(const std::string& strBoundary, unsigned long nFrom,
                                        int* pnLine, int* pbCRLF) {
    const unsigned long nBoundaryLen = strBoundary.size();
    const unsigned long nLength = GetLength();
    unsigned long nPos = nFrom;
    char szBuf[513];
    for (;;) {
        const unsigned long nHit = Find(strBoundary, nPos, pnLine, pbCRLF);
        if (nHit == NOT_FOUND) return NOT_FOUND;
        // The three bytes behind the match decide nearly always; the 512 that the trailing
        // blanks rule may look at are read only for it. Bytes past the end read as 0.
        memset(szBuf, 0, 4);
        SubStr(szBuf, nHit + nBoundaryLen, 3);
        bool bBlanks = false;
        const unsigned long nAfterToEnd =
            nLength >= nHit + nBoundaryLen ? nLength - nHit - nBoundaryLen : 0;
        unsigned long nResult = DelimiterAt(nHit, szBuf, bBlanks, nAfterToEnd);
        if (bBlanks) {
            // "--boundary--" and white space, with the end of the source in the 512 bytes.
            memset(szBuf, 0, sizeof(szBuf));
            SubStr(szBuf, nHit + nBoundaryLen, 512);
            for (unsigned long i = 3; i < 512 && nResult == NOT_FOUND; ++i)
                if (!CQLStringParser::IsCSpace(szBuf[i]) && nHit + nBoundaryLen + i == nLength)
                    nResult = nHit;
        }
        if (nResult != NOT_FOUND) return nResult;
        // The boundary was only a prefix of a longer text.
        nPos = nHit + nBoundaryLen + 1;
    }
}

void CQLIMimeStr::BeginParse() {
    m_pIndex.reset();
    m_bIndexTried = false;
    m_bParsing = true;
    m_nSearched = 0;
}

void CQLIMimeStr::EndParse() {
    m_pIndex.reset();
    m_bIndexTried = false;
    m_bParsing = false;
}

CQLIMimeStr::DelimiterIndex* CQLIMimeStr::IndexFor(const std::string& strFind) {
    if (!m_bParsing) return nullptr;
    if (!m_pIndex && !m_bIndexTried &&
        m_nSearched >= static_cast<unsigned long long>(m_nLength) * m_nIndexAfter) {
        m_bIndexTried = true;
        if (m_nLength >= m_nIndexFrom) {
            std::unique_ptr<DelimiterIndex> pIndex(new DelimiterIndex);
            // A file search never finds a pattern of a block or more, so no longer line can
            // hold a delimiter.
            const unsigned long nMaxText = GetType() == 0 ? ULONG_MAX : 4096 - 2;
            try {
                if (pIndex->Build(*this, nMaxText)) m_pIndex = std::move(pIndex);
            } catch (CQLExceptionParser&) {
                // Unreadable: the searches go direct and report it.
            }
        }
    }
    return m_pIndex && m_pIndex->Covers(strFind) ? m_pIndex.get() : nullptr;
}

unsigned long CQLIMimeStr::NextBoundary(const std::string& strBoundary, unsigned long nFrom,
                                        int& nLine) {
    if (DelimiterIndex* pIndex = IndexFor(strBoundary)) {
        try {
            unsigned long nHit = NOT_FOUND;
            const unsigned long nResult = pIndex->Find(*this, strBoundary, nFrom, nHit);
            NoteIndexedSearch(strBoundary, nFrom, nHit);
            nLine = -1;
            return nResult;
        } catch (CQLExceptionParser&) {
            // A read failed: the direct search reports it.
        }
    }
    nLine = 0;
    int bCRLF = 0;
    const unsigned long nResult = FindBoundary(strBoundary, nFrom, &nLine, &bCRLF);
    const unsigned long nEnd = nResult == NOT_FOUND ? m_nLength : std::min(nResult, m_nLength);
    if (m_bParsing && nEnd > nFrom) m_nSearched += nEnd - nFrom;
    return nResult;
}

int CQLIMimeStr::BoundaryLineCnt(const std::string& strBoundary, unsigned long nFrom) {
    int nLine = 0, bCRLF = 0;
    FindBoundary(strBoundary, nFrom, &nLine, &bCRLF);
    return nLine;
}

// ---------------------------------------------------------------------------------------------
// The delimiter index

namespace {

bool EndsWithDashes(const char* p, size_t n) {
    return n >= 2 && p[n - 2] == '-' && p[n - 1] == '-';
}

} // namespace

uint32_t CQLIMimeStr::DelimiterIndex::Key(const char* p, size_t n) const {
    // Seeded per index, so that lines made to share a key can't be prepared in advance.
    uint64_t h = m_nSeed ^ (n * 0x9E3779B97F4A7C15ull);
    for (; n >= 8; p += 8, n -= 8) {
        uint64_t w;
        memcpy(&w, p, 8);
        h = (h ^ w) * 0xBF58476D1CE4E5B9ull;
        h ^= h >> 29;
    }
    uint64_t w = 0;
    memcpy(&w, p, n);
    h = (h ^ w) * 0x94D049BB133111EBull;
    h ^= h >> 31;
    h *= 0xBF58476D1CE4E5B9ull;
    return static_cast<uint32_t>(h >> 32);
}

void CQLIMimeStr::DelimiterIndex::Sort(std::vector<Line>& vLines) {
    // Lines of one boundary only are in order already.
    if (std::is_sorted(vLines.begin(), vLines.end())) return;
    if (vLines.size() < 4096) {
        std::sort(vLines.begin(), vLines.end());
        return;
    }
    // Two stable passes over 16 bits each: lines of one key stay in the order of the message.
    std::vector<Line> vTmp(vLines.size());
    for (int nShift : {0, 16}) {
        std::vector<size_t> vStart(65537, 0);
        for (const Line& line : vLines) ++vStart[((line.nKey >> nShift) & 0xFFFF) + 1];
        for (size_t i = 1; i < vStart.size(); ++i) vStart[i] += vStart[i - 1];
        for (const Line& line : vLines) vTmp[vStart[(line.nKey >> nShift) & 0xFFFF]++] = line;
        vLines.swap(vTmp);
    }
}

bool CQLIMimeStr::DelimiterIndex::Build(CQLIMimeStr& source, unsigned long nMaxText) {
    const unsigned long nLength = source.GetLength();
    if (nLength > UINT32_MAX) return false;
    m_nLength = nLength;
    m_bFile = source.GetType() != 0;
    m_nSeed = (reinterpret_cast<uintptr_t>(this) >> 4) * 0x9E3779B97F4A7C15ull ^ nLength;
    m_vLF.assign(1, 0);
    m_vLF.reserve(nLength / LF_BLOCK + 2);
    std::vector<Line> vLines;
    vLines.reserve(16);
    // A file is read in chunks that overlap by the longest line text looked at; memory is one
    // chunk.
    const bool bOneChunk = nMaxText >= nLength;
    const unsigned long nChunkWant = bOneChunk ? nLength : 64 * 1024;
    const unsigned long nOverlap = bOneChunk ? 0 : nMaxText + 8;
    unsigned long nChunk = 0, nSearch = 0, nLFDone = 0;
    uint32_t nLF = 0;
    for (;;) {
        unsigned long nGot = 0;
        const unsigned long nWant = std::min(nChunkWant, nLength - nChunk);
        const char* p = nWant > 0 ? source.BytesAt(nChunk, nWant, nGot, false) : nullptr;
        if (nGot != nWant) return false; // the file is shorter than it was
        const unsigned long nEnd = nChunk + nGot;
        const bool bLast = nEnd == nLength;
        while (nLFDone < nEnd && (nLFDone + LF_BLOCK <= nEnd || bLast)) {
            const unsigned long nBlockEnd = std::min(nLFDone + LF_BLOCK, nEnd);
            nLF += static_cast<uint32_t>(GetLineCnt(p + (nLFDone - nChunk), nBlockEnd - nLFDone));
            m_vLF.push_back(nLF);
            nLFDone = nBlockEnd;
        }
        // Lines that begin before nLimit are taken from this chunk, which holds their text.
        const unsigned long nLimit = bLast ? nEnd : nEnd - nOverlap;
        nSearch = std::max(nSearch, nChunk);
        while (nSearch < nLimit) {
            const unsigned long nHay = std::min(nLimit + 2, nEnd) - nSearch;
            const char* pHit = FindBytes(p + (nSearch - nChunk), nHay, "\n--", 3);
            if (pHit == nullptr) {
                nSearch = nLimit;
                break;
            }
            const char* pText = pHit + 3;
            size_t nRoom = p + nGot - pText;
            if (nRoom > nMaxText) nRoom = nMaxText + 1; // enough to tell a longer line
            const size_t nText = CQLScan::LineEnd(pText, nRoom) - pText;
            nSearch = static_cast<unsigned long>(pText + nText - p) + nChunk;
            if (nText == 0 || nText > nMaxText) continue;
            if (vLines.size() == MAX_LINES) return false;
            const size_t nKeyLen = EndsWithDashes(pText, nText) ? nText - 2 : nText;
            vLines.push_back(Line{Key(pText, nKeyLen), static_cast<uint32_t>(pHit - p + nChunk)});
        }
        if (bLast) break;
        nChunk = nLimit;
    }
    Sort(vLines);
    m_vLines.swap(vLines);
    return true;
}

bool CQLIMimeStr::DelimiterIndex::Covers(const std::string& strFind) {
    if (strFind == m_strLastFind) return m_bLastCovers;
    m_strLastFind = strFind;
    // A boundary that begins with a line break has no text before the line end to be found
    // by; a file search can't find a pattern of a block or more, and finds one that ends in
    // NUL against the NUL bytes behind its blocks.
    const size_t nFind = strFind.size();
    m_bLastCovers = nFind >= 4 && strFind.compare(0, 3, "\n--") == 0 && strFind[3] != '\r' &&
                    strFind[3] != '\n' && !(m_bFile && (nFind >= 4096 || strFind.back() == '\0'));
    if (!m_bLastCovers) return false;
    // A delimiter's line is the boundary and its line end, or the boundary and "--": its key
    // is the boundary's, or for a boundary that ends in "--" that of the boundary without
    // them. A boundary that holds a line break is looked up by its text before it, the line
    // of every match.
    const char* pText = strFind.data() + 3;
    const size_t nText = std::min(strFind.find_first_of("\r\n", 3), nFind) - 3;
    m_bLastOverlaps = nText + 3 < nFind && strFind.find('\n', 3) != std::string::npos;
    m_nLastKey = Key(pText, nText);
    m_bLastDashes = EndsWithDashes(pText, nText);
    m_nLastDashKey = Key(pText, m_bLastDashes ? nText - 2 : 0);
    return true;
}

unsigned long CQLIMimeStr::DelimiterIndex::Test(CQLIMimeStr& source, const std::string& strFind,
                                                unsigned long nAt, bool& bMatch) {
    const unsigned long nFind = strFind.size();
    unsigned long nGot = 0;
    const char* p = source.BytesAt(nAt, nFind + 3, nGot, true);
    bMatch = nGot >= nFind && memcmp(p, strFind.data(), nFind) == 0;
    if (!bMatch) return NOT_FOUND;
    char szAfter[3] = {0, 0, 0};
    memcpy(szAfter, p + nFind, nGot - nFind);
    const unsigned long nAfterToEnd = source.GetLength() - nAt - nFind;
    bool bBlanks = false;
    const unsigned long nResult = DelimiterAt(nAt, szAfter, bBlanks, nAfterToEnd);
    // The byte at the end reads as NUL, which is not white space.
    if (bBlanks && nAfterToEnd >= 3 && nAfterToEnd < 512) return nAt;
    return nResult;
}

unsigned long CQLIMimeStr::DelimiterIndex::Find(CQLIMimeStr& source, const std::string& strFind,
                                                unsigned long nFrom, unsigned long& nHit) {
    nHit = NOT_FOUND;
    const unsigned long nFind = strFind.size();
    if (nFrom > m_nLength || nFind > m_nLength - nFrom) return NOT_FOUND;
    if (m_bLastOverlaps) return FindOverlapping(source, strFind, nFrom, nHit);
    // A match that is no delimiter makes the direct search go on behind it; matches can't
    // overlap here, so the first line of a key that passes the test is what it finds.
    unsigned long nResult = NOT_FOUND;
    auto walk = [&](uint32_t nKey) {
        for (auto it = LowerBound(nKey, nFrom);
             it != m_vLines.end() && it->nKey == nKey && it->nAt < nHit; ++it) {
            bool bMatch = false;
            const unsigned long n = Test(source, strFind, it->nAt, bMatch);
            if (n != NOT_FOUND) {
                nHit = it->nAt;
                nResult = n;
                return;
            }
        }
    };
    walk(m_nLastKey);
    if (m_bLastDashes) walk(m_nLastDashKey);
    // "--boundary--" with white space behind, close to the end: its line can be anything.
    if (m_nLength < nFind + 3) return nResult;
    const unsigned long nZoneEnd = std::min(nHit, m_nLength - nFind - 2);
    const unsigned long nZoneStart =
        std::max(nFrom, m_nLength > nFind + 511 ? m_nLength - nFind - 511 : 0);
    if (nZoneStart >= nZoneEnd) return nResult;
    std::string strZone;
    {
        unsigned long nGot = 0;
        const char* p = source.BytesAt(nZoneStart, nZoneEnd - nZoneStart + nFind, nGot, true);
        strZone.assign(p, nGot);
    }
    for (size_t nPos = 0; nPos < strZone.size();) {
        const char* pMatch =
            FindBytes(strZone.data() + nPos, strZone.size() - nPos, strFind.data(), nFind);
        if (pMatch == nullptr) break;
        const unsigned long nAt = nZoneStart + static_cast<unsigned long>(pMatch - strZone.data());
        if (nAt >= nZoneEnd) break;
        bool bMatch = false;
        const unsigned long n = Test(source, strFind, nAt, bMatch);
        if (n != NOT_FOUND) {
            nHit = nAt;
            return n;
        }
        nPos = nAt - nZoneStart + 1;
    }
    return nResult;
}

std::vector<CQLIMimeStr::DelimiterIndex::Line>::const_iterator
CQLIMimeStr::DelimiterIndex::LowerBound(uint32_t nKey, unsigned long nFrom) {
    const Line target{nKey, static_cast<uint32_t>(nFrom)};
    Cursor& cursor = m_aCursors[nKey & 15];
    size_t nAt = 0;
    if (cursor.bUsed && cursor.nKey == nKey && cursor.nFrom <= nFrom) {
        // Galloping from the last place: steps of 1, 2, 4... then a binary search.
        size_t nLo = cursor.nAt, nStep = 1;
        if (nLo < m_vLines.size() && m_vLines[nLo] < target) {
            size_t nHi = nLo + 1;
            while (nHi < m_vLines.size() && m_vLines[nHi] < target) {
                nLo = nHi;
                nStep *= 2;
                nHi = nLo + nStep;
            }
            nHi = std::min(nHi, m_vLines.size());
            nAt = static_cast<size_t>(
                std::lower_bound(m_vLines.begin() + static_cast<long>(nLo) + 1,
                                 m_vLines.begin() + static_cast<long>(nHi), target) -
                m_vLines.begin());
        } else {
            nAt = nLo;
        }
    } else {
        nAt = static_cast<size_t>(std::lower_bound(m_vLines.begin(), m_vLines.end(), target) -
                                  m_vLines.begin());
    }
    cursor = Cursor{nKey, static_cast<uint32_t>(nFrom), nAt, true};
    return m_vLines.begin() + static_cast<long>(nAt);
}

unsigned long CQLIMimeStr::DelimiterIndex::FindOverlapping(CQLIMimeStr& source,
                                                           const std::string& strFind,
                                                           unsigned long nFrom,
                                                           unsigned long& nHit) {
    // With a line break inside, a match can begin within the one before it, where the direct
    // search, going on behind a match that is no delimiter, does not look: the lines of the
    // key are walked as it walks its matches.
    const unsigned long nFind = strFind.size();
    auto range = [&](uint32_t nKey) {
        return std::make_pair(
            LowerBound(nKey, nFrom),
            std::upper_bound(m_vLines.begin(), m_vLines.end(), Line{nKey, UINT32_MAX}));
    };
    auto a = range(m_nLastKey);
    auto b = m_bLastDashes ? range(m_nLastDashKey) : std::make_pair(m_vLines.end(), m_vLines.end());
    unsigned long nPos = nFrom;
    for (;;) {
        while (a.first != a.second && a.first->nAt < nPos) ++a.first;
        while (b.first != b.second && b.first->nAt < nPos) ++b.first;
        const bool bA = a.first != a.second, bB = b.first != b.second;
        if (!bA && !bB) return NOT_FOUND;
        auto& next = !bB || (bA && a.first->nAt < b.first->nAt) ? a.first : b.first;
        const unsigned long nAt = next->nAt;
        ++next;
        bool bMatch = false;
        const unsigned long n = Test(source, strFind, nAt, bMatch);
        if (n != NOT_FOUND) {
            nHit = nAt;
            return n;
        }
        if (bMatch) nPos = nAt + nFind + 1;
    }
}

unsigned long CQLIMimeStr::DelimiterIndex::LineCnt(CQLIMimeStr& source, unsigned long nFrom,
                                                   unsigned long nTo) const {
    nTo = std::min(nTo, m_nLength);
    if (nTo <= nFrom) return 0;
    auto count = [&](unsigned long nStart, unsigned long nEnd) {
        unsigned long nSum = 0;
        while (nStart < nEnd) {
            unsigned long nGot = 0;
            const char* p = source.BytesAt(nStart, nEnd - nStart, nGot, false);
            if (nGot == 0) break;
            nSum += GetLineCnt(p, nGot);
            nStart += nGot;
        }
        return nSum;
    };
    if (nTo - nFrom <= 2 * LF_BLOCK) return count(nFrom, nTo);
    // The newlines before an offset: those of the blocks before it, and the rest counted.
    auto before = [&](unsigned long nAt) {
        const unsigned long nBlock = nAt / LF_BLOCK;
        return m_vLF[nBlock] + count(nBlock * LF_BLOCK, nAt);
    };
    return before(nTo) - before(nFrom);
}

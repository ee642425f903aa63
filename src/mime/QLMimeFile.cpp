#include "mime/QLMimeFile.h"

#include "foundation/QLSystemError.h"
#include "mime/QLMimeHdr.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace {

const char* const kPrefix = "In CQLMimeFile::SubStr(), ";
const char* const kInvalidParameter = "In CQLMimeFile::SubStr(), invalid parameter";

unsigned long CountLF(const char* p, unsigned long n) {
    return CQLIMimeStr::GetLineCnt(p, n);
}

} // namespace

// A direct search reads the file block by block; the index reads it once in large pieces and
// costs less than one such search, so a file parse takes it from the start.
CQLMimeFile::CQLMimeFile()
    : m_nPinned(NONE), m_bReplaying(false), m_nWindowStart(0), m_nWindowLen(0),
      m_nEndSeen(static_cast<unsigned long>(-1)) {
    m_nIndexAfter = 0;
}

CQLMimeFile::CQLMimeFile(const CQLMimeFile& other)
    : CQLIMimeStr(), m_nPinned(NONE), m_bReplaying(false), m_nWindowStart(0), m_nWindowLen(0),
      m_nEndSeen(static_cast<unsigned long>(-1)) {
    m_nIndexAfter = 0;
    m_strLastError = other.m_strLastError;
}

CQLMimeFile& CQLMimeFile::operator=(const CQLMimeFile& other) {
    if (this == &other) return *this;
    SettleAll();
    CQLIMimeStr::operator=(other);
    InvalidateCache();
    return *this;
}

CQLMimeFile::~CQLMimeFile() {
    try {
        m_File.Close();
    } catch (CQLExceptionParser&) {
    }
}

void CQLMimeFile::Close() {
    SettleAll();
    InvalidateCache();
    m_File.Close();
}

long long CQLMimeFile::OpenedFileSize() {
    InvalidateCache();
    // A message is read from its start anyway: when the first window holds the whole file,
    // its size is known without asking the system.
    try {
        if (Fill(0) && m_nEndSeen != static_cast<unsigned long>(-1)) return m_nEndSeen;
    } catch (CQLExceptionParser&) {
        InvalidateCache();
    }
    return m_File.GetSize();
}

void CQLMimeFile::BeforeReload() {
    m_vPending.clear();
    m_vNeedles.clear();
    m_nPinned = NONE;
    m_strReadBuf.clear();
}

void CQLMimeFile::InvalidateCache() {
    m_nWindowStart = 0;
    m_nWindowLen = 0;
    m_nEndSeen = static_cast<unsigned long>(-1);
}

bool CQLMimeFile::Fill(unsigned long nOffset) {
    // Like the window's bytes, the end of the file once seen is not asked again.
    if (nOffset >= m_nEndSeen) return false;
    if (!m_pWindow) m_pWindow.reset(new char[WINDOW]);
    const int nFD = m_File.GetFD();
    for (;;) {
        ssize_t n = pread(nFD, m_pWindow.get(), WINDOW, static_cast<off_t>(nOffset));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            InvalidateCache();
            throw CQLExceptionParser("In Read(" + m_File.GetFileName() + "), " + strerror(errno),
                                     0);
        }
        // At the end of the file the old window stays: it is likely to be read again.
        if (n == 0) {
            m_nEndSeen = nOffset;
            return false;
        }
        m_nWindowStart = nOffset;
        m_nWindowLen = static_cast<unsigned long>(n);
        if (m_nWindowLen < WINDOW) m_nEndSeen = m_nWindowStart + m_nWindowLen;
        return true;
    }
}

unsigned long CQLMimeFile::ReadAt(unsigned long nOffset, unsigned long nLen, char* pDest) {
    unsigned long nDone = 0;
    while (nDone < nLen) {
        const unsigned long nPos = nOffset + nDone;
        if (nPos >= m_nWindowStart && nPos < m_nWindowStart + m_nWindowLen) {
            const unsigned long nTake =
                std::min(nLen - nDone, m_nWindowStart + m_nWindowLen - nPos);
            memcpy(pDest + nDone, m_pWindow.get() + (nPos - m_nWindowStart), nTake);
            nDone += nTake;
            continue;
        }
        if (nPos >= m_nEndSeen) break;
        if (nLen - nDone >= WINDOW) {
            // A large range goes straight to its destination.
            ssize_t n =
                pread(m_File.GetFD(), pDest + nDone, nLen - nDone, static_cast<off_t>(nPos));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0)
                throw CQLExceptionParser(
                    "In Read(" + m_File.GetFileName() + "), " + strerror(errno), 0);
            if (n == 0) break;
            nDone += static_cast<unsigned long>(n);
            continue;
        }
        if (!Fill(nPos)) break;
    }
    return nDone;
}

unsigned long CQLMimeFile::PeekAt(unsigned long nOffset, unsigned long nLen, char* pDest) {
    unsigned long nDone = 0;
    while (nDone < nLen) {
        const ssize_t n =
            pread(m_File.GetFD(), pDest + nDone, nLen - nDone, static_cast<off_t>(nOffset + nDone));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0)
            throw CQLExceptionParser("In Read(" + m_File.GetFileName() + "), " + strerror(errno),
                                     0);
        if (n == 0) break;
        nDone += static_cast<unsigned long>(n);
    }
    return nDone;
}

const char* CQLMimeFile::BytesAt(unsigned long nOffset, unsigned long nWant, unsigned long& nGot,
                                 bool bPeek) {
    const unsigned long nWindowEnd = m_nWindowStart + m_nWindowLen;
    if (nOffset >= m_nWindowStart && nOffset < nWindowEnd &&
        (nWindowEnd - nOffset >= nWant || nWindowEnd >= m_nEndSeen)) {
        nGot = std::min(nWant, nWindowEnd - nOffset);
        return m_pWindow.get() + (nOffset - m_nWindowStart);
    }
    if (!bPeek && nWant <= WINDOW) {
        nGot = 0;
        if (!Fill(nOffset)) return nullptr;
        nGot = std::min(nWant, m_nWindowLen);
        return m_pWindow.get();
    }
    if (m_strPeek.size() < nWant) m_strPeek.resize(nWant);
    nGot = PeekAt(nOffset, nWant, &m_strPeek[0]);
    return m_strPeek.data();
}

unsigned long CQLMimeFile::ClampToLength(unsigned long nOffset, unsigned long nLen) const {
    // A range past the end must not size a buffer: a damaged offset could ask for gigabytes.
    if (nOffset >= m_nLength) return 0;
    return std::min(nLen, m_nLength - nOffset);
}

void CQLMimeFile::PrepareReadBuf() {
    if (m_strReadBuf.size() < BLOCK) m_strReadBuf.assign(BLOCK + 10, '\0');
}

char CQLMimeFile::GetChar(int nOffset) {
    char c = 0;
    try {
        ReadAt(static_cast<unsigned int>(nOffset), 1, &c);
    } catch (CQLExceptionParser&) {
        c = 0;
    }
    return c;
}

bool CQLMimeFile::LineAt(unsigned long nOffset, const char*& pLine, unsigned long& nLine,
                         std::string& strScratch) {
    unsigned long nAvail = 0;
    const char* pStart = WindowAt(nOffset, nAvail);
    if (pStart == nullptr) return false;
    const char* pLF = static_cast<const char*>(memchr(pStart, '\n', nAvail));
    if (pLF != nullptr || nOffset + nAvail >= m_nEndSeen) {
        // The whole line lies in the window.
        pLine = pStart;
        nLine = pLF ? pLF - pStart + 1 : nAvail;
        return true;
    }
    strScratch.assign(pStart, nAvail);
    for (unsigned long nPos = nOffset + nAvail;; nPos += nAvail) {
        pStart = WindowAt(nPos, nAvail);
        if (pStart == nullptr) break;
        pLF = static_cast<const char*>(memchr(pStart, '\n', nAvail));
        if (pLF != nullptr) {
            strScratch.append(pStart, pLF - pStart + 1);
            break;
        }
        strScratch.append(pStart, nAvail);
    }
    pLine = strScratch.data();
    nLine = strScratch.size();
    return true;
}

const char* CQLMimeFile::WindowAt(unsigned long nOffset, unsigned long& nAvail) {
    if (!(nOffset >= m_nWindowStart && nOffset < m_nWindowStart + m_nWindowLen) && !Fill(nOffset))
        return nullptr;
    nAvail = m_nWindowStart + m_nWindowLen - nOffset;
    return m_pWindow.get() + (nOffset - m_nWindowStart);
}

const char* CQLMimeFile::BlockAt(unsigned long nOffset, unsigned long nWant, unsigned long& nGot) {
    unsigned long nAvail = 0;
    const char* p = WindowAt(nOffset, nAvail);
    if (p != nullptr && nAvail < nWant && nOffset + nAvail < m_nEndSeen) {
        // The block runs past the window: move the window to it. A window starting at the
        // block holds all of it, or the file ends inside it.
        if (Fill(nOffset)) p = WindowAt(nOffset, nAvail);
    }
    nGot = p == nullptr ? 0 : std::min(nWant, nAvail);
    return p;
}

unsigned long CQLMimeFile::Find(const std::string& strFind, unsigned long nFrom, int* pnLine,
                                int* pbCRLF) {
    const unsigned long nFind = strFind.size();
    if (nFind == 0 || nFrom >= m_nLength) return NOT_FOUND;
    // The block overlap is the pattern's length: a pattern of a block or more never fits.
    if (nFind >= BLOCK) return NOT_FOUND;
    if (!m_bReplaying) SettleAll();
    PrepareReadBuf();
    char* pBuf = &m_strReadBuf[0];
    // Blocks are read into the scratch buffer, a NUL behind the bytes read, and the whole
    // buffer is searched: after a short read, what an earlier read left behind the NUL can
    // still match. Full blocks are searched where they lie; the buffer is brought to the
    // state the reads would have left whenever that state can be seen.
    const bool bInPlace = memchr(strFind.data(), '\0', nFind) == nullptr;
    unsigned long nStart = nFrom;
    unsigned long nPrevFull = NOT_FOUND; // start of the last full block not yet in the buffer
    for (bool bFirst = true;; bFirst = false) {
        unsigned long nGot = 0;
        const char* pBlock = nullptr;
        try {
            pBlock = BlockAt(nStart, BLOCK, nGot);
        } catch (CQLExceptionParser& e) {
            m_strLastError = "In CQLMimeFile::Find(), " + e.GetLastError();
            return NOT_FOUND;
        }
        if (nGot == 0) {
            m_strLastError = "In CQLMimeFile::Find(), " + m_File.GetLastError();
            return NOT_FOUND;
        }
        const bool bEnd = nGot < BLOCK;
        if (bEnd || !bInPlace) {
            if (nPrevFull != NOT_FOUND && nGot + 1 < BLOCK) {
                unsigned long nPrevGot = 0;
                const char* pPrev = BlockAt(nPrevFull, BLOCK, nPrevGot);
                memcpy(pBuf + nGot + 1, pPrev + nGot + 1, BLOCK - nGot - 1);
                pBlock = BlockAt(nStart, BLOCK, nGot);
            }
            memcpy(pBuf, pBlock, nGot);
            pBuf[nGot] = '\0';
            pBlock = pBuf;
        }
        if (bFirst && pbCRLF != nullptr && pBlock[nFind - 1] == '\r' && pBlock[nFind] == '\n')
            *pbCRLF = 1;
        const unsigned long nSearch = pBlock == pBuf ? m_strReadBuf.size() : nGot;
        unsigned long nLF = 0; // newlines of the search, through the match's first byte
        const char* pHit =
            FindBytes(pBlock, nSearch, strFind.data(), nFind, pnLine != nullptr ? &nLF : nullptr);
        if (pHit != nullptr) {
            const unsigned long nHit = pHit - pBlock;
            // The lines before the match.
            if (pnLine != nullptr) *pnLine += static_cast<int>(nLF - (*pHit == '\n' ? 1 : 0));
            if (pBlock != pBuf) {
                memcpy(pBuf, pBlock, nGot);
                pBuf[nGot] = '\0';
            }
            return nStart + nHit;
        }
        if (bEnd) return NOT_FOUND;
        if (pnLine != nullptr)
            *pnLine += static_cast<int>(nSearch == nGot ? nLF : CountLF(pBlock, nGot));
        nPrevFull = pBlock == pBuf ? NOT_FOUND : nStart;
        // The next block re-reads the last bytes of this one.
        nStart = nStart + nGot - nFind;
    }
}

unsigned long CQLMimeFile::FastLineCnt(unsigned long nOffset, unsigned long nLen) {
    const char* const kLinePrefix = "In CQLMimeFile::FastLineCnt(), ";
    if (nLen == 0) {
        m_strLastError = std::string(kLinePrefix) + "invalid parameter";
        return 0;
    }
    // A range under a block is one read; a longer one is read in blocks of 4096 bytes. The
    // last block, over the one before it, stays in the scratch buffer.
    unsigned long nSum = 0, nLast = NOT_FOUND, nPrev = NOT_FOUND, nLastGot = 0;
    try {
        if (m_pIndex) {
            // The index counts, and the blocks are those of the length taken at loading.
            const unsigned long nAvail =
                nOffset < m_nLength ? std::min(nLen, m_nLength - nOffset) : 0;
            if (nAvail > 0) {
                nSum = m_pIndex->LineCnt(*this, nOffset, nOffset + nAvail);
                const unsigned long nLastBlock = nLen < BLOCK ? 0 : (nAvail - 1) / BLOCK;
                nLast = nOffset + nLastBlock * BLOCK;
                nLastGot = nAvail - nLastBlock * BLOCK;
                if (nLastBlock > 0) nPrev = nLast - BLOCK;
            }
        } else {
            for (unsigned long nDone = 0; nDone < nLen;) {
                const unsigned long nWant = std::min(BLOCK, nLen - nDone);
                unsigned long nGot = 0;
                const char* pBlock = BlockAt(nOffset + nDone, nWant, nGot);
                if (nGot == 0) break; // the end of the file
                nSum += CountLF(pBlock, nGot);
                nPrev = nLast;
                nLast = nOffset + nDone;
                nLastGot = nGot;
                nDone += nGot;
                if (nGot < nWant) break;
            }
        }
    } catch (CQLExceptionParser& e) {
        m_strLastError = kLinePrefix + e.GetLastError();
        return 0;
    }
    if (nLast == NOT_FOUND) {
        // A short range that reads nothing fails; a long one counts what it read.
        if (nLen < BLOCK) m_strLastError = kLinePrefix + m_File.GetLastError();
        return 0;
    }
    Pending op;
    if (nPrev != NOT_FOUND && nLastGot < BLOCK) {
        op.vLayers.push_back(Layer{nPrev, BLOCK, false});
        op.bWhole = true;
    }
    op.vLayers.push_back(Layer{nLast, nLastGot, false});
    op.bWhole = op.bWhole || nLastGot == BLOCK;
    Queue(op);
    return nSum;
}

// ---------------------------------------------------------------------------------------------
// Pending writes to the scratch buffer

void CQLMimeFile::AddCall(Pending& op, unsigned long nStart, unsigned long nFind,
                          unsigned long nFound) const {
    // Blocks begin every BLOCK - nFind bytes; the call ends in the first block that holds the
    // match whole, or in the first short block at the end of the file. A full block, or a
    // short one behind a full one, covers what was written before.
    const unsigned long nStep = BLOCK - nFind;
    unsigned long nBlocks = 0;
    if (nFound != NOT_FOUND) {
        if (nFound + nFind > nStart + BLOCK)
            nBlocks = (nFound + nFind - nStart - BLOCK + nStep - 1) / nStep;
    } else if (m_nLength - nStart >= BLOCK) {
        nBlocks = (m_nLength - nStart - BLOCK) / nStep + 1;
    }
    const unsigned long nBlock = nStart + nBlocks * nStep;
    const unsigned long nGot = std::min(BLOCK, m_nLength - nBlock);
    if (nGot == BLOCK || nBlocks > 0) {
        op.vLayers.clear();
        op.bLazyBase = false;
        op.bWhole = true;
    }
    if (nGot < BLOCK && nBlocks > 0) op.vLayers.push_back(Layer{nBlock - nStep, BLOCK, true});
    op.vLayers.push_back(Layer{nBlock, nGot, true});
}

CQLMimeFile::Pending CQLMimeFile::SearchLayers(const std::string& strFind, unsigned long nFrom,
                                               unsigned long nHit, bool bExhaustive) {
    // Matches that are no delimiters split the search into calls of Find, each from behind
    // the last match. A call that begins a block or more before the end of the file reads a
    // full block first and covers the buffer; the calls behind it each lay a shorter block
    // over it. So the writes are known from the matches that lie within a block of the end,
    // except where the call before them began, which only the whole walk tells. Where a
    // boundary holds a line break, matches can overlap, and the whole walk is needed anyway.
    const unsigned long nFind = strFind.size();
    Pending op;
    unsigned long nScan = nFrom;
    if (!bExhaustive && strFind.find('\n', 1) == std::string::npos) {
        if (nHit != NOT_FOUND && nHit + BLOCK <= m_nLength) {
            op.bLazyBase = op.bWhole = true;
            return op;
        }
        if (m_nLength > BLOCK + nFind + 1) nScan = std::max(nFrom, m_nLength - BLOCK - nFind - 1);
    }
    // The call that reaches the scan began before it, a block or more before the end.
    if (nScan != nFrom) op.bLazyBase = op.bWhole = true;
    unsigned long nStart = nScan == nFrom ? nFrom : NOT_FOUND;
    const unsigned long nStop =
        std::min((nHit == NOT_FOUND ? m_nLength : nHit) + nFind - 1, m_nLength);
    const bool bPeek = nStop - std::min(nScan, nStop) <= 2 * BLOCK + nFind;
    for (unsigned long nPos = nScan; nPos + nFind <= nStop;) {
        unsigned long nGot = 0;
        const char* p = BytesAt(nPos, std::min(nStop - nPos, WINDOW), nGot, bPeek);
        if (nGot < nFind) break;
        const char* pMatch = FindBytes(p, nGot, strFind.data(), nFind);
        if (pMatch == nullptr) {
            if (nPos + nGot >= nStop) break;
            nPos += nGot - (nFind - 1); // a match across the edge is read again whole
            continue;
        }
        const unsigned long nMatch = nPos + static_cast<unsigned long>(pMatch - p);
        if (nStart != NOT_FOUND) AddCall(op, nStart, nFind, nMatch);
        // The search goes on behind a match that is no delimiter.
        nStart = nPos = nMatch + nFind + 1;
    }
    if (nStart != NOT_FOUND && (nHit != NOT_FOUND || nStart < m_nLength))
        AddCall(op, nStart, nFind, nHit);
    return op;
}

void CQLMimeFile::NoteIndexedSearch(const std::string& strFind, unsigned long nFrom,
                                    unsigned long nHit) {
    Pending op = SearchLayers(strFind, nFrom, nHit, false);
    if (m_vNeedles.empty() || m_vNeedles.back() != strFind) m_vNeedles.push_back(strFind);
    op.nNeedle = m_vNeedles.size() - 1;
    op.nFrom = nFrom;
    op.nHit = nHit;
    m_vPending.push_back(op);
    m_nPinned = m_vPending.size() - 1;
    Prune();
}

void CQLMimeFile::Queue(const Pending& op) {
    if (m_pIndex == nullptr) {
        // No parse is using the index: the buffer is written at once.
        SettleAll();
        try {
            Apply(op);
        } catch (CQLExceptionParser&) {
        }
        return;
    }
    m_vPending.push_back(op);
    Prune();
}

void CQLMimeFile::Prune() {
    const size_t nLimit = m_nPinned == NONE ? m_vPending.size() : m_nPinned + 1;
    size_t nWhole = 0;
    for (size_t i = nLimit; i-- > 1;) {
        if (m_vPending[i].bWhole) {
            nWhole = i;
            break;
        }
    }
    if (nWhole == 0) return;
    m_vPending.erase(m_vPending.begin(), m_vPending.begin() + static_cast<long>(nWhole));
    if (m_nPinned != NONE) m_nPinned -= nWhole;
}

void CQLMimeFile::Apply(const Pending& op) {
    PrepareReadBuf();
    for (const Layer& layer : op.vLayers) {
        unsigned long nGot = 0;
        const char* p = BytesAt(layer.nOffset, layer.nLen, nGot, true);
        memcpy(&m_strReadBuf[0], p, nGot);
        if (layer.bNul) m_strReadBuf[nGot] = '\0';
    }
}

void CQLMimeFile::Settle(size_t nCount) {
    if (nCount == 0) return;
    size_t nFirst = 0;
    for (size_t i = nCount; i-- > 0;) {
        if (m_vPending[i].bWhole) {
            nFirst = i;
            break;
        }
    }
    try {
        for (size_t i = nFirst; i < nCount; ++i) {
            Pending& op = m_vPending[i];
            if (op.bLazyBase)
                op.vLayers = SearchLayers(m_vNeedles[op.nNeedle], op.nFrom, op.nHit, true).vLayers;
            Apply(op);
        }
    } catch (CQLExceptionParser&) {
        // The file can't be read any more; the buffer keeps what was written.
    }
    m_vPending.erase(m_vPending.begin(), m_vPending.begin() + static_cast<long>(nCount));
    m_nPinned = m_nPinned == NONE || m_nPinned < nCount ? NONE : m_nPinned - nCount;
    if (m_vPending.empty()) m_vNeedles.clear();
}

int CQLMimeFile::BoundaryLineCnt(const std::string& strBoundary, unsigned long nFrom) {
    const bool bPinned = m_nPinned != NONE && m_vPending[m_nPinned].nFrom == nFrom &&
                         m_vNeedles[m_vPending[m_nPinned].nNeedle] == strBoundary;
    if (!bPinned) {
        SettleAll();
        return CQLIMimeStr::BoundaryLineCnt(strBoundary, nFrom);
    }
    // The search runs again, on the buffer as it was then; the writes after it stay pending.
    const size_t nAt = m_nPinned;
    if (m_vPending[nAt].bWhole)
        m_vPending.erase(m_vPending.begin(), m_vPending.begin() + static_cast<long>(nAt));
    else
        Settle(nAt);
    int nLine = 0, bCRLF = 0;
    m_bReplaying = true;
    FindBoundary(strBoundary, nFrom, &nLine, &bCRLF);
    m_bReplaying = false;
    m_vPending.erase(m_vPending.begin());
    m_nPinned = NONE;
    if (m_vPending.empty()) m_vNeedles.clear();
    return nLine;
}

bool CQLMimeFile::ReadString(unsigned long nOffset, unsigned long nLen, std::string& strOut) {
    nLen = ClampToLength(nOffset, nLen);
    try {
        strOut.resize(nLen);
        strOut.resize(ReadAt(nOffset, nLen, &strOut[0]));
        return true;
    } catch (CQLExceptionParser& e) {
        m_strLastError = kPrefix + e.GetLastError();
        strOut.clear();
        return false;
    }
}

std::string CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen) {
    std::string strOut;
    if (nLen != 0) ReadString(nOffset, nLen, strOut);
    return strOut;
}

unsigned long CQLMimeFile::SubStr(char* pszBuf, unsigned long nOffset, unsigned long nLen) {
    if (pszBuf == nullptr) return 0;
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        pszBuf[0] = '\0';
        return 0;
    }
    unsigned long nGot = 0;
    try {
        nGot = ReadAt(nOffset, nLen, pszBuf);
    } catch (CQLExceptionParser& e) {
        m_strLastError = "In SubStr(), " + e.GetLastError();
        pszBuf[0] = '\0';
        return 0;
    }
    if (nGot == 0) {
        m_strLastError = "In SubStr(), end of file.";
        pszBuf[0] = '\0';
        return 0;
    }
    pszBuf[nGot] = '\0';
    return nGot;
}

unsigned long CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen, std::string& strOut) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    return ReadString(nOffset, nLen, strOut) ? strOut.size() : 0;
}

template <class Put>
long long CQLMimeFile::CopyBlocks(unsigned long nOffset, unsigned long nLen, char* pBlock,
                                  unsigned long nBlock, Put put) {
    unsigned long nTotal = 0;
    try {
        while (nTotal < nLen) {
            const unsigned long nWant = std::min(nBlock, nLen - nTotal);
            const unsigned long nGot = ReadAt(nOffset + nTotal, nWant, pBlock);
            if (nGot == 0) break; // the end of the file
            if (!put(pBlock, nGot)) return -1;
            nTotal += nGot;
            if (nGot < nWant) break;
        }
    } catch (CQLExceptionParser& e) {
        m_strLastError = kPrefix + e.GetLastError();
        return -1;
    }
    return static_cast<long long>(nTotal);
}

unsigned long CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen, std::ostream& out) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    const bool bShort = nLen < 1024;
    char szBlock[1024 + 1];
    // Text delivery: each block goes out only up to its first NUL byte.
    const long long nTotal =
        CopyBlocks(nOffset, nLen, szBlock, 1024, [&](char* p, unsigned long n) {
            p[n] = '\0';
            out << p;
            if (bShort && !out) {
                m_strLastError = kPrefix + std::string(strerror(errno));
                return false;
            }
            return true;
        });
    if (nTotal == 0 && bShort) m_strLastError = kPrefix + std::string(strerror(errno));
    return nTotal < 0 ? 0 : static_cast<unsigned long>(nTotal);
}

unsigned long CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen, CQLFileParser& file) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    char szBlock[1024];
    const long long nTotal =
        CopyBlocks(nOffset, nLen, szBlock, 1024, [&](const char* p, unsigned long n) {
            file.Write(p, n);
            return true;
        });
    if (nTotal == 0 && nLen < 1024) m_strLastError = kPrefix + m_File.GetLastError();
    return nTotal < 0 ? 0 : static_cast<unsigned long>(nTotal);
}

unsigned long CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen, int nFD) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    std::vector<char> vBlock(8192 + 10);
    const long long nTotal =
        CopyBlocks(nOffset, nLen, vBlock.data(), 8192, [&](const char* p, unsigned long n) {
            for (unsigned long nWritten = 0; nWritten < n;) {
                const ssize_t nPut = write(nFD, p + nWritten, n - nWritten);
                if (nPut < 0 && errno == EINTR) continue;
                if (nPut <= 0) {
                    m_strLastError = kPrefix + std::string(strerror(errno));
                    return false;
                }
                nWritten += static_cast<unsigned long>(nPut);
            }
            return true;
        });
    return nTotal < 0 ? 0 : static_cast<unsigned long>(nTotal);
}

unsigned long CQLMimeFile::ParseHdr(CQLMimeHdr& hdr, unsigned long nOffset) {
    return hdr.ParseLines(*this, nOffset);
}

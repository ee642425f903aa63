#include "mime/QLMimeFile.h"

#include "foundation/QLSystemError.h"

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

CQLMimeFile::CQLMimeFile()
    : m_nWindowStart(0), m_nWindowLen(0), m_nEndSeen(static_cast<unsigned long>(-1)) {}

CQLMimeFile::CQLMimeFile(const CQLMimeFile& other)
    : CQLIMimeStr(), m_nWindowStart(0), m_nWindowLen(0),
      m_nEndSeen(static_cast<unsigned long>(-1)) {
    m_strLastError = other.m_strLastError;
}

CQLMimeFile& CQLMimeFile::operator=(const CQLMimeFile& other) {
    if (this == &other) return *this;
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
    PrepareReadBuf();
    char* pBuf = &m_strReadBuf[0];
    try {
        unsigned long nGot = 0;
        if (nLen < BLOCK) {
            const char* pBlock = BlockAt(nOffset, nLen, nGot);
            if (nGot == 0) {
                m_strLastError = kLinePrefix + m_File.GetLastError();
                return 0;
            }
            memcpy(pBuf, pBlock, nGot);
            return CountLF(pBuf, nGot);
        }
        // Blocks of 4096 bytes; the scratch buffer ends as the block reads leave it.
        unsigned long nSum = 0, nDone = 0, nLast = NOT_FOUND, nPrev = NOT_FOUND, nLastGot = 0;
        while (nDone < nLen) {
            const unsigned long nWant = std::min(BLOCK, nLen - nDone);
            const char* pBlock = BlockAt(nOffset + nDone, nWant, nGot);
            if (nGot == 0) break; // the end of the file
            nSum += CountLF(pBlock, nGot);
            nPrev = nLast;
            nLast = nOffset + nDone;
            nLastGot = nGot;
            nDone += nGot;
            if (nGot < nWant) break;
        }
        if (nLast != NOT_FOUND) {
            if (nPrev != NOT_FOUND && nLastGot < BLOCK) {
                const char* pPrev = BlockAt(nPrev, BLOCK, nGot);
                memcpy(pBuf + nLastGot, pPrev + nLastGot, nGot - nLastGot);
            }
            const char* pLast = BlockAt(nLast, nLastGot, nGot);
            memcpy(pBuf, pLast, nGot);
        }
        return nSum;
    } catch (CQLExceptionParser& e) {
        m_strLastError = kLinePrefix + e.GetLastError();
        return 0;
    }
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

#include "mime/QLMimeFile.h"

#include "foundation/QLSystemError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace {

const unsigned long kWindow = 64 * 1024;
const char* const kPrefix = "In CQLMimeFile::SubStr(), ";
const char* const kInvalidParameter = "In CQLMimeFile::SubStr(), invalid parameter";

unsigned long CountLF(const char* p, unsigned long n) {
    return static_cast<unsigned long>(std::count(p, p + n, '\n'));
}

} // namespace

CQLMimeFile::CQLMimeFile() : m_nWindowStart(0), m_nWindowLen(0) {}

CQLMimeFile::CQLMimeFile(const CQLMimeFile& other)
    : CQLIMimeStr(), m_nWindowStart(0), m_nWindowLen(0) {
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

void CQLMimeFile::InvalidateCache() {
    m_nWindowStart = 0;
    m_nWindowLen = 0;
}

bool CQLMimeFile::Fill(unsigned long nOffset) {
    if (m_vWindow.size() < kWindow) m_vWindow.resize(kWindow);
    const int nFD = m_File.GetFD();
    for (;;) {
        ssize_t n = pread(nFD, m_vWindow.data(), kWindow, static_cast<off_t>(nOffset));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            InvalidateCache();
            throw CQLExceptionParser("In Read(" + m_File.GetFileName() + "), " + strerror(errno),
                                     0);
        }
        m_nWindowStart = nOffset;
        m_nWindowLen = static_cast<unsigned long>(n);
        return n > 0;
    }
}

unsigned long CQLMimeFile::ReadAt(unsigned long nOffset, unsigned long nLen, char* pDest) {
    unsigned long nDone = 0;
    while (nDone < nLen) {
        const unsigned long nPos = nOffset + nDone;
        if (nPos >= m_nWindowStart && nPos < m_nWindowStart + m_nWindowLen) {
            const unsigned long nTake =
                std::min(nLen - nDone, m_nWindowStart + m_nWindowLen - nPos);
            memcpy(pDest + nDone, m_vWindow.data() + (nPos - m_nWindowStart), nTake);
            nDone += nTake;
            continue;
        }
        if (nLen - nDone >= kWindow) {
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

bool CQLMimeFile::ReadLine(unsigned long nOffset, std::string& strLine) {
    strLine.clear();
    unsigned long nPos = nOffset;
    for (;;) {
        if (!(nPos >= m_nWindowStart && nPos < m_nWindowStart + m_nWindowLen)) {
            if (!Fill(nPos)) return !strLine.empty();
        }
        const char* pStart = m_vWindow.data() + (nPos - m_nWindowStart);
        const unsigned long nAvail = m_nWindowStart + m_nWindowLen - nPos;
        const char* pLF = static_cast<const char*>(memchr(pStart, '\n', nAvail));
        if (pLF != nullptr) {
            strLine.append(pStart, pLF - pStart + 1);
            return true;
        }
        strLine.append(pStart, nAvail);
        nPos += nAvail;
    }
}

unsigned long CQLMimeFile::Find(const std::string& strFind, unsigned long nFrom, int* pnLine,
                                int* pbCRLF) {
    const unsigned long nFind = strFind.size();
    if (nFind == 0 || nFrom >= m_nLength) return NOT_FOUND;
    // The block overlap is the pattern's length: a pattern of a block or more never fits.
    if (nFind >= BLOCK) return NOT_FOUND;
    PrepareReadBuf();
    char* pBuf = &m_strReadBuf[0];
    unsigned long nStart = nFrom;
    bool bFirst = true;
    for (;;) {
        unsigned long nGot = 0;
        try {
            nGot = ReadAt(nStart, BLOCK, pBuf);
        } catch (CQLExceptionParser& e) {
            m_strLastError = "In CQLMimeFile::Find(), " + e.GetLastError();
            return NOT_FOUND;
        }
        if (nGot == 0) {
            m_strLastError = "In CQLMimeFile::Find(), " + m_File.GetLastError();
            return NOT_FOUND;
        }
        const bool bEnd = nGot < BLOCK;
        if (bFirst && pbCRLF != nullptr && pBuf[nFind - 1] == '\r' && pBuf[nFind] == '\n')
            *pbCRLF = 1;
        bFirst = false;
        pBuf[nGot] = '\0';
        // The whole scratch buffer is searched: after a short read, what an earlier read left
        // behind the NUL can still match.
        const size_t nHit = m_strReadBuf.find(strFind);
        if (nHit != std::string::npos) {
            if (pnLine != nullptr) *pnLine += static_cast<int>(CountLF(pBuf, nHit));
            return nStart + nHit;
        }
        if (bEnd) return NOT_FOUND;
        if (pnLine != nullptr) *pnLine += static_cast<int>(CountLF(pBuf, nGot));
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
        if (nLen < BLOCK) {
            const unsigned long nGot = ReadAt(nOffset, nLen, pBuf);
            if (nGot == 0) {
                m_strLastError = kLinePrefix + m_File.GetLastError();
                return 0;
            }
            return CountLF(pBuf, nGot);
        }
        unsigned long nSum = 0, nDone = 0;
        while (nDone < nLen) {
            const unsigned long nWant = std::min(BLOCK, nLen - nDone);
            const unsigned long nGot = ReadAt(nOffset + nDone, nWant, pBuf);
            if (nGot == 0) break; // the end of the file
            nSum += CountLF(pBuf, nGot);
            nDone += nGot;
            if (nGot < nWant) break;
        }
        return nSum;
    } catch (CQLExceptionParser& e) {
        m_strLastError = kLinePrefix + e.GetLastError();
        return 0;
    }
}

std::string CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen) {
    std::string strOut;
    if (nLen == 0) return strOut;
    nLen = ClampToLength(nOffset, nLen);
    try {
        strOut.resize(nLen);
        strOut.resize(ReadAt(nOffset, nLen, &strOut[0]));
    } catch (CQLExceptionParser& e) {
        m_strLastError = kPrefix + e.GetLastError();
        strOut.clear();
    }
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
    strOut.clear();
    nLen = ClampToLength(nOffset, nLen);
    try {
        strOut.resize(nLen);
        strOut.resize(ReadAt(nOffset, nLen, &strOut[0]));
    } catch (CQLExceptionParser& e) {
        m_strLastError = kPrefix + e.GetLastError();
        strOut.clear();
        return 0;
    }
    return strOut.size();
}

unsigned long CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen, std::ostream& out) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    // Text delivery: each block goes out only up to its first NUL byte.
    char szBlock[1024 + 1];
    try {
        if (nLen < 1024) {
            memset(szBlock, 0, sizeof(szBlock));
            const unsigned long nGot = ReadAt(nOffset, nLen, szBlock);
            if (nGot == 0) {
                m_strLastError = kPrefix + std::string(strerror(errno));
                return 0;
            }
            out << szBlock;
            if (!out) {
                m_strLastError = kPrefix + std::string(strerror(errno));
                return 0;
            }
            return nGot;
        }
        unsigned long nTotal = 0;
        while (nTotal < nLen) {
            const unsigned long nWant = std::min<unsigned long>(1024, nLen - nTotal);
            memset(szBlock, 0, sizeof(szBlock));
            const unsigned long nGot = ReadAt(nOffset + nTotal, nWant, szBlock);
            if (nGot == 0) break; // the end of the file
            out << szBlock;
            nTotal += nGot;
            if (nGot < nWant) break;
        }
        return nTotal;
    } catch (CQLExceptionParser& e) {
        m_strLastError = kPrefix + e.GetLastError();
        return 0;
    }
}

unsigned long CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen, CQLFileParser& file) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    char szBlock[1024];
    try {
        unsigned long nTotal = 0;
        while (nTotal < nLen) {
            const unsigned long nWant = std::min<unsigned long>(1024, nLen - nTotal);
            const unsigned long nGot = ReadAt(nOffset + nTotal, nWant, szBlock);
            if (nGot == 0) {
                if (nLen < 1024) {
                    m_strLastError = kPrefix + m_File.GetLastError();
                    return 0;
                }
                break; // the end of the file
            }
            file.Write(szBlock, nGot);
            nTotal += nGot;
            if (nGot < nWant) break;
        }
        return nTotal;
    } catch (CQLExceptionParser& e) {
        m_strLastError = kPrefix + e.GetLastError();
        return 0;
    }
}

unsigned long CQLMimeFile::SubStr(unsigned long nOffset, unsigned long nLen, int nFD) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    std::vector<char> vBlock(8192 + 10);
    unsigned long nTotal = 0;
    try {
        while (nTotal < nLen) {
            const unsigned long nWant = std::min<unsigned long>(8192, nLen - nTotal);
            const unsigned long nGot = ReadAt(nOffset + nTotal, nWant, vBlock.data());
            if (nGot == 0) break;
            unsigned long nWritten = 0;
            while (nWritten < nGot) {
                ssize_t n = write(nFD, vBlock.data() + nWritten, nGot - nWritten);
                if (n < 0 && errno == EINTR) continue;
                if (n <= 0) {
                    m_strLastError = kPrefix + std::string(strerror(errno));
                    return 0;
                }
                nWritten += static_cast<unsigned long>(n);
            }
            nTotal += nGot;
            if (nGot < nWant) break;
        }
    } catch (CQLExceptionParser& e) {
        m_strLastError = kPrefix + e.GetLastError();
        return 0;
    }
    return nTotal;
}

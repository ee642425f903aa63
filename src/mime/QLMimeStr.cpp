#include "mime/QLMimeStr.h"

#include "foundation/QLSystemError.h"
#include "mime/QLMimeHdr.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

namespace {

const char* const kInvalidParameter = "In CQLMimeStr::SubStr, invalid parameter";

} // namespace

char CQLMimeStr::GetChar(int nOffset) {
    // Offsets are unsigned 32-bit in the tree; the int only carries them.
    const unsigned long nPos = static_cast<unsigned int>(nOffset);
    return nPos < m_strData.size() ? m_strData[nPos] : '\0';
}

unsigned long CQLMimeStr::Find(const std::string& strFind, unsigned long nFrom, int* pnLine,
                               int* pbCRLF) {
    if (nFrom > m_strData.size() || strFind.size() > m_strData.size() - nFrom) return NOT_FOUND;
    unsigned long nLF = 0;
    const char* pHit =
        CQLIMimeStr::FindBytes(m_strData.data() + nFrom, m_strData.size() - nFrom, strFind.data(),
                               strFind.size(), pnLine != nullptr ? &nLF : nullptr);
    if (pHit == nullptr) return NOT_FOUND;
    const size_t nHit = pHit - m_strData.data();
    if (pbCRLF != nullptr) {
        // Looked at relative to where the search began, not to the match.
        const unsigned long nAt = nFrom + strFind.size();
        if (nAt >= 1 && nAt < m_strData.size() && m_strData[nAt - 1] == '\r' &&
            m_strData[nAt] == '\n')
            *pbCRLF = 1;
    }
    if (pnLine != nullptr) *pnLine = static_cast<int>(nLF);
    return nHit;
}

std::string CQLMimeStr::SubStr(unsigned long nOffset, unsigned long nLen) {
    if (nOffset > m_strData.size() || nLen == 0) {
        m_strLastError = kInvalidParameter;
        return std::string();
    }
    return m_strData.substr(nOffset, nLen);
}

unsigned long CQLMimeStr::SubStr(char* pszBuf, unsigned long nOffset, unsigned long nLen) {
    if (pszBuf == nullptr) return 0;
    if (nOffset > m_strData.size() || nLen == 0) {
        m_strLastError = kInvalidParameter;
        pszBuf[0] = '\0';
        return 0;
    }
    const unsigned long nCount = std::min<unsigned long>(nLen, m_strData.size() - nOffset);
    memcpy(pszBuf, m_strData.data() + nOffset, nCount);
    pszBuf[nCount] = '\0';
    return nCount;
}

unsigned long CQLMimeStr::SubStr(unsigned long nOffset, unsigned long nLen, std::ostream& out) {
    if (nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    if (nOffset > m_strData.size()) throw std::out_of_range("basic_string::substr");
    const unsigned long nCount = std::min<unsigned long>(nLen, m_strData.size() - nOffset);
    out.write(m_strData.data() + nOffset, static_cast<std::streamsize>(nCount));
    return nCount;
}

unsigned long CQLMimeStr::SubStr(unsigned long nOffset, unsigned long nLen, CQLFileParser& file) {
    if (nOffset > m_strData.size()) throw std::out_of_range("basic_string::substr");
    const unsigned long nCount = std::min<unsigned long>(nLen, m_strData.size() - nOffset);
    try {
        return static_cast<unsigned long>(file.Write(m_strData.data() + nOffset, nCount));
    } catch (CQLExceptionParser& e) {
        m_strLastError = "In CQLMimeStr::SubStr(), " + e.GetLastError();
        return 0;
    }
}

unsigned long CQLMimeStr::SubStr(unsigned long nOffset, unsigned long nLen, std::string& strOut) {
    if (nOffset > m_strData.size() || nLen == 0) {
        m_strLastError = kInvalidParameter;
        return 0;
    }
    strOut.assign(m_strData, nOffset, nLen);
    return strOut.size();
}

unsigned long CQLMimeStr::SubStr(unsigned long nOffset, unsigned long nLen, int nFD) {
    if (nLen == 0) return 0;
    // Only the bytes that exist are written.
    if (nOffset >= m_strData.size())
        nLen = 0;
    else
        nLen = std::min<unsigned long>(nLen, m_strData.size() - nOffset);
    const char* p = m_strData.data() + nOffset;
    unsigned long nLeft = nLen;
    while (nLeft > 0) {
        ssize_t n = write(nFD, p, nLeft);
        if (n <= 0) break;
        p += n;
        nLeft -= static_cast<unsigned long>(n);
    }
    if (nLeft > 0 || nLen == 0) {
        m_strLastError = "In CQLMimeStr::SubStr(), " + CQLSystemError::GetStrError(errno);
        return 0;
    }
    return nLen;
}

unsigned long CQLMimeStr::FastLineCnt(unsigned long nOffset, unsigned long nLen) {
    // The end is included: a newline at nOffset + nLen counts.
    if (m_pIndex && nOffset < m_strData.size())
        return m_pIndex->LineCnt(*this, nOffset,
                                 std::min<unsigned long>(nOffset + nLen, m_strData.size() - 1) + 1);
    return GetLineCnt(m_strData, nOffset, nOffset + nLen);
}

const char* CQLMimeStr::BytesAt(unsigned long nOffset, unsigned long nWant, unsigned long& nGot,
                                bool) {
    nGot =
        nOffset < m_strData.size() ? std::min<unsigned long>(nWant, m_strData.size() - nOffset) : 0;
    return m_strData.data() + std::min<unsigned long>(nOffset, m_strData.size());
}

unsigned long CQLMimeStr::ParseHdr(CQLMimeHdr& hdr, unsigned long nOffset) {
    return hdr.ParseLines(*this, nOffset);
}

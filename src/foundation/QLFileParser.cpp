#include "foundation/QLFileParser.h"

#include "foundation/QLStringParser.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

const int kReadAhead = 8192;
const unsigned long kCopyPiece = 8192;
// Copying to a caller's descriptor reads a little less than its scratch string holds.
const unsigned long kFdCopyScratch = 8106;
const unsigned long kFdCopyPiece = 8096;

std::string SysText(int nErr) {
    return strerror(nErr);
}

std::string CurrentDir() {
    char szBuf[4096];
    if (getcwd(szBuf, sizeof(szBuf)) == nullptr) return std::string();
    std::string strDir = szBuf;
    if (strDir.empty() || strDir[strDir.size() - 1] != '/') strDir += '/';
    return strDir;
}

} // namespace

CQLFileParser::CQLFileParser() {
    Init();
}

CQLFileParser::CQLFileParser(const std::string& strFileName, const bool& bNormalize) {
    Init();
    SetFileName(strFileName, bNormalize);
}

CQLFileParser::CQLFileParser(const CQLFileParser& other) : CQLExceptionParser() {
    Init();
    m_strFileName = other.m_strFileName;
    m_strPath = other.m_strPath;
    m_strLastError = other.m_strLastError;
}

CQLFileParser& CQLFileParser::operator=(const CQLFileParser& other) {
    if (this == &other) return *this;
    CQLExceptionParser::operator=(other);
    m_pFile = other.m_pFile;
    m_nFD = other.m_nFD;
    m_nMode = other.m_nMode;
    m_strFileName = other.m_strFileName;
    m_strPath = other.m_strPath;
    m_strFileExt = other.m_strFileExt;
    m_strBuffer = other.m_strBuffer;
    m_nBufferLen = other.m_nBufferLen;
    m_nBufferPos = other.m_nBufferPos;
    m_nFilePos = other.m_nFilePos;
    m_bEnd = other.m_bEnd;
    return *this;
}

CQLFileParser::~CQLFileParser() {
    // A destructor must not throw; a failed close has nothing left to report to.
    try {
        Close();
    } catch (...) {
    }
}

void CQLFileParser::Init() {
    m_pFile = nullptr;
    m_nFD = -1;
    m_nMode = 0;
    m_strFileName.clear();
    m_strPath.clear();
    m_strFileExt.clear();
    m_nBufferLen = 0;
    m_nBufferPos = 0;
    m_nFilePos = -1;
    m_bEnd = false;
}

void CQLFileParser::SetFileName(const std::string& strFileName, const bool& bNormalize) {
    Init();
    m_strFileName = strFileName;

    const std::string::size_type nSlash = strFileName.rfind(DDIR);
    if (nSlash == std::string::npos) {
        m_strPath = CurrentDir();
        if (m_strPath.empty()) {
            m_strLastError = "In SetFileName(" + strFileName + "), " + SysText(errno);
            throw *this;
        }
        return;
    }

    m_strPath = strFileName.substr(0, nSlash + 1);
    m_strFileName = strFileName.substr(nSlash + 1);
    if (m_strFileName.empty()) {
        m_strLastError = "In SetFileName(), invalid filename[" + strFileName + "]";
        throw *this;
    }
    if (!bNormalize) return;

    if (m_strPath[0] != DDIR) {
        const std::string strCwd = CurrentDir();
        if (strCwd.empty()) {
            m_strLastError = "In SetFileName(" + strFileName + "), " + SysText(errno);
            throw *this;
        }
        m_strPath = strCwd + m_strPath;
    }

    // The leading "/" yields an empty first token, which stays at the bottom of the stack:
    // it doubles the first slash and absorbs the first ".." beyond the root.
    CQLStringParser oStr;
    std::vector<std::string> vTokens;
    oStr.Tokenize(m_strPath, vTokens, DDIR);
    std::vector<std::string> vStack;
    for (const std::string& strToken : vTokens) {
        if (strToken == ".") continue;
        if (strToken == ".." && !vStack.empty()) {
            vStack.pop_back();
            continue;
        }
        vStack.push_back(strToken);
    }
    m_strPath = DDIR;
    for (const std::string& strDir : vStack) {
        m_strPath += strDir;
        m_strPath += DDIR;
    }
}

int CQLFileParser::SetFileExt(const char* pszName, std::string& /*strUnused*/) {
    if (pszName == nullptr || *pszName == '\0') return 0;
    const char* pszDot = strrchr(pszName, '.');
    if (pszDot != nullptr && pszDot > pszName) m_strFileExt = pszDot + 1;
    return 0;
}

bool CQLFileParser::Open(int nMode) {
    if (m_strFileName.empty()) {
        m_strLastError = "In Open(), m_strFileName is empty, Please make sure SetFileName(), "
                         "before call Open()";
        return false;
    }
    Close();

    const std::string strFull = GetPath();
    if (nMode & FILE_STREAM) {
        std::string strMode;
        if (nMode & FILE_READ) strMode = "r";
        if (nMode & FILE_WRITE) strMode = (nMode & FILE_APPEND) ? "a" : "w";
        if (nMode & FILE_RW) strMode = (nMode & FILE_APPEND) ? "a+" : "w+";
        if (nMode & FILE_BINARY) strMode += "b";
        m_pFile = fopen64(strFull.c_str(), strMode.c_str());
        if (m_pFile == nullptr) {
            m_strLastError = "In Open(" + m_strFileName + "), " + SysText(errno);
            return false;
        }
    } else {
        int nFlags = O_RDONLY;
        if (nMode & FILE_RW) nFlags |= O_RDWR | O_CREAT;
        if (nMode & FILE_WRITE) nFlags |= O_WRONLY | O_CREAT;
        if (nMode & FILE_TRUNC) nFlags |= O_TRUNC;
        if (nMode & FILE_APPEND) nFlags |= O_APPEND | O_RDWR;
        m_nFD = open64(strFull.c_str(), nFlags, 0666);
        if (m_nFD < 0) {
            m_nFD = -1;
            m_strLastError = "In Open(" + strFull + "), " + SysText(errno);
            return false;
        }
    }
    m_nMode = nMode | FILE_OPENED;
    return true;
}

int CQLFileParser::GetFD() {
    if (m_pFile != nullptr && m_nFD == -1) m_nFD = fileno(m_pFile);
    return m_nFD;
}

void CQLFileParser::SetFD(int nFD) {
    Close();
    Init();
    m_nFD = nFD;
}

void CQLFileParser::Close() {
    if (!(m_nMode & FILE_OPENED)) return;
    int nResult = 0;
    int nErr = 0;
    if (m_nMode & FILE_STREAM) {
        if (m_pFile != nullptr) {
            nResult = fclose(m_pFile);
            nErr = errno;
            // fclose releases the stream even when it fails; never hand it back to fclose.
            m_pFile = nullptr;
        }
    } else if (m_nFD > 0) {
        nResult = close(m_nFD);
        nErr = errno;
    }
    if (nResult != 0) {
        m_strLastError = "In Close(" + m_strFileName + "), " + SysText(nErr);
        throw *this;
    }
    m_pFile = nullptr;
    m_nFD = -1;
    m_nMode = 0;
    m_nFilePos = -1;
    m_bEnd = false;
}

unsigned long CQLFileParser::Read(char* pBuf, unsigned long nLen) {
    if (m_bEnd) return 0;
    if (pBuf == nullptr) return 0;

    if (m_nBufferLen > 0) {
        m_nFilePos = -1;
        // Compared unsigned and 64 bits wide, so that a huge count cannot pass for a small one.
        if (static_cast<unsigned long>(m_nBufferLen) > nLen) {
            memcpy(pBuf, m_strBuffer.data() + m_nBufferPos, nLen);
            m_nBufferPos += static_cast<int>(nLen);
            m_nBufferLen -= static_cast<int>(nLen);
            return nLen;
        }
    }
    // Whatever was buffered goes first; the file's bytes then land on top of it, from the
    // start of the destination, and only they are counted.
    const unsigned long nBuffered = static_cast<unsigned long>(std::max(m_nBufferLen, 0));
    if (nBuffered > 0) {
        memcpy(pBuf, m_strBuffer.data() + m_nBufferPos, nBuffered);
        m_nBufferPos += static_cast<int>(nBuffered);
    }
    m_nBufferLen = 0;
    unsigned long nWanted = nLen - nBuffered;
    if (nWanted == 0) return 0;

    unsigned long nTotal = 0;
    while (nWanted > 0) {
        if (m_pFile != nullptr) {
            const size_t nGot = fread(pBuf + nTotal, 1, nWanted, m_pFile);
            if (nGot >= 1) {
                nTotal += nGot;
                nWanted -= nGot;
                continue;
            }
            if (feof(m_pFile)) {
                // A short last read leaves the end for the next call to find.
                if (nTotal == 0) m_bEnd = true;
                return nTotal;
            }
            if (ferror(m_pFile)) {
                m_strLastError = "In Read(" + m_strFileName + "), " + SysText(errno);
                throw *this;
            }
        } else {
            const ssize_t nGot = read(m_nFD, pBuf + nTotal, nWanted);
            if (nGot < 0) {
                const int nErr = errno;
                if (nErr == EINTR) continue;
                m_strLastError = "In Read(" + m_strFileName + "), " + SysText(nErr);
                throw *this;
            }
            if (nGot == 0) {
                m_bEnd = true;
                return nTotal;
            }
            nTotal += static_cast<unsigned long>(nGot);
            nWanted -= static_cast<unsigned long>(nGot);
        }
    }
    return nTotal;
}

unsigned long CQLFileParser::Read(std::string& strBuf, unsigned long nLen) {
    strBuf.clear();
    if (m_bEnd) return 0;
    strBuf.resize(nLen);
    const unsigned long nGot = Read(&strBuf[0], nLen);
    strBuf.resize(nGot);
    return nGot;
}

unsigned long CQLFileParser::ReadAt(long long nOffset, std::string& strBuf, unsigned long nLen) {
    if (m_pFile != nullptr) {
        SetPos(static_cast<long>(nOffset), POS_SET);
        return Read(strBuf, nLen);
    }
    strBuf.resize(nLen);
    unsigned long nTotal = 0;
    while (nTotal < nLen) {
        const ssize_t nGot =
            pread64(m_nFD, &strBuf[nTotal], nLen - nTotal, static_cast<off64_t>(nOffset + nTotal));
        if (nGot < 0) {
            const int nErr = errno;
            if (nErr == EINTR) continue;
            m_strLastError = "In Read(" + m_strFileName + "), " + SysText(nErr);
            throw *this;
        }
        if (nGot == 0) break;
        nTotal += static_cast<unsigned long>(nGot);
    }
    strBuf.resize(nTotal);
    return nTotal;
}

bool CQLFileParser::ReadFromBuffer(char& c) {
    if (m_nBufferLen < 1) {
        m_nFilePos = GetPos();
        // The buffer keeps its size between fills, so that it is not cleared for each.
        if (m_strBuffer.size() < static_cast<size_t>(kReadAhead)) m_strBuffer.resize(kReadAhead);
        const unsigned long nGot = Read(&m_strBuffer[0], kReadAhead);
        m_nBufferLen = static_cast<int>(nGot);
        if (nGot == 0) {
            m_strLastError = "In ReadFromBuffer(" + m_strFileName + "), End Of File";
            return false;
        }
        m_nBufferPos = 0;
    }
    c = m_strBuffer[m_nBufferPos];
    ++m_nBufferPos;
    ++m_nFilePos;
    --m_nBufferLen;
    return true;
}

bool CQLFileParser::ReadLine(std::string& strLine, bool bStripEOL) {
    strLine.clear();
    bool bCaught = false;
    std::string strCaught;
    int nCaughtCode = 0;
    char c = 0;
    for (;;) {
        if (m_nBufferLen > 0) {
            // The buffered run up to the line end at once, as byte by byte would take it.
            const char* p = m_strBuffer.data() + m_nBufferPos;
            const char* pLF = static_cast<const char*>(memchr(p, '\n', m_nBufferLen));
            const int nRun = pLF ? static_cast<int>(pLF - p) : m_nBufferLen;
            const int nTaken = pLF ? nRun + 1 : nRun;
            strLine.append(p, static_cast<size_t>(nRun));
            m_nBufferPos += nTaken;
            m_nBufferLen -= nTaken;
            m_nFilePos += nTaken;
            if (pLF == nullptr) continue;
            if (!bStripEOL)
                strLine += '\n';
            else if (!strLine.empty() && strLine[strLine.size() - 1] == '\r')
                strLine.erase(strLine.size() - 1);
            return true;
        }
        bool bGot = false;
        try {
            bGot = ReadFromBuffer(c);
        } catch (CQLExceptionParser& e) {
            bCaught = true;
            strCaught = e.GetLastError();
            nCaughtCode = e.GetErrorCode();
        }
        if (!bGot) break;
        if (c == '\n') {
            if (bStripEOL) {
                if (!strLine.empty() && strLine[strLine.size() - 1] == '\r')
                    strLine.erase(strLine.size() - 1);
            } else {
                strLine += c;
            }
            return true;
        }
        strLine += c;
    }
    if (!strLine.empty()) return true; // a last line without its line end
    if (m_bEnd) return false;
    if (bCaught) throw CQLExceptionParser(strCaught, nCaughtCode);
    return false;
}

bool CQLFileParser::ReadLineView(const char*& pLine, unsigned long& nLine,
                                 std::string& strScratch) {
    if (m_nBufferLen > 0) {
        const char* p = m_strBuffer.data() + m_nBufferPos;
        const char* pLF = static_cast<const char*>(memchr(p, '\n', m_nBufferLen));
        if (pLF != nullptr) {
            const int nTaken = static_cast<int>(pLF - p) + 1;
            m_nBufferPos += nTaken;
            m_nBufferLen -= nTaken;
            m_nFilePos += nTaken;
            pLine = p;
            nLine = static_cast<unsigned long>(nTaken);
            return true;
        }
    }
    if (!ReadLine(strScratch, false)) return false;
    pLine = strScratch.data();
    nLine = strScratch.size();
    return true;
}

bool CQLFileParser::IsLF() {
    char c = 0;
    try {
        while (ReadFromBuffer(c)) {
            if (c == '\r') return false;
            if (c == '\n') return true;
        }
    } catch (CQLExceptionParser&) {
    }
    return false;
}

long long CQLFileParser::Write(const char* pBuf, unsigned long nLen) {
    if (pBuf == nullptr) {
        m_strLastError = "In Write(), Invalid data ptr.";
        throw *this;
    }
    if (!(m_nMode & (FILE_WRITE | FILE_RW | FILE_APPEND))) {
        m_strLastError = "In Write(), Access denied, This file has ReadOnly flag.";
        throw *this;
    }
    if (nLen == 0) return 0;

    unsigned long nTotal = 0;
    while (nTotal < nLen) {
        if (m_pFile != nullptr) {
            const size_t nPut = fwrite(pBuf + nTotal, 1, nLen - nTotal, m_pFile);
            const int nErr = errno;
            // A stream that takes nothing without flagging an error would never finish.
            if (ferror(m_pFile) || nPut == 0) {
                m_strLastError = "In Write(" + m_strFileName + "), " + SysText(nErr);
                throw *this;
            }
            if (feof(m_pFile)) m_bEnd = true;
            nTotal += nPut;
        } else {
            const ssize_t nPut = write(m_nFD, pBuf + nTotal, nLen - nTotal);
            if (nPut < 0) {
                const int nErr = errno;
                if (nErr == EINTR) continue;
                m_strLastError = "In Write(" + m_strFileName + "), " + SysText(nErr);
                throw *this;
            }
            if (nPut == 0) m_bEnd = true;
            nTotal += static_cast<unsigned long>(nPut);
        }
    }
    return static_cast<long long>(nTotal);
}

long long CQLFileParser::Write(const std::string& strBuf) {
    return Write(strBuf.data(), strBuf.size());
}

unsigned long CQLFileParser::IndirectWrite(const int& nFD, const char* pBuf,
                                           const unsigned long& nLen) {
    if (pBuf == nullptr || nLen == 0) return 0;
    unsigned long nTotal = 0;
    while (nTotal < nLen) {
        const ssize_t nPut = write(nFD, pBuf + nTotal, nLen - nTotal);
        if (nPut < 1) break;
        nTotal += static_cast<unsigned long>(nPut);
    }
    if (nTotal < nLen) m_strLastError = "In IndirectWrite(), " + SysText(errno);
    return nTotal;
}

bool CQLFileParser::Flush() {
    if (m_pFile == nullptr) return true; // descriptor writes are not buffered here
    if (fflush(m_pFile) != 0) {
        m_strLastError = "In Flush(" + m_strFileName + "), " + SysText(errno);
        return false;
    }
    return true;
}

long long CQLFileParser::GetPos() {
    if (m_nFilePos > 0) return m_nFilePos;
    if (m_pFile != nullptr) return ftello64(m_pFile);
    return lseek64(m_nFD, 0, SEEK_CUR);
}

bool CQLFileParser::SetPos(long nOffset, POS ePos) {
    m_nBufferLen = 0;
    m_nFilePos = -1;
    const long long nSize = GetSize();

    int nWhence = SEEK_SET;
    if (ePos == POS_CUR)
        nWhence = SEEK_CUR;
    else if (ePos == POS_END)
        nWhence = SEEK_END;

    long long nSeek = 0;
    long long nPos = 0;
    int nErr = 0;
    if (m_pFile != nullptr) {
        nSeek = fseeko64(m_pFile, nOffset, nWhence);
        nErr = errno;
        nPos = ftello64(m_pFile);
    } else {
        nSeek = lseek64(m_nFD, nOffset, nWhence);
        nErr = errno;
        nPos = nSeek;
    }
    if (nSeek == -1) {
        char szBuf[256];
        snprintf(szBuf, sizeof(szBuf), "In SetPos(%s), off_t[%ld], pos[%d], size[%ld], err[%s]",
                 m_strFileName.c_str(), nOffset, static_cast<int>(ePos), static_cast<long>(nSize),
                 strerror(nErr));
        m_strLastError = szBuf;
        return false;
    }
    if (nPos < nSize && nSize != 0 && nPos != -1) m_bEnd = false;
    return true;
}

long long CQLFileParser::GetSize() {
    if (m_nFD <= -1) return GetSize(GetPath());
    struct stat64 st;
    if (fstat64(m_nFD, &st) != 0) {
        m_strLastError = "In GetSize(" + m_strFileName + "), " + SysText(errno);
        throw *this;
    }
    return static_cast<long long>(st.st_size);
}

bool CQLFileParser::Exists() {
    return Exists(GetPath());
}

bool CQLFileParser::Exists(const std::string& strPath) {
    return access(strPath.c_str(), F_OK) == 0;
}

long long CQLFileParser::GetSize(const std::string& strPath) {
    struct stat64 st;
    if (stat64(strPath.c_str(), &st) != 0)
        throw CQLExceptionParser("In GetSize(), " + SysText(errno), 0);
    return static_cast<long long>(st.st_size);
}

bool CQLFileParser::Copy(const std::string& strDest, bool bOverwrite) {
    Close();
    return Copy(GetPath(), strDest, m_strLastError, bOverwrite);
}

bool CQLFileParser::Copy(const std::string& strSrcPath, int nFD) {
    if (strSrcPath.empty()) {
        m_strLastError = "In Copy(), strSrcPath is empty.";
        return false;
    }
    if (nFD < 0) {
        m_strLastError = "In Copy(), bad file fd.";
        return false;
    }
    const int nSrc = open64(strSrcPath.c_str(), O_RDONLY);
    if (nSrc < 0) {
        m_strLastError = "In Copy(), fail to open " + strSrcPath + ", because " + SysText(errno);
        return false;
    }
    std::string strScratch(kFdCopyScratch, '\0');
    bool bResult = true;
    for (;;) {
        const ssize_t nGot = read(nSrc, &strScratch[0], kFdCopyPiece);
        if (nGot < 1) break;
        const unsigned long nLen = static_cast<unsigned long>(nGot);
        if (IndirectWrite(nFD, strScratch.data(), nLen) != nLen) {
            bResult = false;
            break;
        }
    }
    close(nSrc);
    return bResult;
}

bool CQLFileParser::Copy(const std::string& strSrcPath, const std::string& strDest,
                         std::string& strError, bool bOverwrite) {
    if (!bOverwrite && Exists(strDest)) {
        strError = "In CQLFileParser::Copy(), destination file exists";
        return false;
    }
    CQLFileParser oSrc(strSrcPath, false);
    CQLFileParser oDest(strDest, false);
    if (!oSrc.Open(FILE_READ | FILE_BINARY)) {
        strError = "In CQLFileParser::Copy(), fail to open src file, " + oSrc.GetLastError();
        return false;
    }
    if (!oDest.Open(FILE_WRITE | FILE_TRUNC | FILE_BINARY)) {
        strError = "In CQLFileParser::Copy(), fail to open dest file, " + oDest.GetLastError();
        return false;
    }
    long long nRemain = 0;
    try {
        nRemain = oSrc.GetSize();
    } catch (CQLExceptionParser& e) {
        strError = "In CQLFileParser::Copy(), fail to get source file size, " + e.GetLastError();
        oSrc.Close();
        oDest.Close();
        return false;
    }
    char szBuf[kCopyPiece];
    while (nRemain > 0) {
        const unsigned long nPiece = std::min(kCopyPiece, static_cast<unsigned long>(nRemain));
        const unsigned long nGot = oSrc.Read(szBuf, nPiece);
        oDest.Write(szBuf, nGot);
        // Counted by what was asked, so a source that shrinks meanwhile still ends the loop.
        nRemain -= static_cast<long long>(nPiece);
    }
    oSrc.Close();
    oDest.Close();
    return true;
}

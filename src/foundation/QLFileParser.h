#ifndef QLMAIL_FOUNDATION_QLFILEPARSER_H
#define QLMAIL_FOUNDATION_QLFILEPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <cstdio>
#include <string>

// The library's one file class: a name split into directory and base name, a POSIX
// descriptor or a stdio stream, an 8192-byte read-ahead buffer for byte and line reads,
// and unbuffered writes.
class QLMAIL_EXPORT CQLFileParser : public CQLExceptionParser {
public:
    enum {
        FILE_OPENED = 1,
        FILE_READ = 2,
        FILE_WRITE = 4,
        FILE_RW = 8,
        FILE_APPEND = 16,
        FILE_TRUNC = 32,
        FILE_BINARY = 64,
        FILE_STREAM = 128
    };
    enum POS { POS_SET = 0, POS_CUR = 1, POS_END = 2 };

    static constexpr char DDIR = '/'; // directory separator

    CQLFileParser();
    CQLFileParser(const std::string& strFileName, const bool& bNormalize);
    // Takes the name, path and error text only: the copy is closed and safe to throw.
    CQLFileParser(const CQLFileParser& other);
    // Takes every field over, the open handle included.
    CQLFileParser& operator=(const CQLFileParser& other);
    virtual ~CQLFileParser();

    void Init();
    void SetFileName(const std::string& strFileName, const bool& bNormalize);
    std::string GetFileName() const { return m_strFileName; }
    std::string GetPath() const { return m_strPath + m_strFileName; }
    int SetFileExt(const char* pszName, std::string& strUnused);

    bool Open(int nMode);
    bool IsOpen() const { return (m_nMode & FILE_OPENED) != 0; }
    bool IsEnd() const { return m_bEnd; }
    int GetFD();
    void SetFD(int nFD);
    void Close();

    unsigned long Read(char* pBuf, unsigned long nLen);
    unsigned long Read(std::string& strBuf, unsigned long nLen);
    bool ReadFromBuffer(char& c);
    bool ReadLine(std::string& strLine, bool bStripEOL);
    bool IsLF();

    long long Write(const char* pBuf, unsigned long nLen);
    long long Write(const std::string& strBuf);
    unsigned long IndirectWrite(const int& nFD, const char* pBuf, const unsigned long& nLen);
    bool Flush();

    long long GetPos();
    bool SetPos(long nOffset, POS ePos);
    long long GetSize();
    bool Exists();
    bool Copy(const std::string& strDest, bool bOverwrite);
    bool Copy(const std::string& strSrcPath, int nFD);

    static bool Exists(const std::string& strPath);
    static long long GetSize(const std::string& strPath);
    static bool Copy(const std::string& strSrcPath, const std::string& strDest,
                     std::string& strError, bool bOverwrite);

protected:
    FILE* m_pFile;
    int m_nFD;
    int m_nMode;
    std::string m_strFileName;
    std::string m_strPath;
    std::string m_strFileExt;
    std::string m_strBuffer;
    int m_nBufferLen;
    int m_nBufferPos;
    long long m_nFilePos;
    bool m_bEnd;
};

#endif

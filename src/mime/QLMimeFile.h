#ifndef QLMAIL_MIME_QLMIMEFILE_H
#define QLMAIL_MIME_QLMIMEFILE_H

#include "mime/QLIMimeStr.h"

#include <memory>
#include <string>

// A message in a file, never held in memory as a whole. m_strData holds the path.
//
// Searches work on 4096-byte blocks with an overlap, in one reused scratch buffer, and line
// counts add up per block: the results (line counts and the scratch buffer's leftovers
// included) are those of reading the file block by block through m_File. The bytes
// themselves come from a read-ahead window filled by pread, so that a parse costs a few
// system calls per window rather than a seek and a read per block or header line.
class CQLMimeFile : public CQLIMimeStr {
public:
    CQLMimeFile();
    // An empty source that carries only the error text.
    CQLMimeFile(const CQLMimeFile& other);
    CQLMimeFile& operator=(const CQLMimeFile& other);
    virtual ~CQLMimeFile();

    void Close() override;
    char GetChar(int nOffset) override;
    unsigned long Find(const std::string& strFind, unsigned long nFrom, int* pnLine,
                       int* pbCRLF) override;
    std::string SubStr(unsigned long nOffset, unsigned long nLen) override;
    unsigned long SubStr(char* pszBuf, unsigned long nOffset, unsigned long nLen) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, std::ostream& out) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, CQLFileParser& file) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, std::string& strOut) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, int nFD) override;
    unsigned long FastLineCnt(unsigned long nOffset, unsigned long nLen) override;
    int GetType() override { return 1; }

    // The line at the offset with its line break (CR kept), or to the end of the file when
    // no LF follows; false when nothing is left. Where the line lies in the read-ahead window
    // pLine points into it, otherwise into strScratch; either stays valid until the next read.
    // Throws CQLExceptionParser on a read error.
    bool LineAt(unsigned long nOffset, const char*& pLine, unsigned long& nLine,
                std::string& strScratch);
    CQLFileParser* GetFileObject() { return &m_File; }
    // Forgets the read-ahead window; needed when the file under m_File changes.
    void InvalidateCache();

protected:
    long long OpenedFileSize() override;

private:
    static constexpr unsigned long BLOCK = 4096;
    static constexpr unsigned long WINDOW = 64 * 1024;
    static_assert(BLOCK <= WINDOW, "a block must fit in the window");

    // Up to nLen bytes at nOffset, fewer at the end of the file. Throws on a read error.
    unsigned long ReadAt(unsigned long nOffset, unsigned long nLen, char* pDest);
    // Makes the window hold nOffset; false at the end of the file.
    bool Fill(unsigned long nOffset);
    // The window's bytes from nOffset on, or null at the end of the file.
    const char* WindowAt(unsigned long nOffset, unsigned long& nAvail);
    // nWant bytes at nOffset (fewer at the end of the file), from the window where they lie.
    // nWant is at most a block, far less than a window.
    const char* BlockAt(unsigned long nOffset, unsigned long nWant, unsigned long& nGot);
    void PrepareReadBuf();
    // Reads the range block by block through pBlock and hands each block to put, which
    // answers false on a failure of its sink; the bytes read, or -1 with the text set.
    template <class Put>
    long long CopyBlocks(unsigned long nOffset, unsigned long nLen, char* pBlock,
                         unsigned long nBlock, Put put);
    // The range into strOut, as far as the file goes; false with the text set on a read error.
    bool ReadString(unsigned long nOffset, unsigned long nLen, std::string& strOut);
    unsigned long ClampToLength(unsigned long nOffset, unsigned long nLen) const;

    std::string m_strReadBuf;
    std::unique_ptr<char[]> m_pWindow;
    unsigned long m_nWindowStart;
    unsigned long m_nWindowLen;
    unsigned long m_nEndSeen; // the end of the file where a read found it, all ones before
};

#endif

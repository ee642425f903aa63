#ifndef QLMAIL_MIME_QLMIMEFILE_H
#define QLMAIL_MIME_QLMIMEFILE_H

#include "foundation/QLExport.h"
#include "mime/QLIMimeStr.h"

#include <memory>
#include <string>
#include <vector>

/// A message in a file, never held in memory as a whole. m_strData holds the path.
///
/// Searches work on 4096-byte blocks with an overlap, in one reused scratch buffer, and line
/// counts add up per block: the results (line counts and the scratch buffer's leftovers
/// included) are those of reading the file block by block through m_File. The bytes
/// themselves come from a read-ahead window filled by pread, so that a parse costs a few
/// system calls per window rather than a seek and a read per block or header line.
///
/// What the block reads leave in the scratch buffer matters only to a later search that runs
/// into the end of the file, where the leftovers behind its last block can match. So the
/// writes of FastLineCnt and of the searches that a parse answers from its delimiter index are
/// kept as a list of pending writes, and made when a search is about to read the buffer.
class QLMAIL_EXPORT CQLMimeFile : public CQLIMimeStr {
public:
    /// A source without a file; SetData() with a path opens one.
    CQLMimeFile();
    ///@{
    /// An empty source that carries only the error text.
    CQLMimeFile(const CQLMimeFile& other);
    CQLMimeFile& operator=(const CQLMimeFile& other);
    ///@}
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
    unsigned long ParseHdr(CQLMimeHdr& hdr, unsigned long nOffset) override;
    int BoundaryLineCnt(const std::string& strBoundary, unsigned long nFrom) override;

    /// The line at the offset with its line break (CR kept), or to the end of the file when
    /// no LF follows; false when nothing is left. Where the line lies in the read-ahead window
    /// pLine points into it, otherwise into strScratch; either stays valid until the next read.
    /// Throws CQLExceptionParser on a read error.
    bool LineAt(unsigned long nOffset, const char*& pLine, unsigned long& nLine,
                std::string& strScratch);
    /// The open file, for writing beside the reads.
    CQLFileParser* GetFileObject() { return &m_File; }
    /// Forgets the read-ahead window; needed when the file under m_File changes.
    void InvalidateCache();

protected:
    long long OpenedFileSize() override;
    const char* BytesAt(unsigned long nOffset, unsigned long nWant, unsigned long& nGot,
                        bool bPeek) override;
    void NoteIndexedSearch(const std::string& strFind, unsigned long nFrom,
                           unsigned long nHit) override;
    /// A new file starts with a clean scratch buffer: what the last file left there must not
    /// be searched as part of this one.
    void BeforeReload() override;

private:
    static constexpr size_t NONE = static_cast<size_t>(-1);

    // File bytes written over the start of the scratch buffer, with a NUL behind them (by
    // Find) or without (by FastLineCnt).
    struct Layer {
        unsigned long nOffset;
        unsigned long nLen;
        bool bNul;
    };
    // Writes to the scratch buffer not made yet, oldest first. The block reads of a search
    // answered by the index are known once the matches of its pattern that were no
    // delimiters are: those close to the end of the file are looked for at once, the others,
    // which can only change where a first full block began, when the buffer is read
    // (bLazyBase).
    struct Pending {
        std::vector<Layer> vLayers;
        bool bLazyBase = false;
        bool bWhole = false; // covers the buffer: what was written before it no longer shows
        size_t nNeedle = 0;
        unsigned long nFrom = 0;
        unsigned long nHit = 0;
    };

    static constexpr unsigned long BLOCK = 4096;
    static constexpr unsigned long WINDOW = 64 * 1024;
    static_assert(BLOCK <= WINDOW, "a block must fit in the window");

    // Up to nLen bytes at nOffset, fewer at the end of the file. Throws on a read error.
    QLMAIL_LOCAL unsigned long ReadAt(unsigned long nOffset, unsigned long nLen, char* pDest);
    // Makes the window hold nOffset; false at the end of the file.
    QLMAIL_LOCAL bool Fill(unsigned long nOffset);
    // The window's bytes from nOffset on, or null at the end of the file.
    QLMAIL_LOCAL const char* WindowAt(unsigned long nOffset, unsigned long& nAvail);
    // nWant bytes at nOffset (fewer at the end of the file), from the window where they lie.
    // nWant is at most a block, far less than a window.
    QLMAIL_LOCAL const char* BlockAt(unsigned long nOffset, unsigned long nWant,
                                     unsigned long& nGot);
    QLMAIL_LOCAL void PrepareReadBuf();
    // nLen bytes at nOffset, fewer at the end, without moving the window. Throws on an error.
    QLMAIL_LOCAL unsigned long PeekAt(unsigned long nOffset, unsigned long nLen, char* pDest);
    // Adds the writes of one Find call for a pattern of nFind bytes that began at nStart and
    // found nFound, or ran to the end of the file for NOT_FOUND.
    QLMAIL_LOCAL void AddCall(Pending& op, unsigned long nStart, unsigned long nFind,
                              unsigned long nFound) const;
    // The writes of a delimiter search from nFrom whose delimiter matched at nHit. Unless
    // bExhaustive, the matches before it are looked for only close to the end of the file.
    QLMAIL_LOCAL Pending SearchLayers(const std::string& strFind, unsigned long nFrom,
                                      unsigned long nHit, bool bExhaustive);
    QLMAIL_LOCAL void Queue(const Pending& op);
    // Drops writes hidden by a later one that covers the buffer, keeping what the pinned
    // search may need.
    QLMAIL_LOCAL void Prune();
    // Makes the first nCount pending writes.
    QLMAIL_LOCAL void Settle(size_t nCount);
    void SettleAll() { Settle(m_vPending.size()); }
    QLMAIL_LOCAL void Apply(const Pending& op);
    // Reads the range block by block through pBlock and hands each block to put, which
    // answers false on a failure of its sink; the bytes read, or -1 with the text set.
    template <class Put>
    QLMAIL_LOCAL long long CopyBlocks(unsigned long nOffset, unsigned long nLen, char* pBlock,
                                      unsigned long nBlock, Put put);
    // The range into strOut, as far as the file goes; false with the text set on a read error.
    QLMAIL_LOCAL bool ReadString(unsigned long nOffset, unsigned long nLen, std::string& strOut);
    QLMAIL_LOCAL unsigned long ClampToLength(unsigned long nOffset, unsigned long nLen) const;

    std::string m_strReadBuf;
    std::vector<Pending> m_vPending;
    std::vector<std::string> m_vNeedles; // patterns of the pending searches
    size_t m_nPinned;                    // the pending search BoundaryLineCnt may ask about
    bool m_bReplaying;                   // Find runs on the buffer as it is
    std::string m_strPeek;
    std::unique_ptr<char[]> m_pWindow;
    unsigned long m_nWindowStart;
    unsigned long m_nWindowLen;
    unsigned long m_nEndSeen; // the end of the file where a read found it, all ones before
};

#endif

#ifndef QLMAIL_MIME_QLIMIMESTR_H
#define QLMAIL_MIME_QLIMIMESTR_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"
#include "foundation/QLFileParser.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

class CQLMimeHdr;

/// A source of message bytes: the byte at an offset, the next match of a string, a range
/// delivered to a sink, and the number of lines in a range. Sources never throw on bad input;
/// a failure leaves a text in the last error and an empty result.
///
/// CQLMimeStr holds a message in memory, CQLMimeFile reads one from a file; CQLMimeMsg::Open()
/// chooses and owns one, and every part reads through it.
class QLMAIL_EXPORT CQLIMimeStr : public CQLExceptionParser {
public:
    /// What Find() and the boundary searches answer without a match.
    static constexpr unsigned long NOT_FOUND = static_cast<unsigned long>(-1);

    /// An empty source.
    CQLIMimeStr();
    ///@{
    /// Copies take the bytes or the file name, not an index.
    CQLIMimeStr(const CQLIMimeStr& other);
    CQLIMimeStr& operator=(const CQLIMimeStr& other);
    ///@}
    virtual ~CQLIMimeStr();

    /// Closes the file, or drops the bytes.
    virtual void Close() = 0;
    /// The byte at the offset, 0 outside the source.
    virtual char GetChar(int nOffset) = 0;
    /// The offset of the next match of strFind at or after nFrom, or NOT_FOUND. pnLine, when
    /// given, receives the newlines from nFrom to the match, the match included; pbCRLF is set
    /// to 1 when the bytes around the end of strFind, counted from nFrom, are CR LF.
    virtual unsigned long Find(const std::string& strFind, unsigned long nFrom, int* pnLine,
                               int* pbCRLF) = 0;
    ///@{
    /// nLen bytes from nOffset, fewer at the end, to a string, a buffer, a stream, a file or a
    /// descriptor; the forms with a count answer how many bytes went out, 0 on failure.
    virtual std::string SubStr(unsigned long nOffset, unsigned long nLen) = 0;
    virtual unsigned long SubStr(char* pszBuf, unsigned long nOffset, unsigned long nLen) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen, std::ostream& out) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen,
                                 CQLFileParser& file) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen,
                                 std::string& strOut) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen, int nFD) = 0;
    ///@}
    /// The newlines from nOffset to nOffset + nLen, the end included.
    virtual unsigned long FastLineCnt(unsigned long nOffset, unsigned long nLen) = 0;
    /// 0 for memory, 1 for a file.
    virtual int GetType() = 0;
    /// The header block at the offset into hdr, read the way this kind of source reads lines;
    /// its end offset.
    virtual unsigned long ParseHdr(CQLMimeHdr& hdr, unsigned long nOffset) = 0;

    /// With bFile the text is a path; otherwise it is the message itself.
    bool SetData(const std::string& strData, bool bFile);
    /// The same for nLen bytes that the caller keeps alive while the source uses them, or a
    /// path with bFile.
    bool SetDataPtr(const char* pszData, unsigned long nLen, bool bFile);
    /// The message bytes of a memory source that owns them, or the path of a file source.
    std::string& GetData() { return m_strData; }
    /// The length of the message.
    unsigned long GetLength() const { return m_nLength; }

    /// Newlines in the first nLen bytes.
    static unsigned long GetLineCnt(const char* pszData, const unsigned long& nLen);
    /// Newlines at nFrom <= p <= nTo: the end is included.
    static unsigned long GetLineCnt(const std::string& strData, const unsigned long& nFrom,
                                    const unsigned long& nTo);

    /// The first match of the needle in the haystack, or null. With pnLF, also the number of
    /// newlines from the start of the haystack up to the match, the match's first byte
    /// included; without a match, the newlines of the whole haystack.
    static const char* FindBytes(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle,
                                 unsigned long* pnLF = nullptr);

    /// The delimiter search of the tree parser: the next "\n--boundary" at or after nFrom that
    /// is a delimiter line, with the offset adjusted for CR LF; -1 when there is none. The
    /// counters are those of Find, summed over the searches made.
    unsigned long FindBoundary(const std::string& strBoundary, unsigned long nFrom, int* pnLine,
                               int* pbCRLF);

    /// Between BeginParse and EndParse the delimiters of a message that is not small are looked
    /// up in an index made in one pass, so that a body inside nested multiparts is not searched
    /// again for every level: a file source makes it at the first search, a memory source once
    /// the direct searches of the parse have passed over the message m_nIndexAfter times.
    /// NextBoundary answers as FindBoundary does; it sets nLine to the line count FindBoundary
    /// would give, or to -1 when it has not counted, and then BoundaryLineCnt gives that count
    /// for the same search, the last one made. FastLineCnt counts from the index as well.
    void BeginParse();
    /// Drops the index of the parse.
    void EndParse();
    /// FindBoundary() through the index of the parse; see BeginParse().
    unsigned long NextBoundary(const std::string& strBoundary, unsigned long nFrom, int& nLine);
    /// The line count of the last NextBoundary() that did not count.
    virtual int BoundaryLineCnt(const std::string& strBoundary, unsigned long nFrom);

protected:
    class DelimiterIndex;

    /// The size of the file just opened in m_File; throws as CQLFileParser::GetSize does.
    virtual long long OpenedFileSize() { return m_File.GetSize(); }
    /// Up to nWant bytes at nOffset, fewer at the end; throws CQLExceptionParser on a read error.
    /// With bPeek a file source reads a few bytes without moving its read-ahead window.
    virtual const char* BytesAt(unsigned long nOffset, unsigned long nWant, unsigned long& nGot,
                                bool bPeek) = 0;
    /// A search that NextBoundary answered from the index, ending at the raw match nHit.
    virtual void NoteIndexedSearch(const std::string& strFind, unsigned long nFrom,
                                   unsigned long nHit) {
        (void)strFind, (void)nFrom, (void)nHit;
    }
    /// Before the source is loaded anew.
    virtual void BeforeReload() {}
    /// The index while a parse may use it for this pattern, made when first needed; otherwise null.
    DelimiterIndex* IndexFor(const std::string& strFind);

    ///@{
    /// The file of a file source; the bytes (or path), length and start of the message; the
    /// delimiter index of a parse.
    CQLFileParser m_File;
    std::string m_strData;
    unsigned long m_nLength;
    const char* m_pszData;
    std::unique_ptr<DelimiterIndex> m_pIndex;
    ///@}
    ///@{
    /// The shortest message a parse indexes, and how many times the direct searches of a parse
    /// pass over it before the index is made; tests set them to compare the indexed searches
    /// with the direct ones.
    unsigned long m_nIndexFrom;
    unsigned long m_nIndexAfter;
    ///@}
    ///@{
    /// Between BeginParse() and EndParse(); whether the index was tried in this parse; the bytes
    /// the direct searches of the parse have passed over.
    bool m_bParsing;
    bool m_bIndexTried;
    unsigned long long m_nSearched;
    ///@}
};

/// Lines that begin with "--" and have something behind the dashes, found in one pass over the
/// message and grouped by a key of what follows the dashes up to the line end ("--" at its end
/// taken off), in the order of the message within a group, so that the delimiters of one
/// boundary are found without reading what lies between them. Newlines are counted per block
/// of 4096 bytes in the same pass.
class QLMAIL_LOCAL CQLIMimeStr::DelimiterIndex {
public:
    static constexpr unsigned long MIN_LENGTH = 16 << 10; ///< smaller messages are searched
    /// In memory, searches over fewer bytes than this many times the message cost less than
    /// the index's own pass over it; only nesting makes them pass over the same bytes again.
    static constexpr unsigned long PASSES = 2;
    static constexpr size_t MAX_LINES = 1u << 24;

    /// False when the message can't be read or has more such lines than MAX_LINES. Lines whose
    /// text behind the dashes is longer than nMaxText bytes are left out.
    bool Build(CQLIMimeStr& source, unsigned long nMaxText);
    /// Whether Find answers for this pattern ("\n--" and the boundary).
    bool Covers(const std::string& strFind);
    /// FindBoundary without counters, for the pattern that Covers was last asked about; nHit
    /// is the raw match of the delimiter found.
    unsigned long Find(CQLIMimeStr& source, const std::string& strFind, unsigned long nFrom,
                       unsigned long& nHit);
    /// The newlines in [nFrom, nTo).
    unsigned long LineCnt(CQLIMimeStr& source, unsigned long nFrom, unsigned long nTo) const;

private:
    static constexpr unsigned long LF_BLOCK = 4096;
    struct Line {
        uint32_t nKey;
        uint32_t nAt; // the "\n" before the dashes
        bool operator<(const Line& other) const {
            return nKey != other.nKey ? nKey < other.nKey : nAt < other.nAt;
        }
    };

    // Where the lookups of a key stand: searches go forward through the message, so the next
    // lookup of a key starts where the last one ended.
    struct Cursor {
        uint32_t nKey = 0;
        uint32_t nFrom = 0;
        size_t nAt = 0;
        bool bUsed = false;
    };

    QLMAIL_LOCAL uint32_t Key(const char* p, size_t n) const;
    // The first line of the key at or after nFrom.
    QLMAIL_LOCAL std::vector<Line>::const_iterator LowerBound(uint32_t nKey, unsigned long nFrom);
    QLMAIL_LOCAL void Sort(std::vector<Line>& vLines);
    // The delimiter of strFind at nAt as FindBoundary's test takes it, or -1 when strFind
    // does not match there (bMatch false) or the match is no delimiter.
    QLMAIL_LOCAL static unsigned long Test(CQLIMimeStr& source, const std::string& strFind,
                                           unsigned long nAt, bool& bMatch);
    QLMAIL_LOCAL unsigned long FindOverlapping(CQLIMimeStr& source, const std::string& strFind,
                                               unsigned long nFrom, unsigned long& nHit);

    std::vector<Line> m_vLines;
    std::vector<uint32_t> m_vLF; // newlines before each LF_BLOCK
    Cursor m_aCursors[16];
    // What is worked out once for the pattern asked for last: whether Find answers for it,
    // and the keys its delimiters are found by.
    std::string m_strLastFind;
    bool m_bLastCovers = false;
    bool m_bLastDashes = false;
    bool m_bLastOverlaps = false; // a line break inside: matches can overlap
    uint32_t m_nLastKey = 0, m_nLastDashKey = 0;
    uint64_t m_nSeed = 0;
    unsigned long m_nLength = 0;
    bool m_bFile = false;
};

#endif

#ifndef QLMAIL_FOUNDATION_QLFILEPARSER_H
#define QLMAIL_FOUNDATION_QLFILEPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <cstdio>
#include <string>

/// The library's one file class: a name split into directory and base name, a POSIX
/// descriptor or a stdio stream, an 8192-byte read-ahead buffer for byte and line reads,
/// and unbuffered writes. Large files are handled.
///
///     CQLFileParser file(strPath, false);
///     if (!file.Open(CQLFileParser::FILE_READ | CQLFileParser::FILE_BINARY))
///         return fail(file.GetLastError());
///     std::string strLine;
///     while (file.ReadLine(strLine, true)) { ... }
///
/// Open(), Flush() and SetPos() answer false; reads, writes, GetSize() and Close() throw a
/// copy of the object (a CQLExceptionParser for the static forms). Do not mix Read() with
/// ReadFromBuffer() or ReadLine() without a SetPos() between them.
class QLMAIL_EXPORT CQLFileParser : public CQLExceptionParser {
public:
    /// Bits of the mode given to Open(). FILE_STREAM opens a stdio stream instead of a
    /// descriptor; FILE_OPENED is set by the class.
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
    /// Where SetPos() counts from: the start, the present position, the end.
    enum POS { POS_SET = 0, POS_CUR = 1, POS_END = 2 };

    static constexpr char DDIR = '/'; ///< The directory separator.

    /// A file without a name.
    CQLFileParser();
    /// As SetFileName(); may throw.
    CQLFileParser(const std::string& strFileName, const bool& bNormalize);
    /// Takes the name, path and error text only: the copy is closed and safe to throw.
    CQLFileParser(const CQLFileParser& other);
    /// Takes every field over, the open handle included: only one of the two may then be
    /// closed or destroyed while open.
    CQLFileParser& operator=(const CQLFileParser& other);
    /// Closes the file.
    virtual ~CQLFileParser();

    /// Forgets the name and the handle without closing it.
    void Init();
    /// Splits the name into directory and base name; a name without "/" lies in the current
    /// directory. bNormalize makes the directory absolute and resolves "." and "..". Throws
    /// for a name that ends in "/".
    void SetFileName(const std::string& strFileName, const bool& bNormalize);
    /// The base name.
    std::string GetFileName() const { return m_strFileName; }
    /// Directory and base name.
    std::string GetPath() const { return m_strPath + m_strFileName; }
    /// Notes the extension of pszName (after its last dot, not a leading one); always 0.
    int SetFileExt(const char* pszName, std::string& strUnused);

    /// Opens the named file in the mode, an OR of the FILE_ bits; closes what was open first.
    /// New files get 0666 less the process's mask.
    bool Open(int nMode);
    /// Whether Open() succeeded and Close() has not been called.
    bool IsOpen() const { return (m_nMode & FILE_OPENED) != 0; }
    /// Whether a read met the end of the file.
    bool IsEnd() const { return m_bEnd; }
    /// The descriptor, also of a stream.
    int GetFD();
    /// Reads from a descriptor that the caller owns and will close; the object stays
    /// "not open" and refuses writes.
    void SetFD(int nFD);
    /// Closes the file; the name stays, so Open() may follow. Throws when the system fails.
    void Close();

    /// Up to nLen bytes, straight from the file; the count read. Throws on a read error.
    unsigned long Read(char* pBuf, unsigned long nLen);
    /// The same into a string, which is resized to the count.
    unsigned long Read(std::string& strBuf, unsigned long nLen);
    /// Up to nLen bytes at nOffset into strBuf, as far as the file holds them, by positioned
    /// reads that leave the file position, the end flag and the read-ahead buffer alone (a
    /// stream is read at its own position after a seek). Throws as Read does.
    unsigned long ReadAt(long long nOffset, std::string& strBuf, unsigned long nLen);
    /// The next byte through the read-ahead buffer; false at the end of the file.
    bool ReadFromBuffer(char& c);
    /// The next line through the read-ahead buffer, with its line end unless bStripEOL (then
    /// one CR before the LF goes too); a last line without LF comes as it is. False at the end.
    bool ReadLine(std::string& strLine, bool bStripEOL);
    /// The line that ReadLine(strLine, false) would give, with the same effects, but without
    /// a copy where the whole line lies in the read-ahead buffer: pLine then points into the
    /// buffer, otherwise into strScratch. Valid until the next read.
    bool ReadLineView(const char*& pLine, unsigned long& nLine, std::string& strScratch);
    /// Whether the first line end met from here is a bare LF (false for CR LF or none). Moves
    /// the position.
    bool IsLF();

    ///@{
    /// Writes all of it, straight to the system; the count. Throws if the file is not open
    /// for writing or the system fails.
    long long Write(const char* pBuf, unsigned long nLen);
    long long Write(const std::string& strBuf);
    ///@}
    /// Writes to a descriptor that the caller owns; a short count, with the text set, on a
    /// failure. Never throws.
    unsigned long IndirectWrite(const int& nFD, const char* pBuf, const unsigned long& nLen);
    /// Flushes a stream; nothing to do for a descriptor.
    bool Flush();

    /// The reader's position.
    long long GetPos();
    /// Moves the position and empties the read-ahead buffer; false with the text set when
    /// the seek fails.
    bool SetPos(long nOffset, POS ePos);
    /// The file's size; throws when it cannot be had.
    long long GetSize();
    /// Whether the named file exists.
    bool Exists();
    /// Closes this file and copies it to strDest; false with the text set on a failure.
    bool Copy(const std::string& strDest, bool bOverwrite);
    /// Sends the whole file at strSrcPath to a descriptor that the caller owns.
    bool Copy(const std::string& strSrcPath, int nFD);

    /// Whether the path exists.
    static bool Exists(const std::string& strPath);
    /// The size of the file at the path; throws a CQLExceptionParser when it cannot be had.
    static long long GetSize(const std::string& strPath);
    /// Copies a file; false with strError set when the destination exists (unless
    /// bOverwrite) or a file will not open.
    static bool Copy(const std::string& strSrcPath, const std::string& strDest,
                     std::string& strError, bool bOverwrite);

protected:
    FILE* m_pFile;             ///< The stream, or null.
    int m_nFD;                 ///< The descriptor, or -1.
    int m_nMode;               ///< The mode of Open() with FILE_OPENED; 0 when closed.
    std::string m_strFileName; ///< The base name.
    std::string m_strPath;     ///< The directory, with its trailing "/".
    std::string m_strFileExt;  ///< What SetFileExt() found.
    std::string m_strBuffer;   ///< The read-ahead buffer.
    int m_nBufferLen;          ///< Bytes of the buffer not yet consumed.
    int m_nBufferPos;          ///< The next byte of the buffer.
    long long m_nFilePos;      ///< The reader's position, -1 when the system has it.
    bool m_bEnd;               ///< See IsEnd().
};

#endif

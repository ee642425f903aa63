#ifndef QLMAIL_READER_QLMIMEMSGINFO_H
#define QLMAIL_READER_QLMIMEMSGINFO_H

#include "foundation/QLExport.h"
#include "foundation/QLFileParser.h"
#include "foundation/QLStrTokenizerParser.h"
#include "mime/QLMimeHdr.h"
#include "reader/QLMimeAttachInfo.h"

#include <string>

/// Read-only facade over one stored message: serves headers, text and attachments from the
/// format string that CQLMimeMsg wrote and the message file, seeking to the stored offsets
/// and never parsing the message again. Nothing ties the string to the file: stale offsets
/// give short or wrong results, never a read outside the file.
///
///     CQLMimeMsgInfo info(strPath, strStoredFormat);
///     std::string strSubject, strText;
///     info.GetHeaderValue("Subject", strSubject, true, "", "UTF-8", "");
///     info.GetText(strText, false, "UTF-8", "", "UTF-8", true, "");
///     CQLMimeAttachInfo attach;
///     info.InitAttachCursor();
///     while (info.GetNextAttach(attach, "", "UTF-8", "")) { ... }
///
/// The level arguments (strLevel) select records by their reserved field; "" selects all,
/// which is what CQLMimeMsg writes. Failures answer false (or an empty or all-ones size) and
/// leave a text in GetLastError().
///
/// One object serves one thread at a time. It holds a record cursor, a cached header block
/// and an attachment stream; the cursor points into m_strFormat, so the object is not copied.
class QLMAIL_EXPORT CQLMimeMsgInfo {
public:
    /// One record of the format string. Integers that a short record leaves out are 0.
    class CQLMimeMsgInfoItem {
    public:
        /// Every number 0, every text empty.
        CQLMimeMsgInfoItem();

        /// Reads the 17 comma-closed fields at pszRecord, which may point into the whole
        /// format string: a short record runs on into the next one. Always true.
        bool Set(const char* pszRecord);
        /// Empty: nothing here fails.
        std::string GetLastError() const { return m_strLastError; }

        ///@{
        /// Top header block, in the first record.
        int m_nHSO;
        int m_nHEO;
        ///@}
        ///@{
        /// Range of a multipart or of the top message.
        int m_nTSO;
        int m_nTEO;
        ///@}
        ///@{
        /// The part's own header block.
        int m_nMSO;
        int m_nMEO;
        ///@}
        ///@{
        /// The body.
        int m_nBSO;
        int m_nBEO;
        ///@}
        std::string m_strDepth; ///< The part's number, as "1.2.".
        ///@{
        /// CQLMimeConst::CT and CQLMimeConst::SUBCT values.
        int m_CT;
        int m_SubCT;
        ///@}
        int m_Encoder;              ///< First byte of the field, sign-extended.
        int m_nLineCnt;             ///< Lines of the body.
        std::string m_strReserved;  ///< The level that strLevel is matched against.
        std::string m_strCharSet;   ///< Charset of the part.
        std::string m_strCID;       ///< Content-ID value.
        std::string m_strFilename;  ///< File name, decoded when the message was parsed.
        std::string m_strLastError; ///< See GetLastError().
    };

    /// A reader of a format string; SetEmlPath() names the message file.
    CQLMimeMsgInfo(const std::string& strFormat);
    /// A reader of the message file with its format string; the path is not checked here.
    CQLMimeMsgInfo(const std::string& strEmlPath, const std::string& strFormat);
    CQLMimeMsgInfo(const CQLMimeMsgInfo&) = delete;
    CQLMimeMsgInfo& operator=(const CQLMimeMsgInfo&) = delete;
    virtual ~CQLMimeMsgInfo();

    /// Names the message file; true if it can be opened.
    bool SetEmlPath(const std::string& strEmlPath);
    /// Takes the charset of the first record as the one of the sender's headers.
    void SetDefaultFromCharset();
    /// Puts the record cursor to the start: call it before a walk with GetNextAttach() or
    /// GetNextCID(), which share the cursor.
    void InitAttachCursor();
    /// The text of the last failure; no success clears it.
    std::string GetLastError() const { return m_strLastError; }
    /// Ends the stream that OpenAttach() began.
    void CloseAttach();

    /** @name Headers */
    ///@{
    /// The raw header block of the first record of the level.
    bool GetHeader(std::string& strOut, const std::string& strLevel);
    /// The value of the first field of the name, unfolded; with bDecode its encoded words
    /// are decoded into strToCharset, strDefaultCharset standing for unlabelled bytes.
    bool GetHeaderValue(const std::string& strName, std::string& strOut, bool bDecode,
                        const std::string& strDefaultCharset, const std::string& strToCharset,
                        const std::string& strLevel);
    ///@}

    /** @name Text */
    ///@{
    /// All text parts of one kind (html with bHtml, else plain) of the message, converted
    /// into strToCharset. strForceCharset, when given, overrides what the parts declare;
    /// strDefaultCharset is the charset of last resort.
    bool GetText(std::string& strOut, const bool& bHtml, const std::string& strDefaultCharset,
                 const std::string& strForceCharset, const std::string& strToCharset,
                 const bool& bDecode, const std::string& strLevel);
    /// One part, appended to strOut.
    bool GetText(std::string& strOut, const CQLMimeMsgInfoItem& Item,
                 const std::string& strDefaultCharset, const std::string& strForceCharset,
                 const std::string& strToCharset, const bool& bDecode);
    ///@}

    /** @name Attachments and inline images */
    ///@{
    /// The next attachment after the record cursor; false after the last.
    bool GetNextAttach(CQLMimeAttachInfo& Attach, const std::string& strDefaultCharset,
                       const std::string& strToCharset, const std::string& strLevel);
    /// The next inline image (a part with a Content-ID) after the cursor.
    bool GetNextCID(CQLMimeAttachInfo& Attach, const std::string& strDefaultCharset,
                    const std::string& strToCharset, const std::string& strLevel);
    /// Starts streaming the body of the part.
    bool OpenAttach(const CQLMimeAttachInfo& Attach);
    /// The next block of about 10 KiB of the stream, decoded with bDecode; false at the end.
    bool GetAttachContentNext(std::string& strBlock, const bool& bDecode);
    /// The size the stream would give, worked out without reading the body; 4294967295 when
    /// the file cannot be read.
    unsigned int GetAttachContentSize(const CQLMimeAttachInfo& Attach, const bool& bDecode);
    /// Whether the part's own header says attachment; reads the file.
    bool IsAttachment(const CQLMimeMsgInfoItem& Item);
    /// Whether a multipart/related opens the message, first or behind a mixed or alternative
    /// one; bMixed tells whether a mixed one was met. The cursor stays.
    bool IsRelated(bool& bMixed);
    /// Whether a part is application/ms-tnef (winmail.dat).
    bool IsTNEF();
    /// The name with each of / \\ : " * < > | ? and the comma replaced by "_".
    std::string FixFilename(const std::string& strName);
    /// Whether the name ends in .jpg, .gif, .png or .bmp, case ignored.
    bool IsImageExtention(const std::string& strName);
    ///@}

    /** @name State
     *  Public for the Java binding; read it through the operations above. */
    ///@{
    /// The message file, the format string, the record cursor, the last failure and the
    /// stream and header cache.
    std::string m_strEmlPath;
    const std::string m_strFormat;
    CQLStrTokenizerParser m_Tokenizer; ///< record cursor over m_strFormat
    std::string m_strLastError;
    unsigned long m_nTokenLen;
    CQLMimeAttachInfo m_AttachInfo; ///< the open stream's descriptor
    CQLFileParser m_File;           ///< the open stream's file
    int m_nAttachRemain;            ///< source bytes of the stream not yet read
    bool m_bHdrParsed;
    CQLMimeHdr m_Hdr; ///< header cache of GetHeaderValue
    std::string m_strHdrLevel;
    std::string m_strDefaultFromCharset; ///< charset of the first record
    ///@}

private:
    // The next record at the cursor into Item; false when none is left.
    QLMAIL_LOCAL bool NextRecord(CQLMimeMsgInfoItem& Item);
    // From the start, the first record of the level into Item.
    QLMAIL_LOCAL bool FindLevel(CQLMimeMsgInfoItem& Item, const std::string& strLevel);

    // Parses the header block at nStart into m_Hdr from one read of the file, as a parse of
    // the file itself would; nEnd, the block's end by the record, sizes the read. False,
    // with nothing parsed, when the file can't be read or the block may run past the read.
    QLMAIL_LOCAL bool ParseHeaderPiece(unsigned long nStart, unsigned long nEnd);

    // One line of the stream, as read with its line end, added to the block. A base64 line
    // is trimmed, put behind the rest of the line before and cut to whole groups (the new
    // rest kept in m_strCarry), then decoded to the block at nOut, which grows as needed.
    // Any other line is appended with a bare LF made CR LF, and decoded when bQP.
    QLMAIL_LOCAL void AppendBase64Line(const char* pLine, unsigned long nLine,
                                       std::string& strBlock, size_t& nOut);
    QLMAIL_LOCAL void AppendLine(const char* pLine, unsigned long nLine, bool bQP,
                                 std::string& strBlock);

    // Reused by the record scans and the streaming loop, so that they do not allocate per
    // record or per line.
    CQLMimeMsgInfoItem m_Item;
    std::string m_strLine;  // a line that did not lie whole in the file's buffer
    std::string m_strCarry; // the base64 remainder of the line before
    std::string m_strWork;  // a line as it is decoded, where it must be put together
};

#endif

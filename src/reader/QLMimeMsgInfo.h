#ifndef QLMAIL_READER_QLMIMEMSGINFO_H
#define QLMAIL_READER_QLMIMEMSGINFO_H

#include "foundation/QLExport.h"
#include "foundation/QLFileParser.h"
#include "foundation/QLStrTokenizerParser.h"
#include "mime/QLMimeHdr.h"
#include "reader/QLMimeAttachInfo.h"

#include <string>

class CQLCodecParser;

// Read-only facade over one stored message: serves headers, text and attachments from the
// format string that CQLMimeMsg wrote and the message file, seeking to the stored offsets
// and never parsing the message again. Nothing ties the string to the file: stale offsets
// give short or wrong results, never a read outside the file.
//
// One object serves one thread at a time. It holds a record cursor, a cached header block
// and an attachment stream; the cursor points into m_strFormat, so the object is not copied.
class QLMAIL_EXPORT CQLMimeMsgInfo {
public:
    // One record of the format string. Integers that a short record leaves out are 0.
    class CQLMimeMsgInfoItem {
    public:
        CQLMimeMsgInfoItem();

        // Reads the 17 comma-closed fields at pszRecord, which may point into the whole
        // format string: a short record runs on into the next one. Always true.
        bool Set(const char* pszRecord);
        std::string GetLastError() const { return m_strLastError; }

        int m_nHSO; // top header block, in the first record
        int m_nHEO;
        int m_nTSO;
        int m_nTEO;
        int m_nMSO; // the part's own header block
        int m_nMEO;
        int m_nBSO; // body
        int m_nBEO;
        std::string m_strDepth;
        int m_CT;
        int m_SubCT;
        int m_Encoder; // first byte of the field, sign-extended
        int m_nLineCnt;
        std::string m_strReserved; // the level that strLevel is matched against
        std::string m_strCharSet;
        std::string m_strCID;
        std::string m_strFilename;
        std::string m_strLastError;
    };

    CQLMimeMsgInfo(const std::string& strFormat);
    CQLMimeMsgInfo(const std::string& strEmlPath, const std::string& strFormat);
    CQLMimeMsgInfo(const CQLMimeMsgInfo&) = delete;
    CQLMimeMsgInfo& operator=(const CQLMimeMsgInfo&) = delete;
    virtual ~CQLMimeMsgInfo();

    bool SetEmlPath(const std::string& strEmlPath);
    void SetDefaultFromCharset();
    void InitAttachCursor();
    std::string GetLastError() const { return m_strLastError; }
    void CloseAttach();

    // Headers.
    bool GetHeader(std::string& strOut, const std::string& strLevel);
    bool GetHeaderValue(const std::string& strName, std::string& strOut, bool bDecode,
                        const std::string& strDefaultCharset, const std::string& strToCharset,
                        const std::string& strLevel);

    // Text.
    bool GetText(std::string& strOut, const bool& bHtml, const std::string& strDefaultCharset,
                 const std::string& strForceCharset, const std::string& strToCharset,
                 const bool& bDecode, const std::string& strLevel);
    bool GetText(std::string& strOut, const CQLMimeMsgInfoItem& Item,
                 const std::string& strDefaultCharset, const std::string& strForceCharset,
                 const std::string& strToCharset, const bool& bDecode);

    // Attachments and inline images.
    bool GetNextAttach(CQLMimeAttachInfo& Attach, const std::string& strDefaultCharset,
                       const std::string& strToCharset, const std::string& strLevel);
    bool GetNextCID(CQLMimeAttachInfo& Attach, const std::string& strDefaultCharset,
                    const std::string& strToCharset, const std::string& strLevel);
    bool OpenAttach(const CQLMimeAttachInfo& Attach);
    bool GetAttachContentNext(std::string& strBlock, const bool& bDecode);
    unsigned int GetAttachContentSize(const CQLMimeAttachInfo& Attach, const bool& bDecode);
    bool IsAttachment(const CQLMimeMsgInfoItem& Item);
    bool IsRelated(bool& bMixed);
    bool IsTNEF();
    std::string FixFilename(const std::string& strName);
    bool IsImageExtention(const std::string& strName);

    std::string m_strEmlPath;
    const std::string m_strFormat;
    CQLStrTokenizerParser m_Tokenizer; // record cursor over m_strFormat
    std::string m_strLastError;
    unsigned long m_nTokenLen;
    CQLMimeAttachInfo m_AttachInfo; // the open stream's descriptor
    CQLFileParser m_File;           // the open stream's file
    int m_nAttachRemain;            // source bytes of the stream not yet read
    bool m_bHdrParsed;
    CQLMimeHdr m_Hdr; // header cache of GetHeaderValue
    std::string m_strHdrLevel;
    std::string m_strDefaultFromCharset; // charset of the first record

private:
    // The next record at the cursor into Item; false when none is left.
    bool NextRecord(CQLMimeMsgInfoItem& Item);
    // From the start, the first record of the level into Item.
    bool FindLevel(CQLMimeMsgInfoItem& Item, const std::string& strLevel);

    // Appends the decoding of the gathered base64 lines to the block.
    void DecodeGroups(CQLCodecParser& codec, std::string& strBlock);

    // Reused by the record scans and the streaming loop, so that they do not allocate per
    // record or per line.
    CQLMimeMsgInfoItem m_Item;
    std::string m_strLine;   // the line read
    std::string m_strCarry;  // the base64 remainder of the line before
    std::string m_strGroups; // base64 lines in whole groups, decoded together
};

#endif

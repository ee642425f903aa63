#ifndef QLMAIL_MIME_QLMIMEHDR_H
#define QLMAIL_MIME_QLMIMEHDR_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"
#include "mime/QLMimeConst.h"
#include "mime/QLMimeHdrItem.h"

#include <list>
#include <string>

class CQLIMimeStr;
class CQLMimeStr;
class CQLMimeFile;

/// The header block of one entity, read by a tolerant line scanner: damaged lines are
/// absorbed by the field before them, and a block that can't be read as header is empty.
///
/// It is the list of the block's fields in their order. CQLMimeMsg::GetHdrPtr() gives the
/// block of a message or part; CQLMimeMsgInfo reads one through the format string.
class QLMAIL_EXPORT CQLMimeHdr : public CQLExceptionParser, public std::list<CQLMimeHdrItem> {
public:
    /// An empty block.
    CQLMimeHdr();
    ///@{
    /// Copies and moves take the fields and offsets.
    CQLMimeHdr(const CQLMimeHdr& other) = default;
    CQLMimeHdr& operator=(const CQLMimeHdr& other) = default;
    CQLMimeHdr(CQLMimeHdr&& other) = default;
    CQLMimeHdr& operator=(CQLMimeHdr&& other) = default;
    ///@}
    virtual ~CQLMimeHdr();

    /// Drops the fields and offsets.
    void Init();

    /// The end offset of the block, or -1 for a null source. Fields are appended.
    unsigned long Parse(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    ///@{
    /// Parse() for one kind of source.
    unsigned long ParseMem(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    unsigned long ParseFile(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    ///@}
    ///@{
    /// Reads one field at the offset; true when a field was added, its length in nSize.
    bool ParseMemLine(CQLMimeStr* pMimeStr, const unsigned long& nOffset, unsigned long& nSize);
    bool ParseFileLine(CQLMimeFile* pMimeFile, const unsigned long& nOffset, unsigned long& nSize);
    ///@}
    /// Whether the block at the offset begins with an empty line (LF or CR LF).
    bool IsEmptyHdr(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    ///@{
    /// The block read line by line from a message in memory or in a file; each source calls
    /// the one for its kind.
    unsigned long ParseLines(CQLMimeStr& source, unsigned long nOffset);
    unsigned long ParseLines(CQLMimeFile& source, unsigned long nOffset);
    ///@}

    /// The number of fields of the name, or of all fields for a null name.
    int GetCount(const char* pszName, const unsigned int& nLen) const;
    /// The first field of the name, case ignored; null if there is none.
    CQLMimeHdrItem* FindHdrItem(const char* pszName, const unsigned int& nLen) const;
    /// Type, subtype and transfer encoding of the block's entity.
    void GetContentType(CQLMimeConst::CT& ct, CQLMimeConst::SUBCT& subct,
                        CQLMimeConst::ENCODER& enc) const;
    /// GetContentType from the first Content-Type and Content-Transfer-Encoding fields, either
    /// of which may be null, for a caller that has found them already.
    static void ContentTypeOf(const CQLMimeHdrItem* pType, const CQLMimeHdrItem* pEncoding,
                              CQLMimeConst::CT& ct, CQLMimeConst::SUBCT& subct,
                              CQLMimeConst::ENCODER& enc);
    /// The boundary parameter of the first Content-Type, or empty.
    std::string GetBoundary() const;
    /// Appends a field from its raw line; nColon is where its colon stands.
    void AddHdrItem(const std::string& strLine, int nColon);
    /// Always empty: fields are encoded by CQLHdrCodec.
    std::string Encode(const std::string& strText, const std::string& strCharset, bool bB64,
                       int nLen);
    /// Decodes encoded words of a value into strCharset.
    std::string Decode(const std::string& strText, const std::string& strCharset, bool bConvLtGt,
                       bool bTrimDq);

    ///@{
    /// Offsets of the block in the message, its line count, and whether a field says the
    /// entity is an attachment.
    unsigned long m_nHdrStart;
    unsigned long m_nHdrEnd;
    int m_nLineCnt;
    bool m_bAttachment;
    ///@}

private:
    // Append the field whose lines these are, line end included.
    QLMAIL_LOCAL void AddField(const char* pRaw, size_t nRaw, int nColon);
    QLMAIL_LOCAL void AddField(std::string&& strRaw, int nColon);
    // An empty field at the end, with room left by fields parsed before where there is some.
    QLMAIL_LOCAL CQLMimeHdrItem& NewField();
    // Cuts the name and the value from the field's raw text and notes an attachment
    // disposition.
    QLMAIL_LOCAL void SplitField(CQLMimeHdrItem& item, int nColon);
    template <class LineReader>
    QLMAIL_LOCAL unsigned long ParseBlock(CQLIMimeStr& source, LineReader& reader,
                                          unsigned long nOffset);
    // Reads one field with the given way of getting a line at an offset.
    template <class LineReader>
    QLMAIL_LOCAL bool ParseField(LineReader& reader, unsigned long nOffset,
                                 unsigned long nSourceLen, unsigned long& nSize);
};

#endif

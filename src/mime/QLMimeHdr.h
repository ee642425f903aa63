#ifndef QLMAIL_MIME_QLMIMEHDR_H
#define QLMAIL_MIME_QLMIMEHDR_H

#include "foundation/QLExceptionParser.h"
#include "mime/QLMimeConst.h"
#include "mime/QLMimeHdrItem.h"

#include <list>
#include <string>

class CQLIMimeStr;
class CQLMimeStr;
class CQLMimeFile;

// The header block of one entity, read by a tolerant line scanner: damaged lines are
// absorbed by the field before them, and a block that can't be read as header is empty.
class CQLMimeHdr : public CQLExceptionParser, public std::list<CQLMimeHdrItem> {
public:
    CQLMimeHdr();
    CQLMimeHdr(const CQLMimeHdr& other) = default;
    CQLMimeHdr& operator=(const CQLMimeHdr& other) = default;
    CQLMimeHdr(CQLMimeHdr&& other) = default;
    CQLMimeHdr& operator=(CQLMimeHdr&& other) = default;
    virtual ~CQLMimeHdr();

    void Init();

    // The end offset of the block, or -1 for a null source. Fields are appended.
    unsigned long Parse(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    unsigned long ParseMem(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    unsigned long ParseFile(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    bool ParseMemLine(CQLMimeStr* pMimeStr, const unsigned long& nOffset, unsigned long& nSize);
    bool ParseFileLine(CQLMimeFile* pMimeFile, const unsigned long& nOffset, unsigned long& nSize);
    bool IsEmptyHdr(CQLIMimeStr* pMimeStr, const unsigned long& nOffset);
    // The block read line by line from a message in memory or in a file; each source calls
    // the one for its kind.
    unsigned long ParseLines(CQLMimeStr& source, unsigned long nOffset);
    unsigned long ParseLines(CQLMimeFile& source, unsigned long nOffset);

    int GetCount(const char* pszName, const unsigned int& nLen) const;
    CQLMimeHdrItem* FindHdrItem(const char* pszName, const unsigned int& nLen) const;
    void GetContentType(CQLMimeConst::CT& ct, CQLMimeConst::SUBCT& subct,
                        CQLMimeConst::ENCODER& enc) const;
    // GetContentType from the first Content-Type and Content-Transfer-Encoding fields, either
    // of which may be null, for a caller that has found them already.
    static void ContentTypeOf(const CQLMimeHdrItem* pType, const CQLMimeHdrItem* pEncoding,
                              CQLMimeConst::CT& ct, CQLMimeConst::SUBCT& subct,
                              CQLMimeConst::ENCODER& enc);
    std::string GetBoundary() const;
    void AddHdrItem(const std::string& strLine, int nColon);
    std::string Encode(const std::string& strText, const std::string& strCharset, bool bB64,
                       int nLen);
    // Decodes encoded words of a value into strCharset.
    std::string Decode(const std::string& strText, const std::string& strCharset, bool bConvLtGt,
                       bool bTrimDq);

    unsigned long m_nHdrStart;
    unsigned long m_nHdrEnd;
    int m_nLineCnt;
    bool m_bAttachment;

private:
    // Append the field whose lines these are, line end included.
    void AddField(const char* pRaw, size_t nRaw, int nColon);
    void AddField(std::string&& strRaw, int nColon);
    // An empty field at the end, with room left by fields parsed before where there is some.
    CQLMimeHdrItem& NewField();
    // Cuts the name and the value from the field's raw text and notes an attachment
    // disposition.
    void SplitField(CQLMimeHdrItem& item, int nColon);
    template <class LineReader>
    unsigned long ParseBlock(CQLIMimeStr& source, LineReader& reader, unsigned long nOffset);
    // Reads one field with the given way of getting a line at an offset.
    template <class LineReader>
    bool ParseField(LineReader& reader, unsigned long nOffset, unsigned long nSourceLen,
                    unsigned long& nSize);
};

#endif

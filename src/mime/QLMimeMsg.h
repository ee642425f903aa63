#ifndef QLMAIL_MIME_QLMIMEMSG_H
#define QLMAIL_MIME_QLMIMEMSG_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLFileParser.h"
#include "mime/QLFixedObjPoolParser.h"
#include "mime/QLMimeConst.h"
#include "mime/QLMimeFile.h"
#include "mime/QLMimeHdr.h"
#include "mime/QLMimeStr.h"

#include <cstdint>
#include <functional>
#include <list>
#include <ostream>
#include <string>
#include <vector>

// The document handle and one node of a message's tree. The object on which Open was called
// (the main message) owns the sources and, through its pool, every part at every depth; its
// vector is the flat, depth-first list of parts, entry 0 being the record of the top of the
// message. A part is described by byte offsets into the source, never by a copy of its body.
class CQLMimeMsg : public CQLExceptionParser, public std::vector<CQLMimeMsg*> {
public:
    CQLMimeMsg();
    // Copies share part pointers and own nothing.
    CQLMimeMsg(const CQLMimeMsg& other);
    CQLMimeMsg& operator=(const CQLMimeMsg& other);
    virtual ~CQLMimeMsg();

    void SetLastError(const std::string& strError) override;
    void Init();

    // Parsing.
    bool Open(const std::string& strData, bool bFile);
    unsigned long Parse(CQLIMimeStr* pMimeStr, unsigned long nOffset, unsigned long nLength,
                        int& nPartCnt, CQLFixedObjPoolParser<CQLMimeMsg>& Pool, int& nParseCnt,
                        bool bHdrOnly);
    unsigned long BDFind(CQLIMimeStr* pMimeStr, const std::string& strBoundary,
                         const unsigned long& nFrom, int* pnLine, int* pbCRLF);
    void Sync(CQLMimeMsg* pMsg);
    void SetMimeStrPtr(CQLIMimeStr* pSource) { m_pSource = pSource; }
    void SetFileMode(bool bFile) { m_bFileSource = bFile; }
    void SetMainMimeMsg(CQLMimeMsg* pTop) { m_pTop = pTop; }
    void SetIndex(int nIndex) { m_nIndex = nIndex; }

    // Format and offset strings.
    std::string GetFormat() const;
    std::string GetOffSetStr() const;
    bool SetOffSetStr(const char* pszOffSet, unsigned long nLen, bool bParseHdr);
    bool Open(const char* pszData, const unsigned long& nLen, const char* pszOffSet, bool bFile,
              bool bParseMainHdr, bool bParseHdr);
    void PrintOffSet();
    void InitMsgCursor() { m_nMsgCursor = 0; }
    bool GetNextMsg(CQLMimeMsg& msg);
    bool IsSameLevel(const CQLMimeMsg& msg) const;

    // Accessors.
    CQLMimeConst::CT& GetCT() { return m_CT; }
    CQLMimeConst::SUBCT& GetSubCT() { return m_SubCT; }
    CQLMimeConst::ENCODER& GetEncoder() { return m_Encoder; }
    const std::string& GetDepth() const { return m_strDepth; }
    long GetInternalDate() const { return 0; }
    bool DummyFunc() { return true; }
    CQLFileParser* GetFileObject();
    bool IsRelated();
    bool IsMixed();
    bool IsXLinkMail();
    std::string GetMsgID() const;
    CQLMimeHdrItem* FindHdrItem(const char* pszName, const unsigned int& nLen) const;
    CQLMimeHdrItem* FindHdrItem(const std::string& strName) const;
    CQLMimeHdr* GetHdrPtr() const;
    CQLMimeMsg* GetQLMimeMsgPtr() const;
    CQLMimeMsg* GetQLMimeMsgPtr();
    CQLMimeHdr* GetHdr();

    // Delivery of bytes.
    unsigned long SubStr(const unsigned long& nOffset, const unsigned long& nLen,
                         std::ostream& out) const;
    std::string SubStr(const unsigned long& nOffset, const unsigned long& nLen) const;
    unsigned long SubStr(const unsigned long& nOffset, const unsigned long& nLen,
                         std::string& strOut) const;
    bool GetBody(std::string& strBody, bool bDecode);
    bool GetBody(std::ostream& out, bool bDecode);
    bool GetMIME(std::ostream& out);
    bool GetHdr(std::ostream& out);
    bool Save(std::string& strOut);
    bool Save(char* pszBuf);
    bool Save(int nFD);
    bool Save(CQLFileParser& file);
    bool Save(std::ostream& out);
    void Close();
    std::string ConvertHtmlChar(const std::string& strText);

    // Part identity.
    std::string GetCID();
    std::string GetSubject();
    std::string GetCharSet();
    std::string DetectCharset(const std::string& strText);
    std::string GetFilename(bool& bAttachment);
    std::string FixFilename(const std::string& strName);
    bool IsImageExtention(const std::string& strName);

    // Message dates, in seconds.
    long long GetDate(bool bDayOnly) const;
    const std::string& GetDateStr() const;
    long long GetSentDate() const;
    long long GetRecentRecvDate() const;

    // Attachment lists on the tree.
    struct TFileList {
        std::string strFileName;
        int nEncoder;
        int nContentType;
        uint32_t nStartPos;
        uint32_t nEndPos;
        int nLineCnt;
        std::string strDepth;
        int64_t nSize; // decoded
    };
    struct TAttachList {
        int nType;
        uint32_t nStartPos;
        uint32_t nEndPos;
        uint32_t nSize; // decoded
        int nEncoder;
        std::string strReserved1;
        std::string strReserved2;
        std::string strFileName;
        std::string strContentType;
        std::string strCID;
        std::string strTransferEncoding;
        std::string strMimeHdr;
        std::string strDepth;
    };
    long long GetAttachFileList(std::vector<TFileList>& List, long long& nTotal);
    long long GetAttachFileList(std::vector<std::string>& List, long long& nTotal);
    long long GetAttachFileList(std::string& strList, unsigned int& nCount, long long& nTotal,
                                char cSep);
    int GetAttachFileList(std::vector<TAttachList>& List);
    bool HasAttachFileInPart();

    // Text part selection on the tree.
    bool GetTextPart(std::string& strPlain, std::string& strHtml);
    bool GetTextPart(std::string& strPlainHdr, std::string& strPlain, std::string& strHtmlHdr,
                     std::string& strHtml);

    // Header editing and write-back.
    bool AddHdrItem(const std::string& strName, const std::string& strValue,
                    CQLMimeConst::ENCODER eEncoder, const char* pszCharset, bool bEncode,
                    bool bFront, bool bWriteBack);
    bool ModifyHdrItem(const std::string& strName, const std::string& strValue,
                       CQLMimeConst::ENCODER eEncoder, const char* pszCharset, bool bEncode,
                       bool bWriteBack);
    bool DelHdrItem(const std::string& strName, bool bWriteBack);
    bool UpdateHdr();
    bool CreateMsgID(const std::string& strMsgID);
    bool SetHdr(const CQLMimeHdr& hdr);
    void InitHdrCursor(const std::string& strFilter);
    bool GetNextHdrItem(CQLMimeHdrItem& item);

    // Body replacement.
    bool SetBody(const std::string& strData, bool bFile, CQLMimeConst::ENCODER eEncoder);

    // Banners and tracking tags.
    bool AddBanner(const std::string& strBanner, int nType);
    bool AddBanner(CQLMimeMsg& part, std::string strBanner, int nType);
    bool AddConfirmTag(const std::string& strBaseURL, int nPort, const std::string& strPath,
                       const std::string& strMsgID, const std::string& strSender,
                       const std::string& strReceiver, const std::string& strSubject, int& nStatus);
    bool AddEDMTag(const std::string& strBaseURL, int nPort, const std::string& strPath,
                   const std::string& strData, int& nStatus);
    bool CanInsertConfirmTag() const;

    // The node's record, as the format string carries it.
    uint32_t m_nHSO, m_nHEO; // message header
    uint32_t m_nTSO, m_nTEO; // range of a multipart or of the top message
    uint32_t m_nMSO, m_nMEO; // the part's header block
    uint32_t m_nBSO, m_nBEO; // the part's body
    std::string m_strDepth;
    CQLMimeConst::CT m_CT;
    CQLMimeConst::SUBCT m_SubCT;
    CQLMimeConst::ENCODER m_Encoder;
    int m_nLineCnt;
    std::string m_strReserved;
    std::string m_strCharSet;
    std::string m_strCID;
    std::string m_strFilename;
    std::string m_strSubject;
    std::string m_strMainCharSet;

    int m_nIndex;
    bool m_bFileSource;
    bool m_bWrapper;
    bool m_bSynced;
    bool m_bHasAttach;
    bool m_bTNEF;
    CQLIMimeStr* m_pSource;
    CQLMimeHdr m_Hdr;
    CQLMimeFile m_MimeFile;
    CQLMimeStr m_MimeMem;
    CQLMimeMsg* m_pTop;
    int m_nMsgCursor;
    std::string m_strHdrFilter;
    std::string m_strHdrFilterLower;
    std::list<CQLMimeHdrItem>::iterator m_itHdrCursor;
    CQLFixedObjPoolParser<CQLMimeMsg> m_Pool;
    bool m_bHdrChanged;

private:
    struct ParseFrame;
    // The fields that type and name a part: the first of each name, as FindHdrItem finds them.
    struct PartFields {
        const CQLMimeHdrItem* pType = nullptr;
        const CQLMimeHdrItem* pEncoding = nullptr;
        const CQLMimeHdrItem* pDisposition = nullptr;
        const CQLMimeHdrItem* pCID = nullptr;
        const CQLMimeHdrItem* pSubject = nullptr;
    };
    static PartFields FindPartFields(const CQLMimeHdr& hdr);
    PartFields FindPartFields() const;
    std::string CharSetOf(const PartFields& fields);
    std::string FilenameOf(const PartFields& fields, bool& bAttachment);
    void AppendOffSetStr(std::string& strOut) const;
    // The most characters AppendOffSetStr can write.
    size_t OffSetStrBound() const;
    void CopyFrom(const CQLMimeMsg& other);
    // Steps of Parse for one entity; the walk over the children is done by Parse itself,
    // without recursion, so that nesting depth costs no stack. ParseHead reads the entity up to
    // its first delimiter; true when that finished it, with the value to return.
    bool ParseHead(ParseFrame& frame, CQLFixedObjPoolParser<CQLMimeMsg>& Pool, int& nParseCnt,
                   bool bHdrOnly, unsigned long& nResult);
    // The end of the header block at nOffset; throws when there is no source.
    unsigned long ReadHeader(unsigned long nOffset);
    // Type, encoding and names from the header fields.
    void Identify(const PartFields& fields, bool bTop);
    // Fills the record of the top of the message from the header just read.
    void StartTopRecord();
    // "\n--" and the boundary parameter, or empty without one.
    static std::string BoundaryOf(const PartFields& fields);
    // The body of a leaf; the value to return.
    unsigned long LeafBody(unsigned long nHdr, unsigned long nEnd);
    // The search for a multipart's first delimiter; true when the multipart ends with it.
    bool FirstDelimiter(ParseFrame& frame, std::string&& strBoundary, unsigned long nHdr,
                        unsigned long& nResult);
    // The search for the delimiter that ends the next part.
    void NextDelimiter(ParseFrame& frame);
    CQLMimeMsg* NewChild(ParseFrame& frame, CQLFixedObjPoolParser<CQLMimeMsg>& Pool);
    bool AfterChild(ParseFrame& frame, CQLMimeMsg* pChild, unsigned long nChildResult,
                    unsigned long& nResult);
    // Whether the delimiter closed the multipart; true with the value to return when it ends.
    bool AfterDelimiter(ParseFrame& frame, unsigned long& nResult);
    unsigned long FinishTop(ParseFrame& frame, unsigned long nResult);
    void NameEmbeddedMessage(unsigned long nHdr, unsigned long nEnd);
    CQLIMimeStr* Source() const;
    // The whole message to a descriptor, a file or a stream.
    template <class Sink> bool SaveTo(Sink& sink);

    // The main message, or null for a node that belongs to none.
    CQLMimeMsg* MainMsg() const;
    // Copies each entry of the main message's list in turn into a local node, through the
    // main message's cursor, until fn answers false.
    void WalkParts(const std::function<bool(CQLMimeMsg&)>& fn);
    // Whether a part carries a file name in its disposition or its type field. The type field
    // is looked up with the given name length, which some callers get wrong on purpose.
    bool IsNamedPart(unsigned int nTypeFieldLen) const;
    // The attachment selection rule; strName receives the name the part is listed under.
    bool SelectAttach(CQLMimeMsg& part, std::string& strName);
    // The decoded size of a part's body, read in pieces.
    static long long DecodedSize(const CQLMimeMsg& part);
    // The first html part that carries no file name, for the tags.
    bool FindTagPart(CQLMimeMsg& part);
    enum PatchTable { PATCH_HDR, PATCH_BODY };
    // Moves the offsets of the main message's list after the node at nIndex changed length.
    void PatchOffsets(PatchTable eTable, int nIndex, int32_t nDelta);
};

#endif

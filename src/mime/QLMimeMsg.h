#ifndef QLMAIL_MIME_QLMIMEMSG_H
#define QLMAIL_MIME_QLMIMEMSG_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"
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

/// The document handle and one node of a message's tree.
///
/// The object on which Open() was called (the main message) owns the sources and, through
/// its pool, every part at every depth; its vector is the flat, depth-first list of parts,
/// entry 0 being the record of the top of the message. A part is described by byte offsets
/// into the source, never by a copy of its body.
///
/// The road of a stored message: parse it once and keep the format string beside it,
///
///     CQLMimeMsg msg;
///     if (!msg.Open(strPath, true)) return fail(msg.GetLastError());
///     store(strPath, msg.GetFormat());
///
/// then read it later through that string without parsing again (CQLMimeMsgInfo does this
/// for headers, text and attachments), or walk the parts here with InitMsgCursor() and
/// GetNextMsg(). The header editing, body replacement, banner and tag operations rewrite the
/// message file in place and renew the offsets; store GetFormat() again after them.
///
/// A message and its parts are used by one thread at a time.
class QLMAIL_EXPORT CQLMimeMsg : public CQLExceptionParser, public std::vector<CQLMimeMsg*> {
public:
    /// An empty message; Open() fills it.
    CQLMimeMsg();
    ///@{
    /// Copies share part pointers and own nothing: they read correctly while the main
    /// message lives.
    CQLMimeMsg(const CQLMimeMsg& other);
    CQLMimeMsg& operator=(const CQLMimeMsg& other);
    ///@}
    /// Closes the message.
    virtual ~CQLMimeMsg();

    /// Stores the text of the last failure.
    void SetLastError(const std::string& strError) override;
    /// Forgets the record of the node, keeping the sources.
    void Init();

    /** @name Parsing */
    ///@{
    /// Parses a message: strData is a file name with bFile, else the message itself. False
    /// with GetLastError() when the message cannot be read; damaged structure is tolerated.
    bool Open(const std::string& strData, bool bFile);
    ///@}
    /** @name Steps of the parse */
    ///@{
    /// A step of the parse, called by Open() and on the parts it creates; not for callers.
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
    ///@}

    /** @name Format and offset strings */
    ///@{
    /// The format string of the whole message: what a caller stores beside the message to
    /// read it later without parsing.
    std::string GetFormat() const;
    /// The offset string: the records of the parts without the header lists.
    std::string GetOffSetStr() const;
    /// Rebuilds the tree from an offset string over the present source; bParseHdr parses the
    /// parts' header blocks too.
    bool SetOffSetStr(const char* pszOffSet, unsigned long nLen, bool bParseHdr);
    /// Opens a message (a file name with bFile, else nLen bytes of the message) with the tree
    /// taken from a stored offset string instead of a parse.
    bool Open(const char* pszData, const unsigned long& nLen, const char* pszOffSet, bool bFile,
              bool bParseMainHdr, bool bParseHdr);
    /// Writes the records of the parts to standard output, for debugging.
    void PrintOffSet();
    /// Starts the walk over the parts of the main message.
    void InitMsgCursor() { m_nMsgCursor = 0; }
    /// Copies the next part into msg; false after the last.
    bool GetNextMsg(CQLMimeMsg& msg);
    /// Whether msg lies on the same level of the tree as this part.
    bool IsSameLevel(const CQLMimeMsg& msg) const;
    ///@}

    /** @name Accessors
     *  On the main message they read its entry 0, on a part the part. */
    ///@{
    /// The content type.
    CQLMimeConst::CT& GetCT() { return m_CT; }
    /// The subtype.
    CQLMimeConst::SUBCT& GetSubCT() { return m_SubCT; }
    /// The transfer encoding.
    CQLMimeConst::ENCODER& GetEncoder() { return m_Encoder; }
    /// The part's number, as "2.3." for the third part in the second; empty for the top.
    const std::string& GetDepth() const { return m_strDepth; }
    /// Always 0: the internal date is not known here.
    long GetInternalDate() const { return 0; }
    /// True; does nothing.
    bool DummyFunc() { return true; }
    /// The file of a message opened from a file; null otherwise.
    CQLFileParser* GetFileObject();
    /// Whether the main message is multipart/related.
    bool IsRelated();
    /// Whether the main message is multipart/mixed.
    bool IsMixed();
    /// Whether the main message has "X-LINK-MAIL: 1".
    bool IsXLinkMail();
    /// The Message-ID of the main message, or empty.
    std::string GetMsgID() const;
    /// The first field of the name, case ignored; null if there is none. Values are raw.
    CQLMimeHdrItem* FindHdrItem(const char* pszName, const unsigned int& nLen) const;
    /// The same for a whole name.
    CQLMimeHdrItem* FindHdrItem(const std::string& strName) const;
    /// The header block to read: a part's own, a main message's through entry 0. Throws on a
    /// main message without parts.
    CQLMimeHdr* GetHdrPtr() const;
    /// The node to read offsets from: a part itself, a main message its entry 0. Throws on a
    /// main message without parts.
    CQLMimeMsg* GetQLMimeMsgPtr() const;
    /// The same, throwing a copy of this object.
    CQLMimeMsg* GetQLMimeMsgPtr();
    /// The header block to change. Throws on a main message without parts.
    CQLMimeHdr* GetHdr();
    ///@}

    /** @name Delivery of bytes
     *  Offsets are into the message. Stream and descriptor forms go through fixed buffers, so
     *  a big part needs no memory of its size. */
    ///@{
    /// nLen bytes from nOffset of the message; the count delivered, 0 on failure.
    unsigned long SubStr(const unsigned long& nOffset, const unsigned long& nLen,
                         std::ostream& out) const;
    std::string SubStr(const unsigned long& nOffset, const unsigned long& nLen) const;
    unsigned long SubStr(const unsigned long& nOffset, const unsigned long& nLen,
                         std::string& strOut) const;
    /// The part's body, decoded from base64 or quoted-printable with bDecode.
    bool GetBody(std::string& strBody, bool bDecode);
    /// The same into a stream.
    bool GetBody(std::ostream& out, bool bDecode);
    /// The part's header block.
    bool GetMIME(std::ostream& out);
    /// The message's header; nothing for a part. Throws when the source fails.
    bool GetHdr(std::ostream& out);
    ///@}
    /** @name The whole message
     *  From any node of the tree. */
    ///@{
    /// The whole message into a string.
    bool Save(std::string& strOut);
    /// Into a buffer the caller sized.
    bool Save(char* pszBuf);
    /// To a descriptor.
    bool Save(int nFD);
    /// To an open file.
    bool Save(CQLFileParser& file);
    /// To a stream.
    bool Save(std::ostream& out);
    ///@}
    /// Frees the parts and closes the source; Open() may follow.
    void Close();
    /// Replaces the entities &quot; &nbsp; &amp; &gt; &lt; of a text.
    std::string ConvertHtmlChar(const std::string& strText);

    /** @name Part identity */
    ///@{
    /// The raw Content-ID of this node, or empty.
    std::string GetCID();
    /// The raw Subject of this node, or empty.
    std::string GetSubject();
    /// The charset the part names, else the message's, else the one its subject shows.
    std::string GetCharSet();
    /// The charset a text looks like, through libchardet; empty unless the detection is sure.
    std::string DetectCharset(const std::string& strText);
    /// The file name of the part, decoded; bAttachment tells whether the disposition says
    /// attachment.
    std::string GetFilename(bool& bAttachment);
    /// The name with each of / \\ : " * < > | ? and the comma replaced by "_".
    static std::string FixFilename(const std::string& strName);
    /// Whether the name ends in .jpg, .gif, .png or .bmp, case ignored.
    static bool IsImageExtention(const std::string& strName);
    ///@}

    /** @name Message dates
     *  In seconds since 1970. */
    ///@{
    /// The first Date field; with bDayOnly the local midnight of that day. 0 if unreadable.
    long long GetDate(bool bDayOnly) const;
    /// The Date field as it stands.
    const std::string& GetDateStr() const;
    /// The first readable Date field.
    long long GetSentDate() const;
    /// The date of the newest readable Received field.
    long long GetRecentRecvDate() const;
    ///@}

    /** @name Attachment lists on the tree */
    ///@{
    /// One attachment, as GetAttachFileList() lists it.
    struct TFileList {
        ///@{
        /// Name, transfer encoding and content type (CQLMimeConst values), body offsets, line
        /// count and number of the part.
        std::string strFileName;
        int nEncoder;
        int nContentType;
        uint32_t nStartPos;
        uint32_t nEndPos;
        int nLineCnt;
        std::string strDepth;
        ///@}
        int64_t nSize; ///< Decoded size of the body.
    };
    /// One attachment or inline part, with its header block, as GetAttachFileList() lists it.
    struct TAttachList {
        int nType; ///< Always 1.
        ///@{
        /// Body offsets.
        uint32_t nStartPos;
        uint32_t nEndPos;
        ///@}
        uint32_t nSize; ///< Decoded size of the body.
        ///@{
        /// The part's transfer encoding (a CQLMimeConst::ENCODER), name, content type,
        /// Content-ID, transfer encoding as text ("None" without the field), header block and
        /// number; the reserved fields stay empty.
        int nEncoder;
        std::string strReserved1;
        std::string strReserved2;
        std::string strFileName;
        std::string strContentType;
        std::string strCID;
        std::string strTransferEncoding;
        std::string strMimeHdr;
        std::string strDepth;
        ///@}
    };
    /// The attachments of the message; nTotal receives their decoded size.
    long long GetAttachFileList(std::vector<TFileList>& List, long long& nTotal);
    /// Their names.
    long long GetAttachFileList(std::vector<std::string>& List, long long& nTotal);
    /// Their names joined by cSep; nCount receives how many.
    long long GetAttachFileList(std::string& strList, unsigned int& nCount, long long& nTotal,
                                char cSep);
    /// Attachments and inline parts; the count.
    int GetAttachFileList(std::vector<TAttachList>& List);
    /// Whether a part of the message is an attachment.
    bool HasAttachFileInPart();
    ///@}

    /** @name Text part selection on the tree */
    ///@{
    /// The decoded plain and html texts that a reader shows; false if there is neither.
    bool GetTextPart(std::string& strPlain, std::string& strHtml);
    /// The same with the header blocks of the two parts.
    bool GetTextPart(std::string& strPlainHdr, std::string& strPlain, std::string& strHtmlHdr,
                     std::string& strHtml);
    ///@}

    /** @name Header editing and write-back
     *  With bWriteBack the message file is rewritten in place (through a temporary file beside
     *  it, so a failure leaves the old message) and the offsets of the tree are renewed. */
    ///@{
    /// Adds a field, encoded in pszCharset with bEncode, at the front or the end.
    bool AddHdrItem(const std::string& strName, const std::string& strValue,
                    CQLMimeConst::ENCODER eEncoder, const char* pszCharset, bool bEncode,
                    bool bFront, bool bWriteBack);
    /// Replaces the value of the first field of the name, or adds it.
    bool ModifyHdrItem(const std::string& strName, const std::string& strValue,
                       CQLMimeConst::ENCODER eEncoder, const char* pszCharset, bool bEncode,
                       bool bWriteBack);
    /// Deletes every field of the name.
    bool DelHdrItem(const std::string& strName, bool bWriteBack);
    /// Writes the changed header block back.
    bool UpdateHdr();
    /// Adds the given Message-ID and writes it back, unless the message has one.
    bool CreateMsgID(const std::string& strMsgID);
    /// Replaces the header block.
    bool SetHdr(const CQLMimeHdr& hdr);
    /// Starts a walk over the fields named strFilter (case ignored), or all with an empty one.
    void InitHdrCursor(const std::string& strFilter);
    /// The next field of the walk; false after the last.
    bool GetNextHdrItem(CQLMimeHdrItem& item);
    ///@}

    /** @name Body replacement */
    ///@{
    /// Replaces the part's body with strData (a file name with bFile), encoded as eEncoder.
    bool SetBody(const std::string& strData, bool bFile, CQLMimeConst::ENCODER eEncoder);
    ///@}

    /** @name Banners and tracking tags */
    ///@{
    /// Adds a banner to the first plain (nType 0) or html (nType 1) part.
    bool AddBanner(const std::string& strBanner, int nType);
    /// The same on one part.
    bool AddBanner(CQLMimeMsg& part, std::string strBanner, int nType);
    /// Adds the read-confirmation image to the html part; nStatus tells what was done.
    bool AddConfirmTag(const std::string& strBaseURL, int nPort, const std::string& strPath,
                       const std::string& strMsgID, const std::string& strSender,
                       const std::string& strReceiver, const std::string& strSubject, int& nStatus);
    /// Adds the reject link of a mass mailing to the html part.
    bool AddEDMTag(const std::string& strBaseURL, int nPort, const std::string& strPath,
                   const std::string& strData, int& nStatus);
    /// Whether the message has an html part the confirmation image can go into.
    bool CanInsertConfirmTag() const;
    ///@}

    /** @name The node's record and state */
    ///@{
    /// The node's record, as the format string carries it, and its state: public for the
    /// library's own classes; read them through the operations above.
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
    ///@}

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
    QLMAIL_LOCAL static PartFields FindPartFields(const CQLMimeHdr& hdr);
    QLMAIL_LOCAL PartFields FindPartFields() const;
    QLMAIL_LOCAL std::string CharSetOf(const PartFields& fields);
    QLMAIL_LOCAL std::string FilenameOf(const PartFields& fields, bool& bAttachment);
    QLMAIL_LOCAL void AppendOffSetStr(std::string& strOut) const;
    // The most characters AppendOffSetStr can write.
    QLMAIL_LOCAL size_t OffSetStrBound() const;
    QLMAIL_LOCAL void CopyFrom(const CQLMimeMsg& other);
    // Steps of Parse for one entity; the walk over the children is done by Parse itself,
    // without recursion, so that nesting depth costs no stack. ParseHead reads the entity up to
    // its first delimiter; true when that finished it, with the value to return.
    QLMAIL_LOCAL bool ParseHead(ParseFrame& frame, CQLFixedObjPoolParser<CQLMimeMsg>& Pool,
                                int& nParseCnt, bool bHdrOnly, unsigned long& nResult);
    // The end of the header block at nOffset; throws when there is no source.
    QLMAIL_LOCAL unsigned long ReadHeader(unsigned long nOffset);
    // Type, encoding and names from the header fields.
    QLMAIL_LOCAL void Identify(const PartFields& fields, bool bTop);
    // Fills the record of the top of the message from the header just read.
    QLMAIL_LOCAL void StartTopRecord();
    // "\n--" and the boundary parameter, or empty without one.
    QLMAIL_LOCAL static std::string BoundaryOf(const PartFields& fields);
    // The body of a leaf; the value to return.
    QLMAIL_LOCAL unsigned long LeafBody(unsigned long nHdr, unsigned long nEnd);
    // The search for a multipart's first delimiter; true when the multipart ends with it.
    QLMAIL_LOCAL bool FirstDelimiter(ParseFrame& frame, std::string&& strBoundary,
                                     unsigned long nHdr, unsigned long& nResult);
    // The search for the delimiter that ends the next part.
    QLMAIL_LOCAL void NextDelimiter(ParseFrame& frame);
    QLMAIL_LOCAL CQLMimeMsg* NewChild(ParseFrame& frame, CQLFixedObjPoolParser<CQLMimeMsg>& Pool);
    QLMAIL_LOCAL bool AfterChild(ParseFrame& frame, CQLMimeMsg* pChild, unsigned long nChildResult,
                                 unsigned long& nResult);
    // Whether the delimiter closed the multipart; true with the value to return when it ends.
    QLMAIL_LOCAL bool AfterDelimiter(ParseFrame& frame, unsigned long& nResult);
    QLMAIL_LOCAL unsigned long FinishTop(ParseFrame& frame, unsigned long nResult);
    QLMAIL_LOCAL void NameEmbeddedMessage(unsigned long nHdr, unsigned long nEnd);
    QLMAIL_LOCAL CQLIMimeStr* Source() const;
    // The whole message to a descriptor, a file or a stream.
    template <class Sink> QLMAIL_LOCAL bool SaveTo(Sink& sink);

    // The main message, or null for a node that belongs to none.
    QLMAIL_LOCAL CQLMimeMsg* MainMsg() const;
    // Copies each entry of the main message's list in turn into a local node, through the
    // main message's cursor, until fn answers false.
    QLMAIL_LOCAL void WalkParts(const std::function<bool(CQLMimeMsg&)>& fn);
    // Whether a part carries a file name in its disposition or its type field. The type field
    // is looked up with the given name length, which some callers get wrong on purpose.
    QLMAIL_LOCAL bool IsNamedPart(unsigned int nTypeFieldLen) const;
    // The attachment selection rule; strName receives the name the part is listed under.
    QLMAIL_LOCAL bool SelectAttach(CQLMimeMsg& part, std::string& strName);
    // The decoded size of a part's body, read in pieces.
    QLMAIL_LOCAL static long long DecodedSize(const CQLMimeMsg& part);
    // The first html part that carries no file name, for the tags.
    QLMAIL_LOCAL bool FindTagPart(CQLMimeMsg& part);
    // The frame of both tags: the part chosen, its body decoded, edited by edit (which sets
    // the last error when it refuses) and set back; nStatus as the tags report it.
    QLMAIL_LOCAL bool EditTagPart(const char* pszOp, int& nStatus,
                                  const std::function<bool(std::string&)>& edit);
    enum PatchTable { PATCH_HDR, PATCH_BODY };
    // Moves the offsets of the main message's list after the node at nIndex changed length.
    QLMAIL_LOCAL void PatchOffsets(PatchTable eTable, int nIndex, int32_t nDelta);
};

#endif

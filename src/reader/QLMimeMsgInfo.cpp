#include "reader/QLMimeMsgInfo.h"

#include "codec/QLCodecParser.h"
#include "codec/QLConvParser.h"
#include "codec/QLHdrCodec.h"
#include "foundation/QLStringParser.h"
#include "mime/QLMimeFile.h"
#include "mime/QLMimeMsg.h"
#include "mime/QLMimeStr.h"
#include "mime/QLMimeRecord.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

const char kRecordDelim = '\x05';
const char kFieldDelim = ',';
const int kOpenRead = CQLFileParser::FILE_READ | CQLFileParser::FILE_BINARY;
// Source bytes per streamed block; the last line of a block may run past it.
const int kBlockBudget = 10240;
// The tail of a base64 part that is read for its padding.
const unsigned int kTailLen = 40;
const unsigned int kSizeFailed = 4294967295u;

// A record's offset as a file position: the 32 bits of the field, unsigned, so that a
// wrapped value can't seek before the start of the file.
unsigned long FilePos(int nOffset) {
    return static_cast<uint32_t>(nOffset);
}

// Reads the bytes from nFrom to nTo into strOut, as far as the file holds them. A reversed
// range, or one that starts past the end, reads nothing. Throws what the file throws.
void ReadRange(CQLFileParser& file, int nFrom, int nTo, std::string& strOut) {
    const unsigned long nStart = FilePos(nFrom);
    const unsigned long nEnd = FilePos(nTo);
    const long long nSize = file.GetSize();
    const unsigned long nHeld = nSize > 0 ? static_cast<unsigned long>(nSize) : 0;
    unsigned long nLen = 0;
    if (nEnd > nStart && nStart < nHeld) nLen = std::min(nEnd, nHeld) - nStart;
    file.ReadAt(static_cast<long long>(nStart), strOut, nLen);
}

// A header block is read in one piece of this size at least: most fit, and a read of a few
// KiB costs about what an empty one does. The record's end of the block can make it longer.
const unsigned long kPieceMin = 4096;
const unsigned long kPieceMax = 65536;

// Whether the bytes hold a whole blank line ("\n" or "\r\n" at the start or behind an LF),
// where a header block ends at the latest.
bool HasBlankLine(const char* p, size_t n) {
    const char* const pEnd = p + n;
    for (const char* q = p; q < pEnd;) {
        if (*q == '\n' || (*q == '\r' && pEnd - q > 1 && q[1] == '\n')) return true;
        q = static_cast<const char*>(memchr(q, '\n', static_cast<size_t>(pEnd - q)));
        if (q == nullptr) break;
        ++q;
    }
    return false;
}

// strtol base 10 of a record field, which the comma behind it ends. Plain digits, as the
// format string writes them, are read here; anything else goes to strtol.
long FieldNumber(const char* pszField) {
    long nValue = 0;
    const char* p = pszField;
    // 18 digits cannot overflow a long; a longer run is strtol's to clamp.
    for (; *p >= '0' && *p <= '9' && p - pszField < 18; ++p) nValue = nValue * 10 + (*p - '0');
    if (p == pszField || (*p >= '0' && *p <= '9')) return strtol(pszField, nullptr, 10);
    return nValue;
}

// NUL bytes of decoded text become blanks, all but a NUL in the very last byte.
void CleanNul(std::string& strText) {
    if (strText.size() < 2) return;
    char* p = &strText[0];
    char* const pLast = p + strText.size() - 1;
    p = static_cast<char*>(memchr(p, '\0', static_cast<size_t>(pLast - p)));
    if (p == nullptr) return;
    for (; p < pLast; ++p)
        if (*p == '\0') *p = ' ';
}

// The charset a text part is read in: forced, declared, the message's, or the default.
std::string CharsetOf(const CQLMimeMsgInfo::CQLMimeMsgInfoItem& Item,
                      const std::string& strDefaultCharset, const std::string& strForceCharset,
                      const std::string& strMessageCharset) {
    std::string strFrom;
    if (!strForceCharset.empty()) {
        strFrom = strForceCharset;
    } else if (!Item.m_strCharSet.empty()) {
        strFrom = Item.m_strCharSet;
        if (!strFrom.empty() && strFrom.front() == '\'') strFrom.erase(0, 1);
        if (!strFrom.empty() && strFrom.back() == '\'') strFrom.pop_back();
        if (strcasecmp(strFrom.c_str(), "x-unknown") == 0 && strFrom.size() == 9)
            strFrom = strDefaultCharset;
    } else if (!strMessageCharset.empty()) {
        strFrom = strMessageCharset;
    } else {
        strFrom = strDefaultCharset;
    }
    if (strFrom == "ISO-8859" || strFrom == "iso-8859") strFrom = "ISO-8859-1";
    return strFrom;
}

void FillAttach(CQLMimeAttachInfo& Attach, const CQLMimeMsgInfo::CQLMimeMsgInfoItem& Item) {
    Attach.m_nStartPos = static_cast<uint32_t>(Item.m_nBSO);
    Attach.m_nEndPos = static_cast<uint32_t>(Item.m_nBEO);
    Attach.m_nContentType = Item.m_CT;
    Attach.m_nSubContentType = Item.m_SubCT;
    Attach.m_nEncoding = Item.m_Encoder;
    Attach.m_nLineCnt = Item.m_nLineCnt;
    Attach.m_strAttachId = Item.m_strDepth;
}

// Reads the tokens of a record in turn, with the rules of this reader: a number ends at the
// comma behind it, and the encoding is the token's first byte even when the token is empty.
struct ItemReader {
    CQLStrTokenizerParser tokenizer;
    const char* pTok = nullptr;
    unsigned long nTok = 0;
    bool bEnd = false;
    bool Next() {
        if (!bEnd) bEnd = (pTok = tokenizer.GetNext(nTok)) == nullptr;
        return !bEnd;
    }
    void Number(int& nValue) {
        if (Next()) nValue = static_cast<int>(FieldNumber(pTok));
    }
    void Text(std::string& strText) {
        if (Next()) strText.assign(pTok, nTok);
    }
    void Byte(int& nValue) {
        if (Next()) nValue = static_cast<signed char>(*pTok);
    }
};

} // namespace

// ---- CQLMimeMsgInfoItem ----

CQLMimeMsgInfo::CQLMimeMsgInfoItem::CQLMimeMsgInfoItem()
    : m_nHSO(0), m_nHEO(0), m_nTSO(0), m_nTEO(0), m_nMSO(0), m_nMEO(0), m_nBSO(0), m_nBEO(0),
      m_CT(0), m_SubCT(0), m_Encoder(0), m_nLineCnt(0) {}

bool CQLMimeMsgInfo::CQLMimeMsgInfoItem::Set(const char* pszRecord) {
    // Every record reads as if into a fresh item, so that a short one leaves zeros and empty
    // texts, not what the record before it held.
    m_nHSO = m_nHEO = m_nTSO = m_nTEO = m_nMSO = m_nMEO = m_nBSO = m_nBEO = 0;
    m_CT = m_SubCT = m_Encoder = m_nLineCnt = 0;
    m_strDepth.clear();
    m_strReserved.clear();
    m_strCharSet.clear();
    m_strCID.clear();
    m_strFilename.clear();
    if (pszRecord == nullptr) return true;

    ItemReader reader{CQLStrTokenizerParser(pszRecord, kFieldDelim)};
    CQLMimeRecord::Visit(*this, reader);
    return true;
}

// ---- construction and records ----

CQLMimeMsgInfo::CQLMimeMsgInfo(const std::string& strFormat)
    : CQLMimeMsgInfo(std::string(), strFormat) {}

CQLMimeMsgInfo::CQLMimeMsgInfo(const std::string& strEmlPath, const std::string& strFormat)
    : m_strEmlPath(strEmlPath), m_strFormat(strFormat),
      m_Tokenizer(m_strFormat.c_str(), kRecordDelim), m_nTokenLen(0), m_nAttachRemain(0),
      m_bHdrParsed(false) {
    SetDefaultFromCharset();
}

CQLMimeMsgInfo::~CQLMimeMsgInfo() {}

bool CQLMimeMsgInfo::NextRecord(CQLMimeMsgInfoItem& Item) {
    const char* pRecord = m_Tokenizer.GetNext(m_nTokenLen);
    if (pRecord == nullptr) return false;
    Item.Set(pRecord);
    return true;
}

bool CQLMimeMsgInfo::FindLevel(CQLMimeMsgInfoItem& Item, const std::string& strLevel) {
    m_Tokenizer.InitCursor();
    while (NextRecord(Item))
        if (Item.m_strReserved == strLevel) return true;
    return false;
}

bool CQLMimeMsgInfo::SetEmlPath(const std::string& strEmlPath) {
    m_strEmlPath = strEmlPath;
    CQLFileParser file(m_strEmlPath, false);
    if (!file.Open(kOpenRead)) {
        m_strLastError = "In CQLMimeMsgInfo::SetEmlPath, open failed, " + file.GetLastError();
        return false;
    }
    file.Close();
    return true;
}

void CQLMimeMsgInfo::SetDefaultFromCharset() {
    m_strDefaultFromCharset.clear();
    m_Tokenizer.InitCursor();
    if (NextRecord(m_Item)) m_strDefaultFromCharset = m_Item.m_strCharSet;
}

void CQLMimeMsgInfo::InitAttachCursor() {
    m_Tokenizer.InitCursor();
}

void CQLMimeMsgInfo::CloseAttach() {
    m_File.Close();
    // A closed stream has nothing left: reading on would fail on the closed descriptor.
    m_nAttachRemain = 0;
}

// ---- headers ----

bool CQLMimeMsgInfo::GetHeader(std::string& strOut, const std::string& strLevel) {
    if (!FindLevel(m_Item, strLevel)) {
        m_strLastError = "No Header string";
        return false;
    }
    try {
        CQLFileParser file(m_strEmlPath, false);
        if (!file.Open(kOpenRead)) {
            m_strLastError = "In CQLMimeMsgInfo::GetHeader, " + file.GetLastError();
            return false;
        }
        ReadRange(file, m_Item.m_nHSO, m_Item.m_nHEO, strOut);
        file.Close();
    } catch (CQLFileParser& e) {
        m_strLastError = "In CQLMimeMsgInfo::GetHeader, " + e.GetLastError();
        return false;
    }
    return true;
}

bool CQLMimeMsgInfo::GetHeaderValue(const std::string& strName, std::string& strOut, bool bDecode,
                                    const std::string& strDefaultCharset,
                                    const std::string& strToCharset, const std::string& strLevel) {
    const bool bCached = m_bHdrParsed && m_strHdrLevel == strLevel;
    if (!bCached) {
        if (!FindLevel(m_Item, strLevel)) {
            m_strLastError = "No Such Header Block";
            return false;
        }
        // The list is not emptied: a block parsed for another level stays in front.
        const unsigned long nStart = FilePos(m_Item.m_nHSO);
        if (!ParseHeaderPiece(nStart, FilePos(m_Item.m_nHEO))) {
            // A file that can't be opened reads as an empty block.
            CQLMimeFile file;
            file.SetData(m_strEmlPath, true);
            m_Hdr.Parse(&file, nStart);
        }
        m_bHdrParsed = true;
    }
    const CQLMimeHdrItem* pItem =
        m_Hdr.FindHdrItem(strName.c_str(), static_cast<unsigned int>(strName.size()));
    if (pItem == nullptr) {
        m_strLastError = "No Such Header Item";
        return false;
    }
    strOut = pItem->m_strValue;
    if (bDecode) {
        const std::string& strOrigin =
            m_strDefaultFromCharset.empty() ? strDefaultCharset : m_strDefaultFromCharset;
        CQLHdrCodec codec;
        strOut = codec.Decode(strOut, strToCharset, strOrigin, CQLHdrCodec::O_HDRCODEC_NONE);
    }
    if (!bCached) m_strHdrLevel = strLevel;
    return true;
}

bool CQLMimeMsgInfo::ParseHeaderPiece(unsigned long nStart, unsigned long nEnd) {
    const unsigned long nWant =
        std::clamp(nEnd > nStart ? nEnd - nStart + 512 : 0, kPieceMin, kPieceMax);
    std::string strPiece;
    try {
        CQLFileParser file(m_strEmlPath, false);
        if (!file.Open(kOpenRead)) return false;
        file.ReadAt(static_cast<long long>(nStart), strPiece, nWant);
        file.Close();
    } catch (CQLExceptionParser&) {
        return false;
    }
    // The parse looks at no line behind the first blank one, and up to it every line is
    // whole in the piece; a piece that ends with the file is all there is to see anyway.
    if (strPiece.size() == nWant && !HasBlankLine(strPiece.data(), nWant)) return false;
    CQLMimeStr piece;
    piece.SetData(strPiece, false);
    m_Hdr.Parse(&piece, 0);
    // Offsets of the file, as a parse of the file source gives them.
    m_Hdr.m_nHdrStart += nStart;
    m_Hdr.m_nHdrEnd += nStart;
    return true;
}

// ---- text ----

bool CQLMimeMsgInfo::GetText(std::string& strOut, const bool& bHtml,
                             const std::string& strDefaultCharset,
                             const std::string& strForceCharset, const std::string& strToCharset,
                             const bool& bDecode, const std::string& strLevel) {
    m_Tokenizer.InitCursor();
    strOut.clear();
    bool bResult = false;
    while (NextRecord(m_Item)) {
        if (m_Item.m_strReserved != strLevel || m_Item.m_CT != CQLMimeConst::TEXT ||
            !m_Item.m_strFilename.empty())
            continue;
        if (bHtml) {
            if (m_Item.m_SubCT != CQLMimeConst::HTML) continue;
            if (!strOut.empty()) strOut += "<hr>";
        } else {
            if (m_Item.m_SubCT != CQLMimeConst::PLAIN) continue;
            if (!strOut.empty()) strOut += "--------------------";
        }
        bResult =
            GetText(strOut, m_Item, strDefaultCharset, strForceCharset, strToCharset, bDecode);
    }
    m_strLastError = "No Text Msg";
    return bResult;
}

bool CQLMimeMsgInfo::GetText(std::string& strOut, const CQLMimeMsgInfoItem& Item,
                             const std::string& strDefaultCharset,
                             const std::string& strForceCharset, const std::string& strToCharset,
                             const bool& bDecode) {
    std::string strBody;
    try {
        CQLFileParser file(m_strEmlPath, false);
        if (!file.Open(kOpenRead)) {
            m_strLastError = "In CQLMimeMsgInfo::GetText, " + file.GetLastError();
            return false;
        }
        ReadRange(file, Item.m_nBSO, Item.m_nBEO, strBody);
        file.Close();
    } catch (CQLFileParser& e) {
        m_strLastError = "In CQLMimeMsgInfo::GetText, " + e.GetLastError();
        return false;
    }

    if (bDecode) {
        CQLCodecParser codec;
        if (Item.m_Encoder == CQLMimeConst::ENCODER_BASE64) {
            strBody = codec.DecodeB64(strBody, true);
            CleanNul(strBody);
        } else if (Item.m_Encoder == CQLMimeConst::ENCODER_QP) {
            try {
                strBody = codec.DecodeQP(strBody, true);
            } catch (CQLExceptionParser& e) {
                m_strLastError =
                    "In CQLMimeMsgInfo::GetText, " + e.GetLastError() + ", [" + m_strEmlPath + "]";
                return false;
            }
        }
    }

    const std::string strFrom =
        CharsetOf(Item, strDefaultCharset, strForceCharset, m_strDefaultFromCharset);
    CQLConvParser conv;
    if (conv.Open(strFrom, strToCharset, true)) {
        try {
            // The converter needs the designation that a mail body leaves out.
            static const char buf[] = {0x1B, 0x24, 0x29, 0x43};
            if (strFrom.size() == 11 && strcasecmp(strFrom.c_str(), "ISO-2022-KR") == 0)
                strBody.insert(0, buf, sizeof(buf));
            strBody = conv.Conv(strBody.data(), strBody.size());
            conv.Close();
        } catch (CQLExceptionParser& e) {
            m_strLastError = "In CQLMimeMsgInfo::GetText, " + e.GetLastError();
            try {
                conv.Close();
            } catch (CQLExceptionParser&) {
            }
        }
    }
    strOut += strBody;
    return true;
}

// ---- attachments and inline images ----

bool CQLMimeMsgInfo::GetNextAttach(CQLMimeAttachInfo& Attach,
                                   const std::string& /*strDefaultCharset*/,
                                   const std::string& strToCharset, const std::string& strLevel) {
    while (NextRecord(m_Item)) {
        if (m_Item.m_strReserved != strLevel || m_Item.m_strFilename.empty()) continue;
        // Only a named inline image is left out. The tests that read no file come first;
        // the outcome is the same in any order.
        const bool bInlineImage =
            !m_Item.m_strCID.empty() &&
            (m_Item.m_CT == CQLMimeConst::IMAGE || IsImageExtention(m_Item.m_strFilename));
        if (bInlineImage && !IsAttachment(m_Item)) continue;

        FillAttach(Attach, m_Item);
        Attach.m_nMSO = static_cast<uint32_t>(m_Item.m_nMSO);
        Attach.m_nMEO = static_cast<uint32_t>(m_Item.m_nMEO);
        CQLHdrCodec codec;
        Attach.m_strFileName = FixFilename(
            codec.Decode(m_Item.m_strFilename, strToCharset, "", CQLHdrCodec::O_HDRCODEC_NONE));
        return true;
    }
    m_strLastError = "No Such Attachment";
    return false;
}

bool CQLMimeMsgInfo::GetNextCID(CQLMimeAttachInfo& Attach, const std::string& strDefaultCharset,
                                const std::string& strToCharset, const std::string& strLevel) {
    while (NextRecord(m_Item)) {
        if (m_Item.m_strReserved != strLevel || m_Item.m_strCID.empty()) continue;
        if (m_Item.m_CT != CQLMimeConst::IMAGE && !IsImageExtention(m_Item.m_strFilename)) continue;

        FillAttach(Attach, m_Item);
        Attach.m_nMSO = 0;
        Attach.m_nMEO = 0;
        const std::string& strOrigin =
            m_strDefaultFromCharset.empty() ? strDefaultCharset : m_strDefaultFromCharset;
        CQLHdrCodec codec;
        Attach.m_strFileName =
            codec.Decode(m_Item.m_strCID, strToCharset, strOrigin, CQLHdrCodec::O_HDRCODEC_NONE);
        return true;
    }
    m_strLastError = "No Such Content-ID";
    return false;
}

bool CQLMimeMsgInfo::IsAttachment(const CQLMimeMsgInfoItem& Item) {
    CQLMimeFile file;
    file.SetData(m_strEmlPath, true);
    CQLMimeHdr hdr;
    hdr.Parse(&file, FilePos(Item.m_nMSO));
    const CQLMimeHdrItem* pItem =
        hdr.FindHdrItem(CQLMimeConst::m_szDisposition, CQLMimeConst::m_nDisposionLen);
    return pItem != nullptr && pItem->m_strValue.find("attachment") != std::string::npos;
}

bool CQLMimeMsgInfo::IsRelated(bool& bMixed) {
    bMixed = false;
    // A cursor of its own: the record cursor stays where it is.
    CQLStrTokenizerParser tokenizer(m_strFormat.c_str(), kRecordDelim);
    unsigned long nLen = 0;
    auto next = [&]() {
        const char* pRecord = tokenizer.GetNext(nLen);
        if (pRecord == nullptr) return false;
        m_Item.Set(pRecord);
        return true;
    };
    if (!next()) return false;
    switch (m_Item.m_SubCT) {
    case CQLMimeConst::RELATED:
        return true;
    case CQLMimeConst::MIXED:
        bMixed = true;
        return next() && m_Item.m_SubCT == CQLMimeConst::RELATED;
    case CQLMimeConst::ALTERNATIVE:
        while (next()) {
            if (m_Item.m_SubCT == CQLMimeConst::RELATED) return true;
            if (m_Item.m_SubCT == CQLMimeConst::MIXED) {
                bMixed = true;
                if (!next()) return false;
                if (m_Item.m_SubCT == CQLMimeConst::RELATED) return true;
            }
        }
        return false;
    default:
        return false;
    }
}

bool CQLMimeMsgInfo::IsTNEF() {
    m_Tokenizer.InitCursor();
    while (NextRecord(m_Item))
        if (m_Item.m_CT == CQLMimeConst::APPLICATION && m_Item.m_SubCT == CQLMimeConst::MS_TNEF)
            return true;
    return false;
}

// The same rules as the tree's, so a name reads alike on both sides.
std::string CQLMimeMsgInfo::FixFilename(const std::string& strName) {
    return CQLMimeMsg::FixFilename(strName);
}

bool CQLMimeMsgInfo::IsImageExtention(const std::string& strName) {
    return CQLMimeMsg::IsImageExtention(strName);
}

// ---- streaming ----

void CQLMimeMsgInfo::AppendBase64Line(const char* pLine, unsigned long nLine, std::string& strBlock,
                                      size_t& nOut) {
    while (nLine > 0 && CQLStringParser::m_TableTrim[static_cast<unsigned char>(pLine[nLine - 1])])
        --nLine;
    while (nLine > 0 && CQLStringParser::m_TableTrim[static_cast<unsigned char>(*pLine)])
        ++pLine, --nLine;
    if (!m_strCarry.empty()) {
        m_strWork.assign(m_strCarry).append(pLine, nLine);
        pLine = m_strWork.data();
        nLine = m_strWork.size();
    }
    // Three characters or fewer go as they are and leave the rest as it was.
    if (nLine > 3) {
        const unsigned long nWhole = nLine / 4 * 4;
        if (nWhole == nLine)
            m_strCarry.clear();
        else
            m_strCarry.assign(pLine + nWhole, nLine - nWhole);
        nLine = nWhole;
    }
    const size_t nNeed = nOut + nLine / 4 * 3 + 3;
    if (strBlock.size() < nNeed) strBlock.resize(std::max(nNeed, 2 * strBlock.size()));
    nOut += CQLCodecParser::DecodeB64To(pLine, nLine, &strBlock[nOut]);
}

void CQLMimeMsgInfo::AppendLine(const char* pLine, unsigned long nLine, bool bQP,
                                std::string& strBlock) {
    // A bare LF becomes CR LF; the counters keep the bytes as read.
    const bool bBareLF =
        nLine > 0 && pLine[nLine - 1] == '\n' && (nLine < 2 || pLine[nLine - 2] != '\r');
    const unsigned long nText = bBareLF ? nLine - 1 : nLine;
    // Quoted-printable decoding changes nothing in a line without "=".
    if (!bQP || memchr(pLine, '=', nLine) == nullptr) {
        strBlock.append(pLine, nText);
        if (bBareLF) strBlock += "\r\n";
        return;
    }
    m_strWork.assign(pLine, nText);
    if (bBareLF) m_strWork += "\r\n";
    CQLCodecParser codec;
    strBlock += codec.DecodeQP(m_strWork, true);
}

bool CQLMimeMsgInfo::OpenAttach(const CQLMimeAttachInfo& Attach) {
    m_AttachInfo.m_nStartPos = Attach.m_nStartPos;
    m_AttachInfo.m_nEndPos = Attach.m_nEndPos;
    m_AttachInfo.m_nContentType = Attach.m_nContentType;
    m_AttachInfo.m_nSubContentType = Attach.m_nSubContentType;
    m_AttachInfo.m_nEncoding = Attach.m_nEncoding;
    m_AttachInfo.m_nLineCnt = Attach.m_nLineCnt;
    m_AttachInfo.m_strAttachId = Attach.m_strAttachId;
    m_AttachInfo.m_strFileName = Attach.m_strFileName;
    m_nAttachRemain = static_cast<int>(Attach.m_nEndPos - Attach.m_nStartPos);
    try {
        // Naming the file forgets an open descriptor, so a stream still open is closed first.
        m_File.Close();
        m_File.SetFileName(m_strEmlPath, false);
        if (!m_File.Open(kOpenRead)) {
            m_strLastError = "In CQLMimeMsgInfo::GetHeader, " + m_File.GetLastError();
            m_nAttachRemain = 0;
            return false;
        }
        m_File.SetPos(static_cast<long>(Attach.m_nStartPos), CQLFileParser::POS_SET);
    } catch (CQLFileParser& e) {
        m_strLastError = "In CQLMimeMsgInfo::GetHeader, " + e.GetLastError();
        m_nAttachRemain = 0;
        try {
            m_File.Close();
        } catch (CQLFileParser&) {
        }
        return false;
    }
    return true;
}

bool CQLMimeMsgInfo::GetAttachContentNext(std::string& strBlock, const bool& bDecode) {
    strBlock.clear();
    if (m_nAttachRemain <= 0) return false;

    const bool bBase64 = bDecode && m_AttachInfo.m_nEncoding == CQLMimeConst::ENCODER_BASE64;
    const bool bQP = bDecode && m_AttachInfo.m_nEncoding == CQLMimeConst::ENCODER_QP;
    long long nBudget = std::min(m_nAttachRemain, kBlockBudget);
    // Base64 is decoded into room made once for the whole block, then cut to what it filled.
    size_t nOut = 0;
    if (bBase64)
        strBlock.resize(static_cast<size_t>(nBudget) / 4 * 3 + 128);
    else
        strBlock.reserve(static_cast<size_t>(nBudget) + 128);
    // The base64 remainder does not outlive the call: a block starts on a fresh group.
    m_strCarry.clear();
    try {
        const char* pLine = nullptr;
        unsigned long nLine = 0;
        while (m_File.ReadLineView(pLine, nLine, m_strLine)) {
            const long long nRead = static_cast<long long>(nLine);
            m_nAttachRemain = static_cast<int>(
                std::max<long long>(static_cast<long long>(m_nAttachRemain) - nRead, INT_MIN));
            nBudget -= nRead;
            if (bBase64)
                AppendBase64Line(pLine, nLine, strBlock, nOut);
            else
                AppendLine(pLine, nLine, bQP, strBlock);
            if (m_nAttachRemain <= 0 || nBudget <= 0) break;
        }
    } catch (CQLFileParser& e) {
        m_strLastError = "In CQLMimeMsgInfo::GetAttachContentNext, " + e.GetLastError();
        return false;
    } catch (...) {
        // A read error passes through with the block holding what was decoded before it.
        if (bBase64) strBlock.resize(nOut);
        throw;
    }
    if (bBase64) strBlock.resize(nOut);
    if (strBlock.empty()) {
        m_strLastError = "In CQLMimeMsgInfo::GetAttachContentNext, attach is empty";
        return false;
    }
    return true;
}

unsigned int CQLMimeMsgInfo::GetAttachContentSize(const CQLMimeAttachInfo& Attach,
                                                  const bool& bDecode) {
    // 32-bit arithmetic throughout, wrapping as it may.
    const unsigned int nRaw = Attach.m_nEndPos - Attach.m_nStartPos;
    if (!bDecode) return nRaw;

    if (Attach.m_nEncoding == CQLMimeConst::ENCODER_BASE64) {
        // From the stored figures: the line ends, then the padding of the last group.
        const unsigned int nLines = static_cast<unsigned int>(Attach.m_nLineCnt);
        unsigned int nSize = ((nRaw - 2 * nLines) * 3) >> 2; // CR LF line ends
        if (nSize == 0) return 0;
        std::string strTail;
        try {
            CQLFileParser file(m_strEmlPath, false);
            if (!file.Open(kOpenRead)) {
                m_strLastError = "In CQLMimeMsgInfo::GetAttachContentSize, " + file.GetLastError();
                return kSizeFailed;
            }
            // The first line end of the file stands for all of them.
            if (file.IsLF()) nSize = ((nRaw - nLines) * 3 + 3) >> 2;
            file.SetPos(static_cast<long>(Attach.m_nEndPos - kTailLen), CQLFileParser::POS_SET);
            file.Read(strTail, kTailLen);
            file.Close();
        } catch (CQLFileParser& e) {
            m_strLastError = "In CQLMimeMsgInfo::GetAttachContentSize, " + e.GetLastError();
            return kSizeFailed;
        }
        const std::string::size_type nPos = strTail.rfind('=');
        if (nPos == std::string::npos) return nSize;
        // The last group counted 3 bytes; decoded with its padding it gives 1 or 2.
        if (nPos > 2) strTail = strTail.substr(nPos - 3, 4);
        CQLCodecParser codec;
        return nSize + static_cast<unsigned int>(codec.DecodeB64(strTail, true).size()) - 3;
    }

    // Any other encoding is read through.
    if (!OpenAttach(Attach)) return 0;
    unsigned int nSize = 0;
    std::string strBlock;
    while (GetAttachContentNext(strBlock, bDecode))
        nSize += static_cast<unsigned int>(strBlock.size());
    CloseAttach();
    return nSize;
}

#include "mime/QLMimeMsg.h"

#include "codec/QLCodecParser.h"
#include "codec/QLHdrCodec.h"
#include "date/QLDateParser.h"
#include "foundation/QLStrTokenizerParser.h"
#include "foundation/QLStringParser.h"

#include <chardet/chardet.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <strings.h>

namespace {

const unsigned long kNotFound = static_cast<unsigned long>(-1);
const int kMaxEntities = 2000;
// The offsets of a part are 32-bit: a longer message can't be described.
const unsigned long kMaxMessage = UINT32_MAX;
const char* const kTooLarge = "In Open(), message too large";

// strtol over one token of a record, which need not be followed by anything readable.
long TokenToLong(const char* pToken, unsigned long nLen) {
    char szBuf[64];
    const unsigned long n = nLen < sizeof(szBuf) - 1 ? nLen : sizeof(szBuf) - 1;
    if (n > 0) memcpy(szBuf, pToken, n);
    szBuf[n] = '\0';
    return strtol(szBuf, nullptr, 10);
}

// Characters that a path or the format string can't hold become "_" in a file name.
char StorableChar(char c) {
    switch (c) {
    case '/':
    case '\\':
    case ':':
    case '"':
    case '*':
    case '<':
    case '>':
    case '|':
    case '?':
    case ',': // a comma would shift the fields of the format string
        return '_';
    default:
        return c;
    }
}

// FixFilename in place, and the line breaks of a folded value removed.
void MakeStorableName(std::string& strName) {
    for (char& c : strName) c = StorableChar(c);
    strName.erase(std::remove_if(strName.begin(), strName.end(),
                                 [](char c) { return c == '\r' || c == '\n'; }),
                  strName.end());
}

const char* TypeName(int nCT) {
    switch (nCT) {
    case CQLMimeConst::TEXT:
        return "TEXT";
    case CQLMimeConst::IMAGE:
        return "IMAGE";
    case CQLMimeConst::APPLICATION:
        return "APPLICATION";
    case CQLMimeConst::MULTIPART:
        return "MULTIPART";
    case CQLMimeConst::MESSAGE:
        return "MESSAGE";
    default:
        return "";
    }
}

const char* SubTypeName(int nSubCT) {
    static const char* const kNames[] = {
        "PLAIN",       "HTML",           "ALTERNATIVE", "MIXED", "REPORT", "RFC822_HEADERS",
        "OCTETSTREAM", "DELIVERYSTATUS", "RELATED",     "JPEG",  "GIF",    "RFC822"};
    if (nSubCT >= 0 && nSubCT <= 11) return kNames[nSubCT];
    return nSubCT == CQLMimeConst::MS_TNEF ? "MS-TNEF" : "";
}

} // namespace

// The state of one entity while Parse walks the tree.
struct CQLMimeMsg::ParseFrame {
    CQLMimeMsg* pNode;
    unsigned long nOffset;
    unsigned long nLength;
    unsigned long nEnd;
    int nPartCnt;
    std::string strBoundary;
    unsigned long nCur;
    unsigned long nNext;
    unsigned long nRet;
    unsigned long nSearchFrom; // where the search for nNext began
    int nLine;                 // its line count, -1 until the source is asked for it
    bool bMissing;
};

namespace {

// The byte at an offset; GetChar takes offsets as int, which must not wrap past 4 GiB.
char CharAt(CQLIMimeStr* pSource, unsigned long nOffset) {
    return nOffset <= UINT32_MAX ? pSource->GetChar(static_cast<int>(nOffset)) : '\0';
}

// The source's delimiter searches may use its index for as long as one parse runs.
class ParseScope {
public:
    explicit ParseScope(CQLIMimeStr* pSource) : m_pSource(pSource) {
        if (m_pSource != nullptr) m_pSource->BeginParse();
    }
    ~ParseScope() {
        if (m_pSource != nullptr) m_pSource->EndParse();
    }
    ParseScope(const ParseScope&) = delete;
    ParseScope& operator=(const ParseScope&) = delete;

private:
    CQLIMimeStr* m_pSource;
};

} // namespace

// ---------------------------------------------------------------------------------------------
// Construction

CQLMimeMsg::CQLMimeMsg() : m_nIndex(0), m_bFileSource(false), m_pSource(nullptr), m_nMsgCursor(0) {
    Init();
}

CQLMimeMsg::CQLMimeMsg(const CQLMimeMsg& other)
    : CQLExceptionParser(other), std::vector<CQLMimeMsg*>() {
    CopyFrom(other);
}

CQLMimeMsg& CQLMimeMsg::operator=(const CQLMimeMsg& other) {
    if (this == &other) return *this;
    CQLExceptionParser::operator=(other);
    CopyFrom(other);
    std::vector<CQLMimeMsg*>::operator=(other);
    return *this;
}

void CQLMimeMsg::CopyFrom(const CQLMimeMsg& other) {
    m_nHSO = other.m_nHSO;
    m_nHEO = other.m_nHEO;
    m_nTSO = other.m_nTSO;
    m_nTEO = other.m_nTEO;
    m_nMSO = other.m_nMSO;
    m_nMEO = other.m_nMEO;
    m_nBSO = other.m_nBSO;
    m_nBEO = other.m_nBEO;
    m_strDepth = other.m_strDepth;
    m_CT = other.m_CT;
    m_SubCT = other.m_SubCT;
    m_Encoder = other.m_Encoder;
    m_nLineCnt = other.m_nLineCnt;
    m_strReserved = other.m_strReserved;
    m_strCharSet = other.m_strCharSet;
    m_strCID = other.m_strCID;
    m_strFilename = other.m_strFilename;
    m_strSubject = other.m_strSubject;
    m_strMainCharSet = other.m_strMainCharSet;
    m_nIndex = other.m_nIndex;
    m_bFileSource = other.m_bFileSource;
    m_bWrapper = other.m_bWrapper;
    m_bSynced = other.m_bSynced;
    m_bHasAttach = other.m_bHasAttach;
    m_bTNEF = other.m_bTNEF;
    m_pSource = other.m_pSource;
    m_Hdr = other.m_Hdr;
    // An open file stays with its owner: a copy holding the same descriptor would close it
    // under the owner's feet. Copies read through m_pSource, which points at the owner's.
    m_MimeFile = CQLMimeFile(other.m_MimeFile);
    m_MimeMem = other.m_MimeMem;
    m_pTop = other.m_pTop;
    m_nMsgCursor = other.m_nMsgCursor;
    m_strHdrFilter = other.m_strHdrFilter;
    m_strHdrFilterLower = other.m_strHdrFilterLower;
    m_itHdrCursor = std::list<CQLMimeHdrItem>::iterator();
    m_bHdrChanged = other.m_bHdrChanged;
}

CQLMimeMsg::~CQLMimeMsg() {
    if (m_bWrapper) m_Pool.FreeHeap();
}

void CQLMimeMsg::SetLastError(const std::string& strError) {
    m_strLastError = strError;
}

void CQLMimeMsg::Init() {
    m_strLastError.clear();
    m_nHSO = m_nHEO = m_nTSO = m_nTEO = m_nMSO = m_nMEO = m_nBSO = m_nBEO = 0;
    m_strDepth.clear();
    m_CT = CQLMimeConst::TEXT;
    m_SubCT = CQLMimeConst::PLAIN;
    m_Encoder = CQLMimeConst::ENCODER_7BIT;
    m_nLineCnt = 0;
    m_strReserved.clear();
    m_strCharSet.clear();
    m_strCID.clear();
    m_strFilename.clear();
    m_strSubject.clear();
    m_strMainCharSet.clear();
    m_bWrapper = false;
    m_bSynced = false;
    m_bHasAttach = false;
    m_bTNEF = false;
    m_pTop = nullptr;
    m_strHdrFilter.clear();
    m_strHdrFilterLower.clear();
    m_itHdrCursor = std::list<CQLMimeHdrItem>::iterator();
    m_bHdrChanged = false;
}

// ---------------------------------------------------------------------------------------------
// Parsing

bool CQLMimeMsg::Open(const std::string& strData, bool bFile) {
    if (strData.empty()) {
        m_strLastError = "In Open(), strData is empty.";
        return false;
    }
    m_Pool.FreeHeap();
    clear();
    CQLMimeMsg tmp;
    m_nIndex = 0;
    m_bWrapper = true;
    m_pTop = this;
    m_bFileSource = bFile;
    m_pSource = bFile ? static_cast<CQLIMimeStr*>(&m_MimeFile) : &m_MimeMem;
    if (!bFile && strData.size() > kMaxMessage) {
        m_strLastError = kTooLarge;
        m_pSource = nullptr;
        return false;
    }
    if (!m_pSource->SetData(strData, bFile)) {
        m_strLastError = "In Open(), " + m_pSource->GetLastError();
        m_pSource = nullptr;
        return false;
    }
    if (m_pSource->GetLength() > kMaxMessage) {
        m_strLastError = kTooLarge;
        m_pSource->Close();
        m_pSource = nullptr;
        return false;
    }
    int nPartCnt = 0, nParseCnt = 0;
    unsigned long nResult = 0;
    try {
        nResult =
            tmp.Parse(m_pSource, 0, m_pSource->GetLength(), nPartCnt, m_Pool, nParseCnt, false);
    } catch (CQLExceptionParser& e) {
        m_strLastError = "In Open(), fail to parse, because " + e.GetLastError();
        m_pSource->Close();
        return false;
    }
    if (nResult == kNotFound) {
        m_strLastError = "In Open(), " + tmp.GetLastError();
        m_pSource->Close();
        return false;
    }
    // Damage that the parse tolerated (a missing delimiter) stays readable here.
    if (!tmp.m_strLastError.empty()) m_strLastError = tmp.m_strLastError;
    insert(begin(), tmp.begin(), tmp.end());
    if (!empty()) Sync(front());
    for (size_t i = 0; i < size(); ++i) {
        CQLMimeMsg* pEntry = (*this)[i];
        pEntry->m_pTop = this;
        pEntry->m_nIndex = static_cast<int>(i);
        pEntry->m_pSource = m_pSource;
        pEntry->m_bFileSource = m_bFileSource;
        if (pEntry->m_bHasAttach) m_bHasAttach = true;
        if (pEntry->m_bTNEF) m_bTNEF = true;
    }
    if (nParseCnt > kMaxEntities) {
        m_strLastError = "In Open(), stack overflow.";
        return false;
    }
    return true;
}

unsigned long CQLMimeMsg::Parse(CQLIMimeStr* pMimeStr, unsigned long nOffset, unsigned long nLength,
                                int& nPartCnt, CQLFixedObjPoolParser<CQLMimeMsg>& Pool,
                                int& nParseCnt, bool bHdrOnly) {
    ParseScope scope(pMimeStr);
    // A child is parsed entirely before its parent goes on, as a recursion would do it, but
    // the pending entities are kept on this stack instead of the call stack.
    std::vector<ParseFrame> stack;
    stack.reserve(4); // deep enough for most mail without growing
    stack.push_back(ParseFrame{this, nOffset, nLength, nOffset + nLength, nPartCnt, std::string(),
                               0, 0, 0, 0, 0, false});
    stack.back().pNode->m_pSource = pMimeStr;
    unsigned long nResult = 0;
    bool bDone = ParseHead(stack.back(), Pool, nParseCnt, bHdrOnly, nResult);
    for (;;) {
        if (bDone) {
            CQLMimeMsg* pFinished = stack.back().pNode;
            if (stack.size() == 1) {
                nPartCnt = stack.back().nPartCnt;
                if (nOffset == 0 && !empty() && front() != this) {
                    front()->m_Hdr = std::move(m_Hdr);
                    m_Hdr.clear();
                }
                return nResult;
            }
            stack.pop_back();
            ParseFrame& parent = stack.back();
            bDone = parent.pNode->AfterChild(parent, pFinished, nResult, nResult);
            continue;
        }
        ParseFrame& frame = stack.back();
        frame.pNode->NextDelimiter(frame);
        if (nParseCnt > kMaxEntities) {
            // Past the first entity over the limit no part is made any more, and the parse
            // only walks the delimiters that end the multiparts still open.
            bDone = frame.pNode->AfterDelimiter(frame, nResult);
            continue;
        }
        CQLMimeMsg* pChild = frame.pNode->NewChild(frame, Pool);
        const unsigned long nChildLen = frame.nNext > frame.nCur ? frame.nNext - frame.nCur : 0;
        const unsigned long nChildOffset = frame.nCur;
        stack.push_back(ParseFrame{pChild, nChildOffset, nChildLen, nChildOffset + nChildLen, 0,
                                   std::string(), 0, 0, 0, 0, 0, false});
        pChild->m_pSource = pMimeStr;
        bDone = pChild->ParseHead(stack.back(), Pool, nParseCnt, false, nResult);
    }
}

bool CQLMimeMsg::ParseHead(ParseFrame& frame, CQLFixedObjPoolParser<CQLMimeMsg>& Pool,
                           int& nParseCnt, bool bHdrOnly, unsigned long& nResult) {
    CQLIMimeStr* pMimeStr = m_pSource;
    const unsigned long nOffset = frame.nOffset;
    const unsigned long nEnd = frame.nEnd;
    const bool bTop = nOffset == 0;

    m_bWrapper = false;
    if (++nParseCnt > kMaxEntities) {
        m_strLastError = "In Parse(), Stack overflow";
        nResult = pMimeStr ? pMimeStr->GetLength() : 0;
        return true;
    }
    if (pMimeStr == nullptr) {
        m_strLastError = "In Parse(), Invalid pMimeStr";
        throw *this;
    }
    if (bTop) push_back(Pool.GetObject());

    const unsigned long nHdr = m_Hdr.Parse(pMimeStr, nOffset);
    if (nHdr == kNotFound) {
        m_strLastError = "In Parse(), " + m_Hdr.GetLastError();
        throw *this;
    }
    if (bHdrOnly) {
        nResult = nHdr;
        return true;
    }

    const PartFields fields = FindPartFields(m_Hdr);
    CQLMimeHdr::ContentTypeOf(fields.pType, fields.pEncoding, m_CT, m_SubCT, m_Encoder);
    m_strCharSet = CharSetOf(fields);
    if (bTop) m_strMainCharSet = m_strCharSet;
    m_strCID = fields.pCID ? fields.pCID->m_strValue : std::string();
    bool bAttachment = false;
    m_strFilename = FilenameOf(fields, bAttachment);
    m_strSubject = fields.pSubject ? fields.pSubject->m_strValue : std::string();

    // An inline picture with a Content-ID is not an attachment.
    m_bHasAttach = !m_strFilename.empty() &&
                   !(!bAttachment && !m_strCID.empty() &&
                     (m_CT == CQLMimeConst::IMAGE || IsImageExtention(m_strFilename)));
    m_bTNEF = m_CT == CQLMimeConst::APPLICATION && m_SubCT == CQLMimeConst::MS_TNEF;

    if (bTop) {
        CQLMimeMsg* pRecord = front();
        pRecord->m_nHSO = pRecord->m_nMSO = pRecord->m_nBSO = m_Hdr.m_nHdrStart;
        pRecord->m_nHEO = pRecord->m_nMEO = pRecord->m_nBEO = m_Hdr.m_nHdrEnd;
        m_nHSO = m_Hdr.m_nHdrStart;
        m_nHEO = m_Hdr.m_nHdrEnd;
        m_strReserved.clear();
        m_strDepth.clear();
        pRecord->m_strReserved.clear();
        pRecord->m_strDepth.clear();
        m_nLineCnt = 0;
        pRecord->m_CT = m_CT;
        pRecord->m_SubCT = m_SubCT;
        pRecord->m_Encoder = m_Encoder;
        // The record takes the header block over when the parse of the top ends.
        pRecord->m_strCharSet = m_strCharSet;
        pRecord->m_strCID = m_strCID;
        pRecord->m_strFilename = m_strFilename;
        pRecord->m_strMainCharSet = m_strMainCharSet;
    }

    if (nHdr == pMimeStr->GetLength()) {
        nResult = nHdr; // no body
        return true;
    }

    std::string strBoundary;
    unsigned long nTarget = nEnd;
    if (m_CT == CQLMimeConst::MULTIPART) {
        if (fields.pType != nullptr)
            strBoundary = fields.pType->GetParameter(CQLMimeConst::m_szBoundary,
                                                     CQLMimeConst::m_nBoundaryLen);
        if (!strBoundary.empty())
            strBoundary = "\n--" + strBoundary;
        else
            nTarget = 0;
        m_nMSO = m_Hdr.m_nHdrStart;
        m_nMEO = m_Hdr.m_nHdrEnd;
    } else if (m_CT == CQLMimeConst::MESSAGE) {
        if (m_strFilename.empty() && m_SubCT == CQLMimeConst::RFC822)
            NameEmbeddedMessage(nHdr, nEnd);
    }

    if (strBoundary.empty()) {
        if (nTarget == nEnd) {
            m_nMSO = m_Hdr.m_nHdrStart;
            m_nMEO = m_Hdr.m_nHdrEnd;
            // The body begins behind "\n" or "\r\n" of the blank line.
            const char c0 = CharAt(pMimeStr, nHdr);
            const char c1 = CharAt(pMimeStr, nHdr + 1);
            unsigned long nBSO = (c0 != '\n' && c1 == '\n') ? nHdr + 2 : nHdr + 1;
            unsigned long nBEO = nEnd;
            if (CharAt(pMimeStr, nBEO - 1) == '\r' && CharAt(pMimeStr, nBEO) == '\n') ++nBEO;
            if (nBSO > nBEO) nBSO = nBEO;
            m_nBSO = static_cast<uint32_t>(nBSO);
            m_nBEO = static_cast<uint32_t>(nBEO);
            if (m_nLineCnt == 0)
                m_nLineCnt = static_cast<int>(pMimeStr->FastLineCnt(nBSO, nBEO - nBSO));
            nResult = nEnd;
        } else {
            nResult = nHdr; // a multipart without a boundary parameter has no parts
        }
        if (bTop) nResult = FinishTop(frame, nResult);
        return true;
    }

    m_nBSO = static_cast<uint32_t>(nHdr);
    int nLine = 0;
    const unsigned long nFirst = pMimeStr->NextBoundary(strBoundary, nHdr, nLine);
    if (nFirst == kNotFound) {
        m_strLastError = "In Parse(), Fail to find next boundary. " + strBoundary;
        m_nBEO = static_cast<uint32_t>(nEnd);
        nResult = bTop ? FinishTop(frame, m_nBEO) : m_nBEO;
        return true;
    }
    frame.nCur = nFirst + 1;
    frame.nRet = nHdr;
    if (frame.nCur >= nEnd) {
        m_nBEO = static_cast<uint32_t>(nHdr);
        nResult = bTop ? FinishTop(frame, nHdr) : nHdr;
        return true;
    }
    frame.strBoundary = std::move(strBoundary);
    if (capacity() < 8) reserve(8); // room for a few parts before the list grows
    return false;
}

void CQLMimeMsg::NextDelimiter(ParseFrame& frame) {
    frame.nSearchFrom = frame.nCur;
    frame.nNext = m_pSource->NextBoundary(frame.strBoundary, frame.nCur, frame.nLine);
    frame.bMissing = false;
    if (frame.nNext == kNotFound) {
        frame.nNext = frame.nEnd;
        m_strLastError = "In Parse(), Fail to find next boundary " + frame.strBoundary;
        frame.bMissing = true;
    }
    frame.nCur += frame.strBoundary.size();
    ++frame.nPartCnt;
}

CQLMimeMsg* CQLMimeMsg::NewChild(ParseFrame& frame, CQLFixedObjPoolParser<CQLMimeMsg>& Pool) {
    CQLMimeMsg* pChild = Pool.GetObject();
    pChild->m_pTop = this;
    pChild->m_strMainCharSet = m_strMainCharSet;
    // The number in one allocation: deep parts have long numbers.
    char szNumber[16];
    const char* pEnd = std::to_chars(szNumber, szNumber + sizeof(szNumber), frame.nPartCnt).ptr;
    std::string& strDepth = pChild->m_strDepth;
    strDepth.reserve(m_strDepth.size() + (pEnd - szNumber) + 1);
    strDepth.assign(m_strDepth)
        .append(szNumber, static_cast<size_t>(pEnd - szNumber))
        .push_back('.');
    pChild->m_strReserved = m_strReserved;
    pChild->m_nLineCnt = 0;
    return pChild;
}

bool CQLMimeMsg::AfterChild(ParseFrame& frame, CQLMimeMsg* pChild, unsigned long nChildResult,
                            unsigned long& nResult) {
    if (nChildResult == kNotFound) {
        m_strLastError = pChild->GetLastError();
        throw *this;
    }
    if (pChild->m_CT == CQLMimeConst::MULTIPART) {
        pChild->m_nTSO = pChild->m_nBSO;
        pChild->m_nTEO = pChild->m_nBEO;
    } else if (pChild->m_CT == CQLMimeConst::MESSAGE) {
        // The lines from the search that found the child's end, less the delimiter's and the
        // header's.
        if (frame.nLine < 0)
            frame.nLine = m_pSource->BoundaryLineCnt(frame.strBoundary, frame.nSearchFrom);
        pChild->m_nLineCnt = frame.nLine - 3 - pChild->m_Hdr.m_nLineCnt;
    }
    push_back(pChild);
    insert(end(), pChild->begin(), pChild->end());
    return AfterDelimiter(frame, nResult);
}

bool CQLMimeMsg::AfterDelimiter(ParseFrame& frame, unsigned long& nResult) {
    const unsigned long nBoundaryLen = frame.strBoundary.size();
    bool bEnd = false;
    if (!frame.bMissing) {
        // A delimiter followed by "--" closes the multipart; what follows belongs to no part.
        if (CharAt(m_pSource, frame.nNext + nBoundaryLen) == '-' &&
            CharAt(m_pSource, frame.nNext + nBoundaryLen + 1) == '-') {
            frame.nRet = frame.nNext + nBoundaryLen + 2;
            bEnd = true;
        }
    } else {
        frame.nRet = frame.nNext;
    }
    if (!bEnd) {
        frame.nCur = frame.nNext + 1;
        if (frame.nCur > frame.nEnd) {
            frame.nRet = frame.nEnd;
            bEnd = true;
        } else if (frame.nCur == frame.nEnd) {
            bEnd = true;
        }
    }
    if (!bEnd) return false;
    m_nBEO = static_cast<uint32_t>(frame.nRet);
    nResult = frame.nOffset == 0 ? FinishTop(frame, frame.nRet) : frame.nRet;
    return true;
}

unsigned long CQLMimeMsg::FinishTop(ParseFrame& frame, unsigned long nResult) {
    m_nMSO = m_nMEO = 0; // the record keeps its own
    if (m_nBSO > frame.nLength) m_nBSO = static_cast<uint32_t>(frame.nLength);
    if (m_nBEO < m_nBSO) m_nBEO = m_nBSO;
    m_nTSO = m_nBSO;
    m_nTEO = m_nBEO;
    CQLMimeMsg* pRecord = front();
    pRecord->m_nBSO = m_nBSO;
    pRecord->m_nBEO = m_nBEO;
    pRecord->m_nTSO = m_nTSO;
    pRecord->m_nTEO = m_nTEO;
    pRecord->m_nHSO = m_nHSO;
    pRecord->m_nHEO = m_nHEO;
    pRecord->m_nLineCnt = m_nLineCnt;
    pRecord->m_strDepth.clear();
    return nResult;
}

unsigned long CQLMimeMsg::BDFind(CQLIMimeStr* pMimeStr, const std::string& strBoundary,
                                 const unsigned long& nFrom, int* pnLine, int* pbCRLF) {
    if (pMimeStr == nullptr) return kNotFound;
    return pMimeStr->FindBoundary(strBoundary, nFrom, pnLine, pbCRLF);
}

void CQLMimeMsg::Sync(CQLMimeMsg* pMsg) {
    if (pMsg == nullptr) return;
    m_nHSO = pMsg->m_nHSO;
    m_nHEO = pMsg->m_nHEO;
    m_nTSO = pMsg->m_nTSO;
    m_nTEO = pMsg->m_nTEO;
    m_nMSO = pMsg->m_nMSO;
    m_nMEO = pMsg->m_nMEO;
    m_nBSO = pMsg->m_nBSO;
    m_nBEO = pMsg->m_nBEO;
    m_CT = pMsg->m_CT;
    m_SubCT = pMsg->m_SubCT;
    m_Encoder = pMsg->m_Encoder;
    m_nLineCnt = pMsg->m_nLineCnt;
    m_strDepth = pMsg->m_strDepth;
    m_strReserved = pMsg->m_strReserved;
    m_strCharSet = pMsg->m_strCharSet;
    m_strCID = pMsg->m_strCID;
    m_strFilename = pMsg->m_strFilename;
    m_strSubject = pMsg->m_strSubject;
    m_strMainCharSet = pMsg->m_strMainCharSet;
    m_bSynced = true;
}

// ---------------------------------------------------------------------------------------------
// Format and offset strings

std::string CQLMimeMsg::GetOffSetStr() const {
    std::string strOut;
    AppendOffSetStr(strOut);
    return strOut;
}

size_t CQLMimeMsg::OffSetStrBound() const {
    // Eleven numbers of at most 11 characters, each with its comma, the encoding byte, six
    // more commas and the texts.
    return 11 * 12 + 1 + 6 + m_strDepth.size() + m_strReserved.size() + m_strCharSet.size() +
           m_strCID.size() + m_strFilename.size();
}

void CQLMimeMsg::AppendOffSetStr(std::string& strOut) const {
    // Written in place: the format string of every message is made this way.
    const size_t nStart = strOut.size();
    strOut.resize(nStart + OffSetStrBound());
    char* p = &strOut[nStart];
    char* const pEnd = &strOut[0] + strOut.size();
    auto number = [&](int nValue) {
        p = std::to_chars(p, pEnd, nValue).ptr;
        *p++ = ',';
    };
    auto text = [&](const std::string& strText) {
        memcpy(p, strText.data(), strText.size());
        p += strText.size();
    };
    number(static_cast<int>(m_nHSO));
    number(static_cast<int>(m_nHEO));
    number(static_cast<int>(m_nTSO));
    number(static_cast<int>(m_nTEO));
    number(static_cast<int>(m_nMSO));
    number(static_cast<int>(m_nMEO));
    number(static_cast<int>(m_nBSO));
    number(static_cast<int>(m_nBEO));
    text(m_strDepth);
    *p++ = ',';
    number(static_cast<int>(m_CT));
    number(static_cast<int>(m_SubCT));
    *p++ = static_cast<char>(m_Encoder);
    *p++ = ',';
    number(m_nLineCnt);
    text(m_strReserved);
    *p++ = ',';
    text(m_strCharSet);
    *p++ = ',';
    text(m_strCID);
    *p++ = ',';
    text(m_strFilename);
    *p++ = ',';
    strOut.resize(static_cast<size_t>(p - strOut.data()));
}

std::string CQLMimeMsg::GetFormat() const {
    std::string strOut;
    if (!m_bWrapper) return strOut;
    size_t nSize = 0;
    for (const CQLMimeMsg* pEntry : *this) nSize += pEntry->OffSetStrBound() + 1;
    strOut.reserve(nSize);
    for (const CQLMimeMsg* pEntry : *this) {
        pEntry->AppendOffSetStr(strOut);
        strOut += '\x05';
    }
    return strOut;
}

bool CQLMimeMsg::SetOffSetStr(const char* pszOffSet, unsigned long nLen, bool bParseHdr) {
    CQLStrTokenizerParser tokenizer(pszOffSet, nLen, ',');
    unsigned long nTok = 0;
    const char* pTok = nullptr;
    for (int nField = 0; (pTok = tokenizer.GetNext(nTok)) != nullptr; ++nField) {
        switch (nField) {
        case 0:
            m_nHSO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 1:
            m_nHEO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 2:
            m_nTSO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 3:
            m_nTEO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 4:
            m_nMSO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 5:
            m_nMEO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 6:
            m_nBSO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 7:
            m_nBEO = static_cast<uint32_t>(TokenToLong(pTok, nTok));
            break;
        case 8:
            m_strDepth.assign(pTok, nTok);
            break;
        case 9:
            m_CT = static_cast<CQLMimeConst::CT>(TokenToLong(pTok, nTok));
            break;
        case 10:
            m_SubCT = static_cast<CQLMimeConst::SUBCT>(TokenToLong(pTok, nTok));
            break;
        case 11:
            // An empty token's first byte is the comma behind it.
            m_Encoder = static_cast<CQLMimeConst::ENCODER>(nTok > 0 ? pTok[0] : ',');
            break;
        case 12:
            m_nLineCnt = static_cast<int>(TokenToLong(pTok, nTok));
            break;
        case 13:
            m_strReserved.assign(pTok, nTok);
            break;
        case 14:
            m_strCharSet.assign(pTok, nTok);
            break;
        case 15:
            m_strCID.assign(pTok, nTok);
            break;
        case 16:
            m_strFilename.assign(pTok, nTok);
            break;
        default:
            break;
        }
    }
    if (bParseHdr) {
        const bool bUseMSO = m_CT == CQLMimeConst::MESSAGE || (m_nHSO == 0 && m_nHEO == 0);
        m_Hdr.Parse(m_pSource, bUseMSO ? m_nMSO : m_nHSO);
    }
    return true;
}

bool CQLMimeMsg::Open(const char* pszData, const unsigned long& /*nLen*/, const char* pszOffSet,
                      bool bFile, bool bParseMainHdr, bool bParseHdr) {
    if (pszOffSet == nullptr) {
        m_strLastError = "In CQLMimeMsg::Open(), pszOffSet is null";
        return false;
    }
    m_Pool.FreeHeap();
    // The entries that pointed into the pool are gone with it.
    clear();
    m_nIndex = 0;
    m_bWrapper = true;
    m_bFileSource = bFile;
    m_pTop = this;
    m_pSource = bFile ? static_cast<CQLIMimeStr*>(&m_MimeFile) : &m_MimeMem;
    if (!m_pSource->SetData(pszData ? std::string(pszData) : std::string(), bFile)) {
        m_strLastError = "In CQLMimeMsg::Open(), " + m_pSource->GetLastError();
        m_pSource = nullptr;
        return false;
    }
    CQLStrTokenizerParser tokenizer(pszOffSet, '\x05');
    unsigned long nRecLen = 0;
    const char* pRecord = tokenizer.GetNext(nRecLen);
    CQLMimeMsg* pEntry = m_Pool.GetObject();
    pEntry->SetIndex(0);
    pEntry->SetMainMimeMsg(this);
    pEntry->SetMimeStrPtr(m_pSource);
    pEntry->SetFileMode(m_bFileSource);
    if (pRecord == nullptr) {
        m_strLastError = "In CQLMimeMsg::Open(), Fail to open main offset info";
        return false;
    }
    pEntry->SetOffSetStr(pRecord, nRecLen, bParseMainHdr);
    push_back(pEntry);
    for (int nIndex = 1; (pRecord = tokenizer.GetNext(nRecLen)) != nullptr; ++nIndex) {
        pEntry = m_Pool.GetObject();
        pEntry->SetIndex(nIndex);
        pEntry->SetMainMimeMsg(this);
        pEntry->SetMimeStrPtr(m_pSource);
        pEntry->SetFileMode(m_bFileSource);
        if (!pEntry->SetOffSetStr(pRecord, nRecLen, bParseHdr)) {
            m_strLastError = "In Open(), " + pEntry->GetLastError();
            return false;
        }
        push_back(pEntry);
    }
    Sync(front());
    return true;
}

void CQLMimeMsg::PrintOffSet() {
    for (size_t i = 0; i < size(); ++i) {
        const CQLMimeMsg* p = (*this)[i];
        printf("[%d] %s, ContentType[%s], SubType[%s], MSO[%d], MEO[%d], HSO[%d], HEO[%d], "
               "BSO[%d], BEO[%d], TSO[%d], TEO[%d]\n",
               static_cast<int>(i), p->m_strDepth.c_str(), TypeName(p->m_CT),
               SubTypeName(p->m_SubCT), static_cast<int>(p->m_nMSO), static_cast<int>(p->m_nMEO),
               static_cast<int>(p->m_nHSO), static_cast<int>(p->m_nHEO),
               static_cast<int>(p->m_nBSO), static_cast<int>(p->m_nBEO),
               static_cast<int>(p->m_nTSO), static_cast<int>(p->m_nTEO));
    }
}

bool CQLMimeMsg::GetNextMsg(CQLMimeMsg& msg) {
    if (m_nMsgCursor < 0 || static_cast<size_t>(m_nMsgCursor) >= size()) return false;
    msg = *(*this)[m_nMsgCursor++];
    return true;
}

bool CQLMimeMsg::IsSameLevel(const CQLMimeMsg& msg) const {
    const std::string& a = m_strDepth;
    const std::string& b = msg.m_strDepth;
    if (a.empty()) return b.size() == 2;
    if (a.size() != b.size() || a.size() < 2) return false;
    if (a.size() == 2) return true;
    // Only the last number and its point may differ.
    return a.compare(0, a.size() - 2, b, 0, a.size() - 2) == 0;
}

// ---------------------------------------------------------------------------------------------
// Accessors

CQLFileParser* CQLMimeMsg::GetFileObject() {
    if (!m_bFileSource) {
        m_strLastError = "Not file mode";
        return nullptr;
    }
    return m_MimeFile.GetFileObject();
}

bool CQLMimeMsg::IsRelated() {
    const CQLMimeMsg* pMain = m_pTop ? m_pTop : this;
    return pMain->m_SubCT == CQLMimeConst::RELATED;
}

bool CQLMimeMsg::IsMixed() {
    const CQLMimeMsg* pMain = m_pTop ? m_pTop : this;
    return pMain->m_SubCT == CQLMimeConst::MIXED;
}

bool CQLMimeMsg::IsXLinkMail() {
    const CQLMimeMsg* pMain = m_pTop ? m_pTop : this;
    const CQLMimeHdrItem* pItem = pMain->FindHdrItem("X-LINK-MAIL", 11);
    return pItem != nullptr && pItem->m_strValue == "1";
}

std::string CQLMimeMsg::GetMsgID() const {
    const CQLMimeMsg* pMain = m_pTop ? m_pTop : this;
    const CQLMimeHdrItem* pItem = pMain->FindHdrItem("Message-ID", 10);
    return pItem ? pItem->m_strValue : std::string();
}

CQLMimeHdrItem* CQLMimeMsg::FindHdrItem(const char* pszName, const unsigned int& nLen) const {
    return GetQLMimeMsgPtr()->GetHdrPtr()->FindHdrItem(pszName, nLen);
}

CQLMimeHdrItem* CQLMimeMsg::FindHdrItem(const std::string& strName) const {
    return FindHdrItem(strName.c_str(), static_cast<unsigned int>(strName.size()));
}

CQLMimeHdr* CQLMimeMsg::GetHdrPtr() const {
    if (!m_bWrapper) return const_cast<CQLMimeHdr*>(&m_Hdr);
    if (!empty() && front() != this) return front()->GetHdrPtr();
    throw CQLExceptionParser("In GetHdrPtr(), invalid mime msg.", 0);
}

CQLMimeMsg* CQLMimeMsg::GetQLMimeMsgPtr() const {
    if (!m_bWrapper) return const_cast<CQLMimeMsg*>(this);
    if (!empty()) return front();
    throw CQLExceptionParser("In GetQLMimeMsgPtr, invalid mime msg.", 0);
}

CQLMimeMsg* CQLMimeMsg::GetQLMimeMsgPtr() {
    if (!m_bWrapper) return this;
    if (!empty()) return front();
    m_strLastError = "In GetQLMimeMsgPtr(), invalid mime msg.";
    throw *this;
}

CQLMimeHdr* CQLMimeMsg::GetHdr() {
    CQLMimeMsg* pNode = this;
    // Bounded walk: a damaged tree whose first entry leads back to a main message must not
    // loop forever.
    for (size_t nSteps = 0; pNode->m_bWrapper; ++nSteps) {
        if (pNode->empty() || pNode->front() == pNode || nSteps > size() + 1) {
            pNode->m_strLastError = "In GetHdr(), invalid mime msg.";
            throw *pNode;
        }
        pNode = pNode->front();
    }
    return &pNode->m_Hdr;
}

CQLIMimeStr* CQLMimeMsg::Source() const {
    CQLIMimeStr* pSource = GetQLMimeMsgPtr()->m_pSource;
    if (pSource == nullptr) throw CQLExceptionParser("In SubStr(), the message is not open", 0);
    return pSource;
}

// ---------------------------------------------------------------------------------------------
// Delivery of bytes

unsigned long CQLMimeMsg::SubStr(const unsigned long& nOffset, const unsigned long& nLen,
                                 std::ostream& out) const {
    return Source()->SubStr(nOffset, nLen, out);
}

std::string CQLMimeMsg::SubStr(const unsigned long& nOffset, const unsigned long& nLen) const {
    return Source()->SubStr(nOffset, nLen);
}

unsigned long CQLMimeMsg::SubStr(const unsigned long& nOffset, const unsigned long& nLen,
                                 std::string& strOut) const {
    return Source()->SubStr(nOffset, nLen, strOut);
}

bool CQLMimeMsg::GetBody(std::string& strBody, bool bDecode) {
    const CQLMimeMsg* p = GetQLMimeMsgPtr();
    strBody.clear();
    if (m_pSource == nullptr) {
        m_strLastError = "In GetBody(), the message is not open";
        return false;
    }
    if (!bDecode && p->m_nBEO <= p->m_nBSO) return true;
    const uint32_t nLen = p->m_nBEO - p->m_nBSO;
    if (m_pSource->SubStr(p->m_nBSO, nLen, strBody) == 0) {
        m_strLastError = "In GetBody(), " + m_pSource->GetLastError();
        return false;
    }
    if (!bDecode) return true;
    CQLCodecParser codec;
    if (m_Encoder == CQLMimeConst::ENCODER_BASE64)
        strBody = codec.DecodeB64(strBody, true);
    else if (m_Encoder == CQLMimeConst::ENCODER_QP)
        strBody = codec.DecodeQP(strBody, true);
    return true;
}

bool CQLMimeMsg::GetBody(std::ostream& out, bool bDecode) {
    const CQLMimeMsg* p = GetQLMimeMsgPtr();
    if (m_pSource == nullptr) {
        m_strLastError = "In GetBody(), the message is not open";
        return false;
    }
    if (bDecode) {
        std::string strBody = m_pSource->SubStr(p->m_nBSO, p->m_nBEO - p->m_nBSO);
        CQLCodecParser codec;
        if (m_Encoder == CQLMimeConst::ENCODER_BASE64)
            strBody = codec.DecodeB64(strBody, true);
        else if (m_Encoder == CQLMimeConst::ENCODER_QP)
            strBody = codec.DecodeQP(strBody, true);
        out.write(strBody.data(), static_cast<std::streamsize>(strBody.size()));
        return true;
    }
    if (p->m_nBEO > p->m_nBSO && m_pSource->SubStr(p->m_nBSO, p->m_nBEO - p->m_nBSO, out) == 0) {
        m_strLastError = "In GetBody(), " + m_pSource->GetLastError();
        return false;
    }
    return true;
}

bool CQLMimeMsg::GetMIME(std::ostream& out) {
    const CQLMimeMsg* p = GetQLMimeMsgPtr();
    CQLIMimeStr* pSource = Source();
    if (pSource->SubStr(p->m_nMSO, p->m_nMEO - p->m_nMSO, out) == 0) {
        m_strLastError = "In GetMIME(), " + pSource->GetLastError();
        return false;
    }
    return true;
}

bool CQLMimeMsg::GetHdr(std::ostream& out) {
    const CQLMimeMsg* p = GetQLMimeMsgPtr();
    if (p->m_nHSO == p->m_nHEO) return true;
    CQLIMimeStr* pSource = Source();
    if (pSource->SubStr(p->m_nHSO, p->m_nHEO - p->m_nHSO, out) == 0) {
        m_strLastError = "In GetHdr(), " + pSource->GetLastError();
        throw *this;
    }
    return true;
}

namespace {

// The whole message comes from the main message's source, whichever node is asked.
CQLIMimeStr* MainSource(const CQLMimeMsg* pNode) {
    const CQLMimeMsg* pMain = pNode->m_pTop ? pNode->m_pTop : pNode;
    return pMain->m_pSource ? pMain->m_pSource : pNode->m_pSource;
}

} // namespace

bool CQLMimeMsg::Save(std::string& strOut) {
    CQLIMimeStr* pSource = MainSource(this);
    if (pSource == nullptr) return false;
    pSource->SubStr(0, pSource->GetLength(), strOut);
    return true;
}

bool CQLMimeMsg::Save(char* pszBuf) {
    CQLIMimeStr* pSource = MainSource(this);
    if (pSource == nullptr || pszBuf == nullptr) return false;
    pSource->SubStr(pszBuf, 0, pSource->GetLength());
    return true;
}

template <class Sink> bool CQLMimeMsg::SaveTo(Sink& sink) {
    CQLIMimeStr* pSource = MainSource(this);
    if (pSource == nullptr) return false;
    if (pSource->SubStr(0, pSource->GetLength(), sink) == 0) {
        m_strLastError = "In Save(), " + pSource->GetLastError();
        return false;
    }
    return true;
}

bool CQLMimeMsg::Save(int nFD) {
    return SaveTo(nFD);
}

bool CQLMimeMsg::Save(CQLFileParser& file) {
    return SaveTo(file);
}

bool CQLMimeMsg::Save(std::ostream& out) {
    return SaveTo(out);
}

void CQLMimeMsg::Close() {
    if (m_bWrapper) m_Pool.FreeHeap();
    clear();
    if (m_pSource != nullptr) m_pSource->Close();
    Init();
}

std::string CQLMimeMsg::ConvertHtmlChar(const std::string& strText) {
    CQLStringParser str;
    // The bound uses the trimmed length while the scan starts at the first byte.
    const size_t n = str.Trim(strText, CQLStringParser::TRIM_BOTH).size();
    std::string strOut(strText.size() + 1, '\0');
    size_t nOut = 0;
    for (size_t i = 0; i < strText.size();) {
        if (strText[i] != '&') {
            strOut[nOut++] = strText[i++];
            continue;
        }
        const char* p = strText.c_str() + i + 1;
        if (i + 5 < n && strncmp(p, "quot;", 5) == 0) {
            strOut[nOut++] = '"';
            i += 6;
        } else if (i + 5 < n && strncmp(p, "nbsp;", 5) == 0) {
            strOut[nOut++] = ' ';
            i += 6;
        } else if (i + 4 < n && strncmp(p, "amp;", 4) == 0) {
            strOut[nOut++] = '&';
            i += 5;
        } else if (i + 3 < n && strncmp(p, "gt;", 3) == 0) {
            strOut[nOut++] = '>';
            i += 4;
        } else if (i + 3 < n && strncmp(p, "lt;", 3) == 0) {
            strOut[nOut++] = '<';
            i += 4;
        } else {
            strOut[nOut++] = '&';
            i += 1;
        }
    }
    return std::string(strOut.c_str());
}

// ---------------------------------------------------------------------------------------------
// Part identity

CQLMimeMsg::PartFields CQLMimeMsg::FindPartFields(const CQLMimeHdr& hdr) {
    // The first field of each name, as FindHdrItem would find it, in one walk.
    PartFields fields;
    auto take = [](const CQLMimeHdrItem& item, const CQLMimeHdrItem*& pFound, const char* pszName,
                   size_t nLen) {
        if (pFound == nullptr && strncasecmp(item.m_strName.c_str(), pszName, nLen) == 0)
            pFound = &item;
    };
    for (const CQLMimeHdrItem& item : hdr) {
        switch (item.m_strName.size()) {
        case 12:
            take(item, fields.pType, CQLMimeConst::m_szContentType, 12);
            break;
        case 19:
            take(item, fields.pDisposition, CQLMimeConst::m_szDisposition, 19);
            break;
        case 10:
            take(item, fields.pCID, "Content-ID", 10);
            break;
        case 7:
            take(item, fields.pSubject, "subject", 7);
            break;
        case 25:
            take(item, fields.pEncoding, CQLMimeConst::m_szTransferEncoding, 25);
            break;
        default:
            break;
        }
    }
    return fields;
}

CQLMimeMsg::PartFields CQLMimeMsg::FindPartFields() const {
    return FindPartFields(*GetQLMimeMsgPtr()->GetHdrPtr());
}

std::string CQLMimeMsg::GetCID() {
    const CQLMimeHdrItem* pItem = FindPartFields().pCID;
    return pItem ? pItem->m_strValue : std::string();
}

std::string CQLMimeMsg::GetSubject() {
    const CQLMimeHdrItem* pItem = FindPartFields().pSubject;
    return pItem ? pItem->m_strValue : std::string();
}

std::string CQLMimeMsg::GetCharSet() {
    return CharSetOf(FindPartFields());
}

std::string CQLMimeMsg::CharSetOf(const PartFields& fields) {
    std::string strCharset =
        fields.pType ? fields.pType->GetParameter("charset", 7) : std::string();
    if (!strCharset.empty()) {
        if (strCharset.front() == '\'') strCharset.erase(0, 1);
        if (!strCharset.empty() && strCharset.back() == '\'') strCharset.pop_back();
        if (strcasecmp(strCharset.c_str(), "x-unknown") == 0) strCharset = "UTF-8";
        return strCharset;
    }
    if (!m_strMainCharSet.empty()) return m_strMainCharSet;
    if (fields.pSubject == nullptr || fields.pSubject->m_strValue.empty()) return std::string();
    const std::string& strSubject = fields.pSubject->m_strValue;
    // Decode with O_ITEM_CS throws its text away: only the word charset is worked out.
    CQLHdrCodec codec;
    const std::string strWordCharset = codec.GetWordCharset(strSubject);
    if (!strWordCharset.empty()) return strWordCharset;
    return DetectCharset(strSubject);
}

std::string CQLMimeMsg::DetectCharset(const std::string& strText) {
    std::string strResult;
    // Seven-bit text without ESC or "~" is ASCII to the detector, an answer never given back,
    // so the detector need not be started for it.
    if (std::all_of(strText.begin(), strText.end(),
                    [](char c) { return c >= 0 && c != '\x1B' && c != '~'; }))
        return strResult;
    Detect* pDetect = detect_init();
    if (pDetect == nullptr) return strResult;
    detect_reset(&pDetect);
    DetectObj* pObj = detect_obj_init();
    if (pObj != nullptr) {
        // The detector reads text up to its first NUL byte.
        const std::string strCopy(strText.c_str());
        const short nRet = detect_handledata(&pDetect, strCopy.c_str(), &pObj);
        if (nRet != CHARDET_OUT_OF_MEMORY && nRet != CHARDET_NULL_OBJECT && pObj != nullptr &&
            pObj->encoding != nullptr && strcmp(pObj->encoding, "ASCII") != 0 &&
            pObj->confidence > 0.8f)
            strResult = pObj->encoding;
        if (nRet != CHARDET_NULL_OBJECT) detect_obj_free(&pObj);
    }
    detect_destroy(&pDetect);
    return strResult;
}

std::string CQLMimeMsg::GetFilename(bool& bAttachment) {
    return FilenameOf(FindPartFields(), bAttachment);
}

std::string CQLMimeMsg::FilenameOf(const PartFields& fields, bool& bAttachment) {
    bAttachment = false;
    std::string strName;
    const CQLMimeHdrItem* pDisposition = fields.pDisposition;
    if (pDisposition != nullptr) {
        bAttachment = pDisposition->m_strValue.find("attachment") != std::string::npos;
        strName = pDisposition->GetParameter("filename", 8);
    }
    if (strName.empty() && fields.pType != nullptr) strName = fields.pType->GetParameter("name", 4);
    if (strName.empty()) {
        switch (m_CT) {
        case CQLMimeConst::IMAGE:
        case CQLMimeConst::AUDIO:
        case CQLMimeConst::VIDEO:
        case CQLMimeConst::APPLICATION: {
            const size_t nDot = m_strDepth.rfind('.');
            return "noname_" +
                   (nDot == std::string::npos ? m_strDepth : m_strDepth.substr(0, nDot));
        }
        default:
            return std::string();
        }
    }
    CQLHdrCodec codec;
    strName = codec.Decode(strName, "UTF-8", m_strCharSet, CQLHdrCodec::O_HDRCODEC_NONE);
    MakeStorableName(strName);
    return strName;
}

std::string CQLMimeMsg::FixFilename(const std::string& strName) {
    std::string strOut(strName);
    for (char& c : strOut) c = StorableChar(c);
    return strOut;
}

bool CQLMimeMsg::IsImageExtention(const std::string& strName) {
    const size_t nDot = strName.rfind('.');
    if (nDot == std::string::npos || strName.size() - nDot - 1 != 3) return false;
    const char* pszExt = strName.c_str() + nDot + 1;
    return strcasecmp(pszExt, "jpg") == 0 || strcasecmp(pszExt, "gif") == 0 ||
           strcasecmp(pszExt, "png") == 0 || strcasecmp(pszExt, "bmp") == 0;
}

void CQLMimeMsg::NameEmbeddedMessage(unsigned long nHdr, unsigned long nEnd) {
    unsigned long nPos = nHdr;
    for (;;) {
        char szTwo[3] = {0, 0, 0};
        if (m_pSource->SubStr(szTwo, nPos, 2) == 0) break;
        if (szTwo[0] == '\r' && szTwo[1] == '\n')
            nPos += 2;
        else if (szTwo[0] == '\n')
            nPos += 1;
        else
            break;
    }
    std::string strRest = nPos < nEnd ? m_pSource->SubStr(nPos, nEnd - nPos) : std::string();
    CQLCodecParser codec;
    if (m_Encoder == CQLMimeConst::ENCODER_BASE64)
        strRest = codec.DecodeB64(strRest, true);
    else if (m_Encoder == CQLMimeConst::ENCODER_QP)
        strRest = codec.DecodeQP(strRest, true);
    if (!strRest.empty()) {
        CQLMimeStr inner;
        inner.SetData(strRest, false);
        CQLMimeHdr hdr;
        if (hdr.Parse(&inner, 0) != kNotFound) {
            const CQLMimeHdrItem* pSubject = hdr.FindHdrItem("subject", 7);
            if (pSubject != nullptr) {
                CQLHdrCodec hdrCodec;
                std::string strName = hdrCodec.Decode(pSubject->m_strValue, "UTF-8", m_strCharSet,
                                                      CQLHdrCodec::O_HDRCODEC_NONE);
                MakeStorableName(strName);
                if (!strName.empty()) m_strFilename = strName + ".eml";
            }
        }
    }
    if (m_strFilename.empty()) m_strFilename = "noname.eml";
    m_bHasAttach = true;
}

// ---------------------------------------------------------------------------------------------
// Message dates

namespace {

bool ReadRFC822(const std::string& strValue, long long& nSeconds) {
    CQLDateParser date;
    try {
        date.FromRFC822(strValue);
    } catch (CQLExceptionParser&) {
        return false;
    }
    nSeconds = date.GetTimestamp();
    return true;
}

bool IsField(const CQLMimeHdrItem& item, const char* pszName, size_t nLen) {
    return item.m_strName.size() == nLen && strncasecmp(item.m_strName.c_str(), pszName, nLen) == 0;
}

} // namespace

long long CQLMimeMsg::GetDate(bool bDayOnly) const {
    const CQLMimeHdrItem* pItem = GetHdrPtr()->FindHdrItem("Date", 4);
    long long nSeconds = 0;
    if (pItem == nullptr || !ReadRFC822(pItem->m_strValue, nSeconds)) return 0;
    if (!bDayOnly) return nSeconds;
    time_t t = static_cast<time_t>(nSeconds);
    struct tm tmLocal;
    if (localtime_r(&t, &tmLocal) == nullptr) return 0;
    tmLocal.tm_sec = tmLocal.tm_min = tmLocal.tm_hour = 0;
    tmLocal.tm_wday = tmLocal.tm_yday = tmLocal.tm_isdst = 0;
    return static_cast<long long>(mktime(&tmLocal));
}

const std::string& CQLMimeMsg::GetDateStr() const {
    static const std::string strEmpty;
    const CQLMimeHdrItem* pItem = GetHdrPtr()->FindHdrItem("Date", 4);
    return pItem ? pItem->m_strValue : strEmpty;
}

long long CQLMimeMsg::GetSentDate() const {
    long long nSeconds = 0;
    for (const CQLMimeHdrItem& item : *GetHdrPtr())
        if (IsField(item, "Date", 4) && ReadRFC822(item.m_strValue, nSeconds)) return nSeconds;
    return 0;
}

long long CQLMimeMsg::GetRecentRecvDate() const {
    long long nSeconds = 0;
    // The newest Received field stands first.
    for (const CQLMimeHdrItem& item : *GetHdrPtr()) {
        if (!IsField(item, "Received", 8)) continue;
        const size_t nSemi = item.m_strValue.rfind(';');
        if (nSemi == std::string::npos) continue;
        if (ReadRFC822(item.m_strValue.substr(nSemi + 1), nSeconds)) return nSeconds;
    }
    return 0;
}

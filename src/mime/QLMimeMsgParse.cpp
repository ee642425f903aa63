#include "mime/QLMimeMsg.h"

#include <charconv>

namespace {

const unsigned long kNotFound = CQLIMimeStr::NOT_FOUND;
const int kMaxEntities = 2000;
// The offsets of a part are 32-bit: a longer message can't be described.
const unsigned long kMaxMessage = UINT32_MAX;
const char* const kTooLarge = "In Open(), message too large";

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
    const bool bTop = frame.nOffset == 0;
    m_bWrapper = false;
    if (++nParseCnt > kMaxEntities) {
        m_strLastError = "In Parse(), Stack overflow";
        nResult = m_pSource ? m_pSource->GetLength() : 0;
        return true;
    }
    if (m_pSource == nullptr) {
        m_strLastError = "In Parse(), Invalid pMimeStr";
        throw *this;
    }
    if (bTop) push_back(Pool.GetObject());
    const unsigned long nHdr = ReadHeader(frame.nOffset);
    if (bHdrOnly) {
        nResult = nHdr;
        return true;
    }
    const PartFields fields = FindPartFields(m_Hdr);
    Identify(fields, bTop);
    if (bTop) StartTopRecord();
    if (nHdr == m_pSource->GetLength()) {
        nResult = nHdr; // no body
        return true;
    }
    std::string strBoundary;
    if (m_CT == CQLMimeConst::MULTIPART) {
        strBoundary = BoundaryOf(fields);
        m_nMSO = m_Hdr.m_nHdrStart;
        m_nMEO = m_Hdr.m_nHdrEnd;
    } else if (m_CT == CQLMimeConst::MESSAGE && m_strFilename.empty() &&
               m_SubCT == CQLMimeConst::RFC822) {
        NameEmbeddedMessage(nHdr, frame.nEnd);
    }
    if (!strBoundary.empty()) return FirstDelimiter(frame, std::move(strBoundary), nHdr, nResult);
    // A multipart without a boundary parameter has no parts and no body.
    const unsigned long nTarget = m_CT == CQLMimeConst::MULTIPART ? 0 : frame.nEnd;
    nResult = nTarget == frame.nEnd ? LeafBody(nHdr, frame.nEnd) : nHdr;
    if (bTop) nResult = FinishTop(frame, nResult);
    return true;
}

unsigned long CQLMimeMsg::ReadHeader(unsigned long nOffset) {
    // The header is not bounded by the entity: it runs to its own end.
    const unsigned long nHdr = m_Hdr.Parse(m_pSource, nOffset);
    if (nHdr == kNotFound) {
        m_strLastError = "In Parse(), " + m_Hdr.GetLastError();
        throw *this;
    }
    return nHdr;
}

void CQLMimeMsg::Identify(const PartFields& fields, bool bTop) {
    CQLMimeHdr::ContentTypeOf(fields.pType, fields.pEncoding, m_CT, m_SubCT, m_Encoder);
    // GetFilename decodes with the charset, which falls back on the main charset.
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
}

void CQLMimeMsg::StartTopRecord() {
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
    // The record takes the header block over when the parse of the top ends. It does not take
    // the attachment flags: only parts raise them in the main message.
    pRecord->m_strCharSet = m_strCharSet;
    pRecord->m_strCID = m_strCID;
    pRecord->m_strFilename = m_strFilename;
    pRecord->m_strMainCharSet = m_strMainCharSet;
}

std::string CQLMimeMsg::BoundaryOf(const PartFields& fields) {
    if (fields.pType == nullptr) return std::string();
    const std::string strBoundary =
        fields.pType->GetParameter(CQLMimeConst::m_szBoundary, CQLMimeConst::m_nBoundaryLen);
    // Delimiters are searched for at the start of a line.
    return strBoundary.empty() ? strBoundary : "\n--" + strBoundary;
}

unsigned long CQLMimeMsg::LeafBody(unsigned long nHdr, unsigned long nEnd) {
    m_nMSO = m_Hdr.m_nHdrStart;
    m_nMEO = m_Hdr.m_nHdrEnd;
    // The body begins behind "\n" or "\r\n" of the blank line, and takes in the LF of a CR LF
    // that ends it.
    const char c0 = CharAt(m_pSource, nHdr);
    const char c1 = CharAt(m_pSource, nHdr + 1);
    unsigned long nBSO = (c0 != '\n' && c1 == '\n') ? nHdr + 2 : nHdr + 1;
    unsigned long nBEO = nEnd;
    if (CharAt(m_pSource, nBEO - 1) == '\r' && CharAt(m_pSource, nBEO) == '\n') ++nBEO;
    if (nBSO > nBEO) nBSO = nBEO;
    m_nBSO = static_cast<uint32_t>(nBSO);
    m_nBEO = static_cast<uint32_t>(nBEO);
    if (m_nLineCnt == 0) m_nLineCnt = static_cast<int>(m_pSource->FastLineCnt(nBSO, nBEO - nBSO));
    return nEnd;
}

bool CQLMimeMsg::FirstDelimiter(ParseFrame& frame, std::string&& strBoundary, unsigned long nHdr,
                                unsigned long& nResult) {
    const bool bTop = frame.nOffset == 0;
    m_nBSO = static_cast<uint32_t>(nHdr);
    int nLine = 0;
    const unsigned long nFirst = m_pSource->NextBoundary(strBoundary, nHdr, nLine);
    if (nFirst == kNotFound) {
        // Not an error for the caller: the multipart has no parts and runs to the end.
        m_strLastError = "In Parse(), Fail to find next boundary. " + strBoundary;
        m_nBEO = static_cast<uint32_t>(frame.nEnd);
        nResult = bTop ? FinishTop(frame, m_nBEO) : m_nBEO;
        return true;
    }
    frame.nCur = nFirst + 1;
    frame.nRet = nHdr;
    if (frame.nCur >= frame.nEnd) {
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

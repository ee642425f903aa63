#include "mime/QLMimeMsg.h"

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

void CQLMimeMsg::Close() {
    if (m_bWrapper) m_Pool.FreeHeap();
    clear();
    if (m_pSource != nullptr) m_pSource->Close();
    Init();
}

#include "mime/QLMimeMsg.h"

#include "codec/QLCodecParser.h"
#include "foundation/QLStringParser.h"

#include <cstring>

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

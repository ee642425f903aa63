#include "mime/QLMimeMsg.h"

#include "foundation/QLStrTokenizerParser.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// strtol over one token of a record, which need not be followed by anything readable.
long TokenToLong(const char* pToken, unsigned long nLen) {
    char szBuf[64];
    const unsigned long n = nLen < sizeof(szBuf) - 1 ? nLen : sizeof(szBuf) - 1;
    if (n > 0) memcpy(szBuf, pToken, n);
    szBuf[n] = '\0';
    return strtol(szBuf, nullptr, 10);
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

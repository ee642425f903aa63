#include "mime/QLMimeMsg.h"

#include "foundation/QLStrTokenizerParser.h"
#include "mime/QLMimeRecord.h"

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

// The most characters a record can take: a number has at most 11, the encoding one, and
// each field its comma.
struct RecordBound {
    size_t n = 0;
    template <class T> void Number(const T&) { n += 12; }
    void Text(const std::string& strText) { n += strText.size() + 1; }
    template <class T> void Byte(const T&) { n += 2; }
};

// Writes a record in place, into room that RecordBound measured.
struct RecordWriter {
    char* p;
    char* pEnd;
    template <class T> void Number(const T& value) {
        // Most fields of a record are a digit: types, encodings, unset offsets.
        const int n = static_cast<int>(value);
        if (n >= 0 && n < 10)
            *p++ = static_cast<char>('0' + n);
        else
            p = std::to_chars(p, pEnd, n).ptr;
        *p++ = ',';
    }
    void Text(const std::string& strText) {
        memcpy(p, strText.data(), strText.size());
        p += strText.size();
        *p++ = ',';
    }
    template <class T> void Byte(const T& value) {
        *p++ = static_cast<char>(value);
        *p++ = ',';
    }
};

// Reads the tokens of a record in turn; fields past the last token keep what they held.
struct RecordReader {
    CQLStrTokenizerParser tokenizer;
    const char* pTok = nullptr;
    unsigned long nTok = 0;
    bool bEnd = false;
    bool Next() {
        if (!bEnd) bEnd = (pTok = tokenizer.GetNext(nTok)) == nullptr;
        return !bEnd;
    }
    template <class T> void Number(T& value) {
        if (Next()) value = static_cast<T>(TokenToLong(pTok, nTok));
    }
    void Text(std::string& strText) {
        if (Next()) strText.assign(pTok, nTok);
    }
    template <class T> void Byte(T& value) {
        // An empty token's first byte is the comma behind it.
        if (Next()) value = static_cast<T>(nTok > 0 ? pTok[0] : ',');
    }
};

} // namespace

std::string CQLMimeMsg::GetOffSetStr() const {
    std::string strOut;
    AppendOffSetStr(strOut);
    return strOut;
}

size_t CQLMimeMsg::OffSetStrBound() const {
    RecordBound bound;
    CQLMimeRecord::Visit(*this, bound);
    return bound.n;
}

void CQLMimeMsg::AppendOffSetStr(std::string& strOut) const {
    // Written in place: the format string of every message is made this way.
    const size_t nStart = strOut.size();
    strOut.resize(nStart + OffSetStrBound());
    RecordWriter writer{&strOut[nStart], &strOut[0] + strOut.size()};
    CQLMimeRecord::Visit(*this, writer);
    strOut.resize(static_cast<size_t>(writer.p - strOut.data()));
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
    RecordReader reader{CQLStrTokenizerParser(pszOffSet, nLen, ',')};
    CQLMimeRecord::Visit(*this, reader);
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

#include "foundation/QLStrTokenizerParser.h"

#include <cstring>

CQLStrTokenizerParser::CQLStrTokenizerParser(const char* pszStr, char cDelim) {
    Set(pszStr, cDelim);
}

CQLStrTokenizerParser::CQLStrTokenizerParser(const char* pszStr, unsigned long nLen, char cDelim) {
    Set(pszStr, nLen, cDelim);
}

void CQLStrTokenizerParser::Set(const char* pszStr, char cDelim) {
    m_cDelim = cDelim;
    m_pszStr = pszStr;
    m_nLen = NUL_TERMINATED;
    m_nCursor = 0;
}

void CQLStrTokenizerParser::Set(const char* pszStr, unsigned long nLen, char cDelim) {
    m_cDelim = cDelim;
    m_pszStr = pszStr;
    m_nLen = nLen;
    m_nCursor = 0;
}

const char* CQLStrTokenizerParser::GetNext(unsigned long& nLen) {
    nLen = 0;
    if (m_pszStr == nullptr) return nullptr;
    const char* pszField = m_pszStr + m_nCursor;
    if (m_nLen != NUL_TERMINATED) {
        if (m_nCursor >= m_nLen) return nullptr;
        const void* pHit = memchr(pszField, m_cDelim, m_nLen - m_nCursor);
        if (pHit == nullptr) {
            nLen = m_nLen - m_nCursor;
            m_nCursor = m_nLen;
        } else {
            nLen = static_cast<const char*>(pHit) - pszField;
            m_nCursor += nLen + 1;
        }
        return pszField;
    }
    if (*pszField == '\0') return nullptr;
    unsigned long i = 0;
    while (pszField[i] != '\0' && pszField[i] != m_cDelim) ++i;
    if (pszField[i] == '\0') return nullptr; // an unclosed last field is not delivered
    nLen = i;
    m_nCursor += i + 1;
    return pszField;
}

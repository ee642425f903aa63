#include "foundation/QLMimeEnvelope.h"

void CQLMimeEnvelope::Init() {
    m_vRcptTo.clear();
    m_strMailFrom.clear();
}

void CQLMimeEnvelope::SetMailFrom(const char* pszMailFrom, int nLen) {
    if (pszMailFrom == nullptr || nLen <= 0) {
        m_strMailFrom.clear();
        return;
    }
    m_strMailFrom.assign(pszMailFrom, static_cast<std::string::size_type>(nLen));
}

std::string CQLMimeEnvelope::GetRcptByDel(char cDelim) const {
    std::string strResult;
    if (m_vRcptTo.empty()) return strResult;
    for (const RCPTTO& rcpt : m_vRcptTo) {
        strResult += rcpt.strRcpt.c_str();
        strResult += cDelim;
    }
    strResult.erase(strResult.size() - 1);
    return strResult;
}

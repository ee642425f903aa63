#include "foundation/QLExceptionParser.h"

CQLExceptionParser::CQLExceptionParser(const std::string& strMessage, int nCode)
    : m_strLastError(strMessage), m_nErrorCode(nCode) {}

CQLExceptionParser::CQLExceptionParser(const CQLExceptionParser& other)
    : m_strLastError(other.m_strLastError), m_nErrorCode(other.m_nErrorCode) {}

CQLExceptionParser& CQLExceptionParser::operator=(const CQLExceptionParser& other) {
    m_strLastError = other.m_strLastError;
    m_nErrorCode = other.m_nErrorCode;
    return *this;
}

std::string CQLExceptionParser::GetLastError() const {
    return m_strLastError;
}

int CQLExceptionParser::GetErrorCode() {
    return m_nErrorCode;
}

void CQLExceptionParser::SetLastError(const std::string& strError) {
    m_strLastError = strError;
}

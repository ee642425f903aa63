#include "mime/QLIMimeStr.h"

#include <algorithm>
#include <cstring>

CQLIMimeStr::CQLIMimeStr() : m_nLength(0), m_pszData(nullptr) {}

CQLIMimeStr::CQLIMimeStr(const CQLIMimeStr& other)
    : CQLExceptionParser(other), m_File(other.m_File), m_strData(other.m_strData),
      m_nLength(other.m_nLength), m_pszData(other.m_pszData) {}

CQLIMimeStr& CQLIMimeStr::operator=(const CQLIMimeStr& other) {
    if (this == &other) return *this;
    CQLExceptionParser::operator=(other);
    m_File = other.m_File;
    m_strData = other.m_strData;
    m_nLength = other.m_nLength;
    m_pszData = other.m_pszData;
    return *this;
}

CQLIMimeStr::~CQLIMimeStr() {}

bool CQLIMimeStr::SetData(const std::string& strData, bool bFile) {
    if (!bFile) {
        m_strData = strData;
        m_nLength = m_strData.size();
        m_pszData = m_strData.data();
        return true;
    }
    try {
        m_File.SetFileName(strData, false);
        if (!m_File.Open(CQLFileParser::FILE_READ | CQLFileParser::FILE_BINARY))
            throw CQLExceptionParser(m_File.GetLastError(), 0);
        const long long nSize = m_File.GetSize();
        m_strData = strData;
        m_nLength = nSize < 0 ? 0 : static_cast<unsigned long>(nSize);
        m_pszData = m_strData.data();
    } catch (CQLExceptionParser&) {
        m_strLastError = "In SetData(), " + m_File.GetLastError();
        return false;
    }
    OnFileOpened();
    return true;
}

bool CQLIMimeStr::SetDataPtr(const char* pszData, unsigned long nLen, bool bFile) {
    if (!bFile) {
        m_nLength = nLen;
        m_pszData = pszData;
        return true;
    }
    const std::string strPath = pszData ? pszData : "";
    if (!SetData(strPath, true)) {
        m_strLastError = "In SetDataPtr(), " + m_File.GetLastError();
        return false;
    }
    m_pszData = pszData;
    return true;
}

unsigned long CQLIMimeStr::GetLineCnt(const char* pszData, const unsigned long& nLen) {
    if (pszData == nullptr || nLen == 0) return 0;
    return static_cast<unsigned long>(std::count(pszData, pszData + nLen, '\n'));
}

unsigned long CQLIMimeStr::GetLineCnt(const std::string& strData, const unsigned long& nFrom,
                                      const unsigned long& nTo) {
    const unsigned long nSize = strData.size();
    if (nFrom >= nSize || nTo < nFrom) return 0;
    const unsigned long nEnd = std::min(nTo, nSize - 1) + 1;
    return GetLineCnt(strData.data() + nFrom, nEnd - nFrom);
}

#include "reader/QLMimeAttachInfo.h"

CQLMimeAttachInfo::CQLMimeAttachInfo()
    : m_nStartPos(0), m_nEndPos(0), m_nMSO(0), m_nMEO(0), m_nContentType(0), m_nSubContentType(0),
      m_nEncoding(0), m_nLineCnt(0) {}

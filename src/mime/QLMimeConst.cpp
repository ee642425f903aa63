#include "mime/QLMimeConst.h"

const char* const CQLMimeConst::m_szContentType = "Content-Type";
const int CQLMimeConst::m_nContentTypeLen = 12;
const char* const CQLMimeConst::m_szTransferEncoding = "Content-Transfer-Encoding";
const int CQLMimeConst::m_nTransferEncodingLen = 25;
const char* const CQLMimeConst::m_szDisposition = "Content-Disposition";
const int CQLMimeConst::m_nDisposionLen = 19;
const char* const CQLMimeConst::m_szMimeVersion = "MIME-Version";
const int CQLMimeConst::m_nMimeVersionLen = 12;
const char* const CQLMimeConst::m_szBoundary = "boundary";
const int CQLMimeConst::m_nBoundaryLen = 8;

const char* const CQLMimeConst::m_szMIMEType[] = {"text",        "image",     "audio",   "video",
                                                  "application", "multipart", "message", nullptr};
const int CQLMimeConst::m_nMIMETypeLen[] = {4, 5, 5, 5, 11, 9, 7, 0};

const char* const CQLMimeConst::m_szSubMIMEType[] = {
    "plain",   "html",           "alternative",  "mixed",
    "report",  "rfc822-headers", "octet-stream", "delivery-status",
    "related", "jpeg",           "gif",          "rfc822",
    "ms-tnef", nullptr};
const int CQLMimeConst::m_nSubMIMETypeLen[] = {5, 4, 11, 5, 6, 14, 12, 15, 7, 4, 3, 6, 7, 0};

#include "foundation/QLSystemError.h"

#include <cerrno>
#include <cstring>

#if !defined(_GNU_SOURCE)
#error "the GNU strerror_r, which returns a text, is required"
#endif

std::string CQLSystemError::GetStrError(int /*nErrno*/) {
    std::string strResult;
    char szBuf[1024] = {0};
    const int nErr = errno;
    const char* pszText = strerror_r(nErr, szBuf, sizeof(szBuf));
    if (pszText != nullptr) strResult = pszText;
    if (strResult.empty()) strResult = strerror(nErr);
    return strResult;
}

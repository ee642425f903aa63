#include "mime/QLMimeMsg.h"

#include "date/QLDateParser.h"

#include <ctime>
#include <strings.h>

namespace {

bool ReadRFC822(const std::string& strValue, long long& nSeconds) {
    CQLDateParser date;
    try {
        date.FromRFC822(strValue);
    } catch (CQLExceptionParser&) {
        return false;
    }
    nSeconds = date.GetTimestamp();
    return true;
}

bool IsField(const CQLMimeHdrItem& item, const char* pszName, size_t nLen) {
    return item.m_strName.size() == nLen && strncasecmp(item.m_strName.c_str(), pszName, nLen) == 0;
}

} // namespace

long long CQLMimeMsg::GetDate(bool bDayOnly) const {
    const CQLMimeHdrItem* pItem = GetHdrPtr()->FindHdrItem("Date", 4);
    long long nSeconds = 0;
    if (pItem == nullptr || !ReadRFC822(pItem->m_strValue, nSeconds)) return 0;
    if (!bDayOnly) return nSeconds;
    time_t t = static_cast<time_t>(nSeconds);
    struct tm tmLocal;
    if (localtime_r(&t, &tmLocal) == nullptr) return 0;
    tmLocal.tm_sec = tmLocal.tm_min = tmLocal.tm_hour = 0;
    tmLocal.tm_wday = tmLocal.tm_yday = tmLocal.tm_isdst = 0;
    return static_cast<long long>(mktime(&tmLocal));
}

const std::string& CQLMimeMsg::GetDateStr() const {
    static const std::string strEmpty;
    const CQLMimeHdrItem* pItem = GetHdrPtr()->FindHdrItem("Date", 4);
    return pItem ? pItem->m_strValue : strEmpty;
}

long long CQLMimeMsg::GetSentDate() const {
    long long nSeconds = 0;
    for (const CQLMimeHdrItem& item : *GetHdrPtr())
        if (IsField(item, "Date", 4) && ReadRFC822(item.m_strValue, nSeconds)) return nSeconds;
    return 0;
}

long long CQLMimeMsg::GetRecentRecvDate() const {
    long long nSeconds = 0;
    // The newest Received field stands first.
    for (const CQLMimeHdrItem& item : *GetHdrPtr()) {
        if (!IsField(item, "Received", 8)) continue;
        const size_t nSemi = item.m_strValue.rfind(';');
        if (nSemi == std::string::npos) continue;
        if (ReadRFC822(item.m_strValue.substr(nSemi + 1), nSeconds)) return nSeconds;
    }
    return 0;
}

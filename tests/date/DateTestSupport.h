#ifndef QLMAIL_TESTS_DATE_DATETESTSUPPORT_H
#define QLMAIL_TESTS_DATE_DATETESTSUPPORT_H

#include "date/QLDateParser.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/stat.h>

// Sets the process time zone for one scope and puts the old one back.
struct ScopedTz {
    bool bHad = std::getenv("TZ") != nullptr;
    std::string strOld = bHad ? std::getenv("TZ") : "";
    explicit ScopedTz(const char* pszTz) {
        setenv("TZ", pszTz, 1);
        tzset();
    }
    ~ScopedTz() {
        bHad ? setenv("TZ", strOld.c_str(), 1) : unsetenv("TZ");
        tzset();
    }
};

// A named zone without its file would silently be read as UTC.
inline bool HaveZoneFile(const std::string& strZone) {
    struct stat st;
    return strZone.find('/') == std::string::npos ||
           stat(("/usr/share/zoneinfo/" + strZone).c_str(), &st) == 0;
}

inline long long Utc(int y, int mo, int d, int h, int mi, int s) {
    struct tm tmValue = {};
    tmValue.tm_year = y - 1900, tmValue.tm_mon = mo - 1, tmValue.tm_mday = d;
    tmValue.tm_hour = h, tmValue.tm_min = mi, tmValue.tm_sec = s;
    return timegm(&tmValue);
}

// Gives "ok" or the failure's text, marked "date: " when the object itself was thrown.
template <class F> std::string Outcome(F f) {
    try {
        f();
    } catch (CQLDateParser& e) {
        return "date: " + e.GetLastError();
    } catch (CQLExceptionParser& e) {
        return e.GetLastError();
    }
    return "ok";
}

// Opens the zone fields to the tests.
class DateProbe : public CQLDateParser {
public:
    std::string Zone() { return ToString("z", true); }
    const std::string& TzName() const { return m_strTzName; }
};

#endif

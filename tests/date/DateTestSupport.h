#ifndef QLMAIL_TESTS_DATE_DATETESTSUPPORT_H
#define QLMAIL_TESTS_DATE_DATETESTSUPPORT_H

#include "date/QLDateParser.h"

#include <clocale>
#include <cstdlib>
#include <ctime>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>

// Sets the process time zone for one scope and puts the old one back.
class ScopedTz {
public:
    explicit ScopedTz(const char* pszTz) : m_bHad(std::getenv("TZ") != nullptr) {
        if (m_bHad) m_strOld = std::getenv("TZ");
        setenv("TZ", pszTz, 1);
        tzset();
    }
    ~ScopedTz() {
        m_bHad ? setenv("TZ", m_strOld.c_str(), 1) : unsetenv("TZ");
        tzset();
    }

private:
    bool m_bHad;
    std::string m_strOld;
};

// Sets LC_ALL for one scope; Ok() is false when the locale cannot be made.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* pszLocale)
        : m_strOld(std::setlocale(LC_ALL, nullptr)),
          m_bOk(std::setlocale(LC_ALL, pszLocale) != nullptr) {}
    ~ScopedLocale() { std::setlocale(LC_ALL, m_strOld.c_str()); }
    bool Ok() const { return m_bOk; }

private:
    std::string m_strOld;
    bool m_bOk;
};

inline bool HaveZoneFile(const std::string& strZone) {
    struct stat st;
    return strZone.find('/') == std::string::npos ||
           stat(("/usr/share/zoneinfo/" + strZone).c_str(), &st) == 0;
}

inline long long Utc(int y, int mo, int d, int h, int mi, int s) {
    struct tm tmValue = {};
    tmValue.tm_year = y - 1900;
    tmValue.tm_mon = mo - 1;
    tmValue.tm_mday = d;
    tmValue.tm_hour = h;
    tmValue.tm_min = mi;
    tmValue.tm_sec = s;
    return timegm(&tmValue);
}

// Opens the zone fields to the tests.
class DateProbe : public CQLDateParser {
public:
    std::string Zone() { return ToString("z", true); }
    const std::string& TzName() const { return m_strTzName; }
};

#endif

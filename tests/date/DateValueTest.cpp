#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {
const int N = CQLDateParser::NOSET;
}

TEST(DateValue, ValidationAndDayCounts) {
    struct Case {
        int y, mo, d, h, mi, s, ms;
        const char* pszError; // nullptr: valid
    };
    const Case cases[] = {
        {1752, 1, 1, 0, 0, 0, 0, nullptr},
        {8000, 12, 31, 23, 59, 59, 999, nullptr},
        {1751, 13, 40, 99, 99, 99, 9999, "YEAR[1751] must be between 1752 and 8000"},
        {2024, 13, 1, 0, 0, 0, 0, "MONTH[13] must be between 1 and 12"},
        {2024, 4, 0, 0, 0, 0, 0, "DAY[0] must be between 1 and 30"},
        // February of a century year is the reverse of the Gregorian rule.
        {2000, 2, 29, 0, 0, 0, 0, "DAY[29] must be between 1 and 28"},
        {1900, 2, 29, 0, 0, 0, 0, nullptr},
        {2024, 1, 1, -1, 0, 0, 0, "HOUR[-1] must be between 0 and 23"},
        {2024, 1, 1, 0, 60, 0, 0, "MINUTE[60] must be between 0 and 59"},
        {2024, 1, 1, 0, 0, -1, 0, "SECOND[-1] must be between 0 and 59"},
        {2024, 1, 1, 0, 0, 0, 1000, "Milli SECOND[1000] must be between 0 and 999"},
    };
    for (const Case& c : cases) {
        std::string strError = "untouched";
        EXPECT_EQ(CQLDateParser::IsValid(strError, c.y, c.mo, c.d, c.h, c.mi, c.s, c.ms),
                  c.pszError == nullptr);
        EXPECT_EQ(strError, c.pszError ? c.pszError : "untouched");
    }
    EXPECT_EQ(CQLDateParser::GetDaysInMonth(2004, 2), 29);
    EXPECT_TRUE(CQLDateParser::IsLeapYear(2000));
    EXPECT_FALSE(CQLDateParser::IsLeapYear(1900));
    // Months outside the table stay inside it.
    EXPECT_EQ(CQLDateParser::GetDaysInMonth(2024, 13), 0);
    EXPECT_EQ(CQLDateParser::GetDaysInMonth(2024, -100000), 0);
}

TEST(DateValue, SetValueReadsLocalTime) {
    CQLDateParser date;
    try {
        date.SetValue(N, N, N, N, N, N, N);
        FAIL() << "start values must be refused";
    } catch (CQLDateParser& e) {
        EXPECT_EQ(e.GetLastError(),
                  "In SetValue(), Invalid data: YEAR[0] must be between 1752 and 8000");
    }
    {
        ScopedTz tz("UTC0");
        EXPECT_EQ(date.SetValue(2024, 3, 5, 14, 7, 9, 45), 1709647629);
    }
    {
        // NOSET everywhere re-validates and renews the timestamp in the new zone.
        ScopedTz tz("KST-9");
        EXPECT_EQ(date.SetValue(N, N, N, N, N, N, N), 1709615229);
    }
    EXPECT_EQ(date.GetDayOfWeek(), 0); // not written by SetValue
    // A refused value stays stored.
    EXPECT_THROW(date.SetValue(N, 2, 30, N, N, N, N), CQLDateParser);
    EXPECT_EQ(date.GetDay(), 30);
    EXPECT_EQ(date.GetLastError(), "In SetValue(), Invalid data: DAY[30] must be between 1 and 29");
}

TEST(DateValue, TimestampsAndZones) {
    {
        ScopedTz tz("UTC");
        DateProbe date;
        date.SetTimestamp(1709647629L, true);
        EXPECT_EQ(date.Zone(), "-0000"); // a zero offset counts as west
        EXPECT_EQ(date.ToTimezoneSymbol(), "UTC");
    }
    if (HaveZoneFile("Asia/Seoul")) {
        ScopedTz tz("Asia/Seoul");
        DateProbe date;
        date.SetTimestamp(1709647629L, true);
        EXPECT_EQ(date.ToString("YYYY-MM-DD hh:mm:ss DDD z Z", true),
                  "2024-03-05 23:07:09 Tue +0900 KST");
        EXPECT_EQ(date.GetDayOfYear(), 64);
    }
    {
        // Standard offset only, even in summer; UTC fields and untouched zone without bLocal.
        ScopedTz tz("EST5EDT,M3.2.0,M11.1.0");
        DateProbe date;
        date.SetTimestamp(1720000000L, true);
        EXPECT_EQ(date.ToString("hh:mm z", true), "05:46 -0500");
        date.SetTimestamp(1720000000L, false);
        EXPECT_EQ(date.ToString("hh:mm z DDD", true), "09:46 +0000 Wed");
        EXPECT_EQ(date.TzName(), "");
    }
    CQLDateParser old;
    old.SetTimestamp(-7000000000L, false); // outside the value range, still filled
    EXPECT_EQ(old.GetYear(), 1748);
    try {
        old.SetTimestamp(0x7fffffffffffffffL, false);
        FAIL();
    } catch (CQLDateParser&) {
        FAIL() << "plain failure expected";
    } catch (CQLExceptionParser& e) {
        EXPECT_EQ(e.GetLastError(), "In FromTimestamp(), can't get the localtime");
    }

    CQLDateParser now = CQLDateParser::GetCurrent(false);
    EXPECT_LE(now.GetTimestamp(), CQLDateParser::GetCurrentTimestamp());
    EXPECT_GE(now.GetTimestamp() + 5, CQLDateParser::GetCurrentTimestamp());
    EXPECT_TRUE(now.GetMSec() >= 0 && now.GetMSec() <= 999);

    EXPECT_EQ(CQLDateParser::GetJavaTime(2147483646LL), 2147483646000LL);
    EXPECT_EQ(CQLDateParser::GetJavaTime(2147483647LL), 2147483647LL);
}

TEST(DateValue, JulianDayNumbers) {
    CQLDateParser date;
    date.FromString("2000-01-01", "YYYY-MM-DD", false);
    EXPECT_EQ(date.ToJulian(), 2451545u);
    date.FromString("99-12-31", "YYYY-MM-DD", false); // read as 1999
    EXPECT_EQ(date.ToJulian(), 2451544u);

    // Every day from 1800 to 2200 against the system's Gregorian calendar.
    for (unsigned int nJulian = 2378497; nJulian < 2524594; ++nJulian) {
        date.FromJulian(nJulian);
        time_t nTime = (static_cast<long long>(nJulian) - 2440588) * 86400;
        struct tm tmDay;
        gmtime_r(&nTime, &tmDay);
        ASSERT_EQ(date.GetYear() * 10000 + date.GetMonth() * 100 + date.GetDay(),
                  (tmDay.tm_year + 1900) * 10000 + (tmDay.tm_mon + 1) * 100 + tmDay.tm_mday);
        ASSERT_EQ(date.ToJulian(), nJulian);
    }
}

TEST(DateValue, WeekNumbers) {
    // 2017 to 2024 agree with ISO weeks day by day.
    for (long nTime = 1483228800; nTime < 1735689600; nTime += 86400) {
        CQLDateParser date;
        date.SetTimestamp(nTime, false);
        int nYear = 0;
        int nWeek = date.GetWeekNumber(nYear);
        time_t t = nTime;
        struct tm tmDay;
        gmtime_r(&t, &tmDay);
        char szIso[32], szLib[32];
        std::strftime(szIso, sizeof(szIso), "%G-%V", &tmDay);
        std::snprintf(szLib, sizeof(szLib), "%d-%02d", nYear, nWeek);
        ASSERT_STREQ(szLib, szIso) << nTime;
    }
    // The day of the year counted one short puts years that begin on a Thursday a week
    // behind: 2004-01-01 is week 53 of 2003, 2004-01-05 week 1, 2005-01-01 week 52.
    const long cases[][3] = {{1072915200, 2003, 53}, {1073260800, 2004, 1}, {1104537600, 2004, 52}};
    for (const auto& c : cases) {
        CQLDateParser date;
        date.SetTimestamp(c[0], false);
        int nYear = 0;
        EXPECT_EQ(date.GetWeekNumber(nYear), c[2]);
        EXPECT_EQ(nYear, c[1]);
    }
}

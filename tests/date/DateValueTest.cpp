#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

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
    EXPECT_TRUE(CQLDateParser::IsLeapYear(2000) && !CQLDateParser::IsLeapYear(1900));
    // Months outside the table stay inside it.
    EXPECT_EQ(CQLDateParser::GetDaysInMonth(2024, 13), 0);
    EXPECT_EQ(CQLDateParser::GetDaysInMonth(2024, -100000), 0);
}

TEST(DateValue, SetValueReadsLocalTime) {
    CQLDateParser date;
    EXPECT_EQ(Outcome([&] { date.SetValue(N, N, N, N, N, N, N); }),
              "date: In SetValue(), Invalid data: YEAR[0] must be between 1752 and 8000");
    {
        ScopedTz tz("UTC0");
        EXPECT_EQ(date.SetValue(2024, 3, 5, 14, 7, 9, 45), 1709647629);
    }
    ScopedTz tz("KST-9");
    // NOSET everywhere re-validates and renews the timestamp in the new zone.
    EXPECT_EQ(date.SetValue(N, N, N, N, N, N, N), 1709615229);
    EXPECT_EQ(date.GetDayOfWeek(), 0); // not written by SetValue
    // A refused value stays stored.
    EXPECT_EQ(Outcome([&] { date.SetValue(N, 2, 30, N, N, N, N); }),
              "date: In SetValue(), Invalid data: DAY[30] must be between 1 and 29");
    EXPECT_EQ(date.GetDay(), 30);
}

TEST(DateValue, TimestampsAndZones) {
    DateProbe date;
    {
        ScopedTz tz("UTC");
        date.SetTimestamp(1709647629L, true);
        EXPECT_EQ(date.ToString("z Z", true), "-0000 UTC"); // a zero offset counts as west
    }
    if (HaveZoneFile("Asia/Seoul")) {
        ScopedTz tz("Asia/Seoul");
        date.SetTimestamp(1709647629L, true);
        EXPECT_EQ(date.ToString("YYYY-MM-DD hh:mm:ss DDD z Z", true),
                  "2024-03-05 23:07:09 Tue +0900 KST");
        EXPECT_EQ(date.GetDayOfYear(), 64);
    }
    {
        // Standard offset only, even in summer; UTC fields and untouched zone without bLocal.
        ScopedTz tz("EST5EDT,M3.2.0,M11.1.0");
        date.SetTimestamp(1720000000L, true);
        EXPECT_EQ(date.ToString("hh:mm z", true), "05:46 -0500");
        date.SetTimestamp(1720000000L, false);
        EXPECT_EQ(date.ToString("hh:mm z DDD", true) + date.TzName(), "09:46 +0000 Wed");
    }
    date.SetTimestamp(-7000000000L, false); // outside the value range, still filled
    EXPECT_EQ(date.GetYear(), 1748);
    EXPECT_EQ(Outcome([&] { date.SetTimestamp(0x7fffffffffffffffL, false); }),
              "In FromTimestamp(), can't get the localtime");

    CQLDateParser now = CQLDateParser::GetCurrent(false);
    EXPECT_LE(now.GetTimestamp(), CQLDateParser::GetCurrentTimestamp());
    EXPECT_EQ(CQLDateParser::GetJavaTime(2147483646LL), 2147483646000LL);
    EXPECT_EQ(CQLDateParser::GetJavaTime(2147483647LL), 2147483647LL);
}

TEST(DateValue, JulianDaysAndWeeks) {
    CQLDateParser date;
    date.FromString("2000-01-01", "YYYY-MM-DD", false);
    EXPECT_EQ(date.ToJulian(), 2451545u);
    date.FromJulian(1757584); // 0099-12-31, which ToJulian counts as 1999
    EXPECT_EQ(date.GetYear() * 10000 + date.GetMonth() * 100 + date.GetDay(), 991231);
    EXPECT_EQ(date.ToJulian(), 2451544u);
    auto week = [&] {
        int nYear = 0, nWeek = date.GetWeekNumber(nYear);
        return std::to_string(nYear) + "-" + std::to_string(nWeek);
    };
    // Every day from 1800 to 2200 against the system's calendar: Julian day numbers both
    // ways, and from 2017 to 2024 ISO weeks.
    for (time_t nTime = -5364662400; nTime < 7258118400; nTime += 86400) {
        date.SetTimestamp(nTime, false);
        int nDate = date.GetYear() * 10000 + date.GetMonth() * 100 + date.GetDay();
        unsigned int nJulian = static_cast<unsigned int>(nTime / 86400 + 2440588);
        ASSERT_EQ(date.ToJulian(), nJulian) << nDate;
        date.FromJulian(nJulian);
        ASSERT_EQ(date.GetYear() * 10000 + date.GetMonth() * 100 + date.GetDay(), nDate);
        if (nTime < 1483228800 || nTime >= 1735689600) continue;
        struct tm tmDay;
        char szIso[32];
        std::strftime(szIso, sizeof(szIso), "%G-%-V", gmtime_r(&nTime, &tmDay));
        ASSERT_EQ(week(), szIso) << nDate;
    }
    // The day of the year counted one short puts a year that begins on a Thursday a week
    // behind: 2004-01-01 is in week 53 of 2003, 2004-01-05 in week 1, 2005-01-01 in week 52.
    std::string strWeeks;
    for (time_t nTime : {1072915200, 1073260800, 1104537600}) {
        date.SetTimestamp(nTime, false);
        strWeeks += week() + " ";
    }
    EXPECT_EQ(strWeeks, "2003-53 2004-1 2004-52 ");
}

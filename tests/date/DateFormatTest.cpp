#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

#include <clocale>

namespace {

const int N = CQLDateParser::NOSET;

// 2024-03-05 14:07:09.045, a Tuesday, at +0900.
CQLDateParser Reference() {
    CQLDateParser date;
    date.FromString("2024-03-05 14:07:09.045 Tue +0900", "YYYY-MM-DD hh:mm:ss.SSS DDD z", false);
    return date;
}

// Parses in UTC; gives "y-m-d h:m weekday", or the failure with its fixed start cut.
std::string Parse(const std::string& strValue, const std::string& strFormat) {
    CQLDateParser date;
    std::string strOutcome = Outcome([&] { date.FromString(strValue, strFormat, false); });
    if (strOutcome == "date: In FromString(), invalid format[" + strValue + "]") return "format";
    if (strOutcome.rfind("date: In FromString(), Invalid data: ", 0) == 0)
        return strOutcome.substr(37);
    char sz[64];
    std::snprintf(sz, sizeof(sz), "%04d-%02d-%02d %d:%02d %d", date.GetYear(), date.GetMonth(),
                  date.GetDay(), date.GetHour(), date.GetMin(), date.GetDayOfWeek());
    return strOutcome == "ok" ? sz : strOutcome;
}

} // namespace

TEST(DateFormat, Printing) {
    CQLDateParser date = Reference();
    ASSERT_EQ(date.GetTimestamp(), 1709615229);
    const char* cases[][2] = {
        {"YYYY-MM-DD hh:mm:ss|YY/M/D h:m:s", "2024-03-05 14:07:09|24/3/5 14:7:9"},
        {"DDD, D MMM YYYY hh:mm:ss z", "Tue, 5 Mar 2024 14:07:09 +0900"},
        {"hh:mm a|hh:mm A|SSS|SS|S|SSSS", "02:07 pm|02:07 PM|045|45S|45|04545"},
        {"Y|YYY|YYYYYY|DDDDD|MMMM|hhh", "Y|24Y|202424|Tuesday5|March|1414"},
        {"\\Y\\D|\\\\|\\x[x]|zz|AA|Z|YYYY\\", "YD|\\|x[x]|+0900+0900|PM|KST|2024"},
        {"\\a hh", "a 14"}, // an escaped mark does not make twelve-hour mode
    };
    for (const auto& c : cases) EXPECT_EQ(date.ToString(c[0], true), c[1]) << c[0];

    // Up to 12 is the morning; midnight prints as 12.
    date.FromString("2024-02-05 12:07", "YYYY-MM-DD hh:mm", false);
    EXPECT_EQ(date.ToString("hh:mm a|hh:mm A|hh:mm|MMMM", true),
              "12:07 am|12:07 AM|12:07|Feburary");
    date.FromString("2024-06-05 00:07", "YYYY-MM-DD hh:mm", false);
    EXPECT_EQ(date.ToString("hh:mm a|MMMM", true), "12:07 am|Jun");

    date.FromString("1969-12-31", "YYYY-MM-DD", false);
    EXPECT_EQ(Outcome([&] { date.ToString("YYYY", true); }),
              "date: In ToString(), Invalid timestamp.");
}

TEST(DateFormat, LocaleNamesAndMonthsOutOfRange) {
    CQLDateParser date = Reference();
    ASSERT_TRUE(std::setlocale(LC_ALL, "C"));
    EXPECT_EQ(date.ToString("DDD DDDD MMM MMMM A a", false), "Tue Tuesday Mar March PM PM");
    bool bKorean = std::setlocale(LC_ALL, "ko_KR.UTF-8") != nullptr;
    std::string strKorean = date.ToString("DDD|DDDD|MMM|MMMM|hh A|a", false);
    date.FromString("2024-03-05 12:00", "YYYY-MM-DD hh:mm", false);
    strKorean += "|" + date.ToString("A", false);
    // A stored month outside 1 to 12 prints no name on the locale road, and fails in English.
    for (int nMonth : {0, 13, -7, 100000}) {
        EXPECT_NE(Outcome([&] { date.SetValue(N, nMonth, N, N, N, N, N); }), "ok");
        EXPECT_EQ(date.ToString("[MMM][MMMM][M]", false), "[][][" + std::to_string(nMonth) + "]");
        EXPECT_EQ(Outcome([&] { date.ToString("MMM", true); }),
                  "In GetMonthName(), Invalid month.");
        EXPECT_EQ(Outcome([&] { date.ToString("MMMM", true); }),
                  "In GetLongMonthName(), Invalid month.");
    }
    std::setlocale(LC_ALL, "C");
    if (!bKorean) GTEST_SKIP() << "locale ko_KR.UTF-8 cannot be set; Korean names not checked";
    EXPECT_EQ(strKorean, "화|화요일| 3월|3월|02 오후|오후|오전");
}

TEST(DateFormat, Parsing) {
    // Separators are skipped by count, not compared; without a zone the value is UTC or local.
    DateProbe date;
    EXPECT_EQ(date.FromString("2024x03/05T14.07,09", "YYYY-MM-DD hh:mm:ss", false), 1709647629);
    EXPECT_EQ(date.FromString("2024-3-5 14:7:9 +09:00", "YYYY-M-D h:m:s z", false), 1709615229);
    {
        ScopedTz tz("KST-9");
        EXPECT_EQ(date.FromString("2024-03-05 14:07:09", "YYYY-MM-DD hh:mm:ss", true), 1709615229);
        EXPECT_EQ(date.Zone(), "+0900");
    }

    const char* cases[][3] = {
        // The century rule, names by their first three letters in any case, the rest of a long
        // name read when it is all there, and the count a long name leaves read again.
        {"05 mAR 69", "DD MMM YY", "2069-03-05 0:00 0"},
        {"05 Mar 70", "DD MMM YY", "1970-03-05 0:00 0"},
        {"05 Mar 0099", "DD MMM YYYY", "1999-03-05 0:00 0"},
        {"Feburary 5 2024", "MMMM D YYYY", "2024-02-05 0:00 0"},
        {"sePTEMBEROct 5 2024", "MMMMMMM D YYYY", "2024-10-05 0:00 0"},
        {"Wednesday, 6 March 2024", "DDDD, D MMMM YYYY", "2024-03-06 0:00 3"},
        {"x Mon 2024.1.1", "  DDD YYYY.M.D", "2024-01-01 0:00 1"},
        {"2024-03-05", "\\YYYYY\\-MM-DD\\", "2024-03-05 0:00 0"}, // escaped letters take no byte
        // The cursor starts behind an escaped "a" of the format: "99", not "19".
        {"1999-03-05", "\\aYY-MM-DD", "1999-03-05 0:00 0"},
        // "PM", "pm" or "Pm" anywhere adds 12 and 24 wraps to 0: noon and midnight swap.
        {"2024-03-05 02:07 PM", "YYYY-MM-DD hh:mm A", "2024-03-05 14:07 0"},
        {"2024-03-05 02:07 Pm", "YYYY-MM-DD hh:mm A", "2024-03-05 14:07 0"},
        {"2024-03-05 02:07 pM", "YYYY-MM-DD hh:mm A", "2024-03-05 2:07 0"},
        {"2024-03-05 12:07 pm", "YYYY-MM-DD hh:mm A", "2024-03-05 0:07 0"},
        {"2024-03-05 12:07 AM", "YYYY-MM-DD hh:mm a", "2024-03-05 12:07 0"},
        {"2024-03-05 02:07 AMx PM", "YYYY-MM-DD hh:mm A", "2024-03-05 14:07 0"},
        {"2024-03-05 02:07 PMam", "YYYY-MM-DD hh:mm AA", "2024-03-05 14:07 0"},
        {"2024-03-05 13:07 PM", "YYYY-MM-DD hh:mm a", "HOUR[25] must be between 0 and 23"},
        {"2024-03-05 24:00 PM", "YYYY-MM-DD hh:mm", "HOUR[24] must be between 0 and 23"},
        // Failures, and values that end inside a number, name, mark or zone.
        {"03-05", "MM-DD", "YEAR[0] must be between 1752 and 8000"},
        {"x Mon", "  DDD", "YEAR[0] must be between 1752 and 8000"},
        {"2000-02-29", "YYYY-MM-DD", "DAY[29] must be between 1 and 28"},
        {"2024-03-05 +2400", "YYYY-MM-DD z", "Timezone HOUR[24] must be between 0 and 23"},
        {"Mon", "DDD", "format"}, // a bare name needs a value of four bytes
        {"2024-03-05 Tu", "YYYY-MM-DD DDD", "format"},
        {"2024-03-05 Xyz", "YYYY-MM-DD DDD", "format"},
        {"2024-03-05 02:07 P", "YYYY-MM-DD hh:mm A", "format"},
        {"2024-03-05 02:07 QM", "YYYY-MM-DD hh:mm A", "format"},
        {"2024-03-05 +09", "YYYY-MM-DD z", "format"},
        {"2024-03-05 EST", "YYYY-MM-DD z", "format"},
        {"2024-03-05", "YYYY-MM-DD            hh", "format"},
        {"2024-03-05", "YYYY-MM-DD            z", "format"},
        {"2024-03-05", "YYYY-MM-DD            DDDD", "format"},
        {"2024-03-05", "YYYY-MM-DD            a", "format"},
    };
    for (const auto& c : cases) EXPECT_EQ(Parse(c[0], c[1]), c[2]) << c[0] << " / " << c[1];
}

// Printing and reading back gives the same instant, east and west, with numbers, names
// and marks.
TEST(DateFormat, RoundTrips) {
    const char* formats[] = {"YYYY-MM-DD hh:mm:ss z", "DDDD, D MMMM YYYY h:m:s z",
                             "DDD, DD MMM YY hh:mm:ss z", "MMMM/DD/YYYY hh-mm-ss A z",
                             "\\Y\\Y YYYY \\M MM \\D DD hh mm ss a z"};
    for (const char* pszTz : {"UTC0", "IST-5:30", "NST3:30"}) {
        ScopedTz tz(pszTz);
        for (long nTime = 86400; nTime < 3000000000L; nTime += 7654321L) {
            CQLDateParser date;
            date.SetTimestamp(nTime, true);
            for (const char* pszFormat : formats) {
                std::string strText = date.ToString(pszFormat, true);
                CQLDateParser back;
                long long nExpected = nTime;
                // Midnight prints as "12 am" and reads back as noon.
                if (std::strpbrk(pszFormat, "aA") && date.GetHour() == 0) nExpected += 12 * 3600;
                ASSERT_EQ(back.FromString(strText, pszFormat, false), nExpected) << strText;
            }
        }
    }
    // The day count is the Gregorian one whatever the process zone, up to the year 4000,
    // from which its term for 4000 drops a day for each 4000 years.
    ScopedTz tz("EST5EDT,M3.2.0,M11.1.0");
    CQLDateParser date;
    for (int nYear : {1752, 1900, 1969, 2000, 2038, 2100, 3999, 4000, 8000})
        for (int nMonth = 1; nMonth <= 12; ++nMonth) {
            auto strValue = std::to_string(nYear) + "/" + std::to_string(nMonth) + "/28 23:59:58";
            long long nShift = nYear >= 8000 ? 2 : nYear >= 4000 ? 1 : 0;
            EXPECT_EQ(date.FromString(strValue, "YYYY/MM/DD hh:mm:ss", false) + nShift * 86400,
                      Utc(nYear, nMonth, 28, 23, 59, 58))
                << strValue;
        }
}

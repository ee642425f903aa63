#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

namespace {

const int N = CQLDateParser::NOSET;

// 2024-03-05 14:07:09.045, a Tuesday, at +0900.
CQLDateParser Reference() {
    CQLDateParser date;
    date.FromString("2024-03-05 14:07:09.045 Tue +0900", "YYYY-MM-DD hh:mm:ss.SSS DDD z", false);
    return date;
}

std::string ParseError(const std::string& strValue, const std::string& strFormat) {
    CQLDateParser date;
    try {
        date.FromString(strValue, strFormat, false);
    } catch (CQLDateParser& e) {
        return e.GetLastError();
    }
    return "no failure";
}

} // namespace

TEST(DateFormat, Printing) {
    CQLDateParser date = Reference();
    ASSERT_EQ(date.GetTimestamp(), 1709615229);
    const char* cases[][2] = {
        {"YYYY-MM-DD hh:mm:ss", "2024-03-05 14:07:09"},
        {"YY/M/D h:m:s", "24/3/5 14:7:9"},
        {"DDD, D MMM YYYY hh:mm:ss z", "Tue, 5 Mar 2024 14:07:09 +0900"},
        {"hh:mm a", "02:07 pm"},
        {"hh:mm A", "02:07 PM"},
        {"SSS|SS|S|SSSS", "045|45S|45|04545"},
        {"Y|YYY|YYYYYY", "Y|24Y|202424"},
        {"DDDDD|MMMM|hhh", "Tuesday5|March|1414"},
        {"\\Y\\D|\\\\|\\x[x]", "YD|\\|x[x]"},
        {"zz|AA|Z", "+0900+0900|PM|KST"},
        {"YYYY\\", "2024"},
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
    try {
        date.ToString("YYYY", true);
        FAIL();
    } catch (CQLDateParser& e) {
        EXPECT_EQ(e.GetLastError(), "In ToString(), Invalid timestamp.");
    }
}

TEST(DateFormat, MonthsOutOfRangeStayInsideTables) {
    CQLDateParser date = Reference();
    for (int nMonth : {0, 13, -7, 100000}) {
        EXPECT_THROW(date.SetValue(N, nMonth, N, N, N, N, N), CQLDateParser); // stays stored
        // The locale road has no check of its own and prints nothing.
        EXPECT_EQ(date.ToString("[MMM][MMMM][M]", false), "[][][" + std::to_string(nMonth) + "]");
        const char* cases[][2] = {{"MMM", "In GetMonthName(), Invalid month."},
                                  {"MMMM", "In GetLongMonthName(), Invalid month."}};
        for (const auto& c : cases) {
            try {
                date.ToString(c[0], true);
                ADD_FAILURE() << "printed month " << nMonth;
            } catch (CQLDateParser&) {
                ADD_FAILURE() << "plain failure expected";
            } catch (CQLExceptionParser& e) {
                EXPECT_EQ(e.GetLastError(), c[1]);
            }
        }
    }
}

TEST(DateFormat, LocaleNames) {
    CQLDateParser date = Reference();
    {
        ScopedLocale locale("C");
        ASSERT_TRUE(locale.Ok());
        EXPECT_EQ(date.ToString("DDD DDDD MMM MMMM A a", false), "Tue Tuesday Mar March PM PM");
    }
    ScopedLocale locale("ko_KR.UTF-8");
    if (!locale.Ok()) GTEST_SKIP() << "locale ko_KR.UTF-8 cannot be set; Korean names not checked";
    EXPECT_EQ(date.ToString("DDD|DDDD|MMM|MMMM|hh A|a", false), "화|화요일| 3월|3월|02 오후|오후");
    date.FromString("2024-03-05 12:00", "YYYY-MM-DD hh:mm", false);
    EXPECT_EQ(date.ToString("A", false), "오전");
}

TEST(DateFormat, Parsing) {
    DateProbe date;
    EXPECT_EQ(date.FromString("2024-03-05 14:07:09", "YYYY-MM-DD hh:mm:ss", false), 1709647629);
    EXPECT_EQ(date.Zone(), "+0000");
    // Separators are skipped by count, not compared.
    EXPECT_EQ(date.FromString("2024x03/05T14.07,09", "YYYY-MM-DD hh:mm:ss", false), 1709647629);
    EXPECT_EQ(date.FromString("2024-3-5 14:7:9 +09:00", "YYYY-M-D h:m:s z", false), 1709615229);
    EXPECT_EQ(date.FromString("2024-03-05 14:07:09 kst", "YYYY-MM-DD hh:mm:ss z", false),
              1709615229);
    EXPECT_EQ(date.FromString("2024-03-05 14:07:09 -0330", "YYYY-MM-DD hh:mm:ss z", false),
              1709660229);
    {
        ScopedTz tz("KST-9");
        EXPECT_EQ(date.FromString("2024-03-05 14:07:09", "YYYY-MM-DD hh:mm:ss", true), 1709615229);
        EXPECT_EQ(date.Zone(), "+0900");
    }

    const char* cases[][3] = {
        {"05 Mar 24", "DD MMM YY", "2024-03-05 0"},
        {"05 mAR 69", "DD MMM YY", "2069-03-05 0"},
        {"05 Mar 70", "DD MMM YY", "1970-03-05 0"},
        {"05 Mar 0099", "DD MMM YYYY", "1999-03-05 0"},
        {"05 Mar 1752", "DD MMM YYYYY", "1752-03-05 0"},
        {"Feburary 5 2024", "MMMM D YYYY", "2024-02-05 0"},
        {"sePTEMBEROct 5 2024", "MMMMMMM D YYYY", "2024-10-05 0"},
        {"Wednesday, 6 March 2024", "DDDD, D MMMM YYYY", "2024-03-06 3"},
        {"Wednes 6/3/2024", "DDDD D/M/YYYY", "2024-03-06 3"},
        {"x Mon 2024.1.1", "  DDD YYYY.M.D", "2024-01-01 1"},
        {"2024-03-05", "\\YYYYY-MM-DD", "2024-03-05 0"}, // an escaped letter takes no byte
        {"2024-03-05", "YYYY\\-MM-DD\\", "2024-03-05 0"},
        // The cursor starts behind an escaped "a" of the format: "99", not "19".
        {"1999-03-05", "\\aYY-MM-DD", "1999-03-05 0"},
    };
    for (const auto& c : cases) {
        ASSERT_NO_THROW(date.FromString(c[0], c[1], false)) << c[0] << ": " << date.GetLastError();
        char szFields[32];
        std::snprintf(szFields, sizeof(szFields), "%04d-%02d-%02d %d", date.GetYear(),
                      date.GetMonth(), date.GetDay(), date.GetDayOfWeek());
        EXPECT_STREQ(szFields, c[2]);
    }
}

TEST(DateFormat, TwelveHourRule) {
    // "PM" anywhere adds 12 and 24 wraps to 0, so noon and midnight swap.
    const char* cases[][2] = {{"02:07 PM", "14"}, {"02:07 pm", "14"},    {"02:07 Pm", "14"},
                              {"02:07 pM", "2"},  {"12:07 PM", "0"},     {"12:07 AM", "12"},
                              {"00:07 AM", "0"},  {"02:07 AMx PM", "14"}};
    for (const auto& c : cases) {
        CQLDateParser date;
        date.FromString(std::string("2024-03-05 ") + c[0], "YYYY-MM-DD hh:mm A", false);
        EXPECT_EQ(std::to_string(date.GetHour()), c[1]) << c[0];
    }
    EXPECT_EQ(ParseError("2024-03-05 13:07 PM", "YYYY-MM-DD hh:mm a"),
              "In FromString(), Invalid data: HOUR[25] must be between 0 and 23");
    // Without a mark in the format the hour is taken as it is.
    EXPECT_EQ(ParseError("2024-03-05 24:00 PM", "YYYY-MM-DD hh:mm"),
              "In FromString(), Invalid data: HOUR[24] must be between 0 and 23");
    EXPECT_EQ(ParseError("2024-03-05 02:07 PMam", "YYYY-MM-DD hh:mm AA"), "no failure");
}

TEST(DateFormat, ParsingFailuresStayInsideTheValue) {
    const char* cases[][3] = {
        {"03-05", "MM-DD", "Invalid data: YEAR[0] must be between 1752 and 8000"},
        {"x Mon", "  DDD", "Invalid data: YEAR[0] must be between 1752 and 8000"},
        {"2000-02-29", "YYYY-MM-DD", "Invalid data: DAY[29] must be between 1 and 28"},
        {"2024-03-05 +2400", "YYYY-MM-DD z",
         "Invalid data: Timezone HOUR[24] must be between 0 and 23"},
        {"Mon", "DDD", nullptr}, // a bare name needs a value of four bytes
        {"abc", "YYYY", nullptr},
        {"2024-03-05 Tu", "YYYY-MM-DD DDD", nullptr},
        {"2024-03-05 Xyz", "YYYY-MM-DD DDD", nullptr},
        {"2024-03-Ma", "YYYY-MM-MMM", nullptr},
        {"2024-03-05 02:07 P", "YYYY-MM-DD hh:mm A", nullptr},
        {"2024-03-05 02:07 QM", "YYYY-MM-DD hh:mm A", nullptr},
        {"2024-03-05 02:07 PM", "YYYY-MM-DD hh:mm AA", nullptr},
        {"2024-03-05 +09", "YYYY-MM-DD z", nullptr},
        {"2024-03-05 EST", "YYYY-MM-DD z", nullptr},
        {"2024-03-05 ", "YYYY-MM-DD z", nullptr},
        {"2024-03-05", "YYYY-MM-DD            hh", nullptr},
        {"2024-03-05", "YYYY-MM-DD            z", nullptr},
        {"2024-03-05", "YYYY-MM-DD            DDDD", nullptr},
        {"2024-03-05", "YYYY-MM-DD            a", nullptr},
    };
    for (const auto& c : cases) {
        std::string strExpected =
            c[2] ? std::string("In FromString(), ") + c[2]
                 : "In FromString(), invalid format[" + std::string(c[0]) + "]";
        EXPECT_EQ(ParseError(c[0], c[1]), strExpected) << c[0] << " / " << c[1];
    }
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
    for (int nYear : {1752, 1900, 1969, 2000, 2038, 2100, 3999, 4000, 8000}) {
        for (int nMonth = 1; nMonth <= 12; ++nMonth) {
            std::string strValue =
                std::to_string(nYear) + "-" + std::to_string(nMonth) + "-28 23:59:58";
            long long nShift = nYear >= 8000 ? 2 : nYear >= 4000 ? 1 : 0;
            EXPECT_EQ(date.FromString(strValue, "YYYY-MM-DD hh:mm:ss", false) + nShift * 86400,
                      Utc(nYear, nMonth, 28, 23, 59, 58))
                << strValue;
        }
    }
}

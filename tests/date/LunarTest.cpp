#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

namespace {

const int kTotal[7] = {0, 29, 30, 58, 59, 59, 60}; // days of a month code, leap month included

std::string Row(int nYear) {
    std::string str;
    for (unsigned char c : CQLDateParser::LunarTable[nYear - 1841])
        str += static_cast<char>('0' + c);
    return str;
}

std::string Text(int y, int m, int d) {
    return std::to_string(y) + "-" + std::to_string(m) + "-" + std::to_string(d);
}

std::string Lunar(int y, int m, int d) {
    int ly = 0, lm = 0, ld = 0;
    try {
        CQLDateParser::ToLunar(y, m, d, ly, lm, ld);
    } catch (CQLExceptionParser& e) {
        return e.GetLastError();
    }
    return Text(ly, lm, ld);
}

std::string Solar(int y, int m, int d, bool bLeap) {
    int sy = 0, sm = 0, sd = 0;
    try {
        CQLDateParser::ToSolar(y, m, d, sy, sm, sd, bLeap);
    } catch (CQLExceptionParser& e) {
        return e.GetLastError();
    }
    return Text(sy, sm, sd);
}

} // namespace

TEST(Lunar, TableAsPrinted) {
    EXPECT_EQ(sizeof(CQLDateParser::LunarTable), 2436u);
    EXPECT_EQ(Row(1841), "124112121221");
    EXPECT_EQ(Row(1900), "121121252212");
    EXPECT_EQ(Row(2012), "216212112121");
    EXPECT_EQ(Row(2043), "121121122122");
    int nLeapRows = 0, nShortest = 1000, nLongest = 0;
    for (int y = 1841; y <= 2043; ++y) {
        int nDays = 0, nLeaps = 0;
        for (char c : Row(y)) {
            ASSERT_TRUE(c >= '1' && c <= '6') << y;
            nDays += kTotal[c - '0'];
            nLeaps += c >= '3';
        }
        ASSERT_LE(nLeaps, 1) << y;
        nLeapRows += nLeaps;
        nShortest = std::min(nShortest, nDays);
        nLongest = std::max(nLongest, nDays);
    }
    EXPECT_EQ(nLeapRows, 75);
    EXPECT_EQ(nShortest, 353);
    EXPECT_EQ(nLongest, 385);
}

TEST(Lunar, ToLunar) {
    const char* cases[][2] = {
        {"1841-1-23", "1841-1-1"},
        {"1841-1-1", "1841-1--21"}, // before the table, not refused
        {"2010-9-22", "2010-8-15"},
        {"2012-5-21", "2012-4-1"},
        {"2000-3-1", "2000-1-25"},
        {"2024-2-10", "2024-1-1"},
        {"2024-2-9", "2023-12-30"},
        {"2000-2-5", "2000-1-1"},
        {"1900-1-31", "1900-1-1"},
        {"1840-12-31", "In ToLunar(1840/12/31), YEAR must be between 1841 and 2043"},
        {"2044-1-1", "In ToLunar(2044/1/1), YEAR must be between 1841 and 2043"},
        {"2000-13-1", "In ToLunar(2000/13/1), MONTH must be between 1 and 12"},
        // The day text shows the month less one.
        {"2000-2-29", "In ToLunar(2000/1/29), DAY must be between 1 and 28"},
    };
    for (const auto& c : cases) {
        int y, m, d;
        std::sscanf(c[0], "%d-%d-%d", &y, &m, &d);
        EXPECT_EQ(Lunar(y, m, d), c[1]) << c[0];
    }
    CQLDateParser date;
    date.SetValue(2012, 5, 21, 0, 0, 0, 0);
    int ly = 0, lm = 0, ld = 0;
    EXPECT_TRUE(date.ToLunar(ly, lm, ld));
    EXPECT_EQ(Text(ly, lm, ld), "2012-4-1");
}

// Walks every solar day of the library's calendar, and follows the month lengths of the
// table on the lunar side by itself.
TEST(Lunar, ToLunarFollowsTableEveryDay) {
    int y = 1841, m = 1, d = 23;
    int ly = 1841, lm = 1, ld = 1;
    bool bInLeap = false;
    int nSteps = 0;
    auto advance = [&] {
        int nCode = CQLDateParser::LunarTable[ly - 1841][lm - 1];
        int nRegular = (nCode == 2 || nCode >= 5) ? 30 : 29;
        int nLength = bInLeap ? kTotal[nCode] - nRegular : nRegular;
        if (++ld <= nLength) return;
        ld = 1;
        bInLeap = !bInLeap && nCode > 2;
        if (!bInLeap && ++lm > 12) {
            lm = 1;
            ++ly;
        }
    };
    for (;;) {
        int ry = 0, rm = 0, rd = 0;
        ASSERT_TRUE(CQLDateParser::ToLunar(y, m, d, ry, rm, rd));
        ASSERT_EQ(Text(ry, rm, rd), Text(ly, lm, ld)) << Text(y, m, d);
        ++nSteps;
        if (++d > CQLDateParser::GetDaysInMonth(y, m)) {
            d = 1;
            if (++m > 12) {
                m = 1;
                if (++y > 2043) break;
                // The count of days uses GetDaysInMonth only within a year: 1900, which
                // gained 1900-02-29, gives its last lunar day again on 1901-01-01; 2000,
                // which lost 2000-02-29, skips one lunar day at 2001-01-01.
                if (y == 1901) continue;
                if (y == 2001) advance();
            }
        }
        advance();
    }
    EXPECT_EQ(nSteps, 74122); // 1841-01-23 to 2043-12-31
}

TEST(Lunar, ToSolar) {
    const char* cases[][2] = {
        {"1841-1-1", "1841-1-23"},
        {"2012-1-1", "2012-1-23"},
        // After January the walk has no February: dates come out shifted.
        {"2000-1-1", "2000-3-5"},
        {"2012-3-15", "2012-5-4"},
        {"2012-3-15L", "2012-6-3"},
        {"2012-4-15L", "2012-7-3"}, // no leap month: the flag is dropped
        {"2012-4-15", "2012-7-3"},
        // Past day-of-year 337 month 12 keeps the remaining days.
        {"2023-10-21", "2023-12-31"},
        {"2023-10-22", "2023-12-32"},
        {"2024-12-1", "2024-12-60"},
        {"2043-12-29", "2044-1-28"},
        // Texts quote the output arguments, not the input.
        {"2012-0-1", "In ToSolar(0/0/0), MONTH must be between 1 and 12"},
        {"1841-1-30", "In ToSolar(0/0/0), DAY must be between 1 and 29"},
        {"2012-3-31L", "In ToSolar(0/0/0), DAY must be between 1 and 30"},
    };
    for (const auto& c : cases) {
        int y, m, d;
        std::sscanf(c[0], "%d-%d-%d", &y, &m, &d);
        EXPECT_EQ(Solar(y, m, d, std::strchr(c[0], 'L') != nullptr), c[1]) << c[0];
    }

    // January round trip over the whole table, leap months included.
    int nChecked = 0;
    for (int y = 1841; y <= 2043; ++y) {
        for (int m = 1; m <= 12; ++m) {
            for (int nLeap = 0; nLeap <= (CQLDateParser::LunarTable[y - 1841][m - 1] > 2);
                 ++nLeap) {
                for (int d = 1; d <= 29; ++d) {
                    int sy = 0, sm = 0, sd = 0;
                    CQLDateParser::ToSolar(y, m, d, sy, sm, sd, nLeap == 1);
                    if (sm != 1 || sy > 2043) continue;
                    ASSERT_EQ(Lunar(sy, sm, sd), Text(y, m, d)) << Text(sy, sm, sd);
                    ++nChecked;
                }
            }
        }
    }
    EXPECT_GT(nChecked, 202 * 28);

    // The member form writes year, month and day only, and quotes its own date.
    CQLDateParser date;
    date.SetValue(2024, 3, 5, 14, 7, 9, 0);
    long long nStamp = date.GetTimestamp();
    EXPECT_TRUE(date.ToSolar(2012, 1, 1, false));
    EXPECT_EQ(date.ToString("YYYY-MM-DD hh", true), "2012-01-23 14");
    EXPECT_EQ(date.GetTimestamp(), nStamp);
    try {
        date.ToSolar(1800, 1, 1, false);
        FAIL();
    } catch (CQLExceptionParser& e) {
        EXPECT_EQ(e.GetLastError(), "In ToSolar(2012/1/23), YEAR must be between 1841 and 2043");
    }
}

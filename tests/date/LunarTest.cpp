#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

const int kTotal[7] = {0, 29, 30, 58, 59, 59, 60}; // days of a month code, leap month included

std::string Text(int y, int m, int d) {
    return std::to_string(y) + "-" + std::to_string(m) + "-" + std::to_string(d);
}

// Takes "y-m-d" (with "L" for the leap month), a blank and the result, or the failure.
void CheckConversion(const std::string& strCase, bool bToLunar) {
    int y, m, d, ry = 0, rm = 0, rd = 0;
    std::sscanf(strCase.c_str(), "%d-%d-%d", &y, &m, &d);
    bool bLeap = strCase.find('L') < strCase.find(' ');
    std::string strOutcome = Outcome([&] {
        bToLunar ? CQLDateParser::ToLunar(y, m, d, ry, rm, rd)
                 : CQLDateParser::ToSolar(y, m, d, ry, rm, rd, bLeap);
    });
    if (strOutcome == "ok") strOutcome = Text(ry, rm, rd);
    EXPECT_EQ(strCase.substr(0, strCase.find(' ') + 1) + strOutcome, strCase);
}

} // namespace

TEST(Lunar, TableAsPrinted) {
    int nLeapRows = 0, nShortest = 1000, nLongest = 0;
    std::string strRows;
    for (int y = 1841; y <= 2043; ++y) {
        int nDays = 0;
        for (unsigned char c : CQLDateParser::LunarTable[y - 1841]) {
            ASSERT_TRUE(c >= 1 && c <= 6) << y;
            nDays += kTotal[c];
            nLeapRows += c >= 3;
            if (y == 1841 || y == 1900 || y == 2012 || y == 2043) strRows += char('0' + c);
        }
        nShortest = std::min(nShortest, nDays);
        nLongest = std::max(nLongest, nDays);
    }
    EXPECT_EQ(strRows, "124112121221121121252212216212112121121121122122");
    EXPECT_EQ(nLeapRows, 75); // so no row has two
    EXPECT_EQ(nShortest, 353);
    EXPECT_EQ(nLongest, 385);
}

TEST(Lunar, Conversions) {
    // Solar to lunar: the first day of the table and known festival and new-year dates; a
    // day before the table is not refused. The day text shows the month less one.
    for (const char* psz : {"1841-1-23 1841-1-1", "1841-1-1 1841-1--21", "2010-9-22 2010-8-15",
                            "2012-5-21 2012-4-1", "2000-3-1 2000-1-25", "2024-2-10 2024-1-1",
                            "1840-12-31 In ToLunar(1840/12/31), YEAR must be between 1841 and 2043",
                            "2044-1-1 In ToLunar(2044/1/1), YEAR must be between 1841 and 2043",
                            "2000-13-1 In ToLunar(2000/13/1), MONTH must be between 1 and 12",
                            "2000-2-29 In ToLunar(2000/1/29), DAY must be between 1 and 28"})
        CheckConversion(psz, true);
    // Lunar to solar ("L": the leap month, dropped where there is none). After January the
    // walk has no February, so dates come out shifted; past day-of-year 337 month 12 keeps
    // the remaining days. Texts quote the output arguments, not the input.
    for (const char* psz :
         {"1841-1-1 1841-1-23", "2012-1-1 2012-1-23", "2000-1-1 2000-3-5", "2012-3-15 2012-5-4",
          "2012-3-15L 2012-6-3", "2012-4-15L 2012-7-3", "2023-10-21 2023-12-31",
          "2023-10-22 2023-12-32", "2024-12-1 2024-12-60", "2043-12-29 2044-1-28",
          "2012-0-1 In ToSolar(0/0/0), MONTH must be between 1 and 12",
          "1841-1-30 In ToSolar(0/0/0), DAY must be between 1 and 29",
          "2012-3-31L In ToSolar(0/0/0), DAY must be between 1 and 30"})
        CheckConversion(psz, false);

    // The member forms: ToLunar leaves the object, ToSolar writes year, month and day only
    // and quotes the object's own date.
    CQLDateParser date;
    long long nStamp = date.SetValue(2012, 5, 21, 14, 7, 9, 0);
    int ly = 0, lm = 0, ld = 0;
    EXPECT_TRUE(date.ToLunar(ly, lm, ld) && date.ToSolar(2012, 1, 1, false));
    EXPECT_EQ(Text(ly, lm, ld) + date.ToString(" YYYY-MM-DD hh", true), "2012-4-1 2012-01-23 14");
    EXPECT_EQ(date.GetTimestamp(), nStamp);
    EXPECT_EQ(Outcome([&] { date.ToSolar(1800, 1, 1, false); }),
              "In ToSolar(2012/1/23), YEAR must be between 1841 and 2043");
}

// Walks every solar day of the library's calendar, following the month lengths of the
// table on the lunar side by itself; every January day also comes back through ToSolar.
TEST(Lunar, EveryDayFollowsTheTable) {
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
        if (m == 1) {
            ASSERT_TRUE(CQLDateParser::ToSolar(ly, lm, ld, ry, rm, rd, bInLeap));
            ASSERT_EQ(Text(ry, rm, rd), Text(y, m, d)) << Text(ly, lm, ld) << bInLeap;
        }
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

#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// Reads a symbol; gives the zone as "+hhmm", the consumed count and the name, or "failure".
std::string ReadSymbol(const std::string& strText) {
    DateProbe date;
    const char* psz = strText.c_str();
    if (Outcome([&] { date.FromTimezoneSymbol(&psz); }) != "ok")
        return psz == strText.c_str() ? "failure" : "failure, pointer moved";
    return date.Zone() + " " + std::to_string(psz - strText.c_str()) + " " + date.TzName();
}

} // namespace

class Rfc822Zones : public ::testing::TestWithParam<const char*> {};

// Whatever the process's zone, in summer or winter, in gaps and repeated hours of daylight
// saving and in years a zone kept other rules, a value gives the same instant, and the
// fields are a local view of it with the process's zone and name.
TEST_P(Rfc822Zones, SameInstantEverywhere) {
    if (!HaveZoneFile(GetParam())) GTEST_SKIP() << "no zone file for " << GetParam();
    ScopedTz tz(GetParam());
    struct {
        const char* pszValue;
        int y, mo = 0, d = 0, h = 0, mi = 0, s = 0; // UTC; a year of 0: refused
    } cases[] = {
        {"Tue, 05 Mar 2024 14:07:09 +0900", 2024, 3, 5, 5, 7, 9},
        {"Mon, 15 Jul 2024 14:07:09 -0400", 2024, 7, 15, 18, 7, 9},
        {"15 Jul 2024 02:30 -0330", 2024, 7, 15, 6, 0, 0},
        {"Sun, 10 Mar 2024 02:30:00 -0500", 2024, 3, 10, 7, 30, 0},
        {"Sun, 15 May 1988 12:00:00 +0900", 1988, 5, 15, 3, 0, 0},
        {"Sun, 03 Nov 2024 01:30:00 CDT", 2024, 11, 3, 6, 30, 0},
        {"05 Mar 2024 14:07 GMT", 2024, 3, 5, 14, 7, 0},
        {"Tue, 05 Mar 2024 14:07 KST", 2024, 3, 5, 5, 7, 0},
        {"5 Mar 2024 14:07:09 +0900 (KST)", 2024, 3, 5, 5, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 +09:00", 2024, 3, 5, 5, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 +9 30", 2024, 3, 5, 4, 37, 9},
        {"\t Tue, 05 Mar 2024 14:07:09 +0900\r\n", 2024, 3, 5, 5, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 Z (UTC)", 2024, 3, 6, 2, 7, 9}, // "Z" then more: -1200
        {"Tue, 05 Mar 2024 14:07:09", 0},
        {"Tue, 05 Mar 2024 14:07:09 EST", 0},
        {"Tue, 05 Mar 2024 14:07:09 +09", 0},
        {"", 0},
        {" \r\n\t\v\f", 0},
    };
    for (const auto& c : cases) {
        DateProbe date;
        std::string strOutcome = Outcome([&] { date.FromRFC822(c.pszValue); });
        if (c.y == 0) {
            EXPECT_EQ(strOutcome,
                      "date: In FromRFC822(), Invalid Date Format, " + std::string(c.pszValue));
            continue;
        }
        ASSERT_EQ(strOutcome, "ok") << c.pszValue;
        time_t nTime = Utc(c.y, c.mo, c.d, c.h, c.mi, c.s);
        struct tm tmLocal;
        localtime_r(&nTime, &tmLocal);
        EXPECT_EQ(date.GetTimestamp(), nTime) << c.pszValue;
        EXPECT_EQ(date.GetHour(), tmLocal.tm_hour) << c.pszValue;
        EXPECT_EQ(date.TzName(), tzname[0]);
    }
    DateProbe date;
    date.FromRFC822("Tue, 05 Mar 2024 14:07:09 +0900");
    EXPECT_EQ(date.GetTimestamp(), 1709615229);
}

INSTANTIATE_TEST_SUITE_P(Zones, Rfc822Zones,
                         ::testing::Values("UTC", "Asia/Seoul", "America/New_York", "NST3:30"));

TEST(Rfc822, ReadingZoneSymbols) {
    std::istringstream table(
        "A+0100 ADT-0300 AHST-1000 AST-0400 AT-0200 B+0200 BDT-1000 BST-0300 BT+0300 C+0300 "
        "CADT+1030 CAST+0930 CAT-1000 CCT+0800 CDT-0500 CET+0100 CST-0600 D+0400 F+0600 "
        "FST+0200 FWT+0100 G+0700 GMT+0000 GST-0300 H+0800 HDT-0900 HST+0800 I+0900 IDL-1200 "
        "IDLE+1200 IDLW-1200 IST+0530 IT+0330 JDT+1000 JST+0900 JT+0730 K+1000 KST+0900 "
        "L+1100 O-0200 P-0300 PDT-0700 PST-0800 Q-0400 R-0500 S-0600 SADT+1030 SAST+0930 "
        "SST+0700 SWT+0100 T-0700 U-0800 UT+0000 V-0900 W-1000 WADT+0800 WAST+0700 WET+0000 "
        "WST+0800 X-1100 Y-1200 YDT-0800 YST-0900 Z+0000 ZP4+0400 ZP5+0500 ZP6+0600 ZST-0900");
    int nSymbols = 0;
    for (std::string strEntry; table >> strEntry; ++nSymbols) {
        std::string strName = strEntry.substr(0, strEntry.size() - 5), strLower = strName;
        std::string strZone = strEntry.substr(strName.size());
        std::string strTail = " " + std::to_string(strName.size()) + " ";
        for (char& c : strLower) c = static_cast<char>(std::tolower(c));
        EXPECT_EQ(ReadSymbol(strName), strZone + strTail + strName);
        // In any case; a following blank ends the symbol, except behind "Z".
        EXPECT_EQ(ReadSymbol(strLower + " 1"),
                  (strName == "Z" ? "-1200" : strZone) + strTail + strLower);
    }
    EXPECT_EQ(nSymbols, 68);
    const char* cases[][2] = {
        {"GX", "+0700 1 G"},      {"UTC", "+0000 2 UT"}, {"IDLX", "-1200 3 IDL"},
        {"gMt+1", "+0000 3 gMt"}, {"zulu", "-1200 1 z"}, {"IDLEW", "+1200 4 IDLE"},
        {"KSX", "failure"},       {"KS", "failure"},     {"GMX", "failure"},
        {"J ", "failure"},        {"E", "failure"},      {"MST", "failure"},
        {"NST", "failure"},       {"ZP", "failure"},     {"ZP7", "failure"},
        {"", "failure"},          {"+0900", "failure"},
    };
    for (const auto& c : cases) EXPECT_EQ(ReadSymbol(c[0]), c[1]) << c[0];
    CQLDateParser date;
    EXPECT_THROW(date.FromTimezoneSymbol(nullptr), CQLDateParser);
}

TEST(Rfc822, WritingZoneSymbols) {
    // Offset, then the symbol written for it; nullptr: refused.
    const char* cases[][2] = {
        {"+0000", "GMT"}, {"-0030", "GMT"},  {"+0100", "CET"},   {"-0100", "WAT"},
        {"+0330", "IT"},  {"-0330", "NST"},  {"+0500", "E"},     {"+0530", "IST"},
        {"+0545", "IST"}, {"+0900", "KST"},  {"+0930", "CAST"},  {"-1000", "HST"},
        {"-1200", "IDL"}, {"+1300", "NZDT"}, {"-1300", nullptr}, {"+1400", nullptr}};
    for (const auto& c : cases) {
        DateProbe date;
        date.FromString(std::string("2024-03-05 ") + c[0], "YYYY-MM-DD z", false);
        std::string strSymbol, strOutcome = Outcome([&] { strSymbol = date.ToTimezoneSymbol(); });
        // The symbol is kept as the name; a refusal throws the object.
        EXPECT_EQ(strOutcome == "ok" ? strSymbol + " " + date.TzName() : strOutcome.substr(0, 5),
                  c[1] ? std::string(c[1]) + " " + c[1] : "date:")
            << c[0];
    }
    // A name that was read is the answer.
    DateProbe date;
    date.FromString("2024-03-05 jst", "YYYY-MM-DD z", false);
    EXPECT_EQ(date.ToString("Z z", true), "jst +0900");
}

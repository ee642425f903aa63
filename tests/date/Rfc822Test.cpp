#include "date/DateTestSupport.h"

#include <gtest/gtest.h>

namespace {

// Reads a symbol; gives the zone as "+hhmm", the consumed count and the name, or "failure".
std::string ReadSymbol(const std::string& strText) {
    DateProbe date;
    const char* psz = strText.c_str();
    try {
        date.FromTimezoneSymbol(&psz);
    } catch (CQLDateParser&) {
        return psz == strText.c_str() ? "failure" : "failure, pointer moved";
    }
    return date.Zone() + " " + std::to_string(psz - strText.c_str()) + " " + date.TzName();
}

// A value, and the UTC fields it stands for; a year of 0 means refused.
struct Rfc822Case {
    const char* pszValue;
    int y, mo = 0, d = 0, h = 0, mi = 0, s = 0;
};

void CheckRfc822(const Rfc822Case& c) {
    DateProbe date;
    try {
        date.FromRFC822(c.pszValue);
    } catch (CQLDateParser& e) {
        EXPECT_EQ(c.y, 0) << "refused: " << c.pszValue;
        EXPECT_EQ(e.GetLastError(),
                  std::string("In FromRFC822(), Invalid Date Format, ") + c.pszValue);
        return;
    }
    ASSERT_NE(c.y, 0) << "accepted: " << c.pszValue;
    time_t nTime = Utc(c.y, c.mo, c.d, c.h, c.mi, c.s);
    EXPECT_EQ(date.GetTimestamp(), nTime) << c.pszValue;
    // The fields are a local view of the instant, with the process's zone and name.
    struct tm tmLocal;
    localtime_r(&nTime, &tmLocal);
    EXPECT_EQ(date.GetHour(), tmLocal.tm_hour) << c.pszValue;
    EXPECT_EQ(date.TzName(), tzname[0]);
}

} // namespace

class Rfc822Zones : public ::testing::TestWithParam<const char*> {};

// The instant does not depend on the process's zone, in summer or winter.
TEST_P(Rfc822Zones, SameInstantEverywhere) {
    if (!HaveZoneFile(GetParam())) GTEST_SKIP() << "no zone file for " << GetParam();
    ScopedTz tz(GetParam());
    const Rfc822Case cases[] = {
        {"Tue, 05 Mar 2024 14:07:09 +0900", 2024, 3, 5, 5, 7, 9},
        {"Mon, 15 Jul 2024 14:07:09 +0900", 2024, 7, 15, 5, 7, 9},
        {"Mon, 15 Jul 2024 14:07:09 -0400", 2024, 7, 15, 18, 7, 9},
        {"15 Jul 2024 02:30 -0330", 2024, 7, 15, 6, 0, 0},
        {"Sun, 10 Mar 2024 02:30:00 -0500", 2024, 3, 10, 7, 30, 0},
        {"Sun, 15 May 1988 12:00:00 +0900", 1988, 5, 15, 3, 0, 0},
        {"Sun, 03 Nov 2024 01:30:00 CDT", 2024, 11, 3, 6, 30, 0},
    };
    for (const Rfc822Case& c : cases) CheckRfc822(c);
    DateProbe date;
    date.FromRFC822("Tue, 05 Mar 2024 14:07:09 +0900");
    EXPECT_EQ(date.GetTimestamp(), 1709615229);
}

INSTANTIATE_TEST_SUITE_P(Zones, Rfc822Zones,
                         ::testing::Values("UTC", "Asia/Seoul", "America/New_York", "KST-9",
                                           "EST5EDT,M3.2.0,M11.1.0", "NST3:30"));

TEST(Rfc822, ShapesAndRefusals) {
    ScopedTz tz("Asia/Seoul");
    const Rfc822Case cases[] = {
        {"05 Mar 2024 14:07 GMT", 2024, 3, 5, 14, 7, 0},
        {"Tue, 05 Mar 2024 14:07 KST", 2024, 3, 5, 5, 7, 0},
        {"5 Mar 2024 14:07:09 +0900 (KST)", 2024, 3, 5, 5, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 +09:00", 2024, 3, 5, 5, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 +9 30", 2024, 3, 5, 4, 37, 9},
        {"\t Tue, 05 Mar 2024 14:07:09 +0900\r\n", 2024, 3, 5, 5, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 PST", 2024, 3, 5, 22, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 UTC", 2024, 3, 5, 14, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 Z", 2024, 3, 5, 14, 7, 9},
        {"Tue, 05 Mar 2024 14:07:09 Z (UTC)", 2024, 3, 6, 2, 7, 9}, // "Z" then more: -1200
        {"Tue, 05 Mar 2024 14:07:09", 0},
        {"Tue, 05 Mar 2024 14:07:09 EST", 0},
        {"Tue, 05 Mar 2024 14:07:09 +09", 0},
        {"Tue, 05 Mar 2024 14:07:09 J", 0},
        {"Tue, 05 Mar 2024", 0},
        {"", 0},
        {" \r\n\t\v\f", 0},
        {"yesterday", 0},
    };
    for (const Rfc822Case& c : cases) CheckRfc822(c);
}

TEST(Rfc822, ReadingZoneSymbols) {
    const char* symbols[][2] = {
        {"A", "+0100"},    {"ADT", "-0300"},  {"AHST", "-1000"}, {"AST", "-0400"},
        {"AT", "-0200"},   {"B", "+0200"},    {"BDT", "-1000"},  {"BST", "-0300"},
        {"BT", "+0300"},   {"C", "+0300"},    {"CADT", "+1030"}, {"CAST", "+0930"},
        {"CAT", "-1000"},  {"CCT", "+0800"},  {"CDT", "-0500"},  {"CET", "+0100"},
        {"CST", "-0600"},  {"D", "+0400"},    {"F", "+0600"},    {"FST", "+0200"},
        {"FWT", "+0100"},  {"G", "+0700"},    {"GMT", "+0000"},  {"GST", "-0300"},
        {"H", "+0800"},    {"HDT", "-0900"},  {"HST", "+0800"},  {"I", "+0900"},
        {"IDL", "-1200"},  {"IDLE", "+1200"}, {"IDLW", "-1200"}, {"IST", "+0530"},
        {"IT", "+0330"},   {"JDT", "+1000"},  {"JST", "+0900"},  {"JT", "+0730"},
        {"K", "+1000"},    {"KST", "+0900"},  {"L", "+1100"},    {"O", "-0200"},
        {"P", "-0300"},    {"PDT", "-0700"},  {"PST", "-0800"},  {"Q", "-0400"},
        {"R", "-0500"},    {"S", "-0600"},    {"SADT", "+1030"}, {"SAST", "+0930"},
        {"SST", "+0700"},  {"SWT", "+0100"},  {"T", "-0700"},    {"U", "-0800"},
        {"UT", "+0000"},   {"V", "-0900"},    {"W", "-1000"},    {"WADT", "+0800"},
        {"WAST", "+0700"}, {"WET", "+0000"},  {"WST", "+0800"},  {"X", "-1100"},
        {"Y", "-1200"},    {"YDT", "-0800"},  {"YST", "-0900"},  {"Z", "+0000"},
        {"ZP4", "+0400"},  {"ZP5", "+0500"},  {"ZP6", "+0600"},  {"ZST", "-0900"},
    };
    ASSERT_EQ(sizeof(symbols) / sizeof(symbols[0]), 68u);
    for (const auto& s : symbols) {
        std::string strName = s[0], strLower = s[0];
        for (char& c : strLower) c = static_cast<char>(std::tolower(c));
        std::string strTail = " " + std::to_string(strName.size()) + " ";
        EXPECT_EQ(ReadSymbol(strName), s[1] + strTail + strName);
        EXPECT_EQ(ReadSymbol(strLower), s[1] + strTail + strLower);
        // A following blank ends the symbol, except behind "Z".
        EXPECT_EQ(ReadSymbol(strName + " 1"),
                  (strName == "Z" ? "-1200" : s[1]) + strTail + strName);
    }
    const char* cases[][2] = {
        {"K 1", "+1000 1 K"},      {"GX", "+0700 1 G"},      {"UTC", "+0000 2 UT"},
        {"IDLX", "-1200 3 IDL"},   {"gMt+1", "+0000 3 gMt"}, {"zulu", "-1200 1 z"},
        {"IDLEW", "+1200 4 IDLE"}, {"KSX", "failure"},       {"KS", "failure"},
        {"GMX", "failure"},        {"J ", "failure"},        {"E", "failure"},
        {"MST", "failure"},        {"NST", "failure"},       {"ZP", "failure"},
        {"ZP7", "failure"},        {"", "failure"},          {"+0900", "failure"},
    };
    for (const auto& c : cases) EXPECT_EQ(ReadSymbol(c[0]), c[1]) << c[0];
    CQLDateParser date;
    EXPECT_THROW(date.FromTimezoneSymbol(nullptr), CQLDateParser);
}

TEST(Rfc822, WritingZoneSymbols) {
    // Offset, then the symbol written for it; nullptr: refused.
    const char* cases[][2] = {
        {"+0000", "GMT"}, {"-0030", "GMT"},  {"+0100", "CET"},   {"-0100", "WAT"},
        {"+0300", "BT"},  {"+0330", "IT"},   {"-0300", "BST"},   {"-0330", "NST"},
        {"+0500", "E"},   {"+0530", "IST"},  {"+0545", "IST"},   {"+0700", "WAST"},
        {"+0900", "KST"}, {"+0930", "CAST"}, {"-1000", "HST"},   {"+1100", "EADT"},
        {"-1200", "IDL"}, {"+1300", "NZDT"}, {"-1300", nullptr}, {"+1400", nullptr},
    };
    for (const auto& c : cases) {
        DateProbe date;
        date.FromString(std::string("2024-03-05 ") + c[0], "YYYY-MM-DD z", false);
        if (c[1] == nullptr) {
            EXPECT_THROW(date.ToString("Z", true), CQLDateParser) << c[0];
            continue;
        }
        EXPECT_EQ(date.ToTimezoneSymbol(), c[1]) << c[0];
        EXPECT_EQ(date.TzName(), c[1]) << c[0]; // kept for the next call
    }
    // A name that was read, or set from the process's zone, is the answer.
    DateProbe date;
    date.FromString("2024-03-05 jst", "YYYY-MM-DD z", false);
    EXPECT_EQ(date.ToString("Z z", true), "jst +0900");
    ScopedTz tz("KST-9");
    date.SetTimestamp(0, true);
    EXPECT_EQ(date.ToTimezoneSymbol(), "KST");
}

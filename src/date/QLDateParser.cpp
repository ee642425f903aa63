#include "date/QLDateParser.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <langinfo.h>
#include <sys/time.h>
#include <time.h>

const int CQLDateParser::MonthTable[12] = {31, 0, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

const char* const CQLDateParser::WeekDayNameTable[7] = {"Sun", "Mon", "Tue", "Wed",
                                                        "Thu", "Fri", "Sat"};
const char* const CQLDateParser::WeekDayLongNameTable[7] = {
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
const char* const CQLDateParser::MonthNameTable[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
// The spellings of February and June are part of the printed output and stay.
const char* const CQLDateParser::MonthLongNameTable[12] = {
    "January", "Feburary", "March",     "April",   "May",      "Jun",
    "July",    "August",   "September", "October", "November", "December"};

namespace {

// Long names as they are read: the usual English spelling, not the printed table.
const char* const g_pszReadDayNames[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                          "Thursday", "Friday", "Saturday"};
const char* const g_pszReadMonthNames[12] = {"January",   "February", "March",    "April",
                                             "May",       "June",     "July",     "August",
                                             "September", "October",  "November", "December"};

struct TzSymbol {
    const char* pszName;
    char cSign;
    int nHour;
    int nMin;
};

// The zone symbols that are read. Not the inverse of what ToTimezoneSymbol writes.
const TzSymbol g_TzSymbols[] = {
    {"A", '+', 1, 0},    {"ADT", '-', 3, 0},   {"AHST", '-', 10, 0},  {"AST", '-', 4, 0},
    {"AT", '-', 2, 0},   {"B", '+', 2, 0},     {"BDT", '-', 10, 0},   {"BST", '-', 3, 0},
    {"BT", '+', 3, 0},   {"C", '+', 3, 0},     {"CADT", '+', 10, 30}, {"CAST", '+', 9, 30},
    {"CAT", '-', 10, 0}, {"CCT", '+', 8, 0},   {"CDT", '-', 5, 0},    {"CET", '+', 1, 0},
    {"CST", '-', 6, 0},  {"D", '+', 4, 0},     {"F", '+', 6, 0},      {"FST", '+', 2, 0},
    {"FWT", '+', 1, 0},  {"G", '+', 7, 0},     {"GMT", '+', 0, 0},    {"GST", '-', 3, 0},
    {"H", '+', 8, 0},    {"HDT", '-', 9, 0},   {"HST", '+', 8, 0},    {"I", '+', 9, 0},
    {"IDL", '-', 12, 0}, {"IDLE", '+', 12, 0}, {"IDLW", '-', 12, 0},  {"IST", '+', 5, 30},
    {"IT", '+', 3, 30},  {"JDT", '+', 10, 0},  {"JST", '+', 9, 0},    {"JT", '+', 7, 30},
    {"K", '+', 10, 0},   {"KST", '+', 9, 0},   {"L", '+', 11, 0},     {"O", '-', 2, 0},
    {"P", '-', 3, 0},    {"PDT", '-', 7, 0},   {"PST", '-', 8, 0},    {"Q", '-', 4, 0},
    {"R", '-', 5, 0},    {"S", '-', 6, 0},     {"SADT", '+', 10, 30}, {"SAST", '+', 9, 30},
    {"SST", '+', 7, 0},  {"SWT", '+', 1, 0},   {"T", '-', 7, 0},      {"U", '-', 8, 0},
    {"UT", '+', 0, 0},   {"V", '-', 9, 0},     {"W", '-', 10, 0},     {"WADT", '+', 8, 0},
    {"WAST", '+', 7, 0}, {"WET", '+', 0, 0},   {"WST", '+', 8, 0},    {"X", '-', 11, 0},
    {"Y", '-', 12, 0},   {"YDT", '-', 8, 0},   {"YST", '-', 9, 0},    {"Z", '+', 0, 0},
    {"ZP4", '+', 4, 0},  {"ZP5", '+', 5, 0},   {"ZP6", '+', 6, 0},    {"ZST", '-', 9, 0},
};

// Written symbols by whole hours of offset: sign "+" with and without minutes, then "-".
const char* const g_pszTzWrite[14][4] = {
    {"GMT", "GMT", "GMT", "GMT"},  {"CET", "CET", "WAT", "WAT"},       {"EET", "EET", "AT", "AT"},
    {"BT", "IT", "BST", "NST"},    {"D", "D", "AST", "AST"},           {"E", "IST", "EST", "EST"},
    {"F", "F", "CST", "CST"},      {"WAST", "JT", "MST", "MST"},       {"CCT", "CCT", "PST", "PST"},
    {"KST", "CAST", "YST", "YST"}, {"JDT", "CADT", "HST", "HST"},      {"EADT", "EADT", "NT", "NT"},
    {"NZT", "NZT", "IDL", "IDL"},  {"NZDT", "NZDT", nullptr, nullptr},
};

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Letters fold by clearing bit 5; digits and other bytes compare as they are.
char FoldLetter(char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c & 0xDF) : c;
}

bool IsPrintLetter(char c) {
    return std::strchr("ADMSYZahmsz", c) != nullptr && c != 0;
}

bool IsParseLetter(char c) {
    return std::strchr("ADMSYahmsz", c) != nullptr && c != 0;
}

std::string Number(long long nValue, int nWidth) {
    char szBuf[32];
    std::snprintf(szBuf, sizeof(szBuf), "%0*lld", nWidth, nValue);
    return szBuf;
}

std::string LangInfo(nl_item nItem) {
    const char* psz = nl_langinfo(nItem);
    return psz ? psz : "";
}

// Finds the first "a" or "A" that no backslash stands before. nPos is left behind the
// last escaped hit; FromString goes on to use it as its value cursor.
bool DetectAmPm(const std::string& strFormat, unsigned long& nPos) {
    for (;;) {
        std::string::size_type nHit = strFormat.find_first_of("aA", nPos);
        if (nHit == std::string::npos) return false;
        if (nHit == 0 || strFormat[nHit - 1] != '\\') return true;
        nPos = nHit + 1;
    }
}

int RegularLength(int nCode) {
    return (nCode == 2 || nCode == 5 || nCode == 6) ? 30 : 29;
}

int LeapLength(int nCode) {
    return (nCode == 4 || nCode == 6) ? 30 : 29;
}

int MonthCodeLength(int nCode) {
    return RegularLength(nCode) + (nCode > 2 ? LeapLength(nCode) : 0);
}

int LunarYearLength(int nRow) {
    int nDays = 0;
    for (int i = 0; i < 12; ++i) nDays += MonthCodeLength(CQLDateParser::LunarTable[nRow][i]);
    return nDays;
}

std::string DateText(int nYear, int nMonth, int nDay) {
    return std::to_string(nYear) + "/" + std::to_string(nMonth) + "/" + std::to_string(nDay);
}

} // namespace

CQLDateParser::CQLDateParser() {
    Init();
}

CQLDateParser::CQLDateParser(const CQLDateParser& other) = default;
CQLDateParser& CQLDateParser::operator=(const CQLDateParser& other) = default;
CQLDateParser::~CQLDateParser() {}

void CQLDateParser::Init() {
    m_nTimestamp = 0;
    m_nYear = m_nMonth = m_nDay = 0;
    m_nHour = m_nMin = m_nSec = m_nMSec = 0;
    m_nDayOfWeek = m_nDayOfYear = 0;
    m_nTzHour = m_nTzMin = 0;
    m_cTzSign = '+';
    m_strTzName.clear();
}

// ---------------------------------------------------------------------------------------------
// Date value

long long CQLDateParser::SetValue(const int& nYear, const int& nMonth, const int& nDay,
                                  const int& nHour, const int& nMin, const int& nSec,
                                  const int& nMSec) {
    if (nYear != NOSET) m_nYear = nYear;
    if (nMonth != NOSET) m_nMonth = nMonth;
    if (nDay != NOSET) m_nDay = nDay;
    if (nHour != NOSET) m_nHour = nHour;
    if (nMin != NOSET) m_nMin = nMin;
    if (nSec != NOSET) m_nSec = nSec;
    if (nMSec != NOSET) m_nMSec = nMSec;

    if (!IsValid()) {
        m_strLastError = "In SetValue(), Invalid data: " + m_strLastError;
        throw *this;
    }

    struct tm tmValue;
    std::memset(&tmValue, 0, sizeof(tmValue));
    tmValue.tm_year = m_nYear - 1900;
    tmValue.tm_mon = m_nMonth - 1;
    tmValue.tm_mday = m_nDay;
    tmValue.tm_hour = m_nHour;
    tmValue.tm_min = m_nMin;
    tmValue.tm_sec = m_nSec;
    m_nTimestamp = mktime(&tmValue);
    return m_nTimestamp;
}

bool CQLDateParser::IsValid(std::string& strError, int nYear, int nMonth, int nDay, int nHour,
                            int nMin, int nSec, int nMSec) {
    if (nYear < 1752 || nYear > 8000) {
        strError = "YEAR[" + std::to_string(nYear) + "] must be between 1752 and 8000";
        return false;
    }
    if (nMonth < 1 || nMonth > 12) {
        strError = "MONTH[" + std::to_string(nMonth) + "] must be between 1 and 12";
        return false;
    }
    int nDays = GetDaysInMonth(nYear, nMonth);
    if (nDay < 1 || nDay > nDays) {
        strError =
            "DAY[" + std::to_string(nDay) + "] must be between 1 and " + std::to_string(nDays);
        return false;
    }
    // Unsigned, so that negative values fail as well.
    if (static_cast<unsigned int>(nHour) > 23) {
        strError = "HOUR[" + std::to_string(nHour) + "] must be between 0 and 23";
        return false;
    }
    if (static_cast<unsigned int>(nMin) > 59) {
        strError = "MINUTE[" + std::to_string(nMin) + "] must be between 0 and 59";
        return false;
    }
    if (static_cast<unsigned int>(nSec) > 59) {
        strError = "SECOND[" + std::to_string(nSec) + "] must be between 0 and 59";
        return false;
    }
    if (static_cast<unsigned int>(nMSec) > 999) {
        strError = "Milli SECOND[" + std::to_string(nMSec) + "] must be between 0 and 999";
        return false;
    }
    return true;
}

bool CQLDateParser::IsValid() {
    if (!IsValid(m_strLastError, m_nYear, m_nMonth, m_nDay, m_nHour, m_nMin, m_nSec, m_nMSec))
        return false;
    if (m_cTzSign != '+' && m_cTzSign != '-') {
        m_strLastError = "Timezone Sign[" + std::string(1, m_cTzSign) + "] must be '+' or '-'";
        return false;
    }
    if (static_cast<unsigned int>(m_nTzHour) > 23) {
        m_strLastError =
            "Timezone HOUR[" + std::to_string(m_nTzHour) + "] must be between 0 and 23";
        return false;
    }
    if (static_cast<unsigned int>(m_nTzMin) > 59) {
        m_strLastError =
            "Timezone MINUTE[" + std::to_string(m_nTzMin) + "] must be between 0 and 59";
        return false;
    }
    return true;
}

// The process's standard offset; daylight saving is not looked at.
void CQLDateParser::SetLocalZone() {
    tzset();
    long nOffset = timezone;
    if (nOffset < 0) {
        m_cTzSign = '+';
        nOffset = -nOffset;
    } else {
        m_cTzSign = '-';
    }
    m_nTzHour = static_cast<int>(nOffset / 3600);
    m_nTzMin = static_cast<int>((nOffset % 3600) / 60);
}

void CQLDateParser::FromTimestamp(bool bLocal) {
    time_t nTime = static_cast<time_t>(m_nTimestamp);
    struct tm tmValue;
    struct tm* pTm = bLocal ? localtime_r(&nTime, &tmValue) : gmtime_r(&nTime, &tmValue);
    if (pTm == nullptr) throw CQLExceptionParser("In FromTimestamp(), can't get the localtime", 0);

    m_nYear = tmValue.tm_year + 1900;
    m_nMonth = tmValue.tm_mon + 1;
    m_nDay = tmValue.tm_mday;
    m_nHour = tmValue.tm_hour;
    m_nMin = tmValue.tm_min;
    m_nSec = tmValue.tm_sec;
    m_nDayOfWeek = tmValue.tm_wday;
    m_nDayOfYear = tmValue.tm_yday;

    if (bLocal) {
        SetLocalZone();
        if (tzname[0] != nullptr) m_strTzName = tzname[0];
    }
}

void CQLDateParser::SetTimestamp(const long& nTime, bool bLocal) {
    Init();
    m_nTimestamp = nTime;
    FromTimestamp(bLocal);
}

CQLDateParser CQLDateParser::GetCurrent(bool bLocal) {
    CQLDateParser date;
    struct timeval tvNow;
    gettimeofday(&tvNow, nullptr);
    date.m_nTimestamp = tvNow.tv_sec;
    date.m_nMSec = static_cast<int>(tvNow.tv_usec / 1000);
    date.FromTimestamp(bLocal);
    return date;
}

long long CQLDateParser::GetCurrentTimestamp() {
    return time(nullptr);
}

// Java callers hand over seconds or milliseconds; anything past the 32-bit range of
// seconds is taken to be milliseconds already.
long long CQLDateParser::GetJavaTime(long long nTime) {
    if (nTime > 2147483646LL) return nTime;
    return nTime * 1000;
}

bool CQLDateParser::IsLeapYear(const int& nYear) {
    return (nYear % 4 == 0 && nYear % 100 != 0) || nYear % 400 == 0;
}

int CQLDateParser::GetDaysInYear(int nYear) {
    return IsLeapYear(nYear) ? 366 : 365;
}

// February of a century year is the reverse of the Gregorian rule: the library's calendar
// has 1900-02-29 and no 2000-02-29, and validation and ToLunar follow it.
int CQLDateParser::GetDaysInMonth(int nYear, int nMonth) {
    if (nMonth == 2) {
        if (nYear % 4 != 0) return 28;
        if (nYear % 100 != 0) return 29;
        return (nYear % 400 == 0) ? 28 : 29;
    }
    if (nMonth < 1 || nMonth > 12) return 0;
    return MonthTable[nMonth - 1];
}

int CQLDateParser::GetDaysInYear() const {
    return GetDaysInYear(m_nYear);
}

int CQLDateParser::GetDaysInMonth() const {
    return GetDaysInMonth(m_nYear, m_nMonth);
}

// ISO-style week number. The day of the year is taken one less than tm_yday gives, so the
// week turns a day late; stored week numbers depend on it.
int CQLDateParser::GetWeekNumber(int& nYear) const {
    int nDay = m_nDayOfYear - 1;
    int nWeekDay = m_nDayOfWeek;
    nYear = m_nYear;
    const int nDaysInYear = GetDaysInYear();
    for (;;) {
        int nFirst = ((nDay + 11 - nWeekDay) % 7) - 3;
        int nLast = nFirst - (nDaysInYear % 7);
        if (nLast < -3) nLast += 7;
        if (nDay >= nDaysInYear + nLast) {
            ++nYear;
            return 1;
        }
        if (nDay >= nFirst) return (nDay - nFirst) / 7 + 1;
        --nYear;
        nDay += GetDaysInYear(nYear);
    }
}

unsigned int CQLDateParser::ToJulian() const {
    unsigned int nY = static_cast<unsigned int>(m_nYear);
    unsigned int nM = static_cast<unsigned int>(m_nMonth);
    unsigned int nD = static_cast<unsigned int>(m_nDay);
    if (nY <= 99) nY += 1900;
    if (nM < 3) {
        nM += 9;
        nY -= 1;
    } else {
        nM -= 3;
    }
    unsigned int nC = nY / 100;
    unsigned int nR = nY - 100 * nC;
    return (146097 * nC) / 4 + (1461 * nR) / 4 + (153 * nM + 2) / 5 + nD + 1721119;
}

void CQLDateParser::FromJulian(unsigned int nJulian) {
    unsigned int nT = 4 * nJulian - 6884477;
    unsigned int nC = nT / 146097;
    unsigned int nU = (nT % 146097) / 4 * 4;
    unsigned int nV = (nU + 3) / 1461;
    unsigned int nYear = 100 * nC + nV;
    unsigned int nW = 5 * ((nU + 7 - 1461 * nV) / 4);
    unsigned int nX = (nW - 3) / 153;
    unsigned int nDay = (nW - 153 * nX + 2) / 5;
    unsigned int nMonth;
    if (nX < 10) {
        nMonth = nX + 3;
    } else {
        nMonth = nX - 9;
        ++nYear;
    }
    m_nYear = static_cast<int>(nYear);
    m_nMonth = static_cast<int>(nMonth);
    m_nDay = static_cast<int>(nDay);
}

// ---------------------------------------------------------------------------------------------
// Lunar calendar

bool CQLDateParser::ToLunar(int nYear, int nMonth, int nDay, int& nLunarYear, int& nLunarMonth,
                            int& nLunarDay) {
    const int nLastYear = LUNAR_FIRST_YEAR + LUNAR_YEARS - 1;
    if (nYear < LUNAR_FIRST_YEAR || nYear > nLastYear)
        throw CQLExceptionParser("In ToLunar(" + DateText(nYear, nMonth, nDay) +
                                     "), YEAR must be between 1841 and 2043",
                                 0);
    if (nMonth < 1 || nMonth > 12)
        throw CQLExceptionParser(
            "In ToLunar(" + DateText(nYear, nMonth, nDay) + "), MONTH must be between 1 and 12", 0);
    int nMonthDays = GetDaysInMonth(nYear, nMonth);
    if (nDay < 1 || nDay > nMonthDays)
        throw CQLExceptionParser("In ToLunar(" + DateText(nYear, nMonth - 1, nDay) +
                                     "), DAY must be between 1 and " + std::to_string(nMonthDays),
                                 0);

    // Earlier years by the Gregorian rule, this year's months by GetDaysInMonth.
    long nPrev = nYear - 1;
    long nDays = 365 * nPrev + nPrev / 4 - nPrev / 100 + nPrev / 400 + nDay;
    for (int i = 1; i < nMonth; ++i) nDays += GetDaysInMonth(nYear, i);
    nDays -= 672068; // lunar 1841-01-01 is day 672069, solar 1841-01-23

    int nYearLength[LUNAR_YEARS];
    const int nRows = nYear - LUNAR_FIRST_YEAR + 1;
    for (int i = 0; i < nRows; ++i) nYearLength[i] = LunarYearLength(i);

    int nRow = 0;
    while (nRow < nRows - 1 && nDays > nYearLength[nRow]) {
        nDays -= nYearLength[nRow];
        ++nRow;
    }

    int nIndex = 0;
    for (; nIndex < 12; ++nIndex) {
        int nCode = LunarTable[nRow][nIndex];
        int nRegular = RegularLength(nCode);
        if (nDays <= nRegular) break;
        nDays -= nRegular;
        if (nCode > 2) {
            int nLeap = LeapLength(nCode);
            if (nDays <= nLeap) break;
            nDays -= nLeap;
        }
    }
    if (nIndex == 12) nIndex = 11; // a solar year never runs past its lunar row

    nLunarYear = LUNAR_FIRST_YEAR + nRow;
    nLunarMonth = nIndex + 1;
    nLunarDay = static_cast<int>(nDays);
    return true;
}

bool CQLDateParser::ToSolar(int nYear, int nMonth, int nDay, int& nSolarYear, int& nSolarMonth,
                            int& nSolarDay, bool bLeapMonth) {
    // The texts quote the output arguments as they stand at the call.
    const std::string strWhere =
        "In ToSolar(" + DateText(nSolarYear, nSolarMonth, nSolarDay) + "), ";
    const int nLastYear = LUNAR_FIRST_YEAR + LUNAR_YEARS - 1;
    if (nYear < LUNAR_FIRST_YEAR || nYear > nLastYear)
        throw CQLExceptionParser(strWhere + "YEAR must be between 1841 and 2043", 0);
    if (nMonth < 1 || nMonth > 12)
        throw CQLExceptionParser(strWhere + "MONTH must be between 1 and 12", 0);

    const int nRow = nYear - LUNAR_FIRST_YEAR;
    const int nCode = LunarTable[nRow][nMonth - 1];
    int nLimit;
    if (nCode > 2 && bLeapMonth) {
        nLimit = LeapLength(nCode);
    } else {
        bLeapMonth = false;
        nLimit = RegularLength(nCode);
    }
    if (nDay < 1 || nDay > nLimit)
        throw CQLExceptionParser(strWhere + "DAY must be between 1 and " + std::to_string(nLimit),
                                 0);

    long nDays = 0;
    for (int i = 0; i < nRow; ++i) nDays += LunarYearLength(i);
    for (int i = 0; i < nMonth - 1; ++i) nDays += MonthCodeLength(LunarTable[nRow][i]);
    if (bLeapMonth) nDays += RegularLength(nCode);
    nDays += nDay + 22;

    int nSolar = LUNAR_FIRST_YEAR;
    while (nDays > GetDaysInYear(nSolar)) {
        nDays -= GetDaysInYear(nSolar);
        ++nSolar;
    }

    // MonthTable is walked as it stands: its February entry of 0 subtracts nothing, so
    // everything after January comes out shifted. Past the table, month 12 keeps the rest.
    int nIndex = 0;
    if (nDays >= 32) {
        nDays -= MonthTable[0];
        nIndex = 1;
        while (nIndex < 11 && MonthTable[nIndex] < nDays) {
            nDays -= MonthTable[nIndex];
            ++nIndex;
        }
    }

    nSolarYear = nSolar;
    nSolarMonth = nIndex + 1;
    nSolarDay = static_cast<int>(nDays);
    return true;
}

bool CQLDateParser::ToLunar(int& nLunarYear, int& nLunarMonth, int& nLunarDay) const {
    return ToLunar(m_nYear, m_nMonth, m_nDay, nLunarYear, nLunarMonth, nLunarDay);
}

bool CQLDateParser::ToSolar(int nYear, int nMonth, int nDay, bool bLeapMonth) {
    return ToSolar(nYear, nMonth, nDay, m_nYear, m_nMonth, m_nDay, bLeapMonth);
}

// ---------------------------------------------------------------------------------------------
// Picture language: printing

std::string CQLDateParser::GetWeekDayName(bool bEnglish) const {
    if (m_nDayOfWeek < 0 || m_nDayOfWeek > 6) return "";
    if (bEnglish) return WeekDayNameTable[m_nDayOfWeek];
    return LangInfo(ABDAY_1 + m_nDayOfWeek);
}

std::string CQLDateParser::GetLongWeekDayName(bool bEnglish) const {
    if (m_nDayOfWeek < 0 || m_nDayOfWeek > 6) return "";
    if (bEnglish) return WeekDayLongNameTable[m_nDayOfWeek];
    return LangInfo(DAY_1 + m_nDayOfWeek);
}

std::string CQLDateParser::GetMonthName(bool bEnglish) const {
    bool bInRange = m_nMonth >= 1 && m_nMonth <= 12;
    if (bEnglish) {
        if (!bInRange) throw CQLExceptionParser("In GetMonthName(), Invalid month.", 0);
        return MonthNameTable[m_nMonth - 1];
    }
    return bInRange ? LangInfo(ABMON_1 + m_nMonth - 1) : std::string();
}

std::string CQLDateParser::GetLongMonthName(bool bEnglish) const {
    bool bInRange = m_nMonth >= 1 && m_nMonth <= 12;
    if (bEnglish) {
        if (!bInRange) throw CQLExceptionParser("In GetLongMonthName(), Invalid month.", 0);
        return MonthLongNameTable[m_nMonth - 1];
    }
    return bInRange ? LangInfo(MON_1 + m_nMonth - 1) : std::string();
}

// Hours up to 12 are the morning, so half past noon prints as "am".
std::string CQLDateParser::GetAmPm(bool bUpper, bool bEnglish) const {
    bool bPm = m_nHour >= 13;
    if (!bEnglish) return LangInfo(bPm ? PM_STR : AM_STR);
    if (bUpper) return bPm ? "PM" : "AM";
    return bPm ? "pm" : "am";
}

std::string CQLDateParser::PopStack(char& cFormat, int& nCount, bool bHasAmPm, bool bEnglish) {
    const char cLetter = cFormat;
    int nLeft = nCount;
    cFormat = 0;
    nCount = 0;

    std::string strOut;
    while (nLeft > 0) {
        switch (cLetter) {
        case 'D':
            if (nLeft <= 2) {
                strOut += Number(m_nDay, nLeft);
                nLeft = 0;
            } else if (nLeft == 3) {
                strOut += GetWeekDayName(bEnglish);
                nLeft = 0;
            } else {
                strOut += GetLongWeekDayName(bEnglish);
                nLeft -= 4;
            }
            break;
        case 'M':
            if (nLeft <= 2) {
                strOut += Number(m_nMonth, nLeft);
                nLeft = 0;
            } else if (nLeft == 3) {
                strOut += GetMonthName(bEnglish);
                nLeft = 0;
            } else {
                strOut += GetLongMonthName(bEnglish);
                nLeft -= 4;
            }
            break;
        case 'Y':
            if (nLeft == 1) {
                strOut += "Y";
                nLeft = 0;
            } else if (nLeft <= 3) {
                strOut += Number(m_nYear % 100, 2);
                if (nLeft == 3) strOut += "Y";
                nLeft = 0;
            } else {
                strOut += Number(m_nYear, 4);
                nLeft -= 4;
            }
            break;
        case 'S':
            if (nLeft <= 2) {
                strOut += Number(m_nMSec, 1);
                if (nLeft == 2) strOut += "S";
                nLeft = 0;
            } else {
                strOut += Number(m_nMSec, 3);
                nLeft -= 3;
            }
            break;
        case 'h': {
            int nHour = m_nHour;
            if (bHasAmPm) {
                if (nHour == 0)
                    nHour = 12;
                else if (nHour > 12)
                    nHour -= 12;
            }
            strOut += Number(nHour, nLeft >= 2 ? 2 : 1);
            nLeft -= nLeft >= 2 ? 2 : 1;
            break;
        }
        case 'm':
            strOut += Number(m_nMin, nLeft >= 2 ? 2 : 1);
            nLeft -= nLeft >= 2 ? 2 : 1;
            break;
        case 's':
            strOut += Number(m_nSec, nLeft >= 2 ? 2 : 1);
            nLeft -= nLeft >= 2 ? 2 : 1;
            break;
        case 'A':
        case 'a':
            strOut += GetAmPm(cLetter == 'A', bEnglish);
            nLeft = 0;
            break;
        case 'z':
            strOut += m_cTzSign;
            strOut += Number(m_nTzHour, 2);
            strOut += Number(m_nTzMin, 2);
            nLeft -= 1;
            break;
        case 'Z':
            strOut += ToTimezoneSymbol();
            nLeft -= 1;
            break;
        default:
            nLeft = 0;
            break;
        }
    }
    return strOut;
}

std::string CQLDateParser::ToString(const std::string& strFormat, bool bEnglish) {
    if (m_nTimestamp < 0) {
        m_strLastError = "In ToString(), Invalid timestamp.";
        throw *this;
    }

    unsigned long nSearch = 0;
    const bool bHasAmPm = DetectAmPm(strFormat, nSearch);

    std::string strOut;
    char cRun = 0;
    int nCount = 0;
    bool bEscape = false;
    for (char c : strFormat) {
        if (IsPrintLetter(c)) {
            if (bEscape) {
                strOut += c;
                nCount = 0;
                cRun = c;
                bEscape = false;
            } else {
                if (cRun != c) strOut += PopStack(cRun, nCount, bHasAmPm, bEnglish);
                cRun = c;
                ++nCount;
            }
        } else if (c == '\\') {
            if (bEscape) {
                strOut += '\\';
                bEscape = false;
            } else {
                bEscape = true;
                strOut += PopStack(cRun, nCount, bHasAmPm, bEnglish);
            }
            cRun = '\\';
            nCount = 0;
        } else {
            if (!bEscape && nCount > 0) strOut += PopStack(cRun, nCount, bHasAmPm, bEnglish);
            strOut += c;
            cRun = c;
            nCount = 0;
            bEscape = false;
        }
    }
    strOut += PopStack(cRun, nCount, bHasAmPm, bEnglish);
    return strOut;
}

// ---------------------------------------------------------------------------------------------
// Picture language: parsing

void CQLDateParser::FailFormat(const std::string& strValue) {
    m_strLastError = "In FromString(), invalid format[" + strValue + "]";
    throw *this;
}

// Skips anything that is not a digit, then takes up to nMaxDigits digits in a row.
void CQLDateParser::ReadNumber(const std::string& strValue, unsigned long& nPos, int nMaxDigits,
                               int& nOut) {
    const unsigned long nLen = strValue.size();
    while (nPos < nLen && !IsDigit(strValue[nPos])) ++nPos;
    if (nPos >= nLen) FailFormat(strValue);
    int nValue = 0;
    for (int i = 0; i < nMaxDigits && nPos < nLen && IsDigit(strValue[nPos]); ++i, ++nPos)
        nValue = nValue * 10 + (strValue[nPos] - '0');
    nOut = nValue;
}

// Reads a weekday (0 for Sunday) or month (1 for January) name by its first three letters;
// a long name's remaining letters are taken only if all of them follow.
int CQLDateParser::ReadName(const std::string& strValue, unsigned long& nPos, bool bMonth,
                            bool bLong) {
    const unsigned long nLen = strValue.size();
    const unsigned long nStart = nPos;
    while (nPos < nLen && !std::isalpha(static_cast<unsigned char>(strValue[nPos]))) ++nPos;
    if (nPos >= nLen) FailFormat(strValue);
    if (nLen - (nPos - nStart) < 4) FailFormat(strValue);
    if (nLen - nPos < 3) FailFormat(strValue);

    const char* const* ppszShort = bMonth ? MonthNameTable : WeekDayNameTable;
    const char* const* ppszLong = bMonth ? g_pszReadMonthNames : g_pszReadDayNames;
    const int nNames = bMonth ? 12 : 7;
    int nFound = -1;
    for (int i = 0; i < nNames && nFound < 0; ++i) {
        bool bMatch = true;
        for (int k = 0; k < 3 && bMatch; ++k)
            bMatch = (strValue[nPos + k] & 0xDF) == (ppszShort[i][k] & 0xDF);
        if (bMatch) nFound = i;
    }
    if (nFound < 0) FailFormat(strValue);
    nPos += 3;

    if (bLong) {
        const char* pszRest = ppszLong[nFound] + 3;
        const unsigned long nRest = std::strlen(pszRest);
        bool bMatch = nLen - nPos >= nRest;
        for (unsigned long k = 0; k < nRest && bMatch; ++k)
            bMatch = (strValue[nPos + k] & 0xDF) == (pszRest[k] & 0xDF);
        if (bMatch) nPos += nRest;
    }
    return bMonth ? nFound + 1 : nFound;
}

// "AM" or "PM" in any case. What it says is not kept: the hour looks for "PM" by itself.
void CQLDateParser::ReadMark(const std::string& strValue, unsigned long& nPos) {
    const unsigned long nLen = strValue.size();
    if (nPos >= nLen || nLen < 2 || nPos + 1 >= nLen) FailFormat(strValue);
    char cFirst = strValue[nPos] & 0xDF;
    char cSecond = strValue[nPos + 1] & 0xDF;
    if ((cFirst != 'A' && cFirst != 'P') || cSecond != 'M') FailFormat(strValue);
    nPos += 2;
}

void CQLDateParser::ReadZone(const std::string& strValue, unsigned long& nPos) {
    if (nPos >= strValue.size()) FailFormat(strValue);
    const char cSign = strValue[nPos];
    if (cSign != '+' && cSign != '-') {
        const char* pszStart = strValue.c_str() + nPos;
        const char* psz = pszStart;
        try {
            FromTimezoneSymbol(&psz);
        } catch (CQLDateParser&) {
            FailFormat(strValue);
        }
        nPos += static_cast<unsigned long>(psz - pszStart);
        return;
    }
    m_cTzSign = cSign;
    ++nPos;
    ReadNumber(strValue, nPos, 2, m_nTzHour);
    ReadNumber(strValue, nPos, 2, m_nTzMin);
}

void CQLDateParser::PopStack(const std::string& strValue, unsigned long& nPos, char& cFormat,
                             int& nCount, bool bHasAmPm) {
    const char cLetter = cFormat;
    int nLeft = nCount;
    cFormat = 0;
    nCount = 0;

    while (nLeft > 0) {
        switch (cLetter) {
        case 'D':
            if (nLeft <= 2) {
                ReadNumber(strValue, nPos, 2, m_nDay);
                nLeft = 0;
            } else {
                m_nDayOfWeek = ReadName(strValue, nPos, false, nLeft >= 4);
                nLeft = nLeft >= 4 ? nLeft - 4 : 0;
            }
            break;
        case 'M':
            if (nLeft <= 2) {
                ReadNumber(strValue, nPos, 2, m_nMonth);
                nLeft = 0;
            } else {
                m_nMonth = ReadName(strValue, nPos, true, nLeft >= 4);
                nLeft = nLeft >= 4 ? nLeft - 4 : 0;
            }
            break;
        case 'Y': {
            if (nLeft == 1) {
                ++nPos;
                nLeft = 0;
                break;
            }
            int nYear = 0;
            ReadNumber(strValue, nPos, nLeft >= 4 ? 4 : 2, nYear);
            // Two-digit years: 70 to 99 are the 1900s, 0 to 69 the 2000s.
            if (nYear <= 99) nYear += nYear >= 70 ? 1900 : 2000;
            m_nYear = nYear;
            nLeft = 0;
            break;
        }
        case 'S':
            ReadNumber(strValue, nPos, 3, m_nMSec);
            nLeft = 0;
            break;
        case 'h':
            ReadNumber(strValue, nPos, 2, m_nHour);
            // "PM" anywhere in the value adds 12, so "12 PM" wraps to 0; kept as stored
            // data depends on it.
            if (bHasAmPm) {
                if (strValue.find("PM") != std::string::npos ||
                    strValue.find("pm") != std::string::npos ||
                    strValue.find("Pm") != std::string::npos)
                    m_nHour += 12;
                if (m_nHour == 24) m_nHour = 0;
            }
            nLeft = 0;
            break;
        case 'm':
            ReadNumber(strValue, nPos, 2, m_nMin);
            nLeft = 0;
            break;
        case 's':
            ReadNumber(strValue, nPos, 2, m_nSec);
            nLeft = 0;
            break;
        case 'A':
        case 'a':
            ReadMark(strValue, nPos);
            nLeft -= 1;
            break;
        case 'z':
            ReadZone(strValue, nPos);
            nLeft = 0;
            break;
        default:
            nLeft = 0;
            break;
        }
    }
}

long long CQLDateParser::FromString(const std::string& strValue, const std::string& strFormat,
                                    bool bLocal) {
    Init();
    if (bLocal) SetLocalZone();

    // The value cursor starts where the search for an unescaped "a" left off.
    unsigned long nPos = 0;
    const bool bHasAmPm = DetectAmPm(strFormat, nPos);

    char cRun = 0;
    int nCount = 0;
    bool bEscape = false;
    for (char c : strFormat) {
        if (IsParseLetter(c)) {
            if (bEscape) {
                cRun = c;
                nCount = 0;
                bEscape = false;
            } else {
                if (cRun != c) PopStack(strValue, nPos, cRun, nCount, bHasAmPm);
                cRun = c;
                ++nCount;
            }
        } else if (c == '\\') {
            if (bEscape) {
                bEscape = false;
            } else {
                bEscape = true;
                PopStack(strValue, nPos, cRun, nCount, bHasAmPm);
            }
            cRun = '\\';
            nCount = 0;
        } else {
            // Literals are skipped by count, never compared.
            if (!bEscape && nCount > 0) PopStack(strValue, nPos, cRun, nCount, bHasAmPm);
            ++nPos;
            cRun = c;
            nCount = 0;
            bEscape = false;
        }
    }
    PopStack(strValue, nPos, cRun, nCount, bHasAmPm);

    if (!IsValid()) {
        m_strLastError = "In FromString(), Invalid data: " + m_strLastError;
        throw *this;
    }

    // Gregorian day count from 1970, independent of the process's zone.
    const long long nY = m_nYear;
    const long long nM = m_nMonth;
    const long long nD = m_nDay;
    const long long nK = nM > 8 ? 1 : 0;
    long long nL;
    if (nM >= 3)
        nL = 2;
    else
        nL = IsLeapYear(m_nYear) ? 1 : 0;
    const long long nDays = 365 * nY - 719050 - nY / 4000 + (nY - 1968) / 4 + (nY / 400 - 4) -
                            (nY / 100 - 19) + (nD + 30 * (nM - 1) - 1) + (nM + nK) / 2 - nL;
    const long long nMinutes = (24 * nDays + m_nHour) * 60 + m_nMin;
    const long long nOffset = 60LL * m_nTzHour + m_nTzMin;
    if (m_cTzSign == '+')
        m_nTimestamp = 60 * (nMinutes - nOffset) + m_nSec;
    else
        m_nTimestamp = 60 * (nMinutes + nOffset) + m_nSec;
    return m_nTimestamp;
}

// ---------------------------------------------------------------------------------------------
// Mail dates and zone symbols

void CQLDateParser::FromRFC822(const std::string& strValue) {
    // The blank at the end of each shape passes over the white space before the zone.
    static const std::string strRfc822[4] = {
        "%a, %d %b %Y %H:%M:%S ",
        "%a, %d %b %Y %H:%M ",
        "%d %b %Y %H:%M:%S ",
        "%d %b %Y %H:%M ",
    };
    static const std::string strBlanks(" \x07\x08\x0c\n\r\t\x0b");

    SetLocalZone();

    std::string strText = strValue;
    std::string::size_type nFirst = strText.find_first_not_of(strBlanks);
    if (nFirst != std::string::npos) {
        std::string::size_type nLast = strText.find_last_not_of(strBlanks);
        strText = strText.substr(nFirst, nLast - nFirst + 1);
    }

    for (const std::string& strShape : strRfc822) {
        try {
            struct tm tmValue;
            std::memset(&tmValue, 0, sizeof(tmValue));
            const char* pszRest = strptime(strText.c_str(), strShape.c_str(), &tmValue);
            if (pszRest == nullptr || *pszRest == '\0') continue;

            char cSign;
            int nHour = 0;
            int nMin = 0;
            if (*pszRest == '+' || *pszRest == '-') {
                cSign = *pszRest;
                const char* psz = pszRest + 1;
                while (*psz != '\0' && !IsDigit(*psz)) ++psz;
                if (*psz == '\0') continue;
                for (int i = 0; i < 2 && IsDigit(*psz); ++i, ++psz) nHour = nHour * 10 + *psz - '0';
                while (*psz != '\0' && !IsDigit(*psz)) ++psz;
                if (*psz == '\0') continue;
                for (int i = 0; i < 2 && IsDigit(*psz); ++i, ++psz) nMin = nMin * 10 + *psz - '0';
            } else if (*pszRest == ':') {
                // A time with seconds read by a shape without them.
                continue;
            } else {
                const char cLocalSign = m_cTzSign;
                const int nLocalHour = m_nTzHour;
                const int nLocalMin = m_nTzMin;
                const char* psz = pszRest;
                FromTimezoneSymbol(&psz);
                cSign = m_cTzSign;
                nHour = m_nTzHour;
                nMin = m_nTzMin;
                m_cTzSign = cLocalSign;
                m_nTzHour = nLocalHour;
                m_nTzMin = nLocalMin;
            }

            // mktime reads the fields as local standard time; undo that, then apply the
            // value's own zone.
            long long nTime = mktime(&tmValue);
            const long long nValueZone = 3600LL * nHour + 60LL * nMin;
            nTime = (cSign != '+') ? nTime + nValueZone : nTime - nValueZone;
            const long long nLocalZone = 3600LL * m_nTzHour + 60LL * m_nTzMin;
            nTime = (m_cTzSign != '+') ? nTime - nLocalZone : nTime + nLocalZone;
            m_nTimestamp = nTime;

            FromTimestamp(true);
            return;
        } catch (CQLDateParser&) {
            continue;
        }
    }

    m_strLastError = "In FromRFC822(), Invalid Date Format, " + strValue;
    throw *this;
}

// Longest match over the symbol table, letter by letter. A symbol that is complete stops
// at a byte that continues no longer symbol; a branch once entered must be finished.
void CQLDateParser::FromTimezoneSymbol(const char** ppszValue) {
    if (ppszValue == nullptr || *ppszValue == nullptr) throw *this;
    const char* psz = *ppszValue;

    std::string strFolded;
    for (;;) {
        const char c = psz[strFolded.size()];
        if (c == '\0') break;
        const char cFolded = FoldLetter(c);
        const size_t nAt = strFolded.size();
        bool bContinues = false;
        for (const TzSymbol& sym : g_TzSymbols) {
            if (std::strlen(sym.pszName) > nAt &&
                std::strncmp(sym.pszName, strFolded.c_str(), nAt) == 0 &&
                sym.pszName[nAt] == cFolded) {
                bContinues = true;
                break;
            }
        }
        if (!bContinues) break;
        strFolded += cFolded;
    }

    const TzSymbol* pFound = nullptr;
    for (const TzSymbol& sym : g_TzSymbols)
        if (strFolded == sym.pszName) pFound = &sym;
    if (pFound == nullptr) throw *this;

    // "Z" with more text behind it is read as -1200.
    if (strFolded == "Z" && psz[1] != '\0') {
        m_cTzSign = '-';
        m_nTzHour = 12;
        m_nTzMin = 0;
    } else {
        m_cTzSign = pFound->cSign;
        m_nTzHour = pFound->nHour;
        m_nTzMin = pFound->nMin;
    }
    m_strTzName.assign(psz, strFolded.size());
    *ppszValue = psz + strFolded.size();
}

std::string CQLDateParser::ToTimezoneSymbol() {
    if (!m_strTzName.empty()) return m_strTzName;
    if (m_nTzHour < 0 || m_nTzHour > 13) throw *this;
    const int nColumn = (m_cTzSign == '+' ? 0 : 2) + (m_nTzMin != 0 ? 1 : 0);
    const char* pszSymbol = g_pszTzWrite[m_nTzHour][nColumn];
    if (pszSymbol == nullptr) throw *this;
    m_strTzName = pszSymbol;
    return m_strTzName;
}

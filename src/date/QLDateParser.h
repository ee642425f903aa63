#ifndef QLMAIL_DATE_QLDATEPARSER_H
#define QLMAIL_DATE_QLDATEPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>

// One calendar date and time with the zone it was given in, and its Unix timestamp.
// The wall-clock fields and m_nTimestamp are not kept in step: each setter says which
// zone the fields are in. Also converts to and from a lunisolar calendar (1841 to 2043),
// prints and parses its own picture language, and reads mail dates.
class QLMAIL_EXPORT CQLDateParser : public CQLExceptionParser {
public:
    // Marks a SetValue argument that leaves its field alone.
    static constexpr int NOSET = -1;
    // February is 0: GetDaysInMonth works it out by itself.
    static const int MonthTable[12];

    static constexpr int LUNAR_FIRST_YEAR = 1841;
    static constexpr int LUNAR_YEARS = 203;
    static const unsigned char LunarTable[LUNAR_YEARS][12];

    static const char* const WeekDayNameTable[7];
    static const char* const WeekDayLongNameTable[7];
    static const char* const MonthNameTable[12];
    static const char* const MonthLongNameTable[12];

    CQLDateParser();
    CQLDateParser(const CQLDateParser& other);
    CQLDateParser& operator=(const CQLDateParser& other);
    virtual ~CQLDateParser();

    int GetYear() const { return m_nYear; }
    int GetMonth() const { return m_nMonth; }
    int GetDay() const { return m_nDay; }
    int GetHour() const { return m_nHour; }
    int GetMin() const { return m_nMin; }
    int GetSec() const { return m_nSec; }
    int GetMSec() const { return m_nMSec; }
    long long GetTimestamp() const { return m_nTimestamp; }
    int GetDayOfWeek() const { return m_nDayOfWeek; }
    int GetDayOfYear() const { return m_nDayOfYear; }

    // Date value.
    void Init();
    long long SetValue(const int& nYear, const int& nMonth, const int& nDay, const int& nHour,
                       const int& nMin, const int& nSec, const int& nMSec);
    bool IsValid();
    static bool IsValid(std::string& strError, int nYear, int nMonth, int nDay, int nHour, int nMin,
                        int nSec, int nMSec);
    void SetTimestamp(const long& nTime, bool bLocal);
    void FromTimestamp(bool bLocal);
    static CQLDateParser GetCurrent(bool bLocal);
    static long long GetCurrentTimestamp();
    static long long GetJavaTime(long long nTime);

    static bool IsLeapYear(const int& nYear);
    static int GetDaysInYear(int nYear);
    static int GetDaysInMonth(int nYear, int nMonth);
    int GetDaysInYear() const;
    int GetDaysInMonth() const;
    int GetWeekNumber(int& nYear) const;
    unsigned int ToJulian() const;
    void FromJulian(unsigned int nJulian);

    // Lunar calendar.
    static bool ToLunar(int nYear, int nMonth, int nDay, int& nLunarYear, int& nLunarMonth,
                        int& nLunarDay);
    static bool ToSolar(int nYear, int nMonth, int nDay, int& nSolarYear, int& nSolarMonth,
                        int& nSolarDay, bool bLeapMonth);
    bool ToLunar(int& nLunarYear, int& nLunarMonth, int& nLunarDay) const;
    bool ToSolar(int nYear, int nMonth, int nDay, bool bLeapMonth);

    // Picture language.
    long long FromString(const std::string& strValue, const std::string& strFormat, bool bLocal);
    std::string ToString(const std::string& strFormat, bool bEnglish);
    void PopStack(const std::string& strValue, unsigned long& nPos, char& cFormat, int& nCount,
                  bool bHasAmPm);
    std::string PopStack(char& cFormat, int& nCount, bool bHasAmPm, bool bEnglish);

    // Mail dates and zone symbols.
    void FromRFC822(const std::string& strValue);
    void FromTimezoneSymbol(const char** ppszValue);
    std::string ToTimezoneSymbol();

protected:
    long long m_nTimestamp;
    int m_nYear;
    int m_nMonth;
    int m_nDay;
    int m_nHour;
    int m_nMin;
    int m_nSec;
    int m_nMSec;
    int m_nDayOfWeek;
    int m_nDayOfYear;
    int m_nTzHour;
    int m_nTzMin;
    char m_cTzSign;
    std::string m_strTzName;

private:
    void SetLocalZone();
    std::string GetWeekDayName(bool bEnglish) const;
    std::string GetLongWeekDayName(bool bEnglish) const;
    std::string GetMonthName(bool bEnglish) const;
    std::string GetLongMonthName(bool bEnglish) const;
    std::string GetAmPm(bool bUpper, bool bEnglish) const;
    void ReadNumber(const std::string& strValue, unsigned long& nPos, int nMaxDigits, int& nOut);
    int ReadName(const std::string& strValue, unsigned long& nPos, bool bMonth, bool bLong);
    void ReadMark(const std::string& strValue, unsigned long& nPos);
    void ReadZone(const std::string& strValue, unsigned long& nPos);
    void FailFormat(const std::string& strValue);
};

#endif

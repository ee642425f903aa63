#ifndef QLMAIL_DATE_QLDATEPARSER_H
#define QLMAIL_DATE_QLDATEPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>

/// One calendar date and time with the zone it was given in, and its Unix timestamp.
/// The wall-clock fields and m_nTimestamp are not kept in step: each setter says which
/// zone the fields are in. Also converts to and from a lunisolar calendar (1841 to 2043),
/// prints and parses its own picture language, and reads mail dates.
///
///     CQLDateParser date;
///     try {
///         date.FromRFC822(strDateField); // "Tue, 5 Mar 2024 09:30:00 +0900"
///         store(date.GetTimestamp());
///     } catch (const CQLExceptionParser& e) { ... }
///
/// Setters that check throw a copy of the object; CQLMimeMsg::GetDate() and its siblings
/// give a message's dates without exceptions.
class QLMAIL_EXPORT CQLDateParser : public CQLExceptionParser {
public:
    /// Marks a SetValue argument that leaves its field alone.
    static constexpr int NOSET = -1;
    /// February is 0: GetDaysInMonth works it out by itself.
    static const int MonthTable[12];

    ///@{
    /// The years the lunar calendar covers, and the lengths of their months.
    static constexpr int LUNAR_FIRST_YEAR = 1841;
    static constexpr int LUNAR_YEARS = 203;
    static const unsigned char LunarTable[LUNAR_YEARS][12];
    ///@}

    ///@{
    /// English names of the weekdays from Sunday and of the months, short and long.
    static const char* const WeekDayNameTable[7];
    static const char* const WeekDayLongNameTable[7];
    static const char* const MonthNameTable[12];
    static const char* const MonthLongNameTable[12];
    ///@}

    /// 1970-01-01 00:00:00 UTC, timestamp 0.
    CQLDateParser();
    ///@{
    /// Copies take every field, the error text included.
    CQLDateParser(const CQLDateParser& other);
    CQLDateParser& operator=(const CQLDateParser& other);
    ///@}
    virtual ~CQLDateParser();

    ///@{
    /// A wall-clock field, the timestamp (seconds since 1970), the weekday (0 Sunday) or the
    /// day of the year (from 0).
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
    ///@}

    /** @name Date value */
    ///@{
    /// Every field to its start value.
    void Init();
    /// Sets the wall-clock fields (NOSET leaves one alone) and answers the timestamp, reading
    /// them as local time. Throws for a date that IsValid() refuses.
    long long SetValue(const int& nYear, const int& nMonth, const int& nDay, const int& nHour,
                       const int& nMin, const int& nSec, const int& nMSec);
    /// Whether the fields make a valid date from 1752 to 8000; the reason in GetLastError().
    bool IsValid();
    /// The same for the given values; the reason in strError.
    static bool IsValid(std::string& strError, int nYear, int nMonth, int nDay, int nHour, int nMin,
                        int nSec, int nMSec);
    /// Sets the timestamp and the fields from it, in local time or UTC. Throws.
    void SetTimestamp(const long& nTime, bool bLocal);
    /// Sets the fields from the timestamp, in local time or UTC. Throws.
    void FromTimestamp(bool bLocal);
    /// Now, in local time or UTC.
    static CQLDateParser GetCurrent(bool bLocal);
    /// time(NULL).
    static long long GetCurrentTimestamp();
    /// Seconds to milliseconds.
    static long long GetJavaTime(long long nTime);

    /// The Gregorian rule.
    static bool IsLeapYear(const int& nYear);
    /// 366 or 365.
    static int GetDaysInYear(int nYear);
    /// The days of the month. February of a century year is counted as the old library did:
    /// 28 in 2000, 29 in 1900; validation follows this.
    static int GetDaysInMonth(int nYear, int nMonth);
    ///@{
    /// The same for the object's year and month.
    int GetDaysInYear() const;
    int GetDaysInMonth() const;
    ///@}
    /// The ISO week number; nYear receives the week's year.
    int GetWeekNumber(int& nYear) const;
    /// The day number of the date.
    unsigned int ToJulian() const;
    /// Sets year, month and day from a day number.
    void FromJulian(unsigned int nJulian);
    ///@}

    /** @name Lunar calendar
     *  From 1841 to 2043. All answer true and fail by throwing. */
    ///@{
    /// Solar to lunar. A date in a leap month reads as the month before it.
    static bool ToLunar(int nYear, int nMonth, int nDay, int& nLunarYear, int& nLunarMonth,
                        int& nLunarDay);
    /// Lunar to solar; bLeapMonth asks for the leap month of nMonth.
    static bool ToSolar(int nYear, int nMonth, int nDay, int& nSolarYear, int& nSolarMonth,
                        int& nSolarDay, bool bLeapMonth);
    /// The object's date, to lunar.
    bool ToLunar(int& nLunarYear, int& nLunarMonth, int& nLunarDay) const;
    /// Sets the object's year, month and day from a lunar date; nothing else changes.
    bool ToSolar(int nYear, int nMonth, int nDay, bool bLeapMonth);
    ///@}

    /** @name Picture language
     *  One format drives printing and parsing: runs of repeated letters, as "YYYY-MM-DD
     *  hh:mm:ss". Parsing hunts for digits and skips literal text by count. */
    ///@{
    /// Sets the date from strValue read by the format and answers the timestamp; the zone is
    /// the text's, else local time with bLocal, else UTC. Throws for a value that does not fit.
    long long FromString(const std::string& strValue, const std::string& strFormat, bool bLocal);
    /// The date printed in the format, with English names or those of the locale.
    std::string ToString(const std::string& strFormat, bool bEnglish);
    /// Parses one run of the format at nPos of the value; a step of FromString().
    void PopStack(const std::string& strValue, unsigned long& nPos, char& cFormat, int& nCount,
                  bool bHasAmPm);
    /// Prints one run of the format; a step of ToString().
    std::string PopStack(char& cFormat, int& nCount, bool bHasAmPm, bool bEnglish);
    ///@}

    /** @name Mail dates and zone symbols */
    ///@{
    /// Sets the date from a mail Date or Received value. Throws "In FromRFC822(), Invalid
    /// Date Format, " and the value for one it cannot read.
    void FromRFC822(const std::string& strValue);
    /// Reads a zone symbol ("KST", "EDT", "Z", ...) at *ppszValue and moves the pointer behind
    /// it. Throws for an unknown one.
    void FromTimezoneSymbol(const char** ppszValue);
    /// The symbol of the object's zone. Throws where there is none.
    std::string ToTimezoneSymbol();
    ///@}

protected:
    ///@{
    /// The value; see the accessors. The zone is an offset from UTC, its sign and its name.
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
    ///@}

private:
    QLMAIL_LOCAL void SetLocalZone();
    QLMAIL_LOCAL std::string GetWeekDayName(bool bEnglish) const;
    QLMAIL_LOCAL std::string GetLongWeekDayName(bool bEnglish) const;
    QLMAIL_LOCAL std::string GetMonthName(bool bEnglish) const;
    QLMAIL_LOCAL std::string GetLongMonthName(bool bEnglish) const;
    QLMAIL_LOCAL std::string GetAmPm(bool bUpper, bool bEnglish) const;
    QLMAIL_LOCAL void ReadNumber(const std::string& strValue, unsigned long& nPos, int nMaxDigits,
                                 int& nOut);
    QLMAIL_LOCAL int ReadName(const std::string& strValue, unsigned long& nPos, bool bMonth,
                              bool bLong);
    QLMAIL_LOCAL void ReadMark(const std::string& strValue, unsigned long& nPos);
    QLMAIL_LOCAL void ReadZone(const std::string& strValue, unsigned long& nPos);
    QLMAIL_LOCAL void FailFormat(const std::string& strValue);
};

#endif

// Dates and durations.
//
// CSDateTime holds one double: days since 1899-12-30 00:00:00 in local civil
// time, the fraction being the time of day.  That double is also its archive
// form and its 8-byte form inside stored records.  A CSTimeSpan is a signed
// duration in seconds; the difference of two date-times is rounded to the
// nearest millisecond so that spans compare as the clock says.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <string>

#include "platform/Types.h"

class CArchive;

class CSTimeSpan {
public:
    CSTimeSpan() = default;
    explicit CSTimeSpan(double seconds) : m_seconds(seconds) {}
    CSTimeSpan(long days, int hours, int minutes, double seconds)
        : m_seconds(((days * 24.0 + hours) * 60.0 + minutes) * 60.0 + seconds) {}

    double GetTotalSeconds() const { return m_seconds; }
    double GetTotalDays() const { return m_seconds / 86400.0; }

    CSTimeSpan operator+(const CSTimeSpan& o) const { return CSTimeSpan(m_seconds + o.m_seconds); }
    CSTimeSpan operator-(const CSTimeSpan& o) const { return CSTimeSpan(m_seconds - o.m_seconds); }
    CSTimeSpan operator-() const { return CSTimeSpan(-m_seconds); }
    auto operator<=>(const CSTimeSpan& o) const = default;

private:
    double m_seconds = 0.0;
};

class CSDateTime {
public:
    CSDateTime() = default;
    explicit CSDateTime(double oleDate) : m_dt(oleDate) {}
    CSDateTime(int year, int month, int day, int hour = 0, int minute = 0, double second = 0.0);

    // The current local time.
    static CSDateTime GetTickCount();
    // Parses "YYYY-MM-DD", "YYYY-MM-DDTHH:MM[:SS[.mmm]]" (a space may stand for
    // the T), and "DD/MM/YYYY" or "DD.MM.YYYY"; false when the text is none of these.
    static bool FromText(const std::string& text, CSDateTime& result);

    double GetValue() const { return m_dt; }
    void SetValue(double v) { m_dt = v; }

    // Calendar fields of the local civil time.  Milliseconds are rounded.
    void GetParts(int& year, int& month, int& day, int& hour, int& minute, int& second, int& millisecond) const;
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;

    // "YYYY-MM-DDTHH:MM:SS.mmm"
    std::string ToIso() const;
    // "YYYY-MM-DD"
    std::string ToDateText() const;

    CSDateTime operator+(const CSTimeSpan& s) const;
    CSDateTime operator-(const CSTimeSpan& s) const;
    CSTimeSpan operator-(const CSDateTime& o) const;
    CSDateTime& operator+=(const CSTimeSpan& s) { return *this = *this + s; }
    bool operator==(const CSDateTime& o) const { return m_dt == o.m_dt; }
    bool operator!=(const CSDateTime& o) const { return m_dt != o.m_dt; }
    bool operator<(const CSDateTime& o) const { return Linear() < o.Linear(); }
    bool operator>(const CSDateTime& o) const { return o < *this; }
    bool operator<=(const CSDateTime& o) const { return !(o < *this); }
    bool operator>=(const CSDateTime& o) const { return !(*this < o); }

    // Days since the epoch on a continuous scale.  The stored form of dates
    // before 1899-12-30 puts the time of day as a positive fraction behind a
    // negative day number; this undoes that.
    double Linear() const;
    static CSDateTime FromLinear(double days);

private:
    double m_dt = 0.0;
};

CArchive& operator<<(CArchive& ar, const CSDateTime& dt);
CArchive& operator>>(CArchive& ar, CSDateTime& dt);
#pragma GCC visibility pop

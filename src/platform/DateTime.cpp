#include "platform/DateTime.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "platform/Archive.h"

namespace {
// Days from 1970-01-01 to a civil date (proleptic Gregorian).
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

void CivilFromDays(long long z, int& y, int& m, int& d) {
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    long long yy = static_cast<long long>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(yy + (m <= 2));
}

constexpr long long kEpochOffset = 25569;  // days from 1899-12-30 to 1970-01-01
}  // namespace

double CSDateTime::Linear() const {
    if (m_dt >= 0) return m_dt;
    double day = std::ceil(m_dt);  // day part, toward zero
    double frac = day - m_dt;      // the time of day, stored as a positive fraction
    return day + frac;
}

CSDateTime CSDateTime::FromLinear(double days) {
    if (days >= 0) return CSDateTime(days);
    double day = std::floor(days);
    double frac = days - day;
    // Negative dates keep the time of day as a positive fraction: -1.25 is
    // 1899-12-29 06:00.
    return CSDateTime(day - frac);
}

CSDateTime::CSDateTime(int year, int month, int day, int hour, int minute, double second) {
    long long days = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) + kEpochOffset;
    double frac = (hour * 3600.0 + minute * 60.0 + second) / 86400.0;
    *this = FromLinear(static_cast<double>(days) + frac);
}

CSDateTime CSDateTime::GetTickCount() {
    struct timespec ts {};
    clock_gettime(CLOCK_REALTIME, &ts);
    time_t t = ts.tv_sec;
    struct tm lt {};
    localtime_r(&t, &lt);
    return CSDateTime(lt.tm_year + 1900, lt.tm_mon + 1, lt.tm_mday, lt.tm_hour, lt.tm_min,
                      lt.tm_sec + std::floor(ts.tv_nsec / 1e6) / 1000.0);
}

void CSDateTime::GetParts(int& year, int& month, int& day, int& hour, int& minute, int& second,
                          int& millisecond) const {
    double lin = Linear();
    if (!std::isfinite(lin) || std::fabs(lin) > 3e6) lin = 0.0;
    // Work in whole milliseconds so that 23:59:59.9996 rolls over cleanly.
    long long totalMs = std::llround(lin * 86400000.0);
    long long days = totalMs >= 0 ? totalMs / 86400000 : -((-totalMs + 86399999) / 86400000);
    long long ms = totalMs - days * 86400000;
    CivilFromDays(days - kEpochOffset, year, month, day);
    hour = static_cast<int>(ms / 3600000);
    minute = static_cast<int>(ms / 60000 % 60);
    second = static_cast<int>(ms / 1000 % 60);
    millisecond = static_cast<int>(ms % 1000);
}

int CSDateTime::GetYear() const {
    int y, mo, d, h, mi, s, ms;
    GetParts(y, mo, d, h, mi, s, ms);
    return y;
}
int CSDateTime::GetMonth() const {
    int y, mo, d, h, mi, s, ms;
    GetParts(y, mo, d, h, mi, s, ms);
    return mo;
}
int CSDateTime::GetDay() const {
    int y, mo, d, h, mi, s, ms;
    GetParts(y, mo, d, h, mi, s, ms);
    return d;
}

std::string CSDateTime::ToIso() const {
    int y, mo, d, h, mi, s, ms;
    GetParts(y, mo, d, h, mi, s, ms);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d.%03d", y, mo, d, h, mi, s, ms);
    return buf;
}

std::string CSDateTime::ToDateText() const {
    int y, mo, d, h, mi, s, ms;
    GetParts(y, mo, d, h, mi, s, ms);
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", y, mo, d);
    return buf;
}

bool CSDateTime::FromText(const std::string& text, CSDateTime& result) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, n = 0;
    double s = 0.0;
    const char* t = text.c_str();
    auto valid = [&] {
        return mo >= 1 && mo <= 12 && d >= 1 && d <= 31 && h >= 0 && h < 24 && mi >= 0 && mi < 60 && s >= 0 &&
               s < 61 && y >= 100 && y <= 9999;
    };
    if (std::sscanf(t, "%4d-%2d-%2d%n", &y, &mo, &d, &n) == 3) {
        const char* rest = t + n;
        if (*rest == 'T' || *rest == ' ') {
            int m2 = 0;
            if (std::sscanf(rest + 1, "%2d:%2d%n", &h, &mi, &m2) != 2) return false;
            rest += 1 + m2;
            if (*rest == ':') {
                int m3 = 0;
                if (std::sscanf(rest + 1, "%lf%n", &s, &m3) != 1) return false;
                rest += 1 + m3;
            }
        }
        if (*rest != '\0' || !valid()) return false;
        result = CSDateTime(y, mo, d, h, mi, s);
        return true;
    }
    char sep1 = 0, sep2 = 0;
    if (std::sscanf(t, "%2d%c%2d%c%4d%n", &d, &sep1, &mo, &sep2, &y, &n) == 5 && sep1 == sep2 &&
        (sep1 == '/' || sep1 == '.') && t[n] == '\0' && valid()) {
        result = CSDateTime(y, mo, d);
        return true;
    }
    return false;
}

CSDateTime CSDateTime::operator+(const CSTimeSpan& s) const { return FromLinear(Linear() + s.GetTotalDays()); }

CSDateTime CSDateTime::operator-(const CSTimeSpan& s) const { return FromLinear(Linear() - s.GetTotalDays()); }

CSTimeSpan CSDateTime::operator-(const CSDateTime& o) const {
    double ms = std::round((Linear() - o.Linear()) * 86400000.0);
    return CSTimeSpan(ms / 1000.0);
}

CArchive& operator<<(CArchive& ar, const CSDateTime& dt) { return ar << dt.GetValue(); }

CArchive& operator>>(CArchive& ar, CSDateTime& dt) {
    double v;
    ar >> v;
    dt.SetValue(v);
    return ar;
}

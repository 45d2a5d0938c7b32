#include "DLDateTime.h"

#include <QDate>
#include <QDateTime>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace brindle {

namespace {

constexpr int64_t MSecsPerDay = 86400000;
// Julian day number of day 0 (1899-12-30), as QDate counts it.
constexpr int64_t JulianDayOfDayZero = 2415019;
// Julian day number (at noon) of day 0 minus one half.
constexpr double JulianDayOffset = 2415018.5;
constexpr double LastDateTimeValue = 219140.0;  // 2499-12-24
// Keeps the millisecond arithmetic far from integer overflow.
constexpr double MaxDays = 1e9;

// Days since 1899-12-30 of a valid calendar date in years 1 to 9999.
bool TryDayNumber(int year, int month, int day, int64_t& result) {
    if (year < 1 || year > 9999 || !QDate::isValid(year, month, day)) return false;
    result = QDate(year, month, day).toJulianDay() - JulianDayOfDayZero;
    return true;
}

// Day number and time of day, joined as the negative-date convention wants:
// before day 0 the fraction still counts forward from midnight.
double Combine(double date, double time) {
    return date < 0 ? date - time : date + time;
}

// A part of a date text as a whole number; false unless it reads as a
// finite number in the fixed "." format.
bool ReadPart(const QString& text, int& result) {
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value) || std::fabs(value) > 1e9) return false;
    result = static_cast<int>(std::nearbyint(value));  // half to even
    return true;
}

bool ReadDigits(QStringView s, qsizetype& i, qsizetype minCount, qsizetype maxCount, int& result) {
    const qsizetype start = i;
    result = 0;
    while (i < s.size() && i - start < maxCount && s.at(i).isDigit() && s.at(i).unicode() < 128) {
        result = result * 10 + (s.at(i).unicode() - u'0');
        ++i;
    }
    return i - start >= minCount;
}

bool Expect(QStringView s, qsizetype& i, char16_t c) {
    if (i >= s.size() || s.at(i) != c) return false;
    ++i;
    return true;
}

// "yyyy-mm-ddThh:nn[:ss[.fff...]][(+|-)hh:nn]" as an XML dateTime without
// zone designator; an offset is checked and then ignored, so the result is
// the wall-clock time as written.
bool TryIso8601(QStringView s, double& result) {
    qsizetype i = 0;
    int year, month, day, hour, minute, second = 0, msec = 0;
    if (!ReadDigits(s, i, 4, 4, year) || !Expect(s, i, u'-') || !ReadDigits(s, i, 2, 2, month) ||
        !Expect(s, i, u'-') || !ReadDigits(s, i, 2, 2, day))
        return false;
    if (i >= s.size() || (s.at(i) != u'T' && s.at(i) != u't')) return false;
    ++i;
    if (!ReadDigits(s, i, 2, 2, hour) || !Expect(s, i, u':') || !ReadDigits(s, i, 2, 2, minute)) return false;
    if (i < s.size() && s.at(i) == u':') {
        ++i;
        if (!ReadDigits(s, i, 2, 2, second)) return false;
        if (i < s.size() && s.at(i) == u'.') {
            ++i;
            // Digits past the millisecond are dropped.
            const qsizetype start = i;
            while (i < s.size() && s.at(i).isDigit() && s.at(i).unicode() < 128) {
                if (i - start < 3) msec = msec * 10 + (s.at(i).unicode() - u'0');
                ++i;
            }
            const qsizetype count = i - start;
            if (count == 0) return false;
            for (qsizetype n = count; n < 3; ++n) msec *= 10;
        }
    }
    if (i < s.size() && (s.at(i) == u'+' || s.at(i) == u'-')) {
        ++i;
        int offsetHour, offsetMinute;
        if (!ReadDigits(s, i, 2, 2, offsetHour) || !Expect(s, i, u':') ||
            !ReadDigits(s, i, 2, 2, offsetMinute) || offsetHour > 14 || offsetMinute > 59)
            return false;
    }
    if (i != s.size()) return false;

    int64_t days;
    if (!TryDayNumber(year, month, day, days)) return false;
    // 24:00:00 is the midnight that ends the day.
    if (hour == 24 && minute == 0 && second == 0 && msec == 0) {
        ++days;
        hour = 0;
    }
    double time;
    if (!TryEncodeTime(hour, minute, second, msec, time)) return false;
    result = Combine(static_cast<double>(days), time);
    return true;
}

// Reads the stored text forms; false for anything else.
bool TryStringToDateTime(const QString& value, double& result) {
    QString s = value.trimmed();
    if (s.isEmpty()) return false;

    bool isNumber = false;
    const double number = s.toDouble(&isNumber);
    if (isNumber && std::isfinite(number)) {
        result = FloatToDateTime(number);
        return true;
    }

    if (s.endsWith(u'Z', Qt::CaseInsensitive)) s.chop(1);
    if (s.contains(u'T', Qt::CaseInsensitive)) return TryIso8601(s, result);

    // Fixed-width parts, each removed from the front once read.
    QString yearText = QStringLiteral("0"), monthText = yearText, dayText = yearText;
    QString hourText = yearText, minuteText = yearText, secondText = yearText, msecText = yearText;
    const bool hasDate = s.contains(u'-');
    if (hasDate) {
        if (s.indexOf(u'-') != 4) return false;
        yearText = s.left(4);
        s.remove(0, 5);
        if (s.indexOf(u'-') != 2) return false;
        monthText = s.left(2);
        s.remove(0, 3);
        // Whatever single character follows the day separates it from the time.
        dayText = s.left(2);
        s.remove(0, 3);
    }

    s = s.trimmed();
    if (!s.isEmpty()) {
        if (s.indexOf(u':') != 2) return false;
        hourText = s.left(2);
        s.remove(0, 3);
        const qsizetype colon = s.indexOf(u':');
        if (colon != -1 && colon != 2) return false;
        minuteText = s.left(2);
        s.remove(0, colon == 2 ? 3 : 2);
    }

    s = s.trimmed();
    if (!s.isEmpty()) {
        const qsizetype dot = s.indexOf(u'.');
        if (dot != -1 && dot != 2) return false;
        secondText = s.left(2);
        s.remove(0, dot == 2 ? 3 : 2);
    }

    s = s.trimmed();
    if (!s.isEmpty()) msecText = s.left(3);

    int year, month, day, hour, minute, second, msec;
    if (!ReadPart(yearText, year) || !ReadPart(monthText, month) || !ReadPart(dayText, day) ||
        !ReadPart(hourText, hour) || !ReadPart(minuteText, minute) || !ReadPart(secondText, second) ||
        !ReadPart(msecText, msec))
        return false;
    if (hasDate) return TryEncodeDateTime(year, month, day, hour, minute, second, msec, result);
    return TryEncodeTime(hour, minute, second, msec, result);
}

}  // namespace

double JulianDayToDateTime(double value) {
    return value - JulianDayOffset;
}

double FloatToDateTime(double value) {
    return value > LastDateTimeValue ? JulianDayToDateTime(value) : value;
}

double StringToDateTime(const QString& value) {
    double result = 0;
    return TryStringToDateTime(value, result) ? result : 0;
}

QString DateTimeToString(double value) {
    int year, month, day, hour, minute, second, msec;
    DecodeDateTime(value, year, month, day, hour, minute, second, msec);
    return QString::asprintf("%04d-%02d-%02d %02d:%02d:%02d.%03d", year, month, day, hour, minute, second,
                             msec);
}

QString DateToString(double value) {
    int year, month, day, hour, minute, second, msec;
    DecodeDateTime(value, year, month, day, hour, minute, second, msec);
    return QString::asprintf("%04d-%02d-%02d", year, month, day);
}

QString TimeToString(double value) {
    int year, month, day, hour, minute, second, msec;
    DecodeDateTime(value, year, month, day, hour, minute, second, msec);
    return QString::asprintf("%02d:%02d:%02d.%03d", hour, minute, second, msec);
}

bool TryEncodeDate(int year, int month, int day, double& result) {
    int64_t days;
    if (!TryDayNumber(year, month, day, days)) return false;
    result = static_cast<double>(days);
    return true;
}

bool TryEncodeTime(int hour, int minute, int second, int msec, double& result) {
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59 || msec < 0 ||
        msec > 999)
        return false;
    const int64_t ms = ((hour * 60LL + minute) * 60 + second) * 1000 + msec;
    result = static_cast<double>(ms) / MSecsPerDay;
    return true;
}

bool TryEncodeDateTime(int year, int month, int day, int hour, int minute, int second, int msec,
                       double& result) {
    double date, time;
    if (!TryEncodeDate(year, month, day, date) || !TryEncodeTime(hour, minute, second, msec, time))
        return false;
    result = Combine(date, time);
    return true;
}

void DecodeDateTime(double value, int& year, int& month, int& day, int& hour, int& minute, int& second,
                    int& msec) {
    if (!std::isfinite(value)) value = 0;
    value = std::clamp(value, -MaxDays, MaxDays);
    // Round the whole value to the millisecond first, so that a time a hair
    // below a full second does not print one millisecond short; the day then
    // comes from the rounded count, truncated toward zero.
    const auto total = static_cast<int64_t>(std::nearbyint(value * MSecsPerDay));
    const int64_t days = total / MSecsPerDay;
    int64_t time = std::llabs(total) % MSecsPerDay;

    const QDate date = QDate::fromJulianDay(days + JulianDayOfDayZero);
    year = date.year();
    month = date.month();
    day = date.day();
    msec = static_cast<int>(time % 1000);
    time /= 1000;
    second = static_cast<int>(time % 60);
    time /= 60;
    minute = static_cast<int>(time % 60);
    hour = static_cast<int>(time / 60);
}

double NowAsDateTime() {
    const QDateTime now = QDateTime::currentDateTime();
    return (now.toMSecsSinceEpoch() + now.offsetFromUtc() * 1000.0) / 86400000.0 + 25569.0;
}

}  // namespace brindle

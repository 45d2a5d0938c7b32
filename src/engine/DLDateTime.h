// Dates and times as the program stores them: a double of days since
// 1899-12-30 with the time of day in the fraction, and the fixed text forms
// "yyyy-mm-dd", "hh:nn:ss.zzz" and both joined by a blank.
#pragma once

#include <QString>

namespace brindle {

double JulianDayToDateTime(double value);
// Values above 219140.0 (2499-12-24) are taken for Julian day numbers.
double FloatToDateTime(double value);
// Never raises: text that cannot be read gives 0.
double StringToDateTime(const QString& value);
QString DateTimeToString(double value);
QString DateToString(double value);
QString TimeToString(double value);
// Now, local time, as such a day count.
double NowAsDateTime();

// Calendar helpers over the same day count; false when a part is out of range.
bool TryEncodeDate(int year, int month, int day, double& result);
bool TryEncodeTime(int hour, int minute, int second, int msec, double& result);
bool TryEncodeDateTime(int year, int month, int day, int hour, int minute, int second, int msec,
                       double& result);
void DecodeDateTime(double value, int& year, int& month, int& day, int& hour, int& minute, int& second,
                    int& msec);

}  // namespace brindle

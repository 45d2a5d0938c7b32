#include "engine/DLDateTime.h"

#include <gtest/gtest.h>
#include <QLocale>

namespace brindle {
namespace {

TEST(DateTime, ReadsStoredText) {
    // A locale with a decimal comma must not change how numbers are read.
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const struct {
        QString text, expected;
    } cases[] = {
        {"2014-08-15", "2014-08-15 00:00:00.000"},
        {"10:30", "1899-12-30 10:30:00.000"},
        {" 2014-08-15 10:30:15.123 ", "2014-08-15 10:30:15.123"},
        {"2014-08-15x10:30", "2014-08-15 10:30:00.000"},  // any separator after the day
        {"10:30:15.5", "1899-12-30 10:30:15.005"},        // milliseconds are the digits as written
        {"10:30 15", "1899-12-30 10:30:15.000"},
        {"2014-08-15T10:30:15.1234Z", "2014-08-15 10:30:15.123"},
        {"2014-08-15t10:30:15+02:00", "2014-08-15 10:30:15.000"},
        {"2014-08-15T24:00:00", "2014-08-16 00:00:00.000"},
        {"41866.75", "2014-08-15 18:00:00.000"},   // a day count
        {"2456884.5", "2014-08-15 00:00:00.000"},  // a Julian day
        {"219140", "2499-12-24 00:00:00.000"},     // the limit is still a day count
        {"1899-12-29 18:00", "1899-12-29 18:00:00.000"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(DateTimeToString(StringToDateTime(c.text)), c.expected) << c.text.toStdString();
    for (const QString bad :
         {"", "  ", "2014-8-15", "Tuesday", "2014-08-15T25:00", "2014-02-30", "2014-08-15 25:00", "12:3:45",
          "1:30", "10:30:1.5", "nan", "2014-08-15 10", "abcd-08-15"})
        EXPECT_EQ(StringToDateTime(bad), 0.0) << bad.toStdString();
    QLocale::setDefault(QLocale::c());
}

TEST(DateTime, DayCountsAndNegativeValues) {
    EXPECT_EQ(FloatToDateTime(219140.0), 219140.0);
    EXPECT_EQ(FloatToDateTime(2415018.5), 0.0);
    EXPECT_EQ(StringToDateTime("-1.75"), -1.75);
    // Before day 0 the fraction is still the time of day counted from midnight.
    double value = 0;
    ASSERT_TRUE(TryEncodeDateTime(1899, 12, 29, 6, 0, 0, 0, value));
    EXPECT_EQ(value, -1.25);
    EXPECT_EQ(DateTimeToString(-1.25), "1899-12-29 06:00:00.000");
    EXPECT_EQ(DateTimeToString(-0.25), "1899-12-30 06:00:00.000");
}

TEST(DateTime, FormatsRoundToTheMillisecond) {
    EXPECT_EQ(DateToString(41866.999), "2014-08-15");
    EXPECT_EQ(TimeToString(0.5), "12:00:00.000");
    EXPECT_EQ(DateTimeToString(1.0 - 1e-10), "1899-12-31 00:00:00.000");
    // Every millisecond of a few seconds survives encoding, printing and reading.
    for (int second = 57; second < 60; ++second) {
        for (int msec = 0; msec < 1000; ++msec) {
            double value = 0;
            ASSERT_TRUE(TryEncodeDateTime(2014, 8, 15, 23, 59, second, msec, value));
            const QString text = QString::asprintf("2014-08-15 23:59:%02d.%03d", second, msec);
            ASSERT_EQ(DateTimeToString(value), text);
            ASSERT_EQ(StringToDateTime(text), value);
        }
    }
}

TEST(DateTime, EncodeRejectsOutOfRangeParts) {
    double value = 0;
    EXPECT_TRUE(TryEncodeDate(2012, 2, 29, value));
    EXPECT_FALSE(TryEncodeDate(2014, 2, 29, value) || TryEncodeDate(0, 1, 1, value) ||
                 TryEncodeDate(10000, 1, 1, value) || TryEncodeDate(2014, 13, 1, value));
    EXPECT_FALSE(TryEncodeTime(24, 0, 0, 0, value) || TryEncodeTime(0, 60, 0, 0, value) ||
                 TryEncodeTime(0, 0, 60, 0, value) || TryEncodeTime(0, 0, 0, 1000, value) ||
                 TryEncodeTime(-1, 0, 0, 0, value));
}

}  // namespace
}  // namespace brindle

// Timestamp text <-> dates, local formatting and the relative questions.
#include "IMDate.h"
#include "TimeZone.h"

#include <QLocale>
#include <QTimeZone>
#include <gtest/gtest.h>

TEST(ModelDate, TimestampsRoundTripInEveryTimeZone)
{
    const QStringList texts {
        "2016-01-02T03:04:05.678Z", "2016-05-04T09:30:00.000Z", "1999-12-31T23:59:59.999Z", "2024-02-29T00:00:00.001Z"};
    for (const char *zone : {"UTC", "Asia/Taipei", "America/Los_Angeles", "Pacific/Chatham", "Asia/Kolkata"}) {
        ScopedTimeZone tz(zone);
        for (const QString &text : texts) {
            const QDateTime date = IMDate::toDate(text);
            ASSERT_TRUE(date.isValid()) << zone << " " << text.toStdString();
            EXPECT_EQ(IMDate::toString8601(date), text) << zone;
            EXPECT_EQ(IMDate::toString8601(date.toLocalTime()), text) << zone;
        }
    }
    const QDateTime date = IMDate::toDate("2016-01-02T03:04:05.678Z");
    EXPECT_EQ(date, QDateTime(QDate(2016, 1, 2), QTime(3, 4, 5, 678), Qt::UTC));
}

TEST(ModelDate, OnlyTheExactPatternGivesADate)
{
    for (const char *text : {"2016-01-02T03:04:05Z", "2016-01-02T03:04:05.678+08:00", "2016-01-02T03:04:05.678",
             "2016-01-02 03:04:05.678Z", "2016-02-30T03:04:05.678Z", "2016-01-02T24:04:05.678Z",
             "2016-01-02T03:04:05.67Z", "2016-01-02T03:04:05.6789Z", "x016-01-02T03:04:05.678Z", "", "garbage"})
        EXPECT_FALSE(IMDate::toDate(QString::fromLatin1(text)).isValid()) << text;
    EXPECT_TRUE(IMDate::toDate(QString()).isNull());
    EXPECT_TRUE(IMDate::toString8601(QDateTime()).isNull());
}

TEST(ModelDate, LocalFormattingUsesTheDeviceZone)
{
    QLocale::setDefault(QLocale::c());
    const QString text = "2016-05-04T09:30:05.120Z";
    const struct {
        const char *zone, *format, *expected;
    } cases[] = {{"Asia/Taipei", "yyyy/MM/dd HH:mm", "2016/05/04 17:30"}, {"Asia/Taipei", "h:mm a", "5:30 PM"},
        {"Asia/Taipei", "'at' HH'h' ss.SSS ''", "at 17h 05.120 '"}, {"Asia/Taipei", "EEE d MMM yy", "Wed 4 May 16"},
        {"America/Los_Angeles", "M/d HH:mm", "5/4 02:30"}, {"America/Los_Angeles", "hh:mm a", "02:30 AM"}};
    for (const auto &c : cases) {
        ScopedTimeZone tz(c.zone);
        EXPECT_EQ(IMDate::toStringWithDateFormat(text, c.format), c.expected) << c.zone << " " << c.format;
    }
    EXPECT_TRUE(IMDate::toStringWithDateFormat("2016-05-04T09:30:05Z", "HH:mm").isNull());
    QLocale::setDefault(QLocale::system());
}

TEST(ModelDate, RelativeUnitsRoundDownAndCalendarTestsCompareOneComponent)
{
    const QDateTime now = QDateTime(QDate(2020, 3, 15), QTime(12, 0), Qt::UTC);
    EXPECT_EQ(IMDate::hoursAgo(now.addSecs(-59 * 60), now), 0u);
    EXPECT_EQ(IMDate::minutesAgo(now.addSecs(-59 * 60), now), 59u);
    EXPECT_EQ(IMDate::daysAgo(now.addSecs(-86399), now), 0u);
    EXPECT_EQ(IMDate::daysAgo(now.addSecs(-86400), now), 1u);
    EXPECT_EQ(IMDate::secondsBefore(now.addMSecs(-1999), now), 1u);
    EXPECT_EQ(IMDate::secondsBefore(now.addSecs(30), now), 0u);
    EXPECT_EQ(IMDate::daysAgo(now.addDays(3), now), 0u);
    EXPECT_EQ(IMDate::secondsBefore(QDateTime(), now), 0u);
    // The default "now" is the current moment.
    EXPECT_EQ(IMDate::minutesAgo(QDateTime::currentDateTimeUtc().addSecs(-125)), 2u);

    // Calendar questions compare one component only, in the local calendar.
    ScopedTimeZone tz("Asia/Taipei");
    const auto local
        = [](int y, int m, int d) { return QDateTime(QDate(y, m, d), QTime(12, 0), QTimeZone("Asia/Taipei")); };

    EXPECT_TRUE(IMDate::isToday(local(2020, 2, 15), now)); // same day number, other month
    EXPECT_FALSE(IMDate::isToday(local(2020, 3, 14), now));
    EXPECT_TRUE(IMDate::isThisMonth(local(2011, 3, 1), now)); // same month, other year
    EXPECT_FALSE(IMDate::isThisMonth(local(2020, 4, 15), now));
    EXPECT_TRUE(IMDate::isThisYear(local(2020, 12, 31), now));
    EXPECT_FALSE(IMDate::isThisYear(local(2019, 3, 15), now));
    EXPECT_TRUE(IMDate::isThisWeek(local(2020, 3, 11), now)); // Wednesday of the same week
    EXPECT_FALSE(IMDate::isThisWeek(local(2019, 3, 13), now)); // same week number, other year
    EXPECT_TRUE(IMDate::isThisEra(local(1, 1, 1), now));
    EXPECT_FALSE(IMDate::isThisEra(local(-44, 3, 15), now));
    EXPECT_FALSE(IMDate::isTime(now, 5, now));
    EXPECT_FALSE(IMDate::isTime(QDateTime(), 0, now));

    // Day boundaries are local: 16:30 UTC on the 14th is already the 15th in Taipei.
    EXPECT_TRUE(IMDate::isToday(QDateTime(QDate(2020, 3, 14), QTime(16, 30), Qt::UTC), now));
}

#pragma once

#include <QDateTime>
#include <QString>

//! Timestamps as the kit's records carry them: the text "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'" in GMT
//! (2016-05-04T09:30:00.000Z), and the relative questions the screens ask about dates.
//! Stateless and thread-safe.
class IMDate {
public:
    //! Units of `isTime`.
    enum Unit { Day = 0, Week = 1, Month = 2, Year = 3, Era = 4 };

    //! The date of a timestamp text, in UTC; invalid unless the text matches the pattern exactly
    //! (no missing milliseconds, no zone offset, a real calendar date and time).
    static QDateTime toDate(const QString &text);
    //! The timestamp text of `date` in GMT; null for an invalid date.
    static QString toString8601(const QDateTime &date);
    //! `toDate(text)` formatted with the date `pattern` (Unicode date pattern letters: y, M, d,
    //! E, a, H, h, K, k, m, s, S; quoted literals) in the device's time zone and locale. Null
    //! when the text gives no date.
    static QString toStringWithDateFormat(const QString &text, const QString &pattern);

    //! Compares `date` with `now` in the local calendar by one component only: 0 the day of the
    //! month, 1 the week of the year and the year, 2 the month number, 3 the year, 4 the era;
    //! false for another unit. So 15 February "is today" on 15 March.
    static bool isTime(const QDateTime &date, int unit, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `isTime(date, Day)`.
    static bool isToday(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `isTime(date, Week)`.
    static bool isThisWeek(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `isTime(date, Month)`.
    static bool isThisMonth(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `isTime(date, Year)`.
    static bool isThisYear(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `isTime(date, Era)`.
    static bool isThisEra(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());

    //! Whole seconds from `date` to `now`; 0 for a date in the future or an invalid one.
    static quint64 secondsBefore(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `secondsBefore / 86400`, rounded down.
    static quint64 daysAgo(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `secondsBefore / 3600`, rounded down.
    static quint64 hoursAgo(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
    //! `secondsBefore / 60`, rounded down.
    static quint64 minutesAgo(const QDateTime &date, const QDateTime &now = QDateTime::currentDateTimeUtc());
};

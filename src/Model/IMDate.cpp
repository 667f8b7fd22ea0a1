#include "IMDate.h"

#include <QDate>
#include <QLocale>
#include <QTime>
#include <QTimeZone>

namespace {
// Reads `count` ASCII digits at `pos`; -1 when any is not a digit.
int digits(const QString &text, int pos, int count)
{
    int value = 0;
    for (int i = pos; i < pos + count; ++i) {
        const QChar c = text.at(i);
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return -1;
        value = value * 10 + (c.unicode() - '0');
    }
    return value;
}

// Gregorian era: 1 for years of the common era, 0 before it (Qt has no year 0).
int era(const QDate &date) { return date.year() > 0 ? 1 : 0; }

QString pad(int value, int width) { return QStringLiteral("%1").arg(value, width, 10, QLatin1Char('0')); }

// One run of a pattern letter, formatted the way the Unicode date patterns define it.
QString field(QChar letter, int count, const QDateTime &local, const QLocale &locale)
{
    const QDate date = local.date();
    const QTime time = local.time();
    switch (letter.unicode()) {
    case 'y':
    case 'Y':
    case 'u':
        return count == 2 ? pad(qAbs(date.year()) % 100, 2) : pad(date.year(), count);
    case 'M':
    case 'L':
        if (count >= 4)
            return locale.monthName(date.month(), QLocale::LongFormat);
        if (count == 3)
            return locale.monthName(date.month(), QLocale::ShortFormat);
        return pad(date.month(), count);
    case 'd':
        return pad(date.day(), count);
    case 'D':
        return pad(date.dayOfYear(), count);
    case 'E':
    case 'e':
    case 'c':
        return locale.dayName(date.dayOfWeek(), count >= 4 ? QLocale::LongFormat : QLocale::ShortFormat);
    case 'a':
        return time.hour() < 12 ? locale.amText() : locale.pmText();
    case 'H':
        return pad(time.hour(), count);
    case 'k':
        return pad(time.hour() == 0 ? 24 : time.hour(), count);
    case 'h':
        return pad(time.hour() % 12 == 0 ? 12 : time.hour() % 12, count);
    case 'K':
        return pad(time.hour() % 12, count);
    case 'm':
        return pad(time.minute(), count);
    case 's':
        return pad(time.second(), count);
    case 'S': {
        // Fractions of a second: the leading `count` digits of the milliseconds.
        const QString ms = pad(time.msec(), 3);
        return count <= 3 ? ms.left(count) : ms + QString(count - 3, QLatin1Char('0'));
    }
    case 'G':
        return era(date) ? QStringLiteral("AD") : QStringLiteral("BC");
    default:
        return QString(count, letter);
    }
}
} // namespace

QDateTime IMDate::toDate(const QString &text)
{
    // Exactly "yyyy-MM-ddTHH:mm:ss.SSSZ": 24 characters, fixed separators.
    if (text.size() != 24 || text.at(4) != QLatin1Char('-') || text.at(7) != QLatin1Char('-')
        || text.at(10) != QLatin1Char('T') || text.at(13) != QLatin1Char(':') || text.at(16) != QLatin1Char(':')
        || text.at(19) != QLatin1Char('.') || text.at(23) != QLatin1Char('Z'))
        return {};
    const int year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
    const int hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
    const int msec = digits(text, 20, 3);
    if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0 || second < 0 || msec < 0)
        return {};
    const QDate date(year, month, day);
    const QTime time(hour, minute, second, msec);
    if (!date.isValid() || !time.isValid())
        return {};
    return QDateTime(date, time, Qt::UTC);
}

QString IMDate::toString8601(const QDateTime &date)
{
    if (!date.isValid())
        return {};
    const QDateTime utc = date.toUTC();
    const QDate d = utc.date();
    const QTime t = utc.time();
    return QStringLiteral("%1-%2-%3T%4:%5:%6.%7Z")
        .arg(pad(d.year(), 4), pad(d.month(), 2), pad(d.day(), 2), pad(t.hour(), 2), pad(t.minute(), 2),
            pad(t.second(), 2), pad(t.msec(), 3));
}

QString IMDate::toStringWithDateFormat(const QString &text, const QString &pattern)
{
    const QDateTime date = toDate(text);
    if (!date.isValid())
        return {};
    const QDateTime local = date.toLocalTime();
    const QLocale locale;
    QString out;
    for (int i = 0; i < pattern.size();) {
        const QChar c = pattern.at(i);
        if (c == QLatin1Char('\'')) {
            // A quoted literal; '' is one quote, inside or outside quotes.
            if (i + 1 < pattern.size() && pattern.at(i + 1) == QLatin1Char('\'')) {
                out += QLatin1Char('\'');
                i += 2;
                continue;
            }
            ++i;
            while (i < pattern.size()) {
                if (pattern.at(i) == QLatin1Char('\'')) {
                    if (i + 1 < pattern.size() && pattern.at(i + 1) == QLatin1Char('\'')) {
                        out += QLatin1Char('\'');
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                out += pattern.at(i++);
            }
        } else if ((c >= QLatin1Char('a') && c <= QLatin1Char('z'))
            || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))) {
            int count = 1;
            while (i + count < pattern.size() && pattern.at(i + count) == c)
                ++count;
            out += field(c, count, local, locale);
            i += count;
        } else {
            out += c;
            ++i;
        }
    }
    return out;
}

bool IMDate::isTime(const QDateTime &date, int unit, const QDateTime &now)
{
    if (!date.isValid() || !now.isValid())
        return false;
    const QDate a = date.toLocalTime().date();
    const QDate b = now.toLocalTime().date();
    switch (unit) {
    case Day:
        return a.day() == b.day();
    case Week:
        return a.weekNumber() == b.weekNumber() && a.year() == b.year();
    case Month:
        return a.month() == b.month();
    case Year:
        return a.year() == b.year();
    case Era:
        return era(a) == era(b);
    default:
        return false;
    }
}

bool IMDate::isToday(const QDateTime &date, const QDateTime &now) { return isTime(date, Day, now); }
bool IMDate::isThisWeek(const QDateTime &date, const QDateTime &now) { return isTime(date, Week, now); }
bool IMDate::isThisMonth(const QDateTime &date, const QDateTime &now) { return isTime(date, Month, now); }
bool IMDate::isThisYear(const QDateTime &date, const QDateTime &now) { return isTime(date, Year, now); }
bool IMDate::isThisEra(const QDateTime &date, const QDateTime &now) { return isTime(date, Era, now); }

quint64 IMDate::secondsBefore(const QDateTime &date, const QDateTime &now)
{
    if (!date.isValid() || !now.isValid())
        return 0;
    const qint64 ms = date.msecsTo(now);
    return ms > 0 ? quint64(ms / 1000) : 0;
}

quint64 IMDate::daysAgo(const QDateTime &date, const QDateTime &now) { return secondsBefore(date, now) / 86400; }
quint64 IMDate::hoursAgo(const QDateTime &date, const QDateTime &now) { return secondsBefore(date, now) / 3600; }
quint64 IMDate::minutesAgo(const QDateTime &date, const QDateTime &now) { return secondsBefore(date, now) / 60; }

#include "IMRelativeDate.h"

#include <QCoreApplication>
#include <QLocale>

QString IMRelativeDateString(const QDateTime &date, bool withTime, const QDateTime &now)
{
    if (!date.isValid())
        return QString();
    const QDateTime local = date.toLocalTime();
    const QDate today = (now.isValid() ? now : QDateTime::currentDateTime()).toLocalTime().date();
    // Qt's "C" locale spells short formats in full (seconds, month names); a device without a
    // language reads better with the common short forms.
    const QLocale locale
        = QLocale().language() == QLocale::C ? QLocale(QLocale::English, QLocale::UnitedStates) : QLocale();
    QString day;
    if (local.date() == today)
        day = QCoreApplication::translate("IMRelativeDate", "今天");
    else if (local.date() == today.addDays(-1))
        day = QCoreApplication::translate("IMRelativeDate", "昨天");
    else
        day = locale.toString(local.date(), QLocale::ShortFormat);
    if (!withTime)
        return day;
    // The "C" locale's short time carries seconds; a chat shows hours and minutes.
    const QString time = locale.language() == QLocale::C ? local.time().toString(QStringLiteral("HH:mm"))
                                                         : locale.toString(local.time(), QLocale::ShortFormat);
    return day + QLatin1Char(' ') + time;
}

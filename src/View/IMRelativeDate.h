#pragma once

#include <QDateTime>
#include <QString>

//! `date` in the user's locale, short style, with "今天" / "昨天" (through the translations) in
//! place of today's and yesterday's date; with `withTime` the time of day follows. Empty for an
//! invalid date.
QString IMRelativeDateString(const QDateTime &date, bool withTime = true, const QDateTime &now = QDateTime());

#pragma once

// JSON text for the store's archived records, straight to and from QVariant: the records'
// dictionaries are small and many, and the general QJsonDocument route (through CBOR values)
// costs several times more per record.

#include <QByteArray>
#include <QVariant>
#include <QVariantMap>

namespace IMJSONText {

//! Appends `map` as compact JSON text to `out`. Numbers keep their integer or real kind;
//! non-finite reals, invalid and null values are written as null.
void write(const QVariantMap &map, QByteArray *out);
//! `write` into a new array.
QByteArray toJson(const QVariantMap &map);
//! Parses a JSON object; false (and `*out` untouched) for anything else or malformed text.
//! Integers become qlonglong (reals when they do not fit), null a nullptr variant.
bool parseObject(const char *data, qsizetype size, QVariantMap *out);

} // namespace IMJSONText

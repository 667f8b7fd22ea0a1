#pragma once

// JSON text for the records as the store archives them, straight to and from QVariant: the records'
// dictionaries are small and many, and the general QJsonDocument route (through CBOR values)
// costs several times more per record.

#include <QByteArray>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <utility>

namespace IMJSONText {

//! Appends `map` as compact JSON text to `out`. Numbers keep their integer or real kind;
//! non-finite reals, invalid and null values are written as null.
void write(const QVariantMap &map, QByteArray *out);
//! `write` into a new array.
QByteArray toJson(const QVariantMap &map);
//! An object's member: key and value.
using Member = std::pair<QString, QVariant>;
//! An object of `members`, written in their order (a dictionary's is by key).
QByteArray toJson(const Member *members, qsizetype count);
//! Parses a JSON object; false (and `*out` untouched) for anything else or malformed text.
//! Integers become qlonglong (reals when they do not fit), null a nullptr variant.
bool parseObject(const char *data, qsizetype size, QVariantMap *out);

//! Where a value lies in the parsed text; `size` 0 when the key was absent.
struct Span
{
    qsizetype offset = 0;
    qsizetype size = 0;
};
//! Parses a JSON object member by member: `member` gets each top-level key and value in the
//! text's order, and returns false to stop, which fails the parse. The values under
//! `deferredKeys` are not given: `spans[i]` tells where the value of `deferredKeys[i]` is (the
//! last one when a key repeats). Of a deferred object or array only the brackets and strings
//! are checked here (parse its span to read it); malformed text elsewhere fails as in `parseObject`.
bool parseMembers(const char *data, qsizetype size, const QLatin1StringView *deferredKeys, int deferredCount,
                  Span *spans, const std::function<bool(const QString &key, const QVariant &value)> &member);

} // namespace IMJSONText

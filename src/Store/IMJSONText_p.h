#pragma once

// JSON text for the records as the store archives them, straight to and from QVariant: the records'
// dictionaries are small and many, and the general QJsonDocument route (through CBOR values)
// costs several times more per record.

#include <QByteArray>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <functional>

namespace IMJSONText {

//! Appends JSON text to a byte array through a cursor: the array grows geometrically (a reused
//! array keeps its capacity) and is cut to its length when the writer goes, so that the many small
//! appends of a record cost one comparison each. Numbers keep their integer or real kind;
//! non-finite reals, invalid and null values are written as null.
class Writer {
public:
    //! Appends to what `target` holds.
    explicit Writer(QByteArray *target);
    ~Writer();
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    //! One character of structure.
    void append(char c) { *reserve(1) = c, ++used; }
    //! A member's key and its colon.
    void key(const QString &key);
    //! A text, escaped; null for a null text.
    void string(const QString &text);
    //! A signed integer.
    void integer(qint64 value);
    //! An unsigned integer.
    void unsignedInteger(quint64 value);
    //! true or false.
    void boolean(bool value);
    //! An array of values.
    void list(const QVariantList &list, int depth = 0);
    //! An array of texts.
    void stringList(const QStringList &list);
    //! An object, members in key order.
    void map(const QVariantMap &map, int depth = 0);
    //! Any value, by its type.
    void value(const QVariant &value, int depth = 0);

private:
    char *reserve(qsizetype n);
    void append(const char *data, qsizetype n);
    void append(const QByteArray &bytes) { append(bytes.constData(), bytes.size()); }

    QByteArray *target;
    char *buffer = nullptr;
    qsizetype used;
    qsizetype capacity = 0;
};

//! Appends `map` as compact JSON text to `out`.
void write(const QVariantMap &map, QByteArray *out);
//! `write` into a new array.
QByteArray toJson(const QVariantMap &map);
//! Parses a JSON object; false (and `*out` untouched) for anything else or malformed text.
//! Integers become qlonglong (reals when they do not fit), null a nullptr variant.
bool parseObject(const char *data, qsizetype size, QVariantMap *out);

//! Where a value lies in the parsed text; `size` 0 when the key was absent.
struct Span {
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

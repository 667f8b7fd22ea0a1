#pragma once

// Conversions shared by the records' JSON mapping. A value converts when its JSON type fits the
// property (numbers and text convert into one another, as the server is not always consistent);
// any other type is a mismatch and makes the whole record fail to map.

#include <QSharedDataPointer>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>
#include <optional>
#include <type_traits>

namespace IMJSONMapping {

//! The one empty private part that new records share until their first change: making a
//! record costs no allocation, and copying one costs a reference count.
template <typename Private> QSharedDataPointer<Private> sharedEmpty()
{
    static const QSharedDataPointer<Private> empty(new Private);
    return empty;
}

enum class Status {
    Absent, //!< the key is missing or holds JSON null: the property is left as it is
    Ok, //!< converted
    Mismatch //!< present with a type that cannot become the property's type
};

//! True for a missing key or a JSON null.
bool isAbsent(const QVariant &value);

Status toString(const QVariant &value, QString *out);
Status toBool(const QVariant &value, bool *out);
Status toInt64(const QVariant &value, qint64 *out);
Status toUInt64(const QVariant &value, quint64 *out);
Status toInt32(const QVariant &value, qint32 *out);
Status toMap(const QVariant &value, QVariantMap *out);
Status toList(const QVariant &value, QVariantList *out);
Status toStringList(const QVariant &value, QStringList *out);

//! True when the member's `key` is `name` (the sizes first: most keys differ there).
inline bool isKey(const QString &key, QLatin1StringView name) { return key.size() == name.size() && key == name; }

//! Converts a member's `value` into `*out` with `convert`; an absent value leaves `*out`
//! untouched. Returns false only on a mismatch.
template <typename T, typename Convert> bool assign(const QVariant &value, T *out, Convert convert)
{
    return convert(value, out) != Status::Mismatch;
}

//! The same for a property with presence: a converted value sets it, an absent one leaves it.
template <typename T, typename Convert> bool assign(const QVariant &value, std::optional<T> *out, Convert convert)
{
    T converted {};
    switch (convert(value, &converted)) {
    case Status::Absent:
        return true;
    case Status::Ok:
        *out = std::move(converted);
        return true;
    case Status::Mismatch:
        return false;
    }
    return false;
}

//! `assign` for the value of `key` in `dict`, when there is one (`T` may be a std::optional).
template <typename T, typename Convert> bool read(const QVariantMap &dict, const QString &key, T *out, Convert convert)
{
    const auto it = dict.constFind(key);
    return it == dict.constEnd() || assign(it.value(), out, convert);
}

//! A required value: missing, null or mismatched all fail.
template <typename T, typename Convert>
bool readRequired(const QVariantMap &dict, const QString &key, T *out, Convert convert)
{
    const auto it = dict.constFind(key);
    return it != dict.constEnd() && convert(it.value(), out) == Status::Ok;
}

//! Visits a record's text property under `key` when it is set (not null).
template <typename Visitor> void visitString(const Visitor &field, const QString &key, const QString &value)
{
    if (!value.isNull())
        field.text(key, value);
}

//! Visits an optional property under `key` when it is set, by its type.
template <typename Visitor, typename T>
void visitOptional(const Visitor &field, const QString &key, const std::optional<T> &value)
{
    if (!value)
        return;
    if constexpr (std::is_same_v<T, bool>)
        field.boolean(key, *value);
    else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>)
        field.integer(key, *value);
    else if constexpr (std::is_integral_v<T>)
        field.unsignedInteger(key, *value);
    else if constexpr (std::is_same_v<T, QStringList>)
        field.stringList(key, *value);
    else if constexpr (std::is_same_v<T, QVariantList>)
        field.list(key, *value);
    else
        field.map(key, *value);
}

//! Writes `value` under `key` when the text is set (not null).
inline void writeString(QVariantMap &dict, const QString &key, const QString &value)
{
    if (!value.isNull())
        dict.insert(key, value);
}

//! Writes an optional value under `key` when it is set.
template <typename T> void writeOptional(QVariantMap &dict, const QString &key, const std::optional<T> &value)
{
    if (value)
        dict.insert(key, QVariant::fromValue(*value));
}

//! The list's dictionaries mapped with `make`; elements that are not dictionaries, or that fail
//! to map, are left out; nested lists are flattened.
template <typename Ptr, typename Make> QList<Ptr> mapArray(const QVariantList &array, Make make)
{
    QList<Ptr> out;
    out.reserve(array.size());
    for (const QVariant &element : array) {
        if (element.typeId() == QMetaType::QVariantMap) {
            if (Ptr record = make(element.toMap()))
                out.append(std::move(record));
        } else if (element.typeId() == QMetaType::QVariantList) {
            out.append(mapArray<Ptr>(element.toList(), make));
        }
    }
    return out;
}

} // namespace IMJSONMapping

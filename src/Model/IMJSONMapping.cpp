#include "IMJSONMapping_p.h"

#include <QJsonValue>
#include <QLocale>
#include <cmath>
#include <limits>

namespace IMJSONMapping {

namespace {
    bool isNumber(const QVariant &value)
    {
        switch (value.typeId()) {
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Double:
        case QMetaType::Float:
        case QMetaType::Long:
        case QMetaType::ULong:
        case QMetaType::Short:
        case QMetaType::UShort:
            return true;
        default:
            return false;
        }
    }

    bool isInteger(const QVariant &value)
    {
        return isNumber(value) && value.typeId() != QMetaType::Double && value.typeId() != QMetaType::Float;
    }

    // A JSON number or numeric text as a signed 64-bit value (fractions are cut off).
    bool numberToInt64(const QVariant &value, qint64 *out)
    {
        if (value.typeId() == QMetaType::Bool) {
            *out = value.toBool() ? 1 : 0;
            return true;
        }
        if (value.typeId() == QMetaType::ULongLong || value.typeId() == QMetaType::ULong) {
            const quint64 v = value.toULongLong();
            if (v > quint64(std::numeric_limits<qint64>::max()))
                return false;
            *out = qint64(v);
            return true;
        }
        if (isInteger(value)) {
            *out = value.toLongLong();
            return true;
        }
        double d = 0;
        if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float) {
            d = value.toDouble();
        } else if (value.typeId() == QMetaType::QString) {
            bool ok = false;
            const QString text = value.toString().trimmed();
            const qint64 whole = text.toLongLong(&ok);
            if (ok) {
                *out = whole;
                return true;
            }
            d = text.toDouble(&ok);
            if (!ok)
                return false;
        } else {
            return false;
        }
        // 2^63 is exactly representable; anything at or beyond it does not fit.
        if (!std::isfinite(d) || d >= 9223372036854775808.0 || d < -9223372036854775808.0)
            return false;
        *out = qint64(std::trunc(d));
        return true;
    }
} // namespace

bool isAbsent(const QVariant &value)
{
    return !value.isValid() || value.isNull() || value.typeId() == QMetaType::Nullptr;
}

Status toString(const QVariant &value, QString *out)
{
    if (value.typeId() == QMetaType::QString) {
        // A null QString inside a QVariant is JSON null: absent.
        if (value.toString().isNull())
            return Status::Absent;
        *out = value.toString();
        return Status::Ok;
    }
    if (isAbsent(value))
        return Status::Absent;
    if (value.typeId() == QMetaType::Bool) {
        *out = value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
        return Status::Ok;
    }
    if (isInteger(value)) {
        *out = value.toString();
        return Status::Ok;
    }
    if (isNumber(value)) {
        *out = QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
        return Status::Ok;
    }
    return Status::Mismatch;
}

Status toBool(const QVariant &value, bool *out)
{
    if (isAbsent(value))
        return Status::Absent;
    if (value.typeId() == QMetaType::Bool) {
        *out = value.toBool();
        return Status::Ok;
    }
    if (isNumber(value)) {
        *out = value.toDouble() != 0;
        return Status::Ok;
    }
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString().trimmed().toLower();
        if (text == QLatin1String("true") || text == QLatin1String("yes")) {
            *out = true;
            return Status::Ok;
        }
        if (text == QLatin1String("false") || text == QLatin1String("no")) {
            *out = false;
            return Status::Ok;
        }
        qint64 n = 0;
        if (numberToInt64(value, &n)) {
            *out = n != 0;
            return Status::Ok;
        }
    }
    return Status::Mismatch;
}

Status toInt64(const QVariant &value, qint64 *out)
{
    if (isAbsent(value))
        return Status::Absent;
    return numberToInt64(value, out) ? Status::Ok : Status::Mismatch;
}

Status toUInt64(const QVariant &value, quint64 *out)
{
    if (isAbsent(value))
        return Status::Absent;
    if (value.typeId() == QMetaType::ULongLong || value.typeId() == QMetaType::ULong) {
        *out = value.toULongLong();
        return Status::Ok;
    }
    if (value.typeId() == QMetaType::QString) {
        bool ok = false;
        const quint64 v = value.toString().trimmed().toULongLong(&ok);
        if (ok) {
            *out = v;
            return Status::Ok;
        }
    }
    qint64 n = 0;
    if (!numberToInt64(value, &n) || n < 0)
        return Status::Mismatch;
    *out = quint64(n);
    return Status::Ok;
}

Status toInt32(const QVariant &value, qint32 *out)
{
    if (isAbsent(value))
        return Status::Absent;
    qint64 n = 0;
    if (!numberToInt64(value, &n) || n < std::numeric_limits<qint32>::min() || n > std::numeric_limits<qint32>::max())
        return Status::Mismatch;
    *out = qint32(n);
    return Status::Ok;
}

Status toMap(const QVariant &value, QVariantMap *out)
{
    if (isAbsent(value))
        return Status::Absent;
    if (value.typeId() == QMetaType::QVariantMap) {
        *out = value.toMap();
        return Status::Ok;
    }
    if (value.typeId() == QMetaType::QVariantHash) {
        const QVariantHash hash = value.toHash();
        QVariantMap map;
        for (auto it = hash.constBegin(); it != hash.constEnd(); ++it)
            map.insert(it.key(), it.value());
        *out = map;
        return Status::Ok;
    }
    return Status::Mismatch;
}

Status toList(const QVariant &value, QVariantList *out)
{
    if (isAbsent(value))
        return Status::Absent;
    if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList) {
        *out = value.toList();
        return Status::Ok;
    }
    return Status::Mismatch;
}

Status toStringList(const QVariant &value, QStringList *out)
{
    if (isAbsent(value))
        return Status::Absent;
    if (value.typeId() == QMetaType::QStringList) {
        *out = value.toStringList();
        return Status::Ok;
    }
    if (value.typeId() != QMetaType::QVariantList)
        return Status::Mismatch;
    QStringList list;
    const QVariantList elements = value.toList();
    list.reserve(elements.size());
    for (const QVariant &element : elements) {
        QString text;
        if (toString(element, &text) != Status::Ok)
            return Status::Mismatch;
        list.append(text);
    }
    *out = list;
    return Status::Ok;
}

} // namespace IMJSONMapping

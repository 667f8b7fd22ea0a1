#include "IMSocketIOPacket.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <cmath>

namespace {

QJsonValue toJsonValue(const QVariant &v, QList<QByteArray> *buffers)
{
    switch (v.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return QJsonValue(QJsonValue::Null);
    case QMetaType::QByteArray: {
        QJsonObject placeholder;
        placeholder.insert(QStringLiteral("_placeholder"), true);
        placeholder.insert(QStringLiteral("num"), int(buffers->size()));
        buffers->append(v.toByteArray());
        return placeholder;
    }
    case QMetaType::QString:
        return v.toString();
    case QMetaType::Bool:
        return v.toBool();
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return QJsonValue(v.toLongLong());
    case QMetaType::Double:
    case QMetaType::Float: {
        const double d = v.toDouble();
        return std::isfinite(d) ? QJsonValue(d) : QJsonValue(QJsonValue::Null);
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QJsonArray a;
        const QVariantList list = v.toList();
        for (const QVariant &item : list)
            a.append(toJsonValue(item, buffers));
        return a;
    }
    case QMetaType::QVariantMap: {
        QJsonObject o;
        const QVariantMap map = v.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            o.insert(it.key(), toJsonValue(it.value(), buffers));
        return o;
    }
    case QMetaType::QVariantHash: {
        QJsonObject o;
        const QVariantHash hash = v.toHash();
        for (auto it = hash.cbegin(); it != hash.cend(); ++it)
            o.insert(it.key(), toJsonValue(it.value(), buffers));
        return o;
    }
    default:
        if (v.isNull())
            return QJsonValue(QJsonValue::Null);
        return QJsonValue::fromVariant(v);
    }
}

bool isPlaceholder(const QVariantMap &m)
{
    return m.size() == 2 && m.value(QStringLiteral("_placeholder")).toBool() && m.contains(QStringLiteral("num"));
}

bool fillPlaceholders(QVariant &v, const QList<QByteArray> &buffers, int depth)
{
    if (depth > 64)
        return false;
    if (v.typeId() == QMetaType::QVariantList) {
        QVariantList list = v.toList();
        for (QVariant &item : list)
            if (!fillPlaceholders(item, buffers, depth + 1))
                return false;
        v = list;
    } else if (v.typeId() == QMetaType::QVariantMap) {
        QVariantMap map = v.toMap();
        if (isPlaceholder(map)) {
            bool ok = false;
            const int num = map.value(QStringLiteral("num")).toInt(&ok);
            if (!ok || num < 0 || num >= buffers.size())
                return false;
            v = buffers.at(num);
            return true;
        }
        for (auto it = map.begin(); it != map.end(); ++it)
            if (!fillPlaceholders(it.value(), buffers, depth + 1))
                return false;
        v = map;
    }
    return true;
}

bool setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

} // namespace

QByteArray IMSocketIOPacket::toJson(const QVariant &value, QList<QByteArray> *buffers)
{
    // QJsonDocument writes arrays and objects only: wrap the value and unwrap the text.
    QJsonArray wrapper;
    wrapper.append(toJsonValue(value, buffers));
    const QByteArray text = QJsonDocument(wrapper).toJson(QJsonDocument::Compact);
    return text.mid(1, text.size() - 2);
}

QString IMSocketIOPacket::encode(QList<QByteArray> *outBuffers) const
{
    QList<QByteArray> found;
    QByteArray json;
    if (hasData || data.isValid())
        json = toJson(data, &found);
    Type wireType = type;
    if (!found.isEmpty()) {
        if (type == Event)
            wireType = BinaryEvent;
        else if (type == Ack)
            wireType = BinaryAck;
    }
    QString out;
    out.reserve(json.size() + nsp.size() + 24);
    out += QLatin1Char(char('0' + int(wireType)));
    if (wireType == BinaryEvent || wireType == BinaryAck) {
        out += QString::number(found.size());
        out += QLatin1Char('-');
    }
    if (!nsp.isEmpty() && nsp != QLatin1String("/")) {
        out += nsp;
        out += QLatin1Char(',');
    }
    if (id >= 0)
        out += QString::number(id);
    out += QString::fromUtf8(json);
    if (outBuffers)
        *outBuffers = std::move(found);
    return out;
}

bool IMSocketIOPacket::decode(const QString &text, IMSocketIOPacket *packet, QString *error)
{
    *packet = IMSocketIOPacket();
    if (text.isEmpty())
        return setError(error, QStringLiteral("empty packet"));
    const ushort t = text.at(0).unicode();
    if (t < '0' || t > '6')
        return setError(error, QStringLiteral("unknown packet type"));
    packet->type = static_cast<Type>(t - '0');
    qsizetype i = 1;
    const qsizetype n = text.size();

    if (packet->type == BinaryEvent || packet->type == BinaryAck) {
        const qsizetype dash = text.indexOf(QLatin1Char('-'), i);
        if (dash <= i || dash - i > 9)
            return setError(error, QStringLiteral("bad attachment count"));
        bool ok = false;
        const int count = QStringView(text).mid(i, dash - i).toInt(&ok);
        if (!ok || count < 0)
            return setError(error, QStringLiteral("bad attachment count"));
        packet->attachments = count;
        i = dash + 1;
    }

    if (i < n && text.at(i) == QLatin1Char('/')) {
        const qsizetype comma = text.indexOf(QLatin1Char(','), i);
        const qsizetype end = comma < 0 ? n : comma;
        packet->nsp = text.mid(i, end - i);
        i = comma < 0 ? n : comma + 1;
    }

    const qsizetype idStart = i;
    while (i < n && text.at(i).isDigit() && text.at(i).unicode() < 128)
        ++i;
    if (i > idStart) {
        if (i - idStart > 15)
            return setError(error, QStringLiteral("bad ack id"));
        packet->id = QStringView(text).mid(idStart, i - idStart).toLongLong();
    }

    if (i < n) {
        QJsonParseError parseError;
        const QByteArray wrapped = QByteArray("[") + QStringView(text).mid(i).toUtf8() + QByteArray("]");
        const QJsonDocument doc = QJsonDocument::fromJson(wrapped, &parseError);
        if (parseError.error != QJsonParseError::NoError || !doc.isArray() || doc.array().size() != 1)
            return setError(error, QStringLiteral("bad JSON payload"));
        packet->data = doc.array().at(0).toVariant();
        packet->hasData = true;
    }
    if ((packet->type == Ack || packet->type == BinaryAck) && packet->id < 0)
        return setError(error, QStringLiteral("acknowledgement without id"));
    return true;
}

bool IMSocketIOPacket::reconstruct(QString *error)
{
    if (attachments == 0)
        return true;
    if (!fillPlaceholders(data, buffers, 0))
        return setError(error, QStringLiteral("bad binary placeholder"));
    return true;
}

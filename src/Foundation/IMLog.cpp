#include "IMLog.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

Q_LOGGING_CATEGORY(lcParlo, "parlo")

QString IMLogLine(const char *file, int line)
{
    QString name = QString::fromUtf8(file ? file : "");
    const qsizetype slash = qMax(name.lastIndexOf(QLatin1Char('/')), name.lastIndexOf(QLatin1Char('\\')));
    if (slash >= 0)
        name = name.mid(slash + 1);
    return QStringLiteral("<%1:%2>").arg(name).arg(line);
}

void IMConsoleLog(const char *file, int line, const QString &text)
{
    qCInfo(lcParlo).noquote() << IMLogLine(file, line) + QLatin1Char(' ') + text;
}

QString IMDescription(const QVariant &value)
{
    if (!value.isValid() || value.isNull())
        return QStringLiteral("(null)");
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QByteArray:
        return QStringLiteral("<%1 bytes>").arg(value.toByteArray().size());
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(Qt::ISODateWithMs);
    case QMetaType::QVariantMap:
    case QMetaType::QVariantList:
    case QMetaType::QVariantHash:
    case QMetaType::QStringList: {
        const QJsonValue json = QJsonValue::fromVariant(value);
        const QJsonDocument doc = json.isObject() ? QJsonDocument(json.toObject()) : QJsonDocument(json.toArray());
        return QString::fromUtf8(doc.toJson(QJsonDocument::Indented)).trimmed();
    }
    default:
        if (value.canConvert<QString>())
            return value.toString();
        return QStringLiteral("<%1>").arg(QString::fromUtf8(value.typeName()));
    }
}

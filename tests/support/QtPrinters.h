#pragma once

// Lets GoogleTest print Qt values in failure messages.

#include <QJsonDocument>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <ostream>

inline void PrintTo(const QString &s, std::ostream *os) { *os << '"' << s.toStdString() << '"'; }
inline void PrintTo(const QStringList &l, std::ostream *os) { *os << '[' << l.join(", ").toStdString() << ']'; }
inline void PrintTo(const QVariant &v, std::ostream *os)
{
    if (v.typeId() == QMetaType::QVariantMap || v.typeId() == QMetaType::QVariantList)
        *os << QJsonDocument::fromVariant(v).toJson(QJsonDocument::Compact).toStdString();
    else
        *os << v.typeName() << '(' << v.toString().toStdString() << ')';
}
inline void PrintTo(const QVariantMap &m, std::ostream *os) { PrintTo(QVariant(m), os); }
inline void PrintTo(const QVariantList &l, std::ostream *os) { PrintTo(QVariant(l), os); }
inline std::ostream &operator<<(std::ostream &os, const QString &s) { return os << s.toStdString(); }

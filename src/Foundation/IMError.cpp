#include "IMError.h"

#include "IMLog.h"

IMError::IMError(QString domain, int code, QVariantMap userInfo)
    : m_domain(std::move(domain))
    , m_code(code)
    , m_userInfo(std::move(userInfo))
{
}

IMError IMError::parlo(int code, QVariantMap userInfo) { return IMError(kParlo, code, std::move(userInfo)); }

IMError IMError::parlo(int code, const QString &info)
{
    return IMError(kParlo, code, QVariantMap {{QStringLiteral("info"), info}});
}

QString IMError::info() const
{
    const QVariant v = m_userInfo.value(QStringLiteral("info"));
    return v.typeId() == QMetaType::QString ? v.toString() : IMDescription(v);
}

QString IMError::description() const { return QStringLiteral("%1 %2: %3").arg(m_domain).arg(m_code).arg(info()); }

#include "IMPlatform.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QStandardPaths>
#include <atomic>
#include <memory>

namespace {
std::atomic<IMPlatform *> g_platform{nullptr};

QString ensured(const QString &path)
{
    if (!path.isEmpty())
        QDir().mkpath(path);
    return path;
}
} // namespace

IMPlatform::~IMPlatform() = default;

IMPlatform *IMPlatform::instance()
{
    IMPlatform *p = g_platform.load();
    if (p)
        return p;
    auto *fresh = new IMPlatform;
    if (g_platform.compare_exchange_strong(p, fresh))
        return fresh;
    delete fresh;
    return p;
}

void IMPlatform::setInstance(IMPlatform *platform)
{
    // The previous platform is kept alive: callers may still hold it for the process's life.
    g_platform.store(platform ? platform : new IMPlatform);
}

void IMPlatform::setNetworkActivityIndicatorVisible(bool visible) { m_activityVisible = visible; }
bool IMPlatform::isNetworkActivityIndicatorVisible() const { return m_activityVisible; }
void IMPlatform::setApplicationIconBadgeNumber(qint64 number) { m_badgeNumber = number; }
qint64 IMPlatform::applicationIconBadgeNumber() const { return m_badgeNumber; }

QString IMPlatform::documentsPath() const
{
    return ensured(m_documentsPath.isNull()
                       ? QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
                       : m_documentsPath);
}

QString IMPlatform::temporaryPath() const
{
    return ensured(m_temporaryPath.isNull() ? QStandardPaths::writableLocation(QStandardPaths::CacheLocation)
                                            : m_temporaryPath);
}

void IMPlatform::setDocumentsPath(const QString &path) { m_documentsPath = path; }
void IMPlatform::setTemporaryPath(const QString &path) { m_temporaryPath = path; }

QVariantMap IMPlatform::infoDictionary() const
{
    if (m_infoSet)
        return m_info;
    QFile file(QStringLiteral(":/Info.json"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).toVariant().toMap();
}

void IMPlatform::setInfoDictionary(const QVariantMap &info)
{
    m_info = info;
    m_infoSet = true;
}

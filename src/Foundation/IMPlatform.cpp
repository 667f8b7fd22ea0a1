#include "IMPlatform.h"

#include "IMLog.h"

#include <QClipboard>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QMutex>
#include <QStandardPaths>
#include <atomic>
#include <memory>

namespace {
std::atomic<IMPlatform *> g_platform {nullptr};

QMutex g_dialogsLock;
IMPlatform::Dialogs &dialogs()
{
    static IMPlatform::Dialogs d;
    return d;
}

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
    return ensured(m_documentsPath.isNull() ? QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
                                            : m_documentsPath);
}

QString IMPlatform::temporaryPath() const
{
    return ensured(
        m_temporaryPath.isNull() ? QStandardPaths::writableLocation(QStandardPaths::CacheLocation) : m_temporaryPath);
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

void IMPlatform::setPasteboardString(const QString &text)
{
    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        app->clipboard()->setText(text);
    else
        IM_LOG(QStringLiteral("no clipboard without a GUI application"));
}

QString IMPlatform::pasteboardString() const
{
    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return app->clipboard()->text();
    return QString();
}

QString IMPlatform::saveImageToPhotoAlbum(const QImage &image)
{
    if (image.isNull())
        return QString();
    QString folder = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    if (folder.isEmpty())
        folder = QDir::home().filePath(QStringLiteral("Pictures"));
    ensured(folder);
    // A name per second, made unique within the second, so nothing already saved is overwritten.
    const QString stem
        = QStringLiteral("Parlo %1").arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH.mm.ss")));
    QString path = QDir(folder).filePath(stem + QStringLiteral(".png"));
    for (int i = 2; QFile::exists(path); ++i)
        path = QDir(folder).filePath(QStringLiteral("%1 (%2).png").arg(stem).arg(i));
    if (!image.save(path, "PNG")) {
        IM_LOG(QStringLiteral("could not save the picture to %1").arg(path));
        return QString();
    }
    return path;
}

void IMPlatform::presentShareSheet(const QVariantList &items, QObject *window)
{
    std::function<void(const QVariantList &, QObject *)> share;
    {
        QMutexLocker lock(&g_dialogsLock);
        share = dialogs().share;
    }
    if (share)
        share(items, window);
    else
        IM_LOG(QStringLiteral("no share sheet: %1 item(s) not shared").arg(items.size()));
}

bool IMPlatform::isCameraAvailable() const { return false; }

void IMPlatform::pickImage(int sourceType, QObject *window, const std::function<void(const QImage &)> &done)
{
    std::function<void(int, QObject *, const std::function<void(const QImage &)> &)> pick;
    {
        QMutexLocker lock(&g_dialogsLock);
        pick = dialogs().pick;
    }
    if (pick) {
        pick(sourceType, window, done);
    } else if (done) {
        IM_LOG(QStringLiteral("no image picker"));
        done(QImage());
    }
}

void IMPlatform::setDialogs(const Dialogs &d)
{
    QMutexLocker lock(&g_dialogsLock);
    dialogs() = d;
}

// The memory cache of file bytes and the disk cache folder.
#include "ParloFileSupport_p.h"

#include "IMPlatform.h"
#include "Parlo.h"
#include "ParloFileKeys.h"

#include <QJsonDocument>

#include <QCache>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSaveFile>
#include <QUrl>

namespace {
constexpr qint64 kDefaultCacheLimit = 64 * 1024 * 1024;
} // namespace

// ---- the memory cache --------------------------------------------------------------------------

struct Parlo::FileCache::Private {
    mutable QMutex mutex;
    QCache<QString, QByteArray> cache {kDefaultCacheLimit};
};

Parlo::FileCache::FileCache()
    : d(new Private)
{
}
Parlo::FileCache::~FileCache() = default;

QByteArray Parlo::FileCache::object(const QString &name) const
{
    QMutexLocker lock(&d->mutex);
    const QByteArray *data = d->cache.object(name);
    return data ? *data : QByteArray();
}

void Parlo::FileCache::setObject(const QString &name, const QByteArray &data)
{
    QMutexLocker lock(&d->mutex);
    // Bytes too large to keep must not leave older bytes behind under the same name.
    d->cache.remove(name);
    d->cache.insert(name, new QByteArray(data), std::max<qsizetype>(1, data.size()));
}

void Parlo::FileCache::removeObject(const QString &name)
{
    QMutexLocker lock(&d->mutex);
    d->cache.remove(name);
}

void Parlo::FileCache::removeAllObjects()
{
    QMutexLocker lock(&d->mutex);
    d->cache.clear();
}

qint64 Parlo::FileCache::totalCostLimit() const
{
    QMutexLocker lock(&d->mutex);
    return d->cache.maxCost();
}

void Parlo::FileCache::setTotalCostLimit(qint64 bytes)
{
    QMutexLocker lock(&d->mutex);
    d->cache.setMaxCost(qsizetype(std::max<qint64>(1, bytes)));
}

// ---- names and the disk cache ------------------------------------------------------------------

//! Null when `name` can be used as a file of the cache folder; else the error that refuses it.
IMError parloFileNameError(const QString &name)
{
    auto refuse = [&](const QString &problem) {
        const QString info = QStringLiteral("refused file name \"%1\": %2").arg(name, problem);
        return IMError::parlo(
            400, QVariantMap {{QStringLiteral("info"), info}, {QStringLiteral("NSLocalizedDescriptionKey"), info}});
    };
    if (name.isEmpty())
        return refuse(QStringLiteral("it is empty"));
    if (name == QLatin1String(".") || name == QLatin1String(".."))
        return refuse(QStringLiteral("it names a folder, not a file"));
    if (name.contains(QLatin1Char('/')))
        return refuse(QStringLiteral("it contains \"/\""));
    if (name.contains(QLatin1Char('\\')))
        return refuse(QStringLiteral("it contains \"\\\""));
    if (name.contains(QChar(0)))
        return refuse(QStringLiteral("it contains a NUL character"));
    return IMError();
}

//! The whole contents of `path`; null when it cannot be read. An empty file gives empty bytes
//! that are not null (null is the memory cache's marker for "absent").
QByteArray parloReadWholeFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    const qint64 size = file.size();
    QByteArray bytes;
    if (size > 0) {
        // One allocation of the final size: a large file is not copied while it is read.
        bytes.resize(qsizetype(size));
        if (file.read(bytes.data(), size) != size)
            return QByteArray();
    }
    return bytes.isNull() ? QByteArray("", 0) : bytes;
}

QString parloFilePathWithName(const QString &name)
{
    if (!parloFileNameError(name).isNull())
        return QString();
    const QString folder = QDir(IMPlatform::instance()->temporaryPath()).filePath(QStringLiteral("Parlo"));
    if (!QFileInfo::exists(folder))
        QDir().mkdir(folder); // errors surface as failed writes, which only mean a later refetch
    return folder + QLatin1Char('/') + name;
}

bool parloIsFileExistsWithName(const QString &name)
{
    const QString path = parloFilePathWithName(name);
    return !path.isNull() && QFileInfo(path).isFile();
}

QByteArray parloFileWithName(const QString &name)
{
    const QString path = parloFilePathWithName(name);
    return path.isNull() ? QByteArray() : parloReadWholeFile(path);
}

bool parloFileSaveWithName(const QString &name, const QByteArray &data)
{
    const QString path = parloFilePathWithName(name);
    if (path.isNull())
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(data) != data.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

//! The "/files/<name>" path segment: server names pass unchanged, anything else is escaped.
QString parloFileSegment(const QString &name) { return QString::fromLatin1(QUrl::toPercentEncoding(name)); }

IMError parloNetworkError(int code, const QString &info)
{
    return IMError(kParloNetworkErrorDomain, code, QVariantMap {{QStringLiteral("info"), info}});
}

//! The file an upload's answer names, null when the answer is no record or its name is refused.
IMFilePtr parloUploadedFile(const QByteArray &answer)
{
    const IMFilePtr file = IMFile::fromDictionary(QJsonDocument::fromJson(answer).toVariant().toMap());
    return file && parloFileNameError(file->fileName()).isNull() ? file : nullptr;
}

// Files: the memory and disk caches, fetching over the connection, and the multipart upload.
// The HTTP transfers themselves (download, upload, their records) are in ParloFilesTransfer.cpp.
#include "ParloFiles_p.h"

#include "IMClient.h"
#include "IMFile.h"
#include "IMPlatform.h"

#include <QBuffer>
#include <QCache>
#include <QDir>
#include <QFile>
#include <QImageWriter>
#include <QJsonDocument>
#include <QMutex>
#include <QSaveFile>
#include <QUrl>

namespace {
const QByteArray kBoundary = QByteArrayLiteral("---------------------------14737809831466499882746641449");
constexpr qint64 kDefaultCacheLimit = 64 * 1024 * 1024;

QMutex g_filesStateMutex; // guards the creation of each facade's FilesState
} // namespace

// ---- the memory cache --------------------------------------------------------------------------

struct Parlo::FileCache::Private
{
    mutable QMutex mutex;
    QCache<QString, QByteArray> cache{kDefaultCacheLimit};
};

Parlo::FileCache::FileCache() : d(new Private) {}
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

// ---- state -------------------------------------------------------------------------------------

Parlo::FilesState *Parlo::files() const
{
    QMutexLocker lock(&g_filesStateMutex);
    if (!d->files)
        d->files = std::unique_ptr<FilesState, void (*)(FilesState *)>(new FilesState, [](FilesState *f) { delete f; });
    return d->files.get();
}

Parlo::FileCache &Parlo::cache() { return files()->cache; }

const QMap<QString, QVariantMap> &Parlo::taskDict() { return files()->taskDict; }

// ---- names and the disk cache ------------------------------------------------------------------

//! Null when `name` can be used as a file of the cache folder; else the error that refuses it.
IMError parloFileNameError(const QString &name)
{
    auto refuse = [&](const QString &problem) {
        const QString info = QStringLiteral("refused file name \"%1\": %2").arg(name, problem);
        return IMError::parlo(400, QVariantMap{{QStringLiteral("info"), info},
                                               {QStringLiteral("NSLocalizedDescriptionKey"), info}});
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

QString Parlo::filePathWithName(const QString &name)
{
    if (!parloFileNameError(name).isNull())
        return QString();
    const QString folder = QDir(IMPlatform::instance()->temporaryPath()).filePath(QStringLiteral("Parlo"));
    if (!QFileInfo::exists(folder))
        QDir().mkdir(folder); // errors surface as failed writes, which only mean a later refetch
    return folder + QLatin1Char('/') + name;
}

bool Parlo::isFileExistsWithName(const QString &name)
{
    const QString path = filePathWithName(name);
    return !path.isNull() && QFileInfo(path).isFile();
}

QByteArray Parlo::fileWithName(const QString &name)
{
    const QString path = filePathWithName(name);
    return path.isNull() ? QByteArray() : parloReadWholeFile(path);
}

bool Parlo::fileSaveWithName(const QString &name, const QByteArray &data)
{
    const QString path = filePathWithName(name);
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

// ---- fetching over the connection --------------------------------------------------------------

//! The "/files/<name>" path segment: server names pass unchanged, anything else is escaped.
QString parloFileSegment(const QString &name)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(name));
}

namespace {
//! The file bytes of an answer's body; false when the body holds something else.
bool fileBytesOf(const QVariant &body, QByteArray *bytes)
{
    if (body.typeId() == QMetaType::QByteArray)
        *bytes = body.toByteArray();
    else if (body.typeId() == QMetaType::QString)
        *bytes = body.toString().toUtf8();
    else
        return false;
    if (bytes->isNull())
        *bytes = QByteArray("", 0);
    return true;
}

IMError notFileBytes(const QVariant &body)
{
    return IMError::parlo(0, QStringLiteral("the answer holds no file bytes: %1").arg(IMDescription(body)));
}
} // namespace

void Parlo::getFileWithName(const QString &name, FileComplete complete)
{
    const IMError refused = parloFileNameError(name);
    if (!refused.isNull()) {
        if (complete)
            complete(refused, QByteArray());
        return;
    }
    const QVariantMap item{{QStringLiteral("data"), QVariantMap()},
                           {QStringLiteral("url"), QStringLiteral("/files/") + parloFileSegment(name)},
                           {QStringLiteral("headers"), header()}};
    QPointer<Parlo> self(this);
    emitWithMethod(
        0, item,
        [self, name, complete](const QVariant &body) {
            QByteArray bytes;
            if (!fileBytesOf(body, &bytes)) {
                if (complete)
                    complete(notFileBytes(body), QByteArray());
                return;
            }
            if (self)
                self->cache().setObject(name, bytes);
            if (complete)
                complete(IMError(), bytes);
        },
        [complete](const IMError &error) {
            if (complete)
                complete(error, QByteArray());
        });
}

void Parlo::getFileWithName(const QString &name, bool fromCache, DataSuccess success, Failure failure)
{
    const IMError refused = parloFileNameError(name);
    if (!refused.isNull()) {
        if (failure)
            failure(refused);
        return;
    }
    if (fromCache) {
        const QByteArray kept = cache().object(name);
        if (!kept.isNull()) {
            if (success)
                success(kept);
            return;
        }
        const QByteArray stored = fileWithName(name);
        if (!stored.isNull()) {
            cache().setObject(name, stored);
            if (success)
                success(stored);
            return;
        }
    }
    QPointer<Parlo> self(this);
    getFileWithName(name, [self, name, success, failure](const IMError &error, const QByteArray &bytes) {
        if (!error.isNull()) {
            if (failure)
                failure(error);
            return;
        }
        if (self)
            self->fileSaveWithName(name, bytes);
        if (success)
            success(bytes);
    });
}

// ---- the multipart upload ----------------------------------------------------------------------

//! The file an upload's answer names, null when the answer is no record or its name is refused.
IMFilePtr parloUploadedFile(const QByteArray &answer)
{
    const IMFilePtr file = IMFile::fromDictionary(QJsonDocument::fromJson(answer).toVariant().toMap());
    return file && parloFileNameError(file->fileName()).isNull() ? file : nullptr;
}

Parlo::UploadRequest Parlo::requestWithData(const QByteArray &data, const QVariantMap &dict) const
{
    const IMClientPtr me = IMClient::currentClient();
    UploadRequest upload;
    upload.request.setUrl(QUrl(d->domainString + QStringLiteral("/files/upload")));
    upload.request.setRawHeader("apiKey", d->apiKey.toUtf8());
    upload.request.setRawHeader("clientKey", d->clientKey.toUtf8());
    upload.request.setRawHeader("clientID", me->clientID().toUtf8());
    upload.request.setRawHeader("token", me->token().toUtf8());
    upload.request.setRawHeader("Content-Type", "multipart/form-data; boundary=" + kBoundary);

    QByteArray &body = upload.body;
    for (auto it = dict.cbegin(); it != dict.cend(); ++it) {
        const QVariant &value = it.value();
        const QString text = value.canConvert<QString>() ? value.toString() : IMDescription(value);
        body += "--" + kBoundary + "\r\n";
        body += "Content-Disposition: form-data; name=\"" + it.key().toUtf8() + "\"\r\n\r\n";
        body += text.toUtf8() + "\r\n";
    }
    // Without bytes the form ends after the last field, with no closing boundary line: the
    // server has always accepted the form in exactly this shape.
    if (!data.isEmpty()) {
        body.reserve(body.size() + data.size() + 256);
        body += "--" + kBoundary + "\r\n";
        body += "Content-Disposition: form-data; name=\"file\"; filename=\"1\"\r\n";
        body += "Content-Type: application/octet-stream\r\n\r\n";
        body += data;
        body += "\r\n--" + kBoundary + "--\r\n";
    }
    return upload;
}

QPointer<QNetworkReply> Parlo::uploadFileWithData(const QByteArray &data, const QString &type, const IMRoomPtr &room,
                                                  bool isPublic, FileSuccess success, Failure failure)
{
    return uploadFileWithData(data, type, room, isPublic, [](double) {}, std::move(success), std::move(failure));
}

QPointer<QNetworkReply> Parlo::uploadFileWithImage(const QImage &image, const IMRoomPtr &room, bool isPublic,
                                                   FileSuccess success, Failure failure)
{
    QByteArray png;
    QString problem;
    if (image.isNull()) {
        problem = QStringLiteral("the picture is empty");
    } else {
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        QImageWriter writer(&buffer, "png");
        if (!writer.write(image))
            problem = QStringLiteral("the picture could not be written as PNG: %1").arg(writer.errorString());
    }
    if (!problem.isNull()) {
        IMDispatchMainAsync([failure, problem] {
            if (failure)
                failure(IMError::parlo(400, problem));
        });
        return {};
    }
    return uploadFileWithData(png, kMessageTypeImage, room, isPublic, std::move(success), std::move(failure));
}

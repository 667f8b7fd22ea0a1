// Files over plain HTTP: the URL session, the HTTP download with its chat-in, and the upload.
// Transfers run on the main thread's QNetworkAccessManager, except plain-http downloads, which a
// ParloFilesReply runs on a thread of its own; every caller's block is posted to the main queue,
// and each transfer ends exactly once, also when the facade goes first.
#include "ParloFiles_p.h"
#include "ParloFilesReply_p.h"

#include "IMClient.h"
#include "IMPlatform.h"

#include <QDir>
#include <QJsonDocument>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QSslError>
#include <QTimer>
#include <filesystem>

IMError parloFileNameError(const QString &name);
IMFilePtr parloUploadedFile(const QByteArray &answer);
QByteArray parloReadWholeFile(const QString &path);
QString parloFileSegment(const QString &name);

namespace {
constexpr qsizetype kErrorBodyLimit = 64 * 1024;
// The network layer may run ahead of the main thread by this much: memory stays flat however
// large the download.
constexpr qint64 kReadBufferSize = 1024 * 1024;
const char *const kResourceTimedOut = "parloResourceTimedOut";

//! `failure`, posted to the main queue.
Parlo::Failure posted(Parlo::Failure failure)
{
    return [failure](const IMError &error) {
        IMDispatchMainAsync([failure, error] {
            if (failure)
                failure(error);
        });
    };
}

IMError networkError(int code, const QString &info)
{
    return IMError(kParloNetworkErrorDomain, code, QVariantMap{{QStringLiteral("info"), info}});
}

//! Null when `reply` ended well; else its error: the HTTP status with the answer's body as
//! "info", or the network error.
IMError transferError(QNetworkReply *reply, const QByteArray &body, int resourceTimeoutMs)
{
    if (reply->property(kResourceTimedOut).toBool())
        return networkError(QNetworkReply::TimeoutError,
                            QStringLiteral("the transfer did not end within %1 s").arg(resourceTimeoutMs / 1000.0));
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 400) {
        const QString text = QString::fromUtf8(body);
        return IMError::parlo(status, QVariantMap{{QStringLiteral("info"), text},
                                                  {QStringLiteral("NSLocalizedDescriptionKey"), text}});
    }
    if (reply->error() != QNetworkReply::NoError)
        return networkError(reply->error(), reply->errorString());
    return IMError();
}

IMError noServer()
{
    return IMError::parlo(400, QStringLiteral("no server address: connectWithURL first"));
}
} // namespace

Parlo::FilesState::FilesState() : transferContext(new QObject) {}

Parlo::FilesState::~FilesState()
{
    // First silence every transfer, so that aborting one below cannot end it a second time.
    transferContext.reset();
    const auto pending = std::exchange(inFlight, {});
    for (auto it = pending.cbegin(); it != pending.cend(); ++it) {
        it.key()->abort();
        if (it.value())
            it.value()(networkError(QNetworkReply::OperationCanceledError,
                                    QStringLiteral("the facade was destroyed before the transfer ended")));
    }
    for (const Failure &failure : std::exchange(chatinWaits, {}))
        failure(networkError(QNetworkReply::OperationCanceledError,
                             QStringLiteral("the facade was destroyed before the chat-in ended")));
    taskDict.clear();
    downloads.clear(); // removes the temporary files of unfinished downloads
    readQueue.reset();
    writeQueue.reset();
    urlSession.reset();
}

IMDispatchQueue &Parlo::FilesState::reads()
{
    if (!readQueue)
        readQueue = std::make_unique<IMDispatchQueue>(QStringLiteral("queue"));
    return *readQueue;
}

IMDispatchQueue &Parlo::FilesState::writes()
{
    if (!writeQueue)
        writeQueue = std::make_unique<IMDispatchQueue>(QStringLiteral("QUEUE"));
    return *writeQueue;
}

QNetworkAccessManager *Parlo::urlSession()
{
    FilesState *f = files();
    if (!f->urlSession) {
        f->urlSession = std::make_unique<QNetworkAccessManager>();
        f->urlSession->setCookieJar(new QNetworkCookieJar(f->urlSession.get()));
        f->urlSession->setTransferTimeout(f->requestTimeoutMs);
        // Read at each error, so a later connectWithURL's "selfSigned" applies to this session too.
        QObject::connect(f->urlSession.get(), &QNetworkAccessManager::sslErrors, this,
            [this](QNetworkReply *reply, const QList<QSslError> &errors) {
                if (d->selfSigned)
                    reply->ignoreSslErrors(errors);
            });
    }
    return f->urlSession.get();
}

QNetworkReply *Parlo::startTransfer(QNetworkReply *reply, Failure abandon)
{
    FilesState *f = files();
    f->inFlight.insert(reply, std::move(abandon));
    auto *timer = new QTimer(reply);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, reply, [reply] {
        reply->setProperty(kResourceTimedOut, true);
        reply->abort();
    });
    timer->start(f->resourceTimeoutMs);
    // A transfer deleted by someone else before it finished still ends, with a failure.
    QObject::connect(reply, &QObject::destroyed, f->transferContext.get(), [f, reply] {
        const Failure abandon = f->inFlight.take(reply);
        if (abandon)
            abandon(networkError(QNetworkReply::OperationCanceledError,
                                 QStringLiteral("the transfer was deleted before it ended")));
    });
    return reply;
}

// ---- HTTP chat-in ------------------------------------------------------------------------------

void Parlo::chatinHTTPForFiles(Block success, Failure failure)
{
    // The session's HTTP chat-in leaves its cookie in urlSession's jar, which the download then
    // presents. Its reply dies with urlSession without a word, so the wait is recorded here too
    // and ends with the facade if it has not ended before.
    FilesState *f = files();
    const quint64 wait = f->nextChatinWait++;
    f->chatinWaits.insert(wait, failure);
    chatinHTTPSuccess(
        [f, wait, success](const IMClientPtr &) {
            if (f->chatinWaits.remove(wait))
                success();
        },
        [f, wait](const IMError &error) {
            const Failure failure = f->chatinWaits.take(wait);
            if (failure)
                failure(error);
        });
}

// ---- HTTP download -----------------------------------------------------------------------------

void Parlo::getFileWithNameProgress(const QString &name, Progress progress, DataSuccess success, Failure failure)
{
    getFileWithName(name, true, std::move(progress), std::move(success), std::move(failure));
}

void Parlo::getFileWithName(const QString &name, bool fromCache, Progress progress, DataSuccess success,
                            Failure failure)
{
    const IMError refused = parloFileNameError(name);
    if (!refused.isNull()) {
        posted(failure)(refused);
        return;
    }
    if (fromCache) {
        const QByteArray kept = cache().object(name);
        if (!kept.isNull()) {
            IMDispatchMainAsync([success, kept] {
                if (success)
                    success(kept);
            });
            return;
        }
        if (isFileExistsWithName(name)) {
            FilesState *f = files();
            QPointer<Parlo> self(this);
            f->reads().async([f, self, name, path = filePathWithName(name), progress, success, failure] {
                const QByteArray bytes = parloReadWholeFile(path);
                if (bytes.isNull()) {
                    // Gone since it was seen: fetch it as if it had never been there.
                    IMDispatchMainAsync([self, name, progress, success, failure] {
                        if (self)
                            self->downloadFile(name, progress, success, failure);
                        else if (failure)
                            failure(networkError(QNetworkReply::OperationCanceledError,
                                                 QStringLiteral("the facade was destroyed before the fetch ended")));
                    });
                    return;
                }
                f->cache.setObject(name, bytes);
                IMDispatchMainAsync([success, bytes] {
                    if (success)
                        success(bytes);
                });
            });
            return;
        }
    }
    downloadFile(name, std::move(progress), std::move(success), std::move(failure));
}

void Parlo::downloadFile(const QString &name, Progress progress, DataSuccess success, Failure failure)
{
    if (d->domainString.isEmpty()) {
        posted(failure)(noServer());
        return;
    }
    if (!progress)
        progress = [](double) {};
    QPointer<Parlo> self(this);
    chatinHTTPForFiles([self, name, progress, success, failure] { self->startDownload(name, progress, success, failure); },
                       posted(failure));
}

void Parlo::startDownload(const QString &name, Progress progress, DataSuccess success, Failure failure)
{
    FilesState *f = files();
    QNetworkRequest request(QUrl(d->domainString + QStringLiteral("/files/") + parloFileSegment(name)));
    QNetworkReply *reply = nullptr;
    if (!std::exchange(f->viaSessionOnce, false))
        reply = ParloFilesReply::get(urlSession(), request, IMPlatform::instance()->temporaryPath(),
                                     filePathWithName(name), f->requestTimeoutMs);
    if (!reply) {
        reply = urlSession()->get(request);
        reply->setReadBufferSize(kReadBufferSize);
    }
    const QString key = QString::number(f->nextTaskIdentifier++);
    f->taskDict.insert(key, QVariantMap{{kSessionTask, QVariant::fromValue(reply)},
                                        {kSessionSuccess, QVariant::fromValue(success)},
                                        {kSessionFailure, QVariant::fromValue(failure)},
                                        {kSessionProgress, QVariant::fromValue(progress)},
                                        {kFilename, name}});
    auto download = std::make_shared<ParloDownload>();
    download->name = name;
    f->downloads.insert(key, download);
    startTransfer(reply, posted(failure));

    QObject *context = f->transferContext.get();
    // (A ParloFilesReply has no body to read: its worker writes it.)
    QObject::connect(reply, &QNetworkReply::readyRead, context, [reply, download] {
        const QByteArray chunk = reply->readAll();
        if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() >= 400) {
            download->errorBody += chunk.left(kErrorBodyLimit - download->errorBody.size());
            return;
        }
        if (!download->writeError.isNull())
            return;
        if (!download->file) {
            download->file = std::make_unique<QTemporaryFile>(
                QDir(IMPlatform::instance()->temporaryPath()).filePath(QStringLiteral("parlo-download-XXXXXX")));
            if (!download->file->open()) {
                download->writeError = download->file->errorString();
                reply->abort();
                return;
            }
        }
        if (download->file->write(chunk) != chunk.size()) {
            download->writeError = download->file->errorString();
            reply->abort();
            return;
        }
        download->written += chunk.size();
    });
    QObject::connect(reply, &QNetworkReply::downloadProgress, context, [f, reply, key](qint64 received, qint64 total) {
        if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() >= 400)
            return;
        const Progress report = f->taskDict.value(key).value(kSessionProgress).value<Progress>();
        if (!report)
            return;
        const double fraction = double(received) / double(total);
        IMDispatchMainAsync([report, fraction] { report(fraction); });
    });
    QObject::connect(reply, &QNetworkReply::finished, context, [self = QPointer<Parlo>(this), reply, key] {
        if (self)
            self->finishDownload(reply, key);
    });
}

void Parlo::finishDownload(QNetworkReply *reply, const QString &key)
{
    FilesState *f = files();
    if (!f->inFlight.remove(reply))
        return;
    reply->deleteLater();
    const QVariantMap entry = f->taskDict.take(key);
    const std::shared_ptr<ParloDownload> download = f->downloads.take(key);
    const DataSuccess success = entry.value(kSessionSuccess).value<DataSuccess>();
    const Failure failure = posted(entry.value(kSessionFailure).value<Failure>());

    if (auto *direct = dynamic_cast<ParloFilesReply *>(reply)) {
        if (direct->needsSession()) {
            // An answer the session knows better (a redirect, a body of unannounced length): ask
            // again through it. Nothing has been reported yet.
            f->viaSessionOnce = true;
            startDownload(download->name, entry.value(kSessionProgress).value<Progress>(), success,
                          entry.value(kSessionFailure).value<Failure>());
            return;
        }
        IMError error = transferError(reply, direct->errorBody(), f->resourceTimeoutMs);
        if (error.isNull() && !direct->writeError().isNull())
            error = IMError(QStringLiteral("QFileDevice"), QFileDevice::WriteError,
                            QVariantMap{{QStringLiteral("info"), direct->writeError()}});
        if (!error.isNull()) {
            failure(error);
            return;
        }
        // The bytes are already on disk, in place; the memory cache and the success block share them.
        const QByteArray bytes = direct->bytes();
        f->cache.setObject(download->name, bytes);
        IMDispatchMainAsync([success, bytes] {
            if (success)
                success(bytes);
        });
        if (std::shared_ptr<void> replaced = direct->takeReplacedFile())
            f->writes().async([replaced = std::move(replaced)]() mutable { replaced.reset(); });
        return;
    }

    IMError error = transferError(reply, download->errorBody, f->resourceTimeoutMs);
    if (error.isNull() && !download->writeError.isNull())
        error = IMError(QStringLiteral("QFileDevice"), QFileDevice::WriteError,
                        QVariantMap{{QStringLiteral("info"), download->writeError}});
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (error.isNull() && length.isValid() && reply->rawHeader("Content-Encoding").isEmpty()
        && length.toLongLong() != download->written)
        error = networkError(QNetworkReply::RemoteHostClosedError,
                             QStringLiteral("the download ended after %1 of %2 bytes").arg(download->written).arg(length.toLongLong()));
    if (!error.isNull()) {
        failure(error); // the temporary file goes with `download`
        return;
    }

    QString partial;
    if (download->file) {
        download->file->setAutoRemove(false);
        partial = download->file->fileName();
        download->file->close();
    }
    const QString name = download->name;
    const QString target = filePathWithName(name);
    // The bytes are read once: the memory cache, the disk cache (the downloaded file itself, moved
    // into place) and the success block share them.
    f->writes().async([f, name, partial, target, success, failure] {
        QByteArray bytes = partial.isNull() ? QByteArray("", 0) : parloReadWholeFile(partial);
        if (bytes.isNull()) {
            QFile::remove(partial);
            failure(IMError(QStringLiteral("QFileDevice"), QFileDevice::ReadError,
                            QVariantMap{{QStringLiteral("info"), QStringLiteral("the download could not be read back")}}));
            return;
        }
        f->cache.setObject(name, bytes);
        if (partial.isNull()) {
            QFile empty(target);
            if (empty.open(QIODevice::WriteOnly))
                empty.close();
        } else {
            std::error_code ignored; // a file that cannot be moved only means a refetch later
            std::filesystem::rename(std::filesystem::path(partial.toStdU16String()),
                                    std::filesystem::path(target.toStdU16String()), ignored);
            if (ignored)
                QFile::remove(partial);
        }
        IMDispatchMainAsync([success, bytes] {
            if (success)
                success(bytes);
        });
    });
}

// ---- upload ------------------------------------------------------------------------------------

QPointer<QNetworkReply> Parlo::uploadFileWithData(const QByteArray &data, const QString &type, const IMRoomPtr &room,
                                                  bool isPublic, Progress progress, FileSuccess success,
                                                  Failure failure)
{
    if (d->domainString.isEmpty()) {
        posted(failure)(noServer());
        return {};
    }
    const QString roomID = room ? room->objectID() : QString();
    const QVariantMap fields{{QStringLiteral("type"), type},
                             {QStringLiteral("room"), roomID.isNull() ? QStringLiteral("") : roomID},
                             {QStringLiteral("isPublic"), isPublic ? 1 : 0}};
    const UploadRequest upload = requestWithData(data, fields);
    FilesState *f = files();
    QNetworkReply *reply = urlSession()->post(upload.request, upload.body);
    const QString key = QString::number(f->nextTaskIdentifier++);
    f->taskDict.insert(key, QVariantMap{{kSessionTask, QVariant::fromValue(reply)},
                                        {kSessionSuccess, QVariant::fromValue(success)},
                                        {kSessionFailure, QVariant::fromValue(failure)},
                                        {kSessionProgress, QVariant::fromValue(progress)}});
    startTransfer(reply, posted(failure));

    QObject *context = f->transferContext.get();
    QPointer<Parlo> self(this);
    QObject::connect(reply, &QNetworkReply::uploadProgress, context, [self, f, key](qint64 sent, qint64 total) {
        auto it = f->taskDict.find(key);
        if (it == f->taskDict.end() || total <= 0)
            return;
        const double fraction = double(sent) / double(total);
        const Progress report = it->value(kSessionProgress).value<Progress>();
        if (report)
            IMDispatchMainAsync([report, fraction] { report(fraction); });
        else if (self)
            self->PARLO_LOG("data", QStringLiteral("didn't find the progress block"));
        if (fraction == 1.0)
            f->taskDict.erase(it);
    });
    QObject::connect(reply, &QNetworkReply::finished, context, [self, reply, key, data, success, failure] {
        if (self)
            self->finishUpload(reply, key, data, success, failure);
    });
    return reply;
}

void Parlo::finishUpload(QNetworkReply *reply, const QString &key, const QByteArray &data, FileSuccess success,
                         Failure failure)
{
    FilesState *f = files();
    if (!f->inFlight.remove(reply))
        return;
    reply->deleteLater();
    // Also an upload whose body never reported completion leaves no record behind.
    f->taskDict.remove(key);
    const QByteArray answer = reply->readAll();
    IMError error = transferError(reply, answer.left(kErrorBodyLimit), f->resourceTimeoutMs);
    IMFilePtr file;
    if (error.isNull()) {
        file = parloUploadedFile(answer);
        if (!file)
            error = IMError::parlo(0, QStringLiteral("the upload's answer names no usable file: %1")
                                          .arg(QString::fromUtf8(answer.left(1024))));
    }
    if (!error.isNull()) {
        posted(failure)(error);
        return;
    }
    f->cache.setObject(file->fileName(), data);
    IMDispatchMainAsync([success, file] {
        if (success)
            success(file);
    });
}

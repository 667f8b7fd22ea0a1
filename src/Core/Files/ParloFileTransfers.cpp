// Files over plain HTTP: the URL session, the HTTP download with its chat-in, and the upload.
// Transfers run on the main thread's QNetworkAccessManager, except plain-http m_downloads, which a
// IMFileDownloadReply runs on a thread of its own; every caller's block is posted to the main queue,
// and each transfer ends exactly once, also when the facade goes first.
#include "ParloFiles.h"

#include "IMFileDownloadReply.h"
#include "ParloFileSupport_p.h"
#include "ParloLogger.h"
#include "ParloTransport.h"

#include "IMClient.h"
#include "IMPlatform.h"

#include <QDir>
#include <QJsonDocument>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QSslError>
#include <QTimer>
#include <filesystem>

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

//! Null when `reply` ended well; else its error: the HTTP status with the answer's body as
//! "info", or the network error.
IMError transferError(QNetworkReply *reply, const QByteArray &body, int m_resourceTimeoutMs)
{
    if (reply->property(kResourceTimedOut).toBool())
        return parloNetworkError(QNetworkReply::TimeoutError,
            QStringLiteral("the transfer did not end within %1 s").arg(m_resourceTimeoutMs / 1000.0));
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 400) {
        const QString text = QString::fromUtf8(body);
        return IMError::parlo(
            status, QVariantMap {{QStringLiteral("info"), text}, {QStringLiteral("NSLocalizedDescriptionKey"), text}});
    }
    if (reply->error() != QNetworkReply::NoError)
        return parloNetworkError(reply->error(), reply->errorString());
    return IMError();
}

IMError noServer() { return IMError::parlo(400, QStringLiteral("no server address: connectWithURL first")); }
} // namespace

// ---- HTTP download -----------------------------------------------------------------------------

void ParloFiles::getFileWithName(
    const QString &name, bool fromCache, Progress progress, DataSuccess success, Failure failure)
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
            QPointer<Parlo> facade(m_facade);
            reads().async([this, facade, name, path = filePathWithName(name), progress, success, failure] {
                const QByteArray bytes = parloReadWholeFile(path);
                if (bytes.isNull()) {
                    // Gone since it was seen: fetch it as if it had never been there.
                    IMDispatchMainAsync([this, facade, name, progress, success, failure] {
                        if (facade)
                            downloadFile(name, progress, success, failure);
                        else if (failure)
                            failure(parloNetworkError(QNetworkReply::OperationCanceledError,
                                QStringLiteral("the facade was destroyed before the fetch ended")));
                    });
                    return;
                }
                m_cache.setObject(name, bytes);
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

void ParloFiles::downloadFile(const QString &name, Progress progress, DataSuccess success, Failure failure)
{
    if (m_transport.domainString().isEmpty()) {
        posted(failure)(noServer());
        return;
    }
    if (!progress)
        progress = [](double) {};
    QPointer<Parlo> facade(m_facade);
    chatinHTTPForFiles(
        [this, facade, name, progress, success, failure] { startDownload(name, progress, success, failure); },
        posted(failure));
}

void ParloFiles::startDownload(const QString &name, Progress progress, DataSuccess success, Failure failure)
{
    QNetworkRequest request(QUrl(m_transport.domainString() + QStringLiteral("/files/") + parloFileSegment(name)));
    QNetworkReply *reply = nullptr;
    if (!std::exchange(m_viaSessionOnce, false))
        reply = IMFileDownloadReply::get(
            urlSession(), request, IMPlatform::instance()->temporaryPath(), filePathWithName(name), m_requestTimeoutMs);
    if (!reply) {
        reply = urlSession()->get(request);
        reply->setReadBufferSize(kReadBufferSize);
    }
    const QString key = QString::number(m_nextTaskIdentifier++);
    m_taskDict.insert(key,
        QVariantMap {{kSessionTask, QVariant::fromValue(reply)}, {kSessionSuccess, QVariant::fromValue(success)},
            {kSessionFailure, QVariant::fromValue(failure)}, {kSessionProgress, QVariant::fromValue(progress)},
            {kFilename, name}});
    auto download = std::make_shared<ParloDownload>();
    download->name = name;
    m_downloads.insert(key, download);
    startTransfer(reply, posted(failure));

    QObject *context = m_transferContext.get();
    // (A IMFileDownloadReply has no body to read: its worker writes it.)
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
    QObject::connect(
        reply, &QNetworkReply::downloadProgress, context, [this, reply, key](qint64 received, qint64 total) {
            if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() >= 400)
                return;
            const Progress report = m_taskDict.value(key).value(kSessionProgress).value<Progress>();
            if (!report)
                return;
            const double fraction = double(received) / double(total);
            IMDispatchMainAsync([report, fraction] { report(fraction); });
        });
    QObject::connect(reply, &QNetworkReply::finished, context, [this, facade = QPointer<Parlo>(m_facade), reply, key] {
        if (facade)
            finishDownload(reply, key);
    });
}

void ParloFiles::finishDownload(QNetworkReply *reply, const QString &key)
{
    if (!m_inFlight.remove(reply))
        return;
    reply->deleteLater();
    const QVariantMap entry = m_taskDict.take(key);
    const std::shared_ptr<ParloDownload> download = m_downloads.take(key);
    const DataSuccess success = entry.value(kSessionSuccess).value<DataSuccess>();
    const Failure failure = posted(entry.value(kSessionFailure).value<Failure>());

    if (auto *direct = dynamic_cast<IMFileDownloadReply *>(reply)) {
        if (direct->needsSession()) {
            // An answer the session knows better (a redirect, a body of unannounced length): ask
            // again through it. Nothing has been reported yet.
            m_viaSessionOnce = true;
            startDownload(download->name, entry.value(kSessionProgress).value<Progress>(), success,
                entry.value(kSessionFailure).value<Failure>());
            return;
        }
        IMError error = transferError(reply, direct->errorBody(), m_resourceTimeoutMs);
        if (error.isNull() && !direct->writeError().isNull())
            error = IMError(QStringLiteral("QFileDevice"), QFileDevice::WriteError,
                QVariantMap {{QStringLiteral("info"), direct->writeError()}});
        if (!error.isNull()) {
            failure(error);
            return;
        }
        // The bytes are already on disk, in place; the memory cache and the success block share them.
        const QByteArray bytes = direct->bytes();
        m_cache.setObject(download->name, bytes);
        IMDispatchMainAsync([success, bytes] {
            if (success)
                success(bytes);
        });
        if (std::shared_ptr<void> replaced = direct->takeReplacedFile())
            writes().async([replaced = std::move(replaced)]() mutable { replaced.reset(); });
        return;
    }

    IMError error = transferError(reply, download->errorBody, m_resourceTimeoutMs);
    if (error.isNull() && !download->writeError.isNull())
        error = IMError(QStringLiteral("QFileDevice"), QFileDevice::WriteError,
            QVariantMap {{QStringLiteral("info"), download->writeError}});
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (error.isNull() && length.isValid() && reply->rawHeader("Content-Encoding").isEmpty()
        && length.toLongLong() != download->written)
        error = parloNetworkError(QNetworkReply::RemoteHostClosedError,
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
    writes().async([this, name, partial, target, success, failure] {
        QByteArray bytes = partial.isNull() ? QByteArray("", 0) : parloReadWholeFile(partial);
        if (bytes.isNull()) {
            QFile::remove(partial);
            failure(IMError(QStringLiteral("QFileDevice"), QFileDevice::ReadError,
                QVariantMap {{QStringLiteral("info"), QStringLiteral("the download could not be read back")}}));
            return;
        }
        m_cache.setObject(name, bytes);
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

QPointer<QNetworkReply> ParloFiles::uploadFileWithData(const QByteArray &data, const QString &type,
    const IMRoomPtr &room, bool isPublic, Progress progress, FileSuccess success, Failure failure)
{
    if (m_transport.domainString().isEmpty()) {
        posted(failure)(noServer());
        return {};
    }
    const QString roomID = room ? room->objectID() : QString();
    const QVariantMap fields {{QStringLiteral("type"), type},
        {QStringLiteral("room"), roomID.isNull() ? QStringLiteral("") : roomID},
        {QStringLiteral("isPublic"), isPublic ? 1 : 0}};
    const Parlo::UploadRequest upload = requestWithData(data, fields);
    QNetworkReply *reply = urlSession()->post(upload.request, upload.body);
    const QString key = QString::number(m_nextTaskIdentifier++);
    m_taskDict.insert(key,
        QVariantMap {{kSessionTask, QVariant::fromValue(reply)}, {kSessionSuccess, QVariant::fromValue(success)},
            {kSessionFailure, QVariant::fromValue(failure)}, {kSessionProgress, QVariant::fromValue(progress)}});
    startTransfer(reply, posted(failure));

    QObject *context = m_transferContext.get();
    QPointer<Parlo> facade(m_facade);
    QObject::connect(reply, &QNetworkReply::uploadProgress, context, [this, facade, key](qint64 sent, qint64 total) {
        auto it = m_taskDict.find(key);
        if (it == m_taskDict.end() || total <= 0)
            return;
        const double fraction = double(sent) / double(total);
        const Progress report = it->value(kSessionProgress).value<Progress>();
        if (report)
            IMDispatchMainAsync([report, fraction] { report(fraction); });
        else if (facade)
            PARLO_LOG(m_logger, "data", QStringLiteral("didn't find the progress block"));
        if (fraction == 1.0)
            m_taskDict.erase(it);
    });
    QObject::connect(reply, &QNetworkReply::finished, context, [this, facade, reply, key, data, success, failure] {
        if (facade)
            finishUpload(reply, key, data, success, failure);
    });
    return reply;
}

void ParloFiles::finishUpload(
    QNetworkReply *reply, const QString &key, const QByteArray &data, FileSuccess success, Failure failure)
{
    if (!m_inFlight.remove(reply))
        return;
    reply->deleteLater();
    // Also an upload whose body never reported completion leaves no record behind.
    m_taskDict.remove(key);
    const QByteArray answer = reply->readAll();
    IMError error = transferError(reply, answer.left(kErrorBodyLimit), m_resourceTimeoutMs);
    IMFilePtr file;
    if (error.isNull()) {
        file = parloUploadedFile(answer);
        if (!file)
            error = IMError::parlo(0,
                QStringLiteral("the upload's answer names no usable file: %1")
                    .arg(QString::fromUtf8(answer.left(1024))));
    }
    if (!error.isNull()) {
        posted(failure)(error);
        return;
    }
    m_cache.setObject(file->fileName(), data);
    IMDispatchMainAsync([success, file] {
        if (success)
            success(file);
    });
}

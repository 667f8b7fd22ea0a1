// Files: fetching over the connection, the URL session and its transfers, the multipart upload.
#include "ParloFiles.h"

#include "IMClient.h"
#include "IMFile.h"
#include "IMPlatform.h"
#include "ParloFileSupport_p.h"
#include "ParloLogger.h"
#include "ParloTransport.h"

#include <QBuffer>
#include <QImageWriter>
#include <QJsonDocument>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QSslError>
#include <QTimer>

namespace {
const QByteArray kBoundary = QByteArrayLiteral("---------------------------14737809831466499882746641449");
const char *const kResourceTimedOut = "parloResourceTimedOut";
} // namespace

ParloFiles::ParloFiles(Parlo *facade, ParloTransport &transport, ParloLogger &logger)
    : m_facade(facade)
    , m_transport(transport)
    , m_logger(logger)
    , m_transferContext(new QObject)
{
}

ParloFiles::~ParloFiles()
{
    // First silence every transfer, so that aborting one below cannot end it a second time.
    m_transferContext.reset();
    const auto pending = std::exchange(m_inFlight, {});
    for (auto it = pending.cbegin(); it != pending.cend(); ++it) {
        it.key()->abort();
        if (it.value())
            it.value()(parloNetworkError(QNetworkReply::OperationCanceledError,
                QStringLiteral("the facade was destroyed before the transfer ended")));
    }
    for (const Failure &failure : std::exchange(m_chatinWaits, {}))
        failure(parloNetworkError(QNetworkReply::OperationCanceledError,
            QStringLiteral("the facade was destroyed before the chat-in ended")));
    m_taskDict.clear();
    m_downloads.clear(); // removes the temporary files of unfinished m_downloads
    m_readQueue.reset();
    m_writeQueue.reset();
    m_urlSession.reset();
}

IMDispatchQueue &ParloFiles::reads()
{
    if (!m_readQueue)
        m_readQueue = std::make_unique<IMDispatchQueue>(QStringLiteral("queue"));
    return *m_readQueue;
}

IMDispatchQueue &ParloFiles::writes()
{
    if (!m_writeQueue)
        m_writeQueue = std::make_unique<IMDispatchQueue>(QStringLiteral("QUEUE"));
    return *m_writeQueue;
}

QNetworkAccessManager *ParloFiles::urlSession()
{
    if (!m_urlSession) {
        m_urlSession = std::make_unique<QNetworkAccessManager>();
        m_urlSession->setCookieJar(new QNetworkCookieJar(m_urlSession.get()));
        m_urlSession->setTransferTimeout(m_requestTimeoutMs);
        // Read at each error, so a later connectWithURL's "selfSigned" applies to this session too.
        QObject::connect(m_urlSession.get(), &QNetworkAccessManager::sslErrors, m_transferContext.get(),
            [this](QNetworkReply *reply, const QList<QSslError> &errors) {
                if (m_transport.selfSigned())
                    reply->ignoreSslErrors(errors);
            });
    }
    return m_urlSession.get();
}

QNetworkReply *ParloFiles::startTransfer(QNetworkReply *reply, Failure abandon)
{
    m_inFlight.insert(reply, std::move(abandon));
    auto *timer = new QTimer(reply);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, reply, [reply] {
        reply->setProperty(kResourceTimedOut, true);
        reply->abort();
    });
    timer->start(m_resourceTimeoutMs);
    // A transfer deleted by someone else before it finished still ends, with a failure.
    QObject::connect(reply, &QObject::destroyed, m_transferContext.get(), [this, reply] {
        const Failure abandon = m_inFlight.take(reply);
        if (abandon)
            abandon(parloNetworkError(
                QNetworkReply::OperationCanceledError, QStringLiteral("the transfer was deleted before it ended")));
    });
    return reply;
}

// ---- HTTP chat-in ------------------------------------------------------------------------------

void ParloFiles::chatinHTTPForFiles(Block success, Failure failure)
{
    // The session's HTTP chat-in leaves its cookie in the URL session's jar, which the download then
    // presents. Its reply dies with the URL session without a word, so the wait is recorded here too
    // and ends with the facade if it has not ended before.
    const quint64 wait = m_nextChatinWait++;
    m_chatinWaits.insert(wait, failure);
    m_chatinHTTP(
        [this, wait, success](const IMClientPtr &) {
            if (m_chatinWaits.remove(wait))
                success();
        },
        [this, wait](const IMError &error) {
            const Failure failure = m_chatinWaits.take(wait);
            if (failure)
                failure(error);
        });
}

// ---- fetching over the connection --------------------------------------------------------------

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

void ParloFiles::getFileWithName(const QString &name, FileComplete complete)
{
    const IMError refused = parloFileNameError(name);
    if (!refused.isNull()) {
        if (complete)
            complete(refused, QByteArray());
        return;
    }
    const QVariantMap item {{QStringLiteral("data"), QVariantMap()},
        {QStringLiteral("url"), QStringLiteral("/files/") + parloFileSegment(name)},
        {QStringLiteral("headers"), m_transport.header()}};
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodGet, item,
        [this, facade, name, complete](const QVariant &body) {
            QByteArray bytes;
            if (!fileBytesOf(body, &bytes)) {
                if (complete)
                    complete(notFileBytes(body), QByteArray());
                return;
            }
            if (facade)
                cache().setObject(name, bytes);
            if (complete)
                complete(IMError(), bytes);
        },
        [complete](const IMError &error) {
            if (complete)
                complete(error, QByteArray());
        });
}

void ParloFiles::getFileWithName(const QString &name, bool fromCache, DataSuccess success, Failure failure)
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
    QPointer<Parlo> facade(m_facade);
    getFileWithName(name, [this, facade, name, success, failure](const IMError &error, const QByteArray &bytes) {
        if (!error.isNull()) {
            if (failure)
                failure(error);
            return;
        }
        if (facade)
            fileSaveWithName(name, bytes);
        if (success)
            success(bytes);
    });
}

// ---- the multipart upload ----------------------------------------------------------------------

Parlo::UploadRequest ParloFiles::requestWithData(const QByteArray &data, const QVariantMap &dict) const
{
    const IMClientPtr me = IMClient::currentClient();
    Parlo::UploadRequest upload;
    upload.request.setUrl(QUrl(m_transport.domainString() + QStringLiteral("/files/upload")));
    upload.request.setRawHeader("apiKey", m_transport.apiKey().toUtf8());
    upload.request.setRawHeader("clientKey", m_transport.clientKey().toUtf8());
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

QPointer<QNetworkReply> ParloFiles::uploadFileWithImage(
    const QImage &image, const IMRoomPtr &room, bool isPublic, FileSuccess success, Failure failure)
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
    return uploadFileWithData(
        png, kMessageTypeImage, room, isPublic, [](double) {}, std::move(success), std::move(failure));
}

QString ParloFiles::filePathWithName(const QString &name) { return parloFilePathWithName(name); }
bool ParloFiles::isFileExistsWithName(const QString &name) { return parloIsFileExistsWithName(name); }
QByteArray ParloFiles::fileWithName(const QString &name) { return parloFileWithName(name); }
bool ParloFiles::fileSaveWithName(const QString &name, const QByteArray &data)
{
    return parloFileSaveWithName(name, data);
}

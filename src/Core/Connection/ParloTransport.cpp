#include "ParloTransport.h"

#include "IMDispatch.h"
#include "IMPlatform.h"
#include "IMSocketIOClient.h"
#include "IMUserDefaults.h"
#include "ParloAnnouncer.h"
#include "ParloLogger.h"

#include <QJsonDocument>
#include <QJsonParseError>

namespace {
const QString kNoAck = QStringLiteral("NO ACK");
constexpr int kRetryLimit = 3;

QString methodName(uint method)
{
    switch (method) {
    case ParloRequestMethodGet:
        return QStringLiteral("get");
    case ParloRequestMethodPost:
        return QStringLiteral("post");
    case ParloRequestMethodPut:
        return QStringLiteral("put");
    case ParloRequestMethodDelete:
        return QStringLiteral("delete");
    default:
        return QString();
    }
}

QString textOrEmpty(const QVariant &body)
{
    if (!body.isValid() || body.isNull())
        return QStringLiteral("");
    return body.typeId() == QMetaType::QString ? body.toString() : IMDescription(body);
}

IMError statusError(int code, const QVariant &body)
{
    const QString text = textOrEmpty(body);
    // The literal key "NSLocalizedDescriptionKey" is part of the record callers read.
    const QVariant info = body.isNull() ? QVariant(text) : body;
    return IMError::parlo(
        code, QVariantMap {{QStringLiteral("info"), info}, {QStringLiteral("NSLocalizedDescriptionKey"), info}});
}

bool isNoAck(const QVariant &first) { return first.typeId() == QMetaType::QString && first.toString() == kNoAck; }

// A socket is made and destroyed on the main thread, even when a request on another thread
// held it last.
std::shared_ptr<IMSocket> owned(IMSocket *socket)
{
    return std::shared_ptr<IMSocket>(socket, [](IMSocket *s) {
        if (IMIsMainThread())
            delete s;
        else
            IMDispatchMainAsync([s] { delete s; });
    });
}
} // namespace

ParloTransport::ParloTransport(Parlo *facade, ParloLogger &logger, ParloAnnouncer &announcer)
    : m_facade(facade)
    , m_logger(logger)
    , m_announcer(announcer)
{
}

ParloTransport::~ParloTransport() { close(); }

void ParloTransport::close()
{
    // Destroying the socket hands "NO ACK" to every pending acknowledgement; the requests see
    // that the facade is going and fail without retrying.
    std::shared_ptr<IMSocket> gone;
    QMutexLocker lock(&m_socketMutex);
    gone.swap(m_socket);
    lock.unlock();
}

std::shared_ptr<IMSocket> ParloTransport::currentSocket() const
{
    QMutexLocker lock(&m_socketMutex);
    return m_socket;
}

IMSocket *ParloTransport::socket() const { return currentSocket().get(); }

bool ParloTransport::isConnected() const
{
    const std::shared_ptr<IMSocket> socket = currentSocket();
    return socket && socket->status() == IMSocket::Status::Connected;
}

void ParloTransport::connectWithURL(const QString &url, const QVariantMap &options, Block onConnect)
{
    m_onConnect = std::move(onConnect);
    m_selfSigned = options.value(QStringLiteral("selfSigned")).toBool();
    std::shared_ptr<IMSocket> socket
        = owned(m_socketFactory ? m_socketFactory(QUrl(url), options) : new IMSocketIOClient(QUrl(url), options));
    {
        // The old connection goes with its handlers; its pending requests fail or retry on the new one.
        QMutexLocker lock(&m_socketMutex);
        m_socket.swap(socket);
    }
    socket.reset();
    std::shared_ptr<IMSocket> current = currentSocket();
    onLifeEvents(*current);
    if (m_registrar)
        m_registrar(*current);
    current->connect();
    m_domainString = url;
}

void ParloTransport::reconnect()
{
    if (std::shared_ptr<IMSocket> socket = currentSocket())
        socket->reconnect();
}

void ParloTransport::onLifeEvents(IMSocket &socket)
{
    socket.onAny([](const QString &, const QVariantList &) {});
    // In the order of the statuses they become.
    static const QStringList lifeEvents {QStringLiteral("connect"), QStringLiteral("disconnect"),
        QStringLiteral("error"), QStringLiteral("reconnect"), QStringLiteral("reconnectAttempt"),
        QStringLiteral("reconnecting"), QStringLiteral("reconnectfailed")};
    for (int status = 0; status < lifeEvents.size(); ++status) {
        socket.on(lifeEvents[status], [this, status](const QVariantList &data, const IMSocket::AckEmitter &) {
            if (status == ParloConnectStatusConnected && m_onConnect)
                m_onConnect();
            didChangeConnectStatus(status, data);
        });
    }
}

void ParloTransport::didChangeConnectStatus(int status, const QVariantList &data)
{
    m_connectStatus = status;
    m_announcer.tellConnectStatus(status, data.isEmpty() ? QStringLiteral("") : IMDescription(data.first()));
}

QVariantMap ParloTransport::header() const
{
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    const QString id = settings->clientID();
    const QString token = settings->token();
    return QVariantMap {{kParloApiKey, m_apiKey}, {kParloClientKey, m_clientKey},
        {kParloClientID, id.isNull() ? QStringLiteral("") : id},
        {kParloToken, token.isNull() ? QStringLiteral("") : token}};
}

bool ParloTransport::isPostRetryListAPI(const QVariantMap &item) const
{
    static const QStringList retryable {QStringLiteral("/client/chatin/"), QStringLiteral("/client/")};
    return retryable.contains(item.value(QStringLiteral("url")).toString());
}

void ParloTransport::emitWithMethod(uint method, const QVariantMap &item, Success success, Failure failure)
{
    if (!isConnected()) {
        if (failure)
            failure(IMError::parlo(400, QStringLiteral("not connected")));
        return;
    }
    emitWithMethod(method, 0, item, std::move(success), std::move(failure));
}

void ParloTransport::emitWithMethod(uint method, int counter, const QVariantMap &item, Success success, Failure failure)
{
    const QString event = methodName(method);
    IMDispatchMainAsync([] { IMPlatform::instance()->setNetworkActivityIndicatorVisible(true); });
    const std::shared_ptr<IMSocket> socket = currentSocket();
    if (event.isNull() || !socket) {
        // An unknown method or no connection at all: nothing can be sent, fail like a lost request.
        IMDispatchMainAsync([failure, event] {
            IMPlatform::instance()->setNetworkActivityIndicatorVisible(false);
            if (failure)
                failure(event.isNull() ? IMError::parlo(400, QStringLiteral("unknown method"))
                                       : IMError::parlo(999, kNoAck));
        });
        return;
    }

    // The facade may go while the request is out: the transport is reached only while it lives.
    QPointer<Parlo> facade(m_facade);
    auto onAck = [this, facade, method, counter, item, success, failure](const QVariantList &data) {
        if (facade && !data.isEmpty() && data.first().typeId() == QMetaType::QString && !isNoAck(data.first())) {
            QJsonParseError error;
            const QJsonDocument doc = QJsonDocument::fromJson(data.first().toString().toUtf8(), &error);
            PARLO_LOG(m_logger, "data", doc.isNull() ? data.first() : doc.toVariant());
        }
        IMDispatchMainAsync([this, facade, method, counter, item, success, failure, data] {
            IMPlatform::instance()->setNetworkActivityIndicatorVisible(false);
            const QVariant first = data.value(0);
            if (isNoAck(first)) {
                if (facade && counter < kRetryLimit && (method != ParloRequestMethodPost || isPostRetryListAPI(item))) {
                    PARLO_LOG(m_logger, "data", QStringLiteral("api retry NO.%1").arg(counter));
                    emitWithMethod(method, counter + 1, item, success, failure);
                    return;
                }
                if (failure)
                    failure(IMError::parlo(999, kNoAck));
                return;
            }
            if (data.isEmpty()) {
                if (failure)
                    failure(IMError::parlo(0, QStringLiteral("")));
                return;
            }
            if (first.typeId() != QMetaType::QVariantMap) {
                // Not a response object: nothing says whether the server accepted the request.
                if (failure)
                    failure(statusError(0, first));
                return;
            }
            const QVariantMap response = first.toMap();
            const QVariant body = response.value(QStringLiteral("body"));
            const auto status = response.find(QStringLiteral("statusCode"));
            const bool ok = status == response.end() || (!status->isNull() && status->toInt() < 400);
            if (ok) {
                if (success)
                    success(body);
                return;
            }
            if (facade)
                PARLO_LOG(m_logger, "data", QStringLiteral("request fail :\n%1").arg(IMDescription(body)));
            if (failure)
                failure(statusError(status->isNull() ? 0 : status->toInt(), body));
        });
    };
    socket->emitWithAck(event, QVariantList {item}, double(m_timeout.load()), std::move(onAck));
}

bool ParloTransport::emitOnce(uint method, const QVariantMap &item, IMSocket::AckCallback done)
{
    const std::shared_ptr<IMSocket> socket = currentSocket();
    if (!socket)
        return false;
    socket->emitWithAck(methodName(method), QVariantList {item}, double(m_timeout.load()), std::move(done));
    return true;
}

void ParloTransport::execQueue()
{
    while (!m_queue.isEmpty()) {
        Block block = m_queue.first();
        if (block)
            block();
        m_queue.removeFirst();
    }
}

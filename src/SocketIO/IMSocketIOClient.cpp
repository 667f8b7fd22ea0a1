#include "IMSocketIOClient.h"

#include "IMDispatch.h"
#include "IMEngineIOSocket.h"
#include "IMSocketIOClient_p.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QThread>
#include <QUrlQuery>

namespace {
// Runs `fn` on the main thread: at once when already there, else queued.
// Through the kit's main queue, not a Qt event: its hand-over is one ThreadSanitizer can see.
template <typename F> void onMainThread(F &&fn)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread())
        fn();
    else
        IMDispatchMainAsync(std::forward<F>(fn));
}

QString jsonText(const QVariant &v)
{
    QList<QByteArray> ignored;
    return QString::fromUtf8(IMSocketIOPacket::toJson(v, &ignored));
}
} // namespace

IMSocketIOClient::IMSocketIOClient(const QUrl &url, const QVariantMap &options, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>(this))
{
    d->url = url;
    d->options = options;
    d->anchor->client = this;
    d->nam = new QNetworkAccessManager(this);
    d->nam->setCookieJar(new QNetworkCookieJar(d->nam));
    d->acks = std::make_unique<IMSocketIOAckTable>();
    d->readOptions();
    d->reconnectTimer.setSingleShot(true);
    QObject::connect(&d->reconnectTimer, &QTimer::timeout, this, [this] { d->startAttempt(); });
    d->openTimer.setSingleShot(true);
    QObject::connect(&d->openTimer, &QTimer::timeout, this, [this] {
        d->dropEngine(false);
        d->connectionLost(QStringLiteral("transport error"), QStringLiteral("connection timed out"));
    });
}

IMSocketIOClient::~IMSocketIOClient()
{
    d->anchor->client = nullptr;
    d->reconnectTimer.stop();
    d->openTimer.stop();
    d->dropEngine(true);
    d->setStatus(Status::Disconnected);
    d->acks->failAll();
}

void IMSocketIOClient::Private::readOptions()
{
    const auto opt = [this](const char *key) { return options.value(QLatin1String(key)); };
    const int version = opt("version").isValid() ? opt("version").toInt() : 3;
    config.eio = version == 2 ? 3 : 4;
    sioVersion = version == 2 ? 4 : 5;
    config.forceWebsockets = opt("forceWebsockets").toBool();
    config.forcePolling = opt("forcePolling").toBool() && !config.forceWebsockets;

    QUrl base = url;
    if (base.scheme() == QLatin1String("ws"))
        base.setScheme(QStringLiteral("http"));
    else if (base.scheme() == QLatin1String("wss"))
        base.setScheme(QStringLiteral("https"));
    QString path = opt("path").isValid() ? opt("path").toString() : QStringLiteral("/socket.io/");
    if (!path.startsWith(QLatin1Char('/')))
        path.prepend(QLatin1Char('/'));
    if (!path.endsWith(QLatin1Char('/')))
        path.append(QLatin1Char('/'));
    base.setPath(path);
    config.url = base;

    const QVariantMap params = opt("connectParams").toMap();
    for (auto it = params.cbegin(); it != params.cend(); ++it) {
        const QVariant &v = it.value();
        const bool scalar = v.typeId() != QMetaType::QVariantMap && v.typeId() != QMetaType::QVariantList;
        config.query.append({it.key(), scalar ? v.toString() : jsonText(v)});
    }
    const QVariantMap headers = opt("extraHeaders").toMap();
    for (auto it = headers.cbegin(); it != headers.cend(); ++it)
        config.headers.append({it.key().toUtf8(), it.value().toString().toUtf8()});
    config.cookies = opt("cookies").toStringList();
    config.selfSigned = opt("selfSigned").toBool();
    if (opt("maxPayload").isValid())
        config.maxPayload = opt("maxPayload").toLongLong();
    config.nam = nam;

    if (opt("nsp").isValid() && !opt("nsp").toString().isEmpty()) {
        nsp = opt("nsp").toString();
        if (!nsp.startsWith(QLatin1Char('/')))
            nsp.prepend(QLatin1Char('/'));
    }
    auth = opt("auth").toMap();
    reconnects = opt("reconnects").isValid() ? opt("reconnects").toBool() : true;
    reconnectAttempts = opt("reconnectAttempts").isValid() ? opt("reconnectAttempts").toInt() : -1;
    const double wait = opt("reconnectWait").isValid() ? opt("reconnectWait").toDouble() : 1.0;
    const double waitMax = opt("reconnectWaitMax").isValid() ? opt("reconnectWaitMax").toDouble() : 5.0;
    const double factor = opt("randomizationFactor").isValid() ? opt("randomizationFactor").toDouble() : 0.5;
    backoff = IMSocketIOBackoff(qint64(wait * 1000), qint64(waitMax * 1000), factor);
    openTimeoutMs = int(1000 * (opt("openTimeout").isValid() ? opt("openTimeout").toDouble() : 20.0));
    if (opt("log").toBool())
        const_cast<QLoggingCategory &>(lcSocketIO()).setEnabled(QtDebugMsg, true);
}

IMSocket::Status IMSocketIOClient::status() const { return d->currentStatus(); }

QUrl IMSocketIOClient::url() const { return d->url; }

QVariantMap IMSocketIOClient::options() const { return d->options; }

QString IMSocketIOClient::sid() const
{
    return d->engine && d->engine->state() == IMEngineIOSocket::State::Open ? d->engine->sid() : QString();
}

QString IMSocketIOClient::transport() const { return d->engine && d->joined ? d->engine->transportName() : QString(); }

void IMSocketIOClient::connect()
{
    const Status s = d->currentStatus();
    if (s == Status::Connecting || s == Status::Connected)
        return;
    d->attempt = 0;
    d->setStatus(Status::Connecting);
    d->openEngine();
}

void IMSocketIOClient::disconnect()
{
    d->reconnectTimer.stop();
    d->openTimer.stop();
    const bool wasJoined = d->joined;
    d->dropEngine(true);
    d->attempt = 0;
    if (d->currentStatus() != Status::NotConnected || wasJoined)
        d->setStatus(Status::Disconnected);
    d->acks->failAll();
    if (wasJoined)
        d->fire(QStringLiteral("disconnect"), {QStringLiteral("io client disconnect")});
}

void IMSocketIOClient::reconnect()
{
    d->reconnectTimer.stop();
    d->openTimer.stop();
    const bool wasJoined = d->joined;
    d->dropEngine(true);
    d->attempt = 0;
    d->setStatus(Status::Connecting);
    d->acks->failUnbounded();
    if (wasJoined)
        d->fire(QStringLiteral("disconnect"), {QStringLiteral("io client disconnect")});
    // A handler may have called disconnect() meanwhile.
    if (d->currentStatus() == Status::Connecting && !d->engine)
        d->openEngine();
}

IMSocket::HandlerId IMSocketIOClient::on(const QString &event, Handler handler)
{
    const HandlerId id = d->nextHandlerId++;
    d->handlers.push_back({id, event, std::move(handler)});
    return id;
}

IMSocket::HandlerId IMSocketIOClient::onAny(AnyHandler handler)
{
    const HandlerId id = d->nextHandlerId++;
    d->anyHandlers.push_back({id, std::move(handler)});
    return id;
}

void IMSocketIOClient::off(HandlerId id)
{
    auto &h = d->handlers;
    h.erase(std::remove_if(h.begin(), h.end(), [id](const auto &e) { return e.id == id; }), h.end());
    auto &a = d->anyHandlers;
    a.erase(std::remove_if(a.begin(), a.end(), [id](const auto &e) { return e.id == id; }), a.end());
}

void IMSocketIOClient::emitEvent(const QString &event, const QVariantList &items)
{
    if (QThread::currentThread() == thread()) {
        d->sendEvent(event, items, -1);
        return;
    }
    onMainThread([anchor = d->anchor, event, items] {
        if (anchor->client)
            anchor->client->d->sendEvent(event, items, -1);
    });
}

void IMSocketIOClient::emitWithAck(
    const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback)
{
    if (QThread::currentThread() == thread()) {
        d->emitWithAckNow(event, items, timeoutSeconds, std::move(callback));
        return;
    }
    onMainThread([anchor = d->anchor, event, items, timeoutSeconds, callback = std::move(callback)]() mutable {
        if (anchor->client)
            anchor->client->d->emitWithAckNow(event, items, timeoutSeconds, std::move(callback));
        else if (callback)
            callback(IMSocketIOAckTable::noAck());
    });
}

void IMSocketIOClient::Private::emitWithAckNow(
    const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback)
{
    const qint64 id = nextAckId++;
    acks->add(id, timeoutSeconds, std::move(callback));
    sendEvent(event, items, id);
}

void IMSocketIOClient::Private::sendEvent(const QString &event, const QVariantList &items, qint64 ackId)
{
    // Not buffered while disconnected: an acknowledged emit then simply times out.
    if (currentStatus() != Status::Connected || !engine) {
        qCDebug(lcSocketIO) << "not connected, dropping" << event;
        return;
    }
    IMSocketIOPacket p;
    p.type = IMSocketIOPacket::Event;
    p.nsp = nsp;
    p.id = ackId;
    QVariantList data;
    data.reserve(items.size() + 1);
    data.append(event);
    data.append(items);
    p.data = data;
    send(p);
}

void IMSocketIOClient::Private::send(const IMSocketIOPacket &packet)
{
    if (!engine)
        return;
    QList<QByteArray> buffers;
    const QString text = packet.encode(&buffers);
    qCDebug(lcSocketIO) << "send" << text.left(200) << buffers.size() << "attachments";
    if (buffers.isEmpty())
        engine->sendText(text);
    else
        engine->sendMessages(text, buffers);
}

IMSocket::AckEmitter IMSocketIOClient::Private::makeAckEmitter(qint64 id)
{
    if (id < 0)
        return [](const QVariantList &) {};
    auto sent = std::make_shared<std::atomic_bool>(false);
    const quint64 forSession = session;
    return [anchor = anchor, sent, forSession, id](const QVariantList &items) {
        if (sent->exchange(true))
            return;
        onMainThread([anchor, forSession, id, items] {
            IMSocketIOClient *c = anchor->client;
            if (!c || c->d->session != forSession || !c->d->joined)
                return;
            IMSocketIOPacket p;
            p.type = IMSocketIOPacket::Ack;
            p.nsp = c->d->nsp;
            p.id = id;
            p.data = items;
            c->d->send(p);
        });
    };
}

void IMSocketIOClient::Private::fire(const QString &event, const QVariantList &items, const AckEmitter &ack)
{
    const AckEmitter emitter = ack ? ack : AckEmitter([](const QVariantList &) {});
    std::vector<Handler> matching;
    for (const auto &h : handlers)
        if (h.event == event)
            matching.push_back(h.handler);
    std::vector<AnyHandler> any;
    any.reserve(anyHandlers.size());
    for (const auto &a : anyHandlers)
        any.push_back(a.handler);
    // Copies: a handler may add or remove handlers while these run.
    for (const auto &h : matching)
        if (h)
            h(items, emitter);
    for (const auto &a : any)
        if (a)
            a(event, items);
}

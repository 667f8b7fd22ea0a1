// The connection half of IMSocketIOClient: engine sessions, the Socket.IO handshake, incoming
// packets and reconnection.
#include "IMEngineIOSocket.h"
#include "IMSocketIOClient_p.h"

#include <QUrlQuery>

namespace {
// Events the server may never send (the 4.x server refuses them from clients likewise).
bool isReservedEvent(const QString &name)
{
    static const QStringList reserved
        = {QStringLiteral("connect"), QStringLiteral("connect_error"), QStringLiteral("disconnect"),
            QStringLiteral("disconnecting"), QStringLiteral("newListener"), QStringLiteral("removeListener")};
    return reserved.contains(name);
}
} // namespace

void IMSocketIOClient::Private::openEngine()
{
    dropEngine(false);
    ++session;
    partial.reset();
    joined = false;
    // A fresh session every time: an old sid is never reused.
    engine = new IMEngineIOSocket(config, q);
    QObject::connect(engine, &IMEngineIOSocket::opened, q, [this] { onEngineOpened(); });
    QObject::connect(engine, &IMEngineIOSocket::textMessage, q, [this](const QString &t) { onText(t); });
    QObject::connect(engine, &IMEngineIOSocket::binaryMessage, q, [this](const QByteArray &b) { onBinary(b); });
    QObject::connect(engine, &IMEngineIOSocket::closed, q,
        [this](const QString &reason, const QString &error) { onEngineClosed(reason, error); });
    if (openTimeoutMs > 0)
        openTimer.start(openTimeoutMs);
    engine->open();
}

void IMSocketIOClient::Private::dropEngine(bool sayGoodbye)
{
    if (!engine) {
        joined = false;
        return;
    }
    IMEngineIOSocket *e = engine;
    engine = nullptr;
    e->disconnect(q);
    if (sayGoodbye && joined && e->state() == IMEngineIOSocket::State::Open) {
        IMSocketIOPacket bye;
        bye.type = IMSocketIOPacket::Disconnect;
        bye.nsp = nsp;
        e->sendText(bye.encode(nullptr));
    }
    joined = false;
    partial.reset();
    e->close();
    e->deleteLater();
}

void IMSocketIOClient::Private::onEngineOpened()
{
    // Socket.IO v4 servers join "/" by themselves; every other case asks.
    if (sioVersion == 4 && nsp == QLatin1String("/"))
        return;
    IMSocketIOPacket p;
    p.type = IMSocketIOPacket::Connect;
    if (sioVersion == 4) {
        // v4 carries the namespace's auth as a query in the namespace name.
        QUrlQuery query;
        for (auto it = auth.cbegin(); it != auth.cend(); ++it)
            query.addQueryItem(it.key(), it.value().toString());
        p.nsp = query.isEmpty() ? nsp : nsp + QLatin1Char('?') + query.toString(QUrl::FullyEncoded);
    } else {
        p.nsp = nsp;
        if (!auth.isEmpty())
            p.data = auth;
    }
    if (engine)
        engine->sendText(p.encode(nullptr));
}

void IMSocketIOClient::Private::onEngineClosed(const QString &reason, const QString &error)
{
    dropEngine(false);
    connectionLost(reason, error);
}

void IMSocketIOClient::Private::protocolError(const QString &error)
{
    qCWarning(lcSocketIO) << "protocol error:" << error;
    dropEngine(false);
    connectionLost(QStringLiteral("parse error"), QStringLiteral("parse error: ") + error);
}

void IMSocketIOClient::Private::connectionLost(const QString &reason, const QString &error)
{
    openTimer.stop();
    const bool wasJoined = joined || currentStatus() == Status::Connected;
    joined = false;
    const quint64 mySession = session;
    // Answers to what was asked on the lost session can no longer come.
    acks->failUnbounded();
    if (!reconnects)
        setStatus(Status::Disconnected);
    else
        setStatus(Status::Connecting);
    if (wasJoined) {
        if (reason == QLatin1String("parse error"))
            fire(QStringLiteral("error"), {error});
        fire(QStringLiteral("disconnect"), {reason});
    } else {
        fire(QStringLiteral("error"), {error});
    }
    // A handler may have called disconnect(), connect() or reconnect() meanwhile.
    if (session != mySession || engine || currentStatus() != Status::Connecting || reconnectTimer.isActive())
        return;
    scheduleReconnect();
}

void IMSocketIOClient::Private::scheduleReconnect()
{
    if (!reconnects) {
        setStatus(Status::Disconnected);
        return;
    }
    if (reconnectAttempts >= 0 && attempt >= reconnectAttempts) {
        attempt = 0;
        setStatus(Status::Disconnected);
        fire(QStringLiteral("reconnectfailed"), {});
        return;
    }
    setStatus(Status::Connecting);
    const qint64 delay = backoff.duration(attempt);
    qCDebug(lcSocketIO) << "reconnecting in" << delay << "ms";
    reconnectTimer.start(int(qMin<qint64>(delay, 24 * 3600 * 1000)));
}

void IMSocketIOClient::Private::startAttempt()
{
    ++attempt;
    const int remaining = reconnectAttempts < 0 ? -1 : reconnectAttempts - attempt + 1;
    const quint64 mySession = session;
    fire(QStringLiteral("reconnectAttempt"), {remaining});
    if (session != mySession || currentStatus() != Status::Connecting || engine)
        return;
    fire(QStringLiteral("reconnecting"), {attempt});
    if (session != mySession || currentStatus() != Status::Connecting || engine)
        return;
    openEngine();
}

void IMSocketIOClient::Private::onText(const QString &text)
{
    if (partial) {
        protocolError(QStringLiteral("a text packet arrived while binary attachments were due"));
        return;
    }
    qCDebug(lcSocketIO) << "recv" << text.left(200);
    IMSocketIOPacket p;
    QString error;
    if (!IMSocketIOPacket::decode(text, &p, &error)) {
        protocolError(error);
        return;
    }
    if (p.attachments > 0) {
        if (p.attachments > 1000) {
            protocolError(QStringLiteral("too many binary attachments"));
            return;
        }
        partial = std::move(p);
        return;
    }
    handlePacket(p);
}

void IMSocketIOClient::Private::onBinary(const QByteArray &bytes)
{
    if (!partial) {
        protocolError(QStringLiteral("a binary packet arrived unannounced"));
        return;
    }
    partial->buffers.append(bytes);
    if (!partial->isComplete())
        return;
    IMSocketIOPacket p = std::move(*partial);
    partial.reset();
    QString error;
    if (!p.reconstruct(&error)) {
        protocolError(error);
        return;
    }
    handlePacket(p);
}

void IMSocketIOClient::Private::handlePacket(IMSocketIOPacket &p)
{
    // Namespaces may carry a query in v4 ("/admin?token=1"): compare the path only.
    const QString packetNsp = p.nsp.section(QLatin1Char('?'), 0, 0);
    if (packetNsp != nsp)
        return;
    switch (p.type) {
    case IMSocketIOPacket::Connect:
        handleConnect(p);
        break;
    case IMSocketIOPacket::Disconnect: {
        if (!joined)
            return;
        openTimer.stop();
        reconnectTimer.stop();
        dropEngine(false);
        attempt = 0;
        setStatus(Status::Disconnected);
        acks->failUnbounded();
        fire(QStringLiteral("disconnect"), {QStringLiteral("io server disconnect")});
        break;
    }
    case IMSocketIOPacket::Event:
    case IMSocketIOPacket::BinaryEvent:
        handleEvent(p);
        break;
    case IMSocketIOPacket::Ack:
    case IMSocketIOPacket::BinaryAck:
        handleAck(p);
        break;
    case IMSocketIOPacket::ConnectError: {
        const QString message = p.data.typeId() == QMetaType::QVariantMap
            ? p.data.toMap().value(QStringLiteral("message")).toString()
            : p.data.toString();
        openTimer.stop();
        reconnectTimer.stop();
        const bool wasJoined = joined;
        dropEngine(false);
        // Refused by the server (authentication, middleware): retrying would be refused again.
        attempt = 0;
        setStatus(Status::Disconnected);
        acks->failUnbounded();
        fire(QStringLiteral("error"), {message.isEmpty() ? QStringLiteral("connection refused") : message});
        if (wasJoined)
            fire(QStringLiteral("disconnect"), {QStringLiteral("io server disconnect")});
        break;
    }
    }
}

void IMSocketIOClient::Private::handleConnect(const IMSocketIOPacket &p)
{
    if (joined)
        return;
    if (sioVersion == 5 && !p.data.toMap().contains(QStringLiteral("sid"))) {
        protocolError(QStringLiteral("the server speaks Socket.IO v4 (socket.io 2); use version 2"));
        return;
    }
    openTimer.stop();
    joined = true;
    const int tries = attempt;
    attempt = 0;
    setStatus(Status::Connected);
    const quint64 mySession = session;
    if (tries > 0)
        fire(QStringLiteral("reconnect"), {tries});
    if (session != mySession || !joined)
        return;
    fire(QStringLiteral("connect"), {nsp});
}

void IMSocketIOClient::Private::handleEvent(const IMSocketIOPacket &p)
{
    const QVariantList list = p.data.toList();
    if (p.data.typeId() != QMetaType::QVariantList || list.isEmpty() || list.first().typeId() != QMetaType::QString) {
        // Malformed but harmless: report it and keep the connection.
        fire(QStringLiteral("error"), {QStringLiteral("malformed event packet")});
        return;
    }
    const QString event = list.first().toString();
    if (isReservedEvent(event)) {
        fire(QStringLiteral("error"), {QStringLiteral("the server sent the reserved event \"%1\"").arg(event)});
        return;
    }
    fire(event, list.mid(1), makeAckEmitter(p.id));
}

void IMSocketIOClient::Private::handleAck(const IMSocketIOPacket &p)
{
    const QVariantList items = p.data.typeId() == QMetaType::QVariantList ? p.data.toList() : QVariantList {p.data};
    if (acks->answer(p.id, items))
        return;
    // Ids we issued whose callback already ran (time-out) are late answers, not errors.
    if (p.id >= 0 && p.id < nextAckId) {
        qCDebug(lcSocketIO) << "late acknowledgement" << p.id;
        return;
    }
    fire(QStringLiteral("error"), {QStringLiteral("acknowledgement for unknown id %1").arg(p.id)});
}

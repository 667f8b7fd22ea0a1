#include "IMEngineIOSocket.h"

#include "IMPollingTransport.h"
#include "IMWebSocketTransport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>

IMEngineIOSocket::IMEngineIOSocket(const IMEngineIOConfig &config, QObject *parent)
    : QObject(parent)
    , m_config(config)
{
    m_deadTimer.setSingleShot(true);
    connect(&m_deadTimer, &QTimer::timeout, this,
        [this] { fail(QStringLiteral("ping timeout"), QStringLiteral("ping timeout: the server stopped answering")); });
    m_pingTimer.setSingleShot(true);
    connect(&m_pingTimer, &QTimer::timeout, this, &IMEngineIOSocket::sendPing);
    m_probeTimer.setSingleShot(true);
    connect(&m_probeTimer, &QTimer::timeout, this, &IMEngineIOSocket::dropProbe);
}

IMEngineIOSocket::~IMEngineIOSocket()
{
    if (m_state == State::Open || m_state == State::Opening)
        close();
}

QString IMEngineIOSocket::transportName() const
{
    return (m_transport && m_state == State::Open) ? m_transport->name() : QString();
}

void IMEngineIOSocket::attach(IMEngineIOTransport *transport)
{
    m_transport = transport;
    connect(transport, &IMEngineIOTransport::packetsReceived, this, &IMEngineIOSocket::onPackets);
    connect(transport, &IMEngineIOTransport::failed, this, &IMEngineIOSocket::onTransportFailed);
}

void IMEngineIOSocket::open()
{
    if (m_state != State::Idle)
        return;
    m_state = State::Opening;
    IMEngineIOTransport *t = nullptr;
    if (m_config.forceWebsockets)
        t = new IMWebSocketTransport(m_config, this);
    else
        t = new IMPollingTransport(m_config, this);
    attach(t);
    qCDebug(lcSocketIO) << "opening" << t->name() << m_config.url;
    t->open(QString());
}

void IMEngineIOSocket::close()
{
    if (m_state == State::Closed || m_state == State::Idle) {
        m_state = State::Closed;
        return;
    }
    m_state = State::Closed;
    m_deadTimer.stop();
    m_pingTimer.stop();
    m_probeTimer.stop();
    if (m_probe) {
        m_probe->disconnect(this);
        m_probe->abandon();
    }
    if (m_transport) {
        m_transport->disconnect(this);
        // The transport outlives this session until its goodbye has left.
        m_transport->setParent(m_config.nam);
        m_transport->close();
    }
}

void IMEngineIOSocket::sendText(const QString &text)
{
    write({IMEngineIOPacket::makeText(IMEngineIOPacket::Message, text)});
}

void IMEngineIOSocket::sendMessages(const QString &text, const QList<QByteArray> &binaries)
{
    QList<IMEngineIOPacket> packets;
    packets.reserve(binaries.size() + 1);
    packets.append(IMEngineIOPacket::makeText(IMEngineIOPacket::Message, text));
    for (const QByteArray &b : binaries)
        packets.append(IMEngineIOPacket::makeBinary(b));
    write(packets);
}

void IMEngineIOSocket::write(const QList<IMEngineIOPacket> &packets)
{
    if (m_state == State::Closed)
        return;
    if (m_state != State::Open || m_upgrading || !m_transport) {
        m_pending.append(packets);
        return;
    }
    m_transport->send(packets);
}

void IMEngineIOSocket::onTransportFailed(const QString &error)
{
    const QString reason = error.startsWith(QLatin1String("parse error")) ? QStringLiteral("parse error")
        : error.startsWith(QLatin1String("transport close"))              ? QStringLiteral("transport close")
                                                                          : QStringLiteral("transport error");
    fail(reason, error);
}

void IMEngineIOSocket::fail(const QString &reason, const QString &error)
{
    if (m_state == State::Closed)
        return;
    qCDebug(lcSocketIO) << "session ended:" << reason << error;
    // Tear down without the polite goodbye: the session is already broken.
    m_state = State::Closed;
    m_deadTimer.stop();
    m_pingTimer.stop();
    m_probeTimer.stop();
    if (m_probe) {
        m_probe->disconnect(this);
        m_probe->abandon();
    }
    if (m_transport) {
        m_transport->disconnect(this);
        m_transport->abandon();
    }
    emit closed(reason, error);
}

void IMEngineIOSocket::onPackets(const QList<IMEngineIOPacket> &packets)
{
    QPointer<IMEngineIOSocket> self(this);
    for (const IMEngineIOPacket &p : packets) {
        if (!self || m_state == State::Closed)
            return;
        if (m_config.maxPayload > 0 && p.dataSize() > m_config.maxPayload) {
            fail(QStringLiteral("parse error"), QStringLiteral("parse error: packet larger than maxPayload"));
            return;
        }
        if (m_state == State::Opening) {
            if (p.type != IMEngineIOPacket::Open || p.isBinary) {
                fail(QStringLiteral("parse error"),
                    QStringLiteral("parse error: the server did not start with an open packet"));
                return;
            }
            handleOpen(p.text);
            continue;
        }
        switch (p.type) {
        case IMEngineIOPacket::Message:
            if (p.isBinary)
                emit binaryMessage(p.binary);
            else
                emit textMessage(p.text);
            break;
        case IMEngineIOPacket::Ping:
            // v4: the server's heartbeat. Only pings prove the server alive, never our own sends.
            resetPingTimeout();
            if (m_transport)
                m_transport->send({IMEngineIOPacket::makeText(IMEngineIOPacket::Pong, p.text)});
            break;
        case IMEngineIOPacket::Pong:
            if (m_config.eio == 3) {
                m_deadTimer.stop();
                m_pingTimer.start(m_pingInterval);
            }
            break;
        case IMEngineIOPacket::Close:
            fail(QStringLiteral("transport close"), QStringLiteral("transport close: the server closed the session"));
            return;
        case IMEngineIOPacket::Open:
            fail(QStringLiteral("parse error"), QStringLiteral("parse error: unexpected open packet"));
            return;
        case IMEngineIOPacket::Upgrade:
        case IMEngineIOPacket::Noop:
            break;
        }
    }
}

void IMEngineIOSocket::handleOpen(const QString &json)
{
    QJsonParseError err;
    const QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8(), &err);
    const QJsonObject o = doc.object();
    m_sid = o.value(QStringLiteral("sid")).toString();
    if (err.error != QJsonParseError::NoError || m_sid.isEmpty()) {
        fail(QStringLiteral("parse error"), QStringLiteral("parse error: bad handshake"));
        return;
    }
    m_pingInterval = qMax(1, o.value(QStringLiteral("pingInterval")).toInt(25000));
    m_pingTimeout = qMax(1, o.value(QStringLiteral("pingTimeout")).toInt(20000));
    m_transport->setSid(m_sid);
    m_state = State::Open;
    qCDebug(lcSocketIO) << "open" << m_sid << m_transport->name();
    if (m_config.eio == 3)
        m_pingTimer.start(m_pingInterval);
    else
        resetPingTimeout();
    QPointer<IMEngineIOSocket> self(this);
    emit opened();
    if (!self || m_state != State::Open)
        return;
    if (!m_pending.isEmpty()) {
        const auto pending = std::move(m_pending);
        m_pending.clear();
        m_transport->send(pending);
    }
    const QJsonArray upgrades = o.value(QStringLiteral("upgrades")).toArray();
    if (m_transport->name() == QLatin1String("polling") && !m_config.forcePolling
        && upgrades.contains(QStringLiteral("websocket")))
        startProbe();
}

void IMEngineIOSocket::resetPingTimeout()
{
    if (m_config.eio != 3)
        m_deadTimer.start(m_pingInterval + m_pingTimeout);
}

void IMEngineIOSocket::sendPing()
{
    if (m_state != State::Open)
        return;
    write({IMEngineIOPacket::makeText(IMEngineIOPacket::Ping)});
    m_deadTimer.start(m_pingTimeout);
}

void IMEngineIOSocket::startProbe()
{
    m_probe = new IMWebSocketTransport(m_config, this);
    connect(m_probe, &IMEngineIOTransport::opened, this,
        [this] { m_probe->send({IMEngineIOPacket::makeText(IMEngineIOPacket::Ping, QStringLiteral("probe"))}); });
    connect(m_probe, &IMEngineIOTransport::packetsReceived, this, &IMEngineIOSocket::onProbePackets);
    connect(m_probe, &IMEngineIOTransport::failed, this, [this](const QString &error) {
        qCDebug(lcSocketIO) << "upgrade failed:" << error;
        dropProbe();
    });
    m_probeTimer.start(m_config.upgradeTimeoutMs);
    m_probe->open(m_sid);
}

void IMEngineIOSocket::dropProbe()
{
    m_probeTimer.stop();
    if (m_probe) {
        m_probe->disconnect(this);
        m_probe->abandon();
        m_probe = nullptr;
    }
    if (m_upgrading) {
        // Polling was paused for the switch: carry on with it.
        m_upgrading = false;
        fail(QStringLiteral("transport error"), QStringLiteral("transport error: upgrade failed"));
    }
}

void IMEngineIOSocket::onProbePackets(const QList<IMEngineIOPacket> &packets)
{
    if (m_upgrading || !m_probe)
        return;
    const IMEngineIOPacket &p = packets.value(0);
    if (packets.size() != 1 || p.type != IMEngineIOPacket::Pong || p.text != QLatin1String("probe")) {
        dropProbe();
        return;
    }
    m_upgrading = true;
    auto *polling = qobject_cast<IMPollingTransport *>(m_transport.data());
    if (!polling) {
        dropProbe();
        return;
    }
    polling->pause([this] { finishUpgrade(); });
}

void IMEngineIOSocket::finishUpgrade()
{
    if (m_state != State::Open || !m_probe) {
        m_upgrading = false;
        return;
    }
    m_probeTimer.stop();
    IMEngineIOTransport *old = m_transport;
    old->disconnect(this);
    old->abandon();
    IMWebSocketTransport *ws = m_probe;
    m_probe = nullptr;
    ws->disconnect(this);
    attach(ws);
    m_upgrading = false;
    qCDebug(lcSocketIO) << "upgraded to websocket" << m_sid;
    ws->send({IMEngineIOPacket::makeText(IMEngineIOPacket::Upgrade)});
    if (!m_pending.isEmpty()) {
        const auto pending = std::move(m_pending);
        m_pending.clear();
        ws->send(pending);
    }
}

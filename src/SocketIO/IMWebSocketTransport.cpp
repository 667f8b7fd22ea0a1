#include "IMWebSocketTransport.h"

#include <QNetworkRequest>
#include <QSslError>
#include <QTimer>
#include <QWebSocket>

IMWebSocketTransport::IMWebSocketTransport(const IMEngineIOConfig &config, QObject *parent)
    : IMEngineIOTransport(config, parent)
{
}

IMWebSocketTransport::~IMWebSocketTransport()
{
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
    }
}

void IMWebSocketTransport::open(const QString &sid)
{
    m_socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    if (m_config.maxPayload > 0) {
        // A hard stop for memory; the engine checks the exact limit per packet.
        const quint64 limit = quint64(m_config.maxPayload) * 2 + 1024;
        m_socket->setMaxAllowedIncomingMessageSize(limit);
        m_socket->setMaxAllowedIncomingFrameSize(limit);
    }
    connect(m_socket, &QWebSocket::connected, this, [this] {
        if (!m_done)
            emit opened();
    });
    connect(m_socket, &QWebSocket::textMessageReceived, this, [this](const QString &text) {
        if (m_done)
            return;
        IMEngineIOPacket p;
        if (!IMEngineIOPacket::decodeText(text, m_config.eio, &p)) {
            emit failed(QStringLiteral("parse error: malformed Engine.IO packet"));
            return;
        }
        emit packetsReceived({p});
    });
    connect(m_socket, &QWebSocket::binaryMessageReceived, this, [this](const QByteArray &frame) {
        if (m_done)
            return;
        IMEngineIOPacket p;
        if (!IMEngineIOPacket::decodeBinaryFrame(frame, m_config.eio, &p)) {
            emit failed(QStringLiteral("parse error: malformed Engine.IO binary frame"));
            return;
        }
        emit packetsReceived({p});
    });
    connect(m_socket, &QWebSocket::disconnected, this, [this] {
        if (m_done)
            return;
        if (m_socket->closeCode() == QWebSocketProtocol::CloseCodeTooMuchData)
            emit failed(QStringLiteral("parse error: message larger than maxPayload"));
        else
            emit failed(QStringLiteral("transport close: WebSocket closed (%1)").arg(int(m_socket->closeCode())));
    });
    connect(m_socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this, [this](QAbstractSocket::SocketError error) {
        if (m_done)
            return;
        // The peer going away is a close, not a fault of the transport.
        const QString kind = error == QAbstractSocket::RemoteHostClosedError ? QStringLiteral("transport close")
                                                                               : QStringLiteral("transport error");
        emit failed(kind + QStringLiteral(": ") + m_socket->errorString());
    });
    connect(m_socket, &QWebSocket::sslErrors, this, [this](const QList<QSslError> &errors) {
        if (m_config.selfSigned)
            m_socket->ignoreSslErrors(errors);
    });
    const QNetworkRequest request = m_config.request(m_config.transportUrl(name(), sid));
    if (request.url().scheme() == QLatin1String("wss"))
        m_socket->setSslConfiguration(request.sslConfiguration());
    m_socket->open(request);
}

void IMWebSocketTransport::send(const QList<IMEngineIOPacket> &packets)
{
    if (!m_socket || m_done)
        return;
    for (const IMEngineIOPacket &p : packets) {
        if (p.isBinary)
            m_socket->sendBinaryMessage(IMEngineIOPacket::encodeBinaryFrame(p.binary, m_config.eio));
        else
            m_socket->sendTextMessage(IMEngineIOPacket::encodeText(p, m_config.eio));
    }
    // Write now rather than on the next turn of the event loop: one wake-up less per request.
    m_socket->flush();
}

void IMWebSocketTransport::close()
{
    if (m_done)
        return;
    m_done = true;
    if (!m_socket || m_socket->state() != QAbstractSocket::ConnectedState) {
        deleteLater();
        return;
    }
    // Let queued frames and the close frame leave before the socket goes away.
    connect(m_socket, &QWebSocket::disconnected, this, &QObject::deleteLater);
    QTimer::singleShot(2000, this, &QObject::deleteLater);
    m_socket->close();
}

void IMWebSocketTransport::abandon()
{
    m_done = true;
    deleteLater();
}

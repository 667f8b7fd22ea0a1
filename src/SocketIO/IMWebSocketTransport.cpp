#include "IMWebSocketTransport.h"

#include "IMWebSocketFrame.h"

#include <QCryptographicHash>
#include <QNetworkRequest>
#include <QPointer>
#include <QRandomGenerator>
#include <QSslConfiguration>
#include <QSslError>
#include <QSslSocket>
#include <QStringEncoder>
#include <QTcpSocket>
#include <QTimer>

namespace {
// Reads from an unbuffered socket go straight to the kernel in pieces of this size.
constexpr qsizetype kReadChunk = 64 * 1024;
// The handshake answer is a few hundred bytes; more means it is not a WebSocket server.
constexpr qsizetype kMaxHandshake = 64 * 1024;

quint32 newMask() { return QRandomGenerator::global()->generate(); }
} // namespace

IMWebSocketTransport::IMWebSocketTransport(const IMEngineIOConfig &config, QObject *parent)
    : IMEngineIOTransport(config, parent)
{
    // A hard stop for memory; the engine checks the exact limit per packet.
    m_limit = m_config.maxPayload > 0 ? quint64(m_config.maxPayload) * 2 + 1024 : quint64(1) << 62;
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
    const QNetworkRequest request = m_config.request(m_config.transportUrl(name(), sid));
    const QUrl url = request.url();
    m_tls = url.scheme() == QLatin1String("wss");
    const quint16 port = quint16(url.port(m_tls ? 443 : 80));

    quint32 key[4];
    QRandomGenerator::global()->fillRange(key);
    const QByteArray key64 = QByteArray(reinterpret_cast<const char *>(key), sizeof key).toBase64();
    m_accept
        = QCryptographicHash::hash(key64 + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11", QCryptographicHash::Sha1).toBase64();
    QByteArray host = url.host(QUrl::FullyEncoded).toUtf8();
    if (host.contains(':'))
        host = '[' + host + ']';
    if (url.port() > 0)
        host += ':' + QByteArray::number(url.port());
    m_request = "GET " + url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment)
        + " HTTP/1.1\r\nHost: " + host
        + "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: " + key64
        + "\r\n";
    const QList<QByteArray> names = request.rawHeaderList();
    for (const QByteArray &headerName : names) {
        const QByteArray lower = headerName.toLower();
        // The polling body's type, and what the handshake itself must say, are not passed on.
        if (lower == "content-type" || lower == "host" || lower == "upgrade" || lower == "connection"
            || lower.startsWith("sec-websocket-"))
            continue;
        m_request += headerName + ": " + request.rawHeader(headerName) + "\r\n";
    }
    m_request += "\r\n";

    if (m_tls) {
        auto *ssl = new QSslSocket(this);
        ssl->setSslConfiguration(request.sslConfiguration());
        connect(ssl, &QSslSocket::encrypted, this, &IMWebSocketTransport::onConnected);
        connect(ssl, &QSslSocket::sslErrors, this, [this, ssl](const QList<QSslError> &errors) {
            if (m_config.selfSigned)
                ssl->ignoreSslErrors(errors);
        });
        m_socket = ssl;
    } else {
        m_socket = new QTcpSocket(this);
        connect(m_socket, &QTcpSocket::connected, this, &IMWebSocketTransport::onConnected);
    }
    connect(m_socket, &QTcpSocket::readyRead, this, &IMWebSocketTransport::onReadyRead);
    connect(m_socket, &QTcpSocket::disconnected, this, &IMWebSocketTransport::onDisconnected);
    connect(m_socket, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        // The peer going away is a close, not a fault of the transport.
        const QString kind = error == QAbstractSocket::RemoteHostClosedError ? QStringLiteral("transport close")
                                                                             : QStringLiteral("transport error");
        fail(kind + QStringLiteral(": ") + m_socket->errorString());
    });
    if (m_tls) {
        static_cast<QSslSocket *>(m_socket)->connectToHostEncrypted(url.host(), port);
    } else {
        // Unbuffered: a write goes to the kernel at once (Qt buffers only what the kernel does
        // not take), and a read takes what the kernel holds, with no copy in between.
        m_socket->connectToHost(url.host(), port, QIODevice::ReadWrite | QIODevice::Unbuffered);
    }
}

void IMWebSocketTransport::onConnected()
{
    if (m_done && !m_closing)
        return;
    // Requests are small and answered at once: waiting to fill segments only adds latency.
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_socket->write(m_request);
    if (m_tls)
        m_socket->flush();
    m_request.clear();
}

void IMWebSocketTransport::onDisconnected()
{
    if (m_closing) {
        deleteLater();
        return;
    }
    fail(QStringLiteral("transport close: the server closed the connection"));
}

void IMWebSocketTransport::fail(const QString &error)
{
    if (m_done)
        return;
    m_done = true;
    emit failed(error);
}

void IMWebSocketTransport::onReadyRead()
{
    if (m_done && !m_closing)
        return;
    QPointer<IMWebSocketTransport> self(this);
    ++m_handling;
    if (readAvailable() && (m_upgraded || readHandshake()))
        readFrames();
    if (!self)
        return;
    --m_handling;
    flush();
}

bool IMWebSocketTransport::readAvailable()
{
    if (m_inPos > 0) {
        m_in.remove(0, m_inPos);
        m_inPos = 0;
    }
    if (m_tls) {
        // TLS sockets decrypt into their own buffer: take all of it.
        const qint64 available = m_socket->bytesAvailable();
        const qsizetype old = m_in.size();
        m_in.resize(old + available);
        const qint64 n = m_socket->read(m_in.data() + old, available);
        m_in.resize(old + qMax<qint64>(n, 0));
        return n >= 0;
    }
    for (;;) {
        const qsizetype old = m_in.size();
        m_in.resize(old + kReadChunk);
        const qint64 n = m_socket->read(m_in.data() + old, kReadChunk);
        m_in.resize(old + qMax<qint64>(n, 0));
        if (n < 0) {
            // An unbuffered socket reports the end of the connection (or a failed read) only
            // through this result, without signals.
            if (m_closing) {
                m_closing = false;
                deleteLater();
            } else {
                const bool closed = m_socket->error() == QAbstractSocket::RemoteHostClosedError;
                fail((closed ? QStringLiteral("transport close: ") : QStringLiteral("transport error: "))
                    + m_socket->errorString());
            }
            return false;
        }
        // Less than asked: the kernel had no more (a new notification comes with more).
        if (n < kReadChunk)
            return true;
    }
}

bool IMWebSocketTransport::readHandshake()
{
    const qsizetype end = m_in.indexOf("\r\n\r\n");
    if (end < 0) {
        if (m_in.size() > kMaxHandshake)
            fail(QStringLiteral("transport error: WebSocket handshake answer too long"));
        return false;
    }
    const QByteArrayView head(m_in.constData(), end);
    const qsizetype lineEnd = head.indexOf("\r\n");
    const QByteArrayView status = lineEnd < 0 ? head : head.first(lineEnd);
    if (!status.startsWith("HTTP/1.1 101")) {
        fail(QStringLiteral("transport error: WebSocket handshake refused: %1")
                 .arg(QString::fromLatin1(status.data(), status.size())));
        return false;
    }
    QByteArray accept;
    qsizetype pos = lineEnd;
    while (pos >= 0 && pos < head.size()) {
        const qsizetype next = head.indexOf("\r\n", pos + 2);
        const QByteArrayView line = head.sliced(pos + 2, (next < 0 ? head.size() : next) - pos - 2);
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.first(colon).trimmed().compare("sec-websocket-accept", Qt::CaseInsensitive) == 0)
            accept = line.sliced(colon + 1).trimmed().toByteArray();
        pos = next;
    }
    if (accept != m_accept) {
        fail(QStringLiteral("transport error: WebSocket handshake answer without the right accept key"));
        return false;
    }
    m_inPos = end + 4;
    m_upgraded = true;
    QPointer<IMWebSocketTransport> self(this);
    emit opened();
    return self && !m_done;
}

void IMWebSocketTransport::readFrames()
{
    while (!m_done || m_closing) {
        const char *data = m_in.constData() + m_inPos;
        const qsizetype size = m_in.size() - m_inPos;
        IMWebSocketFrame::Header h;
        const int read = IMWebSocketFrame::readHeader(data, size, &h);
        if (read < 0 || h.masked) {
            fail(QStringLiteral("parse error: malformed WebSocket frame"));
            return;
        }
        if (read > 0 && h.length + quint64(m_message.size()) > m_limit) {
            fail(QStringLiteral("parse error: message larger than maxPayload"));
            return;
        }
        if (read == 0 || quint64(size - h.size) < h.length)
            return;
        m_inPos += h.size + qsizetype(h.length);
        if (!handleFrame(h.opcode, h.fin, data + h.size, qsizetype(h.length)))
            return;
    }
}

bool IMWebSocketTransport::handleFrame(int opcode, bool fin, const char *payload, qsizetype size)
{
    using F = IMWebSocketFrame;
    switch (opcode) {
    case F::Ping:
        queueFrame(F::Pong, payload, size);
        return true;
    case F::Pong:
        return true;
    case F::Close: {
        const int code = size >= 2 ? (uchar(payload[0]) << 8) | uchar(payload[1]) : 1005;
        if (m_closing) {
            // The server answered our close: the conversation is over.
            m_done = true;
            m_closing = false;
            m_socket->disconnectFromHost();
            deleteLater();
            return false;
        }
        queueFrame(F::Close, payload, qMin<qsizetype>(size, 2));
        flush();
        fail(code == 1009 ? QStringLiteral("parse error: message larger than maxPayload")
                          : QStringLiteral("transport close: WebSocket closed (%1)").arg(code));
        return false;
    }
    case F::Continuation:
        if (m_messageOpcode < 0) {
            fail(QStringLiteral("parse error: malformed WebSocket frame"));
            return false;
        }
        m_message.append(payload, size);
        if (fin) {
            const QByteArray message = std::move(m_message);
            m_message = QByteArray();
            const int messageOpcode = m_messageOpcode;
            m_messageOpcode = -1;
            deliver(messageOpcode, message.constData(), message.size());
        }
        return !m_done;
    default: // Text, Binary
        if (m_messageOpcode >= 0) {
            fail(QStringLiteral("parse error: malformed WebSocket frame"));
            return false;
        }
        if (!fin) {
            m_messageOpcode = opcode;
            m_message = QByteArray(payload, size);
            return true;
        }
        deliver(opcode, payload, size);
        return !m_done;
    }
}

void IMWebSocketTransport::deliver(int opcode, const char *data, qsizetype size)
{
    if (m_closing)
        return; // what comes after our close is not wanted any more
    IMEngineIOPacket p;
    if (opcode == IMWebSocketFrame::Text) {
        if (!IMEngineIOPacket::decodeText(QString::fromUtf8(data, size), m_config.eio, &p)) {
            fail(QStringLiteral("parse error: malformed Engine.IO packet"));
            return;
        }
    } else if (!IMEngineIOPacket::decodeBinaryFrame(QByteArray(data, size), m_config.eio, &p)) {
        fail(QStringLiteral("parse error: malformed Engine.IO binary frame"));
        return;
    }
    emit packetsReceived({p});
}

void IMWebSocketTransport::send(const QList<IMEngineIOPacket> &packets)
{
    if (!m_socket || m_done)
        return;
    for (const IMEngineIOPacket &p : packets) {
        if (p.isBinary) {
            const QByteArray frame = IMEngineIOPacket::encodeBinaryFrame(p.binary, m_config.eio);
            queueFrame(IMWebSocketFrame::Binary, frame.constData(), frame.size());
            continue;
        }
        // "<type><text>" in UTF-8, written straight into the reused buffer.
        QStringEncoder utf8(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
        m_scratch.resize(1 + utf8.requiredSpace(p.text.size()));
        m_scratch[0] = char('0' + int(p.type));
        char *end = utf8.appendToBuffer(m_scratch.data() + 1, p.text);
        queueFrame(IMWebSocketFrame::Text, m_scratch.constData(), end - m_scratch.constData());
    }
    if (!m_handling)
        flush();
}

void IMWebSocketTransport::queueFrame(int opcode, const char *payload, qsizetype size)
{
    IMWebSocketFrame::appendMasked(&m_out, IMWebSocketFrame::Opcode(opcode), payload, size, newMask());
}

void IMWebSocketTransport::flush()
{
    // Before the handshake is answered, frames wait.
    if (m_out.isEmpty() || !m_upgraded || !m_socket || m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    m_socket->write(m_out);
    if (m_tls)
        m_socket->flush();
    // Keeps the capacity for the next frames.
    m_out.resize(0);
}

void IMWebSocketTransport::close()
{
    if (m_done)
        return;
    m_done = true;
    if (!m_socket || !m_upgraded || m_socket->state() != QAbstractSocket::ConnectedState) {
        deleteLater();
        return;
    }
    // What was sent before, then the close frame; the socket closes once the server answers
    // (closing first could reset the connection before the server has read our last frames).
    m_closing = true;
    const char normal[2] = {char(1000 >> 8), char(1000 & 0xff)};
    queueFrame(IMWebSocketFrame::Close, normal, 2);
    flush();
    QTimer::singleShot(2000, this, &QObject::deleteLater);
}

void IMWebSocketTransport::abandon()
{
    // Frames already sent still leave, as they would have had they been written at once.
    if (!m_done)
        flush();
    m_done = true;
    m_closing = false;
    deleteLater();
}

#pragma once

#include "IMEngineIOTransport.h"

#include <QByteArray>

class QTcpSocket;

//! Engine.IO over one WebSocket: one packet per frame. The WebSocket client is our own, on a
//! TCP socket (TLS for wss), so that a request costs as few system calls as possible: incoming
//! data is read in one go and every frame in it handled; frames sent while those are handled
//! (answers, the next requests) leave together in one write once the batch is done; frames sent
//! at other times leave at once.
class IMWebSocketTransport : public IMEngineIOTransport {
    Q_OBJECT
public:
    IMWebSocketTransport(const IMEngineIOConfig &config, QObject *parent);
    ~IMWebSocketTransport() override;

    QString name() const override { return QStringLiteral("websocket"); }
    void open(const QString &sid) override;
    void setSid(const QString &) override {}
    void send(const QList<IMEngineIOPacket> &packets) override;
    void close() override;
    void abandon() override;

private:
    void onConnected();
    void onReadyRead();
    void onDisconnected();
    bool readAvailable();
    bool readHandshake();
    void readFrames();
    bool handleFrame(int opcode, bool fin, const char *payload, qsizetype size);
    void deliver(int opcode, const char *data, qsizetype size);
    void queueFrame(int opcode, const char *payload, qsizetype size);
    void flush();
    void fail(const QString &error);

    QTcpSocket *m_socket = nullptr;
    bool m_tls = false;
    //! The handshake request (kept until the connection is up) and its expected accept value.
    QByteArray m_request;
    QByteArray m_accept;
    bool m_upgraded = false;
    //! close() was called: the close frame is out, the server's answer is awaited.
    bool m_closing = false;
    bool m_done = false;
    //! Above zero while received frames are being handled: sends wait in m_out until the end.
    int m_handling = 0;
    //! Received bytes; m_inPos is where the unread part starts.
    QByteArray m_in;
    qsizetype m_inPos = 0;
    //! Frames not yet written.
    QByteArray m_out;
    //! A fragmented message being put together, and its opcode.
    QByteArray m_message;
    int m_messageOpcode = -1;
    //! The UTF-8 text of a packet being framed (reused, so sending allocates nothing).
    QByteArray m_scratch;
    //! The largest message accepted: a hard stop for memory; the engine checks the exact limit.
    quint64 m_limit = 0;
};

#pragma once

#include "IMEngineIOConfig.h"
#include "IMEngineIOPacket.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

class IMEngineIOTransport;
class IMPollingTransport;
class IMWebSocketTransport;

//! One Engine.IO session: handshake, heartbeat, the upgrade from polling to WebSocket, and
//! messages in both directions. A session is used once; reconnecting makes a new one.
//! Lives on one thread; its signals are emitted there.
class IMEngineIOSocket : public QObject {
    Q_OBJECT
public:
    enum class State { Idle, Opening, Open, Closed };

    IMEngineIOSocket(const IMEngineIOConfig &config, QObject *parent = nullptr);
    ~IMEngineIOSocket() override;

    //! Starts the handshake.
    void open();
    //! Closes the session politely; emits nothing more.
    void close();
    //! Sends one text message (queued until open and during the upgrade).
    void sendText(const QString &text);
    //! Sends one text message followed by binary messages, in order.
    void sendMessages(const QString &text, const QList<QByteArray> &binaries);

    State state() const { return m_state; }
    QString sid() const { return m_sid; }
    //! The transport in use ("polling" or "websocket"), empty before the handshake.
    QString transportName() const;

signals:
    //! The handshake completed.
    void opened();
    //! A text message arrived.
    void textMessage(const QString &text);
    //! A binary message arrived.
    void binaryMessage(const QByteArray &bytes);
    //! The session ended without `close` being called: `reason` is "transport close",
    //! "transport error", "ping timeout" or "parse error"; `error` explains. Emitted once.
    void closed(const QString &reason, const QString &error);

private:
    void onPackets(const QList<IMEngineIOPacket> &packets);
    void onTransportFailed(const QString &error);
    void handleOpen(const QString &json);
    void write(const QList<IMEngineIOPacket> &packets);
    void startProbe();
    void onProbePackets(const QList<IMEngineIOPacket> &packets);
    void dropProbe();
    void finishUpgrade();
    void resetPingTimeout();
    void sendPing();
    void fail(const QString &reason, const QString &error);
    void attach(IMEngineIOTransport *transport);

    IMEngineIOConfig m_config;
    State m_state = State::Idle;
    QString m_sid;
    int m_pingInterval = 25000;
    int m_pingTimeout = 20000;
    QPointer<IMEngineIOTransport> m_transport;
    QPointer<IMWebSocketTransport> m_probe;
    bool m_upgrading = false;
    QList<IMEngineIOPacket> m_pending;
    //! v4: fires when no ping came in time. v3: fires when no pong came in time.
    QTimer m_deadTimer;
    //! v3 only: the client's ping clock.
    QTimer m_pingTimer;
    QTimer m_probeTimer;
};

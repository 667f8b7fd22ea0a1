#pragma once

#include "IMEngineIOConfig.h"
#include "IMSocketIOAckTable.h"
#include "IMSocketIOBackoff.h"
#include "IMSocketIOClient.h"
#include "IMSocketIOPacket.h"

#include <QPointer>
#include <QTimer>
#include <atomic>
#include <memory>
#include <optional>
#include <vector>

class IMEngineIOSocket;
class QNetworkAccessManager;

//! What calls from other threads and late acknowledgement emitters hold: the client while it
//! lives. Read and written on the client's thread only.
struct IMSocketIOAnchor {
    IMSocketIOClient *client = nullptr;
};

struct IMSocketIOClient::Private {
    explicit Private(IMSocketIOClient *q)
        : q(q)
    {
    }

    IMSocketIOClient *q;
    QUrl url;
    QVariantMap options;
    IMEngineIOConfig config;
    QString nsp = QStringLiteral("/");
    QVariantMap auth;
    //! Socket.IO protocol revision: 5 (socket.io 3/4) or 4 (socket.io 1/2).
    int sioVersion = 5;
    bool reconnects = true;
    int reconnectAttempts = -1;
    int openTimeoutMs = 20000;
    IMSocketIOBackoff backoff;

    std::atomic<int> status {int(Status::NotConnected)};
    QNetworkAccessManager *nam = nullptr;
    QPointer<IMEngineIOSocket> engine;
    bool joined = false;
    //! Tries made since the connection was lost (0 when not reconnecting).
    int attempt = 0;
    QTimer reconnectTimer;
    QTimer openTimer;
    std::unique_ptr<IMSocketIOAckTable> acks;
    qint64 nextAckId = 0;
    //! Counts engine sessions, so an acknowledgement for an old session is never sent on a new one.
    quint64 session = 0;
    std::optional<IMSocketIOPacket> partial;
    std::shared_ptr<IMSocketIOAnchor> anchor = std::make_shared<IMSocketIOAnchor>();

    struct HandlerEntry {
        HandlerId id;
        QString event;
        Handler handler;
    };
    struct AnyEntry {
        HandlerId id;
        AnyHandler handler;
    };
    std::vector<HandlerEntry> handlers;
    std::vector<AnyEntry> anyHandlers;
    HandlerId nextHandlerId = 1;

    void setStatus(Status s) { status.store(int(s)); }
    Status currentStatus() const { return Status(status.load()); }

    void readOptions();
    void openEngine();
    void dropEngine(bool sayGoodbye);
    void onEngineOpened();
    void onEngineClosed(const QString &reason, const QString &error);
    void onText(const QString &text);
    void onBinary(const QByteArray &bytes);
    void handlePacket(IMSocketIOPacket &packet);
    void handleConnect(const IMSocketIOPacket &packet);
    void handleEvent(const IMSocketIOPacket &packet);
    void handleAck(const IMSocketIOPacket &packet);
    void protocolError(const QString &error);
    void connectionLost(const QString &reason, const QString &error);
    void scheduleReconnect();
    void startAttempt();
    void send(const IMSocketIOPacket &packet);
    void sendEvent(const QString &event, const QVariantList &items, qint64 ackId);
    void emitWithAckNow(const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback);
    AckEmitter makeAckEmitter(qint64 id);
    void fire(const QString &event, const QVariantList &items, const AckEmitter &ack = AckEmitter());
};

#pragma once

#include "IMSocket.h"

#include <QObject>
#include <QUrl>
#include <QVariantMap>
#include <memory>

//! A Socket.IO client over Engine.IO (WebSocket and HTTP long-polling), on Qt's networking.
//! It lives on the main thread; its handlers and acknowledgement callbacks run there.
//!
//! Options (all optional):
//!  - "version" (int): 3 (default) speaks Engine.IO 4 / Socket.IO 5 to socket.io 3 and 4 servers;
//!    2 speaks Engine.IO 3 / Socket.IO 4 to socket.io 1 and 2 servers.
//!  - "forceWebsockets" (bool): WebSocket only. "forcePolling" (bool): long-polling only. Neither:
//!    polling first, then the upgrade to WebSocket.
//!  - "path" (text, default "/socket.io/"); "nsp" (text, default "/"); "auth" (map, sent with
//!    CONNECT); "connectParams" (map, added to the query); "extraHeaders" (map of text);
//!    "cookies" (list of "name=value" texts sent with every request).
//!  - "reconnects" (bool, default true); "reconnectAttempts" (int, default -1 = unlimited);
//!    "reconnectWait" (seconds, default 1); "reconnectWaitMax" (seconds, default 5);
//!    "randomizationFactor" (default 0.5). Delays grow as wait * 2^attempt, with jitter, capped.
//!  - "openTimeout" (seconds, default 20): time allowed to open the connection.
//!  - "selfSigned" (bool, default false): accept a TLS certificate that does not verify.
//!  - "maxPayload" (bytes, default 100,000,000): larger incoming packets are a protocol error.
//!  - "log" (bool): log the protocol traffic to the "parlo.socketio" category.
//!
//! Details of the life events: "reconnectAttempt" counts the try about to start among the
//! remaining ones (3, 2, 1 with three attempts); a failed try reports "error" with its cause.
//! A CONNECT_ERROR from the server (authentication refused) reports "error" with the server's
//! message and does not retry. Bad input from the network is reported as "error"; when the
//! protocol cannot go on (malformed packet, oversized payload) the connection is dropped with
//! "disconnect" ["parse error"] and retried.
//!
//! Acknowledgements: emits while not connected are not sent (not buffered); their callbacks get
//! ["NO ACK"] at their time-out. One without time-out (0) also gets ["NO ACK"] when the
//! connection drops, since its answer can no longer come.
//!
//! Handlers may call any member, but must not delete the client synchronously (use deleteLater).
class IMSocketIOClient : public QObject, public IMSocket {
    Q_OBJECT
public:
    //! A client for `url` (http, https, ws or wss) with `options`; it does not connect yet.
    explicit IMSocketIOClient(const QUrl &url, const QVariantMap &options = {}, QObject *parent = nullptr);
    //! Closes the connection; pending acknowledgements get ["NO ACK"] before it returns.
    ~IMSocketIOClient() override;

    Status status() const override;
    void connect() override;
    void disconnect() override;
    void reconnect() override;
    HandlerId on(const QString &event, Handler handler) override;
    HandlerId onAny(AnyHandler handler) override;
    void off(HandlerId id) override;
    void emitEvent(const QString &event, const QVariantList &items) override;
    void emitWithAck(
        const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback) override;

    //! The server URL given at creation.
    QUrl url() const;
    //! The options given at creation.
    QVariantMap options() const;
    //! The Engine.IO session id of the open connection (empty when none).
    QString sid() const;
    //! The transport in use: "websocket", "polling" or "" when not connected.
    QString transport() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

#pragma once

#include <QString>
#include <QVariantList>
#include <functional>

//! What the chat core needs of a realtime connection: the Socket.IO client implements it, and
//! tests may script their own. All handlers and callbacks run on the main thread.
//!
//! Life events delivered to handlers (name: arguments):
//!  - "connect": [namespace]; the namespace is joined and events flow.
//!  - "disconnect": [reason] ("io server disconnect", "io client disconnect", "transport close",
//!    "transport error", "ping timeout", "parse error").
//!  - "error": [error text]; a connection or protocol error.
//!  - "reconnectAttempt": [remaining attempts, -1 when unlimited]; a reconnection try is due.
//!  - "reconnecting": [attempt number, from 1]; the try starts now.
//!  - "reconnect": [attempt number]; a reconnection succeeded ("connect" follows).
//!  - "reconnectfailed": []; reconnection gave up after its attempts.
//! After the server goes away: "disconnect", then per try "reconnectAttempt", "reconnecting" (and
//! "error" when the try fails), then "reconnect" and "connect", or "reconnectfailed".
class IMSocket {
public:
    //! The connection's state.
    enum class Status { NotConnected, Disconnected, Connecting, Connected };
    //! Receives the acknowledgement's items, or ["NO ACK"] when none came in time.
    using AckCallback = std::function<void(const QVariantList &items)>;
    //! Answers an event the server sent with an acknowledgement request; a no-op when none was
    //! requested, and only the first call sends.
    using AckEmitter = std::function<void(const QVariantList &items)>;
    //! Handles one event: its items (bytes arrive as QByteArray) and the way to acknowledge it.
    using Handler = std::function<void(const QVariantList &items, const AckEmitter &ack)>;
    //! Sees every event, life events included, after its own handlers.
    using AnyHandler = std::function<void(const QString &event, const QVariantList &items)>;
    //! Identifies a handler, for removal; 0 is never used.
    using HandlerId = quint64;

    virtual ~IMSocket() = default;

    //! The current status; safe to read from any thread.
    virtual Status status() const = 0;
    //! Opens the connection (no-op while connecting or connected).
    virtual void connect() = 0;
    //! Closes the connection without reconnecting; pending acknowledgements get ["NO ACK"] at once.
    virtual void disconnect() = 0;
    //! Drops the connection and connects anew with a new session.
    virtual void reconnect() = 0;
    //! Adds a handler for `event`; handlers of one event run in the order added.
    virtual HandlerId on(const QString &event, Handler handler) = 0;
    //! Adds a handler for every event.
    virtual HandlerId onAny(AnyHandler handler) = 0;
    //! Removes a handler added by `on` or `onAny`.
    virtual void off(HandlerId id) = 0;
    //! Sends `event` with `items` (bytes as QByteArray travel as binary attachments). Safe from any
    //! thread. While not connected the event is dropped, not buffered.
    virtual void emitEvent(const QString &event, const QVariantList &items) = 0;
    //! Sends `event` asking for an acknowledgement. `callback` runs exactly once on the main
    //! thread: with the answer, with ["NO ACK"] after `timeoutSeconds` (0 waits for ever), or with
    //! ["NO ACK"] at once when the client is destroyed or disconnected by `disconnect`. While not
    //! connected nothing is sent and the callback gets ["NO ACK"] at the time-out. Safe from any thread.
    virtual void emitWithAck(
        const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback)
        = 0;
};

#pragma once

#include "IMSocket.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QTimer>
#include <atomic>
#include <map>
#include <memory>

//! A realtime connection driven by the test: it records what is emitted, lets the test answer
//! acknowledgements and push events, and times acknowledgements out with real timers, as the
//! real client does.
class ScriptedSocket : public QObject, public IMSocket {
public:
    struct Emit {
        QString event;
        QVariantList items;
        double timeoutSeconds;
        qint64 atMs; //!< milliseconds since the socket was made
        quint64 ackId; //!< 0 when no acknowledgement was asked for
    };

    ScriptedSocket();
    ~ScriptedSocket() override;

    Status status() const override { return m_status.load(); }
    void connect() override;
    void disconnect() override;
    void reconnect() override;
    HandlerId on(const QString &event, Handler handler) override;
    HandlerId onAny(AnyHandler handler) override;
    void off(HandlerId id) override;
    void emitEvent(const QString &event, const QVariantList &items) override;
    void emitWithAck(
        const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback) override;

    //! Sets the status without any life event.
    void setStatus(Status status) { m_status = status; }
    //! Delivers `event` to the handlers, as if the server had pushed it.
    void push(const QString &event, const QVariantList &items);
    //! Answers the acknowledgement of emit `ackId` (no-op when it already ended).
    void answer(quint64 ackId, const QVariantList &items);
    //! Answers every pending acknowledgement with `items`.
    void answerAll(const QVariantList &items);
    //! What was emitted so far.
    QList<Emit> emits() const { return m_emits; }
    //! The number of acknowledgements still pending.
    int pendingAcks() const { return int(m_pending.size()); }
    //! When true, acknowledgements are answered at once by `autoAnswer`.
    std::function<QVariantList(const QString &event, const QVariantList &items)> autoAnswer;
    //! How many times connect() was called.
    int connectCalls = 0;
    //! Acknowledgement time-outs run for this share of the asked time: a test can see whole-second
    //! time-outs and their retries without waiting seconds.
    double timeScale = 1.0;

private:
    struct Pending {
        AckCallback callback;
        QTimer *timer;
    };
    void finish(quint64 ackId, const QVariantList &items);

    std::atomic<Status> m_status {Status::NotConnected};
    QList<QPair<HandlerId, QPair<QString, Handler>>> m_handlers;
    QList<QPair<HandlerId, AnyHandler>> m_anyHandlers;
    std::map<quint64, Pending> m_pending;
    QList<Emit> m_emits;
    HandlerId m_nextHandler = 1;
    quint64 m_nextAck = 1;
    qint64 m_born;
    //! This socket while it lives: emits from other threads reach it through the kit's main queue
    //! (a hand-over ThreadSanitizer sees) and are dropped once it has gone.
    std::shared_ptr<ScriptedSocket *> m_anchor = std::make_shared<ScriptedSocket *>(this);
};

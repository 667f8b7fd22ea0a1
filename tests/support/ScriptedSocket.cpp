#include "ScriptedSocket.h"

#include "IMDispatch.h"

#include <QDateTime>
#include <QThread>

ScriptedSocket::ScriptedSocket()
    : m_born(QDateTime::currentMSecsSinceEpoch())
{
}

ScriptedSocket::~ScriptedSocket()
{
    // Like the real client: whatever is pending ends now with "NO ACK".
    while (!m_pending.empty())
        finish(m_pending.begin()->first, {QStringLiteral("NO ACK")});
}

void ScriptedSocket::connect() { ++connectCalls; }

void ScriptedSocket::disconnect() { m_status = Status::Disconnected; }

void ScriptedSocket::reconnect() { ++connectCalls; }

IMSocket::HandlerId ScriptedSocket::on(const QString &event, Handler handler)
{
    const HandlerId id = m_nextHandler++;
    m_handlers.append({id, {event, std::move(handler)}});
    return id;
}

IMSocket::HandlerId ScriptedSocket::onAny(AnyHandler handler)
{
    const HandlerId id = m_nextHandler++;
    m_anyHandlers.append({id, std::move(handler)});
    return id;
}

void ScriptedSocket::off(HandlerId id)
{
    m_handlers.removeIf([id](const auto &h) { return h.first == id; });
    m_anyHandlers.removeIf([id](const auto &h) { return h.first == id; });
}

void ScriptedSocket::emitEvent(const QString &event, const QVariantList &items)
{
    m_emits.append({event, items, 0, QDateTime::currentMSecsSinceEpoch() - m_born, 0});
}

void ScriptedSocket::emitWithAck(
    const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback)
{
    // Safe from any thread, as the real client: the emit is handed to the socket's thread.
    if (QThread::currentThread() != thread()) {
        IMDispatchMainAsync(
            [anchor = std::weak_ptr<ScriptedSocket *>(m_anchor), event, items, timeoutSeconds, callback] {
                if (const auto socket = anchor.lock())
                    (*socket)->emitWithAck(event, items, timeoutSeconds, callback);
            });
        return;
    }
    const quint64 id = m_nextAck++;
    if (m_status != Status::Connected) {
        // Nothing is sent; the acknowledgement times out.
        QTimer::singleShot(
            int(timeoutSeconds * timeScale * 1000), this, [callback] { callback({QStringLiteral("NO ACK")}); });
        return;
    }
    m_emits.append({event, items, timeoutSeconds, QDateTime::currentMSecsSinceEpoch() - m_born, id});
    auto *timer = new QTimer(this);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, this, [this, id] { finish(id, {QStringLiteral("NO ACK")}); });
    m_pending[id] = Pending {std::move(callback), timer};
    if (timeoutSeconds > 0)
        timer->start(int(timeoutSeconds * timeScale * 1000));
    if (autoAnswer) {
        const QVariantList answerItems = autoAnswer(event, items);
        QTimer::singleShot(0, this, [this, id, answerItems] { answer(id, answerItems); });
    }
}

void ScriptedSocket::push(const QString &event, const QVariantList &items)
{
    const auto handlers = m_handlers;
    for (const auto &h : handlers) {
        if (h.second.first == event)
            h.second.second(items, [](const QVariantList &) {});
    }
    const auto any = m_anyHandlers;
    for (const auto &h : any)
        h.second(event, items);
}

void ScriptedSocket::answer(quint64 ackId, const QVariantList &items) { finish(ackId, items); }

void ScriptedSocket::answerAll(const QVariantList &items)
{
    while (!m_pending.empty())
        finish(m_pending.begin()->first, items);
}

void ScriptedSocket::finish(quint64 ackId, const QVariantList &items)
{
    auto it = m_pending.find(ackId);
    if (it == m_pending.end())
        return;
    Pending pending = std::move(it->second);
    m_pending.erase(it);
    delete pending.timer;
    pending.callback(items);
}

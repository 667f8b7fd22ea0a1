#include "ParloMessageRequests.h"

#include "IMDispatch.h"
#include "IMPlatform.h"
#include "ParloAnnouncer.h"
#include "ParloLogger.h"
#include "ParloRoomList.h"
#include "ParloTransport.h"

#include <mutex>

//! Lets a block queued on the global queue reach the transport only while it lives: the owner's
//! end takes the lock and clears `transport`.
struct ParloReadReportGate {
    std::mutex mutex;
    ParloTransport *transport = nullptr;
};

namespace {
QString roomID(const IMRoomPtr &room) { return room ? room->objectID() : QString(); }
} // namespace

ParloMessageRequests::ParloMessageRequests(
    Parlo *facade, ParloTransport &transport, ParloRoomList &rooms, ParloAnnouncer &announcer, ParloLogger &logger)
    : m_facade(facade)
    , m_transport(transport)
    , m_rooms(rooms)
    , m_announcer(announcer)
    , m_logger(logger)
    , m_gate(std::make_shared<ParloReadReportGate>())
{
    m_gate->transport = &transport;
}

ParloMessageRequests::~ParloMessageRequests()
{
    std::lock_guard<std::mutex> lock(m_gate->mutex);
    m_gate->transport = nullptr;
}

QVariantMap ParloMessageRequests::item(const QString &path) const
{
    return QVariantMap {{QStringLiteral("url"), path}, {QStringLiteral("headers"), m_transport.header()}};
}

void ParloMessageRequests::loadPage(
    const IMRoomPtr &room, const QString &path, Parlo::MessagesSuccess success, Parlo::Failure failure)
{
    if (ParloDelegate *delegate = m_announcer.delegate()) {
        if (!delegate->ParloWillStartLoadingMessageWithRoom(room)) {
            // Asked once more, its answer unused, and nothing else happens: hosts rely on the pair.
            if (ParloDelegate *again = m_announcer.delegate())
                again->ParloWillStartLoadingMessageWithRoom(room);
            return;
        }
    }
    QPointer<Parlo> facade(m_facade);
    auto didEnd = [this, facade, room] {
        if (!facade)
            return;
        if (ParloDelegate *delegate = m_announcer.delegate())
            delegate->ParloDidEndLoadingMessageWithRoom(room);
    };
    m_transport.emitWithMethod(
        ParloRequestMethodGet, item(path),
        [success, didEnd](const QVariant &body) {
            if (success)
                success(IMMessage::arrayOfModelsFromDictionaries(body.toList()));
            didEnd();
        },
        [failure, didEnd](const IMError &error) {
            if (failure)
                failure(error);
            didEnd();
        });
}

void ParloMessageRequests::updateMessage(
    const IMMessagePtr &message, Parlo::MessageSuccess success, Parlo::Failure failure)
{
    if (!message || message->objectID().isEmpty()) {
        if (failure)
            failure(IMError::parlo(400, QStringLiteral("objectID is needed")));
        return;
    }
    QVariantMap body = message->toDictionary();
    body.remove(QStringLiteral("id"));
    // No headers: the server runs it as the client that signed in on this connection.
    const QVariantMap envelope {{QStringLiteral("data"), body},
        {QStringLiteral("url"), QStringLiteral("/message/%1").arg(message->objectID())}};
    m_transport.emitWithMethod(
        ParloRequestMethodPut, envelope,
        [success](const QVariant &answer) {
            IMMessagePtr updated = IMMessage::fromDictionary(answer.toMap());
            if (success)
                success(updated ? updated : IMMessage::create());
        },
        std::move(failure));
}

void ParloMessageRequests::updateReadTimeWithRoom(const IMRoomPtr &room, bool echoToRoom)
{
    QVariantMap envelope = item(QStringLiteral("/room/receive/%1").arg(roomID(room)));
    envelope.insert(QStringLiteral("data"), QVariantMap {{QStringLiteral("echo"), echoToRoom ? 1 : 0}});

    // Lowered at once, before the server answers, with no floor: a room count larger than the
    // total leaves it negative.
    const IMBadgePtr badge = m_rooms.badge();
    badge->setTotal(badge->total() - (room ? room->badge() : 0));
    IMPlatform::instance()->setApplicationIconBadgeNumber(badge->total());
    m_rooms.tellBadge();

    QPointer<Parlo> facade(m_facade);
    Parlo::Success success = [this, facade](const QVariant &body) {
        if (!facade)
            return;
        PARLO_LOG(m_logger, "data", QStringLiteral("success  emitWithMethod start"));
        const IMRoomPtr answered = IMRoom::fromDictionary(body.toMap());
        const IMRoomPtr read = answered ? answered : std::make_shared<IMRoom>();
        m_rooms.takeReadReport(read);
        m_announcer.post(ParloAnnouncement::Room, QVariant::fromValue(read));
        m_announcer.post(ParloAnnouncement::Rooms, QVariant::fromValue(m_rooms.chatRooms()));
        PARLO_LOG(m_logger, "data", QStringLiteral("success  emitWithMethod end"));
    };
    // "not connected" is reported on the global queue's thread: log it from the main queue.
    Parlo::Failure failure = [this, facade](const IMError &error) {
        IMDispatchMainAsync([this, facade, error] {
            if (facade)
                PARLO_LOG(m_logger, "data", QStringLiteral("updateReadTimeWithRoom :%1").arg(error.description()));
        });
    };
    IMDispatchQueue::globalQueue()->async([gate = m_gate, envelope, success, failure] {
        std::lock_guard<std::mutex> lock(gate->mutex);
        if (gate->transport)
            gate->transport->emitWithMethod(ParloRequestMethodPut, envelope, success, failure);
    });
}

void ParloMessageRequests::unseenCount(const QString &lastSeenDate, const QString &messageDate, const IMRoomPtr &room,
    Parlo::CountSuccess success, Parlo::Failure failure)
{
    const QString path = QStringLiteral("/messages/unseenCount?room=%1&messageDate=%2&lastSeenDate=%3")
                             .arg(roomID(room), messageDate, lastSeenDate);
    m_transport.emitWithMethod(
        ParloRequestMethodGet, item(path),
        [success](const QVariant &body) {
            if (success)
                success(body.toMap().value(QStringLiteral("count")).toInt());
        },
        std::move(failure));
}

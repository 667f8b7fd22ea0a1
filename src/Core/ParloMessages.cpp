// Messages: history pages, sending with its sending state, updates, read reports and the
// unseen count; and the send / update conveniences of a message record.
#include "Parlo_p.h"

#include "IMClient.h"
#include "IMDispatch.h"
#include "IMMessageSend.h"
#include "IMPlatform.h"

#include <algorithm>
#include <mutex>

//! Lets a block queued on the global queue reach the facade only while the facade's state lives:
//! the state's closer takes the lock and clears `facade`.
struct ParloReadReportGate
{
    std::mutex mutex;
    Parlo *facade = nullptr;
};

namespace {
QVariantMap messageItem(const QString &path, const QVariantMap &headers)
{
    return QVariantMap{{QStringLiteral("url"), path}, {QStringLiteral("headers"), headers}};
}

QString roomID(const IMRoomPtr &room)
{
    return room ? room->objectID() : QString();
}

IMMessagePtr messageFrom(const QVariant &body)
{
    IMMessagePtr message = IMMessage::fromDictionary(body.toMap());
    return message ? message : IMMessage::create();
}
} // namespace

void Parlo::loadMessagePage(const IMRoomPtr &room, const QString &path, MessagesSuccess success, Failure failure)
{
    if (ParloDelegate *delegate = d->delegate) {
        if (!delegate->ParloWillStartLoadingMessageWithRoom(room)) {
            // Asked once more, its answer unused, and nothing else happens: hosts rely on the pair.
            if (ParloDelegate *again = d->delegate)
                again->ParloWillStartLoadingMessageWithRoom(room);
            return;
        }
    }
    QPointer<Parlo> self(this);
    auto didEnd = [self, room] {
        if (self && self->d->delegate)
            self->d->delegate->ParloDidEndLoadingMessageWithRoom(room);
    };
    emitWithMethod(
        0, messageItem(path, header()),
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

void Parlo::messageWithRoom(const IMRoomPtr &room, qint64 offset, int limit, MessagesSuccess success, Failure failure)
{
    loadMessagePage(room,
                    QStringLiteral("/message/?room=%1&offset=%2&limit=%3")
                        .arg(roomID(room), QString::number(offset), QString::number(limit)),
                    std::move(success), std::move(failure));
}

void Parlo::messageWithRoom(const IMRoomPtr &room, const QString &pinDate, int limit, MessagesSuccess success,
                            Failure failure)
{
    loadMessagePage(room,
                    QStringLiteral("/message/?room=%1&pinDate=%2&limit=%3")
                        .arg(roomID(room), pinDate, QString::number(limit)),
                    std::move(success), std::move(failure));
}

void Parlo::sendMessage(const IMMessagePtr &message, MessageSuccess success, Failure failure)
{
    if (!message) {
        if (failure)
            failure(IMError::parlo(400, QStringLiteral("message is needed")));
        return;
    }
    QVariantMap body = message->toDictionary();
    body.remove(QStringLiteral("sendingType"));
    // Identifiers stand for the records; an absent one leaves its key out.
    const QString room = roomID(message->room());
    if (room.isEmpty())
        body.remove(QStringLiteral("room"));
    else
        body.insert(QStringLiteral("room"), room);
    const QString sender = IMClient::currentClient()->clientID();
    if (sender.isEmpty())
        body.remove(QStringLiteral("sender"));
    else
        body.insert(QStringLiteral("sender"), sender);
    QVariantMap item = messageItem(QStringLiteral("/message/"), header());
    item.insert(QStringLiteral("data"), body);

    // It stays listed until its echo arrives, even when the send fails.
    sendingMessages().append(message);
    QPointer<Parlo> self(this);
    emitWithMethod(
        1, item,
        [message, success](const QVariant &answer) {
            // An answer that is no message record leaves the local copy as it is.
            const IMMessagePtr server = answer.typeId() == QMetaType::QVariantMap
                                            ? IMMessage::fromDictionary(answer.toMap())
                                            : nullptr;
            message->copyPropertiesFromMessage(server);
            if (success)
                success(message);
        },
        [self, message, failure](const IMError &error) {
            message->setSendingType(IMMessageSendingTypeFailed);
            if (self)
                self->dropOldestFailedSends();
            if (failure)
                failure(error);
            if (!self)
                return;
            if (ParloDelegate *delegate = self->d->delegate)
                delegate->ParloDidChangeMessageSendingType(message);
            self->postNotificationName(kParloDidChangeMessageSendingType, QVariant::fromValue(message));
        });
}

void Parlo::dropOldestFailedSends()
{
    const int limit = d->failedSendingLimit;
    if (limit < 0 || !d->sendingMessages)
        return;
    QList<IMMessagePtr> &sending = *d->sendingMessages;
    qsizetype failed = std::count_if(sending.cbegin(), sending.cend(),
        [](const IMMessagePtr &m) { return m->sendingType() == IMMessageSendingTypeFailed; });
    // The list is in sending order, so the first failed entries are the oldest.
    for (qsizetype i = 0; failed > limit && i < sending.size();) {
        if (sending[i]->sendingType() == IMMessageSendingTypeFailed) {
            sending.removeAt(i);
            --failed;
        } else {
            ++i;
        }
    }
}

void Parlo::sendMessageInBackground(const IMMessagePtr &message)
{
    sendMessage(message, nullptr, nullptr);
}

void Parlo::updateMessage(const IMMessagePtr &message, MessageSuccess success, Failure failure)
{
    if (!message || message->objectID().isEmpty()) {
        if (failure)
            failure(IMError::parlo(400, QStringLiteral("objectID is needed")));
        return;
    }
    QVariantMap body = message->toDictionary();
    body.remove(QStringLiteral("id"));
    // No headers: the server runs it as the client that signed in on this connection.
    const QVariantMap item{{QStringLiteral("data"), body},
                           {QStringLiteral("url"), QStringLiteral("/message/%1").arg(message->objectID())}};
    emitWithMethod(
        2, item,
        [success](const QVariant &answer) {
            if (success)
                success(messageFrom(answer));
        },
        std::move(failure));
}

void Parlo::updateReadTimeWithRoom(const IMRoomPtr &room, bool echoToRoom)
{
    QVariantMap item = messageItem(QStringLiteral("/room/receive/%1").arg(roomID(room)), header());
    item.insert(QStringLiteral("data"), QVariantMap{{QStringLiteral("echo"), echoToRoom ? 1 : 0}});

    // Lowered at once, before the server answers, with no floor: a room count larger than the
    // total leaves it negative.
    const IMBadgePtr badgeRecord = badge();
    badgeRecord->setTotal(badgeRecord->total() - (room ? room->badge() : 0));
    IMPlatform::instance()->setApplicationIconBadgeNumber(badgeRecord->total());
    announceBadge(badgeRecord);

    if (!d->readReportGate) {
        auto gate = std::make_shared<ParloReadReportGate>();
        gate->facade = this;
        d->readReportGate = gate;
        d->readReportGateCloser = std::shared_ptr<void>(nullptr, [gate](void *) {
            std::lock_guard<std::mutex> lock(gate->mutex);
            gate->facade = nullptr;
        });
    }
    QPointer<Parlo> self(this);
    Success success = [self](const QVariant &body) {
        if (!self)
            return;
        self->PARLO_LOG("data", QStringLiteral("success  emitWithMethod start"));
        const IMRoomPtr answered = IMRoom::fromDictionary(body.toMap());
        const IMRoomPtr read = answered ? answered : std::make_shared<IMRoom>();
        for (const IMRoomPtr &listed : self->chatRooms()) {
            if (listed->objectID() == read->objectID()) {
                listed->setReadTime(read->readTime());
                listed->setBadge(read->badge());
            }
        }
        self->postNotificationName(kParloDidUpdateRoom, QVariant::fromValue(read));
        self->postNotificationName(kParloDidUpdateRooms, QVariant::fromValue(self->chatRooms()));
        self->PARLO_LOG("data", QStringLiteral("success  emitWithMethod end"));
    };
    // "not connected" is reported on the global queue's thread: log it from the main queue.
    Failure failure = [self](const IMError &error) {
        IMDispatchMainAsync([self, error] {
            if (self)
                self->PARLO_LOG("data", QStringLiteral("updateReadTimeWithRoom :%1").arg(error.description()));
        });
    };
    std::shared_ptr<ParloReadReportGate> gate = d->readReportGate;
    IMDispatchQueue::globalQueue()->async([gate, item, success, failure] {
        std::lock_guard<std::mutex> lock(gate->mutex);
        if (gate->facade)
            gate->facade->emitWithMethod(2, item, success, failure);
    });
}

void Parlo::unseenCountAfterLastSeenDate(const QString &lastSeenDate, const QString &messageDate,
                                         const IMRoomPtr &room, CountSuccess success, Failure failure)
{
    const QString path = QStringLiteral("/messages/unseenCount?room=%1&messageDate=%2&lastSeenDate=%3")
                             .arg(roomID(room), messageDate, lastSeenDate);
    emitWithMethod(
        0, messageItem(path, header()),
        [success](const QVariant &body) {
            if (success)
                success(body.toMap().value(QStringLiteral("count")).toInt());
        },
        std::move(failure));
}

void IMMessageSend(const IMMessagePtr &message)
{
    Parlo::shareInstance()->sendMessageInBackground(message);
}

void IMMessageUpdate(const IMMessagePtr &message)
{
    Parlo::shareInstance()->updateMessage(message, nullptr, nullptr);
}

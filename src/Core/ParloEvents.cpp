// The realtime connection: life events become the connection status, pushed events change the
// room list, the badge and the local store, and are announced.
#include "Parlo_p.h"

#include "IMClient.h"
#include "IMDB.h"
#include "IMDate.h"
#include "IMDispatch.h"
#include "IMNotificationCenter.h"
#include "IMSocketIOClient.h"

namespace {
const QString kDidChangeConnectStatus = QStringLiteral("didChangeConnectStatus");

QVariantMap firstMap(const QVariantList &data)
{
    return data.value(0).toMap();
}
} // namespace

void Parlo::connectWithURL(const QString &url, const QVariantMap &options, Block onConnect)
{
    d->onConnectBlock = std::move(onConnect);
    d->selfSigned = options.value(QStringLiteral("selfSigned")).toBool();
    IMSocket *socket = d->socketFactory ? d->socketFactory(QUrl(url), options)
                                        : new IMSocketIOClient(QUrl(url), options);
    // The old connection goes with its handlers; its pending requests fail or retry on the new one.
    d->socket.reset(socket);
    onDefaultEvents();
    onEvents();
    d->socket->connect();
    d->domainString = url;
}

void Parlo::reconnect()
{
    if (d->socket)
        d->socket->reconnect();
}

void Parlo::onDefaultEvents()
{
    d->socket->onAny([](const QString &, const QVariantList &) {});
    static const QStringList lifeEvents{QStringLiteral("connect"),          QStringLiteral("disconnect"),
                                        QStringLiteral("error"),            QStringLiteral("reconnect"),
                                        QStringLiteral("reconnectAttempt"), QStringLiteral("reconnecting"),
                                        QStringLiteral("reconnectfailed")};
    for (int status = 0; status < lifeEvents.size(); ++status) {
        d->socket->on(lifeEvents[status], [this, status](const QVariantList &data, const IMSocket::AckEmitter &) {
            if (status == 0 && d->onConnectBlock)
                d->onConnectBlock();
            didChangeConnectStatus(status, data);
        });
    }
}

void Parlo::didChangeConnectStatus(int status, const QVariantList &data)
{
    d->connectStatus = status;
    const QString message = data.isEmpty() ? QStringLiteral("") : IMDescription(data.first());
    if (ParloDelegate *delegate = d->delegate)
        delegate->ParloDidChangeConnectStatus(status, message);
    const QVariantMap userInfo{{QStringLiteral("status"), status}, {QStringLiteral("message"), message}};
    IMNotificationCenter *center = IMNotificationCenter::defaultCenter();
    center->post(kDidChangeConnectStatus, QVariant(), userInfo);
    center->post(kParloDidChangeConnectStatus, QVariant(), userInfo);
}

void Parlo::onEvents()
{
    auto bind = [this](void (Parlo::*handler)(const QVariantList &)) {
        return [this, handler](const QVariantList &data, const IMSocket::AckEmitter &) { (this->*handler)(data); };
    };
    d->socket->on(QStringLiteral("message"), bind(&Parlo::handleMessage));
    d->socket->on(QStringLiteral("didUpdateMessage"), bind(&Parlo::handleMessageUpdate));
    d->socket->on(QStringLiteral("joined"), bind(&Parlo::handleJoined));
    d->socket->on(QStringLiteral("receive"), bind(&Parlo::handleReceive));
    d->socket->on(QStringLiteral("client"), [](const QVariantList &, const IMSocket::AckEmitter &) {});
    // The server spells this event so.
    d->socket->on(QStringLiteral("roomDidUpadte"), bind(&Parlo::handleRoomDidUpdate));
}

void Parlo::reloadRoomsSaving(const QList<IMRoomPtr> &rooms)
{
    IMDB *db = IMDB::sharedInstance();
    db->saveRooms(rooms);
    d->chatRooms = db->getAllRooms();
    d->storeMirror = *d->chatRooms;
}

bool Parlo::saveMovedRoom(const IMRoomPtr &moved)
{
    // `moved` sits at the front of a list that otherwise mirrors the store: put it where the
    // store's order ("lastMessageTime DESC", unreadable times last) would and write it alone.
    const QDateTime at = IMDate::toDate(moved->lastMessageTime());
    if (!at.isValid() || moved->objectID().isEmpty())
        return false;
    QList<IMRoomPtr> &rooms = *d->chatRooms;
    rooms.removeFirst();
    qsizetype place = 0;
    while (place < rooms.size()) {
        const QDateTime listedAt = IMDate::toDate(rooms[place]->lastMessageTime());
        if (!listedAt.isValid() || listedAt < at)
            break;
        ++place;
    }
    rooms.insert(place, moved);
    IMDB::sharedInstance()->saveRooms({moved});
    d->storeMirror = rooms;
    return true;
}

void Parlo::handleMessage(const QVariantList &data)
{
    PARLO_LOG("data", QStringLiteral("data %1").arg(IMDescription(data)));
    const QVariantMap payload = firstMap(data);
    IMMessagePtr message = IMMessage::fromDictionary(payload);
    if (!message)
        message = IMMessage::create();
    message->setSendingType(0);

    QList<IMRoomPtr> &rooms = chatRooms();
    const bool mirrored = !d->literalRoomWrites && d->listMirrorsStore();
    IMRoomPtr moved;
    if (!rooms.isEmpty()) {
        const IMRoomPtr pushed = IMRoom::fromDictionary(payload.value(QStringLiteral("room")).toMap());
        for (qsizetype i = 0; pushed && i < rooms.size(); ++i) {
            const IMRoomPtr listed = rooms[i]; // a copy: the list moves below
            if (listed->objectID() != pushed->objectID())
                continue;
            listed->setLastMessageTime(pushed->lastMessageTime());
            listed->setBadge(pushed->badge());
            listed->setSender(pushed->sender());
            QVariantList latest = listed->message();
            const QVariantMap dict = message->toDictionary();
            if (latest.isEmpty())
                latest.append(dict);
            else
                latest[0] = dict;
            listed->setMessage(latest);
            rooms.move(i, 0);
            moved = listed;
            break;
        }
    }

    IMBadgePtr badgeRecord = badge();
    badgeRecord->setTotal(payload.value(QStringLiteral("totalBadge")).toInt());
    PARLO_LOG("data", QStringLiteral("badge.total :%1").arg(badgeRecord->total()));
    announceBadge(badgeRecord);
    if (ParloDelegate *delegate = d->delegate)
        delegate->ParloDidReceiveMessage(message);

    // Unchanged list: writing it and reading it back would give the same rooms.
    const bool done = mirrored && (!moved || saveMovedRoom(moved));
    if (!done)
        reloadRoomsSaving(chatRooms());
    if (ParloDelegate *delegate = d->delegate) {
        delegate->ParloDidUpdateRooms(chatRooms());
        if (!chatRooms().isEmpty())
            delegate->ParloDidUpdateRoom(chatRooms().first());
    }

    bool fromThisDevice = false;
    QList<IMMessagePtr> &sending = sendingMessages();
    for (qsizetype i = 0; i < sending.size(); ++i) {
        const IMMessagePtr local = sending[i];
        if (local->idFromSender() != message->idFromSender())
            continue;
        local->copyPropertiesFromMessage(message);
        if (ParloDelegate *delegate = d->delegate)
            delegate->ParloDidChangeMessageSendingType(local);
        postNotificationName(kParloDidChangeMessageSendingType, QVariant::fromValue(local));
        sending.removeAt(i);
        PARLO_LOG("data", QStringLiteral("sendFromThisDevice: %1").arg(1));
        fromThisDevice = true;
        break;
    }
    PARLO_LOG("data", QStringLiteral("sendFromThisDevice: %1").arg(fromThisDevice ? 1 : 0));

    const IMClientPtr sender = message->sender();
    const QString senderID = sender ? sender->clientID() : QString();
    if (senderID != IMClient::currentClient()->clientID()) {
        if (ParloDelegate *delegate = d->delegate)
            delegate->ParloDidReceiveMessageFromOthers(message);
        postNotificationName(kParloDidReceiveMessageFromOthers, QVariant::fromValue(message));
    }
    postNotificationName(kParloDidReceiveMessage, QVariant::fromValue(message));
    postNotificationName(kParloDidUpdateRooms, QVariant::fromValue(chatRooms()));
}

void Parlo::handleMessageUpdate(const QVariantList &data)
{
    PARLO_LOG("data", IMDescription(data));
    PARLO_LOG("data", QStringLiteral("did updated"));
    IMMessagePtr message = IMMessage::fromDictionary(firstMap(data));
    if (!message)
        message = IMMessage::create();
    QPointer<Parlo> self(this);
    IMDispatchMainAsync([self, message] {
        if (self && self->d->delegate)
            self->d->delegate->ParloDidUpdateMessage(message);
    });
    postNotificationName(kParloDidUpdateMessage, QVariant::fromValue(message));
}

void Parlo::handleJoined(const QVariantList &data)
{
    PARLO_LOG("data", IMDescription(data));
    IMRoomPtr room = IMRoom::fromDictionary(firstMap(data));
    if (!room)
        room = std::make_shared<IMRoom>();
    QList<IMRoomPtr> &rooms = chatRooms();
    // A room without an id could never be updated or removed again: it is announced, not listed.
    const bool listable = !room->objectID().isEmpty();
    if (listable && rooms.isEmpty()) {
        rooms.append(room);
    } else if (listable) {
        const QDateTime joinedAt = IMDate::toDate(room->lastMessageTime());
        for (qsizetype i = 0; i < rooms.size(); ++i) {
            // An unreadable time never compares earlier, as with an absent date.
            const QDateTime listedAt = IMDate::toDate(rooms[i]->lastMessageTime());
            if (listedAt.isValid() && joinedAt.isValid() && listedAt < joinedAt) {
                rooms.insert(i, room);
                break;
            }
        }
    }
    if (ParloDelegate *delegate = d->delegate)
        delegate->ParloDidJoinedWithRoom(room);
    IMDB::sharedInstance()->saveRooms(chatRooms());
    if (ParloDelegate *delegate = d->delegate) {
        delegate->ParloDidUpdateRooms(chatRooms());
        delegate->ParloDidUpdateRoom(room);
    }
    postNotificationName(kParloDidJoinedWithRoom, QVariant::fromValue(room));
}

void Parlo::handleReceive(const QVariantList &data)
{
    PARLO_LOG("data", IMDescription(data));
    IMRoomPtr pushed = IMRoom::fromDictionary(firstMap(data));
    if (!pushed)
        pushed = std::make_shared<IMRoom>();
    for (const IMRoomPtr &listed : chatRooms()) {
        if (listed->objectID() == pushed->objectID()) {
            listed->setReadTime(pushed->readTime());
            break;
        }
    }
    if (ParloDelegate *delegate = d->delegate)
        delegate->ParloDidUpdateReadTimeWithRoom(pushed);
    reloadRoomsSaving(chatRooms());
    postNotificationName(kParloDidUpdateReadTimeWithRoom, QVariant::fromValue(pushed));
}

void Parlo::handleRoomDidUpdate(const QVariantList &data)
{
    IMRoomPtr room = IMRoom::fromDictionary(firstMap(data));
    if (!room)
        room = std::make_shared<IMRoom>();
    reloadRoomsSaving({room});
    if (ParloDelegate *delegate = d->delegate) {
        delegate->ParloDidUpdateRooms(chatRooms());
        delegate->ParloDidUpdateRoom(room);
    }
    postNotificationName(kParloDidUpdateRooms, QVariant::fromValue(chatRooms()));
    postNotificationName(kParloDidUpdateRoom, QVariant::fromValue(room));
}

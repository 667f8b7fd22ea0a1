#include "ParloEventDispatcher.h"

#include "IMClient.h"
#include "IMDispatch.h"
#include "Parlo.h"
#include "ParloAnnouncer.h"
#include "ParloLogger.h"
#include "ParloOutbox.h"
#include "ParloRoomList.h"

namespace {
QVariantMap firstMap(const QVariantList &data) { return data.value(0).toMap(); }

template <typename Record> std::shared_ptr<Record> recordOrEmpty(const QVariantMap &dict)
{
    std::shared_ptr<Record> record = Record::fromDictionary(dict);
    return record ? record : std::make_shared<Record>();
}
} // namespace

ParloEventDispatcher::ParloEventDispatcher(
    ParloRoomList &rooms, ParloOutbox &outbox, ParloAnnouncer &announcer, ParloLogger &logger)
    : m_rooms(rooms)
    , m_outbox(outbox)
    , m_announcer(announcer)
    , m_logger(logger)
    , m_alive(std::make_shared<ParloEventDispatcher *>(this))
{
}

void ParloEventDispatcher::attach(IMSocket &socket)
{
    auto bind = [this](void (ParloEventDispatcher::*handler)(const QVariantList &)) {
        return [this, handler](const QVariantList &data, const IMSocket::AckEmitter &) { (this->*handler)(data); };
    };
    socket.on(QStringLiteral("message"), bind(&ParloEventDispatcher::handleMessage));
    socket.on(QStringLiteral("didUpdateMessage"), bind(&ParloEventDispatcher::handleMessageUpdate));
    socket.on(QStringLiteral("joined"), bind(&ParloEventDispatcher::handleJoined));
    socket.on(QStringLiteral("receive"), bind(&ParloEventDispatcher::handleReceive));
    socket.on(QStringLiteral("client"), [](const QVariantList &, const IMSocket::AckEmitter &) {});
    // The server spells this event so.
    socket.on(QStringLiteral("roomDidUpadte"), bind(&ParloEventDispatcher::handleRoomDidUpdate));
}

void ParloEventDispatcher::handleMessage(const QVariantList &data)
{
    PARLO_LOG(m_logger, "data", QStringLiteral("data %1").arg(IMDescription(data)));
    const QVariantMap payload = firstMap(data);
    IMMessagePtr message = IMMessage::fromDictionary(payload);
    if (!message)
        message = IMMessage::create();
    message->setSendingType(IMMessageSendingTypeSettled);

    if (!m_rooms.chatRooms().isEmpty())
        m_rooms.takeMessage(message, IMRoom::fromDictionary(payload.value(QStringLiteral("room")).toMap()));
    m_rooms.badge()->setTotal(payload.value(QStringLiteral("totalBadge")).toInt());
    PARLO_LOG(m_logger, "data", QStringLiteral("badge.total :%1").arg(m_rooms.badge()->total()));
    m_rooms.tellBadge();
    m_announcer.tellDelegate(ParloAnnouncement::ReceiveMessage, QVariant::fromValue(message));

    m_rooms.save();
    const QList<IMRoomPtr> rooms = m_rooms.chatRooms();
    m_announcer.tellDelegate(ParloAnnouncement::Rooms, QVariant::fromValue(rooms));
    if (!rooms.isEmpty())
        m_announcer.tellDelegate(ParloAnnouncement::Room, QVariant::fromValue(rooms.first()));

    const bool fromThisDevice = m_outbox.settle(message);
    if (fromThisDevice)
        PARLO_LOG(m_logger, "data", QStringLiteral("sendFromThisDevice: %1").arg(1));
    PARLO_LOG(m_logger, "data", QStringLiteral("sendFromThisDevice: %1").arg(fromThisDevice ? 1 : 0));

    const IMClientPtr sender = message->sender();
    const QString senderID = sender ? sender->clientID() : QString();
    if (senderID != IMClient::currentClient()->clientID())
        m_announcer.tell(ParloAnnouncement::ReceiveMessageFromOthers, QVariant::fromValue(message));
    m_announcer.post(ParloAnnouncement::ReceiveMessage, QVariant::fromValue(message));
    m_announcer.post(ParloAnnouncement::Rooms, QVariant::fromValue(m_rooms.chatRooms()));
}

void ParloEventDispatcher::handleMessageUpdate(const QVariantList &data)
{
    PARLO_LOG(m_logger, "data", IMDescription(data));
    PARLO_LOG(m_logger, "data", QStringLiteral("did updated"));
    const IMMessagePtr message = recordOrEmpty<IMMessage>(firstMap(data));
    // The delegate hears it on the main queue, after the notification.
    std::weak_ptr<ParloEventDispatcher *> alive = m_alive;
    IMDispatchMainAsync([alive, message] {
        if (const auto self = alive.lock())
            (*self)->m_announcer.tellDelegate(ParloAnnouncement::UpdateMessage, QVariant::fromValue(message));
    });
    m_announcer.post(ParloAnnouncement::UpdateMessage, QVariant::fromValue(message));
}

void ParloEventDispatcher::handleJoined(const QVariantList &data)
{
    PARLO_LOG(m_logger, "data", IMDescription(data));
    const IMRoomPtr room = recordOrEmpty<IMRoom>(firstMap(data));
    m_rooms.insertJoined(room);
    m_announcer.tellDelegate(ParloAnnouncement::JoinedWithRoom, QVariant::fromValue(room));
    m_announcer.tellDelegate(ParloAnnouncement::Rooms, QVariant::fromValue(m_rooms.chatRooms()));
    m_announcer.tellDelegate(ParloAnnouncement::Room, QVariant::fromValue(room));
    m_announcer.post(ParloAnnouncement::JoinedWithRoom, QVariant::fromValue(room));
}

void ParloEventDispatcher::handleReceive(const QVariantList &data)
{
    PARLO_LOG(m_logger, "data", IMDescription(data));
    const IMRoomPtr pushed = recordOrEmpty<IMRoom>(firstMap(data));
    m_rooms.setReadTime(pushed->objectID(), pushed->readTime());
    m_announcer.tellDelegate(ParloAnnouncement::ReadTime, QVariant::fromValue(pushed));
    m_rooms.saveAndReload(m_rooms.chatRooms());
    m_announcer.post(ParloAnnouncement::ReadTime, QVariant::fromValue(pushed));
}

void ParloEventDispatcher::handleRoomDidUpdate(const QVariantList &data)
{
    const IMRoomPtr room = recordOrEmpty<IMRoom>(firstMap(data));
    m_rooms.saveAndReload({room});
    m_announcer.tellDelegate(ParloAnnouncement::Rooms, QVariant::fromValue(m_rooms.chatRooms()));
    m_announcer.tellDelegate(ParloAnnouncement::Room, QVariant::fromValue(room));
    m_announcer.post(ParloAnnouncement::Rooms, QVariant::fromValue(m_rooms.chatRooms()));
    m_announcer.post(ParloAnnouncement::Room, QVariant::fromValue(room));
}

#include "ParloRoomRequests.h"

#include "IMDate.h"
#include "IMDispatch.h"
#include "ParloLogger.h"
#include "ParloRoomList.h"
#include "ParloTransport.h"

namespace {
const QString kNoAck = QStringLiteral("NO ACK");

IMRoomPtr roomFrom(const QVariant &body)
{
    IMRoomPtr room = IMRoom::fromDictionary(body.toMap());
    return room ? room : std::make_shared<IMRoom>();
}

// Success and failure both hop to the main queue, asynchronously.
Parlo::Success roomOnMain(Parlo::RoomSuccess success)
{
    return [success](const QVariant &body) {
        const IMRoomPtr room = roomFrom(body);
        IMDispatchMainAsync([success, room] {
            if (success)
                success(room);
        });
    };
}

Parlo::Failure failureOnMain(Parlo::Failure failure)
{
    return [failure](const IMError &error) {
        IMDispatchMainAsync([failure, error] {
            if (failure)
                failure(error);
        });
    };
}

Parlo::Success roomDirect(Parlo::RoomSuccess success)
{
    return [success](const QVariant &body) {
        if (success)
            success(roomFrom(body));
    };
}

Parlo::Failure listFailure(Parlo::Failure failure, Parlo::RoomsComplete complete)
{
    return [failure, complete](const IMError &error) {
        if (failure)
            failure(error);
        if (complete)
            complete(error, {});
    };
}

// The agent query: each value not 0 is appended ("?" first, "&" after); in the need-agent list
// the type goes too, even 0, as soon as any value is set.
QString agentPath(const QString &base, const QVariantMap &params, bool typeAlways)
{
    static const char *const keys[] = {"county", "district", "status", "type", "limit", "skip"};
    bool any = false;
    for (const char *key : keys)
        any = any || params.value(QLatin1String(key)).toInt() != 0;
    QString path = base;
    if (!any)
        return path;
    for (const char *key : keys) {
        const int v = params.value(QLatin1String(key)).toInt();
        if (!v && !(typeAlways && qstrcmp(key, "type") == 0))
            continue;
        path += QStringLiteral("%1%2=%3")
                    .arg(path.contains(QLatin1Char('?')) ? QLatin1Char('&') : QLatin1Char('?'))
                    .arg(QLatin1String(key))
                    .arg(v);
    }
    return path;
}

QVariantMap roomBody(const IMRoomPtr &room) { return room ? room->toDictionary() : QVariantMap(); }

QString roomID(const IMRoomPtr &room) { return room ? room->objectID() : QString(); }
} // namespace

ParloRoomRequests::ParloRoomRequests(
    Parlo *facade, ParloTransport &transport, ParloRoomList &rooms, ParloLogger &logger)
    : m_facade(facade)
    , m_transport(transport)
    , m_rooms(rooms)
    , m_logger(logger)
{
}

QVariantMap ParloRoomRequests::item(const QString &path) const
{
    return QVariantMap {{QStringLiteral("url"), path}, {QStringLiteral("headers"), m_transport.header()}};
}

QVariantMap ParloRoomRequests::item(const QString &path, const QVariantMap &data) const
{
    QVariantMap envelope = item(path);
    envelope.insert(QStringLiteral("data"), data);
    return envelope;
}

void ParloRoomRequests::createRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure)
{
    if (!room) {
        failureOnMain(std::move(failure))(IMError::parlo(400, QStringLiteral("room is needed")));
        return;
    }
    m_transport.emitWithMethod(ParloRequestMethodPost, item(QStringLiteral("/room"), roomBody(room)),
        roomOnMain(std::move(success)), failureOnMain(std::move(failure)));
}

void ParloRoomRequests::createRoomWithClient(const IMRoomPtr &room, const QString &clientID, const QVariantMap &extra,
    Parlo::RoomSuccess success, Parlo::Failure failure)
{
    QVariantMap body = roomBody(room);
    body.insert(extra);
    // A body with "get", as the server's route for this expects.
    m_transport.emitWithMethod(ParloRequestMethodGet,
        item(QStringLiteral("/room/createAndJoinWithClient/%1").arg(clientID), body), roomDirect(std::move(success)),
        std::move(failure));
}

void ParloRoomRequests::joinRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure)
{
    m_transport.emitWithMethod(ParloRequestMethodPost, item(QStringLiteral("/room/join"), roomBody(room)),
        roomOnMain(std::move(success)), failureOnMain(std::move(failure)));
}

void ParloRoomRequests::tovoAgentJoinRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure)
{
    m_transport.emitWithMethod(ParloRequestMethodPost,
        item(QStringLiteral("/room/agentJoin/%1").arg(roomID(room)), roomBody(room)), roomOnMain(std::move(success)),
        failureOnMain(std::move(failure)));
}

void ParloRoomRequests::joinRoomWithID(const QString &roomID) { joinByID(roomID, &ParloRoomRequests::joinRoom); }

void ParloRoomRequests::tovoAgentJoinRoomWithID(const QString &roomID)
{
    joinByID(roomID, &ParloRoomRequests::tovoAgentJoinRoom);
}

void ParloRoomRequests::joinByID(const QString &roomID, Join join)
{
    auto room = std::make_shared<IMRoom>();
    room->setObjectID(roomID);
    QPointer<Parlo> facade(m_facade);
    (this->*join)(
        room,
        [this, facade](const IMRoomPtr &joined) {
            if (facade)
                m_rooms.appendSaving({joined});
        },
        [](const IMError &error) { qCWarning(lcParlo).noquote() << error.description(); });
}

void ParloRoomRequests::roomWithRoomID(const QString &roomID, Parlo::RoomSuccess success, Parlo::Failure failure)
{
    // Straight on the connection: no connection check, no retry.
    const bool sent = m_transport.emitOnce(ParloRequestMethodGet, item(QStringLiteral("/room/%1").arg(roomID)),
        [success, failure](const QVariantList &data) {
            const QVariant first = data.value(0);
            if (first.typeId() == QMetaType::QString && first.toString() == kNoAck) {
                if (failure)
                    failure(IMError::parlo(999, kNoAck));
                return;
            }
            const QVariantMap response = first.toMap();
            const int status = response.value(QStringLiteral("statusCode")).toInt();
            const QVariant body = response.value(QStringLiteral("body"));
            if (status == 200) {
                if (success)
                    success(roomFrom(body));
                return;
            }
            if (failure)
                failure(IMError::parlo(status,
                    QVariantMap {{QStringLiteral("info"), body.isNull() ? QVariant(QStringLiteral("")) : body}}));
        });
    if (!sent)
        failureOnMain(std::move(failure))(IMError::parlo(400, QStringLiteral("not connected")));
}

void ParloRoomRequests::roomListWithOffset(
    int offset, int limit, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete)
{
    listAndAppend(QStringLiteral("/room/list?offset=%1&limit=%2").arg(offset).arg(limit), std::move(success),
        std::move(failure), std::move(complete));
}

void ParloRoomRequests::roomListSuccess(Parlo::RoomsSuccess success, Parlo::Failure failure)
{
    roomListWithOffset(int(m_rooms.chatRooms().size()), 30, std::move(success), std::move(failure), nullptr);
}

void ParloRoomRequests::roomListLastMessageTime(const QDateTime &lastMessageTime, int offset, int limit,
    Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete)
{
    // Without a date the path carries "(null)", which the server reads as "all rooms".
    const QString date = lastMessageTime.isValid() ? IMDate::toString8601(lastMessageTime) : QStringLiteral("(null)");
    const QString path = QStringLiteral("/room/list?lastMessageTime=%1&&limit=%2&&offset=%3&&sort=updatedAt ASC")
                             .arg(date)
                             .arg(limit)
                             .arg(offset);
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodGet, item(path),
        [this, facade, success, complete](const QVariant &body) {
            const QList<IMRoomPtr> rooms = IMRoom::arrayOfModelsFromDictionaries(body.toList());
            if (facade)
                m_rooms.saveAndReload(rooms);
            if (success)
                success(rooms);
            if (complete)
                complete(IMError(), rooms);
            if (facade)
                m_rooms.tellRooms();
        },
        listFailure(failure, complete));
}

void ParloRoomRequests::keepUpdatingRooms(Parlo::RoomsComplete complete)
{
    const int pageSize = m_rooms.pageSize();
    const QList<IMRoomPtr> held = m_rooms.chatRooms();
    const QDateTime from = held.isEmpty() ? QDateTime() : IMDate::toDate(held.first()->lastMessageTime());
    QPointer<Parlo> facade(m_facade);
    roomListLastMessageTime(from, 0, pageSize, nullptr, nullptr,
        [this, facade, pageSize, complete](const IMError &error, const QList<IMRoomPtr> &rooms) {
            if (!error.isNull() || rooms.size() != pageSize || !facade) {
                if (complete)
                    complete(error, rooms);
                return;
            }
            // A full page: more may follow. The storing merge has reloaded the list, so the
            // next pass starts from the newest room now held.
            if (m_rooms.isPaused()) {
                PARLO_LOG(m_logger, "data", QStringLiteral("loading room data return"));
                return;
            }
            PARLO_LOG(m_logger, "data", QStringLiteral("loading room data"));
            keepUpdatingRooms(complete);
        });
}

void ParloRoomRequests::needAgentList(
    const QVariantMap &params, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete)
{
    listAndAppend(agentPath(QStringLiteral("/room/needAgentList"), params, true), std::move(success),
        std::move(failure), std::move(complete));
}

void ParloRoomRequests::agentRoomList(
    const QVariantMap &params, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete)
{
    listAndAppend(agentPath(QStringLiteral("/room/list"), params, false), std::move(success), std::move(failure),
        std::move(complete));
}

void ParloRoomRequests::listAndAppend(
    const QString &path, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete)
{
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodGet, item(path),
        [this, facade, success, complete](const QVariant &body) {
            const QList<IMRoomPtr> rooms = IMRoom::arrayOfModelsFromDictionaries(body.toList());
            if (success)
                success(rooms);
            if (complete)
                complete(IMError(), rooms);
            if (facade)
                m_rooms.appendSaving(rooms);
        },
        listFailure(failure, complete));
}

void ParloRoomRequests::archiveRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure)
{
    m_transport.emitWithMethod(ParloRequestMethodPut, item(QStringLiteral("/rooms/%1/archive").arg(roomID(room))),
        roomDirect(std::move(success)), std::move(failure));
}

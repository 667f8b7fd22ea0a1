// Rooms: create, join, fetch one, list by page or from the newest room held, agent lists and
// archive; the list operations merge what they learn into chatRooms and the local store.
#include "Parlo_p.h"

#include "IMDate.h"
#include "IMDispatch.h"

namespace {
const QString kNoAck = QStringLiteral("NO ACK");

QVariantMap roomItem(const QString &path, const QVariantMap &headers)
{
    return QVariantMap{{QStringLiteral("url"), path}, {QStringLiteral("headers"), headers}};
}

QVariantMap roomItem(const QString &path, const QVariantMap &headers, const QVariantMap &data)
{
    QVariantMap item = roomItem(path, headers);
    item.insert(QStringLiteral("data"), data);
    return item;
}

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
    auto value = [&params](const char *key) { return params.value(QLatin1String(key)).toInt(); };
    const int county = value("county"), district = value("district"), status = value("status");
    const int type = value("type"), limit = value("limit"), skip = value("skip");
    QString path = base;
    if (!county && !district && !status && !type && !limit && !skip)
        return path;
    auto append = [&path](const char *key, int v) {
        path += QStringLiteral("%1%2=%3").arg(path.contains(QLatin1Char('?')) ? QLatin1Char('&') : QLatin1Char('?'))
                    .arg(QLatin1String(key))
                    .arg(v);
    };
    if (county)
        append("county", county);
    if (district)
        append("district", district);
    if (status)
        append("status", status);
    if (type || typeAlways)
        append("type", type);
    if (limit)
        append("limit", limit);
    if (skip)
        append("skip", skip);
    return path;
}

QVariantMap roomBody(const IMRoomPtr &room)
{
    return room ? room->toDictionary() : QVariantMap();
}
} // namespace

void Parlo::announceRooms()
{
    if (ParloDelegate *delegate = d->delegate)
        delegate->ParloDidUpdateRooms(chatRooms());
    postNotificationName(kParloDidUpdateRooms, QVariant::fromValue(chatRooms()));
}

void Parlo::mergeAppendedRooms(const QList<IMRoomPtr> &rooms)
{
    // Appended without a check: the store keeps one record per room, and reading the list
    // back from it drops the duplicates and puts the newest last message first.
    chatRooms().append(rooms);
    reloadRoomsSaving(chatRooms());
    announceRooms();
}

void Parlo::createRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    if (!room) {
        failureOnMain(std::move(failure))(IMError::parlo(400, QStringLiteral("room is needed")));
        return;
    }
    emitWithMethod(1, roomItem(QStringLiteral("/room"), header(), roomBody(room)), roomOnMain(std::move(success)),
                   failureOnMain(std::move(failure)));
}

void Parlo::createRoom(const IMRoomPtr &room, const QString &clientID, bool duplicate, RoomSuccess success,
                       Failure failure)
{
    QVariantMap body = roomBody(room);
    body.insert(QStringLiteral("duplicate"), duplicate ? 1 : 0);
    // A body with "get", as the server's route for this expects.
    emitWithMethod(0, roomItem(QStringLiteral("/room/createAndJoinWithClient/%1").arg(clientID), header(), body),
                   roomDirect(std::move(success)), std::move(failure));
}

void Parlo::createRoom(const IMRoomPtr &room, const QString &clientID, RoomSuccess success, Failure failure)
{
    emitWithMethod(0,
                   roomItem(QStringLiteral("/room/createAndJoinWithClient/%1").arg(clientID), header(), roomBody(room)),
                   roomDirect(std::move(success)), std::move(failure));
}

void Parlo::forceCreateRoom(const IMRoomPtr &room, const QString &clientID, RoomSuccess success, Failure failure)
{
    QVariantMap body = roomBody(room);
    body.insert(QStringLiteral("forceCreate"), true);
    emitWithMethod(0, roomItem(QStringLiteral("/room/createAndJoinWithClient/%1").arg(clientID), header(), body),
                   roomDirect(std::move(success)), std::move(failure));
}

void Parlo::joinRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    emitWithMethod(1, roomItem(QStringLiteral("/room/join"), header(), roomBody(room)), roomOnMain(std::move(success)),
                   failureOnMain(std::move(failure)));
}

void Parlo::tovoAgentJoinRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    const QString id = room ? room->objectID() : QString();
    emitWithMethod(1, roomItem(QStringLiteral("/room/agentJoin/%1").arg(id), header(), roomBody(room)),
                   roomOnMain(std::move(success)), failureOnMain(std::move(failure)));
}

void Parlo::joinRoomWithID(const QString &roomID)
{
    joinByID(roomID, &Parlo::joinRoom);
}

void Parlo::tovoAgentJoinRoomWithID(const QString &roomID)
{
    joinByID(roomID, &Parlo::tovoAgentJoinRoom);
}

void Parlo::joinByID(const QString &roomID, void (Parlo::*join)(const IMRoomPtr &, RoomSuccess, Failure))
{
    auto room = std::make_shared<IMRoom>();
    room->setObjectID(roomID);
    QPointer<Parlo> self(this);
    (this->*join)(
        room,
        [self](const IMRoomPtr &joined) {
            if (self)
                self->mergeAppendedRooms({joined});
        },
        [](const IMError &error) { qCWarning(lcParlo).noquote() << error.description(); });
}

void Parlo::roomWithRoomID(const QString &roomID, RoomSuccess success, Failure failure)
{
    if (!d->socket) {
        failureOnMain(std::move(failure))(IMError::parlo(400, QStringLiteral("not connected")));
        return;
    }
    // Straight on the connection: no connection check, no retry.
    const QVariantMap item = roomItem(QStringLiteral("/room/%1").arg(roomID), header());
    d->socket->emitWithAck(QStringLiteral("get"), QVariantList{item}, double(d->timeout),
                           [success, failure](const QVariantList &data) {
                               const QVariant first = data.value(0);
                               if (first.typeId() == QMetaType::QString && first.toString() == kNoAck) {
                                   if (failure)
                                       failure(IMError::parlo(999, kNoAck));
                                   return;
                               }
                               const QVariantMap response = first.toMap();
                               const int status = response.value(QStringLiteral("statusCode")).toInt();
                               if (status == 200) {
                                   if (success)
                                       success(roomFrom(response.value(QStringLiteral("body"))));
                                   return;
                               }
                               const QVariant body = response.value(QStringLiteral("body"));
                               if (failure)
                                   failure(IMError::parlo(
                                       status, QVariantMap{{QStringLiteral("info"),
                                                            body.isNull() ? QVariant(QStringLiteral("")) : body}}));
                           });
}

void Parlo::roomListWithOffset(int offset, int limit, RoomsSuccess success, Failure failure, RoomsComplete complete)
{
    QPointer<Parlo> self(this);
    emitWithMethod(
        0, roomItem(QStringLiteral("/room/list?offset=%1&limit=%2").arg(offset).arg(limit), header()),
        [self, success, complete](const QVariant &body) {
            const QList<IMRoomPtr> rooms = IMRoom::arrayOfModelsFromDictionaries(body.toList());
            if (success)
                success(rooms);
            if (complete)
                complete(IMError(), rooms);
            if (self)
                self->mergeAppendedRooms(rooms);
        },
        listFailure(failure, complete));
}

void Parlo::roomListSuccess(RoomsSuccess success, Failure failure)
{
    roomListWithOffset(int(chatRooms().size()), 30, std::move(success), std::move(failure));
}

void Parlo::roomListInBackground()
{
    roomListSuccess(nullptr, nullptr);
}

void Parlo::roomListLastMessageTime(const QDateTime &lastMessageTime, int offset, int limit, RoomsSuccess success,
                                    Failure failure, RoomsComplete complete)
{
    // Without a date the path carries "(null)", which the server reads as "all rooms".
    const QString date = lastMessageTime.isValid() ? IMDate::toString8601(lastMessageTime) : QStringLiteral("(null)");
    const QString path = QStringLiteral("/room/list?lastMessageTime=%1&&limit=%2&&offset=%3&&sort=updatedAt ASC")
                             .arg(date)
                             .arg(limit)
                             .arg(offset);
    QPointer<Parlo> self(this);
    emitWithMethod(
        0, roomItem(path, header()),
        [self, success, complete](const QVariant &body) {
            const QList<IMRoomPtr> rooms = IMRoom::arrayOfModelsFromDictionaries(body.toList());
            if (self)
                self->reloadRoomsSaving(rooms);
            if (success)
                success(rooms);
            if (complete)
                complete(IMError(), rooms);
            if (self)
                self->announceRooms();
        },
        listFailure(failure, complete));
}

void Parlo::roomListKeepUpdateingToNewestComplete(RoomsComplete complete)
{
    keepUpdatingRooms(std::move(complete));
}

void Parlo::keepUpdatingRooms(RoomsComplete complete)
{
    const int pageSize = d->roomCountLimit;
    const QDateTime from =
        chatRooms().isEmpty() ? QDateTime() : IMDate::toDate(chatRooms().first()->lastMessageTime());
    QPointer<Parlo> self(this);
    roomListLastMessageTime(
        from, 0, pageSize, nullptr, nullptr,
        [self, pageSize, complete](const IMError &error, const QList<IMRoomPtr> &rooms) {
            if (!error.isNull() || rooms.size() != pageSize || !self) {
                if (complete)
                    complete(error, rooms);
                return;
            }
            // A full page: more may follow. The storing merge has reloaded chatRooms, so the
            // next pass starts from the newest room now held.
            if (self->d->isPausedLoadingRoomData) {
                self->PARLO_LOG("data", QStringLiteral("loading room data return"));
                return;
            }
            self->PARLO_LOG("data", QStringLiteral("loading room data"));
            self->keepUpdatingRooms(complete);
        });
}

void Parlo::needAgentListForTovoAgentWithParames(const QVariantMap &params, RoomsSuccess success, Failure failure,
                                                 RoomsComplete complete)
{
    agentRoomList(agentPath(QStringLiteral("/room/needAgentList"), params, true), std::move(success),
                  std::move(failure), std::move(complete));
}

void Parlo::roomListForTovoAgentWithParams(const QVariantMap &params, RoomsSuccess success, Failure failure,
                                           RoomsComplete complete)
{
    agentRoomList(agentPath(QStringLiteral("/room/list"), params, false), std::move(success), std::move(failure),
                  std::move(complete));
}

void Parlo::agentRoomList(const QString &path, RoomsSuccess success, Failure failure, RoomsComplete complete)
{
    QPointer<Parlo> self(this);
    emitWithMethod(
        0, roomItem(path, header()),
        [self, success, complete](const QVariant &body) {
            const QList<IMRoomPtr> rooms = IMRoom::arrayOfModelsFromDictionaries(body.toList());
            if (success)
                success(rooms);
            if (complete)
                complete(IMError(), rooms);
            if (self)
                self->mergeAppendedRooms(rooms);
        },
        listFailure(failure, complete));
}

void Parlo::archiveRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    const QString id = room ? room->objectID() : QString();
    emitWithMethod(2, roomItem(QStringLiteral("/rooms/%1/archive").arg(id), header()), roomDirect(std::move(success)),
                   std::move(failure));
}

#pragma once

// Rooms: create, join, fetch one, list by page or from the newest room held, agent lists and
// archive; the list operations merge what they learn into the room list.

#include "Parlo.h"

class ParloLogger;
class ParloRoomList;
class ParloTransport;

//! The room operations (see Parlo's room members); what they learn goes to the room list.
class ParloRoomRequests {
public:
    ParloRoomRequests(Parlo *facade, ParloTransport &transport, ParloRoomList &rooms, ParloLogger &logger);

    void createRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure);
    //! The two-member room with `clientID`; `extra` goes into the body ("duplicate", "forceCreate").
    void createRoomWithClient(const IMRoomPtr &room, const QString &clientID, const QVariantMap &extra,
        Parlo::RoomSuccess success, Parlo::Failure failure);
    void joinRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure);
    void tovoAgentJoinRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure);
    void joinRoomWithID(const QString &roomID);
    void tovoAgentJoinRoomWithID(const QString &roomID);
    void roomWithRoomID(const QString &roomID, Parlo::RoomSuccess success, Parlo::Failure failure);
    void roomListWithOffset(
        int offset, int limit, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete);
    void roomListSuccess(Parlo::RoomsSuccess success, Parlo::Failure failure);
    void roomListLastMessageTime(const QDateTime &lastMessageTime, int offset, int limit, Parlo::RoomsSuccess success,
        Parlo::Failure failure, Parlo::RoomsComplete complete);
    void keepUpdatingRooms(Parlo::RoomsComplete complete);
    void needAgentList(
        const QVariantMap &params, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete);
    void agentRoomList(
        const QVariantMap &params, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete);
    void archiveRoom(const IMRoomPtr &room, Parlo::RoomSuccess success, Parlo::Failure failure);

private:
    using Join = void (ParloRoomRequests::*)(const IMRoomPtr &, Parlo::RoomSuccess, Parlo::Failure);
    void joinByID(const QString &roomID, Join join);
    void listAndAppend(
        const QString &path, Parlo::RoomsSuccess success, Parlo::Failure failure, Parlo::RoomsComplete complete);
    QVariantMap item(const QString &path) const;
    QVariantMap item(const QString &path, const QVariantMap &data) const;

    Parlo *m_facade;
    ParloTransport &m_transport;
    ParloRoomList &m_rooms;
    ParloLogger &m_logger;
};

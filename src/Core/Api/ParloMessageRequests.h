#pragma once

// Messages: history pages, updates, read reports and the unseen count.

#include "Parlo.h"

#include <memory>

class ParloAnnouncer;
class ParloLogger;
class ParloRoomList;
class ParloTransport;

//! The message operations other than sending (see Parlo's message members).
class ParloMessageRequests {
public:
    ParloMessageRequests(
        Parlo *facade, ParloTransport &transport, ParloRoomList &rooms, ParloAnnouncer &announcer, ParloLogger &logger);
    //! Closes the gate of read reports still queued: they send nothing.
    ~ParloMessageRequests();

    //! A page of `room`'s history at `path`, asking the delegate first.
    void loadPage(const IMRoomPtr &room, const QString &path, Parlo::MessagesSuccess success, Parlo::Failure failure);
    void updateMessage(const IMMessagePtr &message, Parlo::MessageSuccess success, Parlo::Failure failure);
    void updateReadTimeWithRoom(const IMRoomPtr &room, bool echoToRoom);
    void unseenCount(const QString &lastSeenDate, const QString &messageDate, const IMRoomPtr &room,
        Parlo::CountSuccess success, Parlo::Failure failure);

private:
    QVariantMap item(const QString &path) const;

    Parlo *m_facade;
    ParloTransport &m_transport;
    ParloRoomList &m_rooms;
    ParloAnnouncer &m_announcer;
    ParloLogger &m_logger;
    //! Read reports leave from the global queue and reach the transport only while it lives.
    std::shared_ptr<struct ParloReadReportGate> m_gate;
};

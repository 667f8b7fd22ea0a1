#pragma once

// Pushed events: each goes to the owners it changes, which tell it.

#include "IMSocket.h"

class ParloAnnouncer;
class ParloLogger;
class ParloOutbox;
class ParloRoomList;

//! Registers the handlers of the server's pushed events ("message", "didUpdateMessage", "joined",
//! "receive", "roomDidUpadte") on a socket and hands each event to the room list and the outbox,
//! then tells it. Handlers run on the main thread.
class ParloEventDispatcher {
public:
    ParloEventDispatcher(ParloRoomList &rooms, ParloOutbox &outbox, ParloAnnouncer &announcer, ParloLogger &logger);

    //! Registers the handlers on `socket`.
    void attach(IMSocket &socket);

    void handleMessage(const QVariantList &data);
    void handleMessageUpdate(const QVariantList &data);
    void handleJoined(const QVariantList &data);
    void handleReceive(const QVariantList &data);
    void handleRoomDidUpdate(const QVariantList &data);

private:
    ParloRoomList &m_rooms;
    ParloOutbox &m_outbox;
    ParloAnnouncer &m_announcer;
    ParloLogger &m_logger;
    //! Lets the asynchronous update announcement know whether the dispatcher still lives.
    std::shared_ptr<ParloEventDispatcher *> m_alive;
};

#pragma once

// The room list, newest last message first, and the badge: kept in memory and in the local store.

#include "IMBadge.h"
#include "IMMessage.h"
#include "IMRoom.h"

#include <QList>
#include <optional>

class ParloAnnouncer;

//! Owns chatRooms and the badge. Every change it makes reaches the local store: the rooms it
//! changed since the last write are written with the next one, and a list that no longer has the
//! store's order or members is written whole and read back. Main thread only.
class ParloRoomList {
public:
    explicit ParloRoomList(ParloAnnouncer &announcer);

    //! The rooms, read from the store on first use.
    QList<IMRoomPtr> chatRooms();
    //! Replaces the list as it is (the next write writes it whole).
    void setChatRooms(const QList<IMRoomPtr> &rooms);
    //! Drops the list; the next read loads it from the store.
    void reset();

    //! The badge record (an empty one on first use).
    IMBadgePtr badge();
    //! Replaces the badge record.
    void setBadge(const IMBadgePtr &badge) { m_badge = badge; }
    //! Sets the badge total and tells it.
    void setBadgeTotal(int total);
    //! Tells the badge as it is.
    void tellBadge();

    bool isPaused() const { return m_paused; }
    void setPaused(bool paused) { m_paused = paused; }
    int pageSize() const { return m_pageSize; }
    void setPageSize(int size) { m_pageSize = size; }

    //! A message for a listed room: the room takes the pushed room's time, badge and sender and
    //! the message as its latest, and moves to the front. False when the room is not listed.
    bool takeMessage(const IMMessagePtr &message, const IMRoomPtr &pushed);
    //! Writes what changed since the last write. After takeMessage the moved room goes to the
    //! place the store's order gives it; a list out of the store's order is written whole and
    //! read back.
    void save();
    //! Writes `rooms` and reads the whole list back from the store.
    void saveAndReload(const QList<IMRoomPtr> &rooms);
    //! Appends `rooms`, writes the list and reads it back (the store drops duplicates), then
    //! tells the list.
    void appendSaving(const QList<IMRoomPtr> &rooms);
    //! Lists a joined room before the first room with an earlier last message, and writes the list.
    void insertJoined(const IMRoomPtr &room);
    //! Sets the read times of the listed room `roomID` (the first one listed).
    void setReadTime(const QString &roomID, const QVariantMap &readTime);
    //! Sets the read times and unread count of every listed copy of `read`, and writes them.
    void takeReadReport(const IMRoomPtr &read);
    //! Tells the list to the delegate, then as a notification.
    void tellRooms();

private:
    void markChanged(const IMRoomPtr &room);
    bool placeMoved(const IMRoomPtr &moved);

    ParloAnnouncer &m_announcer;
    std::optional<QList<IMRoomPtr>> m_rooms;
    //! The listed rooms changed since the last write, each once.
    QList<IMRoomPtr> m_changed;
    //! The room takeMessage moved to the front, until save places it.
    IMRoomPtr m_moved;
    //! The list holds exactly the store's rooms in the store's order (apart from m_moved).
    bool m_inStoreOrder = false;
    IMBadgePtr m_badge;
    bool m_paused = false;
    int m_pageSize = 25;
};

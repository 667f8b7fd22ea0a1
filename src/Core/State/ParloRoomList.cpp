#include "ParloRoomList.h"

#include "IMDB.h"
#include "IMDate.h"
#include "Parlo.h"
#include "ParloAnnouncer.h"

ParloRoomList::ParloRoomList(ParloAnnouncer &announcer)
    : m_announcer(announcer)
{
}

QList<IMRoomPtr> ParloRoomList::chatRooms()
{
    if (!m_rooms) {
        m_rooms = IMDB::sharedInstance()->getAllRooms();
        m_inStoreOrder = true;
        m_changed.clear();
    }
    return *m_rooms;
}

void ParloRoomList::setChatRooms(const QList<IMRoomPtr> &rooms)
{
    m_rooms = rooms;
    m_inStoreOrder = false;
}

void ParloRoomList::reset()
{
    m_rooms.reset();
    m_changed.clear();
    m_moved.reset();
    m_inStoreOrder = false;
}

IMBadgePtr ParloRoomList::badge()
{
    if (!m_badge)
        m_badge = std::make_shared<IMBadge>();
    return m_badge;
}

void ParloRoomList::setBadgeTotal(int total)
{
    badge()->setTotal(total);
    tellBadge();
}

void ParloRoomList::tellBadge() { m_announcer.tell(ParloAnnouncement::Badge, QVariant::fromValue(badge())); }

void ParloRoomList::markChanged(const IMRoomPtr &room)
{
    if (!m_changed.contains(room))
        m_changed.append(room);
}

bool ParloRoomList::takeMessage(const IMMessagePtr &message, const IMRoomPtr &pushed)
{
    chatRooms();
    if (!pushed)
        return false;
    QList<IMRoomPtr> &rooms = *m_rooms;
    for (qsizetype i = 0; i < rooms.size(); ++i) {
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
        markChanged(listed);
        m_moved = listed;
        return true;
    }
    return false;
}

bool ParloRoomList::placeMoved(const IMRoomPtr &moved)
{
    // `moved` sits at the front of a list that otherwise has the store's order ("lastMessageTime
    // DESC", unreadable times last): put it where that order would.
    const QDateTime at = IMDate::toDate(moved->lastMessageTime());
    if (!at.isValid() || moved->objectID().isEmpty())
        return false;
    QList<IMRoomPtr> &rooms = *m_rooms;
    rooms.removeFirst();
    qsizetype place = 0;
    while (place < rooms.size()) {
        const QDateTime listedAt = IMDate::toDate(rooms[place]->lastMessageTime());
        if (!listedAt.isValid() || listedAt < at)
            break;
        ++place;
    }
    rooms.insert(place, moved);
    return true;
}

void ParloRoomList::save()
{
    chatRooms();
    const IMRoomPtr moved = std::exchange(m_moved, nullptr);
    if (!m_inStoreOrder || (moved && !placeMoved(moved))) {
        saveAndReload(*m_rooms);
        return;
    }
    // Only what changed: writing the rest and reading it back would give the same list.
    if (!m_changed.isEmpty())
        IMDB::sharedInstance()->saveRooms(m_changed);
    m_changed.clear();
}

void ParloRoomList::saveAndReload(const QList<IMRoomPtr> &rooms)
{
    IMDB *db = IMDB::sharedInstance();
    db->saveRooms(rooms);
    m_rooms = db->getAllRooms();
    m_inStoreOrder = true;
    m_changed.clear();
    m_moved.reset();
}

void ParloRoomList::appendSaving(const QList<IMRoomPtr> &rooms)
{
    // Appended without a check: the store keeps one record per room, and reading the list
    // back from it drops the duplicates and puts the newest last message first.
    saveAndReload(chatRooms() + rooms);
    tellRooms();
}

void ParloRoomList::insertJoined(const IMRoomPtr &room)
{
    QList<IMRoomPtr> rooms = chatRooms();
    // A room without an id could never be updated or removed again: it is announced, not listed.
    if (!room->objectID().isEmpty()) {
        if (rooms.isEmpty()) {
            rooms.append(room);
        } else {
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
    }
    // Written whole and not read back: the list keeps the joined record itself, and the next
    // write puts it in the store's order again.
    m_rooms = rooms;
    IMDB::sharedInstance()->saveRooms(rooms);
    m_changed.clear();
    m_inStoreOrder = false;
}

void ParloRoomList::setReadTime(const QString &roomID, const QVariantMap &readTime)
{
    for (const IMRoomPtr &listed : chatRooms()) {
        if (listed->objectID() == roomID) {
            listed->setReadTime(readTime);
            markChanged(listed);
            break;
        }
    }
}

void ParloRoomList::takeReadReport(const IMRoomPtr &read)
{
    for (const IMRoomPtr &listed : chatRooms()) {
        if (listed->objectID() == read->objectID()) {
            listed->setReadTime(read->readTime());
            listed->setBadge(read->badge());
            markChanged(listed);
        }
    }
    save();
}

void ParloRoomList::tellRooms() { m_announcer.tell(ParloAnnouncement::Rooms, QVariant::fromValue(chatRooms())); }

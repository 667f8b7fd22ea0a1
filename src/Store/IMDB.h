#pragma once

#include "IMMessage.h"
#include "IMNotificationCenter.h"
#include "IMRoom.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <memory>

//! Name of the reserved collection for clients; no operation writes or reads it.
inline const QString IMDB_Collection_Client = QStringLiteral("Client");
//! Name of the rooms' collection; key = the room's `objectID`.
inline const QString IMDB_Collection_Room = QStringLiteral("Room");
//! Name of the messages' collection; key = the message's `objectID`.
inline const QString IMDB_Collection_Message = QStringLiteral("Message");
//! Name of the secondary index with the columns "createdAt", "roomID" and "lastMessageTime".
inline const QString IMDB_SecondaryIndex_MessageDate = QStringLiteral("Message-CreateAt-RoomID");
//! Name of the optional view of messages grouped by room, oldest first.
inline const QString IMDB_View_RoomMessages = QStringLiteral("Room-Messages");

//! Posted when a store's database has been closed and has let go of its files; the user info
//! names the three files under the keys below.
inline const QString kIMDatabaseClosedNotification = QStringLiteral("IMDatabaseClosedNotification");
//! User-info key of the database file's path.
inline const QString kIMDatabasePathKey = QStringLiteral("IMDatabasePathKey");
//! User-info key of the write-ahead log's path.
inline const QString kIMDatabasePathWalKey = QStringLiteral("IMDatabasePathWalKey");
//! User-info key of the shared-memory file's path.
inline const QString kIMDatabasePathShmKey = QStringLiteral("IMDatabasePathShmKey");

//! The kit's local store: rooms (and, on request, messages) kept whole in the SQLite file
//! "parlo_db" in `IMPlatform::documentsPath()`, in WAL mode, with a secondary index that orders
//! the room list and pages a room's history by date.
//!
//! Every operation is synchronous and may be called from any thread: the store's one
//! connection serialises them. Operations never throw and report no errors: between
//! `resetDatabase` and the re-creation that follows it saves do nothing and reads return empty
//! lists. A file that is not a database, or is damaged, is moved aside (as
//! "parlo_db.corrupt-<time>") and replaced by an empty store.
class IMDB {
public:
    //! The process-wide store, created on first use: `setupDatabse`, `setupConnection`, then the
    //! observer of kIMDatabaseClosedNotification (on the main queue, for any sender).
    static IMDB *sharedInstance();

    //! Closes the database (posting nothing) and removes the observer.
    ~IMDB();
    IMDB(const IMDB &) = delete;
    IMDB &operator=(const IMDB &) = delete;

    //! Stores each room under its `objectID` in "Room", in order, in one transaction; a room
    //! already stored is replaced (and moves in `getAllRooms` by its new time). Rooms without
    //! an `objectID`, or with an empty one, are skipped.
    void saveRooms(const QList<IMRoomPtr> &rooms);
    //! The same for messages, into "Message".
    void saveMessages(const QList<IMMessagePtr> &messages);
    //! The rooms by "ORDER BY lastMessageTime DESC": newest last message first, rooms with no
    //! readable time last. The query also matches saved messages (after the rooms); they are
    //! not rooms, so they are left out here and returned by `getAllRecords`; nor is a room
    //! stored under the empty key by an earlier version.
    QList<IMRoomPtr> getAllRooms();
    //! Everything the room-list query matches, in its order: the rooms, then the saved
    //! messages, each read back as the record it was stored as.
    QList<IMObjectPtr> getAllRecords();
    //! At most `limit` messages of `room` strictly older than `date`
    //! ("WHERE createdAt < ? AND roomID = ? ORDER BY createdAt DESC LIMIT ?"), returned oldest first.
    QList<IMMessagePtr> queryMessagesForRoom(const IMRoomPtr &room, const QDateTime &date, quint64 limit);
    //! Drops the store's database and connection; the closed notification that follows, once
    //! the main queue runs it, removes the three files and opens a new empty store.
    void resetDatabase();

    //! Opens (or re-opens) "parlo_db" in the documents folder, migrates its schema, logs
    //! "database path: <path>" and calls `setupSecondaryIndexes`.
    void setupDatabse();
    //! Makes sure the secondary index "Message-CreateAt-RoomID" and its columns exist.
    void setupSecondaryIndexes();
    //! Opens the connection every operation goes through (prepares its statements).
    void setupConnection();
    //! Registers the view "Room-Messages" on the open connection; a re-created store does not
    //! have it until this is called again.
    void registerRoomMessagesView();
    //! True when the view is registered on the open connection.
    bool isRoomMessagesViewRegistered() const;
    //! The messages of the view's group `roomID`, oldest first; empty when the view is not registered.
    QList<IMMessagePtr> roomMessagesViewGroup(const QString &roomID);
    //! The view's version tag "1-1-<locale>", e.g. "1-1-en_US".
    static QString roomMessagesViewVersionTag();

    //! True while the store has an open database and connection (false between a reset and its re-creation).
    bool isOpen() const;
    //! The path of the open database file (null while reset is pending).
    QString databasePath() const;
    //! The schema version of the open file (`PRAGMA user_version`), 0 when not open.
    int schemaVersion() const;
    //! The schema version this build writes.
    static int currentSchemaVersion();

private:
    IMDB();
    struct Private;
    // Shared with the closed-notification observer, which holds it weakly.
    std::shared_ptr<Private> d;
};

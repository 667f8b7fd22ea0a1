#pragma once

// The store's SQLite side: one connection, its prepared statements, the schema and its
// migrations, and the handling of unreadable files. Every member is called with `mutex` held.

#include "IMDB.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QVector>
#include <functional>
#include <mutex>

struct sqlite3;
struct sqlite3_stmt;

//! What a record fills in the secondary index: null columns where it has nothing.
struct IMDBIndexRow {
    QDateTime createdAt;
    QString roomID;
    QDateTime lastMessageTime;
};

struct IMDB::Private {
    std::mutex mutex;
    sqlite3 *db = nullptr; //!< the open database ("database"); null while a reset is pending
    bool connected = false; //!< the connection is ready ("connection")
    QString path; //!< the file `db` was opened from
    bool viewRegistered = false;
    bool damaged = false; //!< SQLite reported a corrupt or foreign file during this operation
    QHash<QByteArray, sqlite3_stmt *> statements;
    //! Rooms as stored, by key: the room list is read far more often than rooms change, and
    //! decoding thousands of archived rooms each time would dominate it. Handed out as copies
    //! only; filled by saves and reads, emptied whenever the file is closed.
    //! Keyed by the row's id, which a replaced room keeps (and compared without touching key texts).
    QHash<qint64, IMRoomPtr> roomCache;
    static constexpr qsizetype kRoomCacheLimit = 50000;
    void cacheRoom(qint64 rowid, const IMRoomPtr &room);
    quint64 observer = 0;

    ~Private();

    //! The file the store lives in: "parlo_db" in the documents folder.
    static QString defaultPath();

    //! Opens `defaultPath()` (closing what is open), migrates it; an unreadable file is moved
    //! aside and replaced once. False when no database could be opened.
    bool openDatabase();
    //! Creates the secondary index table and its SQL indexes when missing.
    bool ensureSecondaryIndex();
    //! Prepares the statements every operation uses; false (and not connected) on failure.
    bool openConnection();
    //! Finalises the statements and closes the database; nothing is posted.
    void close();

    //! A cached prepared statement for `sql`, reset and unbound; null on failure.
    sqlite3_stmt *statement(const QByteArray &sql);
    //! Runs `sql` (one or more statements without results).
    bool exec(const char *sql);
    //! Logs a failure of `what`; marks the store damaged for corrupt or foreign files.
    void fail(int rc, const char *what);
    //! After an operation that found the file damaged: moves it aside and opens a fresh store.
    void recoverIfDamaged();
    //! Runs `body` inside BEGIN IMMEDIATE ... COMMIT, rolling back when it fails.
    template <typename Body> bool transaction(Body body)
    {
        if (!exec("BEGIN IMMEDIATE"))
            return false;
        if (body() && exec("COMMIT"))
            return true;
        rollback();
        return false;
    }
    void rollback();

    //! Writes `records` into `collection` and the index in one transaction, each archived in
    //! turn into one reused buffer; records without a key are left out. `index` tells a record's
    //! index columns; `written`, when given, is told of each record written and its row's id.
    template <typename Ptr>
    bool save(const char *collection, const QList<Ptr> &records,
        void (*index)(const typename Ptr::element_type &, IMDBIndexRow *),
        const std::function<void(const typename Ptr::element_type &, qint64 rowid)> &written = {});
    //! Writes one archived record and its index row; false (logged) on failure.
    bool saveRow(sqlite3_stmt *upsert, sqlite3_stmt *indexRow, const QByteArray &collection, const QByteArray &key,
        const QByteArray &data, const IMDBIndexRow &index, qint64 *rowid);
    QByteArray archive; //!< the text of the record being saved, its capacity kept between records
    static constexpr qsizetype kArchiveKept = 1 << 20;
    //! Runs an index query whose parameters `bind` sets; every readable record, in order
    //! (only those of `collection` when it is given: the others are not even decoded; then a
    //! room stored under the empty key is left out too).
    //! `expected` rows are made room for at once.
    QList<IMObjectPtr> query(const QByteArray &sql, const std::function<void(sqlite3_stmt *)> &bind,
        const QByteArray &collection = QByteArray(), qsizetype expected = 0);

private:
    bool openAt(const QString &path);
    bool migrate();
    void moveAside(const QString &path);
};

#include "IMDB.h"

#include "IMDB_p.h"
#include "IMDate.h"
#include "IMDispatch.h"
#include "IMJSONText_p.h"
#include "IMLog.h"
#include "IMStoredText_p.h"

#include <QFile>
#include <QLocale>
#include <limits>
#include <sqlite3.h>

namespace {
// The query fragments run on the secondary index, exactly as the store documents them.
const char kRoomListQuery[] = "ORDER BY lastMessageTime DESC";
const char kMessagePageQuery[] = "WHERE createdAt < ? AND roomID = ? ORDER BY createdAt DESC LIMIT ?";

// Records found through the index, joined with the records themselves.
QByteArray indexQuery(const char *fragment)
{
    return QByteArrayLiteral(
               "SELECT d.collection, d.key, d.data, d.rowid FROM \"secondaryIndex_Message-CreateAt-RoomID\" AS i"
               " JOIN \"database\" AS d ON d.rowid = i.rowid ")
        + fragment;
}

const QByteArray kUpsert
    = QByteArrayLiteral("INSERT INTO \"database\"(collection, key, data) VALUES(?, ?, ?)"
                        " ON CONFLICT(collection, key) DO UPDATE SET data = excluded.data RETURNING rowid");
const QByteArray kIndexRow = QByteArrayLiteral(
    "INSERT OR REPLACE INTO \"secondaryIndex_Message-CreateAt-RoomID\"(rowid, createdAt, roomID, lastMessageTime)"
    " VALUES(?, ?, ?, ?)");

// A date as the index keeps it: seconds since 1970 as a real; null when there is none.
void bindDate(sqlite3_stmt *stmt, int index, const QDateTime &date)
{
    if (date.isValid())
        sqlite3_bind_double(stmt, index, double(date.toMSecsSinceEpoch()) / 1000.0);
    else
        sqlite3_bind_null(stmt, index);
}

void bindText(sqlite3_stmt *stmt, int index, const QByteArray &utf8, bool isNull = false)
{
    if (isNull)
        sqlite3_bind_null(stmt, index);
    else
        sqlite3_bind_text(stmt, index, utf8.constData(), int(utf8.size()), SQLITE_STATIC);
}

void indexRoom(const IMRoom &room, IMDBIndexRow *row) { row->lastMessageTime = IMDate::toDate(room.lastMessageTime()); }

void indexMessage(const IMMessage &message, IMDBIndexRow *row)
{
    row->createdAt = IMDate::toDate(message.createdAt());
    if (const IMRoomPtr room = message.room())
        row->roomID = room->objectID();
}

// Reads a stored record other than a message back as the class its collection holds, without the
// initialisers' defaults, so that it equals the record that was stored (messages: IMStoredText).
IMObjectPtr recordFrom(const QByteArray &collection, const QByteArray &data)
{
    QVariantMap dict;
    if (!IMJSONText::parseObject(data.constData(), data.size(), &dict))
        return nullptr;
    IMObjectPtr record;
    if (collection == "Room")
        record = std::make_shared<IMRoom>();
    else
        record = std::make_shared<IMObject>();
    return record->mergeFromDictionary(dict) ? record : nullptr;
}
} // namespace

IMDB *IMDB::sharedInstance()
{
    // Created once, thread-safely, and kept for the process.
    static IMDB *const instance = new IMDB;
    return instance;
}

IMDB::IMDB()
    : d(std::make_shared<Private>())
{
    setupDatabse();
    setupConnection();
    std::weak_ptr<Private> weak = d;
    d->observer = IMNotificationCenter::defaultCenter()->addObserver(kIMDatabaseClosedNotification, QVariant(),
        IMDispatchQueue::mainQueue(), [weak](const IMNotification &notification) {
            std::shared_ptr<Private> d = weak.lock();
            if (!d)
                return;
            std::lock_guard<std::mutex> lock(d->mutex);
            // One error for the three removals: the last one that failed is reported.
            QString error;
            for (const QString &key : {kIMDatabasePathKey, kIMDatabasePathWalKey, kIMDatabasePathShmKey}) {
                const QString file = notification.userInfo.value(key).toString();
                if (file.isEmpty())
                    continue;
                QFile f(file);
                // A file that is already gone needs no removing.
                if (f.exists() && !f.remove())
                    error = QStringLiteral("%1: %2").arg(file, f.errorString());
            }
            if (!error.isNull())
                IM_LOG(QStringLiteral("Database remove failed: %1").arg(error));
            if (d->openDatabase()) {
                IM_LOG(QStringLiteral("database path: %1").arg(d->path));
                d->ensureSecondaryIndex();
                d->openConnection();
            }
        });
}

IMDB::~IMDB()
{
    IMNotificationCenter::defaultCenter()->removeObserver(d->observer);
    std::lock_guard<std::mutex> lock(d->mutex);
    d->close();
}

void IMDB::setupDatabse()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    if (!d->openDatabase())
        return;
    IM_LOG(QStringLiteral("database path: %1").arg(d->path));
    d->ensureSecondaryIndex();
}

void IMDB::setupSecondaryIndexes()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->db)
        d->ensureSecondaryIndex();
}

void IMDB::setupConnection()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->openConnection();
    d->recoverIfDamaged();
}

bool IMDB::Private::saveRow(sqlite3_stmt *upsert, sqlite3_stmt *indexRow, const QByteArray &collection,
    const QByteArray &key, const QByteArray &data, const IMDBIndexRow &index, qint64 *rowid)
{
    bindText(upsert, 1, collection);
    bindText(upsert, 2, key);
    bindText(upsert, 3, data);
    int rc = sqlite3_step(upsert);
    if (rc != SQLITE_ROW) {
        fail(rc, "save");
        return false;
    }
    *rowid = sqlite3_column_int64(upsert, 0);
    sqlite3_reset(upsert);

    const QByteArray roomID = index.roomID.toUtf8();
    sqlite3_bind_int64(indexRow, 1, *rowid);
    bindDate(indexRow, 2, index.createdAt);
    bindText(indexRow, 3, roomID, index.roomID.isNull());
    bindDate(indexRow, 4, index.lastMessageTime);
    if ((rc = sqlite3_step(indexRow)) != SQLITE_DONE) {
        fail(rc, "index");
        return false;
    }
    sqlite3_reset(indexRow);
    return true;
}

namespace {
// A batch's records lie scattered over the heap, and writing one waits on its cache misses one
// at a time. While record `i` is written, the ones after it are loaded in stages, each stage's
// reads served by the one before: the next record's texts, lists and maps in full, the one after
// its own texts and arrays, and the one after that its object.
template <typename Ptr> void prefetchAhead(const QList<Ptr> &records, qsizetype i)
{
    const qsizetype n = records.size();
    if (i + 1 < n && records.at(i + 1))
        IMStoredText::prefetch(*records.at(i + 1));
    if (i + 2 < n && records.at(i + 2))
        IMStoredText::prefetch(*records.at(i + 2), true);
    if (i + 3 < n)
        __builtin_prefetch(records.at(i + 3).get());
}
} // namespace

template <typename Ptr>
bool IMDB::Private::save(const char *collection, const QList<Ptr> &records,
    void (*index)(const typename Ptr::element_type &, IMDBIndexRow *),
    const std::function<void(const typename Ptr::element_type &, qint64)> &written)
{
    // Each record is archived just before it is written, into the same buffer: a batch costs no
    // allocation per text, and the text is still in the cache when SQLite copies it. (Archiving
    // takes a small part of a row's time, so it is done under the lock.) The records ahead are
    // loaded meanwhile.
    const QByteArray collectionName(collection);
    const bool ok = transaction([&] {
        sqlite3_stmt *upsert = statement(kUpsert);
        sqlite3_stmt *indexRow = statement(kIndexRow);
        if (!upsert || !indexRow)
            return false;
        for (qsizetype i = 0; i < records.size(); ++i) {
            const Ptr &record = records.at(i);
            // A record without a key is not stored: an empty key could never be replaced or removed.
            const QString key = record ? record->objectID() : QString();
            if (key.isEmpty())
                continue;
            archive.resize(0);
            IMStoredText::write(*record, &archive);
            prefetchAhead(records, i);
            IMDBIndexRow columns;
            index(*record, &columns);
            qint64 rowid = 0;
            if (!saveRow(upsert, indexRow, collectionName, key.toUtf8(), archive, columns, &rowid))
                return false;
            if (written)
                written(*record, rowid);
        }
        return true;
    });
    if (archive.capacity() > kArchiveKept)
        archive = QByteArray(); // an unusually large record's room is not kept
    recoverIfDamaged();
    return ok;
}

void IMDB::saveRooms(const QList<IMRoomPtr> &rooms)
{
    std::lock_guard<std::mutex> lock(d->mutex);
    if (!d->connected)
        return;
    // The cache keeps copies of its own (the caller may change its rooms afterwards), made while
    // each room is at hand and kept once the transaction holds.
    QVector<std::pair<qint64, IMRoomPtr>> copies;
    copies.reserve(rooms.size());
    if (d->save("Room", rooms, &indexRoom, [&copies](const IMRoom &room, qint64 rowid) {
            copies.append({rowid, room.copy()});
        }))
        for (const auto &[rowid, copy] : std::as_const(copies))
            d->cacheRoom(rowid, copy);
}

void IMDB::saveMessages(const QList<IMMessagePtr> &messages)
{
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->connected)
        d->save("Message", messages, &indexMessage);
}

void IMDB::Private::cacheRoom(qint64 rowid, const IMRoomPtr &room)
{
    if (room && (roomCache.size() < kRoomCacheLimit || roomCache.contains(rowid)))
        roomCache.insert(rowid, room);
}

QList<IMObjectPtr> IMDB::Private::query(
    const QByteArray &sql, const std::function<void(sqlite3_stmt *)> &bind, const QByteArray &only, qsizetype expected)
{
    QList<IMObjectPtr> out;
    if (!connected)
        return out;
    sqlite3_stmt *stmt = statement(sql);
    if (!stmt) {
        recoverIfDamaged();
        return out;
    }
    bind(stmt);
    // Column texts are looked at in place: a row costs no copies until it becomes a record.
    const auto text = [stmt](int column) {
        const char *data = reinterpret_cast<const char *>(sqlite3_column_text(stmt, column));
        return QByteArray::fromRawData(data, data ? sqlite3_column_bytes(stmt, column) : 0);
    };
    // Messages, which are never cached, become records as they are read, straight from the
    // column's text: only their nested records' texts are kept, once for a run of messages that
    // share them. Other rows are read first and become records afterwards, in their places: a
    // cached room's copy first touches the cached record's data, one cache miss per row, which
    // among SQLite's work came one at a time and was most of a cached read's cost; together, with
    // the records fetched ahead, the misses overlap.
    struct Row {
        qsizetype at; //!< its place in `out`
        QByteArray collection; //!< one of the names below, or a copy
        QByteArray data; //!< the archived record, unless the room is cached
        const IMRoom *cached;
        qint64 rowid;
    };
    QVector<Row> rows;
    rows.reserve(expected);
    out.reserve(expected);
    IMStoredText::ReadContext shared;
    bool unread = false; // a message whose text did not map left a null in `out`
    static const QByteArray kRoom = QByteArrayLiteral("Room");
    static const QByteArray kMessage = QByteArrayLiteral("Message");
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        const QByteArray collection = text(0);
        if (!only.isNull() && collection != only)
            continue;
        if (collection == kMessage) {
            const QByteArray data = text(2);
            out.append(IMStoredText::readMessage(data.constData(), data.size(), &shared));
            unread |= !out.last();
            continue;
        }
        const bool isRoom = collection == kRoom;
        const qint64 rowid = isRoom ? sqlite3_column_int64(stmt, 3) : 0;
        // Stores written by earlier versions may hold a room under the empty key: it is no room to list.
        if (isRoom && !only.isNull() && sqlite3_column_bytes(stmt, 1) == 0)
            continue;
        const auto cached = isRoom ? roomCache.constFind(rowid) : roomCache.constEnd();
        if (cached != roomCache.constEnd()) {
            rows.append({out.size(), kRoom, QByteArray(), cached.value().get(), rowid});
        } else {
            // Copies of their own: a column's text lasts until the next step.
            const QByteArray data = text(2);
            rows.append({out.size(), isRoom ? kRoom : QByteArray(collection.constData(), collection.size()),
                QByteArray(data.constData(), data.size()), nullptr, rowid});
        }
        out.append(nullptr);
    }
    if (rc != SQLITE_DONE)
        fail(rc, "query");
    sqlite3_reset(stmt);

    constexpr qsizetype kAhead = 8;
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const Row &row = rows.at(i);
        if (row.cached) {
#if defined(__GNUC__)
            if (i + kAhead < rows.size())
                __builtin_prefetch(rows.at(i + kAhead).cached);
#endif
            out[row.at] = IMStoredText::copyCached(*row.cached);
        } else if (IMObjectPtr record = recordFrom(row.collection, row.data)) {
            if (row.collection == kRoom)
                cacheRoom(row.rowid, std::static_pointer_cast<IMRoom>(record)->copy());
            out[row.at] = std::move(record);
        } else {
            unread = true;
        }
    }
    if (unread)
        out.removeAll(nullptr);
    recoverIfDamaged();
    return out;
}

QList<IMObjectPtr> IMDB::getAllRecords()
{
    static const QByteArray sql = indexQuery(kRoomListQuery);
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->query(sql, [](sqlite3_stmt *) {});
}

QList<IMRoomPtr> IMDB::getAllRooms()
{
    static const QByteArray sql = indexQuery(kRoomListQuery);
    QList<IMObjectPtr> records;
    {
        std::lock_guard<std::mutex> lock(d->mutex);
        records = d->query(
            sql, [](sqlite3_stmt *) {}, QByteArrayLiteral("Room"), d->roomCache.size());
    }
    // Only rooms were kept (made as IMRoom from the "Room" collection), none under the empty key.
    QList<IMRoomPtr> rooms;
    rooms.reserve(records.size());
    for (IMObjectPtr &record : records)
        rooms.append(std::static_pointer_cast<IMRoom>(std::move(record)));
    return rooms;
}

QList<IMMessagePtr> IMDB::queryMessagesForRoom(const IMRoomPtr &room, const QDateTime &date, quint64 limit)
{
    static const QByteArray sql = indexQuery(kMessagePageQuery);
    const QString roomID = room ? room->objectID() : QString();
    const QByteArray roomUtf8 = roomID.toUtf8();
    const sqlite3_int64 rows = sqlite3_int64(qMin<quint64>(limit, quint64(std::numeric_limits<sqlite3_int64>::max())));
    QList<IMObjectPtr> records;
    {
        std::lock_guard<std::mutex> lock(d->mutex);
        records = d->query(
            sql,
            [&](sqlite3_stmt *stmt) {
                bindDate(stmt, 1, date);
                bindText(stmt, 2, roomUtf8, roomID.isNull());
                sqlite3_bind_int64(stmt, 3, rows);
            },
            QByteArray(), qsizetype(qMin<quint64>(limit, 1000)));
    }
    // The query gives the page newest first; callers get it oldest first.
    QList<IMMessagePtr> page;
    page.reserve(records.size());
    for (auto it = records.crbegin(); it != records.crend(); ++it)
        if (auto message = std::dynamic_pointer_cast<IMMessage>(*it))
            page.append(std::move(message));
    return page;
}

void IMDB::resetDatabase()
{
    QVariantMap paths;
    {
        std::lock_guard<std::mutex> lock(d->mutex);
        if (!d->db)
            return;
        const QString file = d->path;
        d->close();
        d->path.clear();
        paths = {{kIMDatabasePathKey, file}, {kIMDatabasePathWalKey, file + QStringLiteral("-wal")},
            {kIMDatabasePathShmKey, file + QStringLiteral("-shm")}};
    }
    // The database has let go of its files: say so; the observer finishes the reset.
    IMNotificationCenter::defaultCenter()->post(kIMDatabaseClosedNotification, QVariant(), paths);
}

void IMDB::registerRoomMessagesView()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    if (!d->connected || d->viewRegistered)
        return;
    // Messages grouped by their room's id; a temporary view lives as long as this connection.
    d->viewRegistered = d->exec("CREATE TEMP VIEW IF NOT EXISTS \"Room-Messages\" AS"
                                " SELECT i.roomID AS \"group\", i.createdAt AS createdAt, d.data AS data"
                                " FROM main.\"secondaryIndex_Message-CreateAt-RoomID\" AS i"
                                " JOIN main.\"database\" AS d ON d.rowid = i.rowid"
                                " WHERE d.collection = 'Message' AND i.roomID IS NOT NULL");
    d->recoverIfDamaged();
}

bool IMDB::isRoomMessagesViewRegistered() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->viewRegistered;
}

QList<IMMessagePtr> IMDB::roomMessagesViewGroup(const QString &roomID)
{
    static const QByteArray sql
        = "SELECT 'Message', NULL, data, NULL FROM temp.\"Room-Messages\" WHERE \"group\" = ? ORDER BY createdAt ASC";
    const QByteArray group = roomID.toUtf8();
    QList<IMObjectPtr> records;
    {
        std::lock_guard<std::mutex> lock(d->mutex);
        if (!d->viewRegistered)
            return {};
        records = d->query(sql, [&](sqlite3_stmt *stmt) { bindText(stmt, 1, group); });
    }
    QList<IMMessagePtr> messages;
    for (const IMObjectPtr &record : records)
        if (auto message = std::dynamic_pointer_cast<IMMessage>(record))
            messages.append(std::move(message));
    return messages;
}

QString IMDB::roomMessagesViewVersionTag() { return QStringLiteral("%1-%2-%3").arg(1).arg(1).arg(QLocale().name()); }

bool IMDB::isOpen() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->db && d->connected;
}

QString IMDB::databasePath() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->db ? d->path : QString();
}

int IMDB::schemaVersion() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    if (!d->db)
        return 0;
    sqlite3_stmt *stmt = d->statement("PRAGMA user_version");
    const int version = stmt && sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_int(stmt, 0) : 0;
    if (stmt)
        sqlite3_reset(stmt);
    return version;
}

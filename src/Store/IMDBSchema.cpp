// The store's SQLite connection: opening, schema migrations and unreadable files.
#include "IMDB_p.h"
#include "IMLog.h"
#include "IMPlatform.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <sqlite3.h>

namespace {
// Numbered schema changes; a file at version N has had migrations 1..N applied, each in its
// own transaction. Append new ones; never edit a shipped one.
struct Migration {
    int version;
    const char *sql;
};

// The secondary index: one table for every collection, a row per indexed record sharing the
// record's rowid, with SQL indexes for the room list and for a room's history.
#define IMDB_SECONDARY_INDEX_SQL                                                                                       \
    "CREATE TABLE IF NOT EXISTS \"secondaryIndex_Message-CreateAt-RoomID\"("                                           \
    "  rowid INTEGER PRIMARY KEY,"                                                                                     \
    "  createdAt REAL,"                                                                                                \
    "  roomID TEXT,"                                                                                                   \
    "  lastMessageTime REAL);"                                                                                         \
    "CREATE INDEX IF NOT EXISTS \"secondaryIndex_lastMessageTime\""                                                    \
    "  ON \"secondaryIndex_Message-CreateAt-RoomID\"(lastMessageTime);"                                                \
    "CREATE INDEX IF NOT EXISTS \"secondaryIndex_roomID_createdAt\""                                                   \
    "  ON \"secondaryIndex_Message-CreateAt-RoomID\"(roomID, createdAt);"

const Migration kMigrations[] = {
    {1,
        "CREATE TABLE IF NOT EXISTS \"database\"("
        "  rowid INTEGER PRIMARY KEY,"
        "  collection TEXT NOT NULL,"
        "  key TEXT NOT NULL,"
        "  data TEXT NOT NULL);"
        "CREATE UNIQUE INDEX IF NOT EXISTS \"database_collection_key\" ON \"database\"(collection, "
        "key);" IMDB_SECONDARY_INDEX_SQL},
};

constexpr int kBusyTimeoutMs = 5000;
} // namespace

int IMDB::currentSchemaVersion() { return kMigrations[std::size(kMigrations) - 1].version; }

IMDB::Private::~Private() { close(); }

QString IMDB::Private::defaultPath()
{
    return QDir(IMPlatform::instance()->documentsPath()).filePath(QStringLiteral("parlo_db"));
}

bool IMDB::Private::exec(const char *sql)
{
    char *message = nullptr;
    const int rc = sqlite3_exec(db, sql, nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        IM_LOG(QStringLiteral("Database statement failed: %1 (%2)")
                   .arg(QString::fromUtf8(message ? message : sqlite3_errstr(rc)))
                   .arg(rc));
        if ((rc & 0xff) == SQLITE_CORRUPT || (rc & 0xff) == SQLITE_NOTADB)
            damaged = true;
    }
    sqlite3_free(message);
    return rc == SQLITE_OK;
}

void IMDB::Private::fail(int rc, const char *what)
{
    IM_LOG(QStringLiteral("Database %1 failed: %2 (%3)")
               .arg(QLatin1String(what), QString::fromUtf8(db ? sqlite3_errmsg(db) : sqlite3_errstr(rc)))
               .arg(rc));
    if ((rc & 0xff) == SQLITE_CORRUPT || (rc & 0xff) == SQLITE_NOTADB)
        damaged = true;
}

sqlite3_stmt *IMDB::Private::statement(const QByteArray &sql)
{
    if (!db)
        return nullptr;
    sqlite3_stmt *stmt = statements.value(sql);
    if (stmt) {
        sqlite3_reset(stmt);
        sqlite3_clear_bindings(stmt);
        return stmt;
    }
    const int rc = sqlite3_prepare_v3(db, sql.constData(), int(sql.size()), SQLITE_PREPARE_PERSISTENT, &stmt, nullptr);
    if (rc != SQLITE_OK) {
        fail(rc, "prepare");
        sqlite3_finalize(stmt);
        return nullptr;
    }
    statements.insert(sql, stmt);
    return stmt;
}

void IMDB::Private::rollback() { sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr); }

bool IMDB::Private::ensureSecondaryIndex() { return exec(IMDB_SECONDARY_INDEX_SQL); }

bool IMDB::Private::migrate()
{
    int version = -1;
    sqlite3_stmt *stmt = nullptr;
    int rc = sqlite3_prepare_v2(db, "PRAGMA user_version", -1, &stmt, nullptr);
    if (rc == SQLITE_OK && (rc = sqlite3_step(stmt)) == SQLITE_ROW)
        version = sqlite3_column_int(stmt, 0);
    sqlite3_finalize(stmt);
    if (version < 0) {
        fail(rc, "schema version read");
        return false;
    }
    if (version > currentSchemaVersion())
        IM_LOG(QStringLiteral("Database schema version %1 is newer than %2; opening it as it is")
                   .arg(version)
                   .arg(currentSchemaVersion()));
    for (const Migration &migration : kMigrations) {
        if (migration.version <= version)
            continue;
        const QByteArray setVersion = "PRAGMA user_version = " + QByteArray::number(migration.version);
        if (!transaction([&] { return exec(migration.sql) && exec(setVersion.constData()); }))
            return false;
    }
    return true;
}

bool IMDB::Private::openAt(const QString &file)
{
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    int rc = sqlite3_open_v2(QFile::encodeName(file).constData(), &db, flags, nullptr);
    if (rc != SQLITE_OK) {
        fail(rc, "open");
        sqlite3_close_v2(db);
        db = nullptr;
        return false;
    }
    sqlite3_extended_result_codes(db, 1);
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    path = file;
    // The first statements read the header and the schema: a foreign or damaged file shows here.
    bool ok = exec("PRAGMA journal_mode = WAL") && exec("PRAGMA synchronous = NORMAL")
        && exec("PRAGMA cache_size = -32768") && exec("PRAGMA mmap_size = 268435456")
        && exec("SELECT count(*) FROM sqlite_master") && migrate();
    return ok;
}

void IMDB::Private::moveAside(const QString &file)
{
    const QString aside = file + QStringLiteral(".corrupt-")
        + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMddHHmmsszzz"));
    for (const char *suffix : {"", "-wal", "-shm"}) {
        const QString from = file + QLatin1String(suffix);
        if (QFile::exists(from) && !QFile::rename(from, aside + QLatin1String(suffix)) && !QFile::remove(from))
            IM_LOG(QStringLiteral("Database file %1 could not be moved aside").arg(from));
    }
    IM_LOG(
        QStringLiteral("Database %1 is unreadable; moved aside to %2 and replaced by an empty store").arg(file, aside));
}

bool IMDB::Private::openDatabase()
{
    close();
    const QString file = defaultPath();
    damaged = false;
    if (openAt(file))
        return true;
    const bool replace = damaged;
    close();
    if (!replace)
        return false;
    moveAside(file);
    damaged = false;
    if (openAt(file))
        return true;
    close();
    return false;
}

bool IMDB::Private::openConnection()
{
    connected = false;
    if (!db)
        return false;
    // Preparing the operations' statements checks that the schema is what this build expects.
    static const char *const required[] = {
        "SELECT rowid FROM \"database\" LIMIT 0",
        "SELECT rowid, createdAt, roomID, lastMessageTime FROM \"secondaryIndex_Message-CreateAt-RoomID\" LIMIT 0",
    };
    for (const char *sql : required)
        if (!statement(QByteArray(sql)))
            return false;
    connected = true;
    return true;
}

void IMDB::Private::close()
{
    for (sqlite3_stmt *stmt : std::as_const(statements))
        sqlite3_finalize(stmt);
    statements.clear();
    roomCache.clear();
    connected = false;
    viewRegistered = false;
    if (db) {
        const int rc = sqlite3_close_v2(db);
        if (rc != SQLITE_OK)
            IM_LOG(QStringLiteral("Database close failed: %1").arg(QString::fromUtf8(sqlite3_errstr(rc))));
        db = nullptr;
    }
}

void IMDB::Private::recoverIfDamaged()
{
    if (!damaged)
        return;
    const QString file = path;
    close();
    moveAside(file);
    damaged = false;
    if (!openAt(file) || !ensureSecondaryIndex() || !openConnection())
        close();
}

// Emptying the store: the reset and its in-between state, failed removals, and files that
// are not (or no longer) databases.
#include "StoreFixture.h"

#include <QFile>
#include <atomic>
#include <thread>

namespace {
QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}
} // namespace

TEST_F(StoreTest, ResetDropsEverythingAndIgnoresCallsUntilTheMainQueueRuns)
{
    IMRoomPtr r1 = room("r1", second(1));
    db->saveRooms({r1});
    db->saveMessages({message("m1", r1, second(1))});
    db->registerRoomMessagesView();
    const QString path = db->databasePath();

    db->resetDatabase();
    // In between: nothing is stored, nothing is read, nothing is registered.
    EXPECT_FALSE(db->isOpen());
    db->saveRooms({room("lost", second(2))});
    db->saveMessages({message("lost", r1, second(2))});
    EXPECT_TRUE(db->getAllRooms().isEmpty());
    EXPECT_TRUE(db->queryMessagesForRoom(r1, IMDate::toDate(second(9)), 10).isEmpty());
    db->registerRoomMessagesView();
    EXPECT_FALSE(db->isRoomMessagesViewRegistered());
    db->resetDatabase(); // already reset: nothing more happens
    EXPECT_FALSE(QFile::exists(path + "-wal"));

    ASSERT_TRUE(waitUntil([&] { return db->isOpen(); }));
    EXPECT_EQ(db->databasePath(), path);
    EXPECT_TRUE(db->getAllRecords().isEmpty());
    EXPECT_FALSE(db->isRoomMessagesViewRegistered()); // not registered again
    db->saveRooms({room("r2", second(3))});
    EXPECT_EQ(ids(db->getAllRooms()), (QStringList {"r2"}));
    spinFor(20); // a second re-creation would have emptied the store again
    EXPECT_EQ(db->getAllRooms().size(), 1);
}

TEST_F(StoreTest, ResetWhileOtherThreadsWorkNeverCrashesOrRaces)
{
    std::atomic<bool> stop {false};
    std::thread worker([&] {
        IMRoomPtr r = room("w", second(1));
        for (int i = 0; !stop; ++i) {
            db->saveRooms({room(QStringLiteral("w%1").arg(i), second(i))});
            db->saveMessages({message(QStringLiteral("m%1").arg(i), r, second(i))});
            (void)db->getAllRooms();
            (void)db->queryMessagesForRoom(r, IMDate::toDate(second(i + 1)), 3);
        }
    });
    for (int i = 0; i < 3; ++i) {
        spinFor(15);
        db->resetDatabase();
        ASSERT_TRUE(waitUntil([&] { return db->isOpen(); }));
    }
    stop = true;
    worker.join();
    EXPECT_TRUE(db->isOpen());
    db->saveRooms({room("after", second(99999))});
    EXPECT_EQ(db->getAllRooms().value(0)->objectID(), "after");
}

TEST_F(StoreTest, AFailedRemovalIsLoggedOnceAndTheStoreComesBack)
{
    db->saveRooms({room("kept", second(1))});
    // Three paths that cannot be removed: non-empty folders.
    QStringList blocked;
    for (const char *name : {"x", "x-wal", "x-shm"}) {
        const QString dir = QDir(folder).filePath(name);
        QDir().mkpath(dir + "/inside");
        blocked << dir;
    }
    LogCapture log;
    // Any closed database triggers the removal of its files and a re-creation of the store.
    IMNotificationCenter::defaultCenter()->post(kIMDatabaseClosedNotification, QVariant(),
        {{kIMDatabasePathKey, blocked[0]}, {kIMDatabasePathWalKey, blocked[1]}, {kIMDatabasePathShmKey, blocked[2]}});
    ASSERT_TRUE(waitUntil([&] { return log.count("database path: ") == 1; }));
    EXPECT_EQ(log.count("Database remove failed: "), 1);
    EXPECT_TRUE(log.lines().filter("Database remove failed: ").value(0).contains("x-shm")); // the last failure
    EXPECT_TRUE(db->isOpen());
    EXPECT_EQ(ids(db->getAllRooms()), (QStringList {"kept"})); // its own file was not among them

    // Files that are already gone are no failure.
    LogCapture quiet;
    db->resetDatabase();
    ASSERT_TRUE(waitUntil([&] { return db->isOpen(); }));
    EXPECT_EQ(quiet.count("Database remove failed"), 0);
    EXPECT_TRUE(db->getAllRooms().isEmpty());
}

TEST_F(StoreTest, UnreadableFilesAreMovedAsideAndANewerVersionOpensAsItIs)
{
    // Three files made from a complete copy of a closed store (the reset lets go of the file).
    QList<IMRoomPtr> rooms;
    for (int i = 0; i < 200; ++i)
        rooms << room(QStringLiteral("r%1").arg(i), second(i), QString(500, QLatin1Char('x')));
    db->saveRooms(rooms);
    const QString path = db->databasePath();
    db->resetDatabase();
    const QByteArray closed = readFile(path);
    ASSERT_TRUE(waitUntil([&] { return db->isOpen(); }));
    ASSERT_GT(closed.size(), 8192);
    QByteArray newer = closed;
    newer[63] = char(99); // the header's user version (big-endian at offset 60), beyond ours
    QByteArray damaged = closed;
    for (int i = 100; i < 4096; ++i) // the schema page overwritten
        damaged[i] = char(0xA5);
    const QByteArray text
        = QByteArray("this is not a database, just some text that happens to be here\n").repeated(200);

    const QByteArray files[] = {newer, text, damaged};
    for (const QByteArray &bytes : files) {
        const bool isNewer = &bytes == &files[0];
        SCOPED_TRACE(isNewer ? "newer" : &bytes == &files[1] ? "text" : "damaged");
        const QString other = makeTempDir();
        writeFile(QDir(other).filePath("parlo_db"), bytes);
        IMPlatform::instance()->setDocumentsPath(other);
        LogCapture log;
        db->setupDatabse();
        db->setupConnection();
        ASSERT_TRUE(db->isOpen());
        EXPECT_EQ(db->databasePath(), QDir(other).filePath("parlo_db"));
        const QStringList aside = QDir(other).entryList({"parlo_db.corrupt-*"}, QDir::Files);
        if (isNewer) {
            EXPECT_EQ(db->schemaVersion(), 99);
            EXPECT_EQ(ids(db->getAllRooms()).mid(0, 2), (QStringList {"r199", "r198"}));
            EXPECT_EQ(db->getAllRooms().size(), 200);
            EXPECT_TRUE(aside.isEmpty());
            continue;
        }
        EXPECT_TRUE(db->getAllRooms().isEmpty());
        db->saveRooms({room("fresh", second(1))});
        EXPECT_EQ(ids(db->getAllRooms()), (QStringList {"fresh"}));
        ASSERT_EQ(aside.size(), 1);
        EXPECT_EQ(readFile(QDir(other).filePath(aside.first())), bytes); // kept, not deleted
        EXPECT_EQ(log.count("is unreadable; moved aside"), 1);
    }
}

// The store's file, ordering, replacement, paging and threads.
#include "StoreFixture.h"

#include <QFile>
#include <atomic>
#include <thread>
#include <vector>

TEST_F(StoreTest, FreshStoreIsAnEmptyVersionedWalFileWithItsIndex)
{
    EXPECT_TRUE(db->getAllRooms().isEmpty());
    EXPECT_TRUE(db->getAllRecords().isEmpty());
    EXPECT_EQ(db->schemaVersion(), IMDB::currentSchemaVersion());
    db->saveRooms({room("r1", second(1))});
    EXPECT_TRUE(QFile::exists(QDir(folder).filePath("parlo_db")));
    EXPECT_TRUE(QFile::exists(QDir(folder).filePath("parlo_db-wal")));

    // Another connection sees the committed room and WAL mode on the file.
    EXPECT_EQ(sqlColumn(db->databasePath(), "PRAGMA journal_mode"), QStringList {"wal"});
    EXPECT_EQ(
        sqlColumn(db->databasePath(), "SELECT count(*) FROM \"database\" WHERE collection = 'Room' AND key = 'r1'"),
        QStringList {"1"});

    // The index serves the message page and the room list without sorting.
    const auto plan = [this](const char *fragment) {
        const QByteArray sql = QByteArray("EXPLAIN QUERY PLAN SELECT d.collection, d.data FROM "
                                          "\"secondaryIndex_Message-CreateAt-RoomID\" AS i JOIN \"database\" AS d "
                                          "ON d.rowid = i.rowid ")
            + fragment;
        return sqlColumn(db->databasePath(), sql.constData(), 3).join(" | ");
    };
    const QString page = plan("WHERE createdAt < ? AND roomID = ? ORDER BY createdAt DESC LIMIT ?");
    EXPECT_TRUE(page.contains("secondaryIndex_roomID_createdAt (roomID=? AND createdAt<?)")) << page.toStdString();
    EXPECT_FALSE(page.contains("TEMP B-TREE")) << page.toStdString();
    const QString list = plan("ORDER BY lastMessageTime DESC");
    EXPECT_FALSE(list.contains("TEMP B-TREE")) << list.toStdString();
}

TEST_F(StoreTest, RoomsComeNewestFirstReplacementMovesThemAndMessagesFollow)
{
    db->saveRooms({});
    EXPECT_TRUE(db->getAllRooms().isEmpty());

    db->saveRooms({room("old", second(10)), room("none", QString()), room("new", second(30)), room("bad", "yesterday"),
        room("mid", second(20)), room(QString(), second(99)), nullptr});
    const QStringList order = ids(db->getAllRooms());
    ASSERT_EQ(order.size(), 5);
    EXPECT_EQ(order.mid(0, 3), (QStringList {"new", "mid", "old"}));
    // Rooms without a readable time come last, in the engine's order.
    EXPECT_EQ(QSet<QString>(order.begin() + 3, order.end()), (QSet<QString> {"none", "bad"}));

    db->saveRooms({room("old", second(40), "renamed")});
    const QList<IMRoomPtr> rooms = db->getAllRooms();
    EXPECT_EQ(ids(rooms).mid(0, 3), (QStringList {"old", "new", "mid"}));
    EXPECT_EQ(rooms.size(), 5);
    EXPECT_EQ(rooms.first()->name(), "renamed");

    // All records in the room list's order: messages, however recent, have no room time and
    // follow the timed rooms with the rooms that have none.
    db->saveMessages({message("m1", rooms.first(), second(100)), message("m2", nullptr, second(3))});
    const QList<IMObjectPtr> records = db->getAllRecords();
    const QStringList all = ids(records);
    ASSERT_EQ(all.size(), 7);
    EXPECT_EQ(all.mid(0, 3), (QStringList {"old", "new", "mid"}));
    EXPECT_EQ(QSet<QString>(all.begin() + 3, all.end()), (QSet<QString> {"none", "bad", "m1", "m2"}));
    EXPECT_EQ(std::count_if(records.begin(), records.end(),
                  [](const IMObjectPtr &r) { return bool(std::dynamic_pointer_cast<IMMessage>(r)); }),
        2);
}

TEST_F(StoreTest, RecordsReadBackEqualWhatWasStored)
{
    IMRoomPtr stored = IMRoom::fromDictionary(
        {{"id", "r1"}, {"name", "Team 🚀"}, {"isPublic", false}, {"badge", 0}, {"lastMessageTime", second(1)},
            {"client", QVariantList {QVariantMap {{"clientID", "a"}}}}, {"readTime", QVariantMap {{"a", second(1)}}},
            {"sender", QVariantMap {{"id", "c1"}, {"totalBadge", 2}}}, {"data", QVariantMap {}}});
    ASSERT_TRUE(stored);
    db->saveRooms({stored});
    const QList<IMRoomPtr> rooms = db->getAllRooms();
    ASSERT_EQ(rooms.size(), 1);
    EXPECT_NE(rooms.first(), stored); // a new record
    EXPECT_EQ(rooms.first()->toDictionary(), stored->toDictionary());
    // Neither the saved record nor a returned one is tied to what is stored.
    const QVariantMap saved = stored->toDictionary();
    stored->setName("changed after saving");
    stored->sender()->setClientID("changed too");
    rooms.first()->setName("changed by a reader");
    rooms.first()->sender()->setUsername("also changed");
    EXPECT_EQ(db->getAllRooms().first()->toDictionary(), saved);

    IMMessagePtr sent = message("m1", stored, second(5));
    sent->setTemp(QStringLiteral("never stored"));
    sent->setSendingType(2);
    sent->setOption(std::make_shared<IMMessageOption>());
    db->saveMessages({sent});
    const QList<IMMessagePtr> page = db->queryMessagesForRoom(stored, QDateTime::currentDateTimeUtc(), 10);
    ASSERT_EQ(page.size(), 1);
    // Unset properties stay unset: reading back does not apply a new message's defaults.
    EXPECT_EQ(page.first()->toDictionary(), sent->toDictionary());
    EXPECT_FALSE(page.first()->temp().isValid());

    // A message's nested records, and a listed room's sender, are made when first used: by
    // several threads at once (a page's messages keep the room's and sender's texts once), or
    // after one of them was replaced, which must then stay.
    sent->setSender(IMClient::fromDictionary({{"id", "c9"}}));
    IMMessagePtr next = message("m2", stored, second(6));
    next->setSender(sent->sender());
    db->saveMessages({sent, next});
    const QList<IMMessagePtr> both = db->queryMessagesForRoom(stored, QDateTime::currentDateTimeUtc(), 10);
    ASSERT_EQ(both.size(), 2);
    const IMRoomPtr listed = db->getAllRooms().value(0);
    std::vector<std::thread> readers;
    std::atomic<int> same {0};
    for (int t = 0; t < 4; ++t)
        readers.emplace_back([&, t] {
            const IMMessagePtr &shared = both.at(t % 2);
            same += int(shared->room()->objectID() == "r1" && shared->sender()->objectID() == "c9"
                && listed->sender()->objectID() == "c1");
        });
    for (auto &reader : readers)
        reader.join();
    EXPECT_EQ(same.load(), 4);
    EXPECT_NE(both.at(0)->room(), both.at(1)->room()); // records of their own
    both.at(0)->room()->setName("one page's room");
    EXPECT_EQ(both.at(1)->room()->name(), stored->name());
    const IMMessagePtr replaced = db->queryMessagesForRoom(stored, QDateTime::currentDateTimeUtc(), 10).value(0);
    replaced->setSender(nullptr);
    EXPECT_EQ(replaced->room()->objectID(), "r1");
    EXPECT_FALSE(replaced->sender());
    EXPECT_TRUE(replaced->option());
}

TEST_F(StoreTest, MessagePagesAreStrictlyOlderOneRoomOldestFirst)
{
    IMRoomPtr a = room("a", second(0));
    IMRoomPtr b = room("b", second(0));
    QList<IMMessagePtr> messages;
    for (int i = 0; i < 10; ++i) {
        messages << message(QStringLiteral("a%1").arg(i), a, second(i));
        messages << message(QStringLiteral("b%1").arg(i), b, second(i));
    }
    messages << message("nodate", a, QString());
    db->saveMessages(messages);

    // a7 itself is excluded ("<"), the four before it come back oldest first.
    const QDateTime at7 = IMDate::toDate(second(7));
    EXPECT_EQ(ids(db->queryMessagesForRoom(a, at7, 4)), (QStringList {"a3", "a4", "a5", "a6"}));
    EXPECT_EQ(ids(db->queryMessagesForRoom(a, at7.addMSecs(1), 2)), (QStringList {"a6", "a7"}));
    EXPECT_EQ(ids(db->queryMessagesForRoom(b, at7, 100)).size(), 7);
    EXPECT_TRUE(db->queryMessagesForRoom(a, at7, 0).isEmpty());
    EXPECT_TRUE(db->queryMessagesForRoom(room("other", QString()), at7, 10).isEmpty());
    EXPECT_TRUE(db->queryMessagesForRoom(nullptr, at7, 10).isEmpty());
    EXPECT_TRUE(db->queryMessagesForRoom(a, QDateTime(), 10).isEmpty());
    EXPECT_EQ(db->queryMessagesForRoom(a, at7, std::numeric_limits<quint64>::max()).size(), 7);

    // A re-saved message moves with its new date.
    db->saveMessages({message("a0", a, second(50))});
    EXPECT_EQ(ids(db->queryMessagesForRoom(a, at7, 2)), (QStringList {"a5", "a6"}));
    EXPECT_EQ(ids(db->queryMessagesForRoom(a, IMDate::toDate(second(60)), 1)), (QStringList {"a0"}));
}

TEST_F(StoreTest, RoomMessagesViewGroupsByRoomOnlyOnRequest)
{
    IMRoomPtr a = room("a", second(0));
    db->saveMessages({message("a2", a, second(2)), message("a1", a, second(1)), message("x", nullptr, second(1))});
    EXPECT_FALSE(db->isRoomMessagesViewRegistered());
    EXPECT_TRUE(db->roomMessagesViewGroup("a").isEmpty());
    db->registerRoomMessagesView();
    EXPECT_TRUE(db->isRoomMessagesViewRegistered());
    EXPECT_EQ(ids(db->roomMessagesViewGroup("a")), (QStringList {"a1", "a2"}));
    EXPECT_TRUE(db->roomMessagesViewGroup("b").isEmpty());
    EXPECT_EQ(IMDB::roomMessagesViewVersionTag(), "1-1-" + QLocale().name());
}

TEST_F(StoreTest, ConcurrentOperationsFromManyThreadsKeepEveryWrite)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 40;
    std::vector<std::thread> threads;
    std::atomic<int> reads {0};
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            IMRoomPtr mine = room(QStringLiteral("t%1").arg(t), second(t));
            for (int i = 0; i < kRounds; ++i) {
                db->saveRooms({room(QStringLiteral("t%1-%2").arg(t).arg(i), second(i))});
                db->saveMessages({message(QStringLiteral("t%1-m%2").arg(t).arg(i), mine, second(i))});
                reads += int(db->getAllRooms().size() > 0);
                reads += int(db->queryMessagesForRoom(mine, IMDate::toDate(second(1000)), 5).size() > 0);
            }
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(db->getAllRooms().size(), kThreads * kRounds);
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(
            db->queryMessagesForRoom(room(QStringLiteral("t%1").arg(t), QString()), IMDate::toDate(second(1000)), 1000)
                .size(),
            kRounds);
    EXPECT_EQ(reads.load(), 2 * kThreads * kRounds);
}

// Life events become connection statuses; pushed events change the room list, the badge and
// the store, and are announced delegate first, in their order.
#include "CoreFixture.h"

TEST_F(CoreTest, LifeEventsBecomeStatusesAnnouncedInPairs)
{
    int statusAtConnectBlock = -1;
    parlo->setSocketFactory([this](const QUrl &, const QVariantMap &options) {
        EXPECT_EQ(options.value("reconnectWait").toInt(), 3); // options pass through unchanged
        socket = new ScriptedSocket;
        return socket;
    });
    EXPECT_EQ(parlo->connectStatus(), 1);
    parlo->connectWithURL("http://127.0.0.1:9", QVariantMap {{"reconnectWait", 3}},
        [&] { statusAtConnectBlock = parlo->connectStatus(); });
    EXPECT_EQ(parlo->domainString(), "http://127.0.0.1:9");
    EXPECT_EQ(socket->connectCalls, 1);

    const QStringList events {
        "connect", "disconnect", "error", "reconnect", "reconnectAttempt", "reconnecting", "reconnectfailed"};
    for (int status = 0; status < events.size(); ++status) {
        recorder.events.clear();
        socket->push(
            events[status], status == 1 ? QVariantList() : QVariantList {QStringLiteral("why %1").arg(status)});
        EXPECT_EQ(parlo->connectStatus(), status);
        const QString message = status == 1 ? "" : QStringLiteral("why %1").arg(status);
        EXPECT_EQ(recorder.events,
            (QStringList {QStringLiteral("d:ChangeConnectStatus %1 %2").arg(status).arg(message),
                "n:didChangeConnectStatus", "n:ParloDidChangeConnectStatus"}));
        for (const IMNotification &n : recorder.notifications.mid(recorder.notifications.size() - 2)) {
            EXPECT_FALSE(n.object.isValid());
            EXPECT_EQ(n.userInfo.value("status").toInt(), status);
            EXPECT_EQ(n.userInfo.value("message").toString(), message);
        }
    }
    EXPECT_EQ(statusAtConnectBlock, 1); // the block runs before status 0 is set
}

TEST_F(CoreTest, MessageMovesItsRoomToTheFrontAndIsAnnouncedInOrder)
{
    storeRooms(
        {{"r1", "2026-01-03T00:00:00.000Z"}, {"r2", "2026-01-02T00:00:00.000Z"}, {"r3", "2026-01-01T00:00:00.000Z"}});
    connectScripted();
    ASSERT_EQ(parlo->chatRooms().size(), 3);

    QVariantMap payload = messageDict("m1", "r3", "other", 77, "2026-01-04T00:00:00.000Z");
    payload["room"] = QVariantMap {{"id", "r3"}, {"lastMessageTime", "2026-01-04T00:00:00.000Z"}, {"badge", 5},
        {"sender", QVariantMap {{"clientID", "other"}}}};
    payload["totalBadge"] = 9;
    socket->push("message", {payload});

    const QList<IMRoomPtr> rooms = parlo->chatRooms();
    ASSERT_EQ(rooms.size(), 3);
    EXPECT_EQ(rooms[0]->objectID(), "r3");
    EXPECT_EQ(rooms[0]->badge(), 5);
    EXPECT_EQ(rooms[0]->lastMessageTime(), "2026-01-04T00:00:00.000Z");
    EXPECT_EQ(rooms[0]->sender()->clientID(), "other");
    EXPECT_EQ(rooms[0]->message().value(0).toMap().value("id"), "m1");
    EXPECT_EQ(rooms[0]->name(), "Room r3"); // the listed room is updated, not replaced
    EXPECT_EQ(parlo->badge()->total(), 9);
    // The store holds the new order too.
    EXPECT_EQ(IMDB::sharedInstance()->getAllRooms().value(0)->objectID(), "r3");

    EXPECT_EQ(recorder.events,
        (QStringList {"d:UpdateBadge", "n:ParloDidUpdateBadge", "d:ReceiveMessage", "d:UpdateRooms", "d:UpdateRoom",
            "d:ReceiveMessageFromOthers", "n:ParloDidReceiveMessageFromOthers", "n:ParloDidReceiveMessage",
            "n:ParloDidUpdateRooms"}));
    const IMNotification received = recorder.named(kParloDidReceiveMessage).value(0);
    EXPECT_EQ(received.object.value<IMMessagePtr>()->sendingType(), 0u);
    EXPECT_EQ(received.userInfo.value("object").value<IMMessagePtr>(), received.object.value<IMMessagePtr>());
}

TEST_F(CoreTest, OwnEchoSettlesTheMessageBeingSent)
{
    storeRooms({{"r1", "2026-01-01T00:00:00.000Z"}});
    connectScripted();
    IMMessagePtr local = IMMessage::initWithRoom(parlo->chatRooms().first());
    local->setTemp(QStringLiteral("scratch"));
    IMMessagePtr other = IMMessage::initWithRoom(parlo->chatRooms().first());
    parlo->sendMessageInBackground(other);
    parlo->sendMessageInBackground(local);

    socket->push("message", {messageDict("m9", "r1", "me", local->idFromSender(), "2026-01-02T00:00:00.000Z")});

    EXPECT_EQ(local->objectID(), "m9");
    EXPECT_EQ(local->sendingType(), 0u);
    EXPECT_EQ(local->temp().toString(), "scratch");
    EXPECT_EQ(parlo->sendingMessages(), QList<IMMessagePtr> {other});
    EXPECT_EQ(recorder.named(kParloDidChangeMessageSendingType).value(0).object.value<IMMessagePtr>(), local);
    EXPECT_TRUE(recorder.named(kParloDidReceiveMessageFromOthers).isEmpty());
    EXPECT_EQ(recorder.events.count("d:ChangeMessageSendingType"), 1);
}

TEST_F(CoreTest, MessageWithAnEmptyRoomListStillSetsTheBadge)
{
    connectScripted();
    ASSERT_TRUE(parlo->chatRooms().isEmpty());
    QVariantMap payload = messageDict("m1", "r1", "other", 1, "2026-01-02T00:00:00.000Z");
    payload["totalBadge"] = 4;
    socket->push("message", {payload});
    EXPECT_TRUE(parlo->chatRooms().isEmpty()); // a room not listed is not added
    EXPECT_EQ(parlo->badge()->total(), 4);
    EXPECT_EQ(recorder.named(kParloDidReceiveMessage).size(), 1);

    socket->push("message", {QVariantMap {{"message", "no id, no badge"}}});
    EXPECT_EQ(parlo->badge()->total(), 0);
    EXPECT_EQ(recorder.named(kParloDidReceiveMessage).size(), 2);
}

TEST_F(CoreTest, BurstOfMessagesForOneRoomKeepsOneEntry)
{
    QList<QPair<QString, QString>> listed;
    for (int i = 0; i < 20; ++i)
        listed << qMakePair(
            QStringLiteral("r%1").arg(i), QStringLiteral("2026-01-01T00:00:%1.000Z").arg(i, 2, 10, QChar('0')));
    storeRooms(listed);
    connectScripted();
    for (int n = 0; n < 50; ++n)
        socket->push("message",
            {messageDict(QStringLiteral("m%1").arg(n), QStringLiteral("r%1").arg(n % 3), "other", n,
                QStringLiteral("2026-02-01T00:%1:00.000Z").arg(n, 2, 10, QChar('0')))});
    const QList<IMRoomPtr> rooms = parlo->chatRooms();
    ASSERT_EQ(rooms.size(), 20);
    QStringList ids = idsOf(rooms);
    EXPECT_EQ(ids.removeDuplicates(), 0);
    EXPECT_EQ(ids.mid(0, 3), (QStringList {"r1", "r0", "r2"})); // m49 in r1, m48 in r0, m47 in r2
    EXPECT_EQ(rooms[0]->message().value(0).toMap().value("id"), "m49");
    // The list and the store hold the same rooms in the same order.
    const QList<IMRoomPtr> stored = IMDB::sharedInstance()->getAllRooms();
    ASSERT_EQ(stored.size(), rooms.size());
    for (qsizetype i = 0; i < rooms.size(); ++i)
        EXPECT_EQ(stored[i]->toDictionary(), rooms[i]->toDictionary()) << i;
}

TEST_F(CoreTest, JoinedInsertsByTimeWithoutReloading)
{
    storeRooms({{"r1", "2026-01-03T00:00:00.000Z"}, {"r2", "2026-01-01T00:00:00.000Z"}});
    connectScripted();
    socket->push("joined", {roomDict("new", "2026-01-02T00:00:00.000Z")});
    EXPECT_EQ(idsOf(parlo->chatRooms()), (QStringList {"r1", "new", "r2"}));
    EXPECT_EQ(recorder.events,
        (QStringList {"d:JoinedWithRoom", "d:UpdateRooms", "d:UpdateRoom", "n:ParloDidJoinedWithRoom"}));

    // Older than every listed room: not inserted, still announced and saved.
    recorder.events.clear();
    socket->push("joined", {roomDict("old", "2025-01-01T00:00:00.000Z")});
    EXPECT_EQ(parlo->chatRooms().size(), 3);
    EXPECT_EQ(recorder.named(kParloDidJoinedWithRoom).size(), 2);
    EXPECT_EQ(IMDB::sharedInstance()->getAllRooms().size(), 3);
}

TEST_F(CoreTest, ReceiptAndRoomUpdateAreWrittenToTheStore)
{
    storeRooms({{"r1", "2026-01-03T00:00:00.000Z"}, {"r2", "2026-01-01T00:00:00.000Z"}});
    connectScripted();
    const QVariantMap readTime {{"other", "2026-01-05T00:00:00.000Z"}};
    socket->push("receive", {QVariantMap {{"id", "r2"}, {"readTime", readTime}}});
    EXPECT_EQ(recorder.events, (QStringList {"d:UpdateReadTimeWithRoom", "n:ParloDidUpdateReadTimeWithRoom"}));
    const QList<IMRoomPtr> stored = IMDB::sharedInstance()->getAllRooms();
    ASSERT_EQ(idsOf(stored), QStringList({"r1", "r2"}));
    EXPECT_EQ(stored[1]->readTime(), readTime);
    EXPECT_EQ(stored[1]->name(), "Room r2"); // only the read times were replaced

    recorder.events.clear();
    socket->push("roomDidUpadte", {roomDict("r2", "2026-01-09T00:00:00.000Z")});
    EXPECT_EQ(parlo->chatRooms().value(0)->objectID(), "r2");
    EXPECT_EQ(recorder.events,
        (QStringList {"d:UpdateRooms", "d:UpdateRoom", "n:ParloDidUpdateRooms", "n:ParloDidUpdateRoom"}));

    // "didUpdateMessage": notification at once, delegate later on the main queue.
    recorder.events.clear();
    socket->push("didUpdateMessage", {messageDict("m1", "r1", "other", 1, "2026-01-02T00:00:00.000Z")});
    EXPECT_EQ(recorder.events, (QStringList {"n:ParloDidUpdateMessage"}));
    EXPECT_TRUE(waitUntil([&] { return recorder.events.size() == 2; }));
    EXPECT_EQ(recorder.events.last(), "d:UpdateMessage");
}

// A read report changes a listed room in memory; a later message for another room must not leave
// the store behind, or the old unread count comes back at the next start.
TEST_F(CoreTest, EveryChangedRoomReachesTheStore)
{
    QVariantMap unread = roomDict("r1", "2026-01-01T00:00:00.000Z");
    unread["badge"] = 2;
    IMDB::sharedInstance()->saveRooms(
        IMRoom::arrayOfModelsFromDictionaries({unread, roomDict("r2", "2026-01-02T00:00:00.000Z")}));
    connectScripted();
    socket->autoAnswer = [](const QString &, const QVariantList &) {
        return QVariantList {QVariantMap {{"statusCode", 200}, {"body", QVariantMap {{"id", "r1"}, {"badge", 0}}}}};
    };
    parlo->updateReadTimeWithRoom(parlo->chatRooms().last(), false);
    ASSERT_TRUE(waitUntil([&] { return !recorder.named(kParloDidUpdateRoom).isEmpty(); }, 5000));

    socket->push("message", {messageDict("m1", "r2", "other", 1, "2026-01-03T00:00:00.000Z")});
    for (const IMRoomPtr &stored : IMDB::sharedInstance()->getAllRooms())
        EXPECT_EQ(stored->badge(), 0) << stored->objectID().toStdString();
}

// Read reports leave from the global queue while the host may replace the connection on the main
// thread: the transport hands the socket over under its lock (ThreadSanitizer checks the rest).
TEST_F(CoreTest, ReadReportsWhileTheConnectionIsReplaced)
{
    storeRooms({{"r1", "2026-01-01T00:00:00.000Z"}});
    connectScripted();
    const IMRoomPtr room = parlo->chatRooms().first();
    QList<ScriptedSocket *> made;
    parlo->setSocketFactory([&](const QUrl &, const QVariantMap &) {
        auto *s = new ScriptedSocket;
        s->setStatus(IMSocket::Status::Connected);
        s->autoAnswer = [](const QString &, const QVariantList &) {
            return QVariantList {QVariantMap {{"statusCode", 200}}};
        };
        made << s;
        return s;
    });
    for (int i = 0; i < 40; ++i) {
        parlo->updateReadTimeWithRoom(room, false);
        parlo->connectWithURL(QStringLiteral("http://127.0.0.1:1"), {}, [] {});
        spinFor(1);
    }
    EXPECT_EQ(made.size(), 40);
    // Reports whose socket went fail or are dropped with it; one on the last socket still ends.
    parlo->updateReadTimeWithRoom(room, false);
    EXPECT_TRUE(waitUntil([&] { return recorder.named(kParloDidUpdateRoom).size() >= 1; }, 5000));
}

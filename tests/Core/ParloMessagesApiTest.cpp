// Message operations against the reference server: the shared facade and another client
// exchange messages and read receipts; history pages; sending failures.
#include "IMClient.h"
#include "IMMessageSend.h"
#include "LiveFixture.h"

namespace {
QStringList texts(const QList<IMMessagePtr> &messages)
{
    QStringList out;
    for (const IMMessagePtr &m : messages)
        out << m->message();
    return out;
}
} // namespace

TEST_F(LiveCoreTest, TheSharedFacadeExchangesMessagesAndReadReceiptsWithAnotherClient)
{
    Parlo *shared = Parlo::shareInstance();
    shared->setApiKey(kLiveApiKey);
    shared->setClientKey(kLiveClientKey);
    shared->setDelegate(&recorder);
    IMUserDefaults::standardUserDefaults()->setCurrentUser({});
    const QString me = uniqueID("me");
    ASSERT_TRUE(signInAs(shared, url, me));

    Peer &peer = signedInPeer();
    const QString roomID
        = peer.ok("post", "/room", {{"name", "Pair"}, {"client", QVariantList {me}}}).value("id").toString();
    ASSERT_TRUE(waitUntil([&] { return listed(roomID, shared) != nullptr; }, 10000));
    const IMRoomPtr room = listed(roomID, shared);

    // Ours: sending (1) until the echo settles it (0); the other client receives it.
    IMMessagePtr mine = IMMessage::initWithRoom(room);
    mine->setMessage("早安");
    mine->setMessageType(kMessageTypeText);
    EXPECT_EQ(mine->sendingType(), 1u);
    IMMessageSend(mine);
    EXPECT_TRUE(shared->sendingMessages().contains(mine));
    ASSERT_TRUE(waitUntil([&] { return !shared->sendingMessages().contains(mine); }, 10000));
    EXPECT_EQ(mine->sendingType(), 0u);
    EXPECT_FALSE(mine->objectID().isEmpty());
    EXPECT_EQ(recorder.named(kParloDidChangeMessageSendingType).size(), 1);
    ASSERT_TRUE(waitUntil([&] { return peer.pushed("message").size() == 1; }, 10000));
    EXPECT_EQ(peer.pushed("message")[0].value("message"), QVariant("早安"));
    EXPECT_EQ(peer.pushed("message")[0].value("idFromSender").toLongLong(), mine->idFromSender());

    // Updated by its sender: the other client hears of it.
    mine->setMessage("早安！");
    IMMessageUpdate(mine);
    ASSERT_TRUE(waitUntil([&] { return peer.pushed("didUpdateMessage").size() == 1; }, 10000));
    EXPECT_EQ(peer.pushed("didUpdateMessage")[0].value("message"), QVariant("早安！"));

    // Theirs: two messages raise our unread counts.
    peer.ok("post", "/message/", {{"room", roomID}, {"message", "one"}});
    peer.ok("post", "/message/", {{"room", roomID}, {"message", "two"}});
    ASSERT_TRUE(waitUntil([&] { return recorder.named(kParloDidReceiveMessageFromOthers).size() == 2; }, 10000));
    EXPECT_EQ(shared->badge()->total(), 2);
    const IMRoomPtr unread = listed(roomID, shared);
    ASSERT_EQ(unread->badge(), 2);
    EXPECT_EQ(unread->message().value(0).toMap().value("message").toString(), "two");
    EXPECT_EQ(
        IMDB::sharedInstance()->getAllRooms().value(0)->message().value(0).toMap().value("message"), QVariant("two"));

    Outcome<int> unseen;
    shared->unseenCountAfterLastSeenDate(mine->createdAt(), QString(), unread, unseen.ok(), unseen.fail());
    ASSERT_TRUE(succeedsOnce(unseen));
    EXPECT_EQ(unseen.value, 2);

    // We read: the badge drops at once; the answer writes our read time and a zero count back;
    // the other client gets the receipt.
    recorder.notifications.clear();
    shared->updateReadTimeWithRoom(unread, true);
    EXPECT_EQ(shared->badge()->total(), 0);
    EXPECT_EQ(IMPlatform::instance()->applicationIconBadgeNumber(), 0);
    EXPECT_EQ(recorder.named(kParloDidUpdateBadge).size(), 1);
    ASSERT_TRUE(waitUntil([&] { return recorder.named(kParloDidUpdateRoom).size() == 1; }, 10000));
    EXPECT_EQ(recorder.named(kParloDidUpdateRooms).size(), 1);
    EXPECT_TRUE(listed(roomID, shared)->readTime().contains(me));
    EXPECT_EQ(listed(roomID, shared)->badge(), 0);
    ASSERT_TRUE(waitUntil([&] { return peer.pushed("receive").size() == 1; }, 10000));
    EXPECT_TRUE(peer.pushed("receive")[0].value("readTime").toMap().contains(me));

    // They read with an echo: our copy of the room gets their read time.
    peer.ok("put", "/room/receive/" + roomID, {{"echo", 1}});
    ASSERT_TRUE(waitUntil([&] { return recorder.named(kParloDidUpdateReadTimeWithRoom).size() == 1; }, 10000));
    EXPECT_TRUE(listed(roomID, shared)->readTime().contains(peer.clientID));

    // Another device of ours archives the room: "roomDidUpadte" writes it to the store.
    Peer otherDevice(url);
    ASSERT_TRUE(otherDevice.connect());
    otherDevice.clientID = me;
    otherDevice.token = shared->token();
    otherDevice.ok("put", "/rooms/" + roomID + "/archive");
    ASSERT_TRUE(waitUntil([&] { return listed(roomID, shared)->archivedBy().contains(me); }, 10000));
    EXPECT_TRUE(IMDB::sharedInstance()->getAllRooms().value(0)->archivedBy().contains(me));

    shared->socket()->disconnect();
    shared->setDelegate(nullptr);
    spinFor(20);
}

TEST_F(LiveCoreTest, HistoryPagesByOffsetAndPinDateWithTheLoadingDelegate)
{
    signInFacade(uniqueID("me"));
    auto room = IMRoom::fromDictionary(call(1, "/room", {{"name", "History"}}).toMap());
    const QStringList loadedOnce {"d:WillStartLoading", "d:DidEndLoading"};
    auto loading = [this] { return recorder.events.filter("Loading"); };
    QStringList createdAt;
    for (int i = 1; i <= 5; ++i) {
        createdAt << call(1, "/message/", {{"room", room->objectID()}, {"message", QString("m%1").arg(i)}})
                         .toMap()
                         .value("createdAt")
                         .toString();
        spinFor(3);
    }

    recorder.events.clear();
    Outcome<QList<IMMessagePtr>> newest, older, pinned;
    parlo->messageWithRoom(room, qint64(0), 2, newest.ok(), newest.fail());
    ASSERT_TRUE(succeedsOnce(newest));
    EXPECT_EQ(texts(newest.value), QStringList({"m4", "m5"}));
    EXPECT_EQ(loading(), loadedOnce);
    parlo->messageWithRoom(room, qint64(2), 2, older.ok(), older.fail());
    parlo->messageWithRoom(room, createdAt[3], 10, pinned.ok(), pinned.fail());
    older.started = pinned.started = true;
    ASSERT_TRUE(succeedsOnce(older) && succeedsOnce(pinned));
    EXPECT_EQ(texts(older.value), QStringList({"m2", "m3"}));
    EXPECT_EQ(texts(pinned.value), QStringList({"m1", "m2", "m3"}));

    // A failed page still ends the loading.
    recorder.events.clear();
    Outcome<QList<IMMessagePtr>> failed;
    const IMRoomPtr stranger = IMRoom::fromDictionary({{"id", "no-such-room"}});
    parlo->messageWithRoom(stranger, qint64(0), 2, failed.ok(), failed.fail());
    EXPECT_TRUE(failsOnceWith(failed, 404));
    EXPECT_EQ(loading(), loadedOnce);

    // A refusing delegate is asked twice and nothing else happens.
    recorder.events.clear();
    recorder.allowLoading = false;
    Outcome<QList<IMMessagePtr>> refused;
    parlo->messageWithRoom(room, qint64(0), 2, refused.ok(), refused.fail());
    spinFor(300);
    EXPECT_EQ(loading(), QStringList({"d:WillStartLoading", "d:WillStartLoading"}));
    EXPECT_EQ(refused.total(), 0);
}

TEST_F(LiveCoreTest, FailedSendsAreMarkedFailedAndAnnouncedOnce)
{
    signInFacade(uniqueID("me"));
    Peer &peer = signedInPeer();
    auto foreign = IMRoom::fromDictionary(peer.ok("post", "/room", {{"name", "Theirs"}}));
    auto ours = IMRoom::fromDictionary(call(1, "/room", {{"name", "Ours"}}).toMap());

    // Not a member: the server's 403.
    IMMessagePtr intruder = IMMessage::initWithRoom(foreign);
    intruder->setMessage("let me in");
    Outcome<IMMessagePtr> refused;
    parlo->sendMessage(intruder, refused.ok(), refused.fail());
    EXPECT_TRUE(failsOnceWith(refused, 403, 10000));
    EXPECT_EQ(intruder->sendingType(), 2u);
    EXPECT_TRUE(parlo->sendingMessages().contains(intruder));
    EXPECT_EQ(recorder.events.filter("ChangeMessageSendingType"),
        QStringList({"d:ChangeMessageSendingType", "n:ParloDidChangeMessageSendingType"}));

    // A lost acknowledgement: a message is never sent twice, so it fails after one attempt.
    dropAnswers({{"path", "/message"}, {"method", "post"}, {"action", "drop"}, {"handle", false}});
    IMMessagePtr lost = IMMessage::initWithRoom(ours);
    lost->setMessage("into the void");
    Outcome<IMMessagePtr> unanswered;
    parlo->sendMessage(lost, nullptr, unanswered.fail());
    EXPECT_TRUE(failsOnceWith(unanswered, 999, 10000));
    EXPECT_EQ(lost->sendingType(), 2u);
    EXPECT_EQ(faultHits(), 1);

    // Updating without an id sends nothing.
    Outcome<IMMessagePtr> noID;
    parlo->updateMessage(IMMessage::create(), nullptr, noID.fail());
    EXPECT_EQ(noID.failures, 1);
    EXPECT_EQ(noID.error.code(), 400);
    EXPECT_EQ(noID.error.info(), "objectID is needed");
}

// The facade against the reference server: pushed events sent by another client change the
// room list, the badge and the store.
#include "LiveFixture.h"

TEST_F(LiveCoreTest, PushesFromAnotherClientChangeRoomsBadgeAndStore)
{
    const QString me = uniqueID("me");
    signInFacade(me);
    Peer &peer = signedInPeer();

    // The peer makes a room with us: "joined" puts it in the list and the store.
    const QVariantMap created = peer.request("post", "/room", {{"name", "Lunch"}, {"client", QVariantList{me}}});
    const QString roomID = created.value("body").toMap().value("id").toString();
    ASSERT_FALSE(roomID.isEmpty()) << IMDescription(created).toStdString();
    ASSERT_TRUE(waitUntil([&] { return listed(roomID) != nullptr; }, 10000));
    EXPECT_EQ(recorder.named(kParloDidJoinedWithRoom).size(), 1);

    // The peer writes: "message" moves the room up with its latest message and sets the badge.
    peer.request("post", "/message/", {{"room", roomID}, {"message", "你好"}, {"messageType", "text"}, {"idFromSender", 42}});
    ASSERT_TRUE(waitUntil([&] { return recorder.named(kParloDidReceiveMessage).size() == 1; }, 10000));
    const IMRoomPtr room = listed(roomID);
    ASSERT_TRUE(room);
    EXPECT_EQ(parlo->chatRooms().first()->objectID(), roomID);
    EXPECT_EQ(room->message().value(0).toMap().value("message").toString(), "你好");
    EXPECT_EQ(parlo->badge()->total(), 1);
    EXPECT_EQ(recorder.named(kParloDidReceiveMessageFromOthers).size(), 1);
    EXPECT_EQ(IMDB::sharedInstance()->getAllRooms().value(0)->objectID(), roomID);

    // Our own message comes back as an echo that settles the copy being sent.
    IMMessagePtr mine = IMMessage::initWithRoom(room);
    mine->setMessage("hi back");
    parlo->sendingMessages().append(mine);
    call(1, "/message/", {{"room", roomID}, {"message", "hi back"}, {"messageType", "text"},
                          {"idFromSender", mine->idFromSender()}});
    ASSERT_TRUE(waitUntil([&] { return parlo->sendingMessages().isEmpty(); }, 10000));
    EXPECT_EQ(mine->sendingType(), 0u);
    EXPECT_FALSE(mine->objectID().isEmpty());

    // The peer reads with an echo: "receive" replaces the room's read times.
    peer.request("put", "/room/receive/" + roomID, {{"echo", 1}});
    ASSERT_TRUE(waitUntil([&] { return recorder.named(kParloDidUpdateReadTimeWithRoom).size() == 1; }, 10000));
    EXPECT_TRUE(listed(roomID)->readTime().contains(peer.clientID));

    // Another device of ours archives the room: "roomDidUpadte" writes it to the store.
    Peer otherDevice(url);
    ASSERT_TRUE(otherDevice.connect());
    otherDevice.clientID = me;
    otherDevice.token = parlo->token();
    const QVariantMap archived = otherDevice.request("put", "/rooms/" + roomID + "/archive");
    ASSERT_EQ(archived.value("statusCode").toInt(), 200) << IMDescription(archived).toStdString();
    ASSERT_TRUE(waitUntil([&] { return listed(roomID) && listed(roomID)->archivedBy().contains(me); }, 10000));
    EXPECT_TRUE(IMDB::sharedInstance()->getAllRooms().value(0)->archivedBy().contains(me));
}

TEST_F(LiveCoreTest, ServerFailuresAndDroppedAcknowledgementsReachTheFailureBlock)
{
    ASSERT_TRUE(connectFacade());
    parlo->setTimeout(1);
    IMUserDefaults::standardUserDefaults()->setToken("wrong");
    const QVariantMap list{{"url", "/room/list?offset=0&limit=1"}, {"headers", parlo->header()}};
    Outcome<> refused;
    parlo->emitWithMethod(0, list, refused.ok(), refused.fail());
    ASSERT_TRUE(refused.wait(10000));
    EXPECT_EQ(refused.error.code(), 401);
    EXPECT_FALSE(refused.error.info().isEmpty());

    // Server gone: the request in flight ends once, with "NO ACK" after its retries.
    Outcome<> lost;
    parlo->emitWithMethod(0, list, lost.ok(), lost.fail());
    server->stop();
    ASSERT_TRUE(lost.wait(15000));
    EXPECT_EQ(lost.total(), 1);
    EXPECT_EQ(lost.error.code(), 999);
    EXPECT_NE(parlo->connectStatus(), 0);
}

// Room operations against the reference server: creation, joins and their merges, paging, the
// keep-up-to-date walk and failures.
#include "LiveFixture.h"

namespace {
class LiveRoomsTest : public LiveCoreTest {
protected:
    void SetUp() override
    {
        LiveCoreTest::SetUp();
        // The agent of this test's own server: only an agent takes a room that asked for one.
        me = kLiveAgentID;
        signInFacade(me);
    }

    //! Creates `count` rooms of ours, a few milliseconds apart so that their times differ; their
    //! ids, newest first.
    QStringList makeRooms(int count, const QVariantMap &data = {})
    {
        QStringList ids;
        for (int i = 0; i < count; ++i) {
            QVariantMap room {{"name", QString("Room %1").arg(i)}};
            if (!data.isEmpty())
                room["data"] = data;
            ids.prepend(call(1, "/room", room).toMap().value("id").toString());
            spinFor(3);
        }
        return ids;
    }
    //! Waits for one success of a room list, then for its merge; the ids of the page.
    static QStringList pageIDs(Outcome<QList<IMRoomPtr>> &list)
    {
        EXPECT_TRUE(succeedsOnce(list));
        spinFor(20);
        return idsOf(list.value);
    }

    QString me;
};
} // namespace

TEST_F(LiveRoomsTest, CreateJoinFetchAndArchive)
{
    Peer &peer = signedInPeer();

    const IMRoomPtr draft = IMRoom::fromDictionary({{"name", "Tea"}});
    Outcome<IMRoomPtr> created;
    parlo->createRoom(draft, created.ok(), created.fail());
    ASSERT_TRUE(succeedsOnce(created)); // posted to the main queue, never inside the call
    EXPECT_EQ(created.value->name(), "Tea");

    // The two-member room is reused unless a new one is asked for.
    Outcome<IMRoomPtr> pair, again, duplicate, forced;
    parlo->createRoom(draft, peer.clientID, pair.ok(), pair.fail());
    ASSERT_TRUE(pair.wait());
    parlo->createRoom(draft, peer.clientID, again.ok(), again.fail());
    parlo->createRoom(draft, peer.clientID, true, duplicate.ok(), duplicate.fail());
    parlo->forceCreateRoom(draft, peer.clientID, forced.ok(), forced.fail());
    ASSERT_TRUE(again.wait() && duplicate.wait() && forced.wait());
    EXPECT_EQ(again.value->objectID(), pair.value->objectID());
    EXPECT_NE(duplicate.value->objectID(), pair.value->objectID());
    EXPECT_NE(forced.value->objectID(), pair.value->objectID());
    EXPECT_NE(forced.value->objectID(), duplicate.value->objectID());
    EXPECT_TRUE(waitUntil([&] { return peer.pushed("joined").size() == 3; }, 5000));

    // Joining a public room merges it once, however often it is joined.
    const QString open = peer.ok("post", "/room", {{"name", "Open"}, {"isPublic", true}}).value("id").toString();
    parlo->setChatRooms({});
    parlo->joinRoomWithID(open);
    ASSERT_TRUE(waitUntil([&] { return listed(open) != nullptr; }, 10000));
    parlo->joinRoomWithID(open);
    ASSERT_TRUE(waitUntil([&] { return recorder.named(kParloDidUpdateRooms).size() == 2; }, 10000));
    EXPECT_EQ(idsOf(parlo->chatRooms()), QStringList {open});
    EXPECT_EQ(idsOf(IMDB::sharedInstance()->getAllRooms()), QStringList {open});

    // An agent takes a room that asked for one.
    const QString help = peer.ok("post", "/room", {{"name", "Help"}, {"data", QVariantMap {{"needAgent", true}}}})
                             .value("id")
                             .toString();
    parlo->tovoAgentJoinRoomWithID(help);
    ASSERT_TRUE(waitUntil([&] { return listed(help) != nullptr; }, 10000));
    EXPECT_EQ(parlo->chatRooms().size(), 2);

    // One room straight from the connection; then archived, with the list left alone.
    Outcome<IMRoomPtr> fetched;
    parlo->roomWithRoomID(help, fetched.ok(), fetched.fail());
    ASSERT_TRUE(succeedsOnce(fetched));
    EXPECT_EQ(fetched.value->name(), "Help");
    const QList<IMRoomPtr> before = parlo->chatRooms();
    Outcome<IMRoomPtr> archived;
    parlo->archiveRoom(fetched.value, archived.ok(), archived.fail());
    ASSERT_TRUE(succeedsOnce(archived));
    EXPECT_TRUE(archived.value->archivedBy().contains(me));
    EXPECT_EQ(parlo->chatRooms(), before);
    EXPECT_TRUE(listed(help)->archivedBy().isEmpty());
}

TEST_F(LiveRoomsTest, RoomFailuresReachTheFailureBlocksWithTheServersStatus)
{
    Peer &peer = signedInPeer();
    const QString closed = peer.ok("post", "/room", {{"name", "Closed"}}).value("id").toString();

    const IMRoomPtr room = IMRoom::fromDictionary({{"id", closed}});
    Outcome<IMRoomPtr> join, fetch, missing, archive, pair;
    parlo->joinRoom(room, join.ok(), join.fail());
    parlo->roomWithRoomID(closed, fetch.ok(), fetch.fail());
    parlo->roomWithRoomID("no-such-room", missing.ok(), missing.fail());
    parlo->archiveRoom(room, archive.ok(), archive.fail());
    parlo->createRoom(room, "no-such-client", pair.ok(), pair.fail());
    const std::pair<Outcome<IMRoomPtr> *, int> expected[]
        = {{&join, 403}, {&fetch, 403}, {&missing, 404}, {&archive, 403}, {&pair, 404}};
    for (const auto &[o, code] : expected)
        o->started = true;
    for (const auto &[o, code] : expected)
        EXPECT_TRUE(failsOnceWith(*o, code));
    EXPECT_EQ(fetch.error.info(), "not a member of this room");

    // A list that fails calls the failure block, then the completion, once each.
    IMUserDefaults::standardUserDefaults()->setToken("wrong");
    Outcome<QList<IMRoomPtr>> list;
    parlo->roomListWithOffset(0, 10, list.ok(), list.fail(), list.done());
    ASSERT_TRUE(list.wait());
    spinFor(50);
    EXPECT_TRUE(list.failedOnceWith(401));
    EXPECT_EQ(list.completions, 1);

    // A room fetch whose answer never comes ends with 999 after the time-out, without retries.
    dropAnswers({{"path", "/room/" + closed}, {"action", "drop"}});
    Outcome<IMRoomPtr> lost;
    parlo->roomWithRoomID(closed, lost.ok(), lost.fail());
    EXPECT_TRUE(failsOnceWith(lost, 999));
    EXPECT_EQ(faultHits(), 1);
}

TEST_F(LiveRoomsTest, PagesAppendAndTheStoreKeepsOneRecordPerRoom)
{
    const QStringList newestFirst = makeRooms(7);
    Outcome<QList<IMRoomPtr>> first, next, repeat, agent, need;
    parlo->roomListWithOffset(0, 3, first.ok(), first.fail(), first.done());
    EXPECT_EQ(pageIDs(first), newestFirst.mid(0, 3));
    EXPECT_EQ(idsOf(parlo->chatRooms()), newestFirst.mid(0, 3));

    // The next page starts after what is held.
    parlo->roomListSuccess(next.ok(), next.fail());
    EXPECT_EQ(pageIDs(next), newestFirst.mid(3));
    EXPECT_EQ(idsOf(parlo->chatRooms()), newestFirst);

    // The same page again: no duplicates.
    parlo->roomListWithOffset(0, 3, repeat.ok(), repeat.fail(), repeat.done());
    EXPECT_EQ(pageIDs(repeat), newestFirst.mid(0, 3));
    EXPECT_EQ(idsOf(parlo->chatRooms()), newestFirst);
    EXPECT_EQ(idsOf(IMDB::sharedInstance()->getAllRooms()), newestFirst);
    EXPECT_EQ(recorder.named(kParloDidUpdateRooms).size(), 3);

    // Agent lists filter on the room's data and merge the same way.
    const QStringList agentRooms = makeRooms(2, {{"county", 3}, {"type", 5}, {"needAgent", true}});
    parlo->roomListForTovoAgentWithParams({{"type", 5}}, agent.ok(), agent.fail(), agent.done());
    EXPECT_EQ(pageIDs(agent), agentRooms);
    parlo->needAgentListForTovoAgentWithParames({{"county", 3}}, need.ok(), need.fail(), need.done());
    EXPECT_EQ(pageIDs(need), agentRooms);
    EXPECT_EQ(parlo->chatRooms().size(), 9);
}

TEST_F(LiveRoomsTest, KeepingUpToDateWalksForwardPageByPageUntilAShortPage)
{
    const QStringList newestFirst = makeRooms(7);
    parlo->setRoomCountLimit(3);
    parlo->setLog(true);

    Outcome<QList<IMRoomPtr>> walk;
    parlo->roomListKeepUpdateingToNewestComplete(
        [ok = walk.ok(), fail = walk.fail()](const IMError &error, const QList<IMRoomPtr> &page) {
            if (error.isNull())
                ok(page);
            else
                fail(error);
        });
    ASSERT_TRUE(succeedsOnce(walk));
    EXPECT_EQ(idsOf(walk.value), QStringList {newestFirst[0]});
    EXPECT_EQ(idsOf(parlo->chatRooms()), newestFirst);
    EXPECT_EQ(logLines().count("loading room data"), 2);

    // Paused: a full page ends the walk without a completion.
    const QStringList more = makeRooms(3);
    parlo->setIsPausedLoadingRoomData(true);
    Outcome<> paused;
    parlo->roomListKeepUpdateingToNewestComplete(paused.done());
    ASSERT_TRUE(waitUntil([&] { return listed(more[0]) != nullptr; }, 10000));
    spinFor(300);
    EXPECT_EQ(paused.completions, 0);
    EXPECT_EQ(parlo->chatRooms().size(), 10);
    EXPECT_EQ(logLines().value(0), "loading room data return");
}

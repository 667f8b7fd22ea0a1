// What the operations put on the wire (paths, queries, bodies) and the URL-scheme handler, on a
// scripted connection that answers every request with an empty success.
#include "CoreFixture.h"
#include "IMClient.h"
#include "IMDate.h"

namespace {
const QVariantMap kParloEntry {{"url", "https://chat.example"}, {"storeid", "123"}};
//! Two URL types: the last one's first scheme, "myapp", is ours.
const QVariantMap kSchemeInfo {{"CFBundleURLTypes",
                                   QVariantList {QVariantMap {{"CFBundleURLSchemes", QVariantList {"first"}}},
                                       QVariantMap {{"CFBundleURLSchemes", QVariantList {"myapp", "other"}}}}},
    {"parlo", kParloEntry}};

class ShapeTest : public CoreTest {
protected:
    void SetUp() override
    {
        CoreTest::SetUp();
        connectScripted();
        socket->autoAnswer = [](const QString &, const QVariantList &) {
            return QVariantList {QVariantMap {{"statusCode", 200}, {"body", QVariantList()}}};
        };
    }
    void TearDown() override
    {
        IMPlatform::instance()->setInfoDictionary({});
        CoreTest::TearDown();
    }

    //! The envelope of the last emit, once its answer has been handled.
    QVariantMap lastEnvelope()
    {
        spinFor(5);
        return socket->emits().isEmpty() ? QVariantMap() : socket->emits().last().items.value(0).toMap();
    }
    QString lastPath() { return lastEnvelope().value("url").toString(); }
    QString lastEvent() { return socket->emits().isEmpty() ? QString() : socket->emits().last().event; }

    static IMRoomPtr room(const QString &id) { return IMRoom::fromDictionary({{"id", id}, {"name", "Lunch"}}); }
};
} // namespace

TEST_F(ShapeTest, AgentQueriesAppendOnlyTheValuesSetAndTheNeedAgentListAlwaysTheType)
{
    const struct {
        QVariantMap params;
        QString needAgent;
        QString agentRooms;
    } cases[] = {
        {{}, "/room/needAgentList", "/room/list"},
        {{{"county", 0}, {"type", 0}}, "/room/needAgentList", "/room/list"},
        {{{"type", 5}}, "/room/needAgentList?type=5", "/room/list?type=5"},
        {{{"county", 3}}, "/room/needAgentList?county=3&type=0", "/room/list?county=3"},
        {{{"skip", 20}}, "/room/needAgentList?type=0&skip=20", "/room/list?skip=20"},
        {{{"county", 1}, {"district", 2}, {"status", 3}, {"type", 4}, {"limit", 5}, {"skip", 6}},
            "/room/needAgentList?county=1&district=2&status=3&type=4&limit=5&skip=6",
            "/room/list?county=1&district=2&status=3&type=4&limit=5&skip=6"},
        {{{"district", "7"}, {"limit", 10}}, "/room/needAgentList?district=7&type=0&limit=10",
            "/room/list?district=7&limit=10"},
    };
    for (const auto &c : cases) {
        parlo->needAgentListForTovoAgentWithParames(c.params, nullptr, nullptr);
        EXPECT_EQ(lastPath(), c.needAgent);
        parlo->roomListForTovoAgentWithParams(c.params, nullptr, nullptr);
        EXPECT_EQ(lastPath(), c.agentRooms);
        EXPECT_EQ(lastEvent(), "get");
    }
}

TEST_F(ShapeTest, RoomPathsAndBodies)
{
    parlo->roomListLastMessageTime(QDateTime(), 0, 25, nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/room/list?lastMessageTime=(null)&&limit=25&&offset=0&&sort=updatedAt ASC");
    parlo->roomListLastMessageTime(IMDate::toDate("2016-05-04T09:30:00.000Z"), 4, 3, nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/room/list?lastMessageTime=2016-05-04T09:30:00.000Z&&limit=3&&offset=4&&sort=updatedAt ASC");

    parlo->roomListWithOffset(7, 30, nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/room/list?offset=7&limit=30");

    parlo->createRoom(room("r1"), "peer", true, nullptr, nullptr);
    QVariantMap sent = lastEnvelope();
    EXPECT_EQ(lastEvent(), "get");
    EXPECT_EQ(sent.value("url").toString(), "/room/createAndJoinWithClient/peer");
    EXPECT_EQ(sent.value("data").toMap().value("duplicate"), QVariant(1));
    EXPECT_EQ(sent.value("data").toMap().value("name"), QVariant("Lunch"));
    parlo->createRoom(room("r1"), "peer", nullptr, nullptr);
    EXPECT_FALSE(lastEnvelope().value("data").toMap().contains("duplicate"));
    parlo->forceCreateRoom(room("r1"), "peer", nullptr, nullptr);
    EXPECT_EQ(lastEnvelope().value("data").toMap().value("forceCreate"), QVariant(true));

    parlo->tovoAgentJoinRoom(room("r2"), nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/room/agentJoin/r2");
    parlo->archiveRoom(room("r3"), nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/rooms/r3/archive");
    EXPECT_EQ(lastEvent(), "put");
    parlo->queryWithClass("IMMessage", 0, 20, "createdAt DESC", nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/Message/?offset=0&limit=20&sort=createdAt DESC");
}

TEST_F(ShapeTest, MessagePathsAndBodies)
{
    parlo->messageWithRoom(room("r1"), qint64(40), 20, nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/message/?room=r1&offset=40&limit=20");
    parlo->messageWithRoom(room("r1"), QString("2016-05-04T09:30:00.000Z"), 20, nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/message/?room=r1&pinDate=2016-05-04T09:30:00.000Z&limit=20");
    parlo->unseenCountAfterLastSeenDate("SEEN", "UPTO", room("r1"), nullptr, nullptr);
    EXPECT_EQ(lastPath(), "/messages/unseenCount?room=r1&messageDate=UPTO&lastSeenDate=SEEN");

    // The body names the room and the sender by id and leaves the local state out.
    IMMessagePtr message = IMMessage::initWithRoom(room("r1"));
    message->setMessage("hi");
    parlo->sendMessage(message, nullptr, nullptr);
    QVariantMap body = lastEnvelope().value("data").toMap();
    EXPECT_EQ(body.value("room"), QVariant("r1"));
    EXPECT_EQ(body.value("sender"), QVariant("me"));
    EXPECT_EQ(body.value("idFromSender").toLongLong(), message->idFromSender());
    EXPECT_FALSE(body.contains("sendingType"));

    IMMessagePtr roomless = IMMessage::initWithRoom(std::make_shared<IMRoom>());
    parlo->sendMessage(roomless, nullptr, nullptr);
    EXPECT_FALSE(lastEnvelope().value("data").toMap().contains("room"));

    // An update carries no headers and no id in its body.
    message->setObjectID("m1");
    parlo->updateMessage(message, nullptr, nullptr);
    const QVariantMap update = lastEnvelope();
    EXPECT_EQ(update.value("url").toString(), "/message/m1");
    EXPECT_FALSE(update.contains("headers"));
    EXPECT_FALSE(update.value("data").toMap().contains("id"));
    EXPECT_EQ(update.value("data").toMap().value("message"), QVariant("hi"));
}

TEST_F(ShapeTest, UrlSchemeComesFromTheLastUrlTypeAndNeedsBothParloEntries)
{
    IMPlatform::instance()->setInfoDictionary(kSchemeInfo);
    EXPECT_TRUE(parlo->isScehemeWorks());
    EXPECT_EQ(parlo->urlType(), "myapp");
    EXPECT_EQ(parlo->urlStringForScheme(), "https://chat.example");
    EXPECT_EQ(parlo->appIDOnStore(), "123");

    const QVariantMap broken[] = {
        {{"parlo", kParloEntry}},
        {{"CFBundleURLTypes", QVariantList {}}, {"parlo", kParloEntry}},
        {{"CFBundleURLTypes", QVariantList {QVariantMap {{"CFBundleURLSchemes", QVariantList {"a"}}}, QVariantMap {}}},
            {"parlo", kParloEntry}},
        {{"CFBundleURLTypes", QVariantList {QVariantMap {{"CFBundleURLSchemes", QVariantList {}}}}},
            {"parlo", kParloEntry}},
        {{"CFBundleURLTypes", QVariantList {QVariantMap {{"CFBundleURLSchemes", QVariantList {"a"}}}}},
            {"parlo", QVariantMap {{"url", "https://chat.example"}}}},
        {{"CFBundleURLTypes", QVariantList {QVariantMap {{"CFBundleURLSchemes", QVariantList {"a"}}}}},
            {"parlo", QVariantMap {{"storeid", "123"}}}},
    };
    for (const QVariantMap &info : broken) {
        IMPlatform::instance()->setInfoDictionary(info);
        EXPECT_FALSE(parlo->isScehemeWorks()) << IMDescription(info).toStdString();
        EXPECT_TRUE(parlo->urlType().isNull());
        EXPECT_TRUE(parlo->urlStringForScheme().isNull());
        EXPECT_TRUE(parlo->appIDOnStore().isNull());
    }
}

TEST_F(ShapeTest, OpenedUrlsJoinTheLinkedRoomAndTellWhetherTheSchemeIsOurs)
{
    IMPlatform::instance()->setInfoDictionary(kSchemeInfo);
    parlo->setConnectStatus(0);
    auto joins = [this] {
        QStringList ids;
        for (const auto &e : socket->emits())
            if (e.items.value(0).toMap().value("url") == QVariant("/room/join"))
                ids << e.items.value(0).toMap().value("data").toMap().value("id").toString();
        return ids;
    };

    EXPECT_TRUE(parlo->application(nullptr, QUrl("myapp://parlo.integrate/joinRoom/abc")));
    EXPECT_TRUE(parlo->application(nullptr, QUrl("myapp://parlo.integrate/joinRoom/abc/extra")));
    EXPECT_FALSE(parlo->application(nullptr, QUrl("otherapp://parlo.integrate/joinRoom/def")));
    EXPECT_FALSE(parlo->application(nullptr, QUrl("myapp://example.com/joinRoom/ghi")));
    EXPECT_TRUE(parlo->application(nullptr, QUrl("myapp://parlo.integrate/leaveRoom/jkl")));
    spinFor(20);
    EXPECT_EQ(joins(), QStringList({"abc", "def"}));

    // While disconnected the join waits for the deferred work that chat-in runs.
    parlo->setConnectStatus(1);
    EXPECT_TRUE(parlo->application(nullptr, QUrl("myapp://parlo.integrate/joinRoom/later")));
    spinFor(20);
    EXPECT_EQ(joins().size(), 2);
    EXPECT_EQ(parlo->queueArray().size(), 1);
    parlo->execQueue();
    spinFor(20);
    EXPECT_EQ(joins().last(), "later");
}

TEST_F(ShapeTest, DeviceTokenIsKeptAsHexAndSentOnlyWithAClient)
{
    IMUserDefaults::standardUserDefaults()->setCurrentUser({});
    parlo->updateDeviceTokenIfPossiable(QByteArray::fromHex("0a1b2c3d4e5f6071ff"));
    EXPECT_EQ(parlo->deviceToken(), "0a1b2c3d4e5f6071ff");
    // Nothing given: the token held stays.
    parlo->updateDeviceTokenIfPossiable();
    EXPECT_EQ(parlo->deviceToken(), "0a1b2c3d4e5f6071ff");
    // Chat-out carries it.
    parlo->chatOutSuccess(nullptr, nullptr);
    EXPECT_EQ(lastEnvelope().value("data").toMap(), QVariantMap({{"token", "0a1b2c3d4e5f6071ff"}}));
}

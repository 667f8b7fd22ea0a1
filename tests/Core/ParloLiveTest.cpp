// The facade against the reference server: pushed events sent by another client change the
// room list, the badge and the store.
#include "CoreFixture.h"
#include "IMSocketIOClient.h"
#include "NodeProcess.h"

#include <QUuid>

namespace {
const QString kApiKey = QStringLiteral("live-api");
const QString kClientKey = QStringLiteral("live-client");

//! A bare Socket.IO client acting as another user of the server.
class Peer
{
public:
    explicit Peer(const QString &url) : socket(QUrl(url), {}) {}

    bool connect()
    {
        socket.connect();
        return waitUntil([&] { return socket.status() == IMSocket::Status::Connected; }, 10000);
    }

    //! Sends a virtual request and waits for its answer {"statusCode", "body"}.
    QVariantMap request(const QString &method, const QString &url, const QVariantMap &data = {})
    {
        QVariantMap envelope{{"url", url},
                             {"headers", QVariantMap{{"apiKey", kApiKey}, {"clientKey", kClientKey},
                                                     {"clientID", clientID}, {"token", token}}}};
        if (!data.isEmpty())
            envelope["data"] = data;
        QVariantMap answer;
        bool done = false;
        socket.emitWithAck(method, {envelope}, 10, [&](const QVariantList &items) {
            answer = items.value(0).toMap();
            done = true;
        });
        waitUntil([&] { return done; }, 12000);
        return answer;
    }

    //! Signs up as `id` and keeps the token.
    bool signUp(const QString &id)
    {
        clientID = id;
        const QVariantMap answer = request("post", "/client/", {{"clientID", id}, {"username", id}});
        token = answer.value("body").toMap().value("token").toString();
        return answer.value("statusCode").toInt() == 200 && !token.isEmpty();
    }

    IMSocketIOClient socket;
    QString clientID;
    QString token;
};
} // namespace

class LiveCoreTest : public CoreTest
{
protected:
    void SetUp() override
    {
        CoreTest::SetUp();
        server = std::make_unique<NodeProcess>(
            QStringLiteral(PARLO_SOURCE_DIR "/server/index.js"),
            QStringList{"--port", "0", "--api-key", kApiKey, "--client-key", kClientKey},
            QRegularExpression(QStringLiteral("^parlo-server listening on \\S+:(\\d+)$")));
        ASSERT_TRUE(server->start()) << server->errorText().toStdString();
        url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
        parlo->setApiKey(kApiKey);
        parlo->setClientKey(kClientKey);
    }

    void TearDown() override
    {
        CoreTest::TearDown();
        server.reset();
    }

    //! Connects the facade and signs it up and in as `id`, as a host would.
    void signInFacade(const QString &id)
    {
        parlo->connectWithURL(url, {}, [] {});
        ASSERT_TRUE(waitUntil([&] { return parlo->connectStatus() == 0; }, 10000));
        IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
        settings->setClientID(id);
        settings->setToken(QString());
        QVariantMap body = call(1, "/client/", {{"clientID", id}, {"username", id}}).toMap();
        settings->setToken(body.value("token").toString());
        settings->setCurrentUser(body);
        body = call(1, "/client/chatin/").toMap();
        ASSERT_EQ(body.value("clientID").toString(), id);
    }

    //! A request through the facade's transport; fails the test on a failure.
    QVariant call(uint method, const QString &path, const QVariantMap &data = {})
    {
        QVariantMap item{{"url", path}, {"headers", parlo->header()}};
        if (!data.isEmpty())
            item["data"] = data;
        QVariant result;
        bool done = false;
        parlo->emitWithMethod(
            method, item,
            [&](const QVariant &body) {
                result = body;
                done = true;
            },
            [&](const IMError &error) {
                ADD_FAILURE() << path.toStdString() << ": " << error.description().toStdString();
                done = true;
            });
        waitUntil([&] { return done; }, 30000);
        return result;
    }

    IMRoomPtr listed(const QString &id)
    {
        for (const IMRoomPtr &r : parlo->chatRooms())
            if (r->objectID() == id)
                return r;
        return nullptr;
    }

    std::unique_ptr<NodeProcess> server;
    QString url;
};

TEST_F(LiveCoreTest, PushesFromAnotherClientChangeRoomsBadgeAndStore)
{
    const QString me = "me-" + QUuid::createUuid().toString(QUuid::Id128).left(8);
    signInFacade(me);
    Peer peer(url);
    ASSERT_TRUE(peer.connect());
    ASSERT_TRUE(peer.signUp("peer"));

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
    EXPECT_TRUE(listed(roomID)->readTime().contains("peer"));

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
    parlo->connectWithURL(url, {}, [] {});
    ASSERT_TRUE(waitUntil([&] { return parlo->connectStatus() == 0; }, 10000));
    parlo->setTimeout(1);
    IMUserDefaults::standardUserDefaults()->setToken("wrong");
    IMError error;
    int ended = 0;
    parlo->emitWithMethod(
        0, QVariantMap{{"url", "/room/list?offset=0&limit=1"}, {"headers", parlo->header()}}, [&](const QVariant &) { ++ended; },
        [&](const IMError &e) {
            error = e;
            ++ended;
        });
    ASSERT_TRUE(waitUntil([&] { return ended > 0; }, 10000));
    EXPECT_EQ(error.code(), 401);
    EXPECT_FALSE(error.info().isEmpty());

    // Server gone: the request in flight ends once, with "NO ACK" after its retries.
    ended = 0;
    parlo->emitWithMethod(
        0, QVariantMap{{"url", "/room/list?offset=0&limit=1"}, {"headers", parlo->header()}}, [&](const QVariant &) { ++ended; },
        [&](const IMError &e) {
            error = e;
            ++ended;
        });
    server->stop();
    ASSERT_TRUE(waitUntil([&] { return ended > 0; }, 15000));
    spinFor(100);
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(error.code(), 999);
    EXPECT_NE(parlo->connectStatus(), 0);
}

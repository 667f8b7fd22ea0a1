// Nothing lost, nothing doubled: rooms without an id, self-signed servers over plain HTTP, the way
// back after the server ends the connection, and the bound on failed sends.
#include "LiveFixture.h"

namespace {
const QString kLater = QStringLiteral("2099-01-01T00:00:00.000Z");
} // namespace

TEST_F(CoreTest, RoomsWithoutAnIdAreNeitherStoredNorListed)
{
    connectScripted();
    socket->push("joined", {roomDict("r1", "2026-01-01T00:00:00.000Z")});
    const QVariantMap noID {{"name", "no id"}, {"lastMessageTime", kLater}};
    for (const char *event : {"joined", "roomDidUpadte"})
        for (const QVariantMap &room : {noID, roomDict("", kLater)}) {
            SCOPED_TRACE(event);
            recorder.events.clear();
            socket->push(event, {room});
            EXPECT_EQ(idsOf(parlo->chatRooms()), QStringList {"r1"});
            EXPECT_EQ(idsOf(IMDB::sharedInstance()->getAllRooms()), QStringList {"r1"});
            EXPECT_TRUE(recorder.events.contains("d:UpdateRoom")); // still announced
        }

    // An answer that lists one is merged without it, and the next start lists none either.
    socket->autoAnswer = [](const QString &, const QVariantList &) {
        return QVariantList {QVariantMap {{"statusCode", 200},
            {"body",
                QVariantMap {{"clientID", "me"}, {"token", "tok"},
                    {"room", QVariantList {roomDict("", kLater), roomDict("r2", kLater)}}}}}};
    };
    Outcome<IMClientPtr> chatIn;
    parlo->chatinSuccess(chatIn.ok(), chatIn.fail());
    ASSERT_TRUE(succeedsOnce(chatIn));
    spinFor(20);
    EXPECT_FALSE(idsOf(parlo->chatRooms()).contains(""));
    parlo->resetChatRooms();
    EXPECT_FALSE(idsOf(parlo->chatRooms()).contains(""));
}

TEST_F(CoreTest, FailedSendsAreKeptUpToTheLimitOldestFirstOut)
{
    EXPECT_EQ(parlo->failedSendingLimit(), 100);
    parlo->setFailedSendingLimit(2);
    connectScripted();
    // Shared: the send still in flight fails when the facade goes, after this test's frame.
    const auto failures = std::make_shared<int>(0);
    auto send = [&](const QString &text) {
        IMMessagePtr message = IMMessage::create();
        message->setMessage(text);
        parlo->sendMessage(message, nullptr, [failures](const IMError &) { ++*failures; });
        return message;
    };
    const IMMessagePtr inFlight = send("waits for its echo");
    socket->setStatus(IMSocket::Status::Disconnected);
    QList<IMMessagePtr> failed;
    for (int i = 0; i < 4; ++i)
        failed << send(QString::number(i));
    EXPECT_EQ(*failures, 4);
    // The one still in flight stays; of the failed ones the newest two do.
    EXPECT_EQ(parlo->sendingMessages(), (QList<IMMessagePtr> {inFlight, failed[2], failed[3]}));
}

TEST_F(CoreTest, SelfSignedCoversPlainHttpTransfers)
{
    // Answers every request with one small JSON record, the shape of a chat-in, a download and an
    // upload alike.
    LocalHttpServer server(
        [](const QByteArray &) {
            const QByteArray body = R"({"clientID":"me","id":"f1","fileName":"a.bin","type":"other"})";
            return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: "
                + QByteArray::number(body.size()) + "\r\n\r\n" + body;
        },
        true);
    parlo->setSocketFactory([](const QUrl &, const QVariantMap &) { return new ScriptedSocket; });
    for (const bool selfSigned : {false, true}) {
        SCOPED_TRACE(selfSigned);
        parlo->connectWithURL(server.url(), QVariantMap {{"selfSigned", selfSigned}}, [] {});
        Outcome<IMClientPtr> chatIn;
        Outcome<QByteArray> download;
        Outcome<IMFilePtr> upload;
        parlo->chatinHTTPSuccess(chatIn.ok(), chatIn.fail());
        parlo->getFileWithName(
            QStringLiteral("a%1.bin").arg(selfSigned), false, nullptr, download.ok(), download.fail());
        parlo->uploadFileWithData("bytes", kMessageTypeOther, nullptr, false, upload.ok(), upload.fail());
        ASSERT_TRUE(chatIn.wait(15000) && download.wait(15000) && upload.wait(15000));
        EXPECT_EQ(chatIn.successes + download.successes + upload.successes, selfSigned ? 3 : 0);
    }
}

TEST_F(LiveCoreTest, AfterTheServerEndsTheConnectionReconnectBringsTheFacadeBack)
{
    parlo->reconnect(); // before any connection: nothing to do
    ASSERT_TRUE(connectFacade({{"reconnectWait", 0.1}}));
    recorder.events.clear();
    EXPECT_EQ(control("POST", "/__control/disconnect", {{"all", true}}).toMap().value("disconnected").toInt(), 1);
    ASSERT_TRUE(waitUntil([&] { return recorder.events.contains("d:ChangeConnectStatus 1 io server disconnect"); }));
    spinFor(400); // four times the socket's first reconnection delay: it stays away
    EXPECT_EQ(parlo->connectStatus(), 1);
    parlo->reconnect();
    EXPECT_TRUE(waitUntil([&] { return parlo->connectStatus() == 0; }, 10000));
}

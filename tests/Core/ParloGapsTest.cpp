// Nothing lost, nothing doubled: rooms without an id, self-signed servers over plain HTTP, the way
// back after the server ends the connection, and the bound on failed sends.
#include "CoreFixture.h"
#include "LiveFixture.h"

#include <QFile>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>

namespace {
const QString kLater = QStringLiteral("2099-01-01T00:00:00.000Z");

QStringList roomIDs(const QList<IMRoomPtr> &rooms)
{
    QStringList ids;
    for (const IMRoomPtr &room : rooms)
        ids << room->objectID();
    return ids;
}

//! An HTTPS server with a self-signed certificate that answers every request with one small
//! JSON record, the shape of a chat-in, a download and an upload alike.
class SelfSignedServer {
public:
    SelfSignedServer()
    {
        QFile cert(QStringLiteral(PARLO_SOURCE_DIR "/tests/support/tls/selfsigned.crt"));
        QFile key(QStringLiteral(PARLO_SOURCE_DIR "/tests/support/tls/selfsigned.key"));
        cert.open(QIODevice::ReadOnly);
        key.open(QIODevice::ReadOnly);
        QSslConfiguration config = QSslConfiguration::defaultConfiguration();
        config.setLocalCertificate(QSslCertificate(cert.readAll()));
        config.setPrivateKey(QSslKey(key.readAll(), QSsl::Rsa));
        server.setSslConfiguration(config);
        QObject::connect(&server, &QTcpServer::pendingConnectionAvailable, [this] {
            while (QTcpSocket *socket = server.nextPendingConnection())
                serve(socket);
        });
        server.listen(QHostAddress::LocalHost, 0);
    }
    QString url() const { return QStringLiteral("https://127.0.0.1:%1").arg(server.serverPort()); }

private:
    void serve(QTcpSocket *socket)
    {
        auto request = std::make_shared<QByteArray>();
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, request] {
            request->append(socket->readAll());
            const qsizetype head = request->indexOf("\r\n\r\n");
            if (head < 0)
                return;
            const QRegularExpression lengthHeader(QStringLiteral("(?i)content-length: *(\\d+)"));
            const qsizetype length = lengthHeader.match(QString::fromLatin1(request->left(head)))
                                         .captured(1)
                                         .toLongLong();
            if (request->size() < head + 4 + length)
                return;
            const QByteArray body
                = R"({"clientID":"me","id":"f1","fileName":"a.bin","type":"other"})";
            socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: "
                          "close\r\nContent-Length: "
                + QByteArray::number(body.size()) + "\r\n\r\n" + body);
            socket->disconnectFromHost();
        });
    }
    QSslServer server;
};
} // namespace

TEST_F(CoreTest, RoomsWithoutAnIdAreNeitherStoredNorListed)
{
    connectScripted();
    socket->push("joined", { roomDict("r1", "2026-01-01T00:00:00.000Z") });
    const struct {
        const char *event;
        QVariantMap room;
    } cases[] = {
        { "joined", QVariantMap { { "name", "no id" }, { "lastMessageTime", kLater } } },
        { "joined", roomDict("", kLater) },
        { "roomDidUpadte", QVariantMap { { "name", "no id" }, { "lastMessageTime", kLater } } },
        { "roomDidUpadte", roomDict("", kLater) },
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.event);
        recorder.events.clear();
        socket->push(c.event, { c.room });
        EXPECT_EQ(roomIDs(parlo->chatRooms()), QStringList { "r1" });
        EXPECT_EQ(roomIDs(IMDB::sharedInstance()->getAllRooms()), QStringList { "r1" });
        EXPECT_TRUE(recorder.events.contains("d:UpdateRoom")); // still announced
    }

    // An answer that lists one is merged without it, and the next start lists none either.
    socket->autoAnswer = [](const QString &, const QVariantList &) {
        return QVariantList { QVariantMap { { "statusCode", 200 },
            { "body",
                QVariantMap { { "clientID", "me" }, { "token", "tok" },
                    { "room",
                        QVariantList { roomDict("", kLater), roomDict("r2", kLater) } } } } } };
    };
    bool chattedIn = false;
    parlo->chatinSuccess([&](const IMClientPtr &) { chattedIn = true; }, [](const IMError &) {});
    ASSERT_TRUE(waitUntil([&] { return chattedIn; }));
    spinFor(20);
    EXPECT_FALSE(roomIDs(parlo->chatRooms()).contains(""));
    parlo->resetChatRooms();
    EXPECT_FALSE(roomIDs(parlo->chatRooms()).contains(""));
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
    EXPECT_EQ(parlo->sendingMessages(), (QList<IMMessagePtr>{inFlight, failed[2], failed[3]}));
}

TEST_F(CoreTest, SelfSignedCoversPlainHttpTransfers)
{
    SelfSignedServer server;
    parlo->setSocketFactory([](const QUrl &, const QVariantMap &) { return new ScriptedSocket; });
    for (const bool selfSigned : { false, true }) {
        SCOPED_TRACE(selfSigned);
        parlo->connectWithURL(server.url(), QVariantMap { { "selfSigned", selfSigned } }, [] {});
        int successes = 0;
        int failures = 0;
        auto failed = [&](const IMError &) { ++failures; };
        parlo->chatinHTTPSuccess([&](const IMClientPtr &) { ++successes; }, failed);
        parlo->getFileWithName(
            QStringLiteral("a%1.bin").arg(selfSigned), false, nullptr,
            [&](const QByteArray &) { ++successes; }, failed);
        parlo->uploadFileWithData(
            "bytes", kMessageTypeOther, nullptr, false, [&](const IMFilePtr &) { ++successes; },
            failed);
        ASSERT_TRUE(waitUntil([&] { return successes + failures == 3; }, 15000));
        EXPECT_EQ(successes, selfSigned ? 3 : 0);
    }
}

TEST_F(LiveCoreTest, AfterTheServerEndsTheConnectionReconnectBringsTheFacadeBack)
{
    parlo->reconnect(); // before any connection: nothing to do
    parlo->connectWithURL(url, { { "reconnectWait", 0.1 } }, [] {});
    ASSERT_TRUE(waitUntil([&] { return parlo->connectStatus() == 0; }, 10000));
    recorder.events.clear();
    EXPECT_EQ(control("POST", "/__control/disconnect", { { "all", true } })
                  .toMap()
                  .value("disconnected")
                  .toInt(),
        1);
    ASSERT_TRUE(waitUntil(
        [&] { return recorder.events.contains("d:ChangeConnectStatus 1 io server disconnect"); }));
    spinFor(400); // four times the socket's first reconnection delay: it stays away
    EXPECT_EQ(parlo->connectStatus(), 1);
    parlo->reconnect();
    EXPECT_TRUE(waitUntil([&] { return parlo->connectStatus() == 0; }, 10000));
}

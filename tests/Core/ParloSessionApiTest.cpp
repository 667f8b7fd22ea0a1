// Session and account operations against the reference server.
#include "IMClient.h"
#include "LiveFixture.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QMessageAuthenticationCode>

TEST_F(LiveCoreTest, SignUpChatInAccountReadsAndLogout)
{
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    settings->setCurrentUser({});
    settings->setClientID(QString());
    parlo->setLog(true);
    ASSERT_TRUE(connectFacade());

    // Chat-in before sign-up fails later on the main queue, never inside the call.
    Outcome<IMClientPtr> early;
    parlo->chatinSuccess(early.ok(), early.fail());
    EXPECT_TRUE(failsOnceWith(early, 404));
    EXPECT_EQ(early.error.info(), "signUpWithClient: first");
    EXPECT_EQ(early.error.userInfo().value("NSLocalizedDescriptionKey"), QVariant("signUpWithClient: first"));

    // A device token given before sign-up is kept, then sent once a client is signed up.
    parlo->updateDeviceTokenIfPossiable(QByteArray::fromHex("c0ffee0123456789"));
    const QString me = uniqueID("me");
    const IMClientPtr client = IMClient::fromDictionary({{"clientID", me}, {"username", "Me"}});
    Outcome<IMClientPtr> signUp;
    parlo->signWithClient(client, signUp.ok(), signUp.fail());
    EXPECT_EQ(settings->clientID(), me); // stored before the answer
    ASSERT_TRUE(succeedsOnce(signUp));
    EXPECT_FALSE(signUp.value->token().isEmpty());
    EXPECT_EQ(settings->token(), signUp.value->token());
    EXPECT_EQ(settings->currentUser().value("clientID"), QVariant(me));
    EXPECT_TRUE(waitUntil([] { return logLines().contains("device token updated : c0ffee0123456789"); }, 10000));

    // Another client makes a room with us and writes in it.
    Peer &peer = signedInPeer();
    const QString roomID
        = peer.ok("post", "/room", {{"name", "Lunch"}, {"client", QVariantList {me}}}).value("id").toString();
    peer.ok("post", "/message/", {{"room", roomID}, {"message", "hi"}});
    ASSERT_TRUE(waitUntil([&] { return recorder.named(kParloDidReceiveMessage).size() == 1; }, 10000));

    // Chat-in: the caller hears first; then the list, the announcements, the badge and last the
    // deferred work.
    parlo->setChatRooms({});
    recorder.events.clear();
    int listedWhenAnnounced = -1;
    const auto observer = IMNotificationCenter::defaultCenter()->addObserver(
        kParloDidChatIn, [&](const IMNotification &) { listedWhenAnnounced = int(parlo->chatRooms().size()); });
    parlo->appendToQueue([&] { recorder.events << "deferred"; });
    Outcome<IMClientPtr> chatIn;
    parlo->chatinSuccess(
        [this, ok = chatIn.ok()](const IMClientPtr &c) {
            recorder.events << "success";
            ok(c);
        },
        chatIn.fail());
    const bool chattedIn = succeedsOnce(chatIn);
    IMNotificationCenter::defaultCenter()->removeObserver(observer);
    ASSERT_TRUE(chattedIn);
    EXPECT_EQ(recorder.events,
        QStringList({"success", "d:UpdateRooms", "d:ChatIn", "n:ParloDidChatIn", "d:UpdateBadge",
            "n:ParloDidUpdateBadge", "deferred"}));
    EXPECT_EQ(listedWhenAnnounced, 1);
    EXPECT_EQ(parlo->chatRooms().value(0)->objectID(), roomID);
    EXPECT_EQ(IMDB::sharedInstance()->getAllRooms().size(), 1);
    EXPECT_EQ(parlo->badge()->total(), 1);
    EXPECT_TRUE(parlo->queueArray().isEmpty());

    // Badge reads (both into the facade's badge), client list, class query and the plain-HTTP chat-in.
    for (auto read : {&Parlo::badgeSuccess, &Parlo::badgeTotalSuccess}) {
        parlo->badge()->setTotal(9);
        Outcome<IMBadgePtr> badge;
        (parlo.get()->*read)(badge.ok(), badge.fail());
        ASSERT_TRUE(succeedsOnce(badge));
        EXPECT_EQ(badge.value, parlo->badge());
        EXPECT_EQ(parlo->badge()->total(), 1);
    }

    Outcome<QList<IMClientPtr>> clients;
    parlo->clientsListWithOffset(0, clients.ok(), clients.fail());
    ASSERT_TRUE(succeedsOnce(clients));
    QStringList ids;
    for (const IMClientPtr &c : clients.value)
        ids << c->clientID();
    EXPECT_TRUE(ids.contains(me) && ids.contains(peer.clientID)) << ids.join(",").toStdString();

    Outcome<QVariant> query;
    parlo->queryWithClass("IMRoom", 0, 20, "createdAt DESC", query.ok(), query.fail());
    ASSERT_TRUE(succeedsOnce(query));
    EXPECT_EQ(query.value.toList().value(0).toMap().value("id"), QVariant(roomID));

    Outcome<IMClientPtr> http;
    parlo->chatinHTTPSuccess(http.ok(), http.fail());
    ASSERT_TRUE(succeedsOnce(http));
    EXPECT_EQ(http.value->clientID(), me);
    EXPECT_EQ(http.value->room().size(), 1);

    // Logout: chat-out succeeds, the session and the store are emptied.
    Outcome<QVariant> out;
    parlo->chatOutSuccess(out.ok(), out.fail());
    ASSERT_TRUE(succeedsOnce(out));
    EXPECT_EQ(out.value.toMap().value("clientID"), QVariant(me));
    parlo->logout();
    ASSERT_TRUE(waitUntil([&] { return settings->clientID().isNull(); }, 10000));
    EXPECT_TRUE(settings->token().isNull());
    EXPECT_TRUE(settings->currentUser().isEmpty());
    EXPECT_TRUE(parlo->sendingMessages().isEmpty());
    spinFor(50); // the store is re-created from the main queue
    EXPECT_TRUE(parlo->chatRooms().isEmpty());
    EXPECT_TRUE(logLines().contains("logout success"));
}

TEST_F(LiveCoreTest, SessionFailuresCarryTheServersStatusAndLogoutStillSignsOut)
{
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    ASSERT_TRUE(connectFacade());

    // Wrong keys: 401, yet the client id is kept for the next try.
    parlo->setApiKey("wrong");
    const IMClientPtr client = IMClient::fromDictionary({{"clientID", uniqueID("keys")}});
    Outcome<IMClientPtr> signUp;
    parlo->signWithClient(client, signUp.ok(), signUp.fail());
    EXPECT_TRUE(failsOnceWith(signUp, 401));
    EXPECT_EQ(settings->clientID(), client->clientID());

    Outcome<IMClientPtr> nobody;
    parlo->signWithClient(nullptr, nobody.ok(), nobody.fail());
    EXPECT_EQ(nobody.failures, 1);
    EXPECT_EQ(nobody.error.code(), 400);

    // Chat-in, over plain HTTP or the connection, with a client the server does not know: its
    // status, once.
    parlo->setApiKey(kLiveApiKey);
    for (auto chatIn : {&Parlo::chatinHTTPSuccess, &Parlo::chatinSuccess}) {
        Outcome<IMClientPtr> unknown;
        (parlo.get()->*chatIn)(unknown.ok(), unknown.fail());
        ASSERT_TRUE(unknown.wait());
        spinFor(50);
        EXPECT_TRUE(unknown.failedOnceWith(401));
        EXPECT_FALSE(unknown.error.info().isEmpty());
    }

    // Chat-out fails (bad token): logout clears the session all the same and the connection is
    // asked to reconnect.
    parlo->setChatRooms({std::make_shared<IMRoom>()});
    parlo->sendMessageInBackground(IMMessage::create());
    ASSERT_EQ(parlo->sendingMessages().size(), 1);
    int statuses = 0;
    const auto observer = IMNotificationCenter::defaultCenter()->addObserver(
        kParloDidChangeConnectStatus, [&](const IMNotification &) { ++statuses; });
    parlo->logout();
    ASSERT_TRUE(waitUntil([&] { return settings->clientID().isNull(); }, 10000));
    EXPECT_TRUE(settings->currentUser().isEmpty());
    EXPECT_TRUE(parlo->sendingMessages().isEmpty());
    EXPECT_TRUE(waitUntil([&] { return statuses > 0 && parlo->connectStatus() == 0; }, 10000));
    IMNotificationCenter::defaultCenter()->removeObserver(observer);

    // Not connected at all: logout signs out at once.
    settings->setClientID("again");
    parlo->socket()->disconnect();
    ASSERT_TRUE(waitUntil([&] { return parlo->socket()->status() != IMSocket::Status::Connected; }, 5000));
    parlo->logout();
    EXPECT_TRUE(settings->clientID().isNull());
}

namespace {
//! An identity token as a host's backend signs it: HS256 over {"sub", "exp"} with `secret`.
QString identityToken(const QString &subject, const QByteArray &secret, qint64 expiresInSeconds)
{
    const auto part = [](const QVariantMap &map) {
        return QJsonDocument::fromVariant(map)
            .toJson(QJsonDocument::Compact)
            .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
    };
    const QByteArray signedPart = part({{"alg", "HS256"}, {"typ", "JWT"}}) + '.'
        + part({{"sub", subject}, {"exp", QDateTime::currentSecsSinceEpoch() + expiresInSeconds}});
    const QByteArray signature = QMessageAuthenticationCode::hash(signedPart, secret, QCryptographicHash::Sha256)
                                     .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
    return QString::fromLatin1(signedPart + '.' + signature);
}
} // namespace

// A server in strict mode signs up only the client its identity token names; the facade sends the
// token the host set with sign-up and with the HTTP chat-in.
TEST_F(LiveCoreTest, StrictServerSignsUpWithTheHostsIdentityToken)
{
    const QByteArray secret = "backend-secret";
    server = startReferenceServer({"--api-key", kLiveApiKey, "--client-key", kLiveClientKey, "--strict",
        "--identity-secret", QString::fromLatin1(secret)});
    ASSERT_TRUE(server->isRunning());
    url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
    ASSERT_TRUE(connectFacade());
    const QString me = uniqueID("strict");
    auto client = std::make_shared<IMClient>();
    client->setClientID(me);

    const struct {
        QString token;
        int code; // 0: signed up
    } cases[] = {
        {QString(), 401},
        {identityToken(uniqueID("someone-else"), secret, 600), 403},
        {identityToken(me, secret, -60), 401},
        {identityToken(me, "another-secret", 600), 401},
        {identityToken(me, secret, 600), 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.code);
        parlo->setIdentityToken(c.token);
        Outcome<IMClientPtr> signUp;
        parlo->signWithClient(client, signUp.ok(), signUp.fail());
        if (c.code)
            EXPECT_TRUE(failsOnceWith(signUp, c.code));
        else
            EXPECT_TRUE(succeedsOnce(signUp));
    }
    Outcome<IMClientPtr> httpChatIn;
    parlo->chatinHTTPSuccess(httpChatIn.ok(), httpChatIn.fail());
    EXPECT_TRUE(succeedsOnce(httpChatIn));
    EXPECT_EQ(httpChatIn.value->clientID(), me);
}

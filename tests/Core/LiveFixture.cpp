#include "LiveFixture.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUuid>

void LiveCoreTest::SetUp()
{
    CoreTest::SetUp();
    server = startReferenceServer(
        {"--api-key", kLiveApiKey, "--client-key", kLiveClientKey, "--test-control", "--agents", kLiveAgentID});
    ASSERT_TRUE(server->isRunning());
    url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
    parlo->setApiKey(kLiveApiKey);
    parlo->setClientKey(kLiveClientKey);
    QuickAckClient::timeScale = 1.0;
    parlo->setSocketFactory(
        [](const QUrl &url, const QVariantMap &options) { return new QuickAckClient(url, options); });
}

void LiveCoreTest::TearDown()
{
    CoreTest::TearDown();
    peer_.reset();
    server.reset();
}

bool LiveCoreTest::connectFacade(const QVariantMap &options)
{
    parlo->connectWithURL(url, options, [] {});
    return waitUntil([&] { return parlo->connectStatus() == 0; }, 10000);
}

void LiveCoreTest::signInFacade(const QString &id)
{
    ASSERT_TRUE(connectFacade());
    signUpAs(id);
    ASSERT_EQ(call(1, "/client/chatin/").toMap().value("clientID").toString(), id);
}

void LiveCoreTest::signUpAs(const QString &id)
{
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    settings->setClientID(id);
    settings->setToken(QString());
    const QVariantMap body = call(1, "/client/", {{"clientID", id}, {"username", id}}).toMap();
    settings->setToken(body.value("token").toString());
    settings->setCurrentUser(body);
}

Peer &LiveCoreTest::signedInPeer()
{
    if (!peer_) {
        peer_ = std::make_unique<Peer>(url);
        EXPECT_TRUE(peer_->connect() && peer_->signUp(uniqueID("peer")));
    }
    return *peer_;
}

QVariant LiveCoreTest::call(uint method, const QString &path, const QVariantMap &data)
{
    QVariantMap item {{"url", path}, {"headers", parlo->header()}};
    if (!data.isEmpty())
        item["data"] = data;
    // Shared with the blocks: an answer that comes after the wait gave up finds it still there.
    struct Answer {
        QVariant body;
        bool done = false;
    };
    const auto answer = std::make_shared<Answer>();
    parlo->emitWithMethod(
        method, item,
        [answer](const QVariant &body) {
            answer->body = body;
            answer->done = true;
        },
        [answer, path](const IMError &error) {
            if (!answer->done)
                ADD_FAILURE() << path.toStdString() << ": " << error.description().toStdString();
            answer->done = true;
        });
    if (!waitUntil([&] { return answer->done; }, 30000))
        ADD_FAILURE() << path.toStdString() << ": no answer";
    return answer->body;
}

IMRoomPtr LiveCoreTest::listed(const QString &id, Parlo *facade)
{
    for (const IMRoomPtr &r : (facade ? facade : parlo.get())->chatRooms())
        if (r->objectID() == id)
            return r;
    return nullptr;
}

QVariant LiveCoreTest::control(const QByteArray &method, const QString &path, const QVariantMap &body)
{
    QNetworkAccessManager http;
    QNetworkRequest request(QUrl(url + path));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    QNetworkReply *reply = http.sendCustomRequest(request, method, QJsonDocument::fromVariant(body).toJson());
    waitUntil([&] { return reply->isFinished(); }, 10000);
    const QVariant answer = QJsonDocument::fromJson(reply->readAll()).toVariant();
    delete reply;
    return answer;
}

QString LiveCoreTest::uniqueID(const QString &prefix)
{
    return prefix + "-" + QUuid::createUuid().toString(QUuid::Id128).left(8);
}

#include "UILiveSupport.h"

#include <QRegularExpression>

#include "IMAnimation.h"
#include "IMClient.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "Parlo.h"
#include "TestUtil.h"

namespace {
const QString kApiKey = QStringLiteral("ui-api");
const QString kClientKey = QStringLiteral("ui-client");
} // namespace

UIPeer::UIPeer(const QString &url) : socket(QUrl(url), {}) {}

bool UIPeer::signUp(const QString &id)
{
    socket.connect();
    if (!waitUntil([&] { return socket.status() == IMSocket::Status::Connected; }, 10000))
        return false;
    clientID = id;
    token = ok(QStringLiteral("post"), QStringLiteral("/client/"), {{"clientID", id}, {"username", id}}).toMap().value("token").toString();
    return !token.isEmpty();
}

QVariant UIPeer::ok(const QString &method, const QString &path, const QVariantMap &data)
{
    QVariantMap envelope{{"url", path},
                         {"headers", QVariantMap{{"apiKey", kApiKey}, {"clientKey", kClientKey}, {"clientID", clientID}, {"token", token}}}};
    if (!data.isEmpty())
        envelope["data"] = data;
    QVariantMap answer;
    bool done = false;
    socket.emitWithAck(method, {envelope}, 10, [&](const QVariantList &items) {
        answer = items.value(0).toMap();
        done = true;
    });
    waitUntil([&] { return done; }, 12000);
    EXPECT_EQ(answer.value("statusCode").toInt(), 200) << path.toStdString() << " " << answer.value("body").toString().toStdString();
    return answer.value("body");
}

void UILiveTest::SetUp()
{
    IMSetAnimationsEnabled(false);
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir.filePath(QStringLiteral("settings.ini")));
    IMPlatform::instance()->setDocumentsPath(dir.filePath(QStringLiteral("data")));
    IMPlatform::instance()->setTemporaryPath(dir.filePath(QStringLiteral("cache")));
    server = std::make_unique<NodeProcess>(QStringLiteral(PARLO_SOURCE_DIR "/server/index.js"),
                                           QStringList{"--port", "0", "--api-key", kApiKey, "--client-key", kClientKey},
                                           QRegularExpression(QStringLiteral("^parlo-server listening on \\S+:(\\d+)$")));
    ASSERT_TRUE(server->start()) << server->errorText().toStdString();
    url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
    Parlo::shareInstance()->setApiKey(kApiKey);
    Parlo::shareInstance()->setClientKey(kClientKey);
}

void UILiveTest::TearDown()
{
    qInfo("teardown start");
    server.reset();
    qInfo("teardown end");
    IMSetAnimationsEnabled(true);
}

void UILiveTest::signIn(const QString &id)
{
    Parlo *parlo = Parlo::shareInstance();
    parlo->connectWithURL(url, {}, [] {});
    ASSERT_TRUE(waitUntil([&] { return parlo->connectStatus() == 0; }, 10000));
    auto me = std::make_shared<IMClient>();
    me->setClientID(id);
    me->setUsername(id);
    bool chattedIn = false;
    parlo->signWithClient(me, [&](const IMClientPtr &) {
        parlo->chatinSuccess([&](const IMClientPtr &) { chattedIn = true; }, [](const IMError &e) { ADD_FAILURE() << e.description().toStdString(); });
    }, [](const IMError &e) { ADD_FAILURE() << e.description().toStdString(); });
    ASSERT_TRUE(waitUntil([&] { return chattedIn; }, 10000));
}

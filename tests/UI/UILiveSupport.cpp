#include "UILiveSupport.h"

#include "IMAnimation.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "Parlo.h"
#include "TestUtil.h"

namespace {
const QString kApiKey = QStringLiteral("ui-api");
const QString kClientKey = QStringLiteral("ui-client");
} // namespace

UIPeer::UIPeer(const QString &url)
    : ServerPeer(url, kApiKey, kClientKey)
{
}

void UILiveTest::SetUp()
{
    IMSetAnimationsEnabled(false);
    IMPlatform::instance()->setDocumentsPath(dir.filePath(QStringLiteral("data")));
    IMPlatform::instance()->setTemporaryPath(dir.filePath(QStringLiteral("cache")));
    server = startReferenceServer({"--api-key", kApiKey, "--client-key", kClientKey});
    ASSERT_TRUE(server->isRunning());
    url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
    Parlo::shareInstance()->setApiKey(kApiKey);
    Parlo::shareInstance()->setClientKey(kClientKey);
    ASSERT_TRUE(signInAs(Parlo::shareInstance(), url, QStringLiteral("alice")));
    bob = std::make_unique<UIPeer>(url);
    ASSERT_TRUE(bob->signUp(QStringLiteral("bob")));
}

void UILiveTest::TearDown()
{
    bob.reset();
    server.reset();
    IMSetAnimationsEnabled(true);
}

QString UILiveTest::bobsRoomWithAlice(const QString &name)
{
    return bob->ok("post", "/room", {{"name", name}, {"client", QVariantList {"alice"}}}).value("id").toString();
}

QString UILiveTest::bobWrites(const QString &roomID, const QString &text, qint64 idFromSender)
{
    return bob
        ->ok("post", "/message/",
            {{"room", roomID}, {"message", text}, {"messageType", "text"}, {"idFromSender", idFromSender}})
        .value("id")
        .toString();
}

IMRoomPtr UILiveTest::fetchRoom(const QString &id)
{
    IMRoomPtr room;
    Parlo::shareInstance()->roomWithRoomID(
        id, [&](const IMRoomPtr &r) { room = r; }, [](const IMError &) {});
    EXPECT_TRUE(waitUntil([&] { return bool(room); }, 10000)) << "room " << id.toStdString();
    return room;
}

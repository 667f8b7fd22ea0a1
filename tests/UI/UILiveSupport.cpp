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
    server = startReferenceServer({ "--api-key", kApiKey, "--client-key", kClientKey });
    ASSERT_TRUE(server->isRunning());
    url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
    Parlo::shareInstance()->setApiKey(kApiKey);
    Parlo::shareInstance()->setClientKey(kClientKey);
}

void UILiveTest::TearDown()
{
    server.reset();
    IMSetAnimationsEnabled(true);
}

void UILiveTest::signIn(const QString &id)
{
    ASSERT_TRUE(signInAs(Parlo::shareInstance(), url, id));
}

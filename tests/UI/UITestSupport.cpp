#include "UITestSupport.h"

#include "IMAnimation.h"
#include "IMMessageViewController.h"
#include "IMNavigationController.h"
#include "IMUserDefaults.h"

#include <QTest>

IMNavigationController *showInNavigation(
    IMWindow &window, IMUIViewController *root, const std::function<void(IMNavigationController *)> &style)
{
    window.resize(390, 640);
    auto *nav = new IMNavigationController(root);
    if (style)
        style(nav);
    window.setRootViewController(nav);
    window.show();
    settle();
    return nav;
}

IMMessageViewController *showConversation(IMWindow &window, const IMRoomPtr &room, bool echoReads)
{
    auto *screen = new IMMessageViewController;
    screen->echoReadToRoom = echoReads;
    screen->setRoom(room);
    showInNavigation(window, screen);
    return screen;
}

SettingsInDir::SettingsInDir(const QTemporaryDir &dir)
{
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir.filePath(QStringLiteral("settings.ini")));
}

SettingsInDir::~SettingsInDir() { IMUserDefaults::standardUserDefaults()->setSettingsFile(QString()); }

ScreenTest::ScreenTest()
{
    IMSetAnimationsEnabled(false);
    IMUserDefaults::standardUserDefaults()->setCurrentUser({{"clientID", "me"}, {"username", "me"}});
}

ScreenTest::~ScreenTest() { IMSetAnimationsEnabled(true); }

QPointingDevice *testTouchScreen()
{
    static QPointingDevice *device = QTest::createTouchDevice();
    return device;
}

#include <QMutex>
#include <QRegularExpression>

namespace {
QMutex g_logLock;
QStringList g_lines;
QtMessageHandler g_previous = nullptr;

void capture(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    {
        QMutexLocker lock(&g_logLock);
        g_lines << message;
    }
    if (g_previous)
        g_previous(type, context, message);
}
} // namespace

LogCapture::LogCapture()
{
    QMutexLocker lock(&g_logLock);
    g_lines.clear();
    g_previous = qInstallMessageHandler(capture);
}

LogCapture::~LogCapture() { qInstallMessageHandler(g_previous); }

QStringList LogCapture::texts() const
{
    QMutexLocker lock(&g_logLock);
    QStringList out;
    static const QRegularExpression prefix(QStringLiteral("^<[^>]*:\\d+> "));
    for (const QString &line : g_lines)
        if (line.contains(prefix))
            out << QString(line).remove(prefix);
    return out;
}

#include <ParloSDK/ParloSDK.h>
#include <ParloSDK/ParloSDKUI.h>

#include <QApplication>

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // The installed headers and libraries are usable: the facade starts with its defaults, and a
    // small window of the kit's screens shows.
    if (Parlo::shareInstance()->timeout() != 5 || kParloDidChatIn != QLatin1String("ParloDidChatIn"))
        return 1;
    IMWindow window;
    auto *screen = new IMViewController;
    screen->setTitle(QStringLiteral("Hello"));
    auto *nav = new IMNavigationController(screen);
    window.setRootViewController(nav);
    window.resize(320, 480);
    window.show();
    QApplication::processEvents();
    return nav->topViewController() == screen && screen->isViewLoaded() && !window.grab().isNull() ? 0 : 2;
}

// Signs in to a chat server, sends "hello" to the newest room and prints what arrives.
//   parlo-hello [server URL] [client id]     (defaults: http://127.0.0.1:3000 alice)
#include <ParloSDK/ParloSDK.h>

#include <QCoreApplication>
#include <QTimer>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const QString url = args.value(1, QStringLiteral("http://127.0.0.1:3000"));
    const QString clientID = args.value(2, QStringLiteral("alice"));

    Parlo *parlo = Parlo::shareInstance();
    parlo->setApiKey(QStringLiteral("parlo-dev-api-key")); // the reference server's development keys
    parlo->setClientKey(QStringLiteral("parlo-dev-client-key"));
    auto fail = [](const IMError &e) {
        std::fprintf(stderr, "failed: %s\n", qPrintable(e.description()));
        QCoreApplication::exit(1);
    };

    IMNotificationCenter::defaultCenter()->addObserver(kParloDidReceiveMessage, [](const IMNotification &n) {
        const IMMessagePtr message = n.object.value<IMMessagePtr>();
        const QString from = message->sender() ? message->sender()->clientID() : QString();
        std::printf("%s: %s\n", qPrintable(from), qPrintable(message->message()));
    });

    bool started = false;
    IMNotificationCenter::defaultCenter()->addObserver(kParloDidChangeConnectStatus, [&](const IMNotification &n) {
        if (n.userInfo.value(QStringLiteral("status")).toInt() != 0 || started)
            return; // 0: connected
        started = true;
        auto me = std::make_shared<IMClient>();
        me->setClientID(clientID);
        me->setUsername(clientID);
        parlo->signWithClient(
            me,
            [=](const IMClientPtr &) {
                parlo->chatinSuccess(
                    [=](const IMClientPtr &) {
                        std::printf(
                            "signed in as %s with %d rooms\n", qPrintable(clientID), int(parlo->chatRooms().size()));
                        if (parlo->chatRooms().isEmpty()) {
                            QCoreApplication::quit();
                            return;
                        }
                        IMMessagePtr hello = IMMessage::initWithRoom(parlo->chatRooms().first());
                        hello->setMessage(QStringLiteral("hello"));
                        hello->setMessageType(kMessageTypeText);
                        parlo->sendMessage(
                            hello, [](const IMMessagePtr &) {}, fail);
                        QTimer::singleShot(1000, QCoreApplication::instance(), &QCoreApplication::quit);
                    },
                    fail);
            },
            fail);
    });
    parlo->connectWithURL(url, {}, [] {});
    QTimer::singleShot(15000, &app, [] {
        std::fprintf(stderr, "no connection\n");
        QCoreApplication::exit(3);
    });
    return app.exec();
}

// parlo-chat: a small host application on the kit's public headers, the way an application
// developer would write one: a window of its own with the kit's chat button, signed in as one user.
//
//   parlo-chat --url http://127.0.0.1:3000 --client-id alice --name Alice [--profile DIR]
//   parlo-chat                       asks for the server address and the user first
//   parlo-chat ... --tour DIR        walks the screens with the user's data, saves a picture of each, quits
//   parlo-chat ... --self-test DIR   signs in, opens the room list with the chat button, saves a
//                                    picture of the real window to DIR/parlo-chat.png and quits
#include <ParloSDK/ParloSDK.h>
#include <ParloSDK/ParloSDKUI.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFormLayout>
#include <QLineEdit>
#include <QScreen>
#include <QTimer>
#include <QUrl>

#include "ChatWindow.h"

namespace {
// Keeps this user's session, store and cache in one folder, so two users can share a machine.
void useProfile(const QString &dir)
{
    QDir root(dir);
    root.mkpath(QStringLiteral("data"));
    root.mkpath(QStringLiteral("cache"));
    IMUserDefaults::standardUserDefaults()->setSettingsFile(root.absoluteFilePath(QStringLiteral("settings.ini")));
    IMPlatform::instance()->setDocumentsPath(root.absoluteFilePath(QStringLiteral("data")));
    IMPlatform::instance()->setTemporaryPath(root.absoluteFilePath(QStringLiteral("cache")));
}

// Signs `clientID` up (a no-op for a known client) and chats in, once the connection is up.
void signIn(const QString &clientID, const QString &name, ChatWindow *window)
{
    Parlo *parlo = Parlo::shareInstance();
    auto me = std::make_shared<IMClient>();
    me->setClientID(clientID);
    me->setUsername(name);
    parlo->signWithClient(
        me,
        [parlo, window](const IMClientPtr &) {
            parlo->chatinSuccess(
                [window](const IMClientPtr &client) {
                    qInfo("parlo-chat: signed in as %s", qPrintable(client->clientID()));
                    window->setStatus(QObject::tr("Signed in as %1.").arg(client->clientID()));
                },
                [window](const IMError &e) { window->setStatus(QObject::tr("Chat-in failed: %1").arg(e.info())); });
        },
        [window](const IMError &e) { window->setStatus(QObject::tr("Sign-up failed: %1").arg(e.info())); });
}

// Asks for the server's address and who to sign in as; false when cancelled.
bool askForSignIn(QString *url, QString *clientID)
{
    QDialog dialog;
    dialog.setWindowTitle(QObject::tr("Sign in to Parlo Chat"));
    auto *form = new QFormLayout(&dialog);
    auto *server = new QLineEdit(*url, &dialog);
    server->setMinimumWidth(300);
    auto *user = new QLineEdit(QStringLiteral("alice"), &dialog);
    form->addRow(QObject::tr("Server"), server);
    form->addRow(QObject::tr("User"), user);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    form->addRow(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    user->setFocus();
    user->selectAll();
    if (dialog.exec() != QDialog::Accepted || user->text().trimmed().isEmpty()
        || !QUrl(server->text().trimmed()).isValid())
        return false;
    *url = server->text().trimmed();
    *clientID = user->text().trimmed();
    return true;
}

// The self-test: opens the room list with a click on the chat button and keeps a picture of the
// real window. Exit code 0 when the room list came up.
void runSelfTest(ChatWindow *window, const QString &dir)
{
    QTimer::singleShot(30000, qApp, [] {
        qCritical("parlo-chat: self-test timed out");
        QCoreApplication::exit(1);
    });
    IMNotificationCenter::defaultCenter()->addObserver(kParloDidChatIn, [window, dir](const IMNotification &) {
        QTimer::singleShot(300, window, [window, dir] {
            window->chatButton()->click();
            QTimer::singleShot(1200, window, [window, dir] {
                const bool open
                    = window->findChild<IMUIViewController *>(QStringLiteral("IMRoomViewController")) || [window] {
                          for (auto *vc : window->findChildren<IMUIViewController *>())
                              if (QLatin1String(vc->metaObject()->className()) == QLatin1String("IMRoomViewController"))
                                  return true;
                          return false;
                      }();
                QDir().mkpath(dir);
                const QString path = QDir(dir).filePath(QStringLiteral("parlo-chat.png"));
                QScreen *screen = window->screen();
                const bool saved = screen && screen->grabWindow(window->winId()).save(path);
                qInfo("parlo-chat: room list %s; window picture %s", open ? "shown" : "missing",
                    saved ? qPrintable(path) : "not saved");
                window->close();
                QCoreApplication::exit(open && saved ? 0 : 1);
            });
        });
    });
}
// The tour: Alice's screens one after another, each saved as a picture in `dir` (offscreen is fine).
void runTour(ChatWindow *window, const QString &dir)
{
    QDir().mkpath(dir);
    auto save = [window, dir](const QString &name) {
        const QString path = QDir(dir).filePath(name + QStringLiteral(".png"));
        window->grab().save(path);
        qInfo("parlo-chat: %s", qPrintable(path));
    };
    // Each step runs after the previous one had time to show (and its pictures to load).
    auto steps = std::make_shared<QList<std::function<void()>>>();
    auto conversation = [window]() -> IMMessageViewController * {
        auto *rooms = window->chatButton()->roomController();
        auto *nav = rooms ? rooms->navigationController() : nullptr;
        return nav ? qobject_cast<IMMessageViewController *>(nav->topViewController()) : nullptr;
    };
    auto rowOf = [](IMMessageViewController *screen, const QString &type) {
        const QList<IMMessagePtr> messages = screen->dataSource();
        for (int i = messages.size() - 1; i >= 0; --i)
            if (messages[i]->messageType() == type)
                return i;
        return -1;
    };
    *steps << [=] {
        save(QStringLiteral("1-home"));
        window->chatButton()->click();
    } << [=] {
        save(QStringLiteral("2-room-list"));
        auto *rooms = window->chatButton()->roomController();
        if (rooms && !rooms->dataSource().isEmpty())
            rooms->enterRoom(rooms->dataSource().first(), false);
    } << [=] {
        if (auto *screen = conversation()) {
            save(QStringLiteral("3-conversation"));
            screen->inputTextView->setFocus();
            screen->inputTextView->setText(QStringLiteral("Great, see you at noon!\nI'll bring the map 🗺️"));
            screen->inputTextView->moveCursor(QTextCursor::End);
        }
    } << [=] {
        if (auto *screen = conversation()) {
            save(QStringLiteral("4-composing"));
            screen->sendMessageBtnPressed();
        }
    } << [=] {
        if (auto *screen = conversation())
            screen->longPressForMessageAtRowOfIndexPath(
                IMIndexPath::indexPathForRow(rowOf(screen, QStringLiteral("text"))));
    } << [=] {
        save(QStringLiteral("5-message-menu"));
        if (auto *sheet = UxAlertController::current())
            sheet->choose(-1);
        auto *screen = conversation();
        const int row = screen ? rowOf(screen, QStringLiteral("image")) : -1;
        if (row >= 0) {
            const IMIndexPath path = IMIndexPath::indexPathForRow(row);
            screen->tableview()->scrollToRowAtIndexPath(path, IMTableView::ScrollPositionMiddle, false);
            screen->IMMessageTableViewCellImageViewDidPressed(
                qobject_cast<IMMessageTableViewCell *>(screen->tableview()->cellForRowAtIndexPath(path)));
        }
    } << [=] {
        auto *screen = conversation();
        if (screen && screen->imageViewBackgroundView) {
            save(QStringLiteral("6-picture-viewer"));
            delete screen->imageViewBackgroundView;
        }
        if (auto *rooms = window->chatButton()->roomController()) {
            if (rooms->navigationController())
                rooms->navigationController()->popToRootViewControllerAnimated(false);
            rooms->createRoomItemPressed();
        }
    } << [=] {
        save(QStringLiteral("7-create-choice"));
        if (auto *sheet = UxAlertController::current())
            sheet->choose(0);
    } << [=] {
        save(QStringLiteral("8-create-room"));
        QCoreApplication::exit(0);
    };
    auto next = std::make_shared<std::function<void()>>();
    *next = [steps, next] {
        if (steps->isEmpty())
            return;
        steps->takeFirst()();
        QTimer::singleShot(900, qApp, *next);
    };
    IMNotificationCenter::defaultCenter()->addObserver(
        kParloDidChatIn, [next](const IMNotification &) { QTimer::singleShot(600, qApp, *next); });
    QTimer::singleShot(40000, qApp, [] {
        qCritical("parlo-chat: tour timed out");
        QCoreApplication::exit(1);
    });
}
} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("parlo-chat"));
    QApplication::setOrganizationName(QStringLiteral("ParloSDK"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A chat window on the ParloSDK screens."));
    parser.addHelpOption();
    const QCommandLineOption urlOption(QStringLiteral("url"), QStringLiteral("server address"), QStringLiteral("URL"),
        QStringLiteral("http://127.0.0.1:3000"));
    const QCommandLineOption idOption(QStringLiteral("client-id"), QStringLiteral("who to be"), QStringLiteral("ID"));
    const QCommandLineOption nameOption(QStringLiteral("name"), QStringLiteral("display name"), QStringLiteral("NAME"));
    const QCommandLineOption profileOption(
        QStringLiteral("profile"), QStringLiteral("folder of this user's session"), QStringLiteral("DIR"));
    const QCommandLineOption apiKeyOption(QStringLiteral("api-key"), QStringLiteral("application key"),
        QStringLiteral("KEY"), QStringLiteral("parlo-dev-api-key"));
    const QCommandLineOption clientKeyOption(QStringLiteral("client-key"), QStringLiteral("client key"),
        QStringLiteral("KEY"), QStringLiteral("parlo-dev-client-key"));
    const QCommandLineOption tourOption(QStringLiteral("tour"),
        QStringLiteral("walk the screens, save a picture of each, quit"), QStringLiteral("DIR"));
    const QCommandLineOption selfTestOption(
        QStringLiteral("self-test"), QStringLiteral("open the room list, save a picture, quit"), QStringLiteral("DIR"));
    parser.addOptions(
        {urlOption, idOption, nameOption, profileOption, apiKeyOption, clientKeyOption, selfTestOption, tourOption});
    parser.process(app);

    QString clientID = parser.value(idOption);
    QString url = parser.value(urlOption);
    if (clientID.isEmpty() && !askForSignIn(&url, &clientID))
        return 2;
    const QString name = parser.isSet(nameOption) ? parser.value(nameOption) : clientID;
    if (parser.isSet(profileOption))
        useProfile(parser.value(profileOption));

    // The kit's conversation screen, set up the way this host wants it: read markers on.
    IMStoryboard::registerViewController(QStringLiteral("IMMain"), QStringLiteral("IMMessageViewController"), [] {
        auto *conversation = new IMMessageViewController;
        conversation->echoReadToRoom = true;
        return static_cast<IMUIViewController *>(conversation);
    });

    ChatWindow window;
    window.resize(420, 760);
    window.setUserName(name);
    window.setStatus(QObject::tr("Connecting to %1…").arg(url));
    window.show();

    Parlo *parlo = Parlo::shareInstance();
    parlo->setApiKey(parser.value(apiKeyOption));
    parlo->setClientKey(parser.value(clientKeyOption));
    // Sign in at the first connection, and show the connection's state as it changes.
    auto signedIn = std::make_shared<bool>(false);
    IMNotificationCenter::defaultCenter()->addObserver(
        kParloDidChangeConnectStatus, [&, signedIn](const IMNotification &n) {
            const int status = n.userInfo.value(QStringLiteral("status")).toInt();
            if (status == ParloConnectStatusConnected && !*signedIn) {
                *signedIn = true;
                signIn(clientID, name, &window);
            } else if (status != 0) {
                window.setStatus(QObject::tr("Offline (status %1); reconnecting…").arg(status));
            }
        });
    // Says once when the first message arrives, and how long after the start (the demo reports it).
    QElapsedTimer sinceStart;
    sinceStart.start();
    auto firstMessage = std::make_shared<IMNotificationCenter::Token>();
    *firstMessage = IMNotificationCenter::defaultCenter()->addObserver(
        kParloDidReceiveMessage, {}, IMDispatchQueue::mainQueue(), [firstMessage, &sinceStart](const IMNotification &) {
            qInfo("parlo-chat: first message after %lld ms", sinceStart.elapsed());
            IMNotificationCenter::defaultCenter()->removeObserver(*firstMessage);
        });
    if (parser.isSet(selfTestOption))
        runSelfTest(&window, parser.value(selfTestOption));
    if (parser.isSet(tourOption))
        runTour(&window, parser.value(tourOption));
    parlo->connectWithURL(url, {}, [] {});
    return app.exec();
}

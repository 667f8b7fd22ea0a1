#include "CliSession.h"

#include <ParloSDK/IMClient.h>
#include <ParloSDK/IMFile.h>
#include <ParloSDK/IMPlatform.h>
#include <ParloSDK/IMUserDefaults.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QPointer>
#include <QSaveFile>

#include <unistd.h>

#include <algorithm>

namespace ParloCli {
namespace {

    // The scheme under which parlo-cli opens join links.
    const QString kScheme = QStringLiteral("parlo");

    // Wraps `done` so that only its first call gets through.
    Session::Done once(Session::Done done)
    {
        auto called = std::make_shared<bool>(false);
        return [called, done = std::move(done)](int code) {
            if (*called)
                return;
            *called = true;
            done(code);
        };
    }

    IMRoomPtr roomWithID(const QString &id)
    {
        auto room = std::make_shared<IMRoom>();
        room->setObjectID(id);
        return room;
    }

} // namespace

Session::Session(Parlo *parlo, const Options &options, Printer &printer, QObject *parent)
    : QObject(parent)
    , m_parlo(parlo)
    , m_options(options)
    , m_printer(printer)
{
    m_connectDeadline.setSingleShot(true);
    connect(&m_connectDeadline, &QTimer::timeout, this, [this] {
        finish(ExitUnreachable,
            QStringLiteral("could not connect to %1 within %2 s").arg(m_options.url).arg(m_options.timeout));
    });
}

Session::~Session()
{
    if (m_parlo->delegate() == this)
        m_parlo->setDelegate(nullptr);
}

void Session::finish(int code, const QString &error)
{
    if (m_done)
        return;
    m_done = true;
    m_connectDeadline.stop();
    if (!error.isEmpty())
        m_printer.error(code, error);
    m_printer.endProgress();
    if (m_finished)
        m_finished(code);
}

void Session::start(Done finished)
{
    m_finished = std::move(finished);
    m_parlo->setApiKey(m_options.apiKey);
    m_parlo->setClientKey(m_options.clientKey);
    m_parlo->setIdentityToken(m_options.identityToken);
    m_parlo->setTimeout(qMin<qint64>(m_options.timeout, 30));
    m_parlo->setDelegate(this);
    // The join links of this client: "parlo://parlo.integrate/joinRoom/<id>".
    IMPlatform::instance()->setInfoDictionary(
        {{QStringLiteral("CFBundleURLTypes"),
             QVariantList {QVariantMap {{QStringLiteral("CFBundleURLSchemes"), QVariantList {kScheme}}}}},
            {QStringLiteral("parlo"),
                QVariantMap {{QStringLiteral("storeid"), QString()},
                    {QStringLiteral("url"), kScheme + QStringLiteral("://") + kJoinLinkHost}}}});

    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    if (m_options.command != QLatin1String("signup") && m_options.clientID.isEmpty()
        && settings->clientID().isEmpty()) {
        finish(ExitUsage,
            QStringLiteral("nobody is signed in with this profile: give --client-id ID (and --name NAME), "
                           "or run parlo-cli signup --client-id ID"));
        return;
    }

    QVariantMap socketOptions {{QStringLiteral("version"), m_options.protocol == 3 ? 2 : 3},
        {QStringLiteral("openTimeout"), m_options.timeout}, {QStringLiteral("reconnectWait"), 1},
        {QStringLiteral("reconnectWaitMax"), 5}};
    if (m_options.transport == QLatin1String("websocket"))
        socketOptions.insert(QStringLiteral("forceWebsockets"), true);
    else if (m_options.transport == QLatin1String("polling"))
        socketOptions.insert(QStringLiteral("forcePolling"), true);
    m_connectDeadline.start(m_options.timeout * 1000);
    m_parlo->connectWithURL(m_options.url, socketOptions, [] {});
}

void Session::interrupt()
{
    const bool calm = m_options.command.isEmpty() || m_options.command == QLatin1String("shell")
        || m_options.command == QLatin1String("watch");
    if (calm)
        finish(m_options.command == QLatin1String("watch") ? ExitOk : m_shellCode);
    else
        finish(ExitFailure, QStringLiteral("interrupted"));
}

// ---- connection, sign-up and chat-in ------------------------------------------------------------

void Session::ParloDidChangeConnectStatus(int status, const QString &message)
{
    if (m_watching)
        m_printer.result(statusEvent(status, message));
    if (status == ParloConnectStatusConnected) {
        if (!m_everConnected) {
            m_everConnected = true;
            m_connectDeadline.stop();
            connected();
        } else if (m_ready) {
            // A new connection is anonymous to the server until a request proves who we are.
            chatIn(false);
        }
        return;
    }
    if (status == ParloConnectStatusDisconnected && m_ready && message == QLatin1String("io server disconnect")) {
        // The socket does not come back by itself when the server ended the connection: ask it
        // to, after the delays it uses for a dropped one (1 s, doubling, at most 5 s).
        const int delayMs = int(qMin<qint64>(qint64(1000) << qMin(m_serverDrops++, 3), 5000));
        QTimer::singleShot(delayMs, this, [this] {
            if (!m_done)
                m_parlo->reconnect();
        });
        return;
    }
    if (status == ParloConnectStatusError && !m_everConnected && ++m_connectErrors >= 3)
        finish(ExitUnreachable, QStringLiteral("cannot reach the server at %1 (%2)").arg(m_options.url, message));
}

void Session::connected()
{
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    const QString stored = settings->clientID();
    if (m_options.command == QLatin1String("signup")
        || (!m_options.clientID.isEmpty() && (m_options.clientID != stored || settings->token().isEmpty())))
        signUpThenChatIn(m_options.clientID, m_options.name);
    else
        chatIn(true);
}

void Session::signUpThenChatIn(const QString &clientID, const QString &name)
{
    auto client = std::make_shared<IMClient>();
    client->setClientID(clientID);
    client->setUsername(name.isEmpty() ? clientID : name);
    m_parlo->signWithClient(
        client, [this](const IMClientPtr &) { chatIn(false); },
        [this](const IMError &error) {
            finish(exitCodeFor(error, m_parlo->connectStatus() == ParloConnectStatusConnected),
                QStringLiteral("sign-up failed: %1")
                    .arg(describeError(error, m_parlo->connectStatus() == ParloConnectStatusConnected)));
        });
}

void Session::chatIn(bool mayRepair)
{
    const bool first = !m_ready;
    m_parlo->chatinSuccess(
        [this, first](const IMClientPtr &client) {
            m_me = client->clientID();
            m_serverDrops = 0;
            if (!first)
                return;
            // The facade lists the rooms after this block: take them on the next turn.
            QTimer::singleShot(0, this, [this, client] {
                remember(m_parlo->chatRooms());
                if (m_options.command == QLatin1String("signup"))
                    m_printer.result(clientLine(client, m_parlo->badge()->total()));
                ready();
            });
        },
        [this, mayRepair, first](const IMError &error) {
            if (!first)
                return;
            // A server that forgot us (a new data folder): sign up again under the same id.
            const QString stored = IMUserDefaults::standardUserDefaults()->clientID();
            if (mayRepair && error.code() == 401 && !stored.isEmpty()) {
                const QString name = IMClient::currentClient()->username();
                signUpThenChatIn(stored, m_options.name.isEmpty() ? name : m_options.name);
                return;
            }
            finish(exitCodeFor(error, m_parlo->connectStatus() == ParloConnectStatusConnected),
                QStringLiteral("chat-in failed: %1")
                    .arg(describeError(error, m_parlo->connectStatus() == ParloConnectStatusConnected)));
        });
}

QList<IMRoomPtr> Session::knownRooms()
{
    QList<IMRoomPtr> rooms = m_parlo->chatRooms();
    for (const IMRoomPtr &extra : m_otherRooms) {
        bool listed = false;
        for (const IMRoomPtr &r : rooms)
            listed = listed || r->objectID() == extra->objectID();
        if (!listed)
            rooms.append(extra);
    }
    return rooms;
}

void Session::remember(const QList<IMRoomPtr> &rooms)
{
    for (const IMRoomPtr &room : rooms) {
        // Rooms made or joined in this run are not in the facade's list until the next chat-in.
        m_otherRooms.erase(std::remove_if(m_otherRooms.begin(), m_otherRooms.end(),
                               [&](const IMRoomPtr &r) { return r->objectID() == room->objectID(); }),
            m_otherRooms.end());
        m_otherRooms.append(room);
        m_members.insert(room->objectID(), memberIDs(room));
        m_readTimes.insert(room->objectID(), room->readTime());
    }
}

void Session::ready()
{
    m_ready = true;
    const QString command = m_options.command;
    if (command == QLatin1String("signup")) {
        finish(ExitOk);
        return;
    }
    if (command.isEmpty() || command == QLatin1String("shell")) {
        startShell();
        return;
    }
    run(m_options, [this](int code) { finish(code); });
}

// ---- commands -----------------------------------------------------------------------------------

void Session::fail(const Done &done, const IMError &error, const QString &what)
{
    const bool connected = m_parlo->connectStatus() == ParloConnectStatusConnected;
    const int code = exitCodeFor(error, connected);
    m_printer.error(code, QStringLiteral("%1: %2").arg(what, describeError(error, connected)));
    done(code);
}

bool Session::roomFor(const Options &o, const QString &reference, IMRoomPtr *room, const Done &done)
{
    QString error;
    const QList<IMRoomPtr> rooms = knownRooms();
    const QString id = resolveRoom(reference, rooms, &error);
    if (id.isEmpty()) {
        m_printer.error(ExitUsage, QStringLiteral("%1: %2").arg(o.command, error));
        done(ExitUsage);
        return false;
    }
    for (const IMRoomPtr &listed : rooms) {
        if (listed->objectID() == id) {
            *room = listed;
            return true;
        }
    }
    *room = roomWithID(id);
    return true;
}

void Session::run(const Options &o, Done done)
{
    done = once(std::move(done));
    const QString &c = o.command;
    IMRoomPtr room;
    if (c == QLatin1String("rooms")) {
        runRooms(o, done);
    } else if (c == QLatin1String("create-room")) {
        runCreateRoom(o, done);
    } else if (c == QLatin1String("download")) {
        runDownload(o, done);
    } else if (c == QLatin1String("open-link")) {
        runOpenLink(o, done);
    } else if (c == QLatin1String("watch")) {
        runWatch(o, done);
    } else if (!roomFor(o, o.args.value(0), &room, done)) {
        return;
    } else if (c == QLatin1String("join")) {
        m_parlo->joinRoom(
            room,
            [this, done](const IMRoomPtr &joined) {
                remember({joined});
                m_printer.result(roomLine(joined, m_me));
                done(ExitOk);
            },
            [this, done](const IMError &e) { fail(done, e, QStringLiteral("join")); });
    } else if (c == QLatin1String("archive")) {
        m_parlo->archiveRoom(
            room,
            [this, done](const IMRoomPtr &archived) {
                m_printer.result(roomLine(archived, m_me));
                done(ExitOk);
            },
            [this, done](const IMError &e) { fail(done, e, QStringLiteral("archive")); });
    } else if (c == QLatin1String("history")) {
        runHistory(o, room, done);
    } else if (c == QLatin1String("send")) {
        runSend(room, o.args.value(1), done);
    } else if (c == QLatin1String("send-picture") || c == QLatin1String("send-file")) {
        runUpload(o, room, o.args.value(1), c == QLatin1String("send-picture"), done);
    } else if (c == QLatin1String("read")) {
        runRead(o, room, done);
    } else if (c == QLatin1String("link")) {
        const QString link = joinLink(kScheme, room->objectID());
        m_printer.result({link,
            {{QStringLiteral("type"), QStringLiteral("link")}, {QStringLiteral("room"), room->objectID()},
                {QStringLiteral("link"), link}}});
        done(ExitOk);
    } else {
        m_printer.error(ExitUsage, QStringLiteral("%1 cannot run here").arg(c));
        done(ExitUsage);
    }
}

void Session::runRooms(const Options &o, Done done)
{
    m_parlo->roomListWithOffset(
        o.offset, o.limit,
        [this, done](const QList<IMRoomPtr> &rooms) {
            remember(rooms);
            if (rooms.isEmpty())
                m_printer.note(QStringLiteral("no rooms"));
            for (const IMRoomPtr &room : rooms)
                m_printer.result(roomLine(room, m_me));
            done(ExitOk);
        },
        [this, done](const IMError &e) { fail(done, e, QStringLiteral("rooms")); });
}

void Session::runCreateRoom(const Options &o, Done done)
{
    auto room = std::make_shared<IMRoom>();
    room->setName(o.args.value(0));
    if (o.isPublic)
        room->setIsPublic(true);
    QVariantList members;
    for (const QString &id : o.members)
        members.append(QVariantMap {{QStringLiteral("clientID"), id}});
    if (!members.isEmpty())
        room->setClient(members);
    m_parlo->createRoom(
        room,
        [this, done](const IMRoomPtr &created) {
            remember({created});
            m_printer.result(roomLine(created, m_me));
            done(ExitOk);
        },
        [this, done](const IMError &e) { fail(done, e, QStringLiteral("create-room")); });
}

void Session::runHistory(const Options &o, const IMRoomPtr &room, Done done)
{
    const QString reference = o.args.value(0);
    const int limit = o.limit;
    auto shown = [this, done, reference, limit](const QList<IMMessagePtr> &messages) {
        for (const IMMessagePtr &m : messages)
            m_printer.result(messageLine(m));
        const QString oldest = messages.isEmpty() ? QString() : messages.first()->createdAt();
        const bool more = messages.size() >= limit;
        if (m_printer.json()) {
            m_printer.result({QString(),
                {{QStringLiteral("type"), QStringLiteral("page")}, {QStringLiteral("count"), messages.size()},
                    {QStringLiteral("older"), more ? QVariant(oldest) : QVariant()}}});
        } else if (messages.isEmpty()) {
            m_printer.note(QStringLiteral("no messages"));
        } else if (more) {
            m_printer.note(QStringLiteral("older: parlo-cli history '%1' --before %2").arg(reference, oldest));
        }
        done(ExitOk);
    };
    auto failed = [this, done](const IMError &e) { fail(done, e, QStringLiteral("history")); };
    if (!o.before.isEmpty())
        m_parlo->messageWithRoom(room, o.before, limit, shown, failed);
    else
        m_parlo->messageWithRoom(room, qint64(o.page - 1) * limit, limit, shown, failed);
}

void Session::sendMessage(const IMMessagePtr &message, Done done)
{
    m_parlo->sendMessage(
        message,
        [this, done](const IMMessagePtr &sent) {
            m_printer.result(messageLine(sent));
            done(ExitOk);
        },
        [this, done](const IMError &e) { fail(done, e, QStringLiteral("send")); });
}

void Session::runSend(const IMRoomPtr &room, const QString &text, Done done)
{
    IMMessagePtr message = IMMessage::initWithRoom(room);
    message->setMessageType(kMessageTypeText);
    message->setMessage(text);
    message->setSender(IMClient::currentClient());
    sendMessage(message, std::move(done));
}

void Session::runUpload(const Options &o, const IMRoomPtr &room, const QString &path, bool picture, Done done)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_printer.error(ExitUsage, QStringLiteral("%1: cannot read %2: %3").arg(o.command, path, file.errorString()));
        done(ExitUsage);
        return;
    }
    const QByteArray data = file.readAll();
    if (data.isEmpty()) {
        m_printer.error(ExitUsage, QStringLiteral("%1: %2 is empty").arg(o.command, path));
        done(ExitUsage);
        return;
    }
    if (picture) {
        QImageReader reader(path);
        if (!reader.canRead()) {
            m_printer.error(ExitUsage,
                QStringLiteral("send-picture: %1 is not a picture (%2); use send-file")
                    .arg(path, reader.errorString()));
            done(ExitUsage);
            return;
        }
    }
    const QString type = picture ? kMessageTypeImage : kMessageTypeOther;
    const qint64 total = data.size();
    const QString label = QStringLiteral("upload %1").arg(QFileInfo(path).fileName());
    m_printer.progress(label, 0, total);
    m_parlo->uploadFileWithData(
        data, type, room, false, [this, label, total](double f) { m_printer.progress(label, f, total); },
        [this, done, room, type, label, total](const IMFilePtr &uploaded) {
            m_printer.progress(label, 1, total);
            m_printer.endProgress();
            IMMessagePtr message = IMMessage::initWithRoom(room);
            message->setMessageType(type);
            message->setMessage(uploaded->fileName());
            message->setSender(IMClient::currentClient());
            sendMessage(message, done);
        },
        [this, done](const IMError &e) { fail(done, e, QStringLiteral("upload")); });
}

void Session::runDownload(const Options &o, Done done)
{
    const QString name = o.args.value(0);
    if (name == QLatin1String(".") || name == QLatin1String("..") || name.contains(QLatin1Char('/'))
        || name.contains(QLatin1Char('\\'))) {
        m_printer.error(ExitUsage, QStringLiteral("download: \"%1\" is not a file name").arg(name));
        done(ExitUsage);
        return;
    }
    const QString out = o.out.isEmpty() ? name : o.out;
    const QString label = QStringLiteral("download %1").arg(name);
    m_printer.progress(label, -1, 0);
    m_parlo->getFileWithName(
        name, true, [this, label](double f) { m_printer.progress(label, f, 0); },
        [this, done, name, out, label](const QByteArray &data) {
            m_printer.progress(label, 1, data.size());
            m_printer.endProgress();
            QSaveFile file(out);
            if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
                m_printer.error(
                    ExitFailure, QStringLiteral("download: cannot write %1: %2").arg(out, file.errorString()));
                done(ExitFailure);
                return;
            }
            const QString path = QFileInfo(out).absoluteFilePath();
            m_printer.result({QStringLiteral("saved %1 (%2) to %3").arg(name, humanSize(data.size()), path),
                {{QStringLiteral("type"), QStringLiteral("file")}, {QStringLiteral("name"), name},
                    {QStringLiteral("bytes"), data.size()}, {QStringLiteral("path"), path}}});
            done(ExitOk);
        },
        [this, done](const IMError &e) { fail(done, e, QStringLiteral("download")); });
}

void Session::waitForNotification(const QString &name, std::function<bool(const IMNotification &)> matches,
    int timeoutMs, std::function<void(bool arrived)> then)
{
    // One wait, ended once: by a matching notification (on the next turn of the loop, after
    // the facade finished announcing) or by its time-out.
    struct Wait {
        IMNotificationCenter::Token token = 0;
        QPointer<QTimer> timer;
        std::function<void(bool)> then;
    };
    auto wait = std::make_shared<Wait>();
    wait->then = std::move(then);
    auto end = [wait](bool arrived) {
        if (!wait->then)
            return;
        IMNotificationCenter::defaultCenter()->removeObserver(wait->token);
        if (wait->timer) {
            wait->timer->stop();
            wait->timer->deleteLater();
        }
        const std::function<void(bool)> then = std::move(wait->then);
        wait->then = nullptr;
        then(arrived);
    };
    wait->token
        = IMNotificationCenter::defaultCenter()->addObserver(name, [this, matches, end](const IMNotification &n) {
              if (matches(n))
                  QTimer::singleShot(0, this, [end] { end(true); });
          });
    wait->timer = new QTimer(this);
    wait->timer->setSingleShot(true);
    connect(wait->timer, &QTimer::timeout, this, [end] { end(false); });
    wait->timer->start(timeoutMs);
}

void Session::runRead(const Options &o, const IMRoomPtr &room, Done done)
{
    bool listed = false;
    for (const IMRoomPtr &r : knownRooms())
        listed = listed || r->objectID() == room->objectID();
    if (!listed) {
        m_printer.error(ExitRefused, QStringLiteral("read: you are not in room %1").arg(o.args.value(0)));
        done(ExitRefused);
        return;
    }
    const QString id = room->objectID();
    const QString name = room->name().isEmpty() ? id : room->name();
    // The facade tells the outcome only by announcing the room with its new read times.
    waitForNotification(
        kParloDidUpdateRoom,
        [id](const IMNotification &n) {
            const IMRoomPtr r = n.object.value<IMRoomPtr>();
            return r && r->objectID() == id;
        },
        (m_parlo->timeout() + 2) * 1000,
        [this, done, id, name](bool arrived) {
            if (!arrived) {
                m_printer.error(ExitUnreachable, QStringLiteral("read: no answer from the server in time"));
                done(ExitUnreachable);
                return;
            }
            m_printer.result({QStringLiteral("marked %1 read").arg(name),
                {{QStringLiteral("type"), QStringLiteral("read")}, {QStringLiteral("room"), id}}});
            done(ExitOk);
        });
    m_parlo->updateReadTimeWithRoom(room, true);
}

void Session::runOpenLink(const Options &o, Done done)
{
    QString error;
    const QString link = o.args.value(0);
    const QString id = roomFromJoinLink(link, kScheme, &error);
    if (id.isEmpty()) {
        m_printer.error(ExitUsage, QStringLiteral("open-link: %1").arg(error));
        done(ExitUsage);
        return;
    }
    if (!m_parlo->application(nullptr, QUrl(link))) {
        m_printer.error(ExitUsage, QStringLiteral("open-link: the kit did not take %1").arg(link));
        done(ExitUsage);
        return;
    }
    // The facade has sent the join; a refusal only reaches its log. The server answers one
    // connection's requests in order, so asking for the room now tells whether we are in it.
    m_parlo->roomWithRoomID(
        id,
        [this, done](const IMRoomPtr &room) {
            remember({room});
            m_printer.result(roomLine(room, m_me));
            done(ExitOk);
        },
        [this, done, id](const IMError &e) {
            fail(done, e, QStringLiteral("open-link: could not join room %1 (only public rooms open by link)").arg(id));
        });
}

// ---- watching -----------------------------------------------------------------------------------

void Session::runWatch(const Options &o, Done done)
{
    m_watching = true;
    m_eventLimit = o.count;
    m_events = 0;
    m_watchDone = done;
    m_printer.result({QStringLiteral("watching events as %1 (Ctrl-C stops)").arg(m_me),
        {{QStringLiteral("type"), QStringLiteral("watching")}, {QStringLiteral("clientID"), m_me}}});
    if (o.forSeconds > 0)
        QTimer::singleShot(o.forSeconds * 1000, this, [done] { done(ExitOk); });
}

void Session::countEvent()
{
    ++m_events;
    if (m_watchDone && m_eventLimit > 0 && m_events >= m_eventLimit)
        m_watchDone(ExitOk);
}

void Session::ParloDidReceiveMessage(const IMMessagePtr &message)
{
    // Writing counts as reading: the pushed room carries the read times as they are now, so a
    // later receipt reports only real reads.
    if (const IMRoomPtr room = message->room(); room && !room->readTime().isEmpty())
        m_readTimes.insert(room->objectID(), room->readTime());
    if (!m_watching)
        return;
    m_printer.result(messageEvent(message, m_me));
    countEvent();
}

void Session::ParloDidJoinedWithRoom(const IMRoomPtr &room)
{
    const QString id = room->objectID();
    const QStringList joiners = m_members.contains(id) ? newMembers(m_members.value(id), room) : QStringList {m_me};
    m_members.insert(id, memberIDs(room));
    if (!m_readTimes.contains(id))
        m_readTimes.insert(id, room->readTime());
    if (!m_watching)
        return;
    m_printer.result(joinedEvent(room, joiners, m_me));
    countEvent();
}

void Session::ParloDidUpdateReadTimeWithRoom(const IMRoomPtr &room)
{
    const QString id = room->objectID();
    const auto receipts = readReceipts(m_readTimes.value(id), room->readTime(), m_me);
    QVariantMap times = m_readTimes.value(id);
    for (auto it = room->readTime().cbegin(); it != room->readTime().cend(); ++it)
        times.insert(it.key(), it.value());
    m_readTimes.insert(id, times);
    if (!m_watching)
        return;
    // The pushed room carries no name: take the listed one's.
    IMRoomPtr named = room;
    for (const IMRoomPtr &r : knownRooms())
        if (r->objectID() == id)
            named = r;
    for (const auto &receipt : receipts) {
        m_printer.result(readEvent(named, receipt.first, receipt.second));
        countEvent();
    }
}

void Session::ParloDidUpdateMessage(const IMMessagePtr &message)
{
    if (!m_watching)
        return;
    m_printer.result(messageUpdatedEvent(message));
    countEvent();
}

// ---- the interactive mode ----------------------------------------------------------------------

void Session::startShell()
{
    m_watching = true;
    m_printer.note(QStringLiteral("signed in as %1; type a command (help lists them), quit to leave").arg(m_me));
    m_input = std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read);
    connect(m_input.get(), &QSocketNotifier::activated, this, &Session::readInput);
    if (::isatty(STDIN_FILENO) == 1)
        std::fputs("> ", stderr);
}

void Session::readInput()
{
    char buffer[4096];
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (n <= 0) {
        m_input->setEnabled(false);
        m_inputEnded = true;
        if (!m_inputBuffer.isEmpty())
            m_lines.append(QString::fromUtf8(m_inputBuffer));
        m_inputBuffer.clear();
    } else {
        m_inputBuffer.append(buffer, n);
        qsizetype newline;
        while ((newline = m_inputBuffer.indexOf('\n')) >= 0) {
            m_lines.append(QString::fromUtf8(m_inputBuffer.left(newline)));
            m_inputBuffer.remove(0, newline + 1);
        }
    }
    nextLine();
}

void Session::nextLine()
{
    while (!m_busy && !m_lines.isEmpty()) {
        const QString line = m_lines.takeFirst().trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (line == QLatin1String("quit") || line == QLatin1String("exit")) {
            finish(m_shellCode);
            return;
        }
        const ParseResult parsed = parseShellLine(line, m_options);
        if (!parsed.error.isEmpty()) {
            m_printer.error(ExitUsage, parsed.error);
            m_shellCode = ExitUsage;
            continue;
        }
        if (parsed.help) {
            m_printer.note(usageText(parsed.helpTopic).trimmed());
            continue;
        }
        if (parsed.options.command == QLatin1String("watch")) {
            m_printer.note(QStringLiteral("events are shown as they come in this mode"));
            continue;
        }
        if (isLocalCommand(parsed.options.command) || parsed.options.command == QLatin1String("signup")) {
            m_printer.error(
                ExitUsage, QStringLiteral("%1 runs outside the interactive mode").arg(parsed.options.command));
            continue;
        }
        m_busy = true;
        run(parsed.options, [this](int code) {
            // Later lines wait for the command's own output.
            QTimer::singleShot(0, this, [this, code] {
                if (code != ExitOk)
                    m_shellCode = code;
                m_busy = false;
                nextLine();
            });
        });
    }
    if (m_busy)
        return;
    if (m_inputEnded) {
        finish(m_shellCode);
        return;
    }
    if (::isatty(STDIN_FILENO) == 1)
        std::fputs("> ", stderr);
}

} // namespace ParloCli

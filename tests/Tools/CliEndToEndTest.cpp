// Two parlo-cli users against the reference server, each with its own profile, checked by what
// each prints and by its exit codes.
#include "NodeProcess.h"
#include "QtPrinters.h"
#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

#include <memory>

namespace {

const QString kApiKey = QStringLiteral("cli-api");
const QString kClientKey = QStringLiteral("cli-client");

struct CliRun {
    int code = -1;
    QString out;
    QString err;
};

QList<QVariantMap> jsonLines(const QString &text)
{
    QList<QVariantMap> records;
    for (const QString &line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        records.append(QJsonDocument::fromJson(line.toUtf8()).toVariant().toMap());
    return records;
}

class CliEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir = makeTempDir();
        server = startReferenceServer(
            {"--api-key", kApiKey, "--client-key", kClientKey, "--data", dir + "/server", "--test-control"});
        ASSERT_TRUE(server->isRunning());
        url = QStringLiteral("http://127.0.0.1:%1").arg(server->port());
    }

    std::unique_ptr<QProcess> process(const QString &user, const QStringList &args)
    {
        auto p = std::make_unique<QProcess>();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &key : env.keys())
            if (key.startsWith(QLatin1String("PARLO_")))
                env.remove(key);
        p->setProcessEnvironment(env);
        p->setProgram(QStringLiteral(PARLO_CLI_PATH));
        p->setArguments(
            QStringList {"--url", url, "--api-key", kApiKey, "--client-key", kClientKey, "--profile", dir + "/" + user}
            + args);
        return p;
    }

    CliRun cli(const QString &user, const QStringList &args)
    {
        auto p = process(user, args);
        p->start();
        CliRun run;
        if (!p->waitForStarted(10000) || !p->waitForFinished(30000)) {
            p->kill();
            p->waitForFinished();
            ADD_FAILURE() << "parlo-cli " << args.join(' ').toStdString() << " did not finish";
        }
        run.code = p->exitStatus() == QProcess::NormalExit ? p->exitCode() : -1;
        run.out = QString::fromUtf8(p->readAllStandardOutput());
        run.err = QString::fromUtf8(p->readAllStandardError());
        return run;
    }

    // Runs and expects the failure `code` with `text` among what it printed on stderr.
    void fails(const QString &user, const QStringList &args, int code, const QString &text)
    {
        const CliRun run = cli(user, args);
        EXPECT_EQ(run.code, code) << args.join(' ').toStdString();
        EXPECT_TRUE(run.err.contains(text)) << args.join(' ').toStdString() << ": " << run.err.toStdString();
    }

    // Runs and expects success, reporting what it printed otherwise.
    CliRun ok(const QString &user, const QStringList &args)
    {
        CliRun run = cli(user, args);
        EXPECT_EQ(run.code, 0) << user.toStdString() << ": " << args.join(' ').toStdString() << "\n"
                               << run.out.toStdString() << run.err.toStdString();
        return run;
    }

    //! Adds what `p` printed to `out` until `out` holds `text`.
    static bool readUntil(QProcess &p, QString &out, const QString &text, int ms = 15000)
    {
        return waitUntil([&] { return (out += QString::fromUtf8(p.readAllStandardOutput())).contains(text); }, ms);
    }

    QString dir;
    QString url;
    std::unique_ptr<NodeProcess> server;
};

} // namespace

TEST_F(CliEndToEnd, TwoUsersTalkAndEachSeesTheOther)
{
    EXPECT_TRUE(
        ok("alice", {"signup", "--client-id", "alice", "--name", "Alice"}).out.contains("signed in as alice (Alice)"));
    // One-shot commands may also sign up on the way.
    ok("bob", {"--client-id", "bob", "--name", "Bob", "rooms"});

    const QList<QVariantMap> created
        = jsonLines(ok("alice", {"--json", "create-room", "Lunch", "--member", "bob"}).out);
    ASSERT_EQ(created.size(), 1);
    const QString roomID = created[0].value("id").toString();
    ASSERT_FALSE(roomID.isEmpty());
    EXPECT_EQ(created[0].value("members").toStringList(), (QStringList {"alice", "bob"}));
    EXPECT_TRUE(ok("alice", {"send", "Lunch", "hello", "bob"}).out.contains("Alice: hello bob"));

    // Bob finds the room by its name with one unread message, and the message in its history.
    const CliRun rooms = ok("bob", {"rooms"});
    EXPECT_TRUE(rooms.out.contains("Lunch")) << rooms.out.toStdString();
    EXPECT_TRUE(rooms.out.contains("1 unread"));
    EXPECT_TRUE(rooms.out.contains("Alice: hello bob"));
    EXPECT_TRUE(ok("bob", {"history", roomID}).out.contains("Alice: hello bob"));
    // The older protocol revision and long-polling only reach the same server.
    EXPECT_TRUE(ok("bob", {"--protocol", "3", "--transport", "polling", "rooms"}).out.contains("Lunch"));
    EXPECT_TRUE(ok("bob", {"--transport", "websocket", "rooms"}).out.contains("Lunch"));

    // Alice watches while Bob answers and reads: she sees both, live, and stops by herself.
    auto watch = process("alice", {"--json", "watch", "--count", "2"});
    watch->start();
    QString watched;
    ASSERT_TRUE(readUntil(*watch, watched, "\"watching\""))
        << QString::fromUtf8(watch->readAllStandardError()).toStdString();
    ok("bob", {"send", "Lunch", "hi alice"});
    EXPECT_TRUE(ok("bob", {"read", "Lunch"}).out.contains("marked Lunch read"));
    ASSERT_TRUE(watch->waitForFinished(15000)) << watched.toStdString();
    EXPECT_EQ(watch->exitCode(), 0);
    watched += QString::fromUtf8(watch->readAllStandardOutput());
    const QList<QVariantMap> events = jsonLines(watched);
    ASSERT_EQ(events.size(), 3) << watched.toStdString();
    EXPECT_EQ(events[1].value("event"), "message");
    EXPECT_EQ(events[1].value("message"), "hi alice");
    EXPECT_EQ(events[1].value("sender"), "bob");
    EXPECT_EQ(events[1].value("room"), roomID);
    EXPECT_EQ(events[2].value("event"), "read");
    EXPECT_EQ(events[2].value("reader"), "bob");
    EXPECT_EQ(events[2].value("roomName"), "Lunch");

    // Pages: the newest message, then the one before it.
    const QList<QVariantMap> page = jsonLines(ok("alice", {"--json", "history", "Lunch", "--limit", "1"}).out);
    ASSERT_EQ(page.size(), 2);
    EXPECT_EQ(page[0].value("message"), "hi alice");
    const QString older = page[1].value("older").toString();
    ASSERT_FALSE(older.isEmpty());
    const QList<QVariantMap> before = jsonLines(ok("alice", {"--json", "history", "Lunch", "--before", older}).out);
    ASSERT_FALSE(before.isEmpty());
    EXPECT_EQ(before[0].value("message"), "hello bob");

    // Archiving shows in Alice's list.
    ok("alice", {"archive", "Lunch"});
    EXPECT_TRUE(ok("alice", {"rooms"}).out.contains("(archived)"));
}

TEST_F(CliEndToEnd, PicturesGoUpAndFilesComeDownWithProgressAndLinksOpenPublicRooms)
{
    ok("alice", {"signup", "--client-id", "alice"});
    ok("bob", {"signup", "--client-id", "bob"});
    ok("alice", {"create-room", "Photos", "--member", "bob"});
    const QString picture = dir + "/picture.png";
    ok("alice", {"make-picture", picture, "--size", "40"});

    const CliRun sent = ok("alice", {"send-picture", "Photos", picture});
    EXPECT_TRUE(sent.err.contains("upload picture.png [") && sent.err.contains("100%")) << sent.err.toStdString();
    EXPECT_TRUE(sent.out.contains("[picture ")) << sent.out.toStdString();

    const QList<QVariantMap> history = jsonLines(ok("bob", {"--json", "history", "Photos"}).out);
    ASSERT_EQ(history.size(), 2);
    EXPECT_EQ(history[0].value("messageType"), "image");
    const QString name = history[0].value("message").toString();
    const QString saved = dir + "/saved.png";
    const CliRun fetched = ok("bob", {"download", name, "--out", saved});
    EXPECT_TRUE(fetched.err.contains("100%")) << fetched.err.toStdString();
    QFile a(picture), b(saved);
    ASSERT_TRUE(a.open(QIODevice::ReadOnly) && b.open(QIODevice::ReadOnly));
    EXPECT_EQ(a.readAll(), b.readAll());

    // A join link opens a public room; a private room's link is refused by the server.
    ok("alice", {"create-room", "Lobby", "--public"});
    const QString lobby = ok("alice", {"link", "Lobby"}).out.trimmed();
    EXPECT_TRUE(lobby.startsWith("parlo://parlo.integrate/joinRoom/")) << lobby.toStdString();
    EXPECT_TRUE(ok("bob", {"open-link", lobby}).out.contains("Lobby"));
    EXPECT_TRUE(ok("bob", {"rooms"}).out.contains("Lobby"));
    const QString photos = ok("alice", {"link", "Photos"}).out.trimmed();
    ok("carol", {"signup", "--client-id", "carol"});
    fails("carol", {"open-link", photos}, 4, "403");
}

TEST_F(CliEndToEnd, FailuresEndWithTheDocumentedExitCodesAndMessages)
{
    // Bad arguments: usage, nothing sent.
    fails("alice", {"history"}, 2, "usage: parlo-cli history ROOM");
    fails("alice", {"send-picture", "Lunch", dir + "/missing.png"}, 2, "nobody is signed in"); // a fresh profile
    ok("alice", {"signup", "--client-id", "alice"});
    fails("alice", {"send-picture", "Lunch", dir + "/missing.png"}, 2, "cannot read");

    // Refused: the server's status and text, also as a JSON record for scripts.
    const CliRun run = cli("alice", {"--json", "history", "no-such-room"});
    EXPECT_EQ(run.code, 4);
    const QList<QVariantMap> records = jsonLines(run.out);
    ASSERT_EQ(records.size(), 1) << run.out.toStdString();
    EXPECT_EQ(records[0].value("type"), "error");
    EXPECT_EQ(records[0].value("exitCode").toInt(), 4);
    EXPECT_TRUE(records[0].value("message").toString().contains("404"));
    fails("alice", {"--api-key", "wrong", "rooms"}, 4, "401");

    // Unreachable: a closed port.
    fails("alice", {"--url", "http://127.0.0.1:1", "rooms"}, 3, "cannot reach the server");
}

TEST_F(CliEndToEnd, TheInteractiveModeRunsLinesInOrderAndShowsEvents)
{
    ok("alice", {"signup", "--client-id", "alice"});
    ok("bob", {"signup", "--client-id", "bob"});
    auto shell = process("alice", {});
    shell->start();
    ASSERT_TRUE(shell->waitForStarted(10000));
    shell->write("create-room Desk --member bob\nsend Desk 'first line'\nnot-a-command\nhistory Desk\n");
    shell->closeWriteChannel();
    ASSERT_TRUE(shell->waitForFinished(20000));
    const QString out = QString::fromUtf8(shell->readAllStandardOutput());
    const QString err = QString::fromUtf8(shell->readAllStandardError());
    // The bad line is reported and the run ends with its code; the others still ran, in order.
    EXPECT_EQ(shell->exitCode(), 2) << err.toStdString();
    EXPECT_TRUE(err.contains("unknown command \"not-a-command\""));
    const qsizetype roomAt = out.indexOf("Desk");
    const qsizetype historyAt = out.lastIndexOf("alice: first line");
    EXPECT_GE(roomAt, 0) << out.toStdString();
    EXPECT_GT(historyAt, roomAt) << out.toStdString();
    // Its own message came back as a pushed event too.
    EXPECT_TRUE(out.contains("message  Desk  alice (you): first line")) << out.toStdString();
}

TEST_F(CliEndToEnd, WatchComesBackAfterTheServerEndsTheConnection)
{
    ok("alice", {"signup", "--client-id", "alice"});
    ok("bob", {"signup", "--client-id", "bob"});
    ok("alice", {"create-room", "Back", "--member", "bob"});
    auto watch = process("bob", {"--json", "watch", "--for", "30"});
    watch->start();
    QString out;
    const auto seen = [&](const QString &text, int ms = 15000) { return readUntil(*watch, out, text, ms); };
    ASSERT_TRUE(seen("\"watching\"")) << out.toStdString();

    QNetworkAccessManager http;
    QNetworkRequest request(QUrl(url + "/__control/disconnect"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    std::unique_ptr<QNetworkReply> reply(http.post(request, R"({"clientID":"bob"})"));
    ASSERT_TRUE(waitUntil([&] { return reply->isFinished(); }));
    ASSERT_TRUE(seen("io server disconnect")) << out.toStdString();

    // Back on its own, and signed in again: the next message reaches it.
    ASSERT_TRUE(seen("\"connected\"")) << out.toStdString();
    // Its chat-in runs after "connected": a message sent before it ends is not pushed to it.
    bool reached = false;
    for (int attempt = 0; attempt < 5 && !reached; ++attempt) {
        ok("alice", {"send", "Back", "still there?"});
        reached = seen("still there?", 2000);
    }
    EXPECT_TRUE(reached) << out.toStdString();
    watch->kill();
    watch->waitForFinished();
}

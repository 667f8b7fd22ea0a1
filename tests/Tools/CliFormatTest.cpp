// What parlo-cli prints for rooms, messages and events, its progress bar, room references,
// join links and the exit codes of failed requests.
#include "CliFormat.h"
#include "QtPrinters.h"

#include <ParloSDK/ParloFileKeys.h>

#include <QJsonDocument>
#include <gtest/gtest.h>

using namespace ParloCli;

namespace {
IMRoomPtr room(const QVariantMap &dict)
{
    IMRoomPtr r = IMRoom::fromDictionary(dict);
    EXPECT_TRUE(r);
    return r;
}

const QVariantMap kLunch {{"id", "r1"}, {"name", "Lunch"}, {"badge", 2},
    {"client",
        QVariantList {QVariantMap {{"clientID", "alice"}, {"username", "Alice"}}, QVariantMap {{"clientID", "bob"}}}},
    {"archivedBy", QStringList {"bob"}}, {"readTime", QVariantMap {{"alice", "2024-05-04T09:30:00.000Z"}}},
    {"message",
        QVariantList {QVariantMap {{"id", "m9"}, {"message", "line one\nline two"}, {"messageType", "text"},
            {"createdAt", "2024-05-04T09:31:00.000Z"},
            {"sender", QVariantMap {{"clientID", "alice"}, {"username", "Alice"}}}}}}};
} // namespace

TEST(CliFormat, RoomsShowUnreadMembersAndTheLastMessageInTextAndJson)
{
    const Line line = roomLine(room(kLunch), "bob");
    EXPECT_TRUE(line.text.startsWith("Lunch"));
    for (const char *part : {"2 unread", "[alice, bob]", "Alice: line one / line two", "(archived)"})
        EXPECT_TRUE(line.text.contains(part)) << part << " in " << line.text.toStdString();

    // The JSON line parses back with the raw values a script needs.
    const QVariantMap parsed = QJsonDocument::fromJson(jsonLine(line.record).toUtf8()).toVariant().toMap();
    EXPECT_EQ(parsed.value("type"), "room");
    EXPECT_EQ(parsed.value("id"), "r1");
    EXPECT_EQ(parsed.value("unread").toInt(), 2);
    EXPECT_EQ(parsed.value("members").toStringList(), (QStringList {"alice", "bob"}));
    EXPECT_EQ(parsed.value("archived"), true);
    EXPECT_EQ(parsed.value("lastMessage").toMap().value("message"), "line one\nline two");
    EXPECT_EQ(parsed.value("lastMessage").toMap().value("createdAt"), "2024-05-04T09:31:00.000Z");
    EXPECT_FALSE(jsonLine(line.record).contains('\n'));

    // A room without messages or name still reads.
    const Line bare = roomLine(room({{"id", "r2"}}), "bob");
    EXPECT_TRUE(bare.text.contains("(room r2)"));
    EXPECT_TRUE(bare.text.contains("no messages yet"));
    EXPECT_FALSE(bare.record.value("lastMessage").isValid());
    EXPECT_FALSE(bare.text.contains("archived"));
}

TEST(CliFormat, MessagesAndPreviewsByType)
{
    IMMessagePtr m = IMMessage::fromDictionary(
        {{"id", "m1"}, {"message", "abc.png"}, {"messageType", "image"}, {"createdAt", "2024-05-04T09:31:00.000Z"},
            {"room", QVariantMap {{"id", "r1"}, {"name", "Lunch"}}}, {"sender", QVariantMap {{"clientID", "bob"}}}});
    ASSERT_TRUE(m);
    const Line line = messageLine(m);
    EXPECT_TRUE(line.text.endsWith("] bob: [picture abc.png]")) << line.text.toStdString();
    EXPECT_EQ(line.record.value("room"), "r1");
    EXPECT_EQ(line.record.value("sender"), "bob");
    EXPECT_EQ(line.record.value("messageType"), "image");
    EXPECT_EQ(localTime("2024-05-04T09:31:00.000Z").size(), 19);
    EXPECT_EQ(localTime("not a time"), "not a time");

    for (const auto &[type, text, preview] : {std::tuple {"other", "f.bin", "[file f.bin]"},
             {"delete", "x", "(deleted)"}, {"GEO", "25,121", "[GEO 25,121]"}})
        EXPECT_EQ(messagePreview(type, text), preview);
    EXPECT_EQ(displayName({{"clientID", "c"}}), "c");
    EXPECT_EQ(displayName({}), "?");

    // A pushed message tells whose it is.
    const Line mine = messageEvent(m, "bob");
    EXPECT_TRUE(mine.text.startsWith("message  Lunch  bob (you): [picture abc.png]")) << mine.text.toStdString();
    EXPECT_EQ(mine.record.value("type"), "event");
    EXPECT_EQ(mine.record.value("event"), "message");
    EXPECT_EQ(mine.record.value("mine"), true);
    EXPECT_EQ(messageEvent(m, "alice").record.value("mine"), false);
}

TEST(CliFormat, ReadReceiptsAndJoinersAreTheChangesSinceLastSeen)
{
    const QVariantMap before {{"alice", "t1"}, {"bob", "t1"}};
    const QVariantMap after {{"alice", "t2"}, {"bob", "t1"}, {"carol", "t3"}, {"dave", ""}};
    // My own read and unchanged times are no receipts; an empty time is none either.
    EXPECT_EQ(readReceipts(before, after, "alice"), (QList<QPair<QString, QString>> {{"carol", "t3"}}));
    EXPECT_EQ(readReceipts(before, after, "me"), (QList<QPair<QString, QString>> {{"alice", "t2"}, {"carol", "t3"}}));

    const IMRoomPtr lunch = room(kLunch);
    EXPECT_EQ(newMembers({"alice"}, lunch), QStringList {"bob"});
    EXPECT_TRUE(newMembers({"alice", "bob"}, lunch).isEmpty());
    EXPECT_TRUE(joinedEvent(lunch, {"bob"}, "alice").text.contains("bob joined (members: alice, bob)"));
    EXPECT_TRUE(joinedEvent(lunch, {"bob"}, "bob").text.contains("you are in it now"));

    const Line read = readEvent(lunch, "bob", "2024-05-04T09:30:00.000Z");
    EXPECT_TRUE(read.text.startsWith("read     Lunch  bob read up to "));
    EXPECT_EQ(read.record.value("event"), "read");
    EXPECT_EQ(read.record.value("reader"), "bob");
    EXPECT_EQ(read.record.value("readTime"), "2024-05-04T09:30:00.000Z");

    EXPECT_EQ(statusEvent(0, "").text, "status   connected");
    EXPECT_EQ(statusEvent(2, "refused").text, "status   connection error (refused)");
    EXPECT_EQ(statusName(6), "gave up reconnecting");
    EXPECT_EQ(statusName(42), "status 42");
}

TEST(CliFormat, ProgressBar)
{
    EXPECT_EQ(progressBar(0, "up", 0, 10), "up [..........]   0%");
    EXPECT_EQ(progressBar(0.5, "up", 2048, 10), "up [#####.....]  50%  1.0 KiB / 2.0 KiB");
    EXPECT_EQ(progressBar(1.7, "up", 0, 10), "up [##########] 100%");
    EXPECT_EQ(progressBar(0.999, "up", 0, 4), "up [###.]  99%");
    EXPECT_EQ(progressBar(-1, "down", 0, 4), "down [    ]  ...");
    EXPECT_EQ(humanSize(1023), "1023 B");
    EXPECT_EQ(humanSize(3 * 1024 * 1024 / 2), "1.5 MiB");
}

TEST(CliFormat, RoomReferencesPreferIdsThenUniqueNamesAndJoinLinksRoundTrip)
{
    const QList<IMRoomPtr> rooms {room({{"id", "a1"}, {"name", "Lunch"}}), room({{"id", "b2"}, {"name", "Team"}}),
        room({{"id", "c3"}, {"name", "Team"}}), room({{"id", "Team"}, {"name", "x"}})};
    QString error;
    EXPECT_EQ(resolveRoom("Lunch", rooms, &error), "a1");
    EXPECT_EQ(resolveRoom("b2", rooms, &error), "b2");
    // An id wins over names, even a shared one.
    EXPECT_EQ(resolveRoom("Team", rooms, &error), "Team");
    // Unknown references go to the server as ids.
    EXPECT_EQ(resolveRoom("zz", rooms, &error), "zz");
    EXPECT_TRUE(error.isEmpty());

    const QList<IMRoomPtr> twins {room({{"id", "b2"}, {"name", "Team"}}), room({{"id", "c3"}, {"name", "Team"}})};
    EXPECT_TRUE(resolveRoom("Team", twins, &error).isEmpty());
    EXPECT_TRUE(error.contains("2 rooms are named \"Team\" (b2, c3)")) << error.toStdString();

    // Join links round trip; foreign ones are refused.
    const QString link = joinLink("parlo", "r 1");
    EXPECT_EQ(link, "parlo://parlo.integrate/joinRoom/r%201");
    EXPECT_EQ(roomFromJoinLink(link, "parlo", &error), "r 1");
    EXPECT_EQ(roomFromJoinLink("parlo://parlo.integrate/joinRoom/abc", "parlo", &error), "abc");

    for (const char *bad :
        {"https://parlo.integrate/joinRoom/abc", "parlo://elsewhere/joinRoom/abc", "parlo://parlo.integrate/joinRoom/",
            "parlo://parlo.integrate/leave/abc", "parlo://parlo.integrate/joinRoom/a/b", "::::"}) {
        error.clear();
        EXPECT_TRUE(roomFromJoinLink(QString::fromUtf8(bad), "parlo", &error).isEmpty()) << bad;
        EXPECT_TRUE(error.startsWith("not a join link")) << bad;
    }
}

TEST(CliFormat, FailedRequestsMapToExitCodesScriptsCanRelyOn)
{
    // Refused by the server: its status and text reach the user.
    const IMError forbidden = IMError::parlo(403, QStringLiteral("not a member of this room"));
    EXPECT_EQ(exitCodeFor(forbidden, true), 4);
    EXPECT_EQ(describeError(forbidden, true), "the server refused the request (403): not a member of this room");
    EXPECT_EQ(exitCodeFor(IMError::parlo(401, QStringLiteral("invalid token")), true), 4);
    EXPECT_EQ(exitCodeFor(IMError::parlo(413, QString()), true), 4);

    // No answer, a broken transfer, or a request made while disconnected: unreachable.
    EXPECT_EQ(exitCodeFor(IMError::parlo(999, QStringLiteral("NO ACK")), true), 3);
    EXPECT_EQ(describeError(IMError::parlo(999, QStringLiteral("NO ACK")), true), "no answer from the server in time");
    const IMError cut(kParloNetworkErrorDomain, 2, {{"info", "Connection closed"}});
    EXPECT_EQ(exitCodeFor(cut, true), 3);
    EXPECT_EQ(describeError(cut, true), "network error: Connection closed");
    EXPECT_EQ(exitCodeFor(IMError::parlo(400, QStringLiteral("not connected")), false), 3);
    EXPECT_EQ(exitCodeFor(IMError::parlo(400, QStringLiteral("bad")), true), 4);

    // Anything else is a plain failure.
    EXPECT_EQ(exitCodeFor(IMError(QStringLiteral("QJsonParseError"), 5), true), 1);
    EXPECT_EQ(exitCodeFor(IMError::parlo(0, QString()), true), 1);
}

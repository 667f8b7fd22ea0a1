// The full "message" handler (room move, badge, announcements, store save and room list) with
// 100, 1,000 and 10,000 rooms held: incoming events per second. The baseline, measured in the
// same run, also writes every room and reads them all back after each event.
#include "IMDB.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "Parlo.h"
#include "ScriptedSocket.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTimeZone>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {
QString timeText(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(1700000000 + seconds, Qt::UTC).toString("yyyy-MM-dd'T'HH:mm:ss.zzz'Z'");
}

void fillStore(int rooms)
{
    IMDB::sharedInstance()->resetDatabase();
    QCoreApplication::processEvents(); // the store is re-created from the main queue
    QList<IMRoomPtr> list;
    for (int i = 0; i < rooms; ++i) {
        auto room = IMRoom::fromDictionary(QVariantMap {{"id", QStringLiteral("room-%1").arg(i)},
            {"name", QStringLiteral("Room %1").arg(i)}, {"lastMessageTime", timeText(i)},
            {"client",
                QVariantList {
                    QVariantMap {{"clientID", "me"}}, QVariantMap {{"clientID", QStringLiteral("c%1").arg(i)}}}},
            {"message", QVariantList {QVariantMap {{"id", QStringLiteral("m-%1").arg(i)}, {"message", "hello"}}}}});
        list << room;
    }
    IMDB::sharedInstance()->saveRooms(list);
}

// Events per second over `events` incoming messages to random rooms.
double run(int rooms, int events, bool literal)
{
    fillStore(rooms);
    Parlo parlo;
    ScriptedSocket *socket = nullptr;
    parlo.setSocketFactory([&](const QUrl &, const QVariantMap &) { return socket = new ScriptedSocket; });
    parlo.connectWithURL("http://127.0.0.1:1", {}, [] {});
    parlo.chatRooms();
    QRandomGenerator random(42);
    QList<QVariantList> payloads;
    for (int e = 0; e < events; ++e) {
        const QString room = QStringLiteral("room-%1").arg(random.bounded(rooms));
        const QString at = timeText(rooms + e);
        payloads << QVariantList {
            QVariantMap {{"id", QStringLiteral("n-%1").arg(e)}, {"message", "new message"}, {"messageType", "text"},
                {"idFromSender", e}, {"createdAt", at}, {"sender", QVariantMap {{"clientID", "other"}}},
                {"room", QVariantMap {{"id", room}, {"lastMessageTime", at}, {"badge", 1}}}, {"totalBadge", e}}};
    }
    QElapsedTimer clock;
    clock.start();
    for (const QVariantList &payload : payloads) {
        socket->push("message", payload);
        if (literal) {
            IMDB::sharedInstance()->saveRooms(parlo.chatRooms());
            IMDB::sharedInstance()->getAllRooms();
        }
    }
    const double seconds = clock.nsecsElapsed() / 1e9;
    return events / seconds;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    IMPlatform::instance()->setDocumentsPath(dir.path() + "/data");
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir.path() + "/settings.ini");
    // Back to the standard settings before the folder goes (a later write would make it again).
    const auto standardSettings
        = qScopeGuard([] { IMUserDefaults::standardUserDefaults()->setSettingsFile(QString()); });
    IMUserDefaults::standardUserDefaults()->setClientID("me");
    qputenv("QT_LOGGING_RULES", "parlo.info=false");

    // "--profile N": only the handler with N rooms, for a profiler.
    const QStringList args = app.arguments();
    if (args.size() == 3 && args[1] == "--profile") {
        std::printf("%.0f events/s\n", run(args[2].toInt(), 20000, false));
        return 0;
    }
    std::printf("| rooms held | message events/s | write-all baseline events/s | ratio | goal |\n");
    std::printf("|---:|---:|---:|---:|---|\n");
    for (int rooms : {100, 1000, 10000}) {
        const int events = rooms >= 10000 ? 1000 : 3000;
        const int literalEvents = rooms >= 10000 ? 5 : rooms >= 1000 ? 40 : 300;
        std::vector<double> ours, baseline;
        for (int r = 0; r < 3; ++r) {
            ours.push_back(run(rooms, events, false));
            baseline.push_back(run(rooms, literalEvents, true));
        }
        const double o = median(ours), b = median(baseline);
        std::printf("| %d | %.0f | %.1f | %.1fx | %s |\n", rooms, o, b, o / b,
            rooms == 1000 ? (o >= 2000 ? ">= 2,000/s: met" : ">= 2,000/s: NOT met") : "");
        std::fflush(stdout);
    }
    return 0;
}

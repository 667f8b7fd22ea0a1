// Round trip of a sent message to its own echo (send -> sending state 0) through the shared
// facade against the local reference server, beside the same round trip done by the official
// Node socket.io-client in the same run. One message at a time.
// Usage: parlo_api_bench [messages]   (default 1000)
#include "IMClient.h"
#include "IMNotificationCenter.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "NodeProcess.h"
#include "Parlo.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>

namespace {
const QString kApiKey = QStringLiteral("bench-api");
const QString kClientKey = QStringLiteral("bench-client");
constexpr int kWarmup = 100;

bool spinUntil(const std::function<bool()> &done, int ms)
{
    QDeadlineTimer deadline(ms);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    return done();
}

struct Stats {
    double median = 0;
    double p99 = 0;
};

Stats stats(QList<double> samples)
{
    std::sort(samples.begin(), samples.end());
    auto at
        = [&](double q) { return samples[qMin(samples.size() - 1, qsizetype(q * double(samples.size() - 1) + 0.5))]; };
    return Stats {at(0.5), at(0.99)};
}

// Signs the shared facade up and in, makes a room and measures `count` messages.
bool measureFacade(const QString &url, int count, QList<double> &samples)
{
    Parlo *parlo = Parlo::shareInstance();
    parlo->setApiKey(kApiKey);
    parlo->setClientKey(kClientKey);
    parlo->connectWithURL(url, {{"forceWebsockets", true}}, [] {});
    if (!spinUntil([&] { return parlo->connectStatus() == 0; }, 10000))
        return false;
    auto me = std::make_shared<IMClient>();
    me->setClientID(QStringLiteral("facade-bench"));
    IMRoomPtr room;
    bool failed = false;
    auto fail = [&](const IMError &e) {
        std::fprintf(stderr, "%s\n", qPrintable(e.description()));
        failed = true;
    };
    parlo->signWithClient(
        me,
        [&](const IMClientPtr &) {
            parlo->chatinSuccess(
                [&](const IMClientPtr &) {
                    auto draft = std::make_shared<IMRoom>();
                    draft->setName(QStringLiteral("bench"));
                    parlo->createRoom(
                        draft, [&](const IMRoomPtr &r) { room = r; }, fail);
                },
                fail);
        },
        fail);
    if (!spinUntil([&] { return room || failed; }, 15000) || failed)
        return false;

    IMMessagePtr inFlight;
    bool settled = false;
    const auto token = IMNotificationCenter::defaultCenter()->addObserver(
        kParloDidChangeMessageSendingType, [&](const IMNotification &n) {
            if (n.object.value<IMMessagePtr>() == inFlight && inFlight->sendingType() == 0)
                settled = true;
        });
    QElapsedTimer clock;
    for (int i = 0; i < kWarmup + count && !failed; ++i) {
        inFlight = IMMessage::initWithRoom(room);
        inFlight->setMessage(QStringLiteral("message %1").arg(i));
        inFlight->setMessageType(kMessageTypeText);
        settled = false;
        clock.start();
        parlo->sendMessage(inFlight, nullptr, fail);
        if (!spinUntil([&] { return settled || failed; }, 10000) || failed)
            break;
        if (i >= kWarmup)
            samples << double(clock.nsecsElapsed()) / 1e6;
    }
    IMNotificationCenter::defaultCenter()->removeObserver(token);
    parlo->socket()->disconnect();
    return samples.size() == count;
}

bool measureNode(int port, int count, QList<double> &samples)
{
    QProcess node;
    node.start(NodeProcess::nodeExecutable(),
        {QStringLiteral(PARLO_SOURCE_DIR "/bench/Api/echo_roundtrip.mjs"), QString::number(port), kApiKey, kClientKey,
            QString::number(count), QString::number(kWarmup)});
    if (!node.waitForFinished(180000) || node.exitCode() != 0) {
        std::fprintf(stderr, "node: %s\n", node.readAllStandardError().constData());
        return false;
    }
    const QVariantList values
        = QJsonDocument::fromJson(node.readAllStandardOutput()).toVariant().toMap().value("samplesMs").toList();
    for (const QVariant &v : values)
        samples << v.toDouble();
    return samples.size() == count;
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("ParloSDKBench"));
    QCoreApplication::setApplicationName(QStringLiteral("ParloSDKBench"));
    const int count = argc > 1 ? std::max(1, atoi(argv[1])) : 1000;

    QTemporaryDir dir;
    IMPlatform::instance()->setDocumentsPath(dir.path() + QStringLiteral("/data"));
    IMPlatform::instance()->setTemporaryPath(dir.path() + QStringLiteral("/cache"));
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir.path() + QStringLiteral("/settings.ini"));

    NodeProcess server(QStringLiteral(PARLO_SOURCE_DIR "/server/index.js"),
        {"--port", "0", "--api-key", kApiKey, "--client-key", kClientKey},
        QRegularExpression(QStringLiteral("^parlo-server listening on \\S+:(\\d+)$")));
    if (!server.start()) {
        std::fprintf(stderr, "server: %s\n", qPrintable(server.errorText()));
        return 1;
    }
    QList<double> facade, node;
    if (!measureFacade(QStringLiteral("http://127.0.0.1:%1").arg(server.port()), count, facade)) {
        std::fprintf(stderr, "the facade's round trips did not complete\n");
        return 1;
    }
    if (!measureNode(server.port(), count, node)) {
        std::fprintf(stderr, "the Node client's round trips did not complete\n");
        return 1;
    }
    const Stats f = stats(facade), n = stats(node);
    std::printf("send -> own echo, %d messages one at a time (after %d warm-up), local server\n", count, kWarmup);
    std::printf("  %-28s median %7.3f ms   p99 %7.3f ms\n", "Parlo facade (state 0)", f.median, f.p99);
    std::printf("  %-28s median %7.3f ms   p99 %7.3f ms\n", "Node socket.io-client", n.median, n.p99);
    std::printf("  ratio facade/node          median %7.2f      p99 %7.2f\n", f.median / n.median, f.p99 / n.p99);
    return 0;
}

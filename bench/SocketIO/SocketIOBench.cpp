// Acknowledged request throughput and client CPU per request: the kit's client against the
// official Node socket.io-client, same local server, same run, same work.
// Each figure is the median of several rounds, the two clients taking turns.
// Usage: parlo_socketio_bench [requests [rounds]]   (defaults 20000 and 5)
#include "IMSocketIOClient.h"
#include "NodeProcess.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <sys/resource.h>
#include <vector>

namespace {

struct Figures {
    double perSecond = 0;
    double cpuMicrosPerRequest = 0;
};

double cpuMicros()
{
    rusage u {};
    getrusage(RUSAGE_SELF, &u);
    return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e6 + u.ru_utime.tv_usec + u.ru_stime.tv_usec;
}

const QVariantMap &payload()
{
    static const QVariantMap p {{"id", "request"},
        {"body",
            QVariantMap {{"text", QString::fromUtf8("hello, 世界")}, {"n", 42}, {"list", QVariantList {1, 2, 3}}}}};
    return p;
}

// Keeps `inflight` requests outstanding until `total` were answered. The event loop sleeps
// between events, as the Node client's does (processEvents with a time limit would spin).
bool runRequests(IMSocketIOClient &client, int total, int inflight)
{
    int sent = 0;
    int answered = 0;
    bool failed = false;
    QEventLoop loop;
    std::function<void()> next = [&] {
        if (sent >= total)
            return;
        ++sent;
        client.emitWithAck("echo", {payload()}, 30, [&](const QVariantList &items) {
            if (items.value(0).toString() == QLatin1String("NO ACK"))
                failed = true;
            ++answered;
            if (answered == total || failed)
                loop.quit();
            next();
        });
    };
    for (int i = 0; i < inflight && i < total; ++i)
        next();
    QTimer::singleShot(120000, &loop, &QEventLoop::quit);
    if (answered < total && !failed)
        loop.exec();
    return answered == total && !failed;
}

Figures measureKit(int port, int total, int inflight)
{
    IMSocketIOClient client(
        QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port)), {{"forceWebsockets", true}, {"reconnects", false}});
    client.connect();
    QDeadlineTimer deadline(10000);
    while (client.status() != IMSocket::Status::Connected && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    if (client.status() != IMSocket::Status::Connected || !runRequests(client, qMin(200, total), inflight))
        return {};
    const double cpu0 = cpuMicros();
    QElapsedTimer clock;
    clock.start();
    if (!runRequests(client, total, inflight))
        return {};
    const double seconds = clock.nsecsElapsed() / 1e9;
    return {total / seconds, (cpuMicros() - cpu0) / total};
}

Figures measureNode(int port, int total, int inflight)
{
    QProcess node;
    node.start(NodeProcess::nodeExecutable(),
        {QStringLiteral(PARLO_SOURCE_DIR "/tests/node/bench-client.js"), QString::number(port), QString::number(total),
            QString::number(inflight)});
    if (!node.waitForFinished(180000) || node.exitCode() != 0) {
        std::fprintf(stderr, "node client failed: %s\n", node.readAllStandardError().constData());
        return {};
    }
    const QJsonObject o = QJsonDocument::fromJson(node.readAllStandardOutput().trimmed()).object();
    const double seconds = o.value("seconds").toDouble();
    if (seconds <= 0)
        return {};
    return {total / seconds, o.value("cpuMicros").toDouble() / total};
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int total = argc > 1 ? std::atoi(argv[1]) : 20000;
    const int rounds = qMax(1, argc > 2 ? std::atoi(argv[2]) : 5);
    NodeProcess server(QStringLiteral(PARLO_SOURCE_DIR "/tests/node/peer.js"));
    if (!server.start()) {
        std::fprintf(stderr, "server did not start: %s\n", qPrintable(server.errorText()));
        return 1;
    }
    std::printf("Socket.IO acknowledged requests, WebSocket, %d requests per run, local socket.io 4.8 server, "
                "medians of %d rounds\n",
        total, rounds);
    std::printf("%-10s %14s %14s %8s %16s %16s %8s\n", "in flight", "kit req/s", "node req/s", "ratio",
        "kit CPU us/req", "node CPU us/req", "ratio");
    bool ok = true;
    for (int inflight : {1, 64}) {
        std::vector<double> kitRate, nodeRate, kitCpu, nodeCpu;
        bool measured = true;
        for (int round = 0; round < rounds && measured; ++round) {
            const Figures kit = measureKit(server.port(), total, inflight);
            const Figures node = measureNode(server.port(), total, inflight);
            measured = kit.perSecond > 0 && node.perSecond > 0;
            kitRate.push_back(kit.perSecond);
            nodeRate.push_back(node.perSecond);
            kitCpu.push_back(kit.cpuMicrosPerRequest);
            nodeCpu.push_back(node.cpuMicrosPerRequest);
        }
        if (!measured) {
            std::printf("%-10d measurement failed\n", inflight);
            ok = false;
            continue;
        }
        const double kitPerSecond = median(kitRate), nodePerSecond = median(nodeRate);
        const double kitMicros = median(kitCpu), nodeMicros = median(nodeCpu);
        std::printf("%-10d %14.0f %14.0f %8.2f %16.1f %16.1f %8.2f\n", inflight, kitPerSecond, nodePerSecond,
            kitPerSecond / nodePerSecond, kitMicros, nodeMicros, kitMicros / nodeMicros);
        std::fflush(stdout);
    }
    std::printf("goal: throughput ratio >= 1, CPU ratio <= 0.8 with 1 in flight and <= 0.5 with 64\n");
    return ok ? 0 : 1;
}

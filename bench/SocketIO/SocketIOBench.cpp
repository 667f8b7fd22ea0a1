// Acknowledged request throughput and client CPU per request: the kit's client against the
// official Node socket.io-client, same local server, same run, same work.
// Usage: parlo_socketio_bench [requests]   (default 20000)
#include "IMSocketIOClient.h"
#include "NodeProcess.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QThread>
#include <cstdio>
#include <sys/resource.h>

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
    static const QVariantMap p{
        {"id", "request"},
        {"body", QVariantMap{{"text", QString::fromUtf8("hello, 世界")}, {"n", 42}, {"list", QVariantList{1, 2, 3}}}}};
    return p;
}

// Keeps `inflight` requests outstanding until `total` were answered.
bool runRequests(IMSocketIOClient &client, int total, int inflight)
{
    int sent = 0;
    int answered = 0;
    bool failed = false;
    std::function<void()> next = [&] {
        if (sent >= total)
            return;
        ++sent;
        client.emitWithAck("echo", {payload()}, 30, [&](const QVariantList &items) {
            if (items.value(0).toString() == QLatin1String("NO ACK"))
                failed = true;
            ++answered;
            next();
        });
    };
    for (int i = 0; i < inflight && i < total; ++i)
        next();
    QDeadlineTimer deadline(120000);
    while (answered < total && !failed && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return answered == total && !failed;
}

Figures measureKit(int port, int total, int inflight)
{
    IMSocketIOClient client(QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port)),
                            {{"forceWebsockets", true}, {"reconnects", false}});
    client.connect();
    QDeadlineTimer deadline(10000);
    while (client.status() != IMSocket::Status::Connected && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
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
               {QStringLiteral(PARLO_SOURCE_DIR "/tests/node/bench-client.js"), QString::number(port),
                QString::number(total), QString::number(inflight)});
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

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int total = argc > 1 ? std::atoi(argv[1]) : 20000;
    NodeProcess server(QStringLiteral(PARLO_SOURCE_DIR "/tests/node/peer.js"));
    if (!server.start()) {
        std::fprintf(stderr, "server did not start: %s\n", qPrintable(server.errorText()));
        return 1;
    }
    std::printf("Socket.IO acknowledged requests, WebSocket, %d requests per run, local socket.io 4.8 server\n",
                total);
    std::printf("%-10s %14s %14s %8s %16s %16s %8s\n", "in flight", "kit req/s", "node req/s", "ratio",
                "kit CPU us/req", "node CPU us/req", "ratio");
    bool ok = true;
    for (int inflight : {1, 64}) {
        const Figures kit = measureKit(server.port(), total, inflight);
        const Figures node = measureNode(server.port(), total, inflight);
        if (kit.perSecond <= 0 || node.perSecond <= 0) {
            std::printf("%-10d measurement failed\n", inflight);
            ok = false;
            continue;
        }
        std::printf("%-10d %14.0f %14.0f %8.2f %16.1f %16.1f %8.2f\n", inflight, kit.perSecond, node.perSecond,
                    kit.perSecond / node.perSecond, kit.cpuMicrosPerRequest, node.cpuMicrosPerRequest,
                    kit.cpuMicrosPerRequest / node.cpuMicrosPerRequest);
    }
    std::printf("goal: throughput ratio >= 1, CPU ratio <= 0.5\n");
    return ok ? 0 : 1;
}

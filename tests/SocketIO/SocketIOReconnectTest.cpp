// Connection loss, reconnection, heartbeat and the exactly-once rule for acknowledgements,
// against the real server being killed, restarted and frozen.
#include "SocketIOPeer.h"

#include <QElapsedTimer>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <thread>

namespace {

QVariantMap fastRetry(QVariantMap extra = {})
{
    extra.insert("reconnectWait", 0.05);
    extra.insert("reconnectWaitMax", 0.2);
    extra.insert("forceWebsockets", true);
    return extra;
}

//! Counts calls per callback and keeps its last answer, to prove each ran exactly once.
struct AckCounter {
    std::shared_ptr<QList<QVariantList>> answers = std::make_shared<QList<QVariantList>>();
    std::shared_ptr<QList<int>> calls = std::make_shared<QList<int>>();
    IMSocket::AckCallback make()
    {
        answers->append(QVariantList());
        calls->append(0);
        return [a = answers, c = calls, i = calls->size() - 1](const QVariantList &items) {
            (*a)[i] = items;
            ++(*c)[i];
        };
    }
    bool allOnce() const { return calls->count(1) == calls->size(); }
    int done() const { return int(calls->size() - calls->count(0)); }
};

TEST(SocketIOReconnect, LifeEventsInOrderAcrossServerRestartWithNewSession)
{
    auto peer = startPeer();
    const int port = peer->port();
    IMSocketIOClient client(peerUrl(*peer), fastRetry());
    EventLog log(client);
    ASSERT_TRUE(connectAndWait(client));
    const QString firstSid = client.sid();
    peer->stop();
    ASSERT_TRUE(waitUntil([&] { return log.count("disconnect") == 1; }));
    EXPECT_EQ(log.last("disconnect"), QVariantList {"transport close"});
    EXPECT_EQ(client.status(), IMSocket::Status::Connecting);
    ASSERT_TRUE(waitUntil([&] { return log.count("error") >= 2; }));

    ASSERT_TRUE(peer->start(15000, {"--port", QString::number(port)}));
    ASSERT_TRUE(waitConnected(client, 10000));
    EXPECT_NE(client.sid(), firstSid);
    EXPECT_EQ(call(client, "echo", {"again"}), QVariantList {"again"});

    // connect, disconnect, then per failed try: reconnectAttempt, reconnecting, error;
    // then the last try: reconnectAttempt, reconnecting, reconnect, connect.
    const QStringList life = log.lifeEvents();
    ASSERT_GE(life.size(), 8);
    EXPECT_EQ(life.mid(0, 2), (QStringList {"connect", "disconnect"}));
    EXPECT_EQ(life.mid(life.size() - 4), (QStringList {"reconnectAttempt", "reconnecting", "reconnect", "connect"}));
    const QStringList tries = life.mid(2, life.size() - 6);
    ASSERT_EQ(tries.size() % 3, 0);
    for (int i = 0; i < tries.size(); i += 3)
        EXPECT_EQ(tries.mid(i, 3), (QStringList {"reconnectAttempt", "reconnecting", "error"}));
    const int attempts = tries.size() / 3 + 1;
    EXPECT_EQ(log.last("reconnect"), QVariantList {attempts});
    EXPECT_EQ(log.last("reconnecting"), QVariantList {attempts});
    EXPECT_EQ(log.last("reconnectAttempt"), QVariantList {-1});
}

TEST(SocketIOReconnect, GivesUpAfterItsAttemptsAndServerKickDoesNotReconnect)
{
    auto peer = startPeer();
    {
        IMSocketIOClient client(peerUrl(*peer), fastRetry({{"reconnectAttempts", 2}}));
        EventLog log(client);
        ASSERT_TRUE(connectAndWait(client));
        EXPECT_EQ(call(client, "kickMe", {}), QVariantList {"bye"});
        ASSERT_TRUE(waitUntil([&] { return log.count("disconnect") == 1; }));
        EXPECT_EQ(log.last("disconnect"), QVariantList {"io server disconnect"});
        spinFor(200); // four first reconnection delays
        EXPECT_EQ(log.count("reconnectAttempt"), 0);
        EXPECT_EQ(client.status(), IMSocket::Status::Disconnected);

        // connect() after a kick starts afresh.
        ASSERT_TRUE(connectAndWait(client));
    }
    IMSocketIOClient client(peerUrl(*peer), fastRetry({{"reconnectAttempts", 2}}));
    EventLog log(client);
    ASSERT_TRUE(connectAndWait(client));
    peer->stop();
    ASSERT_TRUE(waitUntil([&] { return log.count("reconnectfailed") == 1; }));
    EXPECT_EQ(client.status(), IMSocket::Status::Disconnected);
    EXPECT_EQ(log.lifeEvents(),
        (QStringList {"connect", "disconnect", "reconnectAttempt", "reconnecting", "error", "reconnectAttempt",
            "reconnecting", "error", "reconnectfailed"}));
    QList<int> remaining;
    for (int i = 0; i < log.names.size(); ++i)
        if (log.names.at(i) == "reconnectAttempt")
            remaining << log.items.at(i).value(0).toInt();
    EXPECT_EQ(remaining, (QList<int> {2, 1}));
    spinFor(300);
    EXPECT_EQ(log.count("reconnectAttempt"), 2);
}

using SocketIOHeartbeat = ::testing::TestWithParam<int>;

TEST_P(SocketIOHeartbeat, FrozenServerIsDetectedWhileWeKeepSending)
{
    auto peer = startPeer({"--eio3", "--ping-interval", "300", "--ping-timeout", "300"});
    IMSocketIOClient client(peerUrl(*peer), fastRetry({{"version", GetParam()}}));
    EventLog log(client);
    ASSERT_TRUE(connectAndWait(client));
    // Heartbeats pass with the server alive: no false alarm, for longer than one interval and its
    // time-out (a client that did not count the pings would have given up by then).
    spinFor(800);
    EXPECT_EQ(log.count("disconnect"), 0);

    peer->suspend(true);
    QElapsedTimer frozen;
    frozen.start();
    QTimer chatter;
    QObject::connect(&chatter, &QTimer::timeout, [&] { client.emitEvent("echo", {"still here"}); });
    chatter.start(50);
    const bool detected = waitUntil([&] { return log.count("disconnect") == 1; }, 5000);
    chatter.stop();
    peer->suspend(false);
    ASSERT_TRUE(detected);
    EXPECT_EQ(log.last("disconnect"), QVariantList {"ping timeout"});
    EXPECT_LT(frozen.elapsed(), 2500);
    ASSERT_TRUE(waitConnected(client, 8000));
}

INSTANTIATE_TEST_SUITE_P(SocketIO, SocketIOHeartbeat, ::testing::Values(3, 2),
    [](const ::testing::TestParamInfo<int> &info) { return info.param == 3 ? std::string("v4") : std::string("v3"); });

TEST(SocketIOAcks, EveryCallbackRunsExactlyOnce)
{
    auto peer = startPeer();
    const int port = peer->port();
    AckCounter acks;
    QElapsedTimer clock;
    {
        IMSocketIOClient client(peerUrl(*peer), fastRetry());
        // Not connected: nothing is sent, the callback waits for its time-out.
        clock.start();
        client.emitWithAck("echo", {"early"}, 0.15, acks.make());
        ASSERT_TRUE(connectAndWait(client));
        ASSERT_TRUE(waitUntil([&] { return acks.done() == 1; }));
        EXPECT_GE(clock.elapsed(), 140);
        EXPECT_EQ(acks.answers->at(0), QVariantList {"NO ACK"});

        // The server never answers: ["NO ACK"] at the time-out, not before.
        clock.restart();
        client.emitWithAck("never", {}, 0.2, acks.make());
        client.emitWithAck("echo", {"fast"}, 0.4, acks.make());
        ASSERT_TRUE(waitUntil([&] { return acks.done() == 3; }));
        EXPECT_GE(clock.elapsed(), 190);
        EXPECT_EQ(acks.answers->at(1), QVariantList {"NO ACK"});
        EXPECT_EQ(acks.answers->at(2), QVariantList {"fast"});

        // Across a server kill: bounded ones at their time-out, unbounded ones at the drop.
        client.emitWithAck("never", {}, 0.25, acks.make()); // 3
        client.emitWithAck("never", {}, 0, acks.make()); // 4
        client.emitWithAck("never", {}, 60, acks.make()); // 5: ends with the client
        peer->stop();
        ASSERT_TRUE(waitUntil([&] { return acks.done() == 5; }, 3000));
        EXPECT_EQ(acks.calls->at(5), 0);
        ASSERT_TRUE(peer->start(15000, {"--port", QString::number(port)}));
        ASSERT_TRUE(waitConnected(client, 10000));

        // disconnect() ends everything at once, and a later answer cannot sneak in.
        client.emitWithAck("never", {}, 60, acks.make()); // 6
        client.disconnect();
        EXPECT_EQ(acks.calls->at(6), 1);
        ASSERT_TRUE(connectAndWait(client));
        client.emitWithAck("never", {}, 0, acks.make()); // 7
        client.emitWithAck("echo", {"late"}, 0, acks.make()); // 8
    } // destroyed: the rest end now
    EXPECT_TRUE(acks.allOnce());
    for (const QVariantList &a : *acks.answers)
        EXPECT_TRUE(a == QVariantList {"NO ACK"} || a == QVariantList {"fast"} || a == QVariantList {"late"});
    spinFor(200);
    EXPECT_TRUE(acks.allOnce());
}

TEST(SocketIOAcks, EmitsFromOtherThreadsAnswerOnTheMainThreadOrFailWithTheClient)
{
    auto peer = startPeer();
    QThread *mainThread = QThread::currentThread();
    {
        IMSocketIOClient client(peerUrl(*peer), fastRetry());
        ASSERT_TRUE(connectAndWait(client));
        constexpr int kThreads = 4;
        constexpr int kEach = 100;
        std::atomic<int> offMain {0};
        auto answered = std::make_shared<std::atomic<int>>(0);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < kEach; ++i) {
                    client.emitEvent("echo", {t, i});
                    client.emitWithAck("echo", {t, i}, 10, [&, answered](const QVariantList &) {
                        if (QThread::currentThread() != mainThread)
                            ++offMain;
                        ++*answered;
                    });
                    (void)client.status();
                }
            });
        for (auto &th : threads)
            th.join();
        EXPECT_TRUE(waitUntil([&] { return *answered == kThreads * kEach; }, 10000));
        EXPECT_EQ(offMain.load(), 0);
    }

    // Emits queued from another thread run after their client is gone: each fails once.
    auto failed = std::make_shared<std::atomic<int>>(0);
    {
        IMSocketIOClient client(peerUrl(*peer), fastRetry());
        std::thread([&] {
            for (int i = 0; i < 20; ++i)
                client.emitWithAck("echo", {i}, 0, [failed](const QVariantList &a) {
                    EXPECT_EQ(a, QVariantList {"NO ACK"});
                    ++*failed;
                });
        }).join();
    }
    EXPECT_TRUE(waitUntil([&] { return *failed == 20; }));
    spinFor(50);
    EXPECT_EQ(failed->load(), 20);
}

} // namespace

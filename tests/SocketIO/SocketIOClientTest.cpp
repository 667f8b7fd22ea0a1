// The client against the real socket.io 4.8 server, in every protocol revision and transport.
#include "SocketIOPeer.h"

#include <QJsonDocument>

namespace {

struct Mode {
    const char *name;
    int version; // the client's "version" option
    const char *force; // "forceWebsockets", "forcePolling" or "" (polling, then the upgrade)
    const char *transport; // the transport in use once settled
};

class SocketIOModes : public ::testing::TestWithParam<Mode> {
protected:
    void SetUp() override
    {
        peer = startPeer(GetParam().version == 2 ? QStringList {"--eio3"} : QStringList {});
        ASSERT_GT(peer->port(), 0);
    }
    QVariantMap options(QVariantMap extra = {}) const
    {
        extra.insert("version", GetParam().version);
        if (*GetParam().force)
            extra.insert(GetParam().force, true);
        return extra;
    }
    std::unique_ptr<NodeProcess> peer;
};

TEST_P(SocketIOModes, EventsAndAcksBothWaysWithJsonBinaryTextAndLargePayloads)
{
    IMSocketIOClient client(peerUrl(*peer), options());
    EventLog log(client);
    EXPECT_EQ(client.status(), IMSocket::Status::NotConnected);
    client.connect();
    EXPECT_EQ(client.status(), IMSocket::Status::Connecting);
    ASSERT_TRUE(waitConnected(client));
    EXPECT_EQ(log.lifeEvents(), QStringList {"connect"});
    EXPECT_EQ(log.last("connect"), QVariantList {"/"});
    EXPECT_FALSE(client.sid().isEmpty());

    // JSON of every kind, and text beyond ASCII (including a surrogate pair).
    const QVariantMap map {{"a", 1}, {"b", QVariantList {true, false, QVariant()}}, {"c", "x"}, {"d", 2.5}};
    const QString text = QString::fromUtf8("héllo 世界 \xF0\x9F\x98\x80 \"quoted\" \\ \n");
    const QVariantList echoed = call(client, "echo", {map, text, 42});
    ASSERT_EQ(echoed.size(), 3);
    EXPECT_EQ(QJsonDocument::fromVariant(echoed.at(0)), QJsonDocument::fromVariant(map));
    EXPECT_EQ(echoed.at(1).toString(), text);
    EXPECT_EQ(echoed.at(2).toInt(), 42);
    EXPECT_EQ(call(client, "measure", {text}).value(0).toList().value(0).toMap().value("chars").toInt(), text.size());

    // Bytes both ways, nested in JSON, arriving as QByteArray.
    QByteArray bytes(1000, '\0');
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i % 256);
    const QVariantList binEcho = call(client, "echo", {QVariantMap {{"blob", bytes}, {"n", 1}}, bytes});
    ASSERT_EQ(binEcho.size(), 2);
    EXPECT_EQ(binEcho.at(0).toMap().value("blob").typeId(), QMetaType::QByteArray);
    EXPECT_EQ(binEcho.at(0).toMap().value("blob").toByteArray(), bytes);
    EXPECT_EQ(binEcho.at(1).toByteArray(), bytes);
    const QVariantList served = call(client, "bytes", {300});
    ASSERT_EQ(served.value(0).typeId(), QMetaType::QByteArray);
    EXPECT_EQ(served.value(0).toByteArray().size(), 300);
    EXPECT_EQ(quint8(served.value(0).toByteArray().at(260)), 260 % 251);

    // The server asks us with an acknowledgement; our answer reaches it.
    int questions = 0;
    client.on("question", [&](const QVariantList &items, const IMSocket::AckEmitter &ack) {
        ++questions;
        ack({QVariantMap {{"got", items.value(0)}}, QByteArray("\x01\x02", 2)});
        ack({"second answer is ignored"});
    });
    const QVariantList asked = call(client, "askMe", {"q1"});
    EXPECT_EQ(questions, 1);
    ASSERT_EQ(asked.value(0).toList().size(), 2);
    EXPECT_EQ(asked.value(0).toList().at(0).toMap().value("got").toString(), "q1");
    EXPECT_EQ(asked.value(0).toList().at(1).toByteArray(), QByteArray("\x01\x02", 2));

    // Server pushes with handlers by name; handlers of one event run in the order added.
    QStringList order;
    client.on("pushed", [&](const QVariantList &items, const IMSocket::AckEmitter &) {
        order << QStringLiteral("a%1").arg(items.value(1).toInt());
    });
    const auto second = client.on("pushed", [&](const QVariantList &items, const IMSocket::AckEmitter &) {
        order << QStringLiteral("b%1").arg(items.value(1).toInt());
    });
    call(client, "push", {"pushed", "p", 2});
    EXPECT_TRUE(waitUntil([&] { return order.size() == 4; }));
    EXPECT_EQ(order, (QStringList {"a0", "b0", "a1", "b1"}));
    client.off(second);
    call(client, "push", {"pushed", "p", 1});
    EXPECT_TRUE(waitUntil([&] { return order.size() == 5; }));
    spinFor(50);
    EXPECT_EQ(order.size(), 5);

    EXPECT_TRUE(waitUntil([&] { return client.transport() == GetParam().transport; }));
    EXPECT_EQ(
        call(client, "handshake", {}).value(0).toMap().value("transport").toString(), QString(GetParam().transport));

    // Large payloads both ways.
    QString big;
    big.reserve(1 << 20);
    while (big.size() < (1 << 20))
        big += QString::fromUtf8("abcdé世界\xF0\x9F\x98\x80");
    const QByteArray blob(1 << 20, 'z');
    const QVariantList answer = call(client, "echo", {big, blob}, 20);
    ASSERT_EQ(answer.size(), 2);
    EXPECT_EQ(answer.at(0).toString(), big);
    EXPECT_EQ(answer.at(1).toByteArray(), blob);
    EXPECT_EQ(call(client, "bytes", {1 << 20}, 20).value(0).toByteArray().size(), 1 << 20);

    client.disconnect();
    EXPECT_EQ(client.status(), IMSocket::Status::Disconnected);
    EXPECT_EQ(log.last("disconnect"), QVariantList {"io client disconnect"});
}

TEST_P(SocketIOModes, NamespaceWithAuthAndRefusal)
{
    {
        IMSocketIOClient client(
            peerUrl(*peer), options({{"nsp", "/admin"}, {"auth", QVariantMap {{"token", "secret"}}}}));
        EventLog log(client);
        ASSERT_TRUE(connectAndWait(client));
        EXPECT_EQ(log.last("connect"), QVariantList {"/admin"});
        const QVariantMap seen = call(client, "handshake", {}).value(0).toMap();
        EXPECT_EQ(seen.value("nsp").toString(), "/admin");
        EXPECT_EQ(seen.value("auth").toMap().value("token").toString(), "secret");
    }
    IMSocketIOClient refused(peerUrl(*peer), options({{"nsp", "/admin"}, {"auth", QVariantMap {{"token", "bad"}}}}));
    EventLog log(refused);
    refused.connect();
    ASSERT_TRUE(waitUntil([&] { return log.count("error") > 0; }));
    EXPECT_EQ(log.last("error"), QVariantList {"Not authorized"});
    spinFor(100);
    EXPECT_EQ(refused.status(), IMSocket::Status::Disconnected);
    EXPECT_EQ(log.count("connect"), 0);
    EXPECT_EQ(log.count("reconnectAttempt"), 0);
}

INSTANTIATE_TEST_SUITE_P(SocketIO, SocketIOModes,
    ::testing::Values(Mode {"v4WebSocket", 3, "forceWebsockets", "websocket"},
        Mode {"v4Polling", 3, "forcePolling", "polling"}, Mode {"v4Upgrade", 3, "", "websocket"},
        Mode {"v3WebSocket", 2, "forceWebsockets", "websocket"}, Mode {"v3Polling", 2, "forcePolling", "polling"},
        Mode {"v3Upgrade", 2, "", "websocket"}),
    [](const ::testing::TestParamInfo<Mode> &info) { return std::string(info.param.name); });

} // namespace

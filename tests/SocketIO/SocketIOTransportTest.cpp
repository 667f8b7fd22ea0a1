// TLS, request decorations and bad input from the network, against the real server.
#include "SocketIOPeer.h"

#include <QFile>

namespace {

//! A self-signed certificate for 127.0.0.1, made now in a temporary folder.
bool makeCertificate(QString *cert, QString *key)
{
    const QString dir = makeTempDir();
    *cert = dir + "/cert.pem";
    *key = dir + "/key.pem";
    QProcess openssl;
    openssl.start("openssl",
        {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", *key, "-out", *cert, "-days", "1", "-subj",
            "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"});
    return openssl.waitForFinished(30000) && openssl.exitCode() == 0 && QFile::exists(*cert);
}

TEST(SocketIOTls, SelfSignedCertificateRefusedByDefaultAcceptedWithOption)
{
    QString cert, key;
    ASSERT_TRUE(makeCertificate(&cert, &key));
    auto peer = startPeer({"--tls", cert, key});
    for (const char *scheme : {"wss", "https"}) {
        SCOPED_TRACE(scheme);
        {
            IMSocketIOClient client(peerUrl(*peer, scheme), {{"reconnects", false}});
            EventLog log(client);
            client.connect();
            ASSERT_TRUE(waitUntil([&] { return log.count("error") == 1; }));
            EXPECT_EQ(client.status(), IMSocket::Status::Disconnected);
            EXPECT_EQ(log.count("connect"), 0);
        }
        IMSocketIOClient client(peerUrl(*peer, scheme), {{"selfSigned", true}});
        ASSERT_TRUE(connectAndWait(client));
        EXPECT_EQ(
            call(client, "echo", {"secure", QByteArray("\0\1", 2)}), (QVariantList {"secure", QByteArray("\0\1", 2)}));
        EXPECT_TRUE(waitUntil([&] { return client.transport() == "websocket"; }));
    }
}

TEST(SocketIOHttp, HeadersQueryAndCookiesReachTheServerAndRefusedHandshakesAreReported)
{
    auto peer = startPeer();
    IMSocketIOClient client(peerUrl(*peer, "ws"),
        {{"extraHeaders", QVariantMap {{"X-Parlo-Test", "yes"}}}, {"connectParams", QVariantMap {{"room", "r 1&2"}}},
            {"cookies", QStringList {"mine=1"}}, {"path", "/socket.io"}});
    ASSERT_TRUE(connectAndWait(client));
    QVariantMap seen = call(client, "handshake", {}).value(0).toMap();
    EXPECT_EQ(seen.value("header").toString(), "yes");
    EXPECT_EQ(seen.value("query").toMap().value("room").toString(), "r 1&2");
    EXPECT_TRUE(seen.value("cookie").toString().contains("mine=1"));

    // The server's cookie from the first session comes back on the next one.
    client.reconnect();
    ASSERT_TRUE(waitConnected(client));
    seen = call(client, "handshake", {}).value(0).toMap();
    EXPECT_TRUE(seen.value("cookie").toString().contains("peer=sticky"))
        << seen.value("cookie").toString().toStdString();
    EXPECT_TRUE(seen.value("cookie").toString().contains("mine=1"));

    // Refused handshakes end in one error and no retry: a wrong path, and the older protocol
    // revision that this server (started without allowEIO3) does not take.
    for (const QVariantMap &options :
        {QVariantMap {{"path", "/elsewhere/"}, {"openTimeout", 0.5}, {"reconnects", false}},
            QVariantMap {{"version", 2}, {"forcePolling", true}, {"reconnects", false}}}) {
        IMSocketIOClient refused(peerUrl(*peer), options);
        EventLog log(refused);
        refused.connect();
        ASSERT_TRUE(waitUntil([&] { return log.count("error") == 1; }));
        EXPECT_EQ(refused.status(), IMSocket::Status::Disconnected);
        const QString error = log.last("error").value(0).toString();
        EXPECT_TRUE(!options.contains("version") || error.contains("code 5")) << error.toStdString();
    }
}

using SocketIOBadInput = ::testing::TestWithParam<const char *>;

TEST_P(SocketIOBadInput, HarmlessOnesAreReportedBrokenOnesCloseAndReconnect)
{
    auto peer = startPeer();
    IMSocketIOClient client(peerUrl(*peer), {{GetParam(), true}, {"reconnectWait", 0.05}, {"maxPayload", 20000}});
    EventLog log(client);
    ASSERT_TRUE(connectAndWait(client));
    // Makes the server send `text` as a raw Socket.IO packet.
    const auto serverSends = [&](const QString &text) { EXPECT_EQ(call(client, "raw", {text}), QVariantList {"ok"}); };

    serverSends("3999[1]"); // an ack id we never issued
    serverSends("2{\"not\":\"an array\"}"); // an event that is not a list
    serverSends("2[42]"); // an event without a name
    serverSends("2[\"disconnect\",\"spoofed\"]"); // a reserved name
    ASSERT_TRUE(waitUntil([&] { return log.count("error") == 4; }));
    EXPECT_TRUE(log.items.at(log.names.indexOf("error")).value(0).toString().contains("unknown id 999"));
    EXPECT_EQ(log.count("disconnect"), 0);
    EXPECT_EQ(call(client, "echo", {"fine"}), QVariantList {"fine"});

    const QStringList broken = {
        "2[\"oops\"", // bad JSON
        "9hello", // unknown packet type
        "5x-[\"ev\"]", // bad attachment count
        "51-[\"ev\",{\"_placeholder\":true,\"num\":0}]", // attachment never comes, text follows
        "", // ours, larger than maxPayload
    };
    for (int i = 0; i < broken.size(); ++i) {
        const QString &text = broken.at(i);
        SCOPED_TRACE(text.toStdString());
        if (text.isEmpty()) // unbounded: its acknowledgement ends with the dropped connection
            client.emitWithAck("echo", {QString(30000, 'x')}, 0, [](const QVariantList &) {});
        else
            serverSends(text);
        if (text.startsWith("51-")) {
            spinFor(100); // the server writes the raw packet a little after its answer
            client.emitEvent("push", {"x", 1, 1}); // the text that must not come before the bytes
        }
        ASSERT_TRUE(waitUntil([&] { return log.count("disconnect") == i + 1; }));
        EXPECT_EQ(log.last("disconnect"), QVariantList {"parse error"});
        ASSERT_TRUE(waitConnected(client));
    }
    EXPECT_EQ(call(client, "echo", {"recovered"}), QVariantList {"recovered"});
}

INSTANTIATE_TEST_SUITE_P(SocketIO, SocketIOBadInput, ::testing::Values("forceWebsockets", "forcePolling"),
    [](const ::testing::TestParamInfo<const char *> &info) { return std::string(info.param).substr(5); });

} // namespace

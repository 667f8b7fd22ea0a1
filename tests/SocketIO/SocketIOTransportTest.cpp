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
    openssl.start("openssl", {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", *key, "-out", *cert,
                              "-days", "1", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"});
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
            EventLog log;
            log.attach(client);
            client.connect();
            ASSERT_TRUE(waitUntil([&] { return log.count("error") == 1; }));
            EXPECT_EQ(client.status(), IMSocket::Status::Disconnected);
            EXPECT_EQ(log.count("connect"), 0);
        }
        IMSocketIOClient client(peerUrl(*peer, scheme), {{"selfSigned", true}});
        client.connect();
        ASSERT_TRUE(waitConnected(client));
        EXPECT_EQ(call(client, "echo", {"secure", QByteArray("\0\1", 2)}),
                  (QVariantList{"secure", QByteArray("\0\1", 2)}));
        EXPECT_TRUE(waitUntil([&] { return client.transport() == "websocket"; }));
    }
}

TEST(SocketIOHttp, HeadersQueryAndCookiesReachTheServerAndServerCookiesAreKept)
{
    auto peer = startPeer();
    IMSocketIOClient client(peerUrl(*peer, "ws"), {{"extraHeaders", QVariantMap{{"X-Parlo-Test", "yes"}}},
                                                   {"connectParams", QVariantMap{{"room", "r 1&2"}}},
                                                   {"cookies", QStringList{"mine=1"}},
                                                   {"path", "/socket.io"}});
    client.connect();
    ASSERT_TRUE(waitConnected(client));
    QVariantMap seen = call(client, "handshake", {}).value(0).toMap();
    EXPECT_EQ(seen.value("header").toString(), "yes");
    EXPECT_EQ(seen.value("query").toMap().value("room").toString(), "r 1&2");
    EXPECT_TRUE(seen.value("cookie").toString().contains("mine=1"));

    // The server's cookie from the first session comes back on the next one.
    client.reconnect();
    ASSERT_TRUE(waitConnected(client));
    seen = call(client, "handshake", {}).value(0).toMap();
    EXPECT_TRUE(seen.value("cookie").toString().contains("peer=sticky")) << seen.value("cookie").toString().toStdString();
    EXPECT_TRUE(seen.value("cookie").toString().contains("mine=1"));

    IMSocketIOClient lost(peerUrl(*peer), {{"path", "/elsewhere/"}, {"reconnects", false}, {"openTimeout", 0.5}});
    EventLog log;
    log.attach(lost);
    lost.connect();
    ASSERT_TRUE(waitUntil([&] { return log.count("error") == 1; }));
    EXPECT_EQ(lost.status(), IMSocket::Status::Disconnected);
}

TEST(SocketIOHttp, OlderProtocolRefusedByServerIsReported)
{
    auto peer = startPeer(); // without allowEIO3
    IMSocketIOClient client(peerUrl(*peer), {{"version", 2}, {"forcePolling", true}, {"reconnects", false}});
    EventLog log;
    log.attach(client);
    client.connect();
    ASSERT_TRUE(waitUntil([&] { return log.count("error") == 1; }));
    EXPECT_TRUE(log.last("error").value(0).toString().contains("code 5")) << log.last("error").value(0).toString().toStdString();
    EXPECT_EQ(client.status(), IMSocket::Status::Disconnected);
}

class SocketIOBadInput : public ::testing::TestWithParam<const char *>
{
protected:
    void SetUp() override
    {
        peer = startPeer();
        client = std::make_unique<IMSocketIOClient>(
            peerUrl(*peer), QVariantMap{{GetParam(), true}, {"reconnectWait", 0.05}, {"maxPayload", 20000}});
        log.attach(*client);
        client->connect();
        ASSERT_TRUE(waitConnected(*client));
    }
    //! Makes the server send `text` as a raw Socket.IO packet.
    void serverSends(const QString &text) { EXPECT_EQ(call(*client, "raw", {text}), QVariantList{"ok"}); }

    std::unique_ptr<NodeProcess> peer;
    std::unique_ptr<IMSocketIOClient> client;
    EventLog log;
};

TEST_P(SocketIOBadInput, HarmlessOnesAreReportedAndTheConnectionStays)
{
    serverSends("3999[1]");                          // an ack id we never issued
    serverSends("2{\"not\":\"an array\"}");          // an event that is not a list
    serverSends("2[42]");                            // an event without a name
    serverSends("2[\"disconnect\",\"spoofed\"]");    // a reserved name
    ASSERT_TRUE(waitUntil([&] { return log.count("error") == 4; }));
    EXPECT_TRUE(log.items.at(log.names.indexOf("error")).value(0).toString().contains("unknown id 999"));
    EXPECT_EQ(log.count("disconnect"), 0);
    EXPECT_EQ(call(*client, "echo", {"fine"}), QVariantList{"fine"});
}

TEST_P(SocketIOBadInput, BrokenOnesCloseAndReconnect)
{
    const QStringList broken = {
        "2[\"oops\"",                                        // bad JSON
        "9hello",                                            // unknown packet type
        "5x-[\"ev\"]",                                       // bad attachment count
        "51-[\"ev\",{\"_placeholder\":true,\"num\":0}]",     // attachment never comes, text follows
    };
    int disconnects = 0;
    for (const QString &text : broken) {
        SCOPED_TRACE(text.toStdString());
        serverSends(text);
        if (text.startsWith("51-")) {
            spinFor(100); // the server writes the raw packet a little after its answer
            client->emitEvent("push", {"x", 1, 1}); // the text that must not come before the bytes
        }
        ASSERT_TRUE(waitUntil([&] { return log.count("disconnect") == disconnects + 1; }));
        ++disconnects;
        EXPECT_EQ(log.last("disconnect"), QVariantList{"parse error"});
        ASSERT_TRUE(waitConnected(*client));
    }
    // Larger than maxPayload.
    // Unbounded: its acknowledgement ends with the dropped connection instead of a time-out.
    client->emitWithAck("echo", { QString(30000, 'x') }, 0, [](const QVariantList &) {});
    ASSERT_TRUE(waitUntil([&] { return log.count("disconnect") == disconnects + 1; }));
    EXPECT_EQ(log.last("disconnect"), QVariantList{"parse error"});
    ASSERT_TRUE(waitConnected(*client));
    EXPECT_EQ(call(*client, "echo", {"recovered"}), QVariantList{"recovered"});
}

INSTANTIATE_TEST_SUITE_P(SocketIO, SocketIOBadInput, ::testing::Values("forceWebsockets", "forcePolling"),
                         [](const ::testing::TestParamInfo<const char *> &info) {
                             return std::string(info.param).substr(5);
                         });

} // namespace

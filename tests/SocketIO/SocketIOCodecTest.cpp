// The codecs and the backoff, without a network. Golden vectors are the literal packet strings
// of the public Engine.IO and Socket.IO protocol documents.
#include "IMEngineIOPacket.h"
#include "IMSocketIOAckTable.h"
#include "IMSocketIOBackoff.h"
#include "IMSocketIOPacket.h"
#include "IMWebSocketFrame.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

namespace {

using EP = IMEngineIOPacket;
using SP = IMSocketIOPacket;

//! "<type>:<text>" or "<type>:b<hex>" per packet, to compare decoded payloads at a glance.
QStringList describe(const QList<EP> &packets)
{
    QStringList out;
    for (const EP &p : packets)
        out << QString::number(p.type) + ":" + (p.isBinary ? "b" + QString::fromLatin1(p.binary.toHex()) : p.text);
    return out;
}

TEST(SocketIOCodec, EngineIOPayloadsAndFramesBothRevisions)
{
    // v3 counts lengths in UTF-16 units: "4" + a surrogate pair is 3.
    const QString euro = QString::fromUtf8("\xe2\x82\xac");
    const QString smile = QString::fromUtf8("\xF0\x9F\x98\x80");
    const QString open = "{\"sid\":\"lv_VI97HAXpY6yYWAAAC\",\"upgrades\":[\"websocket\"],\"pingInterval\":25000,"
                         "\"pingTimeout\":20000,\"maxPayload\":1000000}";
    const struct {
        int eio;
        QByteArray wire;
        QList<EP> packets;
    } cases[] = {
        {4,
            "4hello\x1e"
            "2\x1e"
            "4" + euro.toUtf8(),
            {EP::makeText(EP::Message, "hello"), EP::makeText(EP::Ping), EP::makeText(EP::Message, euro)}},
        {4,
            "4hello\x1e"
            "bAQIDBA==",
            {EP::makeText(EP::Message, "hello"), EP::makeBinary("\x01\x02\x03\x04")}},
        {4, "0" + open.toUtf8(), {EP::makeText(EP::Open, open)}},
        {3, "6:4hello2:4" + euro.toUtf8() + "1:2",
            {EP::makeText(EP::Message, "hello"), EP::makeText(EP::Message, euro), EP::makeText(EP::Ping)}},
        {3, ("3:4" + smile + "6:4hello").toUtf8(),
            {EP::makeText(EP::Message, smile), EP::makeText(EP::Message, "hello")}},
        {3, "10:b4AQIDBA==", {EP::makeBinary("\x01\x02\x03\x04")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.wire.toStdString());
        QList<EP> packets;
        ASSERT_TRUE(EP::decodePayload(c.wire, c.eio, &packets));
        EXPECT_EQ(describe(packets), describe(c.packets));
        EXPECT_EQ(EP::encodePayload(c.packets, c.eio), c.wire);
    }

    const std::pair<int, QByteArray> bad[] = {{4, ""}, {4, "7x"}, {4, "4a\x1e\x1e"}, {4, "b!!!"}, {3, "9:4hello"},
        {3, ":4"}, {3, "x:4"}, {3, "2:9z"}, {3, "4hello"}, {3, "99999999999999999999:4"}};
    for (const auto &[eio, wire] : bad) {
        QList<EP> packets;
        EXPECT_FALSE(EP::decodePayload(wire, eio, &packets)) << eio << " " << wire.toStdString();
    }

    // One packet per WebSocket frame: text as in a payload; bytes raw in v4, led by the type in v3.
    EP p;
    EXPECT_EQ(EP::encodeText(EP::makeText(EP::Ping, "probe"), 4), "2probe");
    ASSERT_TRUE(EP::decodeText("3probe", 4, &p));
    EXPECT_EQ(describe({p}), QStringList {"3:probe"});
    EXPECT_EQ(EP::encodeBinaryFrame("\x01\x02", 4), QByteArray("\x01\x02"));
    EXPECT_EQ(EP::encodeBinaryFrame("\x01\x02", 3), QByteArray("\x04\x01\x02"));
    ASSERT_TRUE(EP::decodeBinaryFrame(QByteArray("\x04\x01\x02"), 3, &p));
    EXPECT_EQ(describe({p}), QStringList {"4:b0102"});
    EXPECT_FALSE(EP::decodeText("", 4, &p));
    EXPECT_FALSE(EP::decodeText("x", 4, &p));
    EXPECT_FALSE(EP::decodeBinaryFrame(QByteArray("\x02\x01"), 3, &p));
    EXPECT_FALSE(EP::decodeBinaryFrame(QByteArray(), 3, &p));
}

TEST(SocketIOCodec, WebSocketFramesUseTheShortestLengthAndUnmaskBack)
{
    using WF = IMWebSocketFrame;
    // Payload length -> header size, mask included: 7-bit, 16-bit and 64-bit lengths.
    const std::pair<qsizetype, int> cases[] = {{0, 6}, {125, 6}, {126, 8}, {65535, 8}, {65536, 14}};
    for (const auto &[length, headerSize] : cases) {
        SCOPED_TRACE(length);
        QByteArray payload(length, Qt::Uninitialized);
        for (qsizetype i = 0; i < length; ++i)
            payload[i] = char(i * 7);
        QByteArray frame("kept");
        WF::appendMasked(&frame, WF::Text, payload.constData(), length, 0x01020384u);
        frame.remove(0, 4);
        WF::Header h;
        EXPECT_EQ(WF::readHeader(frame.constData(), headerSize - 1, &h), 0);
        ASSERT_EQ(WF::readHeader(frame.constData(), frame.size(), &h), 1);
        EXPECT_TRUE(h.fin && h.masked);
        EXPECT_EQ(h.opcode, WF::Text);
        EXPECT_EQ(h.size, headerSize);
        EXPECT_EQ(h.length, quint64(length));
        ASSERT_EQ(frame.size(), headerSize + length);
        char *body = frame.data() + headerSize;
        EXPECT_TRUE(length == 0 || QByteArray(body, length) != payload);
        WF::applyMask(body, length, h.mask);
        EXPECT_EQ(QByteArray(body, length), payload);
    }
    WF::Header h;
    EXPECT_EQ(WF::readHeader("\x81\x02hi", 4, &h), 1);
    EXPECT_FALSE(h.masked);
    EXPECT_EQ(WF::readHeader("\xc1\x00", 2, &h), -1); // a reserved bit
    EXPECT_EQ(WF::readHeader("\x09\x00", 2, &h), -1); // a fragmented ping
    EXPECT_EQ(WF::readHeader("\x83\x00", 2, &h), -1); // an unknown opcode
}

SP packet(SP::Type type, const QString &nsp = "/", qint64 id = -1, const QVariant &data = {})
{
    SP p;
    p.type = type;
    p.nsp = nsp;
    p.id = id;
    p.data = data;
    return p;
}

TEST(SocketIOCodec, SocketIOPacketsEncode)
{
    const QByteArray bytes("\x01\x02\x03\x04", 4);
    const struct {
        SP packet;
        QString text;
        QList<QByteArray> buffers = {};
    } cases[] = {
        {packet(SP::Connect), "0"},
        {packet(SP::Connect, "/admin"), "0/admin,"},
        {packet(SP::Connect, "/admin", -1, QVariantMap {{"token", "123"}}), "0/admin,{\"token\":\"123\"}"},
        {packet(SP::Event, "/", -1, QVariantList {"foo"}), "2[\"foo\"]"},
        {packet(SP::Event, "/admin", 456, QVariantList {"bar"}), "2/admin,456[\"bar\"]"},
        {packet(SP::Ack, "/admin", 456, QVariantList {}), "3/admin,456[]"},
        {packet(SP::Event, "/", -1, QVariantList {"n", QVariant(), qQNaN(), QString::fromUtf8("\xc3\xa9\"\n")}),
            QString::fromUtf8("2[\"n\",null,null,\"\xc3\xa9\\\"\\n\"]")},
        {packet(SP::Event, "/", -1, QVariantList {"baz", bytes}), "51-[\"baz\",{\"_placeholder\":true,\"num\":0}]",
            {bytes}},
        {packet(SP::Ack, "/admin", 456, QVariantList {QVariantMap {{"a", QByteArray("x")}}, QByteArray("y")}),
            "62-/admin,456[{\"a\":{\"_placeholder\":true,\"num\":0}},{\"_placeholder\":true,\"num\":1}]", {"x", "y"}},
    };
    QList<QByteArray> buffers; // shared: each binary packet replaces what the one before left
    for (const auto &c : cases) {
        EXPECT_EQ(c.packet.encode(c.buffers.isEmpty() ? nullptr : &buffers), c.text);
        if (!c.buffers.isEmpty()) {
            EXPECT_EQ(buffers, c.buffers) << c.text.toStdString();
        }
    }
}

TEST(SocketIOCodec, SocketIOPacketsDecode)
{
    const struct {
        const char *text;
        SP::Type type;
        QString nsp;
        qint64 id;
        QVariant data; // invalid: the packet has none
    } cases[] = {
        {"0{\"sid\":\"oSO0OpakMV_3jnilAAAA\"}", SP::Connect, "/", -1, QVariantMap {{"sid", "oSO0OpakMV_3jnilAAAA"}}},
        {"4{\"message\":\"Not authorized\"}", SP::ConnectError, "/", -1, QVariantMap {{"message", "Not authorized"}}},
        {"4/admin,\"Not authorized\"", SP::ConnectError, "/admin", -1, "Not authorized"},
        {"2/admin,456[\"bar\"]", SP::Event, "/admin", 456, QVariantList {"bar"}},
        {"1/admin,", SP::Disconnect, "/admin", -1, QVariant()},
        {"3/admin,456[]", SP::Ack, "/admin", 456, QVariantList {}},
        {"0/admin?token=1,", SP::Connect, "/admin?token=1", -1, QVariant()},
    };
    SP p;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_TRUE(SP::decode(c.text, &p));
        EXPECT_EQ(p.type, c.type);
        EXPECT_EQ(p.nsp, c.nsp);
        EXPECT_EQ(p.id, c.id);
        EXPECT_EQ(p.hasData, c.data.isValid());
        EXPECT_EQ(p.data, c.data);
    }

    ASSERT_TRUE(
        SP::decode("62-/admin,456[{\"a\":{\"_placeholder\":true,\"num\":1}},{\"_placeholder\":true,\"num\":0}]", &p));
    EXPECT_EQ(p.attachments, 2);
    EXPECT_FALSE(p.isComplete());
    p.buffers = {"zero", "one"};
    ASSERT_TRUE(p.reconstruct());
    EXPECT_EQ(p.data.toList().at(0).toMap().value("a").toByteArray(), QByteArray("one"));
    EXPECT_EQ(p.data.toList().at(1).toByteArray(), QByteArray("zero"));

    ASSERT_TRUE(SP::decode("51-[\"x\",{\"_placeholder\":true,\"num\":3}]", &p));
    p.buffers = {"only"};
    EXPECT_FALSE(p.reconstruct());

    for (const QString bad :
        {"", "7", "2[\"a\"", "2[1,2]x", "3[1]", "5-[\"a\"]", "5x-[]", "2/a,1234567890123456[]", "2{\"a\":1}{}"})
        EXPECT_FALSE(SP::decode(bad, &p)) << bad.toStdString();
}

TEST(SocketIOCodec, BackoffGrowsWithJitterAndCap)
{
    IMSocketIOBackoff plain(1000, 5000, 0);
    for (const auto &[attempt, ms] : {std::pair {0, 1000}, {1, 2000}, {2, 4000}, {3, 5000}, {500, 5000}})
        EXPECT_EQ(plain.duration(attempt), ms) << attempt;

    // An even tenth of the random draw subtracts, an odd one adds (0.15 * 0.5 * 2000 at 0.15, attempt 1).
    IMSocketIOBackoff jitter(1000, 100000, 0.5);
    const struct {
        double random;
        int attempt;
        qint64 ms;
    } draws[] = {{0.0, 1, 2000}, {0.15, 1, 2150}, {0.99, 0, 1495}, {0.8, 0, 600}};
    for (const auto &d : draws) {
        jitter.setRandom([r = d.random] { return r; });
        EXPECT_EQ(jitter.duration(d.attempt), d.ms) << d.random;
    }
    IMSocketIOBackoff real(1000, 5000, 0.5);
    for (int attempt = 0; attempt < 10; ++attempt) {
        const qint64 d = real.duration(attempt);
        EXPECT_GE(d, attempt == 0 ? 500 : 1000);
        EXPECT_LE(d, 5000);
    }
}

TEST(SocketIOCodec, AckTableEndsEachCallbackOnceInOrder)
{
    QStringList calls;
    auto table = std::make_unique<IMSocketIOAckTable>();
    auto cb = [&](const QString &name) {
        return [&calls, name](const QVariantList &items) { calls << name + "=" + items.value(0).toString(); };
    };
    table->add(1, 0.15, cb("a"));
    table->add(2, 0.05, cb("b"));
    table->add(3, 0, cb("c"));
    table->add(4, 10, cb("d"));
    table->add(5, 10, cb("e"));
    EXPECT_TRUE(table->answer(4, {"yes"}));
    EXPECT_FALSE(table->answer(4, {"again"}));
    EXPECT_FALSE(table->answer(99, {}));
    ASSERT_TRUE(waitUntil([&] { return calls.size() == 3; }, 2000));
    EXPECT_EQ(calls, (QStringList {"d=yes", "b=NO ACK", "a=NO ACK"}));
    table->failUnbounded();
    EXPECT_EQ(calls.last(), "c=NO ACK");
    // A callback that re-enters the table while it is being failed.
    table->add(6, 10, [&](const QVariantList &) {
        calls << "f";
        table->add(7, 10, cb("g"));
    });
    table->failAll();
    EXPECT_EQ(calls.mid(4), (QStringList {"e=NO ACK", "f"}));
    table.reset(); // g ends with the table
    EXPECT_EQ(calls.last(), "g=NO ACK");
    EXPECT_EQ(calls.size(), 7);
}

} // namespace

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

TEST(SocketIOCodec, EngineIOPayloadsV4)
{
    QList<EP> packets;
    ASSERT_TRUE(EP::decodePayload("4hello\x1e" "2\x1e" "4\xe2\x82\xac", 4, &packets));
    ASSERT_EQ(packets.size(), 3);
    EXPECT_EQ(packets[0].type, EP::Message);
    EXPECT_EQ(packets[0].text, "hello");
    EXPECT_EQ(packets[1].type, EP::Ping);
    EXPECT_EQ(packets[2].text, QString::fromUtf8("\xe2\x82\xac"));

    ASSERT_TRUE(EP::decodePayload("4hello\x1e" "bAQIDBA==", 4, &packets));
    ASSERT_TRUE(packets[1].isBinary);
    EXPECT_EQ(packets[1].binary, QByteArray("\x01\x02\x03\x04"));
    EXPECT_EQ(EP::encodePayload({EP::makeText(EP::Message, "hello"), EP::makeBinary("\x01\x02\x03\x04")}, 4),
              QByteArray("4hello\x1e" "bAQIDBA=="));

    ASSERT_TRUE(EP::decodePayload(
        "0{\"sid\":\"lv_VI97HAXpY6yYWAAAC\",\"upgrades\":[\"websocket\"],\"pingInterval\":25000,"
        "\"pingTimeout\":20000,\"maxPayload\":1000000}", 4, &packets));
    EXPECT_EQ(packets[0].type, EP::Open);

    for (const QByteArray &bad : {QByteArray(""), QByteArray("7x"), QByteArray("4a\x1e\x1e"), QByteArray("b!!!")})
        EXPECT_FALSE(EP::decodePayload(bad, 4, &packets)) << bad.toStdString();
}

TEST(SocketIOCodec, EngineIOPayloadsV3CountUtf16Units)
{
    QList<EP> packets;
    ASSERT_TRUE(EP::decodePayload("6:4hello2:4\xe2\x82\xac" "1:2", 3, &packets));
    ASSERT_EQ(packets.size(), 3);
    EXPECT_EQ(packets[1].text, QString::fromUtf8("\xe2\x82\xac"));
    EXPECT_EQ(packets[2].type, EP::Ping);

    // A character outside the BMP counts two: "4" + surrogate pair = 3.
    const QString smile = QString::fromUtf8("\xF0\x9F\x98\x80");
    EXPECT_EQ(EP::encodePayload({EP::makeText(EP::Message, smile)}, 3), ("3:4" + smile).toUtf8());
    ASSERT_TRUE(EP::decodePayload(("3:4" + smile + "6:4hello").toUtf8(), 3, &packets));
    EXPECT_EQ(packets[0].text, smile);

    EXPECT_EQ(EP::encodePayload({EP::makeBinary("\x01\x02\x03\x04")}, 3), QByteArray("10:b4AQIDBA=="));
    ASSERT_TRUE(EP::decodePayload("10:b4AQIDBA==", 3, &packets));
    EXPECT_EQ(packets[0].binary, QByteArray("\x01\x02\x03\x04"));

    for (const QByteArray &bad : {QByteArray("9:4hello"), QByteArray(":4"), QByteArray("x:4"), QByteArray("2:9z"),
                                 QByteArray("4hello"), QByteArray("99999999999999999999:4")})
        EXPECT_FALSE(EP::decodePayload(bad, 3, &packets)) << bad.toStdString();
}

TEST(SocketIOCodec, EngineIOWebSocketFrames)
{
    EP p;
    EXPECT_EQ(EP::encodeText(EP::makeText(EP::Ping, "probe"), 4), "2probe");
    ASSERT_TRUE(EP::decodeText("3probe", 4, &p));
    EXPECT_EQ(p.type, EP::Pong);
    EXPECT_EQ(p.text, "probe");
    EXPECT_FALSE(EP::decodeText("", 4, &p));
    EXPECT_FALSE(EP::decodeText("x", 4, &p));

    EXPECT_EQ(EP::encodeBinaryFrame("\x01\x02", 4), QByteArray("\x01\x02"));
    EXPECT_EQ(EP::encodeBinaryFrame("\x01\x02", 3), QByteArray("\x04\x01\x02"));
    ASSERT_TRUE(EP::decodeBinaryFrame(QByteArray("\x04\x01\x02"), 3, &p));
    EXPECT_EQ(p.binary, QByteArray("\x01\x02"));
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

TEST(SocketIOCodec, SocketIOPacketsEncode)
{
    SP p;
    p.type = SP::Connect;
    EXPECT_EQ(p.encode(nullptr), "0");
    p.nsp = "/admin";
    EXPECT_EQ(p.encode(nullptr), "0/admin,");
    p.data = QVariantMap{{"token", "123"}};
    EXPECT_EQ(p.encode(nullptr), "0/admin,{\"token\":\"123\"}");

    SP ev;
    ev.data = QVariantList{"foo"};
    EXPECT_EQ(ev.encode(nullptr), "2[\"foo\"]");
    ev.nsp = "/admin";
    ev.id = 456;
    ev.data = QVariantList{"bar"};
    EXPECT_EQ(ev.encode(nullptr), "2/admin,456[\"bar\"]");

    SP ack;
    ack.type = SP::Ack;
    ack.nsp = "/admin";
    ack.id = 456;
    ack.data = QVariantList{};
    EXPECT_EQ(ack.encode(nullptr), "3/admin,456[]");

    QList<QByteArray> buffers;
    SP bin;
    bin.data = QVariantList{"baz", QByteArray("\x01\x02\x03\x04", 4)};
    EXPECT_EQ(bin.encode(&buffers), "51-[\"baz\",{\"_placeholder\":true,\"num\":0}]");
    ASSERT_EQ(buffers.size(), 1);
    EXPECT_EQ(buffers[0], QByteArray("\x01\x02\x03\x04", 4));

    SP binAck;
    binAck.type = SP::Ack;
    binAck.nsp = "/admin";
    binAck.id = 456;
    binAck.data = QVariantList{QVariantMap{{"a", QByteArray("x")}}, QByteArray("y")};
    EXPECT_EQ(binAck.encode(&buffers),
              "62-/admin,456[{\"a\":{\"_placeholder\":true,\"num\":0}},{\"_placeholder\":true,\"num\":1}]");
    EXPECT_EQ(buffers, (QList<QByteArray>{"x", "y"}));

    SP odd;
    odd.data = QVariantList{"n", QVariant(), qQNaN(), QString::fromUtf8("\xc3\xa9\"\n")};
    EXPECT_EQ(odd.encode(nullptr), QString::fromUtf8("2[\"n\",null,null,\"\xc3\xa9\\\"\\n\"]"));
}

TEST(SocketIOCodec, SocketIOPacketsDecode)
{
    SP p;
    ASSERT_TRUE(SP::decode("0{\"sid\":\"oSO0OpakMV_3jnilAAAA\"}", &p));
    EXPECT_EQ(p.type, SP::Connect);
    EXPECT_EQ(p.nsp, "/");
    EXPECT_EQ(p.data.toMap().value("sid").toString(), "oSO0OpakMV_3jnilAAAA");

    ASSERT_TRUE(SP::decode("4{\"message\":\"Not authorized\"}", &p));
    EXPECT_EQ(p.type, SP::ConnectError);
    ASSERT_TRUE(SP::decode("4/admin,\"Not authorized\"", &p));
    EXPECT_EQ(p.data.toString(), "Not authorized");
    EXPECT_EQ(p.nsp, "/admin");

    ASSERT_TRUE(SP::decode("2/admin,456[\"bar\"]", &p));
    EXPECT_EQ(p.id, 456);
    EXPECT_EQ(p.data.toList(), QVariantList{"bar"});
    ASSERT_TRUE(SP::decode("1/admin,", &p));
    EXPECT_EQ(p.type, SP::Disconnect);
    EXPECT_FALSE(p.hasData);
    ASSERT_TRUE(SP::decode("3/admin,456[]", &p));
    EXPECT_EQ(p.type, SP::Ack);
    ASSERT_TRUE(SP::decode("0/admin?token=1,", &p));
    EXPECT_EQ(p.nsp, "/admin?token=1");

    ASSERT_TRUE(SP::decode("62-/admin,456[{\"a\":{\"_placeholder\":true,\"num\":1}},{\"_placeholder\":true,\"num\":0}]",
                           &p));
    EXPECT_EQ(p.attachments, 2);
    EXPECT_FALSE(p.isComplete());
    p.buffers = {"zero", "one"};
    ASSERT_TRUE(p.reconstruct());
    EXPECT_EQ(p.data.toList().at(0).toMap().value("a").toByteArray(), QByteArray("one"));
    EXPECT_EQ(p.data.toList().at(1).toByteArray(), QByteArray("zero"));

    ASSERT_TRUE(SP::decode("51-[\"x\",{\"_placeholder\":true,\"num\":3}]", &p));
    p.buffers = {"only"};
    EXPECT_FALSE(p.reconstruct());

    for (const QString bad : {"", "7", "2[\"a\"", "2[1,2]x", "3[1]", "5-[\"a\"]", "5x-[]", "2/a,1234567890123456[]",
                              "2{\"a\":1}{}"})
        EXPECT_FALSE(SP::decode(bad, &p)) << bad.toStdString();
}

TEST(SocketIOCodec, BackoffGrowsWithJitterAndCap)
{
    IMSocketIOBackoff plain(1000, 5000, 0);
    EXPECT_EQ(plain.duration(0), 1000);
    EXPECT_EQ(plain.duration(1), 2000);
    EXPECT_EQ(plain.duration(2), 4000);
    EXPECT_EQ(plain.duration(3), 5000);
    EXPECT_EQ(plain.duration(500), 5000);

    IMSocketIOBackoff jitter(1000, 100000, 0.5);
    jitter.setRandom([] { return 0.0; }); // even tenth: subtracts nothing at 0
    EXPECT_EQ(jitter.duration(1), 2000);
    jitter.setRandom([] { return 0.15; }); // odd tenth: adds 0.15 * 0.5 * 2000
    EXPECT_EQ(jitter.duration(1), 2150);
    jitter.setRandom([] { return 0.99; }); // odd tenth: adds
    EXPECT_EQ(jitter.duration(0), 1495);
    jitter.setRandom([] { return 0.8; }); // even tenth: subtracts
    EXPECT_EQ(jitter.duration(0), 600);
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
    EXPECT_EQ(calls, (QStringList{"d=yes", "b=NO ACK", "a=NO ACK"}));
    table->failUnbounded();
    EXPECT_EQ(calls.last(), "c=NO ACK");
    // A callback that re-enters the table while it is being failed.
    table->add(6, 10, [&](const QVariantList &) {
        calls << "f";
        table->add(7, 10, cb("g"));
    });
    table->failAll();
    EXPECT_EQ(calls.mid(4), (QStringList{"e=NO ACK", "f"}));
    table.reset(); // g ends with the table
    EXPECT_EQ(calls.last(), "g=NO ACK");
    EXPECT_EQ(calls.size(), 7);
}

} // namespace

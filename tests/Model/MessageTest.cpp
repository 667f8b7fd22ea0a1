// Messages, rooms and clients beyond plain mapping: initialisers, copying, the other member,
// day separators and the current client from the settings.
#include "IMMessage.h"
#include "IMUserDefaults.h"
#include "TestUtil.h"
#include "TimeZone.h"

#include <QDir>
#include <gtest/gtest.h>

namespace {
class ModelMessage : public ::testing::Test {
protected:
    void SetUp() override
    {
        IMUserDefaults::standardUserDefaults()->setSettingsFile(QDir(makeTempDir()).filePath("settings.ini"));
    }
    void TearDown() override { IMUserDefaults::standardUserDefaults()->setSettingsFile(QString()); }

    static IMMessagePtr at(const QString &createdAt)
    {
        auto message = std::make_shared<IMMessage>();
        message->setCreatedAt(createdAt);
        return message;
    }
};
} // namespace

TEST_F(ModelMessage, InitialisersSetTheirDefaultsAndAFreshIdFromSender)
{
    IMUserDefaults::standardUserDefaults()->setCurrentUser({{"id", "c1"}, {"clientID", "me"}});
    IMMessagePtr plain = IMMessage::create();
    EXPECT_EQ(plain->sendingType(), IMMessageSendingTypeSettled);
    EXPECT_EQ(plain->messageType(), kMessageTypeText);
    EXPECT_EQ(plain->message(), "");
    EXPECT_FALSE(plain->message().isNull());
    ASSERT_TRUE(plain->sender());
    EXPECT_EQ(plain->sender()->clientID(), "me");
    EXPECT_FALSE(plain->room());

    auto room = std::make_shared<IMRoom>();
    IMMessagePtr outgoing = IMMessage::initWithRoom(room);
    EXPECT_EQ(outgoing->room(), room); // the same record, not a copy
    EXPECT_EQ(outgoing->sendingType(), IMMessageSendingTypeSending);
    EXPECT_TRUE(outgoing->messageType().isNull());
    EXPECT_TRUE(outgoing->message().isNull());
    EXPECT_FALSE(outgoing->sender());
    ASSERT_TRUE(outgoing->option());
    EXPECT_TRUE(outgoing->option()->needToPush());

    // A mapped message starts from the initialised record.
    IMMessagePtr mapped = IMMessage::fromDictionary({{"id", "m1"}, {"messageType", "GEO"}});
    ASSERT_TRUE(mapped);
    EXPECT_EQ(mapped->messageType(), kMessageTypeGeo);
    EXPECT_EQ(mapped->sendingType(), 0u);
    EXPECT_TRUE(mapped->hasIdFromSender());

    // Both initialisers draw a fresh 32-bit id from the sender.
    QSet<qint64> seen;
    for (int i = 0; i < 200; ++i) {
        const qint64 id = (i % 2 ? IMMessage::create() : IMMessage::initWithRoom(nullptr))->idFromSender();
        EXPECT_GE(id, 0);
        EXPECT_LE(id, qint64(0xFFFFFFFF));
        seen.insert(id);
    }
    EXPECT_GE(seen.size(), 199);
}

TEST_F(ModelMessage, TempNeverTravelsAndTypesFollowTheirIndex)
{
    IMMessagePtr message = IMMessage::initWithRoom(nullptr);
    message->setTemp(QStringLiteral("/tmp/picture.png"));
    EXPECT_FALSE(message->toDictionary().contains("temp"));
    IMMessagePtr mapped = IMMessage::fromDictionary({{"temp", "from server"}});
    ASSERT_TRUE(mapped);
    EXPECT_FALSE(mapped->temp().isValid());

    const QStringList expected {"text", "image", "audio", "video", "GEO", "sticker", "other", "delete"};
    for (int i = 0; i < expected.size(); ++i) {
        message->setMessageWithType(i);
        EXPECT_EQ(message->messageType(), expected.at(i));
    }
    message->setMessageWithType(8);
    message->setMessageWithType(-1);
    EXPECT_EQ(message->messageType(), "delete");
}

TEST_F(ModelMessage, CopyKeepsTempAndOptionAndSharesNestedRecords)
{
    IMMessagePtr local = IMMessage::initWithRoom(std::make_shared<IMRoom>());
    local->setTemp(42);
    IMMessageOptionPtr option = local->option();
    local->setData({{"local", true}});

    IMMessagePtr server = std::make_shared<IMMessage>();
    server->setObjectID("m7");
    server->setCreatedAt("2016-01-02T03:04:05.678Z");
    server->setMessage("hello");
    server->setRoom(std::make_shared<IMRoom>());
    server->setIdFromSender(local->idFromSender());
    server->setSendingType(0);
    server->setOption(std::make_shared<IMMessageOption>());

    local->copyPropertiesFromMessage(server);
    EXPECT_EQ(local->objectID(), "m7");
    EXPECT_EQ(local->message(), "hello");
    EXPECT_EQ(local->room(), server->room());
    EXPECT_EQ(local->sendingType(), 0u);
    EXPECT_FALSE(local->hasData()); // unset on the server's record, so unset here too
    EXPECT_TRUE(local->url().isNull());
    EXPECT_EQ(local->temp(), QVariant(42));
    EXPECT_EQ(local->option(), option);
    local->copyPropertiesFromMessage(nullptr);
    EXPECT_EQ(local->objectID(), "m7");
}

TEST_F(ModelMessage, DaySeparatorsFollowTheLocalCalendar)
{
    IMMessagePtr late = at("2016-01-01T23:59:00.000Z");
    IMMessagePtr early = at("2016-01-02T00:01:00.000Z");
    // Both fall on 2 January in Taipei and on 1 January in New York.
    for (const auto &[zone, different] :
        {std::pair {"UTC", true}, {"Asia/Taipei", false}, {"America/New_York", false}}) {
        ScopedTimeZone tz(zone);
        EXPECT_EQ(late->isDifferentDateWithMessage(early), different) << zone;
    }
    EXPECT_TRUE(late->isDifferentDateWithMessage(at(QString())));
    EXPECT_TRUE(at(QString())->isDifferentDateWithMessage(at(QString())));
    EXPECT_TRUE(late->isDifferentDateWithMessage(nullptr));
    EXPECT_FALSE(late->isDifferentDateWithMessage(late));
}

TEST_F(ModelMessage, CurrentClientIsRebuiltFromTheSettingsAndAnyOtherIsTheFirstMemberNotMe)
{
    IMClientPtr none = IMClient::currentClient();
    ASSERT_TRUE(none);
    EXPECT_TRUE(none->toDictionary().isEmpty());

    IMClient me;
    me.setObjectID("c1");
    me.setClientID("me");
    me.setTotalBadge(5);
    IMUserDefaults::standardUserDefaults()->setCurrentUser(me.toDictionary());
    IMClientPtr first = IMClient::currentClient();
    EXPECT_EQ(first->toDictionary(), me.toDictionary());
    EXPECT_NE(first, IMClient::currentClient());

    // A persisted dictionary that no longer maps gives an empty record, not a crash.
    IMUserDefaults::standardUserDefaults()->setCurrentUser({{"totalBadge", QVariantList {1}}});
    EXPECT_TRUE(IMClient::currentClient()->toDictionary().isEmpty());

    // Any other client is the first member who is not me.
    IMUserDefaults::standardUserDefaults()->setClientID("me");
    IMRoom room;
    EXPECT_FALSE(room.anyOtherClient());
    room.setClient(
        {QVariantMap {{"clientID", "me"}}, QVariantMap {{"clientID", "A"}}, QVariantMap {{"clientID", "B"}}});
    ASSERT_TRUE(room.anyOtherClient());
    EXPECT_EQ(room.anyOtherClient()->clientID(), "A");
    EXPECT_NE(room.anyOtherClient(), room.anyOtherClient()); // built afresh each time
    room.setClient({QVariantMap {{"clientID", "me"}}});
    EXPECT_FALSE(room.anyOtherClient());
}

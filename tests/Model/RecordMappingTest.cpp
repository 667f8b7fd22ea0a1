// The records' JSON mapping: key renaming, optional and required keys, type checks, nesting.
#include "IMBadge.h"
#include "IMClient.h"
#include "IMFile.h"
#include "IMInviteClient.h"
#include "IMMessage.h"
#include "IMMessageOption.h"
#include "IMRoom.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

namespace {
QVariantMap json(const char *text)
{
    QJsonParseError error;
    const QVariantMap map = QJsonDocument::fromJson(text, &error).toVariant().toMap();
    EXPECT_EQ(error.error, QJsonParseError::NoError) << text;
    return map;
}
} // namespace

TEST(ModelMapping, ServerObjectMapsIdDropsUnknownKeysAndLeavesEverythingElseUnset)
{
    IMRoomPtr room = IMRoom::fromDictionary(json(R"({"id": "r1", "name": "Room"})"));
    ASSERT_TRUE(room);
    EXPECT_EQ(room->objectID(), "r1");
    EXPECT_EQ(room->name(), "Room");
    EXPECT_TRUE(room->thumbnail().isNull());
    EXPECT_TRUE(room->lastMessageTime().isNull());
    EXPECT_FALSE(room->hasIsPublic());
    EXPECT_FALSE(room->hasBadge());
    EXPECT_FALSE(room->hasData());
    EXPECT_FALSE(room->sender());
    // Unset properties, numbers and booleans included, stay out of the way back.
    EXPECT_EQ(room->toDictionary(), (QVariantMap {{"id", "r1"}, {"name", "Room"}}));

    // Unknown keys are dropped, nulls leave properties unset, and only "id" feeds objectID.
    room = IMRoom::fromDictionary(
        json(R"({"id": "r1", "weird": [1, 2], "name": null, "badge": null, "objectID": "no"})"));
    ASSERT_TRUE(room);
    EXPECT_EQ(room->toDictionary(), (QVariantMap {{"id", "r1"}}));
}

TEST(ModelMapping, FullRoomRoundTripsThroughItsDictionary)
{
    const QVariantMap source = json(R"({
        "id": "r9", "url": "/room/r9", "className": "Room", "createdAt": "2016-05-04T09:30:00.000Z",
        "updatedAt": "2016-05-04T09:31:00.000Z", "data": {"k": [1, "two"]}, "name": "Team",
        "thumbnail": "http://x/p.png", "isPublic": false, "client": [{"clientID": "me"}, {"clientID": "a"}],
        "message": [{"id": "m1", "message": "hi"}, {"id": "m0"}], "archivedBy": ["a"],
        "readTime": {"a": "2016-05-04T09:30:00.000Z"}, "lastMessageTime": "2016-05-04T09:30:00.000Z",
        "sender": {"id": "c1", "clientID": "a", "totalBadge": 4}, "badge": 0})");
    IMRoomPtr room = IMRoom::fromDictionary(source);
    ASSERT_TRUE(room);
    EXPECT_TRUE(room->hasIsPublic());
    EXPECT_FALSE(room->isPublic());
    EXPECT_EQ(room->badge(), 0);
    EXPECT_EQ(room->message().size(), 2); // entries beyond the latest are kept as sent
    ASSERT_TRUE(room->sender());
    EXPECT_EQ(room->sender()->totalBadge(), 4u);

    const QJsonDocument back = QJsonDocument::fromVariant(room->toDictionary());
    EXPECT_EQ(back, QJsonDocument::fromVariant(source));
}

TEST(ModelMapping, MismatchedTypesFailTheRecordOrTheWholeMergeAndTextNumbersConvert)
{
    for (const char *bad : {R"({"id": "r1", "name": {"a": 1}})", R"({"id": "r1", "badge": "many"})",
             R"({"id": "r1", "badge": 3000000000})", R"({"id": "r1", "archivedBy": [{"x": 1}]})"})
        EXPECT_FALSE(IMRoom::fromDictionary(json(bad))) << bad;
    EXPECT_FALSE(IMClient::fromDictionary(json(R"({"totalBadge": -1})")));
    EXPECT_FALSE(IMFile::fromDictionary(json(R"({"size": [1]})")));

    IMRoomPtr room = IMRoom::fromDictionary(json(R"({"id": 42, "badge": "7", "isPublic": 1})"));
    ASSERT_TRUE(room);
    EXPECT_EQ(room->objectID(), "42");
    EXPECT_EQ(room->badge(), 7);
    EXPECT_TRUE(room->isPublic());
    IMClientPtr client = IMClient::fromDictionary(json(R"({"emailVerified": true, "roomIDs": ["a", 2]})"));
    ASSERT_TRUE(client);
    EXPECT_EQ(client->emailVerified(), "1");
    EXPECT_EQ(client->roomIDs(), (QStringList {"a", "2"}));

    // A merge with a mismatched value changes nothing.
    room = IMRoom::fromDictionary(json(R"({"id": "r1", "name": "Old", "badge": 2})"));
    ASSERT_TRUE(room);
    EXPECT_FALSE(room->mergeFromDictionary(json(R"({"name": "New", "id": "r2", "badge": "x"})")));
    EXPECT_EQ(room->name(), "Old");
    EXPECT_EQ(room->objectID(), "r1");
    EXPECT_FALSE(room->mergeFromDictionary(json(R"({"url": {"bad": 1}, "name": "New"})")));
    EXPECT_EQ(room->name(), "Old");
    EXPECT_TRUE(room->mergeFromDictionary(json(R"({"name": "New"})")));
    EXPECT_EQ(room->name(), "New");
    EXPECT_EQ(room->badge(), 2);
}

TEST(ModelMapping, NestedRecordsAndArrayEntriesThatDoNotMapAreSkipped)
{
    IMMessagePtr message = IMMessage::fromDictionary(
        json(R"({"id": "m1", "room": "r1", "sender": {"totalBadge": "x"}, "option": {"needToPush": true}})"));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->objectID(), "m1");
    EXPECT_FALSE(message->room());
    EXPECT_FALSE(message->option());

    message = IMMessage::fromDictionary(json(R"({"room": {"id": "r1"}, "sender": {"id": "c1"},
        "option": {"needToPush": false, "badgeIncrease": true, "pushSound": "ding"}})"));
    ASSERT_TRUE(message && message->room() && message->sender() && message->option());
    EXPECT_EQ(message->room()->objectID(), "r1");
    EXPECT_EQ(message->sender()->objectID(), "c1");
    EXPECT_FALSE(message->option()->needToPush());
    EXPECT_EQ(message->toDictionary().value("option").toMap(),
        (QVariantMap {{"needToPush", false}, {"badgeIncrease", true}, {"pushSound", "ding"}}));

    // Arrays leave out the entries that do not map.
    const QVariantList array
        = QJsonDocument::fromJson(R"([{"id": "a"}, "text", {"id": "b", "badge": "x"}, [{"id": "c"}], {"id": "d"}])")
              .toVariant()
              .toList();
    QStringList ids;
    for (const IMRoomPtr &room : IMRoom::arrayOfModelsFromDictionaries(array))
        ids << room->objectID();
    EXPECT_EQ(ids, (QStringList {"a", "c", "d"}));
    EXPECT_EQ(IMBadge::arrayOfModelsFromDictionaries({QVariantMap {{"total", 1}}, QVariantMap {}}).size(), 1);
}

TEST(ModelMapping, ValueRecordsRequireTheirKeys)
{
    for (const char *bad :
        {R"({"badgeIncrease": true})", R"({"needToPush": true})", R"({"needToPush": null, "badgeIncrease": true})"})
        EXPECT_FALSE(IMMessageOption::fromDictionary(json(bad))) << bad;
    IMMessageOptionPtr option
        = IMMessageOption::fromDictionary(json(R"({"needToPush": true, "badgeIncrease": false})"));
    ASSERT_TRUE(option);
    EXPECT_TRUE(option->pushMessage().isNull());
    EXPECT_TRUE(option->pushSound().isNull());
    EXPECT_EQ(option->toDictionary(), (QVariantMap {{"needToPush", true}, {"badgeIncrease", false}}));

    IMMessageOption defaults;
    EXPECT_TRUE(defaults.needToPush());
    EXPECT_FALSE(defaults.badgeIncrease());

    EXPECT_FALSE(IMBadge::fromDictionary(json(R"({})")));
    EXPECT_FALSE(IMBadge::fromDictionary(json(R"({"total": "lots"})")));
    IMBadgePtr badge = IMBadge::fromDictionary(json(R"({"total": 3})"));
    ASSERT_TRUE(badge);
    EXPECT_EQ(badge->total(), 3);

    EXPECT_FALSE(IMInviteClient::fromDictionary(json(R"({"name": "A", "clientID": "a"})")));
    IMInviteClientPtr invite
        = IMInviteClient::fromDictionary(json(R"({"name": "A", "pictureURLString": "", "clientID": "a"})"));
    ASSERT_TRUE(invite);
    EXPECT_EQ(invite->pictureURLString(), "");
}

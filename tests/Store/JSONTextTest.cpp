// The records' JSON text: what it writes reads back the same, values can be left as text, and no
// input makes it crash.
#include "IMFile.h"
#include "IMJSONText_p.h"
#include "IMStoredText_p.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

TEST(RecordJSONText, WritesWhatQtReadsReadsBackTheSameAndRecordsWriteTheirDictionaries)
{
    const QVariantMap value {
        {"text", QString::fromUtf8("quote \" backslash \\ slash / tab \t newline \n nul \x01 中文 🚀")},
        {"empty", ""},
        {"int", 42},
        {"negative", qint64(-9007199254740993LL)},
        {"big", quint64(std::numeric_limits<qint64>::max())},
        {"real", 0.1},
        {"bool", true},
        {"null", QVariant::fromValue(nullptr)},
        {"list", QVariantList {1, "two", QVariantList {}, QVariantMap {}}},
        {"strings", QStringList {"a", "b"}},
        {"nested", QVariantMap {{"deeper", QVariantMap {{"k", false}}}}},
    };
    const QByteArray text = IMJSONText::toJson(value);
    QJsonParseError error;
    const QJsonDocument qt = QJsonDocument::fromJson(text, &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError) << text.toStdString();
    EXPECT_EQ(qt.object().value("text").toString(), value.value("text").toString());

    QVariantMap back;
    ASSERT_TRUE(IMJSONText::parseObject(text.constData(), text.size(), &back));
    EXPECT_EQ(back.value("text"), value.value("text"));
    EXPECT_EQ(back.value("negative").toLongLong(), -9007199254740993LL);
    EXPECT_EQ(back.value("big").toLongLong(), std::numeric_limits<qint64>::max());
    EXPECT_EQ(back.value("real").toDouble(), 0.1);
    EXPECT_EQ(back.value("null").typeId(), QMetaType::Nullptr);
    EXPECT_EQ(back.value("strings").toStringList(), (QStringList {"a", "b"}));
    EXPECT_EQ(back.value("nested"), value.value("nested"));
    EXPECT_EQ(IMJSONText::toJson(back), text);

    // Texts are copied sixteen and eight characters at a time until one needs care: every length
    // around those blocks, with that character at every place, reads back the same.
    for (const QString &special : {QStringLiteral("\""), QStringLiteral("\\"), QStringLiteral("\n"),
             QStringLiteral("\x1f"), QStringLiteral("\x7f"), QString::fromUtf8("é"), QString::fromUtf8("中"),
             QString::fromUtf8("🚀"), QString(QChar(0x8000))}) {
        for (int length = 0; length <= 40; ++length) {
            for (int at = 0; at <= length; ++at) {
                QString text(length, QLatin1Char('a'));
                text.insert(at, special);
                const QByteArray json = IMJSONText::toJson(QVariantMap {{"t", text}});
                QVariantMap strict; // refuses raw control characters, which Qt lets through
                ASSERT_TRUE(IMJSONText::parseObject(json.constData(), json.size(), &strict)) << json.toStdString();
                ASSERT_EQ(strict.value("t").toString(), text);
                ASSERT_EQ(QJsonDocument::fromJson(json).object().value("t").toString(), text) << json.toStdString();
            }
        }
    }

    // Escapes written by others, surrogate pairs included.
    const QByteArray escaped = R"({"a":"\u4e2d\ud83d\ude80\/\"","b":[1e3,-0.5]})";
    ASSERT_TRUE(IMJSONText::parseObject(escaped.constData(), escaped.size(), &back));
    EXPECT_EQ(back.value("a").toString(), QString::fromUtf8("中🚀/\""));
    EXPECT_EQ(back.value("b").toList().value(0).toDouble(), 1000.0);

    // Each record's own writer gives the text of its dictionary.
    const QVariantMap client {{"id", "c1"}, {"clientID", "alice"}, {"username", QString::fromUtf8("愛麗絲")},
        {"roomIDs", QVariantList {"r1"}}, {"totalBadge", 3}, {"emailVerified", "1"}};
    const QVariantMap room {{"id", "r1"}, {"name", "Team \"A\""}, {"isPublic", true}, {"badge", 2},
        {"client", QVariantList {client}}, {"message", QVariantList {QVariantMap {{"id", "m0"}}}},
        {"archivedBy", QVariantList {"bob"}}, {"readTime", QVariantMap {{"alice", "t"}}},
        {"lastMessageTime", "2024-01-02T03:04:05.678Z"}, {"sender", client}, {"thumbnail", "http://img/r.png"},
        {"data", QVariantMap {{"k", 1}}}, {"createdAt", "2024-01-01T00:00:00.000Z"}, {"url", "/room/r1"},
        {"className", "Room"}};
    IMMessagePtr message
        = IMMessage::fromDictionary({{"id", "m1"}, {"message", "hi\n🚀"}, {"room", room}, {"sender", client},
            {"sendingType", 2}, {"option", QVariantMap {{"needToPush", true}, {"badgeIncrease", false}}}});
    const std::vector<IMObjectPtr> records {IMRoom::fromDictionary(room), IMClient::fromDictionary(client), message,
        IMFile::fromDictionary({{"id", "f1"}, {"fileName", "a.png"}, {"size", 10}}), std::make_shared<IMRoom>(),
        IMObject::fromDictionary({{"id", "o1"}})};
    for (const IMObjectPtr &record : records) {
        ASSERT_TRUE(record);
        EXPECT_EQ(IMStoredText::write(*record), IMJSONText::toJson(record->toDictionary()));
    }
}

TEST(RecordJSONText, MalformedOrHostileTextIsRefused)
{
    QVariantMap out {{"untouched", true}};
    for (const char *bad :
        {"", "[]", "\"text\"", "{", "{\"a\":}", "{\"a\":1,}", "{\"a\" 1}", "{\"a\":tru}", "{\"a\":\"\\x\"}",
            "{\"a\":\"unterminated}", "{\"a\":1} trailing", "{\"a\":\"\\u12\"}", "{\"a\":-}", "{'a':1}"})
        EXPECT_FALSE(IMJSONText::parseObject(bad, qsizetype(strlen(bad)), &out)) << bad;
    EXPECT_EQ(out, (QVariantMap {{"untouched", true}}));
    EXPECT_FALSE(IMJSONText::parseObject(nullptr, 0, &out));

    // Nesting far beyond any record is refused, not a stack overflow.
    QByteArray deep = "{\"a\":";
    for (int i = 0; i < 100000; ++i)
        deep += '[';
    EXPECT_FALSE(IMJSONText::parseObject(deep.constData(), deep.size(), &out));

    // Random bytes and truncations of a valid text never crash.
    const QByteArray valid = R"({"id":"r1","client":[{"clientID":"a"}],"readTime":{"a":"2016"},"n":1.5})";
    const QLatin1StringView deferred[] = {QLatin1StringView("client"), QLatin1StringView("readTime")};
    IMJSONText::Span spans[2];
    const auto members = [&](const QByteArray &text, qsizetype size) {
        return IMJSONText::parseMembers(
            text.constData(), size, deferred, 2, spans, [](const QString &, const QVariant &) { return true; });
    };
    for (int cut = 0; cut < valid.size(); ++cut) {
        EXPECT_FALSE(IMJSONText::parseObject(valid.constData(), cut, &out)) << cut;
        EXPECT_FALSE(members(valid, cut)) << cut;
    }
    auto *random = QRandomGenerator::global();
    for (int i = 0; i < 2000; ++i) {
        QByteArray noise = valid;
        noise[random->bounded(int(noise.size()))] = char(random->bounded(256));
        (void)IMJSONText::parseObject(noise.constData(), noise.size(), &out);
        if (members(noise, noise.size())) {
            for (const IMJSONText::Span &span : spans)
                EXPECT_LE(span.offset + span.size, noise.size());
        }
    }
}

TEST(RecordJSONText, DeferredValuesAreLeftAsTheirText)
{
    const QLatin1StringView keys[]
        = {QLatin1StringView("room"), QLatin1StringView("tags"), QLatin1StringView("absent")};
    const auto text
        = [](const QByteArray &json, const IMJSONText::Span &span) { return json.mid(span.offset, span.size); };
    IMJSONText::Span spans[3];
    QVariantMap out;
    const auto parse = [&](const char *json, qsizetype size) {
        out.clear();
        return IMJSONText::parseMembers(json, size, keys, 3, spans, [&](const QString &key, const QVariant &value) {
            out.insert(key, value);
            return true;
        });
    };
    // Brackets and quotes inside strings do not end a deferred value; a repeated key keeps its last value.
    const QByteArray json = R"({"room":{"id":"x"},"id":"m1", "room" : {"name":"a } \" ] {","list":[1,{}]},"tags":"t"})";
    ASSERT_TRUE(parse(json.constData(), json.size()));
    EXPECT_EQ(out, (QVariantMap {{"id", "m1"}}));
    EXPECT_EQ(text(json, spans[0]), R"({"name":"a } \" ] {","list":[1,{}]})");
    EXPECT_EQ(text(json, spans[1]), R"("t")");
    EXPECT_EQ(spans[2].size, 0);
    QVariantMap room;
    ASSERT_TRUE(IMJSONText::parseObject(json.constData() + spans[0].offset, spans[0].size, &room));
    EXPECT_EQ(room.value("name").toString(), QString::fromUtf8("a } \" ] {"));

    // Long values are scanned in blocks: brackets, quotes and escapes at every place in a block
    // (and escapes across two) are told apart the same way; a value cut short never closes.
    for (int pad = 0; pad <= 140; ++pad) {
        const QByteArray room = R"({"name":")" + QByteArray(pad, 'a') + R"( } \" ] {\\","list":[1,{"k":"[\\\""}],"t":")"
            + QByteArray(140 - pad, 'b') + R"("})";
        const QByteArray json = R"({"room":)" + room + R"(,"id":"m1"})";
        ASSERT_TRUE(parse(json.constData(), json.size())) << pad;
        EXPECT_EQ(text(json, spans[0]), room);
        EXPECT_EQ(out, (QVariantMap {{"id", "m1"}}));
        const QByteArray cut = R"({"room":)" + room.chopped(1) + R"(,"id":"m1"})";
        EXPECT_FALSE(parse(cut.constData(), cut.size())) << pad;
    }

    // Only top-level keys are deferred; malformed text outside a deferred value still fails, as
    // does a deferred value that never closes or a deferred scalar that is malformed.
    const QByteArray nested = R"({"data":{"room":1}})";
    ASSERT_TRUE(parse(nested.constData(), nested.size()));
    EXPECT_EQ(out.value("data").toMap().value("room"), 1);
    for (const char *bad : {R"({"room":{"a":1},"id":})", R"({"room":{"a":"}})", R"({"room":[1,2)", R"({"tags":tru})"})
        EXPECT_FALSE(parse(bad, qsizetype(strlen(bad)))) << bad;
}

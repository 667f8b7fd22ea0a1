// The persisted settings: storage keys, types, persistence across instances, threads.
#include "IMUserDefaults.h"
#include "TestUtil.h"

#include <QDir>
#include <QSettings>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {
class SettingsUserDefaults : public ::testing::Test {
protected:
    void SetUp() override
    {
        path = QDir(makeTempDir()).filePath("settings.ini");
        defaults()->setSettingsFile(path);
    }
    void TearDown() override { defaults()->setSettingsFile(QString()); }
    static IMUserDefaults *defaults() { return IMUserDefaults::standardUserDefaults(); }
    QString path;
};
} // namespace

TEST_F(SettingsUserDefaults, KeysArePrefixedPropertyNamesWithACapital)
{
    // The properties' own keys are checked in the file below; these are the edge cases.
    for (const auto &[name, key] :
        {std::pair {"token", "OruChatToken"}, {"Already", "OruChatAlready"}, {"", "OruChat"}})
        EXPECT_EQ(IMUserDefaults::transformKey(name), key);
}

TEST_F(SettingsUserDefaults, PropertiesLandUnderTheirKeysOnWrite)
{
    defaults()->setClientID("me");
    defaults()->setToken("t0k");
    defaults()->setFirstTimeLaunch(true);
    defaults()->setCurrentUser({{"id", "c1"}, {"totalBadge", 3}});
    defaults()->setMessageCache({QVariantMap {{"id", "m1"}}});
    defaults()->setLog({QVariantMap {{"line", "<a.cpp:1>"}, {"data", "x"}}});
    ASSERT_TRUE(defaults()->write());

    QSettings file(path, QSettings::IniFormat);
    EXPECT_EQ(file.value("OruChatClientID").toString(), "me");
    EXPECT_EQ(file.value("OruChatToken").toString(), "t0k");
    EXPECT_TRUE(file.value("OruChatFirstTimeLaunch").toBool());
    EXPECT_EQ(file.value("OruChatCurrentUser").toMap().value("id"), "c1");
    EXPECT_EQ(file.value("OruChatMessageCache").toList().size(), 1);
    EXPECT_EQ(file.value("OruChatLog").toList().value(0).toMap().value("data"), "x");
    EXPECT_EQ(file.allKeys().size(), 6);
}

TEST_F(SettingsUserDefaults, ValuesSurviveSwitchingFilesAndClearing)
{
    EXPECT_TRUE(defaults()->clientID().isNull());
    EXPECT_FALSE(defaults()->firstTimeLaunch());
    EXPECT_FALSE(defaults()->hasLog());
    defaults()->setLog({});
    EXPECT_TRUE(defaults()->hasLog());
    EXPECT_TRUE(defaults()->log().isEmpty());

    defaults()->setToken("abc");
    defaults()->setCurrentUser({{"id", "c1"}, {"roomIDs", QStringList {"r1", "r2"}}});
    // Pending changes reach the old file when the host points the settings elsewhere.
    const QString other = QDir(makeTempDir()).filePath("other.ini");
    defaults()->setSettingsFile(other);
    EXPECT_TRUE(defaults()->token().isNull());
    defaults()->setSettingsFile(path);
    EXPECT_EQ(defaults()->token(), "abc");
    EXPECT_EQ(defaults()->currentUser().value("roomIDs").toStringList(), (QStringList {"r1", "r2"}));
    EXPECT_TRUE(defaults()->hasLog());
    EXPECT_TRUE(defaults()->log().isEmpty());

    defaults()->setToken(QString());
    defaults()->setCurrentUser({});
    defaults()->write();
    EXPECT_TRUE(defaults()->token().isNull());
    EXPECT_TRUE(defaults()->currentUser().isEmpty());
    EXPECT_FALSE(QSettings(path, QSettings::IniFormat).contains("OruChatToken"));
}

TEST_F(SettingsUserDefaults, ConcurrentReadersAndWritersKeepEveryRecord)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i) {
                defaults()->setValue(QStringLiteral("thread%1").arg(t), i);
                defaults()->setToken(QString::number(i));
                (void)defaults()->token();
                if (i % 10 == 0)
                    defaults()->write();
            }
        });
    for (auto &thread : threads)
        thread.join();
    ASSERT_TRUE(defaults()->write());
    QSettings file(path, QSettings::IniFormat);
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(file.value(QStringLiteral("OruChatThread%1").arg(t)).toInt(), 49);
    EXPECT_EQ(file.value("OruChatToken").toString(), "49");
}

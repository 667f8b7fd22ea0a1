// The facade's own state: defaults, lazily made values, settings read through on every call,
// the persisted log, and the delegate's lifetime.
#include "CoreFixture.h"

TEST_F(CoreTest, DefaultsLazyValuesAndReadThroughSettings)
{
    EXPECT_EQ(Parlo::shareInstance(), Parlo::shareInstance());
    Parlo fresh;
    EXPECT_EQ(fresh.timeout(), 5);
    EXPECT_EQ(fresh.connectStatus(), 1);
    EXPECT_EQ(fresh.roomCountLimit(), 25);
    EXPECT_FALSE(fresh.isPausedLoadingRoomData());
    EXPECT_FALSE(fresh.log());
    EXPECT_FALSE(fresh.printLog());
    EXPECT_EQ(fresh.socket(), nullptr);

    const IMBadgePtr badge = fresh.badge();
    EXPECT_EQ(fresh.badge(), badge);
    fresh.setBadge(nullptr);
    EXPECT_NE(fresh.badge(), nullptr);
    EXPECT_NE(fresh.badge(), badge);
    EXPECT_EQ(fresh.badge()->total(), 0);

    IMUserDefaults::standardUserDefaults()->setClientID("someone-else");
    IMUserDefaults::standardUserDefaults()->setToken("t2");
    EXPECT_EQ(fresh.clientID(), "someone-else");
    EXPECT_EQ(fresh.token(), "t2");
    EXPECT_EQ(fresh.header().value("clientID"), "someone-else");
}

TEST_F(CoreTest, PersistedLogIsNewestFirstAndOnlyWhenOn)
{
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    settings->setValue("log", QVariant());
    parlo->setPrintLog(true);
    parlo->logDictionaryIfNeeded({{"line", "<A.cpp:1>"}, {"data", "printed only"}});
    EXPECT_FALSE(settings->hasLog());

    parlo->setLog(true);
    parlo->logDictionaryIfNeeded({{"line", "<A.cpp:2>"}, {"data", "first"}});
    parlo->logDictionaryIfNeeded({{"line", "<A.cpp:3>"}, {"data", "second"}});
    EXPECT_EQ(logLines(), QStringList({"second", "first"}));
}

TEST_F(CoreTest, NotificationsCarryTheirObjectAndADeadDelegateIsForgotten)
{
    parlo->postNotificationName(kParloDidUpdateBadge, QVariant::fromValue(parlo->badge()));
    const IMNotification n = recorder.named(kParloDidUpdateBadge).value(0);
    EXPECT_EQ(n.object.value<IMBadgePtr>(), parlo->badge());
    EXPECT_EQ(n.userInfo.value("object").value<IMBadgePtr>(), parlo->badge());

    {
        ParloDelegate silent; // implements nothing: announcements still go out as notifications
        parlo->setDelegate(&silent);
        connectScripted();
        socket->push("disconnect", {});
        EXPECT_EQ(recorder.named(kParloDidChangeConnectStatus).size(), 1);
    }
    EXPECT_EQ(parlo->delegate(), nullptr);
    socket->push("connect", {"/"}); // no call reaches the destroyed delegate
    EXPECT_EQ(parlo->connectStatus(), 0);
}

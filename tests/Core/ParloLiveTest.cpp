// The facade against the reference server: failures and acknowledgements lost with the server.
#include "LiveFixture.h"

TEST_F(LiveCoreTest, ServerFailuresAndDroppedAcknowledgementsReachTheFailureBlock)
{
    ASSERT_TRUE(connectFacade());
    parlo->setTimeout(1);
    IMUserDefaults::standardUserDefaults()->setToken("wrong");
    const QVariantMap list{{"url", "/room/list?offset=0&limit=1"}, {"headers", parlo->header()}};
    Outcome<> refused;
    parlo->emitWithMethod(0, list, refused.ok(), refused.fail());
    ASSERT_TRUE(refused.wait(10000));
    EXPECT_EQ(refused.error.code(), 401);
    EXPECT_FALSE(refused.error.info().isEmpty());

    // Server gone: the request in flight ends once, with "NO ACK" after its retries. The server
    // holds the answer back, so that it cannot answer before it stops.
    control("POST", "/__control/faults", {{"path", "/room/list"}, {"prefix", true}, {"action", "drop"}});
    shortenAckTimeouts();
    Outcome<> lost;
    parlo->emitWithMethod(0, list, lost.ok(), lost.fail());
    ASSERT_TRUE(waitUntil(
        [&] { return control("GET", "/__control/faults").toList().value(0).toMap().value("hits").toInt() == 1; }));
    server->stop();
    ASSERT_TRUE(lost.wait(15000));
    EXPECT_EQ(lost.total(), 1);
    EXPECT_EQ(lost.error.code(), 999);
    EXPECT_NE(parlo->connectStatus(), 0);
}

// Virtual requests: refusal when offline, the acknowledgement time-out and retry rules, how
// answers become success or failure, and that every request ends exactly once, also when the
// server goes.
#include "LiveFixture.h"

#include <thread>

namespace {
QVariantMap envelope(const QString &url) { return QVariantMap {{"url", url}, {"headers", QVariantMap()}}; }
} // namespace

TEST_F(CoreTest, NotConnectedFailsAtOnceOnTheCallersThreadAndSendsNothing)
{
    Outcome<> before;
    parlo->emitWithMethod(0, envelope("/badge"), before.ok(), before.fail());
    EXPECT_EQ(before.failures, 1); // synchronously: no socket at all yet

    connectScripted();
    socket->setStatus(IMSocket::Status::Disconnected);
    Outcome<> offThread;
    std::thread([&] { parlo->emitWithMethod(0, envelope("/badge"), offThread.ok(), offThread.fail()); }).join();
    EXPECT_EQ(offThread.failures, 1);
    EXPECT_TRUE(offThread.offMain);
    EXPECT_EQ(offThread.error.code(), 400);
    EXPECT_EQ(offThread.error.domain(), kParlo);
    EXPECT_EQ(offThread.error.info(), "not connected");
    EXPECT_TRUE(socket->emits().isEmpty());
}

TEST_F(CoreTest, UnansweredGetsAndSignUpOrChatInPostsAreSentFourTimesOtherPostsOnce)
{
    connectScripted();
    socket->timeScale = 0.1; // the asked second runs as 100 ms
    parlo->setTimeout(1);
    parlo->setLog(true);
    Outcome<> get, message, chatin, signup;
    parlo->emitWithMethod(0, envelope("/badge"), get.ok(), get.fail());
    parlo->emitWithMethod(1, envelope("/message/"), message.ok(), message.fail());
    parlo->emitWithMethod(1, envelope("/client/chatin/"), chatin.ok(), chatin.fail());
    parlo->emitWithMethod(1, envelope("/client/"), signup.ok(), signup.fail());
    get.started = message.started = chatin.started = signup.started = true;
    ASSERT_TRUE(waitUntil([&] { return get.total() && chatin.total() && signup.total(); }, 10000));
    QMap<QString, int> sent;
    QMap<QString, qint64> lastSent;
    for (const auto &e : socket->emits()) {
        const QString key = e.event + " " + e.items.value(0).toMap().value("url").toString();
        // A retry goes out only once the previous attempt timed out.
        if (sent[key]++ > 0) {
            EXPECT_GE(e.atMs - lastSent[key], 90) << key.toStdString();
        }
        lastSent[key] = e.atMs;
        EXPECT_EQ(e.timeoutSeconds, 1.0);
    }
    EXPECT_EQ(sent,
        (QMap<QString, int> {
            {"get /badge", 4}, {"post /message/", 1}, {"post /client/chatin/", 4}, {"post /client/", 4}}));
    spinFor(50);
    for (Outcome<> *o : {&get, &message, &chatin, &signup})
        EXPECT_TRUE(o->failedOnceWith(999));
    EXPECT_EQ(get.error.info(), "NO ACK");
    // Newest first in the persisted log, one line per retry of each request.
    EXPECT_EQ(logLines().filter("api retry"),
        (QStringList {"api retry NO.2", "api retry NO.2", "api retry NO.2", "api retry NO.1", "api retry NO.1",
            "api retry NO.1", "api retry NO.0", "api retry NO.0", "api retry NO.0"}));
    EXPECT_FALSE(parlo->isPostRetryListAPI(envelope("/client/chatin")));
    EXPECT_FALSE(parlo->isPostRetryListAPI(envelope("/client/chatin/?x=1")));
}

TEST_F(CoreTest, RequestsGoOutAsGivenAndAnswersBecomeSuccessOrStatusErrors)
{
    connectScripted();
    IMUserDefaults::standardUserDefaults()->setToken(QString());
    const QVariantMap header = parlo->header();
    EXPECT_EQ(header, (QVariantMap {{"apiKey", "api"}, {"clientKey", "client"}, {"clientID", "me"}, {"token", ""}}));
    const QStringList names {"get", "post", "put", "delete"};
    for (uint method = 0; method < 4; ++method) {
        QVariantMap item {{"url", "/room/r1"}, {"headers", header}, {"data", QVariantMap {{"k", method}}}};
        parlo->emitWithMethod(method, item, nullptr, nullptr);
        EXPECT_EQ(socket->emits().last().event, names[int(method)]);
        EXPECT_EQ(socket->emits().last().items, QVariantList {item});
    }

    struct Case {
        QVariantList answer;
        bool success;
        int code;
        QVariant bodyOrInfo;
    };
    const QVariantMap body {{"a", 1}};
    const QList<Case> cases {
        {{QVariantMap {{"statusCode", 200}, {"body", body}}}, true, 0, body},
        {{QVariantMap {{"statusCode", 399}, {"body", "fine"}}}, true, 0, "fine"},
        {{QVariantMap {{"body", "no status"}}}, true, 0, "no status"},
        {{QVariantMap {{"statusCode", 404}, {"body", "not found"}}}, false, 404, "not found"},
        {{QVariantMap {{"statusCode", 500}}}, false, 500, ""},
        {{QVariantMap {{"statusCode", QVariant()}, {"body", "null status"}}}, false, 0, "null status"},
        {{}, false, 0, ""},
    };
    for (const Case &c : cases) {
        Outcome<> o;
        parlo->emitWithMethod(0, envelope("/badge"), o.ok(), o.fail());
        socket->answerAll(c.answer);
        EXPECT_EQ(o.total(), 0); // handed to the main queue, never delivered inside the acknowledgement
        ASSERT_TRUE(o.wait());
        ASSERT_EQ(o.total(), 1);
        EXPECT_EQ(o.successes == 1, c.success) << IMDescription(c.answer);
        if (c.success) {
            EXPECT_EQ(o.value, c.bodyOrInfo);
        } else {
            EXPECT_EQ(o.error.code(), c.code);
            EXPECT_EQ(o.error.info(), c.bodyOrInfo.toString());
            EXPECT_EQ(o.error.userInfo().value("NSLocalizedDescriptionKey").toString(), c.bodyOrInfo.toString());
        }
        EXPECT_FALSE(o.offMain);
    }
}

TEST_F(CoreTest, PendingRequestsFailOnceWhenTheFacadeGoes)
{
    connectScripted();
    parlo->setTimeout(30);
    Outcome<> get, post;
    parlo->emitWithMethod(0, envelope("/badge"), get.ok(), get.fail());
    parlo->emitWithMethod(1, envelope("/client/"), post.ok(), post.fail());
    get.started = post.started = true;
    parlo.reset();
    ASSERT_TRUE(waitUntil([&] { return get.total() && post.total(); }));
    spinFor(50);
    EXPECT_TRUE(get.failedOnceWith(999));
    EXPECT_TRUE(post.failedOnceWith(999));
}

TEST_F(LiveCoreTest, ARequestInFlightWhenTheServerStopsEndsOnceAfterItsRetries)
{
    ASSERT_TRUE(connectFacade());
    // The server holds the answer back, so that it cannot answer before it stops.
    dropAnswers({{"path", "/room/list"}, {"prefix", true}, {"action", "drop"}});
    Outcome<> lost;
    parlo->emitWithMethod(
        0, {{"url", "/room/list?offset=0&limit=1"}, {"headers", parlo->header()}}, lost.ok(), lost.fail());
    ASSERT_TRUE(waitUntil([&] { return faultHits() == 1; }));
    server->stop();
    EXPECT_TRUE(failsOnceWith(lost, 999, 15000));
    EXPECT_NE(parlo->connectStatus(), 0);
}

TEST_F(CoreTest, DeferredWorkRunsInOrderAndTheIndicatorFollowsRequests)
{
    QStringList order;
    parlo->appendToQueue([&] { order << "first"; });
    parlo->appendToQueue([&] { order << "second"; });
    parlo->execQueue();
    EXPECT_EQ(order, (QStringList {"first", "second"}));
    EXPECT_TRUE(parlo->queueArray().isEmpty());

    connectScripted();
    IMPlatform::instance()->setNetworkActivityIndicatorVisible(false);
    Outcome<> o;
    parlo->emitWithMethod(0, envelope("/badge"), o.ok(), o.fail());
    ASSERT_TRUE(waitUntil([] { return IMPlatform::instance()->isNetworkActivityIndicatorVisible(); }));
    socket->answerAll({QVariantMap {{"statusCode", 200}}});
    ASSERT_TRUE(waitUntil([&] { return o.total() == 1; }));
    EXPECT_FALSE(IMPlatform::instance()->isNetworkActivityIndicatorVisible());
}

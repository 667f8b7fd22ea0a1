// Virtual requests: refusal when offline, the acknowledgement time-out and retry rules, how
// answers become success or failure, and that every request ends exactly once.
#include "CoreFixture.h"

#include <QElapsedTimer>
#include <thread>

namespace {
struct Outcome
{
    int successes = 0;
    int failures = 0;
    QVariant body;
    IMError error;
    bool onMain = true;
    int total() const { return successes + failures; }
};

Parlo::Success succeed(Outcome &o)
{
    return [&o](const QVariant &body) {
        ++o.successes;
        o.body = body;
        o.onMain = o.onMain && IMIsMainThread();
    };
}

Parlo::Failure fail(Outcome &o)
{
    return [&o](const IMError &error) {
        ++o.failures;
        o.error = error;
        o.onMain = o.onMain && IMIsMainThread();
    };
}

QVariantMap envelope(const QString &url)
{
    return QVariantMap{{"url", url}, {"headers", QVariantMap()}};
}

QStringList retryLines()
{
    QStringList lines;
    for (const QVariant &record : IMUserDefaults::standardUserDefaults()->log()) {
        const QString data = record.toMap().value("data").toString();
        if (data.startsWith("api retry"))
            lines << data;
    }
    return lines;
}
} // namespace

TEST_F(CoreTest, NotConnectedFailsAtOnceOnTheCallersThreadAndSendsNothing)
{
    Outcome before;
    parlo->emitWithMethod(0, envelope("/badge"), succeed(before), fail(before));
    EXPECT_EQ(before.failures, 1); // synchronously: no socket at all yet

    connectScripted();
    socket->setStatus(IMSocket::Status::Disconnected);
    Outcome offThread;
    std::thread([&] { parlo->emitWithMethod(0, envelope("/badge"), succeed(offThread), fail(offThread)); }).join();
    EXPECT_EQ(offThread.failures, 1);
    EXPECT_FALSE(offThread.onMain);
    EXPECT_EQ(offThread.error.code(), 400);
    EXPECT_EQ(offThread.error.domain(), kParlo);
    EXPECT_EQ(offThread.error.info(), "not connected");
    EXPECT_TRUE(socket->emits().isEmpty());
}

TEST_F(CoreTest, UnansweredGetIsSentFourTimesThenFailsWith999)
{
    connectScripted();
    parlo->setTimeout(1);
    parlo->setLog(true);
    Outcome o;
    QElapsedTimer clock;
    clock.start();
    parlo->emitWithMethod(0, envelope("/badge"), succeed(o), fail(o));
    ASSERT_TRUE(waitUntil([&] { return o.total() > 0; }, 10000));
    const qint64 elapsed = clock.elapsed();
    EXPECT_EQ(o.failures, 1);
    EXPECT_EQ(o.error.code(), 999);
    EXPECT_EQ(o.error.info(), "NO ACK");
    EXPECT_TRUE(o.onMain);
    ASSERT_EQ(socket->emits().size(), 4);
    for (const auto &e : socket->emits()) {
        EXPECT_EQ(e.event, "get");
        EXPECT_EQ(e.timeoutSeconds, 1.0);
    }
    // Each attempt waits one time-out: about 4 in all.
    EXPECT_GE(elapsed, 3800);
    EXPECT_LT(elapsed, 8000);
    // Newest first in the persisted log.
    EXPECT_EQ(retryLines(), (QStringList{"api retry NO.2", "api retry NO.1", "api retry NO.0"}));
    spinFor(50);
    EXPECT_EQ(o.total(), 1);
}

TEST_F(CoreTest, PostsAreRetriedOnlyForSignUpAndChatIn)
{
    connectScripted();
    parlo->setTimeout(1);
    Outcome message, chatin, signup;
    parlo->emitWithMethod(1, envelope("/message/"), succeed(message), fail(message));
    parlo->emitWithMethod(1, envelope("/client/chatin/"), succeed(chatin), fail(chatin));
    parlo->emitWithMethod(1, envelope("/client/"), succeed(signup), fail(signup));
    ASSERT_TRUE(waitUntil([&] { return message.total() && chatin.total() && signup.total(); }, 10000));
    int messagePosts = 0, chatinPosts = 0, signupPosts = 0;
    for (const auto &e : socket->emits()) {
        const QString url = e.items.value(0).toMap().value("url").toString();
        messagePosts += url == "/message/";
        chatinPosts += url == "/client/chatin/";
        signupPosts += url == "/client/";
    }
    EXPECT_EQ(messagePosts, 1);
    EXPECT_EQ(chatinPosts, 4);
    EXPECT_EQ(signupPosts, 4);
    EXPECT_EQ(message.error.code(), 999);
    EXPECT_EQ(chatin.error.code(), 999);
    EXPECT_FALSE(parlo->isPostRetryListAPI(envelope("/client/chatin")));
    EXPECT_FALSE(parlo->isPostRetryListAPI(envelope("/client/chatin/?x=1")));
}

TEST_F(CoreTest, AnswersBecomeSuccessOrStatusErrors)
{
    connectScripted();
    struct Case
    {
        QVariantList answer;
        bool success;
        int code;
        QVariant bodyOrInfo;
    };
    const QVariantMap body{{"a", 1}};
    const QList<Case> cases{
        {{QVariantMap{{"statusCode", 200}, {"body", body}}}, true, 0, body},
        {{QVariantMap{{"statusCode", 399}, {"body", "fine"}}}, true, 0, "fine"},
        {{QVariantMap{{"body", "no status"}}}, true, 0, "no status"},
        {{QVariantMap{{"statusCode", 404}, {"body", "not found"}}}, false, 404, "not found"},
        {{QVariantMap{{"statusCode", 500}}}, false, 500, ""},
        {{QVariantMap{{"statusCode", QVariant()}, {"body", "null status"}}}, false, 0, "null status"},
        {{}, false, 0, ""},
    };
    for (const Case &c : cases) {
        Outcome o;
        parlo->emitWithMethod(0, envelope("/badge"), succeed(o), fail(o));
        socket->answerAll(c.answer);
        ASSERT_TRUE(waitUntil([&] { return o.total() > 0; }));
        spinFor(5);
        ASSERT_EQ(o.total(), 1);
        EXPECT_EQ(o.successes == 1, c.success) << IMDescription(c.answer);
        if (c.success) {
            EXPECT_EQ(o.body, c.bodyOrInfo);
        } else {
            EXPECT_EQ(o.error.code(), c.code);
            EXPECT_EQ(o.error.info(), c.bodyOrInfo.toString());
            EXPECT_EQ(o.error.userInfo().value("NSLocalizedDescriptionKey").toString(), c.bodyOrInfo.toString());
        }
        EXPECT_TRUE(o.onMain);
    }
    // Answers are handed to the main queue: never delivered inside the acknowledgement itself.
    Outcome o;
    parlo->emitWithMethod(0, envelope("/badge"), succeed(o), fail(o));
    socket->answerAll({QVariantMap{{"statusCode", 200}}});
    EXPECT_EQ(o.total(), 0);
    EXPECT_TRUE(waitUntil([&] { return o.total() == 1; }));
}

TEST_F(CoreTest, EnvelopeCarriesTheFourHeadersAndTheMethodName)
{
    connectScripted();
    IMUserDefaults::standardUserDefaults()->setToken(QString());
    const QVariantMap header = parlo->header();
    EXPECT_EQ(header, (QVariantMap{{"apiKey", "api"}, {"clientKey", "client"}, {"clientID", "me"}, {"token", ""}}));

    const QStringList names{"get", "post", "put", "delete"};
    for (uint method = 0; method < 4; ++method) {
        QVariantMap item{{"url", "/room/r1"}, {"headers", header}, {"data", QVariantMap{{"k", method}}}};
        parlo->emitWithMethod(method, item, nullptr, nullptr);
        EXPECT_EQ(socket->emits().last().event, names[int(method)]);
        EXPECT_EQ(socket->emits().last().items, QVariantList{item});
    }
    socket->answerAll({QVariantMap{{"statusCode", 200}}});
    spinFor(10);
}

TEST_F(CoreTest, PendingRequestsFailOnceWhenTheFacadeGoes)
{
    connectScripted();
    parlo->setTimeout(30);
    Outcome get, post;
    parlo->emitWithMethod(0, envelope("/badge"), succeed(get), fail(get));
    parlo->emitWithMethod(1, envelope("/client/"), succeed(post), fail(post));
    parlo.reset();
    ASSERT_TRUE(waitUntil([&] { return get.total() && post.total(); }));
    spinFor(50);
    EXPECT_EQ(get.failures, 1);
    EXPECT_EQ(post.failures, 1);
    EXPECT_EQ(get.error.code(), 999);
    EXPECT_EQ(get.successes + post.successes, 0);
}

TEST_F(CoreTest, DeferredWorkRunsInOrderAndTheIndicatorFollowsRequests)
{
    QStringList order;
    parlo->queueArray().append([&] { order << "first"; });
    parlo->queueArray().append([&] { order << "second"; });
    parlo->execQueue();
    EXPECT_EQ(order, (QStringList{"first", "second"}));
    EXPECT_TRUE(parlo->queueArray().isEmpty());

    connectScripted();
    IMPlatform::instance()->setNetworkActivityIndicatorVisible(false);
    Outcome o;
    parlo->emitWithMethod(0, envelope("/badge"), succeed(o), fail(o));
    ASSERT_TRUE(waitUntil([] { return IMPlatform::instance()->isNetworkActivityIndicatorVisible(); }));
    socket->answerAll({QVariantMap{{"statusCode", 200}}});
    ASSERT_TRUE(waitUntil([&] { return o.total() == 1; }));
    EXPECT_FALSE(IMPlatform::instance()->isNetworkActivityIndicatorVisible());
}

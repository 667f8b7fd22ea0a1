// The notification centre, the dispatch queues and the error and log helpers.
#include "IMDispatch.h"
#include "IMError.h"
#include "IMLog.h"
#include "IMNotificationCenter.h"
#include "TestUtil.h"

#include <QThread>
#include <QThreadPool>
#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vector>

TEST(NotificationCenter, DeliversByNameAndObjectFilterInOrderAddedUntilRemoved)
{
    IMNotificationCenter center;
    QStringList seen;
    center.addObserver(QStringLiteral("A"), [&](const IMNotification &n) { seen << "first:" + n.object.toString(); });
    center.addObserver(QStringLiteral("A"), QVariant(QStringLiteral("x")), nullptr,
        [&](const IMNotification &n) { seen << "onlyX:" + n.object.toString(); });
    center.addObserver(QString(), [&](const IMNotification &n) { seen << "any:" + n.name; });

    center.post(QStringLiteral("A"), QStringLiteral("x"));
    center.post(QStringLiteral("A"), QStringLiteral("y"));
    center.post(QStringLiteral("B"));
    EXPECT_EQ(seen, (QStringList {"first:x", "onlyX:x", "any:A", "first:y", "any:A", "any:B"}));

    // An observer may remove itself from inside its block.
    int calls = 0;
    IMNotificationCenter::Token self = 0;
    self = center.addObserver(QStringLiteral("N"), [&](const IMNotification &) {
        ++calls;
        center.removeObserver(self);
    });
    center.post(QStringLiteral("N"));
    center.post(QStringLiteral("N"));
    EXPECT_EQ(calls, 1);

    // A delivery queued on the main queue is dropped when its observer goes before it runs.
    int queued = 0;
    auto token = center.addObserver(
        QStringLiteral("Q"), QVariant(), IMDispatchQueue::mainQueue(), [&](const IMNotification &) { ++queued; });
    center.post(QStringLiteral("Q"));
    center.removeObserver(token);
    spinFor(30);
    EXPECT_EQ(queued, 0);
}

TEST(NotificationCenter, QueuedObserverRunsOnItsQueueAndPostingIsThreadSafe)
{
    IMNotificationCenter center;
    std::atomic<int> onMain {0};
    std::atomic<int> offMain {0};
    center.addObserver(QStringLiteral("T"), QVariant(), IMDispatchQueue::mainQueue(),
        [&](const IMNotification &) { (IMIsMainThread() ? onMain : offMain)++; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 250; ++i) {
                auto token = center.addObserver(QStringLiteral("other"), [](const IMNotification &) {});
                center.post(QStringLiteral("T"));
                center.removeObserver(token);
            }
        });
    for (auto &t : threads)
        t.join();
    EXPECT_TRUE(waitUntil([&] { return onMain.load() == 1000; }));
    EXPECT_EQ(offMain.load(), 0);
}

TEST(Dispatch, MainAsyncIsNeverInlineSerialQueueKeepsOrderAndAfterRunsOnMain)
{
    bool ran = false;
    IMDispatchMainAsync([&] { ran = true; });
    EXPECT_FALSE(ran);
    EXPECT_TRUE(waitUntil([&] { return ran; }));

    std::vector<int> order;
    std::mutex m;
    {
        IMDispatchQueue queue(QStringLiteral("queue"));
        EXPECT_FALSE(queue.isCurrent());
        for (int i = 0; i < 100; ++i)
            queue.async([&, i] {
                std::lock_guard<std::mutex> lock(m);
                order.push_back(i);
            });
        bool current = false;
        queue.sync([&] { current = queue.isCurrent(); });
        EXPECT_TRUE(current);
        queue.async([&] {
            QThread::msleep(20);
            std::lock_guard<std::mutex> lock(m);
            order.push_back(100);
        });
    } // the destructor runs what was queued before it
    ASSERT_EQ(order.size(), 101u);
    for (int i = 0; i <= 100; ++i)
        EXPECT_EQ(order[size_t(i)], i);

    // A delayed block runs on the main queue, whichever thread asked for it.
    std::atomic<bool> onMain {false};
    std::atomic<bool> done {false};
    std::thread([&] {
        IMDispatchAfter(0.02, [&] {
            onMain = IMIsMainThread();
            done = true;
        });
    }).join();
    EXPECT_TRUE(waitUntil([&] { return done.load(); }));
    EXPECT_TRUE(onMain.load());
}

TEST(ErrorAndLog, ErrorRecordsAndConsoleLines)
{
    const IMError e = IMError::parlo(404, QStringLiteral("signUpWithClient: first"));
    EXPECT_EQ(e.domain(), QStringLiteral("Parlo"));
    EXPECT_EQ(e.code(), 404);
    EXPECT_EQ(e.info(), QStringLiteral("signUpWithClient: first"));
    EXPECT_TRUE(IMError().isNull());
    EXPECT_FALSE(e.isNull());

    EXPECT_EQ(IMLogLine("/a/b/Parlo.cpp", 42), QStringLiteral("<Parlo.cpp:42>"));
    EXPECT_EQ(IMDescription(QVariant()), QStringLiteral("(null)"));
    EXPECT_EQ(IMDescription(QStringLiteral("text")), QStringLiteral("text"));
    EXPECT_EQ(IMDescription(QVariantList {1, "a"}).simplified(), QStringLiteral("[ 1, \"a\" ]"));
}

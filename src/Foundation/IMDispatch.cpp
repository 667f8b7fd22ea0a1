#include "IMDispatch.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

// Blocks travel between threads through the queue's own mutex-protected list, never inside a
// Qt event: the hand-over is then visible to ThreadSanitizer (Qt's own locks, in a library not
// built with it, are not). Qt is used only to wake the main thread, with an event that carries
// nothing.

// ThreadSanitizer does not always see the order the queue's mutex gives (seen with GCC 12's
// runtime in the test programs, where Qt's uninstrumented threads run beside the queue's), and
// then reports the lists and everything a block carries as racing. Every critical section on
// the queue's mutex therefore also states the order to it: it acquires on entry and releases
// on exit, through QueueLock.
#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void *addr);
extern "C" void __tsan_release(void *addr);
#endif

namespace {
using Clock = std::chrono::steady_clock;

void orderAcquired([[maybe_unused]] std::mutex *mutex)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(mutex);
#endif
}

void orderReleased([[maybe_unused]] std::mutex *mutex)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_release(mutex);
#endif
}

//! A lock on a queue's mutex that also tells ThreadSanitizer about the order it gives.
class QueueLock {
public:
    explicit QueueLock(std::mutex &mutex)
        : m_lock(mutex)
    {
        orderAcquired(&mutex);
    }
    ~QueueLock()
    {
        if (m_lock.owns_lock())
            orderReleased(m_lock.mutex());
    }
    void lock()
    {
        m_lock.lock();
        orderAcquired(m_lock.mutex());
    }
    void unlock()
    {
        orderReleased(m_lock.mutex());
        m_lock.unlock();
    }
    template <typename Wait> void wait(const Wait &waitOn)
    {
        orderReleased(m_lock.mutex());
        waitOn(m_lock);
        orderAcquired(m_lock.mutex());
    }

private:
    std::unique_lock<std::mutex> m_lock;
};

class MainWaker : public QObject {
public:
    std::function<void()> drain;

protected:
    void customEvent(QEvent *) override { drain(); }
};
} // namespace

struct IMDispatchQueue::Private {
    Kind kind;
    QString label;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Block> pending;
    std::multimap<Clock::time_point, Block> timed; // serial and global queues
    bool wakePosted = false; // main queue
    bool stopping = false; // serial queue
    MainWaker *waker = nullptr; // main queue
    std::vector<std::thread> threads; // one for a serial queue, a pool for the global one
    std::vector<std::thread::id> threadIds;

    // Runs queued blocks on a worker thread until the queue stops (serial) or for ever (global).
    void work()
    {
        QueueLock lock(mutex);
        for (;;) {
            const Clock::time_point now = Clock::now();
            while (!timed.empty() && timed.begin()->first <= now) {
                pending.push_back(std::move(timed.begin()->second));
                timed.erase(timed.begin());
            }
            if (!pending.empty()) {
                Block block = std::move(pending.front());
                pending.pop_front();
                lock.unlock();
                block();
                block = nullptr;
                lock.lock();
                continue;
            }
            if (stopping)
                return;
            if (timed.empty())
                lock.wait([this](std::unique_lock<std::mutex> &l) { wake.wait(l); });
            else
                lock.wait([this](std::unique_lock<std::mutex> &l) { wake.wait_until(l, timed.begin()->first); });
        }
    }

    void drainMain()
    {
        std::deque<Block> batch;
        {
            QueueLock lock(mutex);
            batch.swap(pending);
            wakePosted = false;
        }
        for (Block &block : batch)
            block();
    }
};

IMDispatchQueue::IMDispatchQueue(Kind kind, const QString &label)
    : d(new Private)
{
    d->kind = kind;
    d->label = label;
    if (kind == Kind::Main) {
        d->waker = new MainWaker;
        Private *p = d.get();
        d->waker->drain = [p] { p->drainMain(); };
        if (QCoreApplication *app = QCoreApplication::instance())
            d->waker->moveToThread(app->thread());
    } else if (kind == Kind::Global) {
        const int count = std::max(2, QThread::idealThreadCount());
        for (int i = 0; i < count; ++i) {
            d->threads.emplace_back([p = d.get()] { p->work(); });
            d->threadIds.push_back(d->threads.back().get_id());
            d->threads.back().detach(); // the global queue lives as long as the process
        }
    }
}

IMDispatchQueue::IMDispatchQueue(const QString &label)
    : d(new Private)
{
    d->kind = Kind::Serial;
    d->label = label;
    d->threads.emplace_back([p = d.get()] { p->work(); });
    d->threadIds.push_back(d->threads.back().get_id());
}

IMDispatchQueue::~IMDispatchQueue()
{
    if (d->kind != Kind::Serial)
        return;
    {
        // Blocks already queued still run; blocks waiting for a delay are dropped.
        QueueLock lock(d->mutex);
        d->stopping = true;
        d->timed.clear();
    }
    d->wake.notify_all();
    if (isCurrent()) {
        // Destroyed from one of its own blocks: the thread finishes the queue on its own.
        d->threads.front().detach();
        d.release(); // the thread still uses the state; it is left for the life of the process
        return;
    }
    d->threads.front().join();
}

IMDispatchQueue *IMDispatchQueue::mainQueue()
{
    static IMDispatchQueue *queue = new IMDispatchQueue(Kind::Main, QStringLiteral("main"));
    return queue;
}

// The main queue is made on the main thread as the application starts, so a worker thread's first
// post never builds the object the main thread then reads.
static void makeMainQueueOnTheMainThread() { IMDispatchQueue::mainQueue(); }
Q_COREAPP_STARTUP_FUNCTION(makeMainQueueOnTheMainThread)

IMDispatchQueue *IMDispatchQueue::globalQueue()
{
    static IMDispatchQueue *queue = new IMDispatchQueue(Kind::Global, QStringLiteral("global"));
    return queue;
}

void IMDispatchQueue::async(Block block)
{
    if (d->kind == Kind::Main) {
        bool post = false;
        {
            QueueLock lock(d->mutex);
            d->pending.push_back(std::move(block));
            post = !d->wakePosted;
            d->wakePosted = true;
        }
        if (post)
            QCoreApplication::postEvent(d->waker, new QEvent(QEvent::User));
        return;
    }
    {
        QueueLock lock(d->mutex);
        d->pending.push_back(std::move(block));
    }
    d->wake.notify_one();
}

void IMDispatchQueue::sync(const Block &block)
{
    if (isCurrent()) {
        block();
        return;
    }
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    async([&] {
        block();
        QueueLock lock(mutex);
        finished = true;
        done.notify_all();
    });
    QueueLock lock(mutex);
    lock.wait([&](std::unique_lock<std::mutex> &l) { done.wait(l, [&] { return finished; }); });
}

void IMDispatchQueue::after(double seconds, Block block)
{
    const int ms = seconds <= 0 ? 0 : int(seconds * 1000.0 + 0.5);
    if (d->kind == Kind::Main) {
        // The timer is started on the main thread, from a block that already crossed over.
        MainWaker *waker = d->waker;
        async([waker, ms, block = std::move(block)]() mutable { QTimer::singleShot(ms, waker, std::move(block)); });
        return;
    }
    {
        QueueLock lock(d->mutex);
        d->timed.emplace(Clock::now() + std::chrono::milliseconds(ms), std::move(block));
    }
    d->wake.notify_one();
}

bool IMDispatchQueue::isCurrent() const
{
    if (d->kind == Kind::Main)
        return IMIsMainThread();
    const std::thread::id me = std::this_thread::get_id();
    return std::find(d->threadIds.begin(), d->threadIds.end(), me) != d->threadIds.end();
}

QString IMDispatchQueue::label() const { return d->label; }

void IMDispatchMainAsync(IMDispatchQueue::Block block) { IMDispatchQueue::mainQueue()->async(std::move(block)); }

void IMDispatchAfter(double seconds, IMDispatchQueue::Block block)
{
    IMDispatchQueue::mainQueue()->after(seconds, std::move(block));
}

bool IMIsMainThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

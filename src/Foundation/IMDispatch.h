#pragma once

#include <QString>
#include <functional>
#include <memory>

//! A queue that runs blocks: the main queue (the Qt main thread's event loop), the global
//! queue (a pool of worker threads) or a serial queue with a thread of its own.
class IMDispatchQueue {
public:
    using Block = std::function<void()>;

    //! The main queue: blocks run on the thread of the QCoreApplication, from its event loop.
    static IMDispatchQueue *mainQueue();
    //! The global concurrent queue: blocks run on a shared pool of worker threads.
    static IMDispatchQueue *globalQueue();

    //! A serial queue labelled `label`, running its blocks one at a time, in order, on its own thread.
    explicit IMDispatchQueue(const QString &label);
    //! Runs the blocks already queued (dropping those still waiting for a delay), then stops the thread.
    ~IMDispatchQueue();
    IMDispatchQueue(const IMDispatchQueue &) = delete;
    IMDispatchQueue &operator=(const IMDispatchQueue &) = delete;

    //! Queues `block` and returns at once; never runs it inline, even from the queue itself.
    void async(Block block);
    //! Runs `block` on the queue and waits for it; inline when called from the queue itself.
    void sync(const Block &block);
    //! Queues `block` to run on this queue after `seconds`.
    void after(double seconds, Block block);
    //! True when the calling thread is this queue's (for the global queue: one of its threads).
    bool isCurrent() const;
    //! The label given at creation ("main" and "global" for the shared queues).
    QString label() const;

private:
    enum class Kind { Main, Global, Serial };
    IMDispatchQueue(Kind kind, const QString &label);
    struct Private;
    std::unique_ptr<Private> d;
};

//! Posts `block` to the main queue (never a direct call, even on the main thread).
void IMDispatchMainAsync(IMDispatchQueue::Block block);
//! Runs `block` on the main queue after `seconds`.
void IMDispatchAfter(double seconds, IMDispatchQueue::Block block);
//! True on the main (QCoreApplication) thread.
bool IMIsMainThread();

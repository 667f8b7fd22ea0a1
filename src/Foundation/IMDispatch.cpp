#include "IMDispatch.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QMutex>
#include <QRunnable>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QWaitCondition>

struct IMDispatchQueue::Private
{
    Kind kind;
    QString label;
    QThread *thread = nullptr;   // serial queues only
    QObject *context = nullptr;  // lives on `thread`
};

IMDispatchQueue::IMDispatchQueue(Kind kind, const QString &label) : d(new Private{kind, label})
{
}

IMDispatchQueue::IMDispatchQueue(const QString &label) : d(new Private{Kind::Serial, label})
{
    d->thread = new QThread;
    d->thread->setObjectName(label);
    d->context = new QObject;
    d->context->moveToThread(d->thread);
    QObject::connect(d->thread, &QThread::finished, d->context, &QObject::deleteLater);
    d->thread->start();
}

IMDispatchQueue::~IMDispatchQueue()
{
    if (d->kind != Kind::Serial)
        return;
    if (isCurrent()) {
        // Destroyed from one of its own blocks: let the thread finish on its own.
        QThread *thread = d->thread;
        QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
        thread->quit();
        return;
    }
    // Everything queued before this point runs first: the quit request is queued behind it.
    QThread *thread = d->thread;
    QMetaObject::invokeMethod(d->context, [thread] { thread->quit(); }, Qt::QueuedConnection);
    thread->wait();
    delete thread;
}

IMDispatchQueue *IMDispatchQueue::mainQueue()
{
    static IMDispatchQueue queue(Kind::Main, QStringLiteral("main"));
    return &queue;
}

IMDispatchQueue *IMDispatchQueue::globalQueue()
{
    static IMDispatchQueue queue(Kind::Global, QStringLiteral("global"));
    return &queue;
}

void IMDispatchQueue::async(Block block)
{
    switch (d->kind) {
    case Kind::Main:
        QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(block), Qt::QueuedConnection);
        break;
    case Kind::Global:
        QThreadPool::globalInstance()->start(std::move(block));
        break;
    case Kind::Serial:
        QMetaObject::invokeMethod(d->context, std::move(block), Qt::QueuedConnection);
        break;
    }
}

void IMDispatchQueue::sync(const Block &block)
{
    if (isCurrent()) {
        block();
        return;
    }
    QMutex mutex;
    QWaitCondition done;
    bool finished = false;
    async([&] {
        block();
        QMutexLocker lock(&mutex);
        finished = true;
        done.wakeAll();
    });
    QMutexLocker lock(&mutex);
    while (!finished)
        done.wait(&mutex);
}

void IMDispatchQueue::after(double seconds, Block block)
{
    const int ms = seconds <= 0 ? 0 : int(seconds * 1000.0 + 0.5);
    if (d->kind == Kind::Global) {
        IMDispatchAfter(seconds, [this, block = std::move(block)]() mutable { async(std::move(block)); });
        return;
    }
    QObject *context = d->kind == Kind::Main ? QCoreApplication::instance() : d->context;
    // The timer must be started on the thread that owns the context.
    QMetaObject::invokeMethod(
        context, [context, ms, block = std::move(block)]() mutable { QTimer::singleShot(ms, context, std::move(block)); },
        Qt::QueuedConnection);
}

bool IMDispatchQueue::isCurrent() const
{
    switch (d->kind) {
    case Kind::Main:
        return IMIsMainThread();
    case Kind::Global:
        return false;
    case Kind::Serial:
        return QThread::currentThread() == d->thread;
    }
    return false;
}

QString IMDispatchQueue::label() const
{
    return d->label;
}

void IMDispatchMainAsync(IMDispatchQueue::Block block)
{
    IMDispatchQueue::mainQueue()->async(std::move(block));
}

void IMDispatchAfter(double seconds, IMDispatchQueue::Block block)
{
    IMDispatchQueue::mainQueue()->after(seconds, std::move(block));
}

bool IMIsMainThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

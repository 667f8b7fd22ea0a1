#include "IMNotificationCenter.h"

#include "IMDispatch.h"

#include <QMutex>
#include <atomic>
#include <vector>

namespace {
struct Observer {
    IMNotificationCenter::Token token;
    QString name;
    QVariant object;
    IMDispatchQueue *queue;
    IMNotificationCenter::Block block;
    // Cleared on removal, so a delivery already copied out or queued is dropped.
    std::shared_ptr<std::atomic<bool>> alive;
};
} // namespace

struct IMNotificationCenter::Private {
    QMutex mutex;
    Token nextToken = 1;
    std::vector<Observer> observers;
};

IMNotificationCenter::IMNotificationCenter()
    : d(new Private)
{
}
IMNotificationCenter::~IMNotificationCenter() = default;

IMNotificationCenter *IMNotificationCenter::defaultCenter()
{
    static IMNotificationCenter center;
    return &center;
}

IMNotificationCenter::Token IMNotificationCenter::addObserver(
    const QString &name, const QVariant &object, IMDispatchQueue *queue, Block block)
{
    QMutexLocker lock(&d->mutex);
    const Token token = d->nextToken++;
    d->observers.push_back(
        Observer {token, name, object, queue, std::move(block), std::make_shared<std::atomic<bool>>(true)});
    return token;
}

IMNotificationCenter::Token IMNotificationCenter::addObserver(const QString &name, Block block)
{
    return addObserver(name, QVariant(), nullptr, std::move(block));
}

void IMNotificationCenter::removeObserver(Token token)
{
    QMutexLocker lock(&d->mutex);
    for (auto it = d->observers.begin(); it != d->observers.end(); ++it) {
        if (it->token == token) {
            it->alive->store(false);
            d->observers.erase(it);
            return;
        }
    }
}

void IMNotificationCenter::post(const IMNotification &notification)
{
    std::vector<Observer> matching;
    {
        QMutexLocker lock(&d->mutex);
        for (const Observer &o : d->observers) {
            if (!o.name.isNull() && o.name != notification.name)
                continue;
            if (o.object.isValid() && !(o.object == notification.object))
                continue;
            matching.push_back(o);
        }
    }
    // Blocks run outside the lock, so they may post, add or remove observers themselves.
    for (Observer &o : matching) {
        if (!o.alive->load())
            continue;
        if (o.queue) {
            o.queue->async([alive = o.alive, block = o.block, notification] {
                if (alive->load())
                    block(notification);
            });
        } else {
            o.block(notification);
        }
    }
}

void IMNotificationCenter::post(const QString &name, const QVariant &object, const QVariantMap &userInfo)
{
    post(IMNotification {name, object, userInfo});
}

#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>

class IMDispatchQueue;

//! A named notification with an object and a user-info dictionary.
struct IMNotification {
    QString name; //!< the notification's name
    QVariant object; //!< the object it is about (may be null)
    QVariantMap userInfo; //!< extra values
};

//! Named notifications delivered to observers. Thread-safe: post and observe from any thread.
class IMNotificationCenter {
public:
    using Block = std::function<void(const IMNotification &)>;
    //! Identifies one observer, for removal. 0 is never a valid token.
    using Token = quint64;

    //! The process-wide centre the kit posts on.
    static IMNotificationCenter *defaultCenter();

    IMNotificationCenter();
    ~IMNotificationCenter();
    IMNotificationCenter(const IMNotificationCenter &) = delete;
    IMNotificationCenter &operator=(const IMNotificationCenter &) = delete;

    //! Observes `name` (every name when null). A non-null `object` limits delivery to
    //! notifications whose object equals it. With `queue` the block runs asynchronously on that
    //! queue; without it, synchronously on the posting thread.
    Token addObserver(const QString &name, const QVariant &object, IMDispatchQueue *queue, Block block);
    //! Same, with no object filter, delivered on the posting thread.
    Token addObserver(const QString &name, Block block);
    //! Removes the observer; a queued delivery that has not started yet is dropped. Safe to call
    //! from inside the observer's own block.
    void removeObserver(Token token);
    //! Delivers the notification to every matching observer, in the order they were added.
    void post(const IMNotification &notification);
    //! Posts a notification made of `name`, `object` and `userInfo`.
    void post(const QString &name, const QVariant &object = {}, const QVariantMap &userInfo = {});

private:
    struct Private;
    std::unique_ptr<Private> d;
};

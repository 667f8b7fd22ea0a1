#include "UxImageView.h"

#include <QCache>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QSaveFile>

#include "IMDispatch.h"
#include "IMLog.h"
#include "IMPlatform.h"

// The loader lives on the main thread; only decoding runs on the global queue.
struct UxImageLoader::Private {
    QCache<QString, QImage> memory {32 * 1024}; // cost in KiB
    QNetworkAccessManager *network = nullptr;
    quint64 nextTicket = 1;
    struct Waiter {
        quint64 ticket;
        Callback callback;
    };
    QHash<QString, QList<Waiter>> pending; // URL -> who waits for it
    QHash<quint64, QString> tickets; // ticket -> URL

    static int cost(const QImage &image) { return qMax<qsizetype>(1, image.sizeInBytes() / 1024); }

    QString diskPath(const QString &key) const
    {
        const QByteArray hash = QCryptographicHash::hash(key.toUtf8(), QCryptographicHash::Sha1).toHex();
        return QDir(IMPlatform::instance()->temporaryPath())
            .filePath(QStringLiteral("images/") + QString::fromLatin1(hash));
    }

    void deliver(const QString &key, const QImage &image, bool fromCache)
    {
        const QList<Waiter> waiters = pending.take(key);
        for (const Waiter &w : waiters) {
            if (tickets.remove(w.ticket) && w.callback)
                w.callback(image, fromCache);
        }
    }
};

UxImageLoader::UxImageLoader()
    : d(new Private)
{
    // Made on the main thread, before any decoding thread posts back to it through the main queue.
    IMDispatchQueue::mainQueue();
}

UxImageLoader *UxImageLoader::shared()
{
    static UxImageLoader *loader = new UxImageLoader; // lives for the process
    return loader;
}

quint64 UxImageLoader::load(const QUrl &url, const Callback &callback)
{
    const quint64 ticket = d->nextTicket++;
    const QString key = url.toString();
    if (QImage *hit = d->memory.object(key)) {
        const QImage image = *hit;
        d->tickets.insert(ticket, key);
        // Delivered asynchronously like every other answer, so callers see one order of events.
        QPointer<UxImageLoader> self(this);
        IMDispatchMainAsync([self, ticket, image, callback] {
            if (self && self->d->tickets.remove(ticket) && callback)
                callback(image, true);
        });
        return ticket;
    }
    const bool first = !d->pending.contains(key);
    d->pending[key].append({ticket, callback});
    d->tickets.insert(ticket, key);
    if (!first)
        return ticket;

    const QString disk = d->diskPath(key);
    QPointer<UxImageLoader> self(this);
    // Decodes `bytes` off the main thread, then caches and delivers on it.
    auto decode = [self, key, disk](const QByteArray &bytes, bool fromDisk) {
        IMDispatchQueue::globalQueue()->async([self, key, disk, bytes, fromDisk] {
            QImage image = QImage::fromData(bytes);
            IMDispatchMainAsync([self, key, disk, bytes, fromDisk, image] {
                if (!self)
                    return;
                if (image.isNull()) {
                    IM_LOG(QStringLiteral("image at %1 could not be decoded (%2 bytes)").arg(key).arg(bytes.size()));
                    if (fromDisk)
                        QFile::remove(disk);
                } else {
                    self->d->memory.insert(key, new QImage(image), Private::cost(image));
                    if (!fromDisk) {
                        QDir().mkpath(QFileInfo(disk).absolutePath());
                        QSaveFile file(disk);
                        if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
                            file.commit();
                    }
                }
                self->d->deliver(key, image, fromDisk);
            });
        });
    };

    QFile cached(disk);
    if (cached.open(QIODevice::ReadOnly)) {
        decode(cached.readAll(), true);
        return ticket;
    }
    if (url.isLocalFile()) {
        QFile file(url.toLocalFile());
        if (!file.open(QIODevice::ReadOnly)) {
            IM_LOG(QStringLiteral("image file %1 cannot be read").arg(url.toLocalFile()));
            IMDispatchMainAsync([self, key] {
                if (self)
                    self->d->deliver(key, QImage(), false);
            });
            return ticket;
        }
        decode(file.readAll(), false);
        return ticket;
    }
    if (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https")) {
        IM_LOG(QStringLiteral("image URL \"%1\" is neither a file nor http(s)").arg(key));
        IMDispatchMainAsync([self, key] {
            if (self)
                self->d->deliver(key, QImage(), false);
        });
        return ticket;
    }
    if (!d->network)
        d->network = new QNetworkAccessManager(this);
    QNetworkReply *reply = d->network->get(QNetworkRequest(url));
    connect(reply, &QNetworkReply::finished, this, [this, reply, key, decode] {
        reply->deleteLater();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (reply->error() != QNetworkReply::NoError || (status && status >= 400)) {
            IM_LOG(QStringLiteral("image at %1 failed: %2").arg(key, reply->errorString()));
            d->deliver(key, QImage(), false);
            return;
        }
        decode(reply->readAll(), false);
    });
    return ticket;
}

void UxImageLoader::cancel(quint64 ticket)
{
    const QString key = d->tickets.take(ticket);
    if (key.isEmpty())
        return;
    auto it = d->pending.find(key);
    if (it == d->pending.end())
        return;
    for (int i = 0; i < it->size(); ++i) {
        if (it->at(i).ticket == ticket) {
            it->removeAt(i);
            break;
        }
    }
}

void UxImageLoader::setMemoryCacheLimit(qint64 bytes) { d->memory.setMaxCost(int(qMax<qint64>(1, bytes / 1024))); }
void UxImageLoader::clearMemory() { d->memory.clear(); }

void UxImageLoader::clearAll()
{
    d->memory.clear();
    QDir(QDir(IMPlatform::instance()->temporaryPath()).filePath(QStringLiteral("images"))).removeRecursively();
}

QString UxImageLoader::diskCachePath() const
{
    return QDir(IMPlatform::instance()->temporaryPath()).filePath(QStringLiteral("images"));
}

#pragma once

#include <QImage>
#include <QUrl>
#include <QWidget>
#include <functional>

//! Options of `UxImageView::setImageWithURL`.
enum UxImageOptions : int {
    UxImageOptionNone = 0,
    UxImageOptionSetImageWithFadeAnimation = 4096, //!< fade the loaded image in
};

//! An image view with content modes, loading from a URL through a shared loader with a memory
//! cache bounded in bytes and a disk cache in the app's cache folder.
class UxImageView : public QWidget {
    Q_OBJECT
    Q_PROPERTY(ContentMode contentMode READ contentMode WRITE setContentMode)
    Q_PROPERTY(qreal cornerRadius READ cornerRadius WRITE setCornerRadius)
public:
    //! How the image fills the view.
    enum ContentMode { ScaleToFill, AspectFit, AspectFill, Center };
    Q_ENUM(ContentMode)
    //! Called once per URL request on the main thread: the image (null on failure) and whether it
    //! came from a cache. Not called for a request replaced by a newer one.
    using Completion = std::function<void(const QImage &image, bool fromCache)>;

    //! An empty view.
    explicit UxImageView(QWidget *parent = nullptr);
    ~UxImageView() override;
    //! The image shown (null for none).
    QImage image() const;
    //! Shows `image` (null clears), cancelling the delivery of a pending URL request.
    void setImage(const QImage &image);
    //! The content mode (default AspectFill).
    ContentMode contentMode() const;
    //! Sets the content mode.
    void setContentMode(ContentMode mode);
    //! Corner radius of the clip, in points (0: square; half the side: round).
    qreal cornerRadius() const;
    //! Sets the corner radius.
    void setCornerRadius(qreal radius);
    //! Shows `placeholder` and loads `url` (http(s) or file); a newer request for this view wins over
    //! an older one. An image that fails or is not an image leaves the placeholder and logs a line.
    void setImageWithURL(const QUrl &url, const QImage &placeholder = {}, int options = UxImageOptionNone,
        const Completion &completion = {});
    //! The URL of the latest request (empty after `setImage`).
    QUrl imageURL() const;
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    struct Private;
    Private *d;
};

//! The loader behind `UxImageView::setImageWithURL`, shared by the whole process.
class UxImageLoader : public QObject {
    Q_OBJECT
public:
    //! Called on the main thread with the decoded image (null on failure).
    using Callback = std::function<void(const QImage &image, bool fromCache)>;
    //! The process-wide loader.
    static UxImageLoader *shared();
    //! Loads `url` (memory cache, then disk cache, then network or file) and calls `callback` once;
    //! returns a ticket for `cancel`.
    quint64 load(const QUrl &url, const Callback &callback);
    //! Drops the delivery of `ticket` (its callback is never called).
    void cancel(quint64 ticket);
    //! Bytes the memory cache may hold (default 32 MiB).
    void setMemoryCacheLimit(qint64 bytes);
    //! Empties the memory cache (the disk cache stays).
    void clearMemory();
    //! Empties both caches.
    void clearAll();
    //! The folder of the disk cache.
    QString diskCachePath() const;

private:
    UxImageLoader();
    struct Private;
    Private *d;
};

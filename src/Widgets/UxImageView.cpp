#include "UxImageView.h"

#include <QPainter>
#include <QPainterPath>
#include <QPointer>

#include "IMAnimation.h"

struct UxImageView::Private {
    QImage image;
    ContentMode mode = AspectFill;
    qreal radius = 0;
    QUrl url;
    quint64 ticket = 0;
    // A large picture drawn small is scaled once and kept, not rescaled at every paint.
    QPixmap scaled;
    qint64 scaledKey = 0;
    QRectF scaledSource;
    QSize scaledSize;
};

UxImageView::UxImageView(QWidget *parent)
    : QWidget(parent)
    , d(new Private)
{
}

UxImageView::~UxImageView()
{
    if (d->ticket)
        UxImageLoader::shared()->cancel(d->ticket);
    delete d;
}

QImage UxImageView::image() const { return d->image; }

void UxImageView::setImage(const QImage &image)
{
    if (d->ticket) {
        UxImageLoader::shared()->cancel(d->ticket);
        d->ticket = 0;
    }
    d->url = QUrl();
    d->image = image;
    update();
}

UxImageView::ContentMode UxImageView::contentMode() const { return d->mode; }

void UxImageView::setContentMode(ContentMode mode)
{
    d->mode = mode;
    update();
}

qreal UxImageView::cornerRadius() const { return d->radius; }

void UxImageView::setCornerRadius(qreal radius)
{
    d->radius = qMax<qreal>(0, radius);
    update();
}

void UxImageView::setImageWithURL(const QUrl &url, const QImage &placeholder, int options, const Completion &completion)
{
    setImage(placeholder);
    d->url = url;
    if (url.isEmpty() || !url.isValid()) {
        if (completion)
            completion(QImage(), false);
        return;
    }
    QPointer<UxImageView> self(this);
    d->ticket = UxImageLoader::shared()->load(url, [self, options, completion](const QImage &image, bool fromCache) {
        if (!self)
            return;
        self->d->ticket = 0;
        if (!image.isNull()) {
            self->d->image = image;
            self->update();
            if ((options & UxImageOptionSetImageWithFadeAnimation) && !fromCache) {
                IMViewSetAlpha(self, 0);
                IMAnimate(0.2, [self] { IMViewSetAlpha(self, 1); });
            }
        }
        if (completion)
            completion(image, fromCache);
    });
}

QUrl UxImageView::imageURL() const { return d->url; }

QSize UxImageView::sizeHint() const
{
    return d->image.isNull() ? QSize(40, 40)
                             : (d->image.size() / d->image.devicePixelRatio()).boundedTo(QSize(400, 400));
}

void UxImageView::paintEvent(QPaintEvent *)
{
    if (d->image.isNull())
        return;
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF bounds = rect();
    if (d->radius > 0) {
        QPainterPath clip;
        clip.addRoundedRect(bounds, d->radius, d->radius);
        p.setClipPath(clip);
    }
    const QSizeF img = QSizeF(d->image.size()) / d->image.devicePixelRatio();
    QRectF target = bounds;
    QRectF source(QPointF(0, 0), QSizeF(d->image.size()));
    switch (d->mode) {
    case ScaleToFill:
        break;
    case AspectFit: {
        const QSizeF s = img.scaled(bounds.size(), Qt::KeepAspectRatio);
        target = QRectF(bounds.center() - QPointF(s.width() / 2, s.height() / 2), s);
        break;
    }
    case AspectFill: {
        // Crop the source to the view's aspect ratio, centred.
        const QSizeF s = bounds.size().scaled(QSizeF(d->image.size()), Qt::KeepAspectRatio);
        source = QRectF(QPointF((d->image.width() - s.width()) / 2, (d->image.height() - s.height()) / 2), s);
        break;
    }
    case Center:
        target = QRectF(bounds.center() - QPointF(img.width() / 2, img.height() / 2), img);
        break;
    }
    const qreal dpr = devicePixelRatioF();
    const QSize pixels = (target.size() * dpr).toSize();
    if (pixels.isEmpty() || source.width() < 1.5 * pixels.width() || source.height() < 1.5 * pixels.height()) {
        p.drawImage(target, d->image, source);
        return;
    }
    if (d->scaledKey != d->image.cacheKey() || d->scaledSource != source || d->scaledSize != pixels) {
        d->scaled = QPixmap::fromImage(
            d->image.copy(source.toAlignedRect()).scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
        d->scaled.setDevicePixelRatio(dpr);
        d->scaledKey = d->image.cacheKey();
        d->scaledSource = source;
        d->scaledSize = pixels;
    }
    p.drawPixmap(target.topLeft(), d->scaled);
}

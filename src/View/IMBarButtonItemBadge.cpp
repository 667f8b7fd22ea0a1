#include "IMBarButtonItemBadge.h"

#include <QEvent>
#include <QPointer>
#include <QWidget>

#include "IMAnimation.h"
#include "IMBarButtonItem.h"
#include "UxLabel.h"

namespace {
const char *kBadge = "UIBarButtonItem_badgeKey";
const char *kValue = "UIBarButtonItem_badgeValueKey";
const char *kBG = "UIBarButtonItem_badgeBGColorKey";
const char *kText = "UIBarButtonItem_badgeTextColorKey";
const char *kFont = "UIBarButtonItem_badgeFontKey";
const char *kPadding = "UIBarButtonItem_badgePaddingKey";
const char *kMinSize = "UIBarButtonItem_badgeMinSizeKey";
const char *kOriginX = "UIBarButtonItem_badgeOriginXKey";
const char *kOriginY = "UIBarButtonItem_badgeOriginYKey";
const char *kHideAtZero = "UIBarButtonItem_shouldHideBadgeAtZeroKey";
const char *kAnimate = "UIBarButtonItem_shouldAnimateBadgeKey";
const char *kBounces = "bounceAnimation";
const char *kHost = "_imBadgeHost";

// Stored as doubles, read back in single precision, as the values always were.
double number(const IMBarButtonItem *item, const char *key) { return double(float(item->property(key).toDouble())); }

// The badge lives over the host view; Qt clips children to their parent, so it hangs in the host's
// parent and follows the host, placed by origins relative to the host.
class HostFollower : public QObject {
public:
    HostFollower(IMBarButtonItem *item, QWidget *host, UxLabel *label)
        : QObject(label)
        , m_item(item)
        , m_host(host)
    {
        host->installEventFilter(this);
    }
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (m_item
            && (event->type() == QEvent::Move || event->type() == QEvent::Resize || event->type() == QEvent::Show))
            IMBarButtonItemBadge::updateBadgeFrame(m_item);
        return false;
    }

private:
    QPointer<IMBarButtonItem> m_item;
    QPointer<QWidget> m_host;
};

QWidget *hostOf(const IMBarButtonItem *item)
{
    return qobject_cast<QWidget *>(item->property(kHost).value<QObject *>());
}

void place(IMBarButtonItem *item, UxLabel *label, const QRectF &frame)
{
    QWidget *host = hostOf(item);
    QPointF origin = frame.topLeft();
    if (host && label->parentWidget() != host)
        origin = QPointF(host->pos()) + origin;
    IMViewSetGeometry(label, QRectF(origin, frame.size()).toRect());
}

void style(IMBarButtonItem *item, UxLabel *label, qreal radius)
{
    const QColor bg = IMBarButtonItemBadge::badgeBGColor(item);
    const QColor fg = IMBarButtonItemBadge::badgeTextColor(item);
    label->setStyleSheet(QStringLiteral("background: %1; color: %2; border-radius: %3px;")
                             .arg(bg.isValid() ? bg.name(QColor::HexArgb) : QStringLiteral("transparent"),
                                 fg.isValid() ? fg.name(QColor::HexArgb) : QStringLiteral("black"))
                             .arg(radius));
}
} // namespace

UxLabel *IMBarButtonItemBadge::badge(IMBarButtonItem *item)
{
    if (!item)
        return nullptr;
    if (auto *label = qobject_cast<UxLabel *>(item->property(kBadge).value<QObject *>()))
        return label;
    auto *label = new UxLabel;
    label->setObjectName(QStringLiteral("IMBarButtonItemBadge"));
    label->setGeometry(int(badgeOriginX(item)), int(badgeOriginY(item)), 20, 20);
    setBadge(item, label);
    badgeInit(item);
    label->setAlignment(Qt::AlignCenter);
    return label;
}

void IMBarButtonItemBadge::setBadge(IMBarButtonItem *item, UxLabel *label)
{
    if (item)
        item->setProperty(kBadge, label ? QVariant::fromValue<QObject *>(label) : QVariant());
}

QString IMBarButtonItemBadge::badgeValue(const IMBarButtonItem *item)
{
    const QVariant v = item->property(kValue);
    return v.isValid() ? v.toString() : QString();
}

void IMBarButtonItemBadge::setBadgeValue(IMBarButtonItem *item, const QString &value)
{
    item->setProperty(kValue, value.isNull() ? QVariant() : QVariant(value));
    updateBadgeValueAnimated(item, true);
    refreshBadge(item);
}

#define IM_BADGE_COLOUR(Getter, Setter, key)                                                                           \
    QColor IMBarButtonItemBadge::Getter(const IMBarButtonItem *item) { return item->property(key).value<QColor>(); }   \
    void IMBarButtonItemBadge::Setter(IMBarButtonItem *item, const QColor &c)                                          \
    {                                                                                                                  \
        item->setProperty(key, c);                                                                                     \
        if (badge(item))                                                                                               \
            refreshBadge(item);                                                                                        \
    }
IM_BADGE_COLOUR(badgeBGColor, setBadgeBGColor, kBG)
IM_BADGE_COLOUR(badgeTextColor, setBadgeTextColor, kText)

QFont IMBarButtonItemBadge::badgeFont(const IMBarButtonItem *item) { return item->property(kFont).value<QFont>(); }

void IMBarButtonItemBadge::setBadgeFont(IMBarButtonItem *item, const QFont &font)
{
    item->setProperty(kFont, font);
    if (badge(item))
        refreshBadge(item);
}

#define IM_BADGE_NUMBER(Getter, Setter, key)                                                                           \
    double IMBarButtonItemBadge::Getter(const IMBarButtonItem *item) { return number(item, key); }                     \
    void IMBarButtonItemBadge::Setter(IMBarButtonItem *item, double v)                                                 \
    {                                                                                                                  \
        item->setProperty(key, v);                                                                                     \
        if (badge(item))                                                                                               \
            updateBadgeFrame(item);                                                                                    \
    }
IM_BADGE_NUMBER(badgePadding, setBadgePadding, kPadding)
IM_BADGE_NUMBER(badgeMinSize, setBadgeMinSize, kMinSize)
IM_BADGE_NUMBER(badgeOriginX, setBadgeOriginX, kOriginX)
IM_BADGE_NUMBER(badgeOriginY, setBadgeOriginY, kOriginY)

#define IM_BADGE_SWITCH(Getter, Setter, key)                                                                           \
    bool IMBarButtonItemBadge::Getter(const IMBarButtonItem *item) { return item->property(key).toBool(); }            \
    void IMBarButtonItemBadge::Setter(IMBarButtonItem *item, bool v)                                                   \
    {                                                                                                                  \
        item->setProperty(key, v);                                                                                     \
        if (badge(item))                                                                                               \
            refreshBadge(item);                                                                                        \
    }
IM_BADGE_SWITCH(shouldHideBadgeAtZero, setShouldHideBadgeAtZero, kHideAtZero)
IM_BADGE_SWITCH(shouldAnimateBadge, setShouldAnimateBadge, kAnimate)

void IMBarButtonItemBadge::badgeInit(IMBarButtonItem *item)
{
    UxLabel *label = qobject_cast<UxLabel *>(item->property(kBadge).value<QObject *>());
    QWidget *host = nullptr;
    double originX = 0;
    if (QWidget *custom = item->customView()) {
        host = custom;
        originX = custom->width() - label->width() / 2.0;
    } else if (QWidget *view = item->view()) {
        // The whole label width here, half of it above: the two differ on purpose.
        host = view;
        originX = view->width() - label->width();
    }
    if (host) {
        item->setProperty(kHost, QVariant::fromValue<QObject *>(host));
        label->setParent(host->parentWidget() ? host->parentWidget() : host);
        new HostFollower(item, host, label);
        label->show();
        label->raise();
    }
    setBadgeBGColor(item, Qt::red);
    setBadgeTextColor(item, Qt::white);
    QFont font;
    font.setPixelSize(12);
    setBadgeFont(item, font);
    setBadgePadding(item, 6);
    setBadgeMinSize(item, 8);
    setBadgeOriginX(item, originX);
    setBadgeOriginY(item, -4);
    setShouldHideBadgeAtZero(item, true);
    setShouldAnimateBadge(item, true);
}

void IMBarButtonItemBadge::refreshBadge(IMBarButtonItem *item)
{
    UxLabel *label = badge(item);
    const QFont font = badgeFont(item);
    label->setFont(font);
    style(item, label, label->height() / 2.0);
    const QString value = badgeValue(item);
    if (value.isEmpty() || (value == QLatin1String("0") && shouldHideBadgeAtZero(item))) {
        label->hide();
    } else {
        label->show();
        label->raise();
        updateBadgeValueAnimated(item, true);
    }
}

QSizeF IMBarButtonItemBadge::badgeExpectedSize(IMBarButtonItem *item)
{
    UxLabel *copy = duplicateLabel(badge(item));
    copy->adjustSize();
    const QSizeF size = copy->size();
    delete copy;
    return size;
}

void IMBarButtonItemBadge::updateBadgeFrame(IMBarButtonItem *item)
{
    UxLabel *label = badge(item);
    const QSizeF size = badgeExpectedSize(item);
    const double minSize = badgeMinSize(item);
    const double padding = badgePadding(item);
    const double h = qMax<double>(size.height(), minSize);
    const double w = qMax<double>(size.width(), h);
    place(item, label, QRectF(badgeOriginX(item), badgeOriginY(item), w + padding, h + padding));
    style(item, label, (h + padding) / 2.0);
}

void IMBarButtonItemBadge::updateBadgeValueAnimated(IMBarButtonItem *item, bool animated)
{
    UxLabel *label = badge(item);
    const QString value = badgeValue(item);
    const bool bounce = animated && shouldAnimateBadge(item) && label->text() != value;
    label->setText(value);
    if (bounce) {
        item->setProperty(kBounces, item->property(kBounces).toInt() + 1);
        // A scale from 1.5 to 1 around the centre, as a geometry animation.
        updateBadgeFrame(item);
        const QRect final = label->geometry();
        const QRect big(final.center() - QPoint(final.width() * 3 / 4, final.height() * 3 / 4), final.size() * 1.5);
        label->setGeometry(big);
        IMAnimate(0.2, [label, final] { IMViewSetGeometry(label, final); });
        return;
    }
    if (animated && shouldAnimateBadge(item))
        IMAnimate(0.2, [item] { updateBadgeFrame(item); });
    else
        updateBadgeFrame(item);
}

UxLabel *IMBarButtonItemBadge::duplicateLabel(const UxLabel *label)
{
    auto *copy = new UxLabel;
    copy->setGeometry(label->geometry());
    copy->setText(label->text());
    copy->setFont(label->font());
    return copy;
}

void IMBarButtonItemBadge::removeBadge(IMBarButtonItem *item)
{
    UxLabel *label = qobject_cast<UxLabel *>(item->property(kBadge).value<QObject *>());
    if (!label)
        return;
    QPointer<UxLabel> guard(label);
    QPointer<IMBarButtonItem> owner(item);
    const QRect r = label->geometry();
    IMAnimate(
        0.2, [label, r] { IMViewSetGeometry(label, QRect(r.center(), QSize(0, 0))); },
        [guard, owner](bool) {
            if (guard)
                guard->deleteLater();
            if (owner)
                setBadge(owner, nullptr);
        });
}

int IMBarButtonItemBadge::bounceCount(const IMBarButtonItem *item) { return item->property(kBounces).toInt(); }

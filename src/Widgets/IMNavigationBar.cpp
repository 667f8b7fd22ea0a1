#include "IMNavigationBar.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QResizeEvent>
#include <QToolButton>

#include "IMBarButtonItem.h"
#include "IMNavigationItem.h"

namespace {
const QColor kDefaultTint(0, 122, 255);
const int kBarHeight = 44;
const int kSideMargin = 8;

QIcon chevron(const QColor &color)
{
    const qreal dpr = 2.0;
    QImage img(QSize(14, 24) * dpr, QImage::Format_ARGB32_Premultiplied);
    img.setDevicePixelRatio(dpr);
    img.fill(Qt::transparent);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    QPen pen(color, 2.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    QPainterPath path;
    path.moveTo(11, 3);
    path.lineTo(3, 12);
    path.lineTo(11, 21);
    p.drawPath(path);
    p.end();
    return QIcon(QPixmap::fromImage(img));
}
} // namespace

IMNavigationBar::IMNavigationBar(QWidget *parent)
    : QWidget(parent)
    , m_tint(kDefaultTint)
{
    setObjectName(QStringLiteral("IMNavigationBar"));
    setAttribute(Qt::WA_StyledBackground, false);
    setFixedHeight(kBarHeight);
    m_titleLabel = new QLabel(this);
    m_titleLabel->setObjectName(QStringLiteral("IMNavigationBarTitle"));
    m_titleLabel->setAlignment(Qt::AlignCenter);
    QFont f = m_titleLabel->font();
    f.setPointSizeF(f.pointSizeF() * 1.15);
    f.setBold(true);
    m_titleLabel->setFont(f);
}

QColor IMNavigationBar::barTintColor() const { return m_barTint; }
QColor IMNavigationBar::tintColor() const { return m_tint; }
int IMNavigationBar::barStyle() const { return m_barStyle; }
IMNavigationItem *IMNavigationBar::topItem() const { return m_item; }
QWidget *IMNavigationBar::backButton() const { return m_backButton; }

void IMNavigationBar::setBarTintColor(const QColor &color)
{
    m_barTint = color;
    rebuild();
    update();
}

void IMNavigationBar::setTintColor(const QColor &color)
{
    m_tint = color.isValid() ? color : kDefaultTint;
    rebuild();
}

void IMNavigationBar::setBarStyle(int style)
{
    m_barStyle = style;
    rebuild();
    update();
}

void IMNavigationBar::setItems(IMNavigationItem *item, IMNavigationItem *backItem)
{
    if (m_item)
        disconnect(m_item, nullptr, this, nullptr);
    if (m_backItem)
        disconnect(m_backItem, nullptr, this, nullptr);
    m_item = item;
    m_backItem = backItem;
    if (m_item)
        connect(m_item, &IMNavigationItem::changed, this, &IMNavigationBar::rebuild);
    if (m_backItem)
        connect(m_backItem, &IMNavigationItem::changed, this, &IMNavigationBar::rebuild);
    rebuild();
}

QSize IMNavigationBar::sizeHint() const { return QSize(320, kBarHeight); }

// Shows the widgets of the current item: back button and left item at the left, right item at the
// right, the title (or title view) centred over the whole bar when it fits between them.
void IMNavigationBar::rebuild()
{
    // Widgets of items no longer shown stay with their items; hide every child first.
    for (QObject *child : children()) {
        if (auto *w = qobject_cast<QWidget *>(child); w && w != m_titleLabel)
            w->hide();
    }
    if (m_backButton) {
        m_backButton->deleteLater();
        m_backButton = nullptr;
    }
    const bool dark = m_barStyle == BarStyleBlack || (m_barTint.isValid() && m_barTint.lightnessF() < 0.45);
    QList<QWidget *> left, right;
    if (m_item && m_backItem && !m_item->hidesBackButton() && !m_item->leftBarButtonItem()) {
        auto *back = new QToolButton(this);
        back->setObjectName(QStringLiteral("IMNavigationBarBackButton"));
        back->setAutoRaise(true);
        back->setCursor(Qt::PointingHandCursor);
        back->setIcon(chevron(m_tint));
        back->setIconSize(QSize(14, 24));
        IMBarButtonItem *copy = m_backItem->backBarButtonItem();
        const QString text = copy ? copy->title() : m_backItem->title();
        back->setText(text);
        back->setToolButtonStyle(text.isEmpty() ? Qt::ToolButtonIconOnly : Qt::ToolButtonTextBesideIcon);
        back->setStyleSheet(
            QStringLiteral("QToolButton { border: none; padding: 2px 4px; color: %1; background: transparent; }")
                .arg(m_tint.name()));
        connect(back, &QToolButton::clicked, this, &IMNavigationBar::backRequested);
        m_backButton = back;
        left << back;
    }
    auto place = [this](IMBarButtonItem *item, QList<QWidget *> &side) {
        if (!item)
            return;
        item->applyBarTint(m_tint);
        QWidget *w = item->view();
        if (w->parentWidget() != this)
            w->setParent(this);
        side << w;
    };
    if (m_item) {
        place(m_item->leftBarButtonItem(), left);
        place(m_item->rightBarButtonItem(), right);
    }

    QWidget *titleWidget = m_titleLabel;
    m_titleLabel->setText(m_item ? m_item->title() : QString());
    m_titleLabel->setStyleSheet(QStringLiteral("color: %1; background: transparent;")
                                    .arg(dark ? QStringLiteral("#ffffff") : QStringLiteral("#111111")));
    if (m_item && m_item->titleView()) {
        m_titleLabel->hide();
        titleWidget = m_item->titleView();
        if (titleWidget->parentWidget() != this)
            titleWidget->setParent(this);
    }

    // Lay out by hand: the title is centred on the bar, as users expect, not between the buttons.
    int x = kSideMargin;
    for (QWidget *w : left) {
        const QSize s = w->sizeHint();
        w->setGeometry(x, (height() - s.height()) / 2, s.width(), s.height());
        w->show();
        x += s.width() + 4;
    }
    int r = width() - kSideMargin;
    for (QWidget *w : right) {
        const QSize s = w->sizeHint();
        r -= s.width();
        w->setGeometry(r, (height() - s.height()) / 2, s.width(), s.height());
        w->show();
        r -= 4;
    }
    const int room = qMax(0, qMin(width() / 2 - x, r - width() / 2));
    int tw = qMin(titleWidget->sizeHint().width(), 2 * room);
    if (tw <= 0)
        tw = qMax(0, r - x);
    const int th = qMin(height(), qMax(titleWidget->sizeHint().height(), 20));
    int tx = (width() - tw) / 2;
    if (tx < x)
        tx = x;
    titleWidget->setGeometry(tx, (height() - th) / 2, qMin(tw, qMax(0, r - tx)), th);
    titleWidget->show();
    titleWidget->raise();
}

void IMNavigationBar::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    rebuild();
}

void IMNavigationBar::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    QColor bg = m_barTint;
    if (!bg.isValid())
        bg = m_barStyle == BarStyleBlack ? QColor(28, 28, 30) : QColor(248, 248, 250);
    p.fillRect(rect(), bg);
    // A hairline under the bar, as on a phone.
    p.fillRect(QRect(0, height() - 1, width(), 1), bg.lightnessF() < 0.45 ? bg.darker(130) : QColor(0, 0, 0, 40));
}

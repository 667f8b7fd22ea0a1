#include "IMBubbleView.h"

#include <QPainter>
#include <QPainterPath>

IMBubbleView::IMBubbleView(QWidget *parent)
    : QWidget(parent)
{
}

bool IMBubbleView::positionLeft() const { return m_left; }

void IMBubbleView::setPositionLeft(bool left)
{
    m_left = left;
    update();
}

QColor IMBubbleView::bubbleColor() const { return m_color; }

void IMBubbleView::setBubbleColor(const QColor &color)
{
    m_color = color;
    update();
}

QPainterPath IMBubbleView::bubblePath(const QRectF &r, bool left)
{
    const qreal k = qMin<qreal>(15, qMin(r.width(), r.height()) / 2);
    // Clockwise from the top-left corner; the tail corner stays square.
    QPainterPath path;
    const bool roundTopLeft = !left;
    const bool roundBottomRight = left;
    path.moveTo(r.left() + (roundTopLeft ? k : 0), r.top());
    path.lineTo(r.right() - k, r.top());
    path.arcTo(QRectF(r.right() - 2 * k, r.top(), 2 * k, 2 * k), 90, -90);
    if (roundBottomRight) {
        path.lineTo(r.right(), r.bottom() - k);
        path.arcTo(QRectF(r.right() - 2 * k, r.bottom() - 2 * k, 2 * k, 2 * k), 0, -90);
    } else {
        path.lineTo(r.right(), r.bottom());
    }
    path.lineTo(r.left() + k, r.bottom());
    path.arcTo(QRectF(r.left(), r.bottom() - 2 * k, 2 * k, 2 * k), 270, -90);
    if (roundTopLeft) {
        path.lineTo(r.left(), r.top() + k);
        path.arcTo(QRectF(r.left(), r.top(), 2 * k, 2 * k), 180, -90);
    } else {
        path.lineTo(r.left(), r.top());
    }
    path.closeSubpath();
    return path;
}

void IMBubbleView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.fillPath(bubblePath(rect(), m_left), m_color);
}

void IMBubbleView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    update();
}

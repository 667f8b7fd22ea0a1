#include "IMActivityIndicator.h"

#include <QPainter>
#include <QTimerEvent>

IMActivityIndicator::IMActivityIndicator(QWidget *parent)
    : QWidget(parent)
    , m_color(142, 142, 147)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    hide();
}

void IMActivityIndicator::startAnimating()
{
    if (!m_timer)
        m_timer = startTimer(80);
    show();
}

void IMActivityIndicator::stopAnimating()
{
    if (m_timer)
        killTimer(m_timer);
    m_timer = 0;
    hide();
}

bool IMActivityIndicator::isAnimating() const { return m_timer != 0; }

void IMActivityIndicator::setColor(const QColor &color)
{
    m_color = color;
    update();
}

QSize IMActivityIndicator::sizeHint() const { return QSize(20, 20); }

void IMActivityIndicator::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal side = qMin(width(), height());
    p.translate(width() / 2.0, height() / 2.0);
    const int spokes = 12;
    for (int i = 0; i < spokes; ++i) {
        QColor c = m_color;
        c.setAlphaF(0.15 + 0.85 * ((i + spokes - m_step) % spokes) / qreal(spokes));
        p.setPen(QPen(c, side / 10.0, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(0, -side * 0.22), QPointF(0, -side * 0.42));
        p.rotate(360.0 / spokes);
    }
}

void IMActivityIndicator::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == m_timer) {
        m_step = (m_step + 1) % 12;
        update();
    }
}

// The screenshots' stand-in photos: a letter painted on a colour.
#include <QPainter>

#include "Screenshots.h"

QImage parloLetterImage(const QColor &color, const QString &letter)
{
    QImage img(120, 120, QImage::Format_ARGB32_Premultiplied);
    img.fill(color);
    QPainter p(&img);
    p.setPen(Qt::white);
    QFont f;
    f.setPixelSize(54);
    f.setBold(true);
    p.setFont(f);
    p.drawText(img.rect(), Qt::AlignCenter, letter);
    return img;
}

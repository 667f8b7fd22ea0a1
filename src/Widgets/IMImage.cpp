#include "IMImage.h"

#include <QFile>
#include <QHash>
#include <QPainter>
#include <QPainterPath>

namespace {
const qreal kScale = 2.0; // painted at 2x so they stay crisp on dense screens

QImage canvas(int w, int h)
{
    QImage img(QSize(w, h) * kScale, QImage::Format_ARGB32_Premultiplied);
    img.setDevicePixelRatio(kScale);
    img.fill(Qt::transparent);
    return img;
}

QImage paintDefault(const QString &name)
{
    if (name == QLatin1String("expand_arrow")) {
        QImage img = canvas(24, 24);
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(QColor(60, 60, 67), 2.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(QPolygonF({QPointF(5, 9), QPointF(12, 16), QPointF(19, 9)}));
        return img;
    }
    if (name == QLatin1String("placeholder")) {
        QImage img = canvas(60, 60);
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(209, 213, 219));
        p.drawEllipse(QRectF(0, 0, 60, 60));
        p.setBrush(QColor(243, 244, 246));
        p.drawEllipse(QRectF(20, 12, 20, 20));
        QPainterPath body;
        body.addEllipse(QRectF(10, 36, 40, 34));
        QPainterPath clip;
        clip.addEllipse(QRectF(0, 0, 60, 60));
        p.drawPath(body.intersected(clip));
        return img;
    }
    if (name == QLatin1String("camera")) {
        QImage img = canvas(28, 24);
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(QColor(60, 60, 67), 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        QPainterPath body;
        body.addRoundedRect(QRectF(2, 6, 24, 16), 3, 3);
        p.drawPath(body);
        p.drawLine(QPointF(9, 6), QPointF(11, 3));
        p.drawLine(QPointF(11, 3), QPointF(17, 3));
        p.drawLine(QPointF(17, 3), QPointF(19, 6));
        p.drawEllipse(QPointF(14, 14), 4.5, 4.5);
        return img;
    }
    if (name == QLatin1String("Combined Shape")) {
        QImage img = canvas(28, 26);
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(60, 60, 67));
        QPainterPath bubble;
        bubble.addRoundedRect(QRectF(1, 1, 26, 19), 9, 9);
        QPainterPath tail;
        tail.moveTo(7, 17);
        tail.lineTo(5, 25);
        tail.lineTo(14, 18);
        tail.closeSubpath();
        p.drawPath(bubble.united(tail));
        return img;
    }
    return QImage();
}
} // namespace

QImage IMImage::named(const QString &name)
{
    const QString host = QStringLiteral(":/ParloSDK/images/%1.png").arg(name);
    if (QFile::exists(host)) {
        QImage img(host);
        if (!img.isNull())
            return img;
    }
    // Painted once, then kept (main thread; images are shared copy-on-write).
    static QHash<QString, QImage> defaults;
    auto it = defaults.find(name);
    if (it == defaults.end())
        it = defaults.insert(name, paintDefault(name));
    return it.value();
}

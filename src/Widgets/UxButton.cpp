#include "UxButton.h"

#include <QPainter>

UxButton::UxButton(QWidget *parent)
    : QPushButton(parent)
{
    setFlat(true);
    setCursor(Qt::PointingHandCursor);
}

UxButton::UxButton(const QString &title, QWidget *parent)
    : QPushButton(title, parent)
{
    setFlat(true);
    setCursor(Qt::PointingHandCursor);
}

QColor UxButton::tintColor() const { return m_tint; }

void UxButton::setTintColor(const QColor &color)
{
    m_tint = color;
    QPalette pal = palette();
    const QColor text = color.isValid() ? color : QPalette().color(QPalette::ButtonText);
    pal.setColor(QPalette::ButtonText, text);
    setPalette(pal);
    if (!m_image.isNull())
        setImage(m_image);
}

void UxButton::setImage(const QImage &image)
{
    m_image = image;
    if (image.isNull()) {
        setIcon(QIcon());
        return;
    }
    QImage out = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (m_tint.isValid()) {
        // A monochrome glyph takes the tint; its alpha keeps the shape.
        QPainter p(&out);
        p.setCompositionMode(QPainter::CompositionMode_SourceIn);
        p.fillRect(out.rect(), m_tint);
    }
    setIcon(QIcon(QPixmap::fromImage(out)));
}

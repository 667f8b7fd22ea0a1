#include "UxLabel.h"

UxLabel::UxLabel(QWidget *parent)
    : QLabel(parent)
{
}

UxLabel::UxLabel(const QString &text, QWidget *parent)
    : QLabel(text, parent)
{
}

QColor UxLabel::textColor() const { return property("_uxTextColor").value<QColor>(); }

void UxLabel::setTextColor(const QColor &color)
{
    setProperty("_uxTextColor", color);
    QPalette pal = palette();
    pal.setColor(QPalette::WindowText, color.isValid() ? color : QPalette().color(QPalette::WindowText));
    setPalette(pal);
}

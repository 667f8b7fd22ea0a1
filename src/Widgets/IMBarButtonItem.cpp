#include "IMBarButtonItem.h"

#include <QPainter>
#include <QToolButton>

namespace {
// A monochrome glyph takes the tint colour; the image's alpha keeps its shape.
QIcon tinted(const QImage &image, const QColor &color)
{
    if (image.isNull())
        return QIcon();
    if (!color.isValid())
        return QIcon(QPixmap::fromImage(image));
    QImage out = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QPainter p(&out);
    p.setCompositionMode(QPainter::CompositionMode_SourceIn);
    p.fillRect(out.rect(), color);
    p.end();
    return QIcon(QPixmap::fromImage(out));
}
} // namespace

IMBarButtonItem::IMBarButtonItem(const QString &title, Style style, const Action &action, QObject *parent)
    : QObject(parent)
    , m_title(title)
    , m_style(style)
    , m_action(action)
{
}

IMBarButtonItem::IMBarButtonItem(const QImage &image, Style style, const Action &action, QObject *parent)
    : QObject(parent)
    , m_image(image)
    , m_style(style)
    , m_action(action)
{
}

IMBarButtonItem::IMBarButtonItem(QWidget *customView, QObject *parent)
    : QObject(parent)
    , m_customView(customView)
{
}

IMBarButtonItem::~IMBarButtonItem()
{
    // The item owns its widget, wherever the bar put it.
    delete m_button.data();
    delete m_customView.data();
}

QString IMBarButtonItem::title() const { return m_title; }
QImage IMBarButtonItem::image() const { return m_image; }
IMBarButtonItem::Style IMBarButtonItem::style() const { return m_style; }
bool IMBarButtonItem::hasAction() const { return bool(m_action); }
QColor IMBarButtonItem::tintColor() const { return m_tint; }
bool IMBarButtonItem::isEnabled() const { return m_enabled; }
QWidget *IMBarButtonItem::customView() const { return m_customView; }

void IMBarButtonItem::setTitle(const QString &title)
{
    m_title = title;
    emit changed();
}

void IMBarButtonItem::setImage(const QImage &image)
{
    m_image = image;
    emit changed();
}

void IMBarButtonItem::setStyle(Style style)
{
    m_style = style;
    emit changed();
}

void IMBarButtonItem::setAction(const Action &action) { m_action = action; }

void IMBarButtonItem::setTintColor(const QColor &color)
{
    m_tint = color;
    emit changed();
}

void IMBarButtonItem::setEnabled(bool enabled)
{
    m_enabled = enabled;
    if (m_customView)
        m_customView->setEnabled(enabled);
    emit changed();
}

QWidget *IMBarButtonItem::view()
{
    if (m_customView)
        return m_customView;
    if (!m_button) {
        auto *button = new QToolButton;
        button->setObjectName(QStringLiteral("IMBarButtonItemButton"));
        button->setAutoRaise(true);
        button->setCursor(Qt::PointingHandCursor);
        button->setToolButtonStyle(Qt::ToolButtonTextOnly);
        button->setIconSize(QSize(22, 22));
        connect(button, &QToolButton::clicked, this, &IMBarButtonItem::trigger);
        m_button = button;
        auto apply = [this] {
            auto *b = static_cast<QToolButton *>(m_button.data());
            if (!b)
                return;
            const QColor tint = m_tint.isValid() ? m_tint : m_barTint;
            b->setText(m_title);
            b->setIcon(tinted(m_image, tint));
            b->setToolButtonStyle(m_image.isNull() ? Qt::ToolButtonTextOnly : Qt::ToolButtonIconOnly);
            b->setEnabled(m_enabled);
            QFont f = b->font();
            f.setPointSizeF(12.5);
            f.setBold(m_style == Done);
            b->setFont(f);
            b->setStyleSheet(
                QStringLiteral("QToolButton { border: none; padding: 4px 6px; color: %1; background: transparent; }"
                               "QToolButton:pressed { color: %2; }"
                               "QToolButton:disabled { color: rgba(128,128,128,0.6); }")
                    .arg(tint.isValid() ? tint.name(QColor::HexArgb) : QStringLiteral("#007aff"),
                        (tint.isValid() ? tint : QColor(0, 122, 255)).lighter(150).name()));
        };
        connect(this, &IMBarButtonItem::changed, button, apply);
        m_apply = apply;
        apply();
    }
    return m_button;
}

void IMBarButtonItem::applyBarTint(const QColor &color)
{
    m_barTint = color;
    if (m_apply)
        m_apply();
}

void IMBarButtonItem::trigger()
{
    if (!m_enabled)
        return;
    if (m_action)
        m_action();
    emit triggered();
}

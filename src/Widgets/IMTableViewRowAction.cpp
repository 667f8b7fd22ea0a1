#include "IMTableViewRowAction.h"

IMTableViewRowAction::IMTableViewRowAction(Style style, const QString &title, const Handler &handler, QObject *parent)
    : QObject(parent)
    , m_style(style)
    , m_title(title)
    , m_handler(handler)
{
}

IMTableViewRowAction::Style IMTableViewRowAction::style() const { return m_style; }
QString IMTableViewRowAction::title() const { return m_title; }

QColor IMTableViewRowAction::backgroundColor() const
{
    if (m_color.isValid())
        return m_color;
    return m_style == Default ? QColor(255, 59, 48) : QColor(142, 142, 147);
}

void IMTableViewRowAction::setBackgroundColor(const QColor &color) { m_color = color; }

void IMTableViewRowAction::trigger(const IMIndexPath &indexPath)
{
    if (m_handler)
        m_handler(this, indexPath);
}

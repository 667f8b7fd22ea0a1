#include "IMNavigationItem.h"

#include "IMBarButtonItem.h"

IMNavigationItem::IMNavigationItem(QObject *parent)
    : QObject(parent)
{
}

IMNavigationItem::~IMNavigationItem()
{
    // The title view is the item's, wherever the bar put it.
    delete m_titleView.data();
}

QString IMNavigationItem::title() const { return m_title; }
QWidget *IMNavigationItem::titleView() const { return m_titleView; }
IMBarButtonItem *IMNavigationItem::leftBarButtonItem() const { return m_left; }
IMBarButtonItem *IMNavigationItem::rightBarButtonItem() const { return m_right; }
IMBarButtonItem *IMNavigationItem::backBarButtonItem() const { return m_back; }
bool IMNavigationItem::hidesBackButton() const { return m_hidesBack; }

void IMNavigationItem::setTitle(const QString &title)
{
    if (title == m_title)
        return;
    m_title = title;
    emit changed();
}

void IMNavigationItem::setTitleView(QWidget *view)
{
    if (view == m_titleView)
        return;
    // The replaced title view is no longer shown by anyone.
    if (m_titleView && m_titleView != view)
        m_titleView->deleteLater();
    m_titleView = view;
    emit changed();
}

namespace {
void adopt(IMNavigationItem *owner, QPointer<IMBarButtonItem> &slot, IMBarButtonItem *item)
{
    if (slot == item)
        return;
    if (slot && slot->parent() == owner)
        slot->deleteLater();
    if (item)
        item->setParent(owner);
    slot = item;
}
} // namespace

void IMNavigationItem::setLeftBarButtonItem(IMBarButtonItem *item)
{
    adopt(this, m_left, item);
    if (item)
        connect(item, &IMBarButtonItem::changed, this, &IMNavigationItem::changed, Qt::UniqueConnection);
    emit changed();
}

void IMNavigationItem::setRightBarButtonItem(IMBarButtonItem *item)
{
    adopt(this, m_right, item);
    if (item)
        connect(item, &IMBarButtonItem::changed, this, &IMNavigationItem::changed, Qt::UniqueConnection);
    emit changed();
}

void IMNavigationItem::setBackBarButtonItem(IMBarButtonItem *item)
{
    adopt(this, m_back, item);
    emit changed();
}

void IMNavigationItem::setHidesBackButton(bool hides)
{
    m_hidesBack = hides;
    emit changed();
}

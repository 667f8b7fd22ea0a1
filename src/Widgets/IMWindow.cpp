#include "IMWindow.h"

#include <QApplication>

#include "IMUIViewController.h"

namespace {
QList<QPointer<IMWindow>> &allWindows()
{
    static QList<QPointer<IMWindow>> windows;
    return windows;
}
} // namespace

IMWindow::IMWindow(QWidget *parent)
    : QWidget(parent)
{
    allWindows().append(this);
}

IMWindow::~IMWindow()
{
    allWindows().removeAll(this);
    allWindows().removeAll(nullptr);
}

IMUIViewController *IMWindow::rootViewController() const { return m_root; }

void IMWindow::setRootViewController(IMUIViewController *vc)
{
    if (vc == m_root)
        return;
    if (m_root)
        m_root->hide();
    m_root = vc;
    if (!vc)
        return;
    vc->setParent(this);
    vc->setGeometry(rect());
    vc->loadViewIfNeeded();
    vc->show();
    vc->raise();
}

QList<IMWindow *> IMWindow::windows()
{
    QList<IMWindow *> out;
    for (const auto &w : allWindows())
        if (w)
            out << w;
    return out;
}

QWidget *IMWindow::firstWindow()
{
    const QList<IMWindow *> windows = IMWindow::windows();
    if (!windows.isEmpty())
        return windows.first();
    if (QWidget *active = QApplication::activeWindow())
        return active;
    for (QWidget *w : QApplication::topLevelWidgets())
        if (w->isVisible())
            return w;
    return nullptr;
}

void IMWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (m_root)
        m_root->setGeometry(rect());
}

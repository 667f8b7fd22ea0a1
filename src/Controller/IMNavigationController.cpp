#include "IMNavigationController.h"

#include "IMNavigationBar.h"

IMNavigationController::IMNavigationController(IMUIViewController *root, QWidget *parent)
    : IMUINavigationController(root, parent)
{
}

bool IMNavigationController::UIStatusBarStyleLight() const { return m_light; }
void IMNavigationController::setUIStatusBarStyleLight(bool light) { m_light = light; }
QColor IMNavigationController::barTintColor() const { return m_barTint; }
void IMNavigationController::setBarTintColor(const QColor &color) { m_barTint = color; }
QColor IMNavigationController::tintColor() const { return m_tint; }
void IMNavigationController::setTintColor(const QColor &color) { m_tint = color; }

void IMNavigationController::setUp()
{
    if (m_barTint.isValid())
        navigationBar()->setBarTintColor(m_barTint);
    if (m_tint.isValid())
        navigationBar()->setTintColor(m_tint);
}

void IMNavigationController::prepareForInterfaceBuilder() { setUp(); }

IMStatusBarStyle IMNavigationController::preferredStatusBarStyle() const
{
    return m_light ? IMStatusBarStyleLightContent : IMStatusBarStyleDefault;
}

void IMNavigationController::viewDidLoad()
{
    IMUINavigationController::viewDidLoad();
    setUp();
}

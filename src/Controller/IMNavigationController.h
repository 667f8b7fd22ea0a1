#pragma once

#include <QColor>

#include "IMUINavigationController.h"

//! Status-bar styles.
enum IMStatusBarStyle { IMStatusBarStyleDefault = 0, IMStatusBarStyleLightContent = 1 };

//! The kit's navigation controller: bar colours and status-bar style set as properties (from Designer
//! or code) and applied to the bar when it loads.
class IMNavigationController : public IMUINavigationController {
    Q_OBJECT
    Q_PROPERTY(bool UIStatusBarStyleLight READ UIStatusBarStyleLight WRITE setUIStatusBarStyleLight)
    Q_PROPERTY(QColor barTintColor READ barTintColor WRITE setBarTintColor)
    Q_PROPERTY(QColor tintColor READ tintColor WRITE setTintColor)
public:
    //! A stack holding `root` (may be null).
    explicit IMNavigationController(IMUIViewController *root = nullptr, QWidget *parent = nullptr);
    //! Whether the status bar uses the light-content style.
    bool UIStatusBarStyleLight() const;
    //! Sets the light-content status-bar style.
    void setUIStatusBarStyleLight(bool light);
    //! The colour for the bar's background (invalid: none, the bar keeps its own).
    QColor barTintColor() const;
    //! Sets the colour for the bar's background (applied by `setUp`).
    void setBarTintColor(const QColor &color);
    //! The colour for the bar's buttons and titles (invalid: none).
    QColor tintColor() const;
    //! Sets the colour for the bar's buttons and titles (applied by `setUp`).
    void setTintColor(const QColor &color);
    //! Copies the set colours to the bar; unset ones leave the bar's values alone.
    void setUp();
    //! Designer preview hook: runs `setUp`.
    void prepareForInterfaceBuilder();
    //! Light content when `UIStatusBarStyleLight`, else the default style.
    IMStatusBarStyle preferredStatusBarStyle() const;

protected:
    void viewDidLoad() override;

private:
    bool m_light = false;
    QColor m_barTint;
    QColor m_tint;
};

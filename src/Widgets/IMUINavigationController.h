#pragma once

#include <QList>

#include "IMUIViewController.h"

class IMNavigationBar;

//! The toolkit's navigation controller: a navigation bar over a stack of screens. It owns the screens
//! in its stack; a popped screen is deleted later.
class IMUINavigationController : public IMUIViewController {
    Q_OBJECT
public:
    //! A stack holding `root` (may be null).
    explicit IMUINavigationController(IMUIViewController *root = nullptr, QWidget *parent = nullptr);
    ~IMUINavigationController() override;

    //! Pushes `viewController` (sliding in from the right when animated).
    void pushViewController(IMUIViewController *viewController, bool animated);
    //! Pops the top screen (never the root); returns it (deleted later), or null.
    IMUIViewController *popViewControllerAnimated(bool animated);
    //! Pops to the root screen.
    void popToRootViewControllerAnimated(bool animated);
    //! Shows `viewController` in place of the stack's top (pushes it).
    void showDetailViewController(IMUIViewController *viewController, bool animated);
    //! The stack, root first.
    QList<IMUIViewController *> viewControllers() const;
    //! Replaces the stack.
    void setViewControllers(const QList<IMUIViewController *> &viewControllers, bool animated = false);
    //! The screen on top, or null.
    IMUIViewController *topViewController() const;
    //! The bar.
    IMNavigationBar *navigationBar() const;
    //! Whether the bar is hidden.
    bool isNavigationBarHidden() const;
    //! Hides or shows the bar.
    void setNavigationBarHidden(bool hidden);

protected:
    void viewWillAppear(bool animated) override;
    void viewDidDisappear(bool animated) override;

private:
    void showTop(IMUIViewController *old, bool animated, bool forward);
    struct Private;
    Private *n;
};

#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>
#include <functional>

class IMNavigationItem;
class IMUINavigationController;

//! The toolkit's view controller: a screen widget with a load-once hook, appearance hooks driven by
//! its container (or by show/hide when shown on its own), a navigation item, modal presentation over
//! its window, and segues for embedded screens.
class IMUIViewController : public QWidget {
    Q_OBJECT
public:
    //! An unloaded screen.
    explicit IMUIViewController(QWidget *parent = nullptr);
    ~IMUIViewController() override;

    //! Loads the screen now when not yet loaded: `loadView`, then `viewDidLoad`, once.
    void loadViewIfNeeded();
    //! Whether `viewDidLoad` ran.
    bool isViewLoaded() const;

    //! The screen's title (the navigation item's).
    QString title() const;
    //! Sets the screen's title (and the navigation item's).
    virtual void setTitle(const QString &title);
    //! What the navigation bar shows for this screen (created on first call, owned by the screen).
    IMNavigationItem *navigationItem();
    //! The navigation controller whose stack holds this screen, or null.
    IMUINavigationController *navigationController() const;

    //! Presents `viewController` over this screen's window, filling it (sliding up when animated);
    //! the window takes it. `completion` runs once (posted) when it is on screen.
    void presentViewController(
        IMUIViewController *viewController, bool animated, const std::function<void()> &completion = {});
    //! Dismisses the screen this one presented (or this one, when it was presented); the dismissed
    //! screen is deleted later. `completion` runs once (posted) when it is gone.
    void dismissViewControllerAnimated(bool animated, const std::function<void()> &completion = {});
    //! The screen this one presents, or null.
    IMUIViewController *presentedViewController() const;
    //! The screen that presented this one (or its container's), or null.
    IMUIViewController *presentingViewController() const;

    //! Embeds `child` into `container` (a widget of this screen) filling it, and calls
    //! `prepareForSegue(identifier, child)` first, as an embedding segue does.
    void embedViewController(const QString &identifier, IMUIViewController *child, QWidget *container);
    //! Hook: a segue to `destination` is about to run. The base does nothing.
    virtual void prepareForSegue(const QString &identifier, IMUIViewController *destination);
    //! Ends text editing in the screen (takes the focus away from any input).
    void endEditing();

    //! Appearance state driving the hooks: called by containers; repeated calls do nothing.
    void setAppearing(bool appearing, bool animated);
    //! Whether the screen is between `viewDidAppear` and `viewWillDisappear`.
    bool isAppeared() const;

protected:
    //! Hook: builds the screen's widgets (a Designer layout's `setupUi(this)`). The base does nothing.
    virtual void loadView();
    //! Hook: once, after `loadView`, before the screen first shows.
    virtual void viewDidLoad();
    //! Hook: the screen is about to come on screen.
    virtual void viewWillAppear(bool animated);
    //! Hook: the screen came on screen.
    virtual void viewDidAppear(bool animated);
    //! Hook: the screen is about to go off screen.
    virtual void viewWillDisappear(bool animated);
    //! Hook: the screen went off screen.
    virtual void viewDidDisappear(bool animated);

    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    friend class IMUINavigationController;
    struct Private;
    Private *d;
};

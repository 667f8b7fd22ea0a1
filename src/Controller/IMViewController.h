#pragma once

#include <QPointer>
#include <QRect>

#include "IMNotificationCenter.h"
#include "IMUIViewController.h"

class IMTableView;

//! The base of the kit's screens: an empty table footer, a bare back arrow for the next screen, the
//! title drawn in the bar's tint colour, and a keyboard hook.
class IMViewController : public IMUIViewController {
    Q_OBJECT
public:
    //! An unloaded screen.
    explicit IMViewController(QWidget *parent = nullptr);
    ~IMViewController() override;

    //! The screen's table (set from its layout; may be null).
    IMTableView *tableview() const;
    //! Sets the screen's table.
    void setTableview(IMTableView *tableView);

    //! Sets a non-empty `title` as the screen's title; then, inside a navigation controller, shows the
    //! navigation item's title as a label in the bar's tint colour (an empty or null `title` only
    //! re-styles the current one).
    void setNavigationBarTitle(const QString &title);
    //! Reads "frameEnd" and "duration" (as a float) from a keyboard notification and calls
    //! `keyboardWillChangeToFrame`.
    void keyboardChangeFrame(const IMNotification &notification);
    //! Hook: the keyboard will move to `frame` (window coordinates) over `duration` seconds. The base does
    //! nothing. It may run while the screen is off screen, and more than once per keyboard change.
    virtual void keyboardWillChangeToFrame(const QRect &frame, float duration);

    //! Number of keyboard observers this screen registered (one more each time it appears).
    int keyboardObserverCount() const;

protected:
    void viewDidLoad() override;
    void viewWillAppear(bool animated) override;
    void viewDidDisappear(bool animated) override;

private:
    QPointer<IMTableView> m_tableview;
    QList<QPair<QString, IMNotificationCenter::Token>> m_keyboardTokens; // (name, token)
};

#pragma once

#include <QPointer>
#include <QWidget>

class IMUIViewController;

//! A top-level window showing one root screen, as an app's window does.
class IMWindow : public QWidget {
    Q_OBJECT
public:
    //! An empty window.
    explicit IMWindow(QWidget *parent = nullptr);
    ~IMWindow() override;
    //! The screen filling the window, or null.
    IMUIViewController *rootViewController() const;
    //! Shows `viewController` filling the window; the previous root is hidden, not deleted (its
    //! owner may put it back).
    void setRootViewController(IMUIViewController *viewController);
    //! The app's windows in creation order.
    static QList<IMWindow *> windows();
    //! The app's first window: the first `IMWindow`, else the active window, else the first visible
    //! top-level widget; null when there is none.
    static QWidget *firstWindow();

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    QPointer<IMUIViewController> m_root;
};

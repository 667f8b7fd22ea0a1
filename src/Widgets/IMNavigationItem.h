#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

class IMBarButtonItem;

//! What the navigation bar shows for one screen: title or title view, left and right items, and the
//! back item the next screen's back button copies.
class IMNavigationItem : public QObject {
    Q_OBJECT
public:
    //! An empty item.
    explicit IMNavigationItem(QObject *parent = nullptr);
    ~IMNavigationItem() override;
    //! The title.
    QString title() const;
    //! Sets the title.
    void setTitle(const QString &title);
    //! A view shown instead of the title (not owned until set; the bar shows it). Null for none.
    QWidget *titleView() const;
    //! Sets the title view (null removes it).
    void setTitleView(QWidget *view);
    //! The left item (null for none).
    IMBarButtonItem *leftBarButtonItem() const;
    //! Sets the left item (the navigation item takes it).
    void setLeftBarButtonItem(IMBarButtonItem *item);
    //! The right item (null for none).
    IMBarButtonItem *rightBarButtonItem() const;
    //! Sets the right item (the navigation item takes it).
    void setRightBarButtonItem(IMBarButtonItem *item);
    //! The item the next screen's back button copies (null: a "‹" arrow with this title).
    IMBarButtonItem *backBarButtonItem() const;
    //! Sets the back item (the navigation item takes it).
    void setBackBarButtonItem(IMBarButtonItem *item);
    //! Whether the back button is hidden.
    bool hidesBackButton() const;
    //! Hides or shows the back button.
    void setHidesBackButton(bool hides);

signals:
    //! Anything shown changed.
    void changed();

private:
    QString m_title;
    QPointer<QWidget> m_titleView;
    QPointer<IMBarButtonItem> m_left;
    QPointer<IMBarButtonItem> m_right;
    QPointer<IMBarButtonItem> m_back;
    bool m_hidesBack = false;
};

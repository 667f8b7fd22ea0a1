#pragma once

#include <QColor>
#include <QPointer>

#include "IMNotificationCenter.h"
#include "UxButton.h"

class IMRoomViewController;
class IMUIViewController;
class UxLabel;

//! The one control a host drops into a screen (in Designer or in code) to give its users the chat:
//! it shows the total unread count, follows the connection, and a click presents the room list in a
//! navigation controller coloured by `primaryColor` / `secondColor`.
class IMChatButton : public UxButton {
    Q_OBJECT
    Q_PROPERTY(bool stausBarLight READ stausBarLight WRITE setStausBarLight)
    Q_PROPERTY(QColor primaryColor READ primaryColor WRITE setPrimaryColor)
    Q_PROPERTY(QColor secondColor READ secondColor WRITE setSecondColor)
    Q_PROPERTY(bool disableWhenDisconnect READ disableWhenDisconnect WRITE setDisableWhenDisconnect)
    Q_PROPERTY(quint64 badgeNumber READ badgeNumber WRITE setBadgeNumber)
public:
    //! A button observing the facade's badge, connection and chat-in notifications.
    explicit IMChatButton(QWidget *parent = nullptr);
    //! Stops observing.
    ~IMChatButton() override;

    //! The screen that presents the room list: the first view controller among the button's parents.
    IMUIViewController *viewController() const;
    //! The room list presented last (null once it is gone).
    IMRoomViewController *roomController() const;
    //! Whether the presented navigation controller uses the light status-bar style.
    bool stausBarLight() const;
    //! Sets the light status-bar style for the room list.
    void setStausBarLight(bool light);
    //! The room list's bar colour (invalid: none).
    QColor primaryColor() const;
    //! Sets the room list's bar colour.
    void setPrimaryColor(const QColor &color);
    //! The room list's bar tint (invalid: none).
    QColor secondColor() const;
    //! Sets the room list's bar tint.
    void setSecondColor(const QColor &color);
    //! Whether the button is enabled only while connected.
    bool disableWhenDisconnect() const;
    //! Enables the button only while connected (from the next status change on).
    void setDisableWhenDisconnect(bool disable);
    //! The count shown.
    quint64 badgeNumber() const;
    //! Shows `number` in the badge, uncapped; 0 hides it.
    void setBadgeNumber(quint64 number);
    //! The badge (created on first read).
    UxLabel *badgeLabel();

    //! Observes the notifications and the click, and takes the facade's current total (idempotent).
    void set();
    //! Presents the room list (each refusal logs a line and stops).
    void pressed();
    //! Dismisses the presented room list.
    void dismiss();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void layoutBadge();
    QList<IMNotificationCenter::Token> m_tokens;
    QPointer<IMRoomViewController> m_roomController;
    QPointer<UxLabel> m_badgeLabel;
    bool m_light = false;
    QColor m_primary;
    QColor m_second;
    bool m_disableWhenDisconnect = false;
    quint64 m_badgeNumber = 0;
};

#pragma once

#include <QPointer>
#include <QString>
#include <functional>

#include <ParloSDK/IMWindow.h>

class IMChatButton;
class IMBarButtonItem;
class QLabel;

// The host application's window: a home screen in a navigation bar, with the kit's chat button
// floating at the bottom right and a bar item that carries the unread count.
class ChatWindow : public IMWindow {
    Q_OBJECT
public:
    explicit ChatWindow(QWidget *parent = nullptr);
    // The floating chat button.
    IMChatButton *chatButton() const;
    // Shows a status line under the greeting.
    void setStatus(const QString &text);
    // Greets the signed-in user.
    void setUserName(const QString &name);

private:
    QPointer<IMChatButton> m_chatButton;
    QPointer<IMBarButtonItem> m_chatItem;
    QLabel *m_greeting = nullptr;
    QLabel *m_status = nullptr;
};

#include "ChatWindow.h"

#include <QLabel>
#include <QResizeEvent>
#include <QVBoxLayout>

#include <ParloSDK/IMBarButtonItem.h>
#include <ParloSDK/IMBarButtonItemBadge.h>
#include <ParloSDK/IMChatButton.h>
#include <ParloSDK/IMDispatch.h>
#include <ParloSDK/IMNavigationController.h>
#include <ParloSDK/IMNavigationItem.h>
#include <ParloSDK/IMNotificationCenter.h>
#include <ParloSDK/IMViewController.h>
#include <ParloSDK/Parlo.h>

namespace {
const QColor kBrand(36, 113, 163);

// The host's own first screen: a greeting and a status line.
class HomeScreen : public IMViewController {
public:
    QLabel *greeting = nullptr;
    QLabel *status = nullptr;
    IMChatButton *chatButton = nullptr;

protected:
    void loadView() override
    {
        setStyleSheet(QStringLiteral("HomeScreen, QWidget#home { background: #f4f6f8; }"));
        setObjectName(QStringLiteral("home"));
        auto *layout = new QVBoxLayout(this);
        layout->setContentsMargins(28, 40, 28, 28);
        layout->setSpacing(10);
        greeting = new QLabel(tr("Welcome"), this);
        greeting->setStyleSheet(QStringLiteral("font-size: 22px; font-weight: 600; color: #1c1c1e;"));
        status = new QLabel(this);
        status->setWordWrap(true);
        status->setStyleSheet(QStringLiteral("font-size: 14px; color: #6e6e73;"));
        auto *hint = new QLabel(tr("This window is an ordinary host application. The round button at the bottom right "
                                   "is the kit's chat button: it shows your unread count and opens your chat rooms."),
            this);
        hint->setWordWrap(true);
        hint->setStyleSheet(QStringLiteral("font-size: 14px; color: #3a3a3c;"));
        layout->addWidget(greeting);
        layout->addWidget(status);
        layout->addSpacing(12);
        layout->addWidget(hint);
        layout->addStretch(1);

        // The kit's chat button, as a host drops it in: on a screen (it presents from the screen
        // it sits on), with the colours of the room list it opens.
        chatButton = new IMChatButton(this);
        chatButton->setObjectName(QStringLiteral("chatButton"));
        chatButton->setPrimaryColor(kBrand);
        chatButton->setSecondColor(Qt::white);
        chatButton->setStausBarLight(true);
        chatButton->setDisableWhenDisconnect(true);
    }

    void resizeEvent(QResizeEvent *event) override
    {
        IMViewController::resizeEvent(event);
        if (chatButton) {
            const QSize size(64, 64);
            chatButton->setGeometry(
                width() - size.width() - 24, height() - size.height() - 24, size.width(), size.height());
            chatButton->raise();
        }
    }
};
} // namespace

ChatWindow::ChatWindow(QWidget *parent)
    : IMWindow(parent)
{
    setWindowTitle(tr("Parlo Chat"));
    auto *home = new HomeScreen;
    home->setTitle(tr("Parlo Chat"));
    auto *nav = new IMNavigationController(home);
    nav->setBarTintColor(kBrand);
    nav->setTintColor(Qt::white);
    setRootViewController(nav);
    home->loadViewIfNeeded();
    m_greeting = home->greeting;
    m_status = home->status;
    m_chatButton = home->chatButton;

    // A bar item that opens the chats too, with the unread count as its badge.
    m_chatItem = new IMBarButtonItem(
        tr("Chats"), IMBarButtonItem::Plain,
        [this] {
            if (m_chatButton)
                m_chatButton->click();
        },
        this);
    home->navigationItem()->setRightBarButtonItem(m_chatItem);
    IMBarButtonItemBadge::setBadgeValue(m_chatItem, QStringLiteral("0"));
    IMBarButtonItemBadge::setBadgeValue(m_chatItem, QStringLiteral("0")); // the first call only builds the badge
    QPointer<IMBarButtonItem> item(m_chatItem);
    IMNotificationCenter::defaultCenter()->addObserver(
        kParloDidUpdateBadge, {}, IMDispatchQueue::mainQueue(), [item](const IMNotification &n) {
            const IMBadgePtr badge = n.object.value<IMBadgePtr>();
            if (item)
                IMBarButtonItemBadge::setBadgeValue(item, QString::number(badge ? qMax(0, badge->total()) : 0));
        });
}

IMChatButton *ChatWindow::chatButton() const { return m_chatButton; }

void ChatWindow::setStatus(const QString &text)
{
    if (m_status)
        m_status->setText(text);
}

void ChatWindow::setUserName(const QString &name)
{
    if (m_greeting)
        m_greeting->setText(tr("Welcome, %1").arg(name));
}

// Screenshots of the room screens with local records: the room list (group and one-to-one rooms,
// badges 0 / 5 / 150, a row swiped open), the create screen empty, refused and uploading, the
// invite list, the chat button in its states, and a bar item with a badge. Photos are painted
// locally, as no server is reached.
#include <QCoreApplication>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

#include "IMBarButtonItem.h"
#include "IMBarButtonItemBadge.h"
#include "IMChatButton.h"
#include "IMDate.h"
#include "IMInviteClient.h"
#include "IMNavigationBar.h"
#include "IMNavigationController.h"
#include "IMNavigationItem.h"
#include "IMRoomCreateViewController.h"
#include "IMRoomInviteViewController.h"
#include "IMRoomTableViewCell.h"
#include "IMRoomViewController.h"
#include "IMTableView.h"
#include "IMUserDefaults.h"
#include "IMViewController.h"
#include "IMWindow.h"
#include "Screenshots.h"
#include "UxImageView.h"
#include "UxLabel.h"

namespace {
// The signed-in user is "me"; the settings go to a scratch file, never the user's own.
void signInLocally()
{
    IMUserDefaults *defaults = IMUserDefaults::standardUserDefaults();
    defaults->setSettingsFile(QDir::temp().filePath(QStringLiteral("parlo-screens-rooms.ini")));
    defaults->setCurrentUser({{"clientID", "me"}, {"username", "我"}});
}

struct Sample {
    QString id, name;
    QStringList others;
    int badge;
    QString type, text;
    int minutesAgo;
    QColor color;
};

const QList<Sample> &samples()
{
    static const QList<Sample> list {
        {"r1", "", {"小美"}, 5, "text", "好啊，晚上七點見 👋", 4, QColor(52, 120, 246)},
        {"r2", "產品設計小組", {"Bob", "Carol", "Dan"}, 150, "text", "我把新的版面放在共享資料夾裡了，大家有空看一下",
            35, QColor(255, 149, 0)},
        {"r3", "", {"Carol"}, 0, "image", "", 60 * 20, QColor(52, 199, 89)},
        {"r4", "週末登山社", {"Eve", "Frank"}, 0, "GEO", "", 60 * 30, QColor(175, 82, 222)},
        {"r5", "", {"David Chen"}, 2, "sticker", "", 60 * 24 * 3, QColor(255, 59, 48)},
        {"r6", "客服中心", {"Agent", "Helper"}, 0, "text", "您的訂單已經出貨，預計明天送達。", 60 * 24 * 9,
            QColor(90, 200, 250)},
        {"r7", "", {"Grace"}, 0, "audio", "", 60 * 24 * 20, QColor(255, 45, 85)},
    };
    return list;
}

QList<IMRoomPtr> sampleRooms()
{
    QList<IMRoomPtr> rooms;
    for (const Sample &s : samples()) {
        IMRoomPtr r = IMRoom::fromDictionary({{"id", s.id}});
        QVariantList members {QVariantMap {{"clientID", "me"}, {"username", "我"}}};
        for (const QString &other : s.others)
            members << QVariantMap {{"clientID", other.toLower()}, {"username", other}};
        r->setName(s.name);
        r->setClient(members);
        r->setBadge(s.badge);
        r->setMessage({QVariantMap {{"messageType", s.type}, {"message", s.text}}});
        r->setLastMessageTime(IMDate::toString8601(QDateTime::currentDateTimeUtc().addSecs(-60 * s.minutesAgo)));
        rooms << r;
    }
    return rooms;
}

// The room list with locally painted photos in place of the server's pictures.
class LocalRoomList : public IMRoomViewController {
public:
    IMRoomTableViewCell *customCellWithIdentifier(
        const QString &identifier, const IMRoomPtr &room, IMRoomTableViewCell *cell) override
    {
        IMRoomViewController::customCellWithIdentifier(identifier, room, cell);
        if (!cell || !room)
            return cell;
        // Styled as a host would in Designer: a red pill with white digits.
        cell->badgeLabel()->setStyleSheet(QStringLiteral("color: white; background: #ff3b30; border-radius: 11px; "
                                                         "padding: 0 7px; font-size: 12px; font-weight: 600;"));
        for (const Sample &s : samples())
            if (s.id == room->objectID())
                cell->photoImageView()->setImage(parloLetterImage(s.color, cell->titleLabel()->text().left(1)));
        return cell;
    }
};

IMWindow *roomListWindow(LocalRoomList **out = nullptr)
{
    signInLocally();
    auto *list = new LocalRoomList;
    list->setTitle(QStringLiteral("聊天室"));
    auto *nav = new IMNavigationController(list);
    auto *window = new IMWindow;
    window->setRootViewController(nav);
    window->resize(390, 720);
    window->show();
    list->setDataSource(sampleRooms());
    if (out)
        *out = list;
    return window;
}

void dragLeft(QWidget *viewport, QPoint from, int distance)
{
    auto send = [viewport](QEvent::Type type, QPointF at, Qt::MouseButton button, Qt::MouseButtons buttons) {
        QMouseEvent e(type, at, viewport->mapToGlobal(at), button, buttons, {});
        QCoreApplication::sendEvent(viewport, &e);
    };
    send(QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
    for (int dx = 10; dx <= distance; dx += 10)
        send(QEvent::MouseMove, from - QPoint(dx, 0), Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, from - QPoint(distance, 0), Qt::LeftButton, Qt::NoButton);
}

IMWindow *createWindow(IMRoomCreateViewController **out)
{
    auto *create = new IMRoomCreateViewController;
    create->setTitle(QStringLiteral("建立聊天室"));
    auto *window = new IMWindow;
    window->setRootViewController(new IMNavigationController(create));
    window->resize(390, 720);
    window->show();
    *out = create;
    return window;
}

class Candidates : public IMRoomInviteDelegate {
public:
    bool respondsToInviteClientWithIndex() const override { return true; }
    void inviteClientWithIndex(quint64 index, quint64 limit, const InviteComplete &complete) override
    {
        static const QStringList names {
            "小美", "Bob", "Carol", "David Chen", "Eve", "Frank", "Grace", "林小華", "Ivan", "Judy"};
        QList<IMInviteClientPtr> page;
        for (quint64 i = index; i < index + limit && i < quint64(names.size()); ++i) {
            // Pictures as local files, so the rows load them as they would a server's.
            const QString file = QDir::temp().filePath(QStringLiteral("parlo-screens-invite-%1.png").arg(i));
            parloLetterImage(QColor::fromHsv(int(i) * 36 % 360, 160, 220), names[int(i)].left(1)).save(file);
            page << IMInviteClient::fromDictionary({{"clientID", names[int(i)]}, {"name", names[int(i)]},
                {"pictureURLString", QUrl::fromLocalFile(file).toString()}});
        }
        complete(page);
    }
};
} // namespace

PARLO_SCREENSHOT({"rooms-list", [] { return static_cast<QWidget *>(roomListWindow()); }, {390, 720}, 300});

PARLO_SCREENSHOT({"rooms-list-swiped",
    [] {
        LocalRoomList *list = nullptr;
        IMWindow *window = roomListWindow(&list);
        QTimer::singleShot(50, list, [list] {
            list->tableview()->layoutIfNeeded();
            if (IMTableViewCell *cell = list->tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(1)))
                dragLeft(list->tableview()->viewport(), cell->geometry().center(), 90);
        });
        return static_cast<QWidget *>(window);
    },
    {390, 720}, 400});

PARLO_SCREENSHOT({"rooms-create-empty", [] {
                      IMRoomCreateViewController *create = nullptr;
                      return static_cast<QWidget *>(createWindow(&create));
                  }});

PARLO_SCREENSHOT({"rooms-create-refused",
    [] {
        IMRoomCreateViewController *create = nullptr;
        IMWindow *window = createWindow(&create);
        create->doneItemPressed(); // no name, no picture: both outlined in red
        return static_cast<QWidget *>(window);
    },
    {390, 720}, 300});

PARLO_SCREENSHOT({"rooms-create-uploading",
    [] {
        IMRoomCreateViewController *create = nullptr;
        IMWindow *window = createWindow(&create);
        create->roomNameTextField()->setText(QStringLiteral("週末登山社"));
        create->setRoomThumbnail(parloLetterImage(QColor(175, 82, 222), QStringLiteral("登")));
        create->progressLabel()->setText(IMRoomCreateViewController::progressText(0.42));
        return static_cast<QWidget *>(window);
    },
    {390, 720}, 500});

PARLO_SCREENSHOT({"rooms-invite",
    [] {
        static Candidates candidates;
        auto *invite = new IMRoomInviteViewController;
        invite->setTitle(QStringLiteral("邀請"));
        invite->setDelegate(&candidates);
        auto *window = new IMWindow;
        window->setRootViewController(new IMNavigationController(invite));
        window->resize(390, 720);
        window->show();
        QTimer::singleShot(50, invite, [invite] {
            invite->dataSource = invite->inviteList; // the host shows the delivered page
            invite->inviteList = {invite->dataSource.value(1), invite->dataSource.value(4)};
            invite->tableview()->reloadData();
        });
        return static_cast<QWidget *>(window);
    },
    {390, 720}, 300});

PARLO_SCREENSHOT({"rooms-chat-button",
    [] {
        auto *w = new QWidget;
        w->setStyleSheet(QStringLiteral("background: #f2f2f7;"));
        auto *row = new QHBoxLayout(w);
        row->setContentsMargins(24, 24, 24, 24);
        row->setSpacing(32);
        const QList<QPair<QString, int>> states {{"0", 0}, {"8", 8}, {"1234", 1234}, {"disabled", 3}};
        for (const auto &state : states) {
            auto *column = new QVBoxLayout;
            auto *button = new IMChatButton(w);
            button->setFixedSize(64, 64);
            button->setBadgeNumber(quint64(state.second));
            if (state.first == QLatin1String("disabled"))
                button->setEnabled(false);
            auto *caption
                = new QLabel(state.first == QLatin1String("disabled") ? QStringLiteral("停用") : state.first, w);
            caption->setAlignment(Qt::AlignCenter);
            caption->setStyleSheet(QStringLiteral("color: #8e8e93; font-size: 12px;"));
            column->addWidget(button, 0, Qt::AlignHCenter);
            column->addWidget(caption);
            row->addLayout(column);
        }
        return w;
    },
    {390, 140}, 200});

PARLO_SCREENSHOT({"rooms-bar-badge",
    [] {
        auto *screen = new IMViewController;
        screen->setTitle(QStringLiteral("首頁"));
        screen->setStyleSheet(QStringLiteral("background: white;"));
        auto *window = new IMWindow;
        window->setRootViewController(new IMNavigationController(screen));
        window->resize(390, 200);
        window->show();
        auto *item = new IMBarButtonItem(QStringLiteral("聊天"), IMBarButtonItem::Plain, {}, screen);
        screen->navigationItem()->setRightBarButtonItem(item);
        QTimer::singleShot(30, screen, [item] {
            IMBarButtonItemBadge::badge(item); // built first: its defaults overwrite a first setting
            IMBarButtonItemBadge::setBadgeValue(item, QStringLiteral("12"));
        });
        return static_cast<QWidget *>(window);
    },
    {390, 200}, 500});

// The room list, room creation and invitation, the chat button and the bar-button badge: their
// rules offscreen with local records, then the whole path against the reference server.
#include <QLineEdit>
#include <QPushButton>
#include <QRandomGenerator>
#include <QTest>
#include <gtest/gtest.h>

#include "IMAnimation.h"
#include "IMBarButtonItem.h"
#include "IMBarButtonItemBadge.h"
#include "IMChatButton.h"
#include "IMDate.h"
#include "IMNavigationBar.h"
#include "IMNavigationController.h"
#include "IMNavigationItem.h"
#include "IMRelativeDate.h"
#include "IMRoomCreateViewController.h"
#include "IMRoomInviteTableViewCell.h"
#include "IMRoomInviteViewController.h"
#include "IMRoomTableViewCell.h"
#include "IMRoomViewController.h"
#include "IMStoryboard.h"
#include "IMTableViewRowAction.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "Parlo.h"
#include "TestUtil.h"
#include "UILiveSupport.h"
#include "UITestSupport.h"
#include "UxAlertController.h"
#include "UxButton.h"
#include "UxLabel.h"

namespace {

// A stand-in conversation screen: records the rooms it was opened with.
class ConversationProbe : public IMViewController {
    Q_OBJECT
public:
    static inline int made = 0;
    IMRoomPtr room;
    ConversationProbe() { ++made; }
    Q_INVOKABLE void setRoom(const IMRoomPtr &r) { room = r; }
};

QVariantMap member(const QString &id, const QString &name = {})
{
    QVariantMap m {{"clientID", id}};
    if (!name.isNull())
        m["username"] = name;
    return m;
}

IMRoomPtr room(const QString &id, const QString &name, const QVariantList &members, int badge = 0,
    const QVariantList &messages = {}, const QStringList &archivedBy = {})
{
    IMRoomPtr r = IMRoom::fromDictionary({{"id", id}});
    r->setName(name);
    r->setClient(members);
    r->setBadge(badge);
    r->setMessage(messages);
    r->setArchivedBy(archivedBy);
    r->setLastMessageTime(IMDate::toString8601(QDateTime::currentDateTimeUtc()));
    return r;
}

class RoomScreens : public ScreenTest {
protected:
    void SetUp() override
    {
        IMUserDefaults::standardUserDefaults()->setCurrentUser(
            member(QStringLiteral("alice"), QStringLiteral("Alice")));
        IMStoryboard::registerViewController(
            QStringLiteral("IMMain"), QStringLiteral("IMMessageViewController"), [] { return new ConversationProbe; });
        list = new IMRoomViewController;
        nav = showInNavigation(window, list);
    }
    IMRoomTableViewCell *row(int i)
    {
        return qobject_cast<IMRoomTableViewCell *>(
            list->tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(i)));
    }

    IMRoomViewController *list = nullptr;
    IMNavigationController *nav = nullptr;
};

TEST(RoomRowRules, SubtitleBadgeTimeAndUnreadSum)
{
    const QList<QPair<QString, QString>> subtitles {{"text", "hi"}, {"image", "傳送了一張照片"},
        {"audio", "傳送了一個聲音訊息"}, {"video", "傳送了一個影片"}, {"GEO", "傳送了一個位置"},
        {"sticker", "傳送了一個貼圖"}, {"geo", ""}, {"other", ""}};
    for (const auto &c : subtitles)
        EXPECT_EQ(IMRoomTableViewCell::subtitleForMessage({{"messageType", c.first}, {"message", "hi"}}), c.second)
            << c.first.toStdString();
    for (auto [count, text] : QList<QPair<int, QString>> {{0, "0"}, {5, "5"}, {99, "99"}, {150, "99"}, {-3, "-3"}})
        EXPECT_EQ(IMRoomTableViewCell::badgeText(count), text);
    const QDateTime now = QDateTime::currentDateTime();
    EXPECT_TRUE(IMRelativeDateString(now, true, now).startsWith("今天"));
    EXPECT_TRUE(IMRelativeDateString(now.addDays(-1), true, now).startsWith("昨天"));
    EXPECT_TRUE(IMRelativeDateString(QDateTime(), true, now).isEmpty());
    EXPECT_EQ(IMRoomViewController::getAllUnreadNumber(
                  {room("a", "A", {}, 3), room("b", "B", {}, 4, {}, {"alice"}), nullptr}),
        7);
}

TEST_F(RoomScreens, RowsShowGroupAndOneToOneRoomsAndArchivedRoomsTakeNoSpace)
{
    list->setDataSource({
        room("1", "Lunch", {member("alice"), member("bob", "Bob")}, 150,
            {QVariantMap {{"messageType", "text"}, {"message", "Noodles?"}}}),
        room("2", "Team", {member("alice"), member("bob"), member("carol")}, 0, {QVariantMap {{"messageType", "GEO"}}}),
        room("3", "Nameless", {member("alice"), member("dan")}, 5),
        room("4", "Gone", {member("alice")}, 2, {}, {"alice"}),
        room("5", "Empty", {}),
    });
    // One-to-one rooms take the other member's name, or the id without one; the badge caps at 99.
    struct Shown {
        QString title, subtitle, badge;
    };
    const Shown shown[] = {{"Bob", "Noodles?", "99"}, {"Team", "傳送了一個位置", "hidden"}, {"dan", "", "5"}};
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(row(i)) << i;
        EXPECT_EQ(row(i)->titleLabel()->text(), shown[i].title) << i;
        EXPECT_EQ(row(i)->subTitleLabel()->text(), shown[i].subtitle) << i;
        EXPECT_EQ(
            row(i)->badgeLabel()->isHidden() ? QStringLiteral("hidden") : row(i)->badgeLabel()->text(), shown[i].badge)
            << i;
    }
    EXPECT_EQ(list->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(3)).height(), 0);
    EXPECT_GT(list->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(4)).height(), 0);
    // An update for a room not in the list changes nothing; the list's own rooms redraw.
    list->ParloDidUpdateRoom(room("99", "Other", {}));
    EXPECT_EQ(row(1)->titleLabel()->text(), "Team");
}

TEST_F(RoomScreens, ATapOpensTheConversationOncePerSecondAndAFailedHideClosesTheRow)
{
    list->setDataSource({room("1", "Lunch", {member("alice"), member("bob")}), room("2", "Team", {})});
    ConversationProbe::made = 0;
    const QPoint first = row(0)->geometry().center();
    const QPoint second = row(1)->geometry().center();
    QTest::mouseClick(list->tableview()->viewport(), Qt::LeftButton, {}, first);
    QTest::mouseClick(list->tableview()->viewport(), Qt::LeftButton, {}, second); // within the second: ignored
    settle();
    ASSERT_EQ(nav->viewControllers().size(), 2);
    auto *opened = qobject_cast<ConversationProbe *>(nav->topViewController());
    ASSERT_TRUE(opened && opened->room);
    EXPECT_EQ(opened->room->objectID(), "1");
    EXPECT_EQ(ConversationProbe::made, 2); // instantiated twice: the first only proves it exists
    nav->popViewControllerAnimated(false);
    settle();

    // Not connected: the archive fails, the line is logged and the row closes.
    LogCapture log;
    QList<IMTableViewRowAction *> actions
        = list->editActionsForRowAtIndexPath(list->tableview(), IMIndexPath::indexPathForRow(1));
    ASSERT_EQ(actions.size(), 1);
    EXPECT_EQ(actions.first()->title(), "隱藏");
    actions.first()->trigger(IMIndexPath::indexPathForRow(1));
    ASSERT_TRUE(waitUntil([&] { return !log.texts().filter("archiveRoom fail").isEmpty(); }));
    EXPECT_EQ(list->dataSource().size(), 2);
    qDeleteAll(actions);
}

// The host's invite candidates, page by page.
class Candidates : public IMRoomCreateDelegate {
public:
    int pageSize = 10;
    int asked = 0;
    bool respondsToInviteClientWithIndex() const override { return true; }
    void inviteClientWithIndex(quint64, quint64 limit, const InviteComplete &complete) override
    {
        ++asked;
        EXPECT_EQ(limit, 10u);
        QList<IMInviteClientPtr> page;
        for (int i = 0; i < pageSize; ++i) {
            auto c = std::make_shared<IMInviteClient>();
            c->setName(QStringLiteral("Guest %1").arg(i));
            page << c;
        }
        complete(page);
    }
};

TEST_F(RoomScreens, CreationValidatesNameFirstThenPictureAndHandsOverToTheInviteList)
{
    auto *create = new IMRoomCreateViewController;
    auto *createNav = new IMNavigationController(create);
    list->presentViewController(createNav, false);
    settle();
    auto red = [](QWidget *w) { return w->styleSheet().contains("red"); };
    create->doneItemPressed();
    EXPECT_TRUE(red(create->roomNameTextField()));
    EXPECT_FALSE(red(create->roomThumbnailBtn())); // the name first, even with no picture
    create->roomNameTextField()->insert(QStringLiteral("午餐")); // as an input method commits it
    create->doneItemPressed();
    EXPECT_FALSE(red(create->roomNameTextField()));
    EXPECT_TRUE(red(create->roomThumbnailBtn()));
    EXPECT_EQ(IMRoomCreateViewController::progressText(0.555), " uploading 55 %");

    Candidates candidates;
    create->setDelegate(&candidates);
    QImage picture(40, 40, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    create->setRoomThumbnail(picture);
    create->doneItemPressed();
    auto *invite = qobject_cast<IMRoomInviteViewController *>(createNav->topViewController());
    ASSERT_TRUE(invite);
    settle();
    EXPECT_EQ(invite->roomName, "午餐");
    EXPECT_EQ(candidates.asked, 1);
    EXPECT_EQ(invite->inviteList.size(), 10); // a full page is kept
    EXPECT_FALSE(invite->isloadingEnd);

    // A short page sets the end and is dropped; tapping a candidate twice leaves it unchecked.
    IMRoomInviteViewController shortList;
    Candidates few;
    few.pageSize = 7;
    shortList.setDelegate(&few);
    shortList.dataSource = {std::make_shared<IMInviteClient>()};
    shortList.resize(390, 600);
    shortList.show();
    settle();
    EXPECT_TRUE(shortList.isloadingEnd);
    EXPECT_TRUE(shortList.inviteList.isEmpty());
    for (int i = 0; i < 2; ++i)
        shortList.didSelectRowAtIndexPath(shortList.tableview(), IMIndexPath::indexPathForRow(0));
    EXPECT_TRUE(shortList.inviteList.isEmpty());
    auto *cell = qobject_cast<IMRoomInviteTableViewCell *>(
        shortList.tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(0)));
    ASSERT_TRUE(cell);
    EXPECT_FALSE(cell->checked());
}

TEST_F(RoomScreens, ChatButtonRefusesInOrderAndCountsWithoutACap)
{
    LogCapture log;
    IMChatButton loose; // on no screen
    loose.click();
    auto *button = new IMChatButton(list);
    button->setDisableWhenDisconnect(true);
    IMUserDefaults::standardUserDefaults()->setCurrentUser({});
    button->click();
    IMUserDefaults::standardUserDefaults()->setCurrentUser(member("alice"));
    list->presentViewController(new IMViewController, false);
    button->click();
    list->dismissViewControllerAnimated(false);
    settle();
    IMStoryboard::unregisterViewController(QStringLiteral("IMMain"), QStringLiteral("IMRoomViewController"));
    button->click();
    IMStoryboard::registerViewController(
        QStringLiteral("IMMain"), QStringLiteral("IMRoomViewController"), [] { return new IMRoomViewController; });
    EXPECT_EQ(log.texts(),
        QStringList({"self.viewController is nil", "plz sign & chatin first", "presentedViewController",
            "IMMain.storyboard or IMRoomViewController is not exists"}));

    button->setBadgeNumber(150);
    EXPECT_EQ(button->badgeLabel()->text(), "150");
    EXPECT_FALSE(button->badgeLabel()->isHidden());
    button->setBadgeNumber(0);
    EXPECT_TRUE(button->badgeLabel()->isHidden());
    IMNotificationCenter::defaultCenter()->post(kParloDidChangeConnectStatus, {}, {{"status", 3}});
    settle();
    EXPECT_FALSE(button->isEnabled());
    button->setDisableWhenDisconnect(false);
    IMNotificationCenter::defaultCenter()->post(kParloDidChangeConnectStatus, {}, {{"status", 0}});
    settle();
    EXPECT_FALSE(button->isEnabled()); // no longer touched

    // A click presents the room list, coloured, with the close item.
    button->setEnabled(true);
    button->setPrimaryColor(QColor(36, 113, 163));
    button->setSecondColor(Qt::white);
    button->click();
    settle();
    auto *presented = qobject_cast<IMNavigationController *>(list->presentedViewController());
    ASSERT_TRUE(presented);
    EXPECT_EQ(presented->navigationBar()->barTintColor(), QColor(36, 113, 163));
    ASSERT_TRUE(button->roomController());
    ASSERT_TRUE(button->roomController()->navigationItem()->leftBarButtonItem());
    button->roomController()->navigationItem()->leftBarButtonItem()->trigger();
    settle();
    EXPECT_FALSE(list->presentedViewController());
}

TEST(BarButtonBadge, DefaultsHideRulesFrameAndBounce)
{
    IMSetAnimationsEnabled(false);
    QWidget bar;
    bar.resize(300, 44);
    IMBarButtonItem item(QStringLiteral("Chats"), IMBarButtonItem::Plain);
    item.view()->setParent(&bar);
    item.view()->setGeometry(200, 8, 60, 28);
    bar.show();
    using B = IMBarButtonItemBadge;
    // The first setting builds the badge, whose defaults overwrite it; the second takes.
    B::setBadgePadding(&item, 10);
    EXPECT_EQ(B::badgePadding(&item), 6);
    B::setBadgePadding(&item, 10);
    EXPECT_EQ(B::badgePadding(&item), 10);
    B::setBadgePadding(&item, 6);
    EXPECT_EQ(item.property("UIBarButtonItem_badgeBGColorKey").value<QColor>(), QColor(Qt::red));
    EXPECT_EQ(B::badgeOriginY(&item), -4);

    for (auto [value, hideAtZero, hidden] : QList<std::tuple<QString, bool, bool>> {
             {"0", true, true}, {"0", false, false}, {"", false, true}, {QString(), false, true}, {"7", true, false}}) {
        B::setShouldHideBadgeAtZero(&item, hideAtZero);
        B::setBadgeValue(&item, value);
        EXPECT_EQ(B::badge(&item)->isHidden(), hidden) << value.toStdString();
    }
    // One digit: a circle at least min size plus padding; never narrower than tall.
    B::setBadgeValue(&item, "5");
    const QRect one = B::badge(&item)->geometry();
    EXPECT_EQ(one.width(), one.height());
    B::setBadgeValue(&item, "1234");
    EXPECT_GT(B::badge(&item)->width(), B::badge(&item)->height());

    const int before = B::bounceCount(&item);
    B::setBadgeValue(&item, "42");
    B::setBadgeValue(&item, "42");
    EXPECT_EQ(B::bounceCount(&item), before + 1);

    B::removeBadge(&item);
    settle();
    EXPECT_FALSE(item.property("UIBarButtonItem_badgeKey").value<QObject *>());
    IMSetAnimationsEnabled(true);
}

using RoomScreensLive = UILiveTest;

TEST_F(RoomScreensLive, ChatButtonCountsOpensTheListCreatesAndHidesRooms)
{
    IMWindow window;
    auto *home = new IMViewController;
    auto *button = new IMChatButton(home);
    button->setGeometry(300, 500, 64, 64);
    showInNavigation(window, home);

    // Bob's messages raise the count on the button.
    const QString lunch = bobsRoomWithAlice(QStringLiteral("Lunch"));
    for (const char *text : {"Noodles?", "At noon"})
        bobWrites(lunch, QString::fromUtf8(text), QRandomGenerator::global()->bounded(1, 1 << 30));
    ASSERT_TRUE(waitUntil([&] { return button->badgeNumber() == 2; }, 10000)) << button->badgeNumber();
    EXPECT_EQ(button->badgeLabel()->text(), "2");

    // The button opens the list, which shows the room.
    QTest::mouseClick(button, Qt::LeftButton);
    settle();
    IMRoomViewController *rooms = button->roomController();
    ASSERT_TRUE(rooms);
    ASSERT_TRUE(waitUntil([&] { return !rooms->dataSource().isEmpty(); }, 10000));

    // A new room with a name and a picture appears in the list.
    rooms->createRoomItemPressed();
    ASSERT_TRUE(UxAlertController::current());
    QTest::mouseClick(buttonWithText<QPushButton>(UxAlertController::current(), "建立聊天室"), Qt::LeftButton);
    settle();
    auto *createNav = qobject_cast<IMNavigationController *>(rooms->presentedViewController());
    ASSERT_TRUE(createNav);
    auto *create = qobject_cast<IMRoomCreateViewController *>(createNav->topViewController());
    ASSERT_TRUE(create);
    QTest::keyClicks(create->roomNameTextField(), "Book club");
    QImage picture(64, 64, QImage::Format_RGB32);
    picture.fill(Qt::darkMagenta);
    create->setRoomThumbnail(picture);
    create->doneItemPressed();
    auto findRoom = [&](const QString &name) {
        for (const IMRoomPtr &r : rooms->dataSource())
            if (r->name() == name)
                return r;
        return IMRoomPtr();
    };
    ASSERT_TRUE(waitUntil([&] { return !rooms->presentedViewController(); }, 15000));
    ASSERT_TRUE(waitUntil([&] { return findRoom("Book club") != nullptr; }, 10000));
    EXPECT_FALSE(findRoom("Book club")->thumbnail().isEmpty());

    // Hiding the room removes its row, and the server has it archived for Alice (under the id the
    // list got from the server; opening a row is covered offscreen).
    const int before = rooms->dataSource().size();
    const int at = rooms->dataSource().indexOf(findRoom("Lunch"));
    ASSERT_GE(at, 0);
    QList<IMTableViewRowAction *> actions
        = rooms->editActionsForRowAtIndexPath(rooms->tableview(), IMIndexPath::indexPathForRow(at));
    actions.first()->trigger(IMIndexPath::indexPathForRow(at));
    ASSERT_TRUE(waitUntil([&] { return rooms->dataSource().size() == before - 1; }, 10000));
    qDeleteAll(actions);
    const QVariantMap stored = bob->ok("get", "/room/" + lunch);
    EXPECT_TRUE(stored.value("archivedBy").toStringList().contains("alice"));
}

} // namespace

#include "RoomScreensTest.moc"

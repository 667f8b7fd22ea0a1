// The conversation screen's list half and its rows: the rules as data tables, the rows' states
// offscreen, and history, paging and live updates against the reference server.
#include <QTest>
#include <gtest/gtest.h>

#include "IMDate.h"
#include "IMLayoutConstraint.h"
#include "IMMessageTableViewCell.h"
#include "IMMessageViewController.h"
#include "IMNavigationController.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "Parlo.h"
#include "TestUtil.h"
#include "UILiveSupport.h"
#include "UITestSupport.h"
#include "UxButton.h"
#include "UxImageView.h"
#include "UxLabel.h"

namespace {

IMMessagePtr msg(
    const QString &type, const QString &from, const QString &createdAt = {}, const QString &text = QStringLiteral("hi"))
{
    QVariantMap d {
        {"id", QStringLiteral("m%1").arg(qHash(text + createdAt + from))}, {"messageType", type}, {"message", text}};
    if (!from.isEmpty())
        d["sender"] = QVariantMap {{"clientID", from}, {"username", from}};
    if (!createdAt.isEmpty())
        d["createdAt"] = createdAt;
    return IMMessage::fromDictionary(d);
}

IMRoomPtr roomWithReads(const QVariantMap &readTime, int members = 2)
{
    QVariantList clients;
    for (int i = 0; i < members; ++i)
        clients << QVariantMap {
            {"clientID", i == 0 ? "me" : QStringLiteral("u%1").arg(i)}, {"username", QStringLiteral("User %1").arg(i)}};
    IMRoomPtr r = IMRoom::fromDictionary({{"id", "r1"}, {"name", "Lunch"}, {"client", clients}});
    r->setReadTime(readTime);
    return r;
}

TEST(ConversationRules, RowKindsTitlesAndReadMarkers)
{
    const QString me = QStringLiteral("me");
    const QList<QPair<IMMessagePtr, QString>> kinds {{msg("text", "me"), CellRight}, {msg("text", "bob"), CellLeft},
        {msg("image", "me"), CellRightImage}, {msg("image", "bob"), CellLeftImage}, {msg("audio", "bob"), CellRight},
        {msg("text", ""), CellLeft}};
    for (const auto &k : kinds)
        EXPECT_EQ(IMMessageTableViewCell::cellIDForMessage(k.first, me), k.second);

    for (auto [members, title] : QList<QPair<int, QString>> {{2, "User 1"}, {3, "Lunch (3)"}, {1, "Lunch (1)"}})
        EXPECT_EQ(IMMessageViewController::titleForRoom(roomWithReads({}, members), me), title) << members;

    const QString t0 = QStringLiteral("2026-11-20T10:00:00.000Z");
    const QString before = QStringLiteral("2026-11-20T09:00:00.000Z");
    const QString after = QStringLiteral("2026-11-20T11:00:00.000Z");
    const IMMessagePtr m = msg("text", "me", t0);
    struct Case {
        QVariantMap reads;
        QString marker;
    };
    const Case cases[] = {
        {{{"me", after}}, ""}, // only the reader
        {{{"me", after}, {"u1", after}}, "已讀"}, // two people, read
        {{{"me", after}, {"u1", before}}, ""}, // two people, not yet
        {{{"me", after}, {"u1", t0}}, ""}, // same moment: not read
        {{{"me", after}, {"u1", after}, {"u2", after}}, "2 已讀"},
        {{{"me", after}, {"u1", after}, {"u2", t0}}, "1 已讀"}, // only strictly later counts
        {{{"me", after}, {"u1", before}, {"u2", before}}, ""},
    };
    for (const Case &c : cases)
        EXPECT_EQ(IMMessageTableViewCell::readString(roomWithReads(c.reads), m, me), c.marker) << c.reads.size();
    QVariantMap many;
    for (int i = 0; i < 10000; ++i)
        many.insert(QStringLiteral("u%1").arg(i), after);
    EXPECT_EQ(IMMessageTableViewCell::readString(roomWithReads(many), m, me), "");
    EXPECT_EQ(
        IMMessageTableViewCell::readCount(roomWithReads({{"u1", after}}), msg("text", "me"), me), 0); // no createdAt
}

using ConversationScreen = ScreenTest;

TEST_F(ConversationScreen, RowsShowSendingStatesOneTurnLaterAndCollapseAMissingAvatar)
{
    IMMessageTableViewCell row(CellRight);
    row.resize(390, 80);
    IMMessagePtr m = msg("text", "me", "2026-11-20T10:00:00.000Z", "hello");
    m->setSendingType(2);
    row.setMessage(m);
    EXPECT_TRUE(row.errorButton()->isHidden()); // not yet: one main-loop turn later
    settle();
    EXPECT_FALSE(row.errorButton()->isHidden());
    EXPECT_EQ(row.cellType(), 0u);
    EXPECT_EQ(row.photoImageViewWidth()->constant(), 0); // no photo: the avatar column collapses
    row.setCellType(3);
    settle();
    EXPECT_TRUE(row.errorButton()->isHidden());
    EXPECT_TRUE(row.contentView()->styleSheet().contains(IMMessageTableViewCell::backgroundForSendingType(3).name()));
    row.setShowDate(true);
    EXPECT_EQ(row.dateLabelHeight()->constant(), 21);

    // A picture still uploading shows at once, with no download.
    IMMessageTableViewCell picture(CellRightImage);
    IMMessagePtr p = msg("image", "me", {}, "sending image");
    QImage local(20, 20, QImage::Format_RGB32);
    local.fill(Qt::green);
    p->setTemp(QVariant::fromValue(local));
    picture.setMessage(p);
    EXPECT_EQ(picture.pictureImageView()->image(), local);
}

TEST_F(ConversationScreen, BadMessagesStillDraw)
{
    // No sender, no creation time, an unknown type, a huge text, a picture that is no picture,
    // read times that are not times: every row draws, nothing crashes.
    IMPlatform::instance()->setTemporaryPath(dir.filePath(QStringLiteral("cache")));
    Parlo::shareInstance()->fileSaveWithName(QStringLiteral("broken.jpg"), QByteArray("not a picture"));
    IMRoomPtr room = roomWithReads({{"me", "garbage"}, {"u1", 42}, {"u2", QVariant()}}, 3);
    IMMessageViewController *screen = showConversation(window, room, true);
    screen->setDataSource({IMMessage::fromDictionary({{"id", "a"}, {"messageType", "text"}, {"message", "no sender"}}),
        msg("sticker", "u1", "not a date"), msg("text", "u1", {}, QString(1 << 20, QLatin1Char('x'))),
        msg("image", "u1", "2026-11-20T10:00:00.000Z", "broken.jpg")});
    screen->scrollToBottomWithAnimate(false);
    settle(10);
    EXPECT_EQ(screen->tableview()->numberOfRowsInSection(0), 4);
    screen->tableview()->scrollToRowAtIndexPath(
        IMIndexPath::indexPathForRow(3), IMTableView::ScrollPositionBottom, false);
    settle(10);
    auto *picture = qobject_cast<IMMessageTableViewCell *>(
        screen->tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(3)));
    ASSERT_TRUE(picture);
    EXPECT_TRUE(
        waitUntil([&] { return !picture->pictureImageView()->image().isNull(); })); // the placeholder, not nothing
    EXPECT_FALSE(window.grab().isNull());
}

TEST_F(ConversationScreen, UpdatesSkipTheOldestRowAndNewMessagesScrollOnlyAtTheBottom)
{
    const IMRoomPtr room = roomWithReads({});
    IMMessageViewController *screen = showConversation(window, room);
    const auto inRoom = [&](IMMessagePtr m) {
        m->setRoom(room);
        return m;
    };
    const auto now
        = [](int offset = 0) { return IMDate::toString8601(QDateTime::currentDateTimeUtc().addSecs(offset)); };
    QList<IMMessagePtr> page;
    for (int i = 0; i < 40; ++i)
        page << inRoom(msg("text", i % 3 ? "bob" : "me", now(i - 100), QStringLiteral("message %1").arg(i)));
    screen->setDataSource(page);
    screen->scrollToBottomWithAnimate(false);
    EXPECT_TRUE(screen->isTableViewAtBottom());
    EXPECT_EQ(screen->title(), "User 1");

    // An update of row 0 is not applied (it is never looked at); later rows are.
    const auto copyOf = [&](int i) { return inRoom(IMMessage::fromDictionary(page[i]->toDictionary())); };
    for (int i : {0, 5}) {
        IMMessagePtr u = copyOf(i);
        u->setMessage(QStringLiteral("edited"));
        screen->ParloDidUpdateMessage(u);
        EXPECT_EQ(screen->dataSource()[i]->message() == QLatin1String("edited"), i != 0) << i;
    }

    screen->ParloDidReceiveMessageFromOthers(inRoom(msg("text", "bob", now(), "new")));
    settle();
    EXPECT_TRUE(screen->isTableViewAtBottom());
    screen->tableview()->setContentOffset(QPointF(0, 0));
    screen->ParloDidReceiveMessageFromOthers(inRoom(msg("text", "bob", now(), "newer")));
    settle();
    EXPECT_EQ(screen->tableview()->contentOffset().y(), 0); // scrolled up: left where it was
    EXPECT_EQ(screen->dataSource().size(), 42);

    // A deleted message takes no space; the first row never has a date header.
    IMMessagePtr gone = copyOf(7);
    gone->setMessageType(kMessageTypeDelete);
    screen->ParloDidUpdateMessage(gone);
    EXPECT_EQ(screen->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(7)).height(), 0);
    EXPECT_FALSE(IMMessageViewController::handleRemoteNotificationAppdelegateWindow(&window, {{"other", 1}}));
}

TEST_F(ConversationScreen, InputBarTakesTheBarsTintAndFollowsTheKeyboard)
{
    auto *screen = new IMMessageViewController;
    screen->setRoom(roomWithReads({}));
    showInNavigation(window, screen, [](IMNavigationController *nav) {
        nav->setTintColor(Qt::white); // white: the bar's background colour is used instead
        nav->setBarTintColor(QColor(36, 113, 163));
    });
    EXPECT_EQ(screen->sendMessageBtn->tintColor(), QColor(36, 113, 163));
    EXPECT_EQ(screen->inputTextViewLeadingDistance->constant(), 60); // no more button by default
    EXPECT_EQ(screen->inputTextViewHeight->constant(), 30);

    // A keyboard of 250 points at the bottom lifts the bar by its height; a tap on the list lowers it.
    screen->keyboardWillChangeToFrame(QRect(0, screen->height() - 250, 390, 250), 0.25f);
    EXPECT_EQ(screen->inputViewToBottomDistance->constant(), 250);
    screen->tapOnTableViewEvent();
    EXPECT_EQ(screen->inputViewToBottomDistance->constant(), 0);
}

using ConversationLive = UILiveTest;

TEST_F(ConversationLive, HistoryPagesBackAndLiveMessagesUpdatesDeletionsAndReceiptsShow)
{
    const QString roomID = bobsRoomWithAlice(QStringLiteral("Lunch"));
    QStringList ids;
    for (int i = 0; i < 100; ++i)
        ids << bobWrites(roomID, QStringLiteral("history %1").arg(i), i + 1);
    const IMRoomPtr room = fetchRoom(roomID);
    ASSERT_TRUE(room);
    IMWindow window;
    IMMessageViewController *screen = showConversation(window, room, true);
    ASSERT_TRUE(waitUntil([&] { return screen->dataSource().size() == 40; }, 10000));
    settle();
    EXPECT_TRUE(screen->isTableViewAtBottom());
    EXPECT_EQ(screen->dataSource().last()->message(), "history 99");

    // Scrolling to the top pages back until the history is complete.
    for (int round = 0; round < 20 && !screen->isLoadEnd; ++round) {
        screen->tableview()->setContentOffset(QPointF(0, 0));
        waitUntil([&] { return !screen->isLoadingMore && screen->dataSource().size() > 40 * (round / 2); }, 3000);
        settle();
    }
    ASSERT_TRUE(waitUntil([&] { return screen->dataSource().size() == 100; }, 10000));
    EXPECT_EQ(screen->dataSource().first()->message(), "history 0");

    // Bob writes, edits and deletes; Alice's screen follows.
    screen->scrollToBottomWithAnimate(false);
    const QString fresh = bobWrites(roomID, QStringLiteral("fresh"), 1000);
    ASSERT_TRUE(waitUntil([&] { return screen->dataSource().size() == 101; }, 10000));
    EXPECT_TRUE(screen->isTableViewAtBottom());
    bob->ok("put", "/message/" + fresh, {{"message", "fresh, edited"}, {"messageType", "text"}});
    ASSERT_TRUE(
        waitUntil([&] { return screen->dataSource().last()->message() == QLatin1String("fresh, edited"); }, 10000));
    bob->ok("put", "/message/" + ids[98], {{"message", ""}, {"messageType", "delete"}});
    ASSERT_TRUE(waitUntil(
        [&] { return screen->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(98)).height() == 0; },
        10000));

    // Alice answers; Bob reads with the echo on; her row shows the marker.
    bool sent = false;
    IMMessagePtr answer = IMMessage::initWithRoom(room);
    answer->setMessage(QStringLiteral("On my way"));
    Parlo::shareInstance()->sendMessage(
        answer, [&](const IMMessagePtr &) { sent = true; }, [](const IMError &) {});
    ASSERT_TRUE(waitUntil([&] { return sent; }, 10000));
    bob->ok("put", "/room/receive/" + roomID, {{"echo", 1}});
    ASSERT_TRUE(waitUntil(
        [&] {
            for (IMTableViewCell *cell : screen->tableview()->visibleCells())
                if (auto *row = qobject_cast<IMMessageTableViewCell *>(cell);
                    row && row->readLabel() && row->readLabel()->text() == QStringLiteral("已讀"))
                    return true;
            return false;
        },
        10000));
}

} // namespace

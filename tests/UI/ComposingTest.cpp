// The conversation's input bar, message menus and picture viewer: offscreen with a recording
// platform, then the whole round against the reference server with a second user.
#include <QFile>
#include <QFileDialog>
#include <QRegularExpression>
#include <QTest>
#include <gtest/gtest.h>

#include "IMAnimation.h"
#include "IMDispatch.h"
#include "IMLayoutConstraint.h"
#include "IMMessageOption.h"
#include "IMMessageViewController.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "Parlo.h"
#include "TestUtil.h"
#include "UILiveSupport.h"
#include "UITestSupport.h"
#include "UxAlertController.h"
#include "UxButton.h"
#include "UxImageView.h"
#include "UxLabel.h"
#include "UxTextView.h"

namespace {

// Records what the screens hand to the platform while `recording`; the picker answers with
// `picked`. One is installed for the whole program (the kit keeps every platform it was given).
class RecordingPlatform : public IMPlatform {
public:
    bool recording = false;
    QString pasteboard;
    QVariantList shared;
    QImage picked;
    QImage saved;
    void setPasteboardString(const QString &text) override
    {
        recording ? void(pasteboard = text) : IMPlatform::setPasteboardString(text);
    }
    void presentShareSheet(const QVariantList &items, QObject *window) override
    {
        recording ? void(shared = items) : IMPlatform::presentShareSheet(items, window);
    }
    QString saveImageToPhotoAlbum(const QImage &image) override
    {
        if (!recording)
            return IMPlatform::saveImageToPhotoAlbum(image);
        saved = image;
        return QStringLiteral("album");
    }
    void pickImage(int source, QObject *window, const std::function<void(const QImage &)> &done) override
    {
        if (!recording)
            return IMPlatform::pickImage(source, window, done);
        const QImage image = picked;
        IMDispatchMainAsync([done, image] { done(image); });
    }
};

// The recording platform, reset, recording, with its folders in `dir`.
RecordingPlatform *startRecording(const QTemporaryDir &dir)
{
    static RecordingPlatform *platform = [] {
        auto *p = new RecordingPlatform;
        IMPlatform::setInstance(p);
        return p;
    }();
    *platform = RecordingPlatform();
    platform->recording = true;
    platform->setDocumentsPath(dir.filePath(QStringLiteral("data")));
    platform->setTemporaryPath(dir.filePath(QStringLiteral("cache")));
    return platform;
}

QImage testPicture(int side)
{
    QImage image(side, side, QImage::Format_RGB32);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            image.setPixel(x, y, qRgb(x * 7 % 256, y * 3 % 256, (x ^ y) % 256));
    return image;
}

IMMessagePtr message(const QString &type, const QString &from, const QString &text)
{
    IMMessagePtr m = IMMessage::fromDictionary({{"id", text + from}, {"messageType", type}, {"message", text},
        {"sender", QVariantMap {{"clientID", from}, {"username", from}}}});
    if (type == kMessageTypeImage)
        m->setTemp(QVariant::fromValue(testPicture(60)));
    return m;
}

// The screen in a window, signed in locally as "me", without a server.
class ComposingScreen : public ScreenTest {
protected:
    void SetUp() override
    {
        platform = startRecording(dir);
        screen = showConversation(window, IMRoom::fromDictionary({{"id", "r1"}, {"name", "Lunch"}}));
    }
    void TearDown() override
    {
        if (UxAlertController *sheet = UxAlertController::current())
            sheet->choose(-1);
        platform->recording = false;
    }
    // The titles of the menu a long press on `m` opens (empty when none).
    QStringList menuFor(const IMMessagePtr &m)
    {
        screen->setDataSource({m});
        screen->longPressForMessageAtRowOfIndexPath(IMIndexPath::indexPathForRow(0));
        UxAlertController *sheet = UxAlertController::current();
        return sheet ? sheet->buttonTitles() : QStringList();
    }

    RecordingPlatform *platform = nullptr;
    IMMessageViewController *screen = nullptr;
};

TEST_F(ComposingScreen, TextViewGrowsAndEditCancelAndTheMorePanelFollowTheirRules)
{
    for (int lines : {1, 2, 5, 6, 9}) {
        screen->inputTextView->setText(QStringList(lines, QStringLiteral("line")).join('\n'));
        settle();
        EXPECT_EQ(screen->inputTextViewHeight->constant(), qMin(17 * lines + 13, 98)) << lines;
    }
    screen->inputTextView->setText(QString());
    screen->sendMessageBtnPressed();
    EXPECT_TRUE(screen->dataSource().isEmpty()); // an empty text is not sent
    QTest::keyClick(screen->inputTextView, Qt::Key_Return, Qt::ShiftModifier);
    EXPECT_EQ(screen->inputTextView->text(), "\n"); // Shift+Return starts a line
    EXPECT_TRUE(screen->dataSource().isEmpty());

    // A row grows with its text's lines (measured rows keep no stale height).
    screen->setDataSource({message(kMessageTypeText, "me", "one"), message(kMessageTypeText, "me", "one\ntwo\nthree")});
    EXPECT_GT(screen->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(1)).height(),
        screen->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(0)).height() + 30);

    // Editing, finished with an empty text: updated in place, no new row.
    const IMMessagePtr mine = message(kMessageTypeText, "me", "first draft");
    screen->setDataSource({mine, message(kMessageTypeText, "bob", "ok")});
    screen->didChooseEditMessage(mine, IMIndexPath::indexPathForRow(0));
    EXPECT_EQ(screen->editingIndex, 0);
    EXPECT_EQ(mine->sendingType(), 3u);
    EXPECT_EQ(screen->inputTextView->text(), "first draft");
    EXPECT_EQ(screen->cancelBtnLeadingDistance->constant(), 8);
    settle();
    EXPECT_TRUE(screen->cancelBtn->isVisible());
    screen->inputTextView->setText(QString());
    screen->sendMessageBtnPressed();
    EXPECT_EQ(screen->dataSource().size(), 2);
    EXPECT_EQ(mine->message(), "");
    EXPECT_EQ(mine->sendingType(), 0u);
    EXPECT_EQ(screen->editingIndex, -1);
    EXPECT_GT(screen->cancelBtnLeadingDistance->constant(), 8);
    EXPECT_EQ(screen->inputTextViewHeight->constant(), 30);

    // Cancelling keeps the message's text and moves the button out by its width and two margins.
    mine->setMessage(QStringLiteral("kept"));
    screen->didChooseEditMessage(mine, IMIndexPath::indexPathForRow(0));
    screen->inputTextView->setText(QStringLiteral("abandoned"));
    screen->cancelBtnPressed();
    EXPECT_EQ(mine->message(), "kept");
    EXPECT_EQ(screen->inputTextView->text(), "");
    EXPECT_EQ(screen->cancelBtnLeadingDistance->constant(), screen->cancelBtnWidth->constant() + 16);
    EXPECT_EQ(screen->editingIndex, -1);

    screen->moreButtonDidPressed();
    EXPECT_EQ(screen->inputViewToBottomDistance->constant(), screen->moreActionContenterView->height());
    EXPECT_GT(screen->moreActionContenterView->height(), 0);
    screen->moreButtonDidPressed();
    EXPECT_EQ(screen->inputViewToBottomDistance->constant(), 0);

    LogCapture log;
    screen->shareRoomWithURLSchemeLastObjectBtnPressed();
    EXPECT_TRUE(log.texts().contains("url type not found"));
    EXPECT_TRUE(platform->shared.isEmpty());
    platform->setInfoDictionary(
        {{"CFBundleURLTypes", QVariantList {QVariantMap {{"CFBundleURLSchemes", QVariantList {"lunchapp"}}}}},
            {"parlo", QVariantMap {{"storeid", "42"}, {"url", "https://join.example"}}}});
    screen->shareRoomWithURLSchemeLastObjectBtnPressed();
    EXPECT_EQ(
        platform->shared, QVariantList {QUrl("https://join.example/r1?urlType=lunchapp&appID=42&action=joinRoom")});

    // A text too long for one message stays in the text view, with an alert.
    const QString huge(IMMessageViewController::kMaxTextLength + 1, QLatin1Char('x'));
    screen->inputTextView->setText(huge);
    screen->sendMessageBtnPressed();
    EXPECT_EQ(screen->dataSource().size(), 2);
    EXPECT_EQ(screen->inputTextView->text(), huge);
    EXPECT_TRUE(UxAlertController::current());
}

TEST_F(ComposingScreen, MenusDependOnTypeAndSenderAndOnlyALongEnoughPressOpensThem)
{
    const QString copy = "複製文字", edit = "編輯訊息", remove = "刪除訊息", save = "存到相簿", share = "分享照片",
                  cancel = "取消";
    struct Case {
        QString type, from;
        QStringList titles;
    };
    const Case cases[] = {
        {kMessageTypeText, "me", {copy, edit, remove, cancel}},
        {kMessageTypeText, "bob", {copy, cancel}},
        {kMessageTypeImage, "me", {save, share, remove, cancel}},
        {kMessageTypeImage, "bob", {save, share, cancel}},
        {QStringLiteral("audio"), "me", {}},
        {QStringLiteral("sticker"), "bob", {}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(menuFor(message(c.type, c.from, "body")), c.titles) << c.type.toStdString() << c.from.toStdString();
        if (UxAlertController *sheet = UxAlertController::current())
            sheet->choose(-1);
    }

    menuFor(message(kMessageTypeText, "bob", "copy me"));
    UxAlertController::current()->choose(0);
    EXPECT_EQ(platform->pasteboard, "copy me");
    menuFor(message(kMessageTypeImage, "bob", "pic"));
    settle(10);
    UxAlertController::current()->choose(1);
    ASSERT_EQ(platform->shared.size(), 1);
    EXPECT_EQ(platform->shared[0].value<QImage>().size(), QSize(60, 60));

    // A real press on the row: half a second opens nothing, a full second opens the menu.
    screen->setDataSource({message(kMessageTypeText, "bob", "press me")});
    settle();
    QWidget *viewport = screen->tableview()->viewport();
    const QPoint row = screen->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(0)).center().toPoint()
        - screen->tableview()->contentOffset().toPoint();
    for (int held : {500, 1150}) {
        QTest::mousePress(viewport, Qt::LeftButton, {}, row);
        QTest::qWait(held);
        QTest::mouseRelease(viewport, Qt::LeftButton, {}, row);
        EXPECT_EQ(UxAlertController::current() != nullptr, held > 1000) << held;
    }
}

TEST_F(ComposingScreen, PictureViewerSnapsBackUnderFiftyPointsAndClosesAtFifty)
{
    // (49.999999999 is 50 in single precision.)
    for (auto [off, near] :
        QList<QPair<QPointF, bool>> {{{49, -49}, true}, {{50, 0}, false}, {{0, 50}, false}, {{49.999999999, 0}, false}})
        EXPECT_EQ(IMMessageViewController::isPictureNearHome({390, 640}, QPointF(195, 320) + off), near)
            << off.x() << "," << off.y();

    screen->setDataSource({message(kMessageTypeImage, "bob", "pic")});
    settle(10);
    auto *cell = qobject_cast<IMMessageTableViewCell *>(
        screen->tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(0)));
    ASSERT_TRUE(cell);
    QTest::mouseClick(cell->pictureImageView(), Qt::LeftButton);
    ASSERT_TRUE(screen->imageViewBackgroundView);
    EXPECT_EQ(screen->imageViewBackgroundView->parentWidget(), &window);
    EXPECT_EQ(screen->imageViewBackgroundView->geometry(), window.rect());
    EXPECT_EQ(screen->imageView->image().size(), QSize(60, 60));

    const auto drag = [&](QPoint by) {
        // Finger positions in the backdrop, which stays put while the picture follows the finger.
        // The drag begins 20 points in; from there the picture moves by `by`.
        UxImageView *picture = screen->imageView;
        QWidget *backdrop = screen->imageViewBackgroundView;
        QPoint start = backdrop->rect().center();
        QTest::mousePress(picture, Qt::LeftButton, {}, picture->mapFrom(backdrop, start));
        start += QPoint(0, 20);
        for (int step = 0; step <= 4; ++step)
            QTest::mouseMove(picture, picture->mapFrom(backdrop, start + by * step / 4));
        QTest::mouseRelease(picture, Qt::LeftButton, {}, picture->mapFrom(backdrop, start + by));
        settle();
    };
    drag({49, 49});
    ASSERT_TRUE(screen->imageView);
    EXPECT_EQ(IMViewCenter(screen->imageView), QPointF(195, 320)); // back home
    QPointer<QWidget> backdrop = screen->imageViewBackgroundView;
    drag({0, 50});
    settle(5);
    EXPECT_FALSE(screen->imageViewBackgroundView);
    EXPECT_FALSE(backdrop); // removed from the window
}

class ComposingLive : public UILiveTest {
protected:
    // The recording platform goes in first: a default one made before it would be kept, unused.
    void SetUp() override
    {
        platform = startRecording(dir);
        UILiveTest::SetUp();
    }
    void TearDown() override
    {
        UILiveTest::TearDown();
        platform->recording = false;
    }
    RecordingPlatform *platform = nullptr;
};

TEST_F(ComposingLive, TextPictureEditDeleteAndAResendAfterAStalledServer)
{
    platform->picked = testPicture(700);
    const QString roomID = bobsRoomWithAlice(QStringLiteral("Lunch"));
    const IMRoomPtr room = fetchRoom(roomID);
    ASSERT_TRUE(room);
    IMWindow window;
    IMMessageViewController *screen = showConversation(window, room);
    const auto bobsMessages
        = [&] { return bob->request("get", "/message/?room=" + roomID + "&offset=0&limit=10").value("body").toList(); };
    const auto bobSees = [&](const QString &id, const QString &type, const QString &body) {
        return waitUntil(
            [&] {
                for (const QVariant &m : bobsMessages())
                    if (m.toMap().value("id") == id)
                        return m.toMap().value("messageType") == type
                            && (body.isNull() || m.toMap().value("message") == body);
                return false;
            },
            10000);
    };
    const auto last = [&] { return screen->dataSource().isEmpty() ? IMMessagePtr() : screen->dataSource().last(); };
    ASSERT_TRUE(waitUntil([&] { return screen->isLoadEnd; }, 10000)); // the (empty) first page is in

    // Typed and sent: sending (1), then sent (0) when the server's echo arrives.
    QTest::keyClicks(screen->inputTextView, QStringLiteral("Hi Bob "));
    QInputMethodEvent typed; // CJK and emoji arrive through the input method
    typed.setCommitString(QStringLiteral("你好 👋"));
    QCoreApplication::sendEvent(screen->inputTextView, &typed);
    QTest::mouseClick(screen->sendMessageBtn, Qt::LeftButton);
    ASSERT_TRUE(last());
    EXPECT_EQ(last()->sendingType(), 1u);
    EXPECT_EQ(last()->option()->pushMessage(), QStringLiteral("alice:Hi Bob 你好 👋"));
    EXPECT_EQ(screen->inputTextView->text(), "");
    ASSERT_TRUE(
        waitUntil([&] { return last() && last()->sendingType() == 0 && !last()->objectID().isEmpty(); }, 10000));
    const IMMessagePtr text = last();

    // A picture: shown at once, its progress in the row's time label, then sent; Bob gets the same bytes.
    screen->cameraBtnPressed();
    ASSERT_TRUE(UxAlertController::current());
    EXPECT_EQ(UxAlertController::current()->buttonTitles(), (QStringList {"照相機", "相片圖庫", "取消"}));
    UxAlertController::current()->choose(1);
    ASSERT_TRUE(waitUntil([&] { return last() != text; }, 5000));
    const IMMessagePtr picture = last();
    EXPECT_EQ(picture->message(), "sending image");
    QStringList progress;
    ASSERT_TRUE(waitUntil(
        [&] {
            for (IMTableViewCell *cell : screen->tableview()->visibleCells())
                if (cell->timeLabel() && cell->timeLabel()->text().endsWith(" %")
                    && !progress.contains(cell->timeLabel()->text()))
                    progress << cell->timeLabel()->text();
            return picture->sendingType() == 0 && !picture->objectID().isEmpty();
        },
        15000));
    EXPECT_FALSE(progress.isEmpty());
    for (const QString &p : progress)
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d{1,3} %$")).match(p).hasMatch()) << p.toStdString();
    EXPECT_TRUE(picture->temp().isNull());
    EXPECT_EQ(picture->option()->pushMessage(), QStringLiteral("alice 傳送一張照片"));
    QByteArray uploaded;
    Parlo::shareInstance()->getFileWithName(
        picture->message(), true, [&](const QByteArray &d) { uploaded = d; }, [](const IMError &) {});
    ASSERT_FALSE(uploaded.isEmpty());
    EXPECT_EQ(bob->request("get", "/files/" + picture->message()).value("body").toByteArray(), uploaded);
    EXPECT_TRUE(bobSees(picture->objectID(), "image", picture->message()));

    screen->longPressForMessageAtRowOfIndexPath(IMIndexPath::indexPathForRow(screen->dataSource().indexOf(picture)));
    UxAlertController::current()->choose(0);
    ASSERT_TRUE(waitUntil([&] { return !platform->saved.isNull(); }));
    EXPECT_EQ(platform->saved.size(), QSize(700, 700));

    // Edited and deleted through the menus; Bob sees both, and the deleted row collapses on Alice's side.
    screen->longPressForMessageAtRowOfIndexPath(IMIndexPath::indexPathForRow(screen->dataSource().indexOf(text)));
    UxAlertController::current()->choose(1);
    screen->inputTextView->setText(QStringLiteral("你好 Bob, edited"));
    screen->sendMessageBtnPressed();
    EXPECT_EQ(screen->dataSource().size(), 2);
    EXPECT_TRUE(bobSees(text->objectID(), "text", "你好 Bob, edited"));
    screen->longPressForMessageAtRowOfIndexPath(IMIndexPath::indexPathForRow(screen->dataSource().indexOf(text)));
    UxAlertController::current()->choose(2);
    EXPECT_TRUE(bobSees(text->objectID(), "delete", QString()));
    // (Row 0 is never looked at by updates, so the deleted row is checked after a reload.)
    screen->loadMessageComplete({});
    ASSERT_TRUE(waitUntil(
        [&] { return screen->dataSource().value(0) && screen->dataSource()[0]->messageType() == "delete"; }, 10000));
    EXPECT_TRUE(waitUntil(
        [&] { return screen->tableview()->rectForRowAtIndexPath(IMIndexPath::indexPathForRow(0)).height() == 0; }));

    // With the server stalled the send fails (state 2); once it answers again the error button sends it.
    Parlo::shareInstance()->setTimeout(1);
    server->suspend(true);
    screen->inputTextView->setText(QStringLiteral("are you there?"));
    QTest::keyClick(screen->inputTextView, Qt::Key_Return); // Return sends
    const IMMessagePtr stalled = last();
    ASSERT_TRUE(waitUntil([&] { return stalled->sendingType() == 2; }, 10000));
    server->suspend(false);
    Parlo::shareInstance()->setTimeout(5);
    auto *row = qobject_cast<IMMessageTableViewCell *>(
        screen->tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(screen->dataSource().size() - 1)));
    ASSERT_TRUE(row);
    ASSERT_TRUE(waitUntil([&] { return row->errorButton()->isVisible(); }, 5000));
    QTest::mouseClick(row->errorButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return stalled->sendingType() == 0; }, 15000));
    int copies = 0;
    for (const QVariant &m : bobsMessages())
        copies += m.toMap().value("message") == "are you there?";
    EXPECT_EQ(copies, 1); // the late first attempt and the re-send are one message
}

TEST(ComposingPicker, DecodesOffTheMainThreadScalesHugePicturesAndRefusesOthers)
{
    QTemporaryDir dir;
    const QString garbage = dir.filePath(QStringLiteral("not-a-picture.jpg"));
    QFile file(garbage);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(4096, 'x'));
    file.close();
    const QString huge = dir.filePath(QStringLiteral("huge.jpg"));
    QImage big(8000, 6000, QImage::Format_RGB32);
    big.fill(QColor(200, 120, 40));
    ASSERT_TRUE(big.save(huge, "JPEG", 95));

    for (const QString &path : {garbage, huge}) {
        bool answered = false;
        QImage picked;
        IMPlatform::instance()->pickImage(1, nullptr, [&](const QImage &image) {
            answered = true;
            picked = image;
        });
        settle();
        QFileDialog *dialog = nullptr;
        for (QWidget *w : QApplication::topLevelWidgets())
            if (w->objectName() == QLatin1String("IMImagePicker") && w->isVisible())
                dialog = qobject_cast<QFileDialog *>(w);
        ASSERT_TRUE(dialog);
        emit dialog->fileSelected(path);
        static_cast<QDialog *>(dialog)->done(QDialog::Accepted);
        ASSERT_TRUE(waitUntil([&] { return answered; }, 20000));
        if (path == garbage)
            EXPECT_TRUE(picked.isNull());
        else
            EXPECT_EQ(picked.size(), QSize(4096, 3072));
    }
}
} // namespace

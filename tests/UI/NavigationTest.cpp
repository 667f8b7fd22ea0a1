// The base screens and the navigation toolkit: lifecycle, bar, modal presentation, storyboard,
// keyboard hook, colours and animations, driven through real widgets offscreen.
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

#include "TestUtil.h"

#include "IMAnimation.h"
#include "IMBarButtonItem.h"
#include "IMColor.h"
#include "IMKeyboard.h"
#include "IMLayoutConstraint.h"
#include "IMNavigationBar.h"
#include "IMNavigationController.h"
#include "IMNavigationItem.h"
#include "IMStoryboard.h"
#include "IMTableView.h"
#include "IMViewController.h"
#include "IMWindow.h"
#include "UITestSupport.h"
#include "UxLabel.h"

namespace {

// A screen that records its lifecycle and keyboard calls.
class Probe : public IMViewController {
public:
    explicit Probe(QStringList *log = nullptr, const QString &name = QStringLiteral("probe"))
        : m_log(log)
        , m_name(name)
    {
    }
    QList<QPair<QRect, float>> keyboard;
    IMTableView *table = nullptr;

protected:
    void loadView() override
    {
        table = new IMTableView(this);
        setTableview(table);
    }
    void viewDidLoad() override
    {
        IMViewController::viewDidLoad();
        note("load");
    }
    void viewWillAppear(bool a) override
    {
        IMViewController::viewWillAppear(a);
        note("willAppear");
    }
    void viewDidAppear(bool a) override
    {
        IMViewController::viewDidAppear(a);
        note("didAppear");
    }
    void viewWillDisappear(bool a) override
    {
        IMViewController::viewWillDisappear(a);
        note("willDisappear");
    }
    void viewDidDisappear(bool a) override
    {
        IMViewController::viewDidDisappear(a);
        note("didDisappear");
    }
    void keyboardWillChangeToFrame(const QRect &frame, float duration) override { keyboard.append({frame, duration}); }

private:
    void note(const char *what)
    {
        if (m_log)
            m_log->append(m_name + QLatin1Char(':') + QLatin1String(what));
    }
    QStringList *m_log;
    QString m_name;
};

using Navigation = ScreenTest;

TEST_F(Navigation, AScreenInANavigationControllerGetsABareBackItemAndATintedTitle)
{
    auto *screen = new Probe;
    screen->setTitle(QStringLiteral("聊天室"));
    IMNavigationController *nav
        = showInNavigation(window, screen, [](IMNavigationController *n) { n->setTintColor(QColor(255, 80, 0)); });

    ASSERT_TRUE(screen->navigationItem()->backBarButtonItem());
    EXPECT_EQ(screen->navigationItem()->backBarButtonItem()->title(), QStringLiteral(""));
    EXPECT_FALSE(screen->navigationItem()->backBarButtonItem()->hasAction());
    // The title as shown in the bar: its text and colour.
    const auto shownTitle = [&] {
        auto *label = qobject_cast<UxLabel *>(screen->navigationItem()->titleView());
        return label ? std::pair(label->text(), label->textColor()) : std::pair(QString(), QColor());
    };
    EXPECT_EQ(shownTitle(), std::pair(QStringLiteral("聊天室"), QColor(255, 80, 0)));
    EXPECT_EQ(screen->table->tableFooterView()->height(), 0);

    // An empty title keeps the current one and still re-styles it in the bar's tint.
    nav->navigationBar()->setTintColor(Qt::darkGreen);
    screen->setNavigationBarTitle(QString());
    EXPECT_EQ(shownTitle(), std::pair(QStringLiteral("聊天室"), QColor(Qt::darkGreen)));
    screen->setNavigationBarTitle(QStringLiteral("新標題"));
    EXPECT_EQ(screen->title(), QStringLiteral("新標題"));

    // A screen on its own gets neither.
    Probe alone;
    alone.setTitle(QStringLiteral("x"));
    alone.show();
    settle();
    EXPECT_FALSE(alone.navigationItem()->backBarButtonItem());
    EXPECT_FALSE(alone.navigationItem()->titleView());
}

TEST_F(Navigation, PushPopAndBackButtonDriveTheLifecycleAndDeleteThePoppedScreen)
{
    QStringList log;
    IMWindow window; // after the log its screens write to
    auto *root = new Probe(&log, QStringLiteral("root"));
    root->setTitle(QStringLiteral("Rooms"));
    IMNavigationController *nav = showInNavigation(window, root);
    EXPECT_EQ(log, QStringList({"root:load", "root:willAppear", "root:didAppear"}));

    log.clear();
    QPointer<Probe> second = new Probe(&log, QStringLiteral("second"));
    nav->pushViewController(second, true);
    settle();
    EXPECT_EQ(nav->topViewController(), second.data());
    EXPECT_TRUE(log.contains("second:didAppear"));
    EXPECT_TRUE(log.contains("root:didDisappear"));
    EXPECT_EQ(second->navigationController(), nav);

    // The real back button in the bar pops.
    auto *back = qobject_cast<QToolButton *>(nav->navigationBar()->backButton());
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->text().isEmpty()); // the root's bare back item
    log.clear();
    QTest::mouseClick(back, Qt::LeftButton);
    settle();
    EXPECT_TRUE(second.isNull());
    EXPECT_EQ(nav->viewControllers().size(), 1);
    EXPECT_TRUE(log.contains("root:didAppear"));
    EXPECT_FALSE(nav->popViewControllerAnimated(false)); // never the root
}

TEST_F(Navigation, PresentAndDismissCompleteOnceAndFillTheWindow)
{
    QStringList log; // outlives the window, whose screens write to it as they go
    IMWindow window;
    window.resize(390, 600);
    auto *root = new Probe(&log, QStringLiteral("root"));
    window.setRootViewController(root);
    window.show();
    settle();

    for (bool animated : {false, true}) {
        log.clear();
        IMSetAnimationsEnabled(animated);
        int presented = 0, dismissed = 0;
        QPointer<IMNavigationController> modal = new IMNavigationController(new Probe);
        root->presentViewController(modal, animated, [&] { ++presented; });
        ASSERT_TRUE(waitUntil([&] { return (presented) == (1); }));
        EXPECT_EQ(root->presentedViewController(), modal.data());
        EXPECT_EQ(modal->presentingViewController(), root);
        ASSERT_TRUE(waitUntil([&] { return (modal->geometry()) == (window.rect()); }));
        // The screen inside the presented container dismisses the container.
        modal->topViewController()->dismissViewControllerAnimated(animated, [&] { ++dismissed; });
        ASSERT_TRUE(waitUntil([&] { return (dismissed) == (1); }));
        settle();
        EXPECT_TRUE(modal.isNull());
        EXPECT_FALSE(root->presentedViewController());
        // Covered, the presenter disappeared; uncovered, it appears again (a list refreshes then).
        EXPECT_EQ(log, QStringList({"root:willDisappear", "root:didDisappear", "root:willAppear", "root:didAppear"}));
        QTest::qWait(50);
        EXPECT_EQ(presented, 1);
        EXPECT_EQ(dismissed, 1);
    }
}

TEST_F(Navigation, KeyboardObserversAccumulateAcrossAppearances)
{
    auto *screen = new Probe;
    window.setRootViewController(screen);
    window.show();
    settle();
    screen->hide();
    screen->show();
    screen->hide(); // off screen: the hook still runs
    EXPECT_EQ(screen->keyboardObserverCount(), 2);
    IMNotificationCenter::defaultCenter()->post(kIMKeyboardWillChangeFrameNotification, {},
        {{QStringLiteral("frameEnd"), QRect(0, 300, 390, 300)}, {QStringLiteral("duration"), 0.25}});
    ASSERT_EQ(screen->keyboard.size(), 2);
    EXPECT_EQ(screen->keyboard[0].first, QRect(0, 300, 390, 300));
    EXPECT_FLOAT_EQ(screen->keyboard[0].second, 0.25f);
    delete screen; // its registrations end with it
    IMNotificationCenter::defaultCenter()->post(kIMKeyboardWillChangeFrameNotification);
}

TEST_F(Navigation, NavigationControllerColoursAndStatusBar)
{
    // Without the host's properties the bar keeps its own colours; with them it takes theirs.
    for (bool coloured : {false, true}) {
        IMNavigationController nav(new Probe);
        QColor bar = nav.navigationBar()->barTintColor(), tint = nav.navigationBar()->tintColor();
        if (coloured) {
            nav.setProperty("barTintColor", bar = QColor(Qt::black));
            nav.setProperty("tintColor", tint = QColor(Qt::white));
            nav.setProperty("UIStatusBarStyleLight", true);
        }
        nav.loadViewIfNeeded();
        EXPECT_EQ(nav.navigationBar()->barTintColor(), bar) << coloured;
        EXPECT_EQ(nav.navigationBar()->tintColor(), tint) << coloured;
        EXPECT_EQ(nav.preferredStatusBarStyle(), coloured ? IMStatusBarStyleLightContent : IMStatusBarStyleDefault);
    }
}

TEST(Colour, ComparisonBringsBothColoursToRgbFirst)
{
    struct Case {
        QColor a, b;
        bool equal;
    };
    const Case cases[] = {
        {QColor::fromHsvF(0, 0, 1, 1), QColor::fromRgbF(1, 1, 1, 1), true}, // white given as grey
        {QColor(Qt::white), QColor(255, 255, 255), true},
        {QColor::fromHslF(0, 0, 0.5, 1), QColor::fromRgbF(0.5, 0.5, 0.5, 1), true},
        {QColor(255, 255, 255, 128), QColor(Qt::white), false}, // alpha counts
        {QColor(0, 122, 255), QColor(0, 122, 254), false},
        {QColor(), QColor(), true},
        {QColor(), QColor(Qt::white), false},
    };
    for (const Case &c : cases)
        EXPECT_EQ(IMColorIsEqualToColor(c.a, c.b), c.equal)
            << c.a.name().toStdString() << " vs " << c.b.name().toStdString();
}

TEST(Storyboard, NamesAndIdentifiersResolveOrGiveNull)
{
    EXPECT_EQ(IMStoryboard::storyboardWithName(QStringLiteral("NoSuchBoard")), nullptr);
    IMStoryboard::registerViewController(
        QStringLiteral("TestBoard"), QStringLiteral("Probe"), [] { return new Probe; });
    IMStoryboard *board = IMStoryboard::storyboardWithName(QStringLiteral("TestBoard"));
    ASSERT_TRUE(board);
    EXPECT_EQ(board->instantiateViewControllerWithIdentifier(QStringLiteral("Missing")), nullptr);
    std::unique_ptr<IMUIViewController> made(board->instantiateViewControllerWithIdentifier(QStringLiteral("Probe")));
    ASSERT_TRUE(dynamic_cast<Probe *>(made.get()));
    EXPECT_FALSE(made->isViewLoaded()); // loads before it first shows, after the caller set it up

    // A host replaces a screen, or removes it.
    IMStoryboard::registerViewController(
        QStringLiteral("TestBoard"), QStringLiteral("Probe"), [] { return new IMViewController; });
    made.reset(board->instantiateViewControllerWithIdentifier(QStringLiteral("Probe")));
    EXPECT_FALSE(dynamic_cast<Probe *>(made.get()));
    IMStoryboard::unregisterViewController(QStringLiteral("TestBoard"), QStringLiteral("Probe"));
    EXPECT_EQ(board->instantiateViewControllerWithIdentifier(QStringLiteral("Probe")), nullptr);
}

TEST(Animation, CompletionRunsOnceAndConstraintsKeepTheirTargetValue)
{
    for (bool enabled : {true, false}) {
        IMSetAnimationsEnabled(enabled);
        IMLayoutConstraint constraint(30);
        QList<qreal> shown;
        constraint.bind([&](qreal v) { shown << v; });
        int completions = 0;
        bool finishedFlag = false;
        IMAnimate(
            0.05, [&] { constraint.setConstant(98); },
            [&](bool finished) {
                ++completions;
                finishedFlag = finished;
            });
        EXPECT_EQ(constraint.constant(), 98); // the model value at once
        EXPECT_EQ(completions, 0); // always posted
        ASSERT_TRUE(waitUntil([&] { return (completions) == (1); }));
        EXPECT_TRUE(finishedFlag);
        EXPECT_EQ(constraint.presentedConstant(), 98);
        EXPECT_EQ(shown.first(), 30);
        EXPECT_EQ(shown.last(), 98);
        QTest::qWait(30);
        EXPECT_EQ(completions, 1);
    }
    IMSetAnimationsEnabled(true);
    // A block that animates nothing still completes once.
    int completions = 0;
    IMAnimate(
        0.2, [] {}, [&](bool) { ++completions; });
    ASSERT_TRUE(waitUntil([&] { return (completions) == (1); }));
}

} // namespace

// The table view driven with real scrolling, clicks, drags and touches offscreen.
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QVBoxLayout>
#include <cmath>
#include <gtest/gtest.h>

#include "IMAnimation.h"
#include "IMGestureRecognizer.h"
#include "IMTableView.h"
#include "IMTableViewCell.h"
#include "IMTableViewRowAction.h"
#include "UITestSupport.h"

namespace {

class TextCell : public IMTableViewCell {
public:
    explicit TextCell(const QString &id)
        : IMTableViewCell(id)
    {
        auto *layout = new QVBoxLayout(contentView());
        label = new QLabel(contentView());
        label->setWordWrap(true);
        layout->addWidget(label);
    }
    QLabel *label;
};

// Rows of varied heights: row i is 30 + (i % 5) * 10 points tall.
class Model : public IMTableViewDataSource, public IMTableViewDelegate {
public:
    int rows = 0;
    QList<int> extra; // inserted rows, kept as a count only
    QStringList events;
    bool logEvents = false;
    int heightAsks = 0;
    qreal (*heightOf)(int) = [](int row) { return qreal(30 + (row % 5) * 10); };
    QList<IMIndexPath> selected;
    QList<IMIndexPath> actioned;
    bool editable = true;

    int numberOfRowsInSection(IMTableView *, int) override { return rows; }
    IMTableViewCell *cellForRowAtIndexPath(IMTableView *t, const IMIndexPath &p) override
    {
        auto *cell = static_cast<TextCell *>(t->dequeueReusableCellWithIdentifier(QStringLiteral("Text"), p));
        if (cell)
            cell->label->setText(QStringLiteral("row %1").arg(p.row));
        return cell;
    }
    bool canEditRowAtIndexPath(IMTableView *, const IMIndexPath &) override { return editable; }
    qreal heightForRowAtIndexPath(IMTableView *, const IMIndexPath &p) override
    {
        ++heightAsks;
        return heightOf(p.row);
    }
    void willDisplayCell(IMTableView *, IMTableViewCell *, const IMIndexPath &p) override
    {
        if (logEvents)
            events << QStringLiteral("+%1").arg(p.row);
    }
    void didEndDisplayingCell(IMTableView *, IMTableViewCell *, const IMIndexPath &p) override
    {
        if (logEvents)
            events << QStringLiteral("-%1").arg(p.row);
    }
    void didSelectRowAtIndexPath(IMTableView *, const IMIndexPath &p) override { selected << p; }
    QList<IMTableViewRowAction *> editActionsForRowAtIndexPath(IMTableView *, const IMIndexPath &) override
    {
        return {new IMTableViewRowAction(IMTableViewRowAction::Default, QStringLiteral("隱藏"),
            [this](IMTableViewRowAction *, const IMIndexPath &p) { actioned << p; })};
    }
};

class TableView : public ::testing::Test {
protected:
    void SetUp() override
    {
        IMSetAnimationsEnabled(false);
        table.registerCell(QStringLiteral("Text"), [] { return new TextCell(QStringLiteral("Text")); });
        table.resize(320, 400);
        table.setDataSource(&model);
        table.setDelegate(&model);
        table.show();
    }
    void TearDown() override { IMSetAnimationsEnabled(true); }
    void fill(int rows)
    {
        model.rows = rows;
        table.reloadData();
        table.layoutIfNeeded();
    }
    Model model;
    IMTableView table;
};

TEST_F(TableView, TenThousandRowsOpenAndScrollWithFewWidgetsAndFewMeasurements)
{
    fill(10000);
    EXPECT_LT(model.heightAsks, 40); // only the rows on screen were measured
    const int onScreen = table.visibleCells().size();
    EXPECT_GT(onScreen, 5);
    for (int step = 0; step < 300; ++step)
        table.verticalScrollBar()->setValue(table.verticalScrollBar()->value() + 137);
    EXPECT_LE(table.createdCellCount(), onScreen + 6);
    // What is on screen lies exactly where the content offset says.
    const QList<IMIndexPath> rows = table.indexPathsForVisibleRows();
    ASSERT_FALSE(rows.isEmpty());
    const QRectF first = table.rectForRowAtIndexPath(rows.first());
    EXPECT_LE(first.top(), table.contentOffset().y());
    EXPECT_GT(first.bottom(), table.contentOffset().y());
    EXPECT_EQ(table.cellForRowAtIndexPath(rows.first())->y(), std::lround(first.top() - table.contentOffset().y()));
}

TEST_F(TableView, DisplayCallbacksComeInScrollOrder)
{
    fill(100);
    model.logEvents = true;
    model.events.clear();
    table.verticalScrollBar()->setValue(200); // down: leaving at the top, arriving at the bottom
    ASSERT_FALSE(model.events.isEmpty());
    QList<int> leaving, arriving;
    for (const QString &e : model.events)
        (e.startsWith('-') ? leaving : arriving) << e.mid(1).toInt();
    EXPECT_TRUE(std::is_sorted(leaving.begin(), leaving.end()));
    EXPECT_TRUE(std::is_sorted(arriving.begin(), arriving.end()));
    model.events.clear();
    table.verticalScrollBar()->setValue(0); // up: the reverse
    arriving.clear();
    for (const QString &e : model.events)
        if (e.startsWith('+'))
            arriving << e.mid(1).toInt();
    EXPECT_TRUE(std::is_sorted(arriving.rbegin(), arriving.rend()));
    EXPECT_EQ(arriving.last(), 0);
}

TEST_F(TableView, PagingArithmeticKeepsTheOldRowsInViewWhenEveryRowIsMeasured)
{
    // The conversation screen's way: every row measured, 40 older rows put in front by a reload.
    table.setEstimatedRowHeight(0);
    fill(40);
    table.setContentOffset(QPointF(0, 0));
    const qreal oldHeight = table.contentSize().height();
    EXPECT_EQ(oldHeight, [] {
        qreal s = 0;
        for (int i = 0; i < 40; ++i)
            s += 30 + (i % 5) * 10;
        return s;
    }());
    model.heightOf = [](int row) { return qreal(30 + ((row + 40) % 5) * 10); }; // old rows keep their heights
    model.rows = 80;
    table.reloadData();
    const qreal newHeight = table.contentSize().height();
    table.setContentOffset(QPointF(table.contentOffset().x(), newHeight - oldHeight));
    EXPECT_EQ(table.indexPathsForVisibleRows().first().row, 40); // the row that was at the top
    // At the bottom: |visible height - (content height - offset)| < 120.
    table.scrollToRowAtIndexPath(IMIndexPath::indexPathForRow(79), IMTableView::ScrollPositionBottom, false);
    EXPECT_LT(std::abs(table.height() - (table.contentSize().height() - table.contentOffset().y())), 1.0);
}

TEST_F(TableView, InsertDeleteAndReloadKeepRowsAndWidgetsConsistent)
{
    fill(10);
    model.rows = 11;
    table.insertRowsAtIndexPaths({IMIndexPath::indexPathForRow(10)}, IMTableView::RowAnimationBottom);
    table.scrollToRowAtIndexPath(IMIndexPath::indexPathForRow(10), IMTableView::ScrollPositionBottom, false);
    ASSERT_TRUE(table.cellForRowAtIndexPath(IMIndexPath::indexPathForRow(10)));
    EXPECT_EQ(static_cast<TextCell *>(table.cellForRowAtIndexPath(IMIndexPath::indexPathForRow(10)))->label->text(),
        "row 10");
    model.rows = 10;
    table.deleteRowsAtIndexPaths({IMIndexPath::indexPathForRow(3)}, IMTableView::RowAnimationFade);
    EXPECT_EQ(table.numberOfRowsInSection(0), 10);
    table.reloadRowsAtIndexPaths({IMIndexPath::indexPathForRow(0)}, IMTableView::RowAnimationFade);
    for (IMTableViewCell *cell : table.visibleCells()) {
        const IMIndexPath p = table.indexPathForCell(cell);
        EXPECT_TRUE(p.isValid());
        EXPECT_EQ(cell->tableView(), &table);
    }
}

TEST_F(TableView, BadInputIsLoggedAndSurvived)
{
    // Out-of-range paths, heights that are no size, a missing data source, an unknown identifier.
    fill(5);
    EXPECT_EQ(table.cellForRowAtIndexPath(IMIndexPath::indexPathForRow(99)), nullptr);
    EXPECT_EQ(table.cellForRowAtIndexPath(IMIndexPath()), nullptr);
    table.scrollToRowAtIndexPath(IMIndexPath::indexPathForRow(99), IMTableView::ScrollPositionTop, true);
    table.reloadRowsAtIndexPaths({IMIndexPath::indexPathForRow(42)}, IMTableView::RowAnimationNone);
    table.deleteRowsAtIndexPaths({IMIndexPath::indexPathForRow(-3)}, IMTableView::RowAnimationNone);
    model.rows = 7; // the data source grew by 2, the insert says 1: reloads
    table.insertRowsAtIndexPaths({IMIndexPath::indexPathForRow(5)}, IMTableView::RowAnimationNone);
    EXPECT_EQ(table.numberOfRowsInSection(0), 7);
    model.heightOf = [](int row) { return row % 2 ? -5.0 : std::nan(""); };
    table.reloadData();
    EXPECT_EQ(table.contentSize().height(), 0);
    EXPECT_EQ(
        table.dequeueReusableCellWithIdentifier(QStringLiteral("Nope"), IMIndexPath::indexPathForRow(0)), nullptr);
    table.setDataSource(nullptr);
    EXPECT_EQ(table.numberOfRowsInSection(0), 0);
    EXPECT_TRUE(table.visibleCells().isEmpty());
}

TEST_F(TableView, TapSelectsAndDragOrContextMenuRevealsRowActions)
{
    fill(20);
    IMTableViewCell *row2 = table.cellForRowAtIndexPath(IMIndexPath::indexPathForRow(2));
    ASSERT_TRUE(row2);
    const QPoint centre = row2->geometry().center();
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, centre);
    ASSERT_EQ(model.selected.size(), 1);
    EXPECT_EQ(model.selected.first().row, 2);

    // Mouse drag to the left opens the actions; a click on "隱藏" runs its handler.
    QTest::mousePress(table.viewport(), Qt::LeftButton, {}, centre);
    for (int dx = 10; dx <= 120; dx += 10)
        QTest::mouseMove(table.viewport(), centre - QPoint(dx, 0));
    QTest::mouseRelease(table.viewport(), Qt::LeftButton, {}, centre - QPoint(120, 0));
    EXPECT_TRUE(table.isEditing());
    auto *hide = buttonWithText<QPushButton>(row2, QStringLiteral("隱藏"));
    ASSERT_TRUE(hide);
    QTest::mouseClick(hide, Qt::LeftButton);
    ASSERT_EQ(model.actioned.size(), 1);
    EXPECT_EQ(model.actioned.first().row, 2);
    table.setEditing(false, false);
    settle();
    EXPECT_FALSE(table.isEditing());
    EXPECT_EQ(row2->contentOffsetX(), 0);

    // Touch drag does the same on another row.
    IMTableViewCell *row4 = table.cellForRowAtIndexPath(IMIndexPath::indexPathForRow(4));
    const QPoint p = row4->geometry().center();
    QTest::touchEvent(table.viewport(), testTouchScreen()).press(0, p);
    for (int dx = 10; dx <= 120; dx += 10)
        QTest::touchEvent(table.viewport(), testTouchScreen()).move(0, p - QPoint(dx, 0));
    QTest::touchEvent(table.viewport(), testTouchScreen()).release(0, p - QPoint(120, 0));
    EXPECT_GT(row4->contentOffsetX(), 50);
    table.setEditing(false, false);

    // The context menu offers the same actions.
    QContextMenuEvent menuEvent(QContextMenuEvent::Mouse, centre, table.viewport()->mapToGlobal(centre));
    QCoreApplication::sendEvent(table.viewport(), &menuEvent);
    auto *menu = table.findChild<QMenu *>(QStringLiteral("IMTableViewRowActionsMenu"));
    ASSERT_TRUE(menu);
    ASSERT_EQ(menu->actions().size(), 1);
    menu->actions().first()->trigger();
    EXPECT_EQ(model.actioned.size(), 2);

    // A row that cannot be edited offers nothing.
    model.editable = false;
    QTest::mousePress(table.viewport(), Qt::LeftButton, {}, centre);
    QTest::mouseMove(table.viewport(), centre - QPoint(100, 0));
    QTest::mouseRelease(table.viewport(), Qt::LeftButton, {}, centre - QPoint(100, 0));
    EXPECT_FALSE(table.isEditing());
}

TEST_F(TableView, TemplateHeightsAreCachedByKeyAndReuseNeverStacksRecognisers)
{
    int dressed = 0;
    auto configure = [&](IMTableViewCell *cell) {
        ++dressed;
        static_cast<TextCell *>(cell)->label->setText(QStringLiteral("word ").repeated(80));
    };
    const qreal tall = table.heightForCellWithIdentifier(QStringLiteral("Text"), QStringLiteral("long"), configure);
    EXPECT_EQ(table.heightForCellWithIdentifier(QStringLiteral("Text"), QStringLiteral("long"), configure), tall);
    EXPECT_EQ(dressed, 1);
    const qreal shortOne = table.heightForCellWithIdentifier(QStringLiteral("Text"), QStringLiteral("short"),
        [](IMTableViewCell *cell) { static_cast<TextCell *>(cell)->label->setText(QStringLiteral("x")); });
    EXPECT_GT(tall, shortOne);

    // A row that adds its recogniser when dressed keeps one however often it is reused.
    fill(200);
    IMTapGestureRecognizer tap;
    for (int i = 0; i < 50; ++i) {
        table.verticalScrollBar()->setValue((i * 311) % 5000);
        for (IMTableViewCell *cell : table.visibleCells())
            tap.addToView(cell);
    }
    for (IMTableViewCell *cell : table.visibleCells())
        EXPECT_LE(IMGestureRecognizer::gestureRecognizers(cell).size(), 1);
}

} // namespace

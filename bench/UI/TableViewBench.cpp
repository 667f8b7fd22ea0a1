// The kit's table with 10,000 rows of varied heights beside a plain QListView over a
// QStandardItemModel holding the same texts, offscreen: time to the first frame after a reload,
// and the frame time of a scroll step.
#include <QLabel>
#include <QListView>
#include <QScrollBar>
#include <QStandardItemModel>
#include <QVBoxLayout>

#include "IMTableView.h"
#include "IMTableViewCell.h"
#include "UIBenchSupport.h"

namespace {
const int kRows = 10000;
const int kRounds = 7;
const int kSteps = 300;

QString textOf(int row)
{
    // One to four lines of text, so rows differ in height.
    return QStringLiteral("Row %1: ").arg(row)
        + QStringLiteral("lorem ipsum dolor sit amet ").repeated(1 + (row * 7) % 9);
}

class Cell : public IMTableViewCell {
public:
    Cell()
        : IMTableViewCell(QStringLiteral("Cell"))
    {
        auto *layout = new QVBoxLayout(contentView());
        layout->setContentsMargins(16, 8, 16, 8);
        label = new QLabel(contentView());
        label->setWordWrap(true);
        layout->addWidget(label);
    }
    QLabel *label;
};

class Rows : public IMTableViewDataSource, public IMTableViewDelegate {
public:
    IMTableView *table = nullptr;
    int numberOfRowsInSection(IMTableView *, int) override { return kRows; }
    IMTableViewCell *cellForRowAtIndexPath(IMTableView *t, const IMIndexPath &p) override
    {
        auto *cell = static_cast<Cell *>(t->dequeueReusableCellWithIdentifier(QStringLiteral("Cell"), p));
        cell->label->setText(textOf(p.row));
        return cell;
    }
    qreal heightForRowAtIndexPath(IMTableView *t, const IMIndexPath &p) override
    {
        // Template rows measured once per distinct length, as the screens do.
        const int kind = (p.row * 7) % 9;
        return t->heightForCellWithIdentifier(QStringLiteral("Cell"), QString::number(kind),
            [&](IMTableViewCell *c) { static_cast<Cell *>(c)->label->setText(textOf(p.row)); });
    }
};

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    IMTableView table;
    Rows rows;
    table.registerCell(QStringLiteral("Cell"), [] { return new Cell; });
    table.resize(390, 720);
    table.show();
    table.setDelegate(&rows);
    double ourFirst = 0;
    std::vector<double> ourSteps;
    uiMeasure(
        &table, kRounds, kSteps, [&] { table.setDataSource(&rows); },
        [&](int s) { table.verticalScrollBar()->setValue(table.verticalScrollBar()->value() + 40 + (s % 3) * 20); },
        ourFirst, ourSteps);

    QListView list;
    QStandardItemModel model;
    list.setWordWrap(true);
    list.setUniformItemSizes(false);
    list.setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    list.resize(390, 720);
    list.show();
    double baseFirst = 0;
    std::vector<double> baseSteps;
    uiMeasure(
        &list, kRounds, kSteps,
        [&] {
            model.clear();
            for (int i = 0; i < kRows; ++i)
                model.appendRow(new QStandardItem(textOf(i)));
            list.setModel(&model);
        },
        [&](int s) { list.verticalScrollBar()->setValue(list.verticalScrollBar()->value() + 40 + (s % 3) * 20); },
        baseFirst, baseSteps);

    std::printf("table view, %d rows: first frame %.2f ms (QListView %.2f ms); scroll step median %.2f / p99 %.2f ms "
                "(QListView %.2f / %.2f ms); row widgets made %d\n",
        kRows, ourFirst, baseFirst, uiPercentile(ourSteps, 0.5), uiPercentile(ourSteps, 0.99),
        uiPercentile(baseSteps, 0.5), uiPercentile(baseSteps, 0.99), table.createdCellCount());
    uiRow("table view: first frame after reloadData, 10,000 rows (baseline QListView)", ourFirst, "ms", baseFirst,
        "<=", 50);
    uiRow("table view: scroll step, median (baseline QListView)", uiPercentile(ourSteps, 0.5), "ms",
        uiPercentile(baseSteps, 0.5));
    uiRow("table view: scroll step, p99 (baseline QListView)", uiPercentile(ourSteps, 0.99), "ms",
        uiPercentile(baseSteps, 0.99), "<=", 16);
    return 0;
}

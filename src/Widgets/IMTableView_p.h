#pragma once

// The table's private state, shared by its layout code (IMTableView.cpp) and its pointer and
// row-action handling (IMTableViewEvents.cpp).
#include <QHash>
#include <QMap>
#include <QPointer>
#include <QVector>
#include <algorithm>
#include <cmath>

#include "IMLog.h"
#include "IMTableView.h"
#include "IMTableViewCell.h"
#include "IMTableViewLayout_p.h"

class IMTableViewRowAction;

namespace {
const int kDragSlop = 8; // points a press moves before it becomes a drag
const int kSpareCells = 4; // reusable rows kept per kind beyond those on screen
} // namespace

struct IMTableView::Private {
    IMTableView *q = nullptr;
    IMTableViewDataSource *dataSource = nullptr;
    IMTableViewDelegate *delegate = nullptr;
    QHash<QString, CellFactory> factories;
    QHash<QString, QList<IMTableViewCell *>> pool;
    QHash<QString, IMTableViewCell *> templates;
    QHash<QString, qreal> heightCache;
    qreal rowHeight = 44;
    qreal estimatedRowHeight = 44;
    QVector<int> sectionStarts; // global index of each section's first row
    IMTableViewLayout layout;
    QMap<int, IMTableViewCell *> visible; // global row -> row widget on screen
    QPointer<QWidget> footer;
    bool separators = true;
    bool interaction = true;
    bool layoutPending = false;
    bool inLayout = false;
    bool loggedBadHeight = false;
    int createdCells = 0;
    qreal lastOffset = 0;

    // Pointer gestures on rows: a tap selects, a horizontal drag reveals row actions, a vertical
    // drag scrolls.
    enum class Drag { None, Pending, Horizontal, Vertical };
    Drag drag = Drag::None;
    QPointF pressPos;
    int pressOffset = 0;
    int pressRow = -1;
    qreal pressSlide = 0;
    int openRow = -1; // row whose actions are shown
    QPointer<QWidget> actionsView; // the open row's action buttons, behind its content

    int total() const { return layout.count(); }
    int globalRow(const IMIndexPath &p) const
    {
        if (!p.isValid() || p.section >= sectionStarts.size())
            return -1;
        const int start = sectionStarts[p.section];
        const int end = p.section + 1 < sectionStarts.size() ? sectionStarts[p.section + 1] : total();
        return p.row < end - start ? start + p.row : -1;
    }
    IMIndexPath indexPath(int g) const
    {
        if (g < 0 || g >= total())
            return IMIndexPath();
        const int section
            = int(std::upper_bound(sectionStarts.begin(), sectionStarts.end(), g) - sectionStarts.begin()) - 1;
        return IMIndexPath::indexPathForRow(g - sectionStarts[section], section);
    }
    qreal sanitize(qreal h)
    {
        if (std::isfinite(h) && h >= 0)
            return h;
        if (!loggedBadHeight) {
            loggedBadHeight = true;
            IM_LOG(QStringLiteral("row height %1 is not a size; drawing the row with height 0").arg(h));
        }
        return 0;
    }
    qreal estimate(int g)
    {
        if (!delegate)
            return rowHeight;
        return sanitize(delegate->estimatedHeightForRowAtIndexPath(q, indexPath(g)));
    }
    qreal measure(int g)
    {
        const qreal h = sanitize(delegate ? delegate->heightForRowAtIndexPath(q, indexPath(g)) : rowHeight);
        return h;
    }
    void recount()
    {
        sectionStarts.clear();
        int sections = dataSource ? qMax(0, dataSource->numberOfSectionsInTableView(q)) : 0;
        int sum = 0;
        for (int s = 0; s < sections; ++s) {
            sectionStarts << sum;
            sum += qMax(0, dataSource->numberOfRowsInSection(q, s));
        }
        if (sectionStarts.isEmpty())
            sectionStarts << 0;
        layout.reset(sum, estimatedRowHeight > 0 ? estimatedRowHeight : rowHeight);
        if (delegate && estimatedRowHeight > 0) {
            // Per-row estimates only when the delegate offers them: they are cheap by contract.
            for (int g = 0; g < sum; ++g)
                layout.setHeight(g, estimate(g), false);
        }
        if (estimatedRowHeight <= 0)
            for (int g = 0; g < sum; ++g)
                layout.setHeight(g, measure(g));
    }
    qreal footerHeight() const { return footer ? footer->height() : 0; }
    qreal contentHeight() const { return layout.total() + footerHeight(); }
    void enqueue(IMTableViewCell *cell)
    {
        cell->hide();
        cell->setContentOffsetX(0);
        cell->setSelected(false);
        QList<IMTableViewCell *> &spares = pool[cell->reuseIdentifier()];
        if (spares.size() >= kSpareCells + visible.size())
            cell->deleteLater();
        else
            spares << cell;
    }
    void endDisplay(int g, IMTableViewCell *cell)
    {
        if (openRow == g)
            closeActions(false);
        if (delegate)
            delegate->didEndDisplayingCell(q, cell, indexPath(g));
        enqueue(cell);
    }
    void closeActions(bool animated);
    void openActions(int g, bool animated);
    void slide(int g, qreal offset);
    QList<IMTableViewRowAction *> actionsFor(int g);
};

#include "IMTableView.h"

#include <QContextMenuEvent>
#include <QHash>
#include <QLayout>
#include <QMap>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QResizeEvent>
#include <QScrollBar>
#include <QTimer>
#include <QTouchEvent>
#include <cmath>

#include "IMAnimation.h"
#include "IMLog.h"
#include "IMTableViewCell.h"
#include "IMTableViewRowAction.h"
#include "IMTableView_p.h"

IMTableViewDataSource::~IMTableViewDataSource() = default;
int IMTableViewDataSource::numberOfSectionsInTableView(IMTableView *) { return 1; }
bool IMTableViewDataSource::canEditRowAtIndexPath(IMTableView *, const IMIndexPath &) { return false; }

IMTableViewDelegate::~IMTableViewDelegate() = default;
qreal IMTableViewDelegate::heightForRowAtIndexPath(IMTableView *t, const IMIndexPath &) { return t->rowHeight(); }
qreal IMTableViewDelegate::estimatedHeightForRowAtIndexPath(IMTableView *t, const IMIndexPath &)
{
    return t->estimatedRowHeight() > 0 ? t->estimatedRowHeight() : t->rowHeight();
}
void IMTableViewDelegate::willDisplayCell(IMTableView *, IMTableViewCell *, const IMIndexPath &) {}
void IMTableViewDelegate::didEndDisplayingCell(IMTableView *, IMTableViewCell *, const IMIndexPath &) {}
void IMTableViewDelegate::didSelectRowAtIndexPath(IMTableView *, const IMIndexPath &) {}
QList<IMTableViewRowAction *> IMTableViewDelegate::editActionsForRowAtIndexPath(IMTableView *, const IMIndexPath &)
{
    return {};
}
void IMTableViewDelegate::scrollViewDidScroll(IMTableView *) {}

IMTableView::IMTableView(QWidget *parent)
    : QAbstractScrollArea(parent)
    , d(new Private)
{
    d->q = this;
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    // A thin bar over the rows, so the visible height is the table's own height.
    verticalScrollBar()->setStyleSheet(QStringLiteral(
        "QScrollBar:vertical { width: 6px; background: transparent; margin: 2px; }"
        "QScrollBar::handle:vertical { background: rgba(0,0,0,0.25); border-radius: 3px; min-height: 24px; }"
        "QScrollBar::add-line, QScrollBar::sub-line { height: 0; } QScrollBar::add-page, QScrollBar::sub-page { "
        "background: none; }"));
    setViewportMargins(0, 0, 0, 0);
    viewport()->setAttribute(Qt::WA_AcceptTouchEvents, true);
    viewport()->setAutoFillBackground(true);
    QPalette pal = viewport()->palette();
    pal.setColor(QPalette::Window, Qt::white);
    viewport()->setPalette(pal);
    verticalScrollBar()->setSingleStep(20);
}

IMTableView::~IMTableView()
{
    // The data source and delegate are not told about rows going away with the table.
    d->dataSource = nullptr;
    d->delegate = nullptr;
    qDeleteAll(d->templates);
    delete d;
}

IMTableViewDataSource *IMTableView::dataSource() const { return d->dataSource; }
IMTableViewDelegate *IMTableView::delegate() const { return d->delegate; }

void IMTableView::setDataSource(IMTableViewDataSource *dataSource)
{
    d->dataSource = dataSource;
    reloadData();
}

void IMTableView::setDelegate(IMTableViewDelegate *delegate) { d->delegate = delegate; }

void IMTableView::registerCell(const QString &identifier, const CellFactory &factory)
{
    d->factories.insert(identifier, factory);
    delete d->templates.take(identifier);
}

IMTableViewCell *IMTableView::dequeueReusableCellWithIdentifier(const QString &identifier, const IMIndexPath &)
{
    QList<IMTableViewCell *> &spares = d->pool[identifier];
    while (!spares.isEmpty()) {
        IMTableViewCell *cell = spares.takeLast();
        if (!cell)
            continue;
        cell->prepareForReuse();
        return cell;
    }
    const CellFactory factory = d->factories.value(identifier);
    if (!factory) {
        IM_LOG(QStringLiteral("no row registered for identifier \"%1\"").arg(identifier));
        return nullptr;
    }
    IMTableViewCell *cell = factory();
    if (!cell) {
        IM_LOG(QStringLiteral("the row factory for \"%1\" made nothing").arg(identifier));
        return nullptr;
    }
    ++d->createdCells;
    cell->setParent(viewport());
    cell->hide();
    return cell;
}

qreal IMTableView::rowHeight() const { return d->rowHeight; }
void IMTableView::setRowHeight(qreal height) { d->rowHeight = d->sanitize(height); }
qreal IMTableView::estimatedRowHeight() const { return d->estimatedRowHeight; }
void IMTableView::setEstimatedRowHeight(qreal height)
{
    d->estimatedRowHeight = std::isfinite(height) ? qMax<qreal>(0, height) : 0;
}

qreal IMTableView::heightForCellWithIdentifier(
    const QString &identifier, const QString &cacheKey, const std::function<void(IMTableViewCell *)> &configure)
{
    auto cached = d->heightCache.constFind(cacheKey);
    if (cached != d->heightCache.constEnd())
        return cached.value();
    IMTableViewCell *cell = d->templates.value(identifier);
    if (!cell) {
        const CellFactory factory = d->factories.value(identifier);
        cell = factory ? factory() : nullptr;
        if (!cell) {
            IM_LOG(
                QStringLiteral("no row registered for identifier \"%1\"; height %2").arg(identifier).arg(d->rowHeight));
            return d->rowHeight;
        }
        // The template is never shown: it only measures.
        cell->setAttribute(Qt::WA_DontShowOnScreen, true);
        cell->setParent(nullptr);
        d->templates.insert(identifier, cell);
    }
    const int width = qMax(1, viewport()->width());
    cell->resize(width, cell->height() > 0 ? cell->height() : int(d->rowHeight));
    if (configure)
        configure(cell);
    // Style sheets set fonts at polish time; an unshown template must be polished to measure right.
    // Its layouts cache heights per width and only forget them at the next layout pass: make
    // them forget now, nested layouts included, or the previous dressing's height comes back.
    cell->ensurePolished();
    std::function<void(QLayout *)> forget = [&forget](QLayout *l) {
        if (!l)
            return;
        l->invalidate();
        for (int i = 0; i < l->count(); ++i) {
            QLayoutItem *item = l->itemAt(i);
            item->invalidate();
            forget(item->layout());
            // A child widget's cached size in its parent's layout and its own layout too (a bubble
            // around a text): an unshown widget's changes reach neither until events run.
            if (QWidget *child = item->widget()) {
                child->updateGeometry();
                forget(child->layout());
            }
        }
    };
    forget(cell->contentView()->layout());
    forget(cell->layout());
    const qreal h
        = d->sanitize(cell->heightForWidth(width) >= 0 ? cell->heightForWidth(width) : cell->sizeHint().height());
    d->heightCache.insert(cacheKey, h);
    return h;
}

void IMTableView::invalidateHeightCache() { d->heightCache.clear(); }

int IMTableView::numberOfSections() const { return d->sectionStarts.size(); }

int IMTableView::numberOfRowsInSection(int section) const
{
    if (section < 0 || section >= d->sectionStarts.size())
        return 0;
    const int end = section + 1 < d->sectionStarts.size() ? d->sectionStarts[section + 1] : d->total();
    return end - d->sectionStarts[section];
}

void IMTableView::reloadData()
{
    d->closeActions(false);
    // Rows on screen go back to the pool; the data source dresses them again.
    const auto rows = d->visible;
    d->visible.clear();
    for (auto it = rows.begin(); it != rows.end(); ++it)
        d->endDisplay(it.key(), it.value());
    d->recount();
    updateScrollRange();
    layoutRows();
}

void IMTableView::insertRowsAtIndexPaths(const QList<IMIndexPath> &indexPaths, RowAnimation animation)
{
    // Validate against the data source's new counts; anything odd falls back to a full reload.
    QVector<int> oldStarts = d->sectionStarts;
    const int oldTotal = d->total();
    int sections = d->dataSource ? d->dataSource->numberOfSectionsInTableView(this) : 0;
    if (sections != oldStarts.size() || indexPaths.isEmpty()) {
        reloadData();
        return;
    }
    QList<IMIndexPath> sorted = indexPaths;
    std::sort(sorted.begin(), sorted.end());
    int newTotal = 0;
    for (int s = 0; s < sections; ++s)
        newTotal += qMax(0, d->dataSource->numberOfRowsInSection(this, s));
    if (newTotal != oldTotal + sorted.size()) {
        IM_LOG(QStringLiteral("inserted %1 row(s) but the data source went from %2 to %3; reloading")
                   .arg(sorted.size())
                   .arg(oldTotal)
                   .arg(newTotal));
        reloadData();
        return;
    }
    // New section starts, then each inserted global index in ascending order.
    QVector<int> newStarts;
    QVector<int> newCounts;
    int sum = 0;
    for (int s = 0; s < sections; ++s) {
        newStarts << sum;
        newCounts << qMax(0, d->dataSource->numberOfRowsInSection(this, s));
        sum += newCounts.last();
    }
    d->sectionStarts = newStarts;
    QList<int> inserted;
    for (const IMIndexPath &p : sorted) {
        // Against the new counts: a row appended at the end is past the old total.
        const bool valid = p.isValid() && p.section < sections && p.row < newCounts[p.section];
        const int g = valid ? newStarts[p.section] + p.row : -1;
        if (g < 0) {
            IM_LOG(
                QStringLiteral("insert at row %1 of section %2 is out of range; reloading").arg(p.row).arg(p.section));
            d->sectionStarts = oldStarts;
            reloadData();
            return;
        }
        inserted << g;
    }
    const qreal offsetBefore = contentOffset().y();
    qreal heightAbove = 0;
    const int firstVisible = d->visible.isEmpty() ? d->total() : d->visible.firstKey();
    QMap<int, IMTableViewCell *> shifted;
    for (int g : inserted) {
        d->layout.insert(g, d->estimatedRowHeight > 0 ? d->estimate(g) : 0);
        if (d->estimatedRowHeight <= 0)
            d->layout.setHeight(g, d->measure(g));
    }
    // Rows on screen keep their widgets, at their new indexes.
    for (auto it = d->visible.begin(); it != d->visible.end(); ++it) {
        int g = it.key();
        int shift = 0;
        for (int ins : inserted)
            if (ins <= g + shift)
                ++shift;
        shifted.insert(g + shift, it.value());
    }
    d->visible = shifted;
    if (d->openRow >= 0) {
        int shift = 0;
        for (int ins : inserted)
            if (ins <= d->openRow + shift)
                ++shift;
        d->openRow += shift;
    }
    // Rows inserted above the first visible row push the content down: keep what is on screen in place.
    for (int g : inserted)
        if (g < firstVisible && offsetBefore > 0)
            heightAbove += d->layout.height(g);
    updateScrollRange();
    if (heightAbove > 0)
        verticalScrollBar()->setValue(int(offsetBefore + heightAbove));
    const QSet<int> fresh(inserted.begin(), inserted.end());
    layoutRows(fresh, animation);
}

void IMTableView::reloadRowsAtIndexPaths(const QList<IMIndexPath> &indexPaths, RowAnimation animation)
{
    QSet<int> rows;
    for (const IMIndexPath &p : indexPaths) {
        const int g = d->globalRow(p);
        if (g < 0) {
            IM_LOG(QStringLiteral("reload of row %1 of section %2 is out of range; ignored").arg(p.row).arg(p.section));
            continue;
        }
        rows.insert(g);
        if (d->estimatedRowHeight > 0)
            d->layout.forget(g);
        else
            d->layout.setHeight(g, d->measure(g));
        if (IMTableViewCell *cell = d->visible.take(g))
            d->endDisplay(g, cell);
    }
    updateScrollRange();
    layoutRows(rows, animation);
}

void IMTableView::deleteRowsAtIndexPaths(const QList<IMIndexPath> &indexPaths, RowAnimation)
{
    QList<int> rows;
    for (const IMIndexPath &p : indexPaths) {
        const int g = d->globalRow(p);
        if (g < 0)
            IM_LOG(QStringLiteral("delete of row %1 of section %2 is out of range; ignored").arg(p.row).arg(p.section));
        else
            rows << g;
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    // Remove from the bottom up so each index still names the row it named.
    for (int i = rows.size() - 1; i >= 0; --i) {
        const int g = rows[i];
        if (IMTableViewCell *cell = d->visible.take(g))
            d->endDisplay(g, cell);
        d->layout.remove(g);
        QMap<int, IMTableViewCell *> shifted;
        for (auto it = d->visible.begin(); it != d->visible.end(); ++it)
            shifted.insert(it.key() > g ? it.key() - 1 : it.key(), it.value());
        d->visible = shifted;
        if (d->openRow > g)
            --d->openRow;
    }
    // The data source's counts rule the sections.
    if (d->dataSource) {
        QVector<int> starts;
        int sum = 0;
        const int sections = qMax(0, d->dataSource->numberOfSectionsInTableView(this));
        for (int s = 0; s < sections; ++s) {
            starts << sum;
            sum += qMax(0, d->dataSource->numberOfRowsInSection(this, s));
        }
        if (sum != d->total()) {
            IM_LOG(QStringLiteral("after deleting rows the data source has %1 rows, the table %2; reloading")
                       .arg(sum)
                       .arg(d->total()));
            reloadData();
            return;
        }
        d->sectionStarts = starts.isEmpty() ? QVector<int> {0} : starts;
    }
    updateScrollRange();
    layoutRows();
}

QList<IMTableViewCell *> IMTableView::visibleCells() const
{
    const_cast<IMTableView *>(this)->layoutIfNeeded();
    return d->visible.values();
}

QList<IMIndexPath> IMTableView::indexPathsForVisibleRows() const
{
    const_cast<IMTableView *>(this)->layoutIfNeeded();
    QList<IMIndexPath> out;
    for (int g : d->visible.keys())
        out << d->indexPath(g);
    return out;
}

IMIndexPath IMTableView::indexPathForCell(const IMTableViewCell *cell) const
{
    for (auto it = d->visible.constBegin(); it != d->visible.constEnd(); ++it)
        if (it.value() == cell)
            return d->indexPath(it.key());
    return IMIndexPath();
}

IMTableViewCell *IMTableView::cellForRowAtIndexPath(const IMIndexPath &indexPath) const
{
    const_cast<IMTableView *>(this)->layoutIfNeeded();
    return d->visible.value(d->globalRow(indexPath), nullptr);
}

IMIndexPath IMTableView::indexPathForRowAtPoint(const QPointF &point) const
{
    if (point.y() < 0 || point.y() >= d->layout.total())
        return IMIndexPath();
    return d->indexPath(d->layout.rowAt(point.y()));
}

QRectF IMTableView::rectForRowAtIndexPath(const IMIndexPath &indexPath) const
{
    const int g = d->globalRow(indexPath);
    if (g < 0)
        return QRectF();
    return QRectF(0, d->layout.top(g), viewport()->width(), d->layout.height(g));
}

void IMTableView::scrollToRowAtIndexPath(const IMIndexPath &indexPath, ScrollPosition position, bool animated)
{
    const int g = d->globalRow(indexPath);
    if (g < 0)
        return;
    // Measuring the target (and what comes into view) can move it: settle the offset in a few passes.
    qreal target = 0;
    for (int pass = 0; pass < 3; ++pass) {
        if (!d->layout.isMeasured(g))
            d->layout.setHeight(g, d->measure(g));
        updateScrollRange();
        const qreal top = d->layout.top(g);
        const qreal h = d->layout.height(g);
        const qreal view = viewport()->height();
        const qreal now = contentOffset().y();
        switch (position) {
        case ScrollPositionTop:
            target = top;
            break;
        case ScrollPositionMiddle:
            target = top + h / 2 - view / 2;
            break;
        case ScrollPositionBottom:
            target = top + h - view;
            break;
        case ScrollPositionNone:
            target = top < now ? top : (top + h > now + view ? top + h - view : now);
            break;
        }
        if (animated && IMAnimationsEnabled())
            break;
        setContentOffset(QPointF(0, target), false);
    }
    if (animated && IMAnimationsEnabled())
        setContentOffset(QPointF(0, target), true);
}

QPointF IMTableView::contentOffset() const { return QPointF(0, verticalScrollBar()->value()); }

void IMTableView::setContentOffset(const QPointF &offset, bool animated)
{
    const qreal y = std::isfinite(offset.y()) ? offset.y() : 0;
    const int value = qBound(0, int(std::lround(y)), verticalScrollBar()->maximum());
    if (animated && IMAnimationsEnabled()) {
        QScrollBar *bar = verticalScrollBar();
        IMAnimate(0.3, [bar, value] {
            if (!IMAnimateProperty(bar, "value", bar->value(), value))
                bar->setValue(value);
        });
        return;
    }
    verticalScrollBar()->setValue(value);
    layoutIfNeeded();
}

QSizeF IMTableView::contentSize() const { return QSizeF(viewport()->width(), d->contentHeight()); }

void IMTableView::layoutIfNeeded()
{
    if (d->layoutPending || d->visible.isEmpty())
        layoutRows();
}

QWidget *IMTableView::tableFooterView() const { return d->footer; }

void IMTableView::setTableFooterView(QWidget *view)
{
    if (d->footer && d->footer != view)
        d->footer->deleteLater();
    d->footer = view;
    if (view) {
        view->setParent(viewport());
        view->show();
    }
    updateScrollRange();
    scheduleLayout();
}

bool IMTableView::showsSeparators() const { return d->separators; }

void IMTableView::setShowsSeparators(bool shows)
{
    d->separators = shows;
    for (IMTableViewCell *cell : d->visible)
        cell->setProperty("imSeparator", shows);
    viewport()->update();
}

bool IMTableView::isEditing() const { return d->openRow >= 0; }

void IMTableView::setEditing(bool editing, bool animated)
{
    if (!editing)
        d->closeActions(animated);
}

bool IMTableView::isUserInteractionEnabled() const { return d->interaction; }

void IMTableView::setUserInteractionEnabled(bool enabled)
{
    d->interaction = enabled;
    viewport()->setAttribute(Qt::WA_TransparentForMouseEvents, !enabled);
    verticalScrollBar()->setEnabled(enabled);
}

int IMTableView::createdCellCount() const { return d->createdCells; }

void IMTableView::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    if (event->oldSize().width() != event->size().width() && d->total() > 0) {
        // Heights depend on the width: measure again (cached template heights too).
        d->heightCache.clear();
        const qreal before = contentOffset().y();
        const int first = d->visible.isEmpty() ? 0 : d->visible.firstKey();
        for (int g = 0; g < d->total(); ++g) {
            if (d->estimatedRowHeight > 0)
                d->layout.forget(g);
            else
                d->layout.setHeight(g, d->measure(g));
        }
        updateScrollRange();
        // Keep the first row on screen at the top.
        if (before > 0)
            verticalScrollBar()->setValue(int(d->layout.top(first)));
    }
    updateScrollRange();
    layoutRows();
}

void IMTableView::scrollContentsBy(int, int)
{
    layoutRows();
    if (d->delegate)
        d->delegate->scrollViewDidScroll(this);
    emit didScroll();
}

void IMTableView::paintEvent(QPaintEvent *event) { QAbstractScrollArea::paintEvent(event); }

void IMTableView::scheduleLayout()
{
    if (d->layoutPending)
        return;
    d->layoutPending = true;
    QPointer<IMTableView> self(this);
    QTimer::singleShot(0, this, [self] {
        if (self && self->d->layoutPending)
            self->layoutRows();
    });
}

void IMTableView::updateScrollRange()
{
    QScrollBar *bar = verticalScrollBar();
    const int view = viewport()->height();
    const int max = qMax(0, int(std::ceil(d->contentHeight())) - view);
    bar->setPageStep(qMax(1, view));
    bar->setRange(0, max);
}

// Puts a widget on every row that intersects the viewport and hands the others back to the pool.
// `fresh` rows (just inserted or reloaded) appear with `animation`.
void IMTableView::layoutRows(const QSet<int> &fresh, RowAnimation animation)
{
    if (d->inLayout)
        return;
    d->inLayout = true;
    d->layoutPending = false;
    const int width = viewport()->width();
    const qreal view = viewport()->height();
    qreal offset = verticalScrollBar()->value();
    const bool down = offset >= d->lastOffset;
    const int firstBefore = d->visible.isEmpty() ? -1 : d->visible.firstKey();

    // Measure the rows coming into view; rows measured above the first one on screen move the
    // offset by their change, so what is on screen stays put.
    QList<int> rows;
    if (d->total() > 0) {
        for (int pass = 0; pass < 4; ++pass) {
            rows.clear();
            bool changed = false;
            int g = d->layout.rowAt(offset);
            // Rows of height 0 starting at the offset count as on screen.
            while (g > 0 && d->layout.top(g) >= offset && d->layout.top(g - 1) >= offset)
                --g;
            for (; g < d->total(); ++g) {
                const qreal top = d->layout.top(g);
                if (top >= offset + view && !(top == offset + view && view == 0))
                    break;
                if (!d->layout.isMeasured(g)) {
                    const qreal delta = d->layout.setHeight(g, d->measure(g));
                    if (delta != 0) {
                        changed = true;
                        if (firstBefore >= 0 && g < firstBefore)
                            offset += delta;
                    }
                }
                rows << g;
            }
            if (!changed)
                break;
            updateScrollRange();
            offset = qBound<qreal>(0, offset, verticalScrollBar()->maximum());
        }
        if (int(offset) != verticalScrollBar()->value()) {
            const QSignalBlocker block(verticalScrollBar());
            verticalScrollBar()->setValue(int(offset));
            offset = verticalScrollBar()->value();
        }
    }
    d->lastOffset = offset;

    // Rows leaving, in scroll order.
    const QSet<int> keep(rows.begin(), rows.end());
    QList<int> leaving;
    for (auto it = d->visible.begin(); it != d->visible.end(); ++it)
        if (!keep.contains(it.key()))
            leaving << it.key();
    if (!down)
        std::reverse(leaving.begin(), leaving.end());
    for (int g : leaving)
        d->endDisplay(g, d->visible.take(g));

    // Rows arriving, in scroll order.
    QList<int> arriving;
    for (int g : rows)
        if (!d->visible.contains(g))
            arriving << g;
    if (!down)
        std::reverse(arriving.begin(), arriving.end());
    for (int g : arriving) {
        if (!d->dataSource)
            break;
        IMTableViewCell *cell = d->dataSource->cellForRowAtIndexPath(this, d->indexPath(g));
        if (!cell) {
            IM_LOG(QStringLiteral("no row for row %1; left empty").arg(g));
            continue;
        }
        if (cell->parentWidget() != viewport())
            cell->setParent(viewport());
        d->visible.insert(g, cell);
        cell->setProperty("imSeparator", d->separators && g < d->total() - 1);
        cell->setGeometry(0, int(std::lround(d->layout.top(g) - offset)), width, int(std::lround(d->layout.height(g))));
        if (d->delegate)
            d->delegate->willDisplayCell(this, cell, d->indexPath(g));
        if (!d->visible.contains(g) || d->visible.value(g) != cell)
            continue; // the delegate changed the table under us
        cell->show();
        if (fresh.contains(g) && animation != RowAnimationNone && IMAnimationsEnabled()) {
            const QRect final = cell->geometry();
            if (animation == RowAnimationBottom)
                cell->setGeometry(final.translated(0, final.height()));
            IMViewSetAlpha(cell, 0);
            IMAnimate(0.25, [cell, final, animation] {
                IMViewSetAlpha(cell, 1);
                if (animation == RowAnimationBottom)
                    IMViewSetGeometry(cell, final);
            });
        }
    }

    // Everything on screen at its place.
    for (auto it = d->visible.begin(); it != d->visible.end(); ++it) {
        IMTableViewCell *cell = it.value();
        const QRect r(
            0, int(std::lround(d->layout.top(it.key()) - offset)), width, int(std::lround(d->layout.height(it.key()))));
        if (cell->geometry() != r && !fresh.contains(it.key()))
            cell->setGeometry(r);
        cell->setProperty("imSeparator", d->separators && it.key() < d->total() - 1);
    }
    if (d->footer) {
        d->footer->setGeometry(0, int(std::lround(d->layout.total() - offset)), width, d->footer->height());
        d->footer->setVisible(d->footer->height() > 0);
    }
    d->inLayout = false;
}

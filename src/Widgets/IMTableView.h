#pragma once

#include <QAbstractScrollArea>
#include <QList>
#include <QSet>
#include <functional>

#include "IMIndexPath.h"

class IMTableView;
class IMTableViewCell;
class IMTableViewRowAction;

//! Supplies a table's rows. The table does not own it; it must outlive the table or be unset.
class IMTableViewDataSource {
public:
    virtual ~IMTableViewDataSource();
    //! Number of sections (default 1).
    virtual int numberOfSectionsInTableView(IMTableView *tableView);
    //! Number of rows in `section`.
    virtual int numberOfRowsInSection(IMTableView *tableView, int section) = 0;
    //! The row at `indexPath`, usually from `dequeueReusableCellWithIdentifier`; null draws an empty row.
    virtual IMTableViewCell *cellForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) = 0;
    //! Whether the row offers row actions (default false).
    virtual bool canEditRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath);
};

//! Hears about a table's rows. All optional. The table does not own it.
class IMTableViewDelegate {
public:
    virtual ~IMTableViewDelegate();
    //! The row's height in points (default the table's `rowHeight`). Asked only for rows about to be
    //! shown (or for every row on reload when `estimatedRowHeight` is 0). A negative or non-finite
    //! answer is taken as 0 and logged.
    virtual qreal heightForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath);
    //! A cheap guess of the row's height used until it is measured (default `estimatedRowHeight`).
    virtual qreal estimatedHeightForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath);
    //! The row is about to show. Called in scroll order (top to bottom when scrolling down).
    virtual void willDisplayCell(IMTableView *tableView, IMTableViewCell *cell, const IMIndexPath &indexPath);
    //! The row left the screen (or was removed). Called in scroll order.
    virtual void didEndDisplayingCell(IMTableView *tableView, IMTableViewCell *cell, const IMIndexPath &indexPath);
    //! The row was tapped.
    virtual void didSelectRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath);
    //! The row's actions, right to left (default none).
    virtual QList<IMTableViewRowAction *> editActionsForRowAtIndexPath(
        IMTableView *tableView, const IMIndexPath &indexPath);
    //! The content offset changed.
    virtual void scrollViewDidScroll(IMTableView *tableView);
};

//! A vertical list of rows, the kit's table view. Only the rows on screen (plus a few spares) exist as
//! widgets; rows are reused by identifier. Heights come from the delegate for rows about to show and
//! from estimates for the others, so a very long list opens without measuring every row.
//! Geometry is in points with (0, 0) at the top of the content: `contentOffset().y()` is how far the
//! content is scrolled, `contentSize().height()` the sum of the row heights (plus the footer).
class IMTableView : public QAbstractScrollArea {
    Q_OBJECT
public:
    //! How inserted, reloaded or deleted rows appear.
    enum RowAnimation { RowAnimationNone, RowAnimationFade, RowAnimationBottom, RowAnimationAutomatic };
    Q_ENUM(RowAnimation)
    //! Where `scrollToRowAtIndexPath` puts the row.
    enum ScrollPosition { ScrollPositionNone, ScrollPositionTop, ScrollPositionMiddle, ScrollPositionBottom };
    Q_ENUM(ScrollPosition)
    //! Makes a new row of one kind.
    using CellFactory = std::function<IMTableViewCell *()>;

    //! An empty table.
    explicit IMTableView(QWidget *parent = nullptr);
    ~IMTableView() override;

    //! The data source (may be null: no rows).
    IMTableViewDataSource *dataSource() const;
    //! Sets the data source (not owned) and reloads.
    void setDataSource(IMTableViewDataSource *dataSource);
    //! The delegate (may be null).
    IMTableViewDelegate *delegate() const;
    //! Sets the delegate (not owned).
    void setDelegate(IMTableViewDelegate *delegate);

    //! Registers how to make rows of kind `identifier` (replacing an earlier registration).
    void registerCell(const QString &identifier, const CellFactory &factory);
    //! A row of kind `identifier` for `indexPath`: a spare one (after `prepareForReuse`) or a new one
    //! from the factory; null (with a log line) for an unregistered identifier.
    IMTableViewCell *dequeueReusableCellWithIdentifier(const QString &identifier, const IMIndexPath &indexPath);

    //! The default row height (44).
    qreal rowHeight() const;
    //! Sets the default row height.
    void setRowHeight(qreal height);
    //! The estimate for unmeasured rows (default 44); 0 measures every row on reload.
    qreal estimatedRowHeight() const;
    //! Sets the estimate for unmeasured rows.
    void setEstimatedRowHeight(qreal height);
    //! Height of a row of kind `identifier` at the table's width: dresses one hidden template row with
    //! `configure`, measures it with `heightForWidth`, and caches the result under `cacheKey`.
    qreal heightForCellWithIdentifier(
        const QString &identifier, const QString &cacheKey, const std::function<void(IMTableViewCell *)> &configure);
    //! Forgets every cached template height (the width changed, say).
    void invalidateHeightCache();

    //! Number of sections.
    int numberOfSections() const;
    //! Number of rows in `section`.
    int numberOfRowsInSection(int section) const;
    //! Asks the data source again for everything and lays out the visible rows.
    void reloadData();
    //! Inserts rows (the data source already holds them).
    void insertRowsAtIndexPaths(const QList<IMIndexPath> &indexPaths, RowAnimation animation);
    //! Redraws rows from the data source.
    void reloadRowsAtIndexPaths(const QList<IMIndexPath> &indexPaths, RowAnimation animation);
    //! Removes rows (the data source already dropped them).
    void deleteRowsAtIndexPaths(const QList<IMIndexPath> &indexPaths, RowAnimation animation);

    //! The rows on screen, top to bottom.
    QList<IMTableViewCell *> visibleCells() const;
    //! The index paths of the rows on screen, top to bottom.
    QList<IMIndexPath> indexPathsForVisibleRows() const;
    //! The index path of a row on screen (invalid for another widget).
    IMIndexPath indexPathForCell(const IMTableViewCell *cell) const;
    //! The row on screen at `indexPath`, or null when it is not on screen or out of range.
    IMTableViewCell *cellForRowAtIndexPath(const IMIndexPath &indexPath) const;
    //! The row under `point` (content coordinates, as `contentOffset`), invalid when none.
    IMIndexPath indexPathForRowAtPoint(const QPointF &point) const;
    //! The row's rectangle in content coordinates (empty for an invalid path).
    QRectF rectForRowAtIndexPath(const IMIndexPath &indexPath) const;
    //! Scrolls so the row is at `position`; an invalid path does nothing.
    void scrollToRowAtIndexPath(const IMIndexPath &indexPath, ScrollPosition position, bool animated);

    //! How far the content is scrolled.
    QPointF contentOffset() const;
    //! Scrolls the content (clamped to the content), animated or at once.
    void setContentOffset(const QPointF &offset, bool animated = false);
    //! The size of the content: the table's width by the rows' total height (plus the footer's).
    QSizeF contentSize() const;
    //! Lays out the visible rows now (normally done on the next turn of the event loop).
    void layoutIfNeeded();

    //! A view shown under the last row (not owned before set; the table takes it). Null for none.
    QWidget *tableFooterView() const;
    //! Sets the view under the last row; a view of zero height shows nothing and hides separators.
    void setTableFooterView(QWidget *view);
    //! Whether separator lines are drawn between rows (default true).
    bool showsSeparators() const;
    //! Turns the separator lines on or off.
    void setShowsSeparators(bool shows);
    //! Whether a row shows its actions.
    bool isEditing() const;
    //! Closes (false) any row whose actions are open.
    void setEditing(bool editing, bool animated = true);
    //! Whether the table takes touches, clicks and scrolling.
    bool isUserInteractionEnabled() const;
    //! Turns interaction on or off.
    void setUserInteractionEnabled(bool enabled);
    //! Number of row widgets the table has made so far (visible rows plus spares).
    int createdCellCount() const;

signals:
    //! The content offset changed.
    void didScroll();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    bool viewportEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    friend struct IMTableViewPrivate;
    void scheduleLayout();
    void updateScrollRange();
    void layoutRows(const QSet<int> &fresh = {}, RowAnimation animation = RowAnimationNone);
    bool handlePointer(int phase, const QPointF &pos);
    struct Private;
    Private *d;
};

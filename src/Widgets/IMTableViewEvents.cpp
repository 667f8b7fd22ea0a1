// The table's pointer handling: taps select rows, vertical drags scroll, horizontal drags (and the
// context menu) reveal row actions. Mouse and touch take the same path.
#include <QContextMenuEvent>
#include <QHBoxLayout>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QTouchEvent>

#include "IMAnimation.h"
#include "IMTableViewRowAction.h"
#include "IMTableView_p.h"

namespace {
const int kSlop = 8;
const int kActionWidth = 76;
} // namespace

QList<IMTableViewRowAction *> IMTableView::Private::actionsFor(int g)
{
    const IMIndexPath path = indexPath(g);
    if (!dataSource || !delegate || !path.isValid() || !dataSource->canEditRowAtIndexPath(q, path))
        return {};
    return delegate->editActionsForRowAtIndexPath(q, path);
}

// Moves row `g`'s content left by `offset`, building its action buttons on first need.
void IMTableView::Private::slide(int g, qreal offset)
{
    IMTableViewCell *cell = visible.value(g);
    if (!cell)
        return;
    if (!actionsView || actionsView->parentWidget() != cell) {
        delete actionsView;
        const QList<IMTableViewRowAction *> actions = actionsFor(g);
        if (actions.isEmpty())
            return;
        auto *view = new QWidget(cell);
        view->setObjectName(QStringLiteral("IMTableViewRowActions"));
        auto *layout = new QHBoxLayout(view);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(0);
        // Right to left, as the delegate lists them.
        for (int i = actions.size() - 1; i >= 0; --i) {
            IMTableViewRowAction *action = actions[i];
            if (!action)
                continue;
            action->setParent(view);
            auto *button = new QPushButton(action->title(), view);
            button->setObjectName(QStringLiteral("IMTableViewRowActionButton"));
            button->setFlat(true);
            button->setCursor(Qt::PointingHandCursor);
            button->setMinimumWidth(kActionWidth);
            button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
            button->setStyleSheet(
                QStringLiteral("QPushButton { background: %1; color: white; border: none; font-size: 15px; }")
                    .arg(action->backgroundColor().name()));
            QPointer<IMTableView> table(q);
            QObject::connect(button, &QPushButton::clicked, action, [table, action, cell] {
                if (!table)
                    return;
                const IMIndexPath path = table->indexPathForCell(cell);
                if (path.isValid())
                    action->trigger(path);
            });
            layout->addWidget(button);
        }
        const int w = kActionWidth * actions.size();
        view->setGeometry(cell->width() - w, 0, w, cell->height());
        view->show();
        cell->contentView()->raise();
        actionsView = view;
    }
    cell->setContentOffsetX(qBound<qreal>(0, offset, actionsView->width() * 1.25));
}

void IMTableView::Private::openActions(int g, bool animated)
{
    if (openRow >= 0 && openRow != g)
        closeActions(animated);
    slide(g, 0);
    if (!actionsView)
        return;
    openRow = g;
    const qreal width = actionsView->width();
    IMTableViewCell *cell = visible.value(g);
    IMAnimate(animated ? 0.2 : 0, [cell, width] { cell->setContentOffsetX(width); });
}

void IMTableView::Private::closeActions(bool animated)
{
    const int g = openRow;
    openRow = -1;
    IMTableViewCell *cell = visible.value(g);
    QPointer<QWidget> view = actionsView;
    actionsView = nullptr;
    if (!cell) {
        delete view;
        return;
    }
    IMAnimate(
        animated ? 0.2 : 0, [cell] { cell->setContentOffsetX(0); }, [view](bool) { delete view; });
}

// `phase`: 0 press, 1 move, 2 release, 3 cancel; `pos` in viewport coordinates.
bool IMTableView::handlePointer(int phase, const QPointF &pos)
{
    using Drag = Private::Drag;
    if (!d->interaction)
        return false;
    const qreal offset = verticalScrollBar()->value();
    switch (phase) {
    case 0: {
        d->drag = Drag::Pending;
        d->pressPos = pos;
        d->pressOffset = int(offset);
        const IMIndexPath path = indexPathForRowAtPoint(QPointF(pos.x(), pos.y() + offset));
        d->pressRow = d->globalRow(path);
        IMTableViewCell *cell = d->visible.value(d->pressRow);
        d->pressSlide = cell ? cell->contentOffsetX() : 0;
        return true;
    }
    case 1: {
        if (d->drag == Drag::None)
            return false;
        const QPointF delta = pos - d->pressPos;
        if (d->drag == Drag::Pending) {
            if (qAbs(delta.x()) < kSlop && qAbs(delta.y()) < kSlop)
                return true;
            const bool horizontal = qAbs(delta.x()) > qAbs(delta.y());
            bool hasActions = false;
            if (horizontal && d->pressRow >= 0) {
                // Only asked whether there are any: the ones made for the question go away again.
                const QList<IMTableViewRowAction *> actions = d->actionsFor(d->pressRow);
                hasActions = !actions.isEmpty();
                for (IMTableViewRowAction *a : actions)
                    if (a && !a->parent())
                        delete a;
            }
            if (hasActions) {
                if (d->openRow >= 0 && d->openRow != d->pressRow)
                    d->closeActions(true);
                d->drag = Drag::Horizontal;
            } else {
                d->drag = Drag::Vertical;
            }
        }
        if (d->drag == Drag::Horizontal)
            d->slide(d->pressRow, d->pressSlide - delta.x());
        else
            verticalScrollBar()->setValue(int(d->pressOffset - delta.y()));
        return true;
    }
    case 2: {
        const Drag drag = d->drag;
        d->drag = Drag::None;
        if (drag == Drag::Pending) {
            // A tap: closes open actions, or selects the row.
            if (d->openRow >= 0) {
                d->closeActions(true);
                return true;
            }
            if (d->pressRow < 0)
                return true;
            IMTableViewCell *cell = d->visible.value(d->pressRow);
            if (cell)
                cell->setSelected(true);
            if (d->delegate)
                d->delegate->didSelectRowAtIndexPath(this, d->indexPath(d->pressRow));
            QPointer<IMTableViewCell> guard(cell);
            QTimer::singleShot(150, this, [guard] {
                if (guard)
                    guard->setSelected(false);
            });
        } else if (drag == Drag::Horizontal) {
            IMTableViewCell *cell = d->visible.value(d->pressRow);
            if (cell && d->actionsView && cell->contentOffsetX() > d->actionsView->width() / 2.0)
                d->openActions(d->pressRow, true);
            else {
                d->openRow = d->pressRow;
                d->closeActions(true);
            }
        }
        return true;
    }
    default:
        if (d->drag == Drag::Horizontal) {
            d->openRow = d->pressRow;
            d->closeActions(true);
        }
        d->drag = Drag::None;
        return true;
    }
}

bool IMTableView::viewportEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease: {
        auto *e = static_cast<QMouseEvent *>(event);
        if (event->type() != QEvent::MouseMove && e->button() != Qt::LeftButton)
            break;
        if (event->type() == QEvent::MouseMove && !(e->buttons() & Qt::LeftButton))
            break;
        const int phase = event->type() == QEvent::MouseButtonPress ? 0 : event->type() == QEvent::MouseMove ? 1 : 2;
        if (handlePointer(phase, e->position()))
            return true;
        break;
    }
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TouchCancel: {
        auto *e = static_cast<QTouchEvent *>(event);
        if (e->points().isEmpty())
            break;
        const int phase = event->type() == QEvent::TouchBegin ? 0
            : event->type() == QEvent::TouchUpdate            ? 1
            : event->type() == QEvent::TouchEnd               ? 2
                                                              : 3;
        handlePointer(phase, e->points().first().position());
        event->accept();
        return true;
    }
    case QEvent::ContextMenu: {
        auto *e = static_cast<QContextMenuEvent *>(event);
        if (!d->interaction)
            break;
        const int g
            = d->globalRow(indexPathForRowAtPoint(QPointF(e->pos()) + QPointF(0, verticalScrollBar()->value())));
        const QList<IMTableViewRowAction *> actions = d->actionsFor(g);
        if (actions.isEmpty())
            break;
        // A non-blocking menu, so tests and hosts can pick from it like a user.
        auto *menu = new QMenu(this);
        menu->setObjectName(QStringLiteral("IMTableViewRowActionsMenu"));
        menu->setAttribute(Qt::WA_DeleteOnClose);
        QPointer<IMTableView> table(this);
        const IMIndexPath path = d->indexPath(g);
        for (IMTableViewRowAction *action : actions) {
            if (!action)
                continue;
            action->setParent(menu);
            menu->addAction(action->title(), menu, [table, action, path] {
                if (table)
                    action->trigger(path);
            });
        }
        menu->popup(e->globalPos());
        return true;
    }
    default:
        break;
    }
    return QAbstractScrollArea::viewportEvent(event);
}

bool IMTableView::eventFilter(QObject *watched, QEvent *event)
{
    return QAbstractScrollArea::eventFilter(watched, event);
}

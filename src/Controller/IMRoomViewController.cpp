#include "IMRoomViewController.h"

#include <QPointer>

#include "IMBarButtonItem.h"
#include "IMClient.h"
#include "IMDispatch.h"
#include "IMLog.h"
#include "IMNavigationBar.h"
#include "IMNavigationController.h"
#include "IMNavigationItem.h"
#include "IMRoomCreateViewController.h"
#include "IMRoomTableViewCell.h"
#include "IMStoryboard.h"
#include "IMTableViewRowAction.h"
#include "Parlo.h"
#include "UxAlertController.h"
#include "UxLabel.h"
#include "ui_IMRoomViewController.h"

IM_STORYBOARD_SCREEN(IMRoomViewController);

IMRoomViewControllerDelegate::~IMRoomViewControllerDelegate() = default;
void IMRoomViewControllerDelegate::IMRoomViewControllerDidPop() {}

IMRoomViewController::IMRoomViewController(QWidget *parent)
    : IMViewController(parent)
{
    setObjectName(QStringLiteral("IMRoomViewController"));
}

IMRoomViewController::~IMRoomViewController()
{
    if (Parlo::shareInstance()->delegate() == static_cast<ParloDelegate *>(this))
        Parlo::shareInstance()->setDelegate(nullptr);
    if (m_delegate)
        m_delegate->IMRoomViewControllerDidPop();
}

QList<IMRoomPtr> IMRoomViewController::dataSource() const { return m_dataSource; }

void IMRoomViewController::setDataSource(const QList<IMRoomPtr> &rooms)
{
    m_dataSource = rooms;
    if (tableview())
        tableview()->reloadData();
}

IMRoomViewControllerDelegate *IMRoomViewController::delegate() const { return m_delegate; }
void IMRoomViewController::setDelegate(IMRoomViewControllerDelegate *delegate) { m_delegate = delegate; }

void IMRoomViewController::loadView()
{
    Ui::IMRoomViewController ui;
    ui.setupUi(this);
    setTableview(ui.tableview);
    ui.tableview->registerCell(QStringLiteral("Cell"), [] { return new IMRoomTableViewCell(QStringLiteral("Cell")); });
}

void IMRoomViewController::viewDidLoad()
{
    IMViewController::viewDidLoad();
    if (title().isEmpty())
        setTitle(tr("聊天室"));
    navigationItem()->setRightBarButtonItem(
        new IMBarButtonItem(QStringLiteral("＋"), IMBarButtonItem::Done, [this] { createRoomItemPressed(); }));
    tableview()->setDelegate(this);
    tableview()->setDataSource(this);
}

void IMRoomViewController::viewWillAppear(bool animated)
{
    IMViewController::viewWillAppear(animated);
    tableview()->reloadData();
    Parlo::shareInstance()->setDelegate(this);
    ParloDidChatIn();
}

void IMRoomViewController::ParloDidChatIn()
{
    if (Parlo::shareInstance()->connectStatus() != ParloConnectStatusConnected)
        return;
    QPointer<IMRoomViewController> self(this);
    Parlo::shareInstance()->roomListKeepUpdateingToNewestComplete(
        [self](const IMError &, const QList<IMRoomPtr> &rooms) {
            if (self)
                self->doActionAfterUpdateRoomDoneWithTotalBadgeNumber(getAllUnreadNumber(rooms));
        });
}

void IMRoomViewController::doActionAfterUpdateRoomDoneWithTotalBadgeNumber(int) {}

qint32 IMRoomViewController::getAllUnreadNumber(const QList<IMRoomPtr> &rooms)
{
    // Summed as a 32-bit count, wrapping as such a count does.
    quint32 sum = 0;
    for (const IMRoomPtr &room : rooms)
        if (room)
            sum += quint32(room->badge());
    return qint32(sum);
}

bool IMRoomViewController::isArchivedBy(const IMRoomPtr &room, const QString &clientID)
{
    return room && room->archivedBy().contains(clientID);
}

void IMRoomViewController::ParloDidUpdateRooms(const QList<IMRoomPtr> &rooms) { setDataSource(rooms); }

void IMRoomViewController::ParloDidUpdateRoom(const IMRoomPtr &room)
{
    if (!room || !tableview())
        return;
    for (int i = 0; i < m_dataSource.size(); ++i)
        if (m_dataSource[i] && m_dataSource[i]->objectID() == room->objectID())
            tableview()->reloadRowsAtIndexPaths({IMIndexPath::indexPathForRow(i)}, IMTableView::RowAnimationNone);
}

void IMRoomViewController::createRoomItemPressed()
{
    QPointer<IMRoomViewController> self(this);
    UxAlertController::showWithController(
        this, tr("取消"), 0, QString(), QString(), {tr("建立聊天室")}, [self](int index) {
            if (!self || index == -1)
                return;
            IMStoryboard *board = IMStoryboard::storyboardWithName(QStringLiteral("IMMain"));
            auto *create = board
                ? qobject_cast<IMRoomCreateViewController *>(
                    board->instantiateViewControllerWithIdentifier(QStringLiteral("IMRoomCreateViewController")))
                : nullptr;
            if (!create)
                return;
            create->setDelegate(dynamic_cast<IMRoomCreateDelegate *>(self->m_delegate));
            auto *nav = new IMNavigationController(create);
            // Shown over the list, as a whole, like the phone's show-detail presentation.
            self->presentViewController(nav, true);
        });
}

void IMRoomViewController::enterRoom(const IMRoomPtr &room, bool animated)
{
    IMUIViewController *conversation = IMRoomControllerToPushWithRoom(room);
    if (conversation && navigationController())
        navigationController()->pushViewController(conversation, animated);
    else
        delete conversation;
}

IMUIViewController *IMRoomViewController::IMRoomControllerToPushWithRoom(const IMRoomPtr &room)
{
    IMStoryboard *board = IMStoryboard::storyboardWithName(QStringLiteral("IMMain"));
    if (!board)
        return nullptr;
    // The first instance only proves the screen exists.
    IMUIViewController *probe
        = board->instantiateViewControllerWithIdentifier(QStringLiteral("IMMessageViewController"));
    if (!probe)
        return nullptr;
    delete probe;
    IMUIViewController *screen
        = board->instantiateViewControllerWithIdentifier(QStringLiteral("IMMessageViewController"));
    if (screen)
        QMetaObject::invokeMethod(screen, "setRoom", Q_ARG(IMRoomPtr, room));
    return screen;
}

void IMRoomViewController::loadRoomsWithPage(int, bool)
{
    Parlo::shareInstance()->roomListSuccess([](const QList<IMRoomPtr> &) {},
        [](const IMError &error) { IM_LOG(QStringLiteral("load room fail %1").arg(error.description())); });
}

void IMRoomViewController::tableViewDisableFor1second()
{
    if (!tableview())
        return;
    tableview()->setUserInteractionEnabled(false);
    QPointer<IMTableView> table = tableview();
    IMDispatchAfter(1.0, [table] {
        if (table)
            table->setUserInteractionEnabled(true);
    });
}

QString IMRoomViewController::cellIDForRoom(const IMRoomPtr &) { return QStringLiteral("Cell"); }

IMRoomTableViewCell *IMRoomViewController::customCellWithIdentifier(
    const QString &, const IMRoomPtr &room, IMRoomTableViewCell *cell)
{
    if (!cell)
        return cell;
    cell->setRoom(room);
    // A badge with its designed colours takes the bar's; one restyled in Designer keeps its own.
    UxLabel *badge = cell->badgeLabel();
    if (!badge)
        return cell;
    const QColor text = badge->textColor();
    const QColor background = badge->property("backgroundColor").value<QColor>();
    if (text.name(QColor::HexArgb) == QColor::fromRgbF(0, 128 / 255.0, 1, 1).name(QColor::HexArgb)
        && background.name(QColor::HexArgb) == QColor(0, 0, 0, 0).name(QColor::HexArgb) && navigationController()) {
        IMNavigationBar *bar = navigationController()->navigationBar();
        const QColor tint = bar->tintColor();
        const QColor fill = bar->barTintColor().isValid() ? bar->barTintColor() : QColor(255, 59, 48);
        const QString style = QStringLiteral("color: %1; background: %2; border: 1px solid %1; border-radius: 11px; "
                                             "padding: 0 6px; font-size: 12px; font-weight: 600;")
                                  .arg(tint.name(), fill.name());
        // A reused row already has it; restyling re-polishes the label, which scrolling feels.
        if (badge->styleSheet() != style)
            badge->setStyleSheet(style);
    } else if (badge->styleSheet().isEmpty()) {
        badge->setStyleSheet(QStringLiteral("color: white; background: #ff3b30; border-radius: 11px; padding: 0 6px; "
                                            "font-size: 12px; font-weight: 600;"));
    }
    return cell;
}

int IMRoomViewController::numberOfRowsInSection(IMTableView *, int) { return m_dataSource.size(); }

IMTableViewCell *IMRoomViewController::cellForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath)
{
    const IMRoomPtr room = m_dataSource.value(indexPath.row);
    auto *cell = qobject_cast<IMRoomTableViewCell *>(
        tableView->dequeueReusableCellWithIdentifier(cellIDForRoom(room), indexPath));
    return customCellWithIdentifier(cellIDForRoom(room), room, cell);
}

bool IMRoomViewController::canEditRowAtIndexPath(IMTableView *, const IMIndexPath &) { return true; }

qreal IMRoomViewController::heightForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath)
{
    const IMRoomPtr room = m_dataSource.value(indexPath.row);
    const IMClientPtr me = IMClient::currentClient();
    if (!room || isArchivedBy(room, me ? me->clientID() : QString()))
        return 0;
    const QString identifier = cellIDForRoom(room);
    return tableView->heightForCellWithIdentifier(identifier, room->objectID(), [&](IMTableViewCell *cell) {
        customCellWithIdentifier(identifier, room, qobject_cast<IMRoomTableViewCell *>(cell));
    });
}

void IMRoomViewController::didSelectRowAtIndexPath(IMTableView *, const IMIndexPath &indexPath)
{
    const IMRoomPtr room = m_dataSource.value(indexPath.row);
    tableViewDisableFor1second();
    if (room)
        enterRoom(room, true);
}

QList<IMTableViewRowAction *> IMRoomViewController::editActionsForRowAtIndexPath(IMTableView *, const IMIndexPath &)
{
    QPointer<IMRoomViewController> self(this);
    return {new IMTableViewRowAction(
        IMTableViewRowAction::Default, tr("隱藏"), [self](IMTableViewRowAction *, const IMIndexPath &path) {
            if (self)
                self->hideRoomAt(path.row);
        })};
}

void IMRoomViewController::hideRoomAt(int row)
{
    const IMRoomPtr room = m_dataSource.value(row);
    if (!room)
        return;
    QPointer<IMRoomViewController> self(this);
    Parlo::shareInstance()->archiveRoom(
        room,
        [self, row](const IMRoomPtr &) {
            IMDispatchMainAsync([self, row] {
                if (!self || row >= self->m_dataSource.size())
                    return;
                self->m_dataSource.removeAt(row);
                self->tableview()->reloadData();
            });
        },
        [self](const IMError &error) {
            IM_LOG(QStringLiteral("archiveRoom fail %1").arg(error.description()));
            IMDispatchMainAsync([self] {
                if (self && self->tableview())
                    self->tableview()->setEditing(false);
            });
        });
}

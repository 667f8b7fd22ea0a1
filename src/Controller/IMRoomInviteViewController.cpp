#include "IMRoomInviteViewController.h"

#include <QPointer>

#include "IMBarButtonItem.h"
#include "IMImage.h"
#include "IMNavigationItem.h"
#include "IMRoomCreateViewController.h"
#include "IMRoomInviteTableViewCell.h"
#include "IMStoryboard.h"
#include "UxImageView.h"
#include "UxLabel.h"
#include "ui_IMRoomInviteViewController.h"

IM_STORYBOARD_SCREEN(IMRoomInviteViewController);

IMRoomInviteViewController::IMRoomInviteViewController(QWidget *parent)
    : IMViewController(parent)
{
    setObjectName(QStringLiteral("IMRoomInviteViewController"));
}

IMRoomInviteDelegate *IMRoomInviteViewController::delegate() const { return m_delegate; }
void IMRoomInviteViewController::setDelegate(IMRoomInviteDelegate *delegate) { m_delegate = delegate; }
void IMRoomInviteViewController::doneBtnPressed() {}

void IMRoomInviteViewController::loadView()
{
    Ui::IMRoomInviteViewController ui;
    ui.setupUi(this);
    setTableview(ui.tableview);
    ui.tableview->registerCell(
        QStringLiteral("Cell"), [] { return new IMRoomInviteTableViewCell(QStringLiteral("Cell")); });
}

void IMRoomInviteViewController::viewDidLoad()
{
    IMViewController::viewDidLoad();
    if (title().isEmpty())
        setTitle(tr("邀請"));
    navigationItem()->setRightBarButtonItem(
        new IMBarButtonItem(tr("完成"), IMBarButtonItem::Done, [this] { doneBtnPressed(); }));
    tableview()->setRowHeight(60);
    tableview()->setDelegate(this);
    tableview()->setDataSource(this);
    // Row -1 is "the last delivered row" of an empty list: this asks for the first page.
    didEndDisplayingCell(tableview(), nullptr, IMIndexPath {0, -1});
}

int IMRoomInviteViewController::numberOfRowsInSection(IMTableView *, int) { return dataSource.size(); }

IMTableViewCell *IMRoomInviteViewController::cellForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath)
{
    auto *cell = qobject_cast<IMRoomInviteTableViewCell *>(
        tableView->dequeueReusableCellWithIdentifier(QStringLiteral("Cell"), indexPath));
    const IMInviteClientPtr item = dataSource.value(indexPath.row);
    if (!cell || !item)
        return cell;
    cell->titleLabel()->setText(item->name());
    cell->photoImageView()->setImageWithURL(
        QUrl(item->pictureURLString()), IMImage::named(QStringLiteral("placeholder")));
    cell->setChecked(inviteList.contains(item));
    return cell;
}

void IMRoomInviteViewController::didSelectRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath)
{
    const IMInviteClientPtr item = dataSource.value(indexPath.row);
    if (!item)
        return;
    if (inviteList.contains(item))
        inviteList.removeAll(item);
    else
        inviteList.append(item);
    tableView->reloadRowsAtIndexPaths({indexPath}, IMTableView::RowAnimationFade);
}

void IMRoomInviteViewController::didEndDisplayingCell(IMTableView *, IMTableViewCell *, const IMIndexPath &indexPath)
{
    // The count is unsigned, so an empty list's last row is -1; the guards are kept as they are.
    const qint64 last = qint64(inviteList.size()) - 1;
    if (indexPath.row != last || isloadingEnd || isloadingMore || !m_delegate
        || !m_delegate->respondsToInviteClientWithIndex())
        return;
    isloadingMore = true;
    QPointer<IMRoomInviteViewController> self(this);
    m_delegate->inviteClientWithIndex(quint64(inviteList.size()), 10, [self](const QList<IMInviteClientPtr> &clients) {
        if (!self)
            return;
        if (clients.size() >= 10) {
            self->inviteList.append(clients);
            if (self->tableview())
                self->tableview()->reloadData();
            self->isloadingEnd = false;
        } else {
            self->isloadingEnd = true; // a short last page is dropped
        }
    });
}

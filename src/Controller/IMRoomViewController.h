#pragma once

#include <QList>

#include "IMRoom.h"
#include "IMTableView.h"
#include "IMViewController.h"
#include "ParloDelegate.h"

class IMRoomTableViewCell;

//! Hears from the room list. All optional.
class IMRoomViewControllerDelegate {
public:
    virtual ~IMRoomViewControllerDelegate();
    //! The room list is being destroyed (the user left it).
    virtual void IMRoomViewControllerDidPop();
};

//! The signed-in client's rooms, newest first: photo, title, last message, unread badge and time.
//! A tap opens the conversation; a swipe offers "隱藏" (archive); the create item opens room
//! creation. It takes the facade's delegate slot each time it appears.
class IMRoomViewController : public IMViewController,
                             public ParloDelegate,
                             public IMTableViewDataSource,
                             public IMTableViewDelegate {
    Q_OBJECT
public:
    //! An unloaded room list (normally made by the storyboard "IMMain").
    explicit IMRoomViewController(QWidget *parent = nullptr);
    //! Tells the delegate `IMRoomViewControllerDidPop`.
    ~IMRoomViewController() override;

    //! The rows, in the facade's order.
    QList<IMRoomPtr> dataSource() const;
    //! Replaces the rows (no copy, sort or filter) and reloads.
    void setDataSource(const QList<IMRoomPtr> &rooms);
    //! The delegate (not owned; clear it before it dies).
    IMRoomViewControllerDelegate *delegate() const;
    //! Sets the delegate; also handed to the create screen.
    void setDelegate(IMRoomViewControllerDelegate *delegate);
    bool isLoadingMore = false; //!< declared for paging; unused by the screen
    bool isLoadMoreEnd = false; //!< declared for paging; unused by the screen

    //! Hook: the rooms were brought up to date; `total` is their unread sum. Empty here.
    virtual void doActionAfterUpdateRoomDoneWithTotalBadgeNumber(int total);
    //! The sum of every room's badge (archived rooms included), as a 32-bit count.
    static qint32 getAllUnreadNumber(const QList<IMRoomPtr> &rooms);
    //! Whether `room` was archived by the client `clientID` (its row then takes no space).
    static bool isArchivedBy(const IMRoomPtr &room, const QString &clientID);
    //! Offers "建立聊天室"; choosing it presents the create screen in its own navigation controller.
    void createRoomItemPressed();
    //! Pushes the conversation for `room` (from `IMRoomControllerToPushWithRoom`), when there is one.
    void enterRoom(const IMRoomPtr &room, bool animated);
    //! Hook: the conversation screen for `room` from the storyboard (null when it has none).
    virtual IMUIViewController *IMRoomControllerToPushWithRoom(const IMRoomPtr &room);
    //! Asks the facade for the room list (the arguments are ignored; the list arrives as a delegate call).
    void loadRoomsWithPage(int page, bool aggressively);
    //! Turns the table's interaction off for one second (no double taps).
    void tableViewDisableFor1second();
    //! Hook: the row kind for `room` ("Cell").
    virtual QString cellIDForRoom(const IMRoomPtr &room);
    //! Hook: dresses `cell` for `room` (and restyles a badge that still has its designed colours).
    virtual IMRoomTableViewCell *customCellWithIdentifier(
        const QString &identifier, const IMRoomPtr &room, IMRoomTableViewCell *cell);

    // The facade's calls.
    void ParloDidChatIn() override;
    void ParloDidUpdateRooms(const QList<IMRoomPtr> &rooms) override;
    void ParloDidUpdateRoom(const IMRoomPtr &room) override;

    // The table's.
    int numberOfRowsInSection(IMTableView *tableView, int section) override;
    IMTableViewCell *cellForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    bool canEditRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    qreal heightForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    void didSelectRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    QList<IMTableViewRowAction *> editActionsForRowAtIndexPath(
        IMTableView *tableView, const IMIndexPath &indexPath) override;

protected:
    void loadView() override;
    void viewDidLoad() override;
    void viewWillAppear(bool animated) override;

private:
    void hideRoomAt(int row);
    QList<IMRoomPtr> m_dataSource;
    IMRoomViewControllerDelegate *m_delegate = nullptr;
};

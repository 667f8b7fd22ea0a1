#pragma once

#include <QImage>
#include <QList>

#include "IMInviteClient.h"
#include "IMTableView.h"
#include "IMViewController.h"

class IMRoomInviteDelegate;

//! A checklist of invite candidates that the host delivers page by page (10 at a time).
class IMRoomInviteViewController : public IMViewController, public IMTableViewDataSource, public IMTableViewDelegate {
    Q_OBJECT
public:
    //! An unloaded screen (normally made by the storyboard "IMMain").
    explicit IMRoomInviteViewController(QWidget *parent = nullptr);
    //! The delegate (not owned).
    IMRoomInviteDelegate *delegate() const;
    //! Sets the delegate.
    void setDelegate(IMRoomInviteDelegate *delegate);
    QList<IMInviteClientPtr> dataSource; //!< the rows; the host sets them
    QList<IMInviteClientPtr> inviteList; //!< the delivered pages, and the checked candidates
    QString roomName; //!< from the create screen
    QImage roomThumbnail; //!< from the create screen
    bool isloadingMore = false; //!< a page was asked for (never reset: one page per screen)
    bool isloadingEnd = false; //!< the last page arrived
    //! Hook: the done button; does nothing here (a host subclass invites the checked candidates).
    virtual void doneBtnPressed();

    int numberOfRowsInSection(IMTableView *tableView, int section) override;
    IMTableViewCell *cellForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    void didSelectRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    void didEndDisplayingCell(IMTableView *tableView, IMTableViewCell *cell, const IMIndexPath &indexPath) override;

protected:
    void loadView() override;
    void viewDidLoad() override;

private:
    IMRoomInviteDelegate *m_delegate = nullptr;
};

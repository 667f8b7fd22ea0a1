#pragma once

#include <QList>
#include <QPointer>
#include <QVariantMap>
#include <functional>

#include "IMMessage.h"
#include "IMMessageTableViewCell.h"
#include "IMRoom.h"
#include "IMTableView.h"
#include "IMViewController.h"
#include "ParloDelegate.h"

class IMLongPressGestureRecognizer;
class IMMessageContainerViewController;
class IMTapGestureRecognizer;
class IMWindow;

//! The launch-options key of a push notification's payload (a map holding "IMRoom").
extern const QString kIMLaunchOptionsRemoteNotificationKey;

//! The conversation of one room: its history newest at the bottom, paged back 40 at a time as the
//! user scrolls up, kept current through the facade's delegate calls, with read markers when
//! `echoReadToRoom` is on. It takes the facade's delegate slot while shown.
class IMMessageViewController : public IMViewController,
                                public ParloDelegate,
                                public IMTableViewDataSource,
                                public IMTableViewDelegate,
                                public IMMessageTableViewCellDelegate
{
    Q_OBJECT
public:
    //! Messages per page, for the first page and every older one.
    static constexpr int kPageSize = 40;

    //! An unloaded conversation (normally made by the storyboard "IMMain").
    explicit IMMessageViewController(QWidget *parent = nullptr);
    ~IMMessageViewController() override;

    //! The room shown.
    IMRoomPtr room() const;
    //! Shows `room`; also sets the title (unless `isCustomizedChatroomTitle`).
    Q_INVOKABLE void setRoom(const IMRoomPtr &room);
    //! The messages, oldest first (row = index).
    QList<IMMessagePtr> dataSource() const;
    //! Replaces the messages and reloads the table.
    void setDataSource(const QList<IMMessagePtr> &messages);

    bool isLoadEnd = false;                   //!< no older messages remain on the server
    bool isLoadingMore = false;               //!< a page request is in flight
    bool stopOnce = false;                    //!< arms the older-page trigger (row 3 shows)
    bool echoReadToRoom = false;              //!< report the read time to the room and show read markers
    bool isCustomizedChatroomTitle = false;   //!< the host sets the title (set after the screen loaded)
    bool disableTintColor = false;            //!< do not tint the input bar from the navigation bar
    bool showMoreOptionBtn = false;           //!< show the more-actions button in the input bar
    QVariantMap heightCache;                  //!< reserved; heights are cached by the table
    qint32 editingIndex = -1;                 //!< row being edited, -1 for none
    QPointer<IMMessageContainerViewController> contrinaer;  //!< the embedded holder screen (name as spelled)
    QPointer<IMWindow> window;                //!< remembered when opened from a push notification
    QPointer<IMUIViewController> tempViewController;  //!< the root put back by `dismissFromRemoteNotification`

    //! The tap on the table that dismisses the keyboard (created on first read).
    IMTapGestureRecognizer *tapOnTableView();
    //! The long press on the table (1.0 second; created on first read).
    IMLongPressGestureRecognizer *longPressGesturer();

    //! Loads the newest page; `complete` runs after it is in place. A failure retries each second while signed in.
    void loadMessageComplete(const std::function<void()> &complete);
    //! Scrolls the last row to the bottom.
    void scrollToBottomWithAnimate(bool animated);
    //! Whether the list is within 120 points of its bottom.
    bool isTableViewAtBottom() const;
    //! Sets the title, also into the navigation bar's title label when it shows one.
    void setTitle(const QString &title) override;
    //! The title for `room` seen by `currentClientID`: the other member's name in a two-member room,
    //! else "name (count)"; null when a two-member room has no other member.
    static QString titleForRoom(const IMRoomPtr &room, const QString &currentClientID);
    //! Ends editing and brings the input bar down.
    void tapOnTableViewEvent();

    //! Opens the conversation of the "IMRoom" entry of a push notification's payload as `window`'s
    //! root, in a black navigation controller with a close item; false (and nothing changed) without one.
    static bool handleRemoteNotificationAppdelegateWindow(IMWindow *window, const QVariantMap &launchOptions);
    //! Puts the window's previous root back.
    void dismissFromRemoteNotification();

    //! Hook: the row kind for `message`.
    virtual QString cellIDForMessage(const IMMessagePtr &message);
    //! Hook: dresses `cell` for `message` at `indexPath`.
    virtual IMMessageTableViewCell *customCellWithIdentifier(const QString &identifier, const IMMessagePtr &message,
                                                             IMMessageTableViewCell *cell, const IMIndexPath &indexPath);

    // The facade's calls.
    void ParloDidChatIn() override;
    void ParloDidReceiveMessage(const IMMessagePtr &message) override;
    void ParloDidReceiveMessageFromOthers(const IMMessagePtr &message) override;
    void ParloDidUpdateMessage(const IMMessagePtr &message) override;
    void ParloDidChangeMessageSendingType(const IMMessagePtr &message) override;
    void ParloDidUpdateReadTimeWithRoom(const IMRoomPtr &room) override;
    void ParloDidUpdateRoom(const IMRoomPtr &room) override;
    void ParloDidUpdateBadge(const IMBadgePtr &badge) override;

    // The table's.
    int numberOfRowsInSection(IMTableView *tableView, int section) override;
    IMTableViewCell *cellForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    qreal heightForRowAtIndexPath(IMTableView *tableView, const IMIndexPath &indexPath) override;
    void willDisplayCell(IMTableView *tableView, IMTableViewCell *cell, const IMIndexPath &indexPath) override;

    void prepareForSegue(const QString &identifier, IMUIViewController *destination) override;

protected:
    void loadView() override;
    void viewDidLoad() override;
    void viewWillAppear(bool animated) override;

private:
    bool isThisRoom(const IMRoomPtr &room) const;
    void loadOlderPage();
    IMRoomPtr m_room;
    QList<IMMessagePtr> m_dataSource;
    IMTapGestureRecognizer *m_tap = nullptr;
    IMLongPressGestureRecognizer *m_longPress = nullptr;
    QWidget *m_inputBar = nullptr;
};

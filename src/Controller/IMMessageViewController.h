#pragma once

#include <QList>
#include <QPointer>
#include <QVariantMap>
#include <functional>

#include "IMImagePickerController.h"
#include "IMMessage.h"
#include "IMMessageTableViewCell.h"
#include "IMRoom.h"
#include "IMTableView.h"
#include "IMViewController.h"
#include "ParloDelegate.h"

class IMLayoutConstraint;
class IMGestureRecognizer;
class IMLongPressGestureRecognizer;
class UxImageView;
class UxButton;
class UxTextView;
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
                                public IMMessageTableViewCellDelegate,
                                public IMImagePickerControllerDelegate {
    Q_OBJECT
public:
    //! Messages per page, for the first page and every older one.
    static constexpr int kPageSize = 40;
    //! The longest text sent as one message; a longer one stays in the text view with an alert.
    static constexpr int kMaxTextLength = 100000;
    //! Pictures are sent at most this many pixels on their longer side (larger ones are scaled down).
    static constexpr int kMaxPictureSide = 2048;

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

    bool isLoadEnd = false; //!< no older messages remain on the server
    bool isLoadingMore = false; //!< a page request is in flight
    bool stopOnce = false; //!< arms the older-page trigger (row 3 shows)
    bool echoReadToRoom = false; //!< report the read time to the room and show read markers
    bool isCustomizedChatroomTitle = false; //!< the host sets the title (set after the screen loaded)
    bool disableTintColor = false; //!< do not tint the input bar from the navigation bar
    bool showMoreOptionBtn = false; //!< show the more-actions button in the input bar
    QVariantMap heightCache; //!< reserved; heights are cached by the table
    qint32 editingIndex = -1; //!< row being edited, -1 for none
    QPointer<IMMessageContainerViewController> contrinaer; //!< the embedded holder screen (name as spelled)
    QPointer<QWidget> window; //!< the window hosting the picture viewer, or the one opened from a push notification
    QPointer<IMUIViewController> tempViewController; //!< the root put back by `dismissFromRemoteNotification`

    // The input bar (its composing behaviour is the sending half of the screen).
    UxTextView *inputTextView = nullptr; //!< the text being typed
    UxButton *sendMessageBtn = nullptr; //!< sends (tinted from the bar)
    UxButton *moreOptionBtn = nullptr; //!< opens the more panel (shown with `showMoreOptionBtn`)
    UxButton *pictureBtn = nullptr; //!< picks a picture
    UxButton *cancelBtn = nullptr; //!< ends an edit; shown while editing
    QWidget *moreActionContenterView = nullptr; //!< the panel under the bar (name as spelled)
    IMLayoutConstraint *inputTextViewHeight = nullptr; //!< the text view's height (30 for one line)
    IMLayoutConstraint *inputTextViewLeadingDistance = nullptr; //!< 60 when the more button is not shown
    IMLayoutConstraint *inputViewToBottomDistance = nullptr; //!< the bar's distance from the bottom
    IMLayoutConstraint *cancelBtnLeadingDistance = nullptr; //!< 8 while editing; the button is out otherwise
    IMLayoutConstraint *cancelBtnWidth = nullptr; //!< the cancel button's width (fixed)
    IMLayoutConstraint *pictureBtnWidth = nullptr; //!< the picture button's width (fixed)
    IMLayoutConstraint *optionViewWidth = nullptr; //!< the more button's width (fixed)
    quint64 inputType = 0; //!< reserved for hosts; the screen never reads it
    bool sendsOnReturn = true; //!< Return sends and Shift+Return starts a line (desktop habit)

    // The picture viewer over the window.
    QPointer<UxImageView> imageView; //!< the full-screen picture, while shown
    QPointer<QWidget> imageViewBackgroundView; //!< the dimmed backdrop holding it
    QPointF panPoint; //!< the last finger position of a drag, in backdrop coordinates

    //! Grows the text view with its text: 17 points a line plus 13, at most 98 (five lines); posted.
    void textViewDidChange(UxTextView *textView);
    //! Sends the text as a new message, or finishes an edit through an update (no new row).
    void sendMessageBtnPressed();
    //! The error button of a row: a picture row is dressed again (retrying its download), any other
    //! message is sent again as the same object.
    void resendBtnPressed(QWidget *button);
    //! Opens the more panel under the bar, or closes it when open.
    void moreButtonDidPressed();
    //! Asks where the picture comes from ("照相機" or "相片圖庫") and opens the picker.
    void cameraBtnPressed();
    //! Ends an edit: the message keeps its text, the text view is cleared.
    void cancelBtnPressed();
    //! Shares a link that joins this room; logs "url type not found" without a URL type.
    void shareRoomWithURLSchemeLastObjectBtnPressed();
    //! The picture picker (created on first read; this screen is its delegate).
    IMImagePickerController *imagePickerController();
    //! A picked picture: shown at once, uploaded with its progress in the row's time, then sent.
    void imagePickerController(IMImagePickerController *picker, const QVariantMap &info) override;

    //! The long press's action: a press held for 1.0 second on a row opens its menu.
    void longPress(IMGestureRecognizer *recognizer);
    //! Opens the menu of the message at `indexPath` (texts and pictures only).
    void longPressForMessageAtRowOfIndexPath(const IMIndexPath &indexPath);
    //! The text menu: "複製文字", and for one's own "編輯訊息" and "刪除訊息".
    virtual void didLongPressOnTextMessage(const IMMessagePtr &message, const IMIndexPath &indexPath);
    //! The picture menu: "存到相簿", "分享照片", and for one's own "刪除訊息".
    virtual void didLongPressOnImageMessage(const IMMessagePtr &message, const IMIndexPath &indexPath);
    //! Puts the message's text on the pasteboard.
    virtual void didChooseCopyMessageText(const IMMessagePtr &message, const IMIndexPath &indexPath);
    //! Starts editing the message: highlighted row, its text in the text view, the cancel button shown.
    virtual void didChooseEditMessage(const IMMessagePtr &message, const IMIndexPath &indexPath);
    //! Deletes the message on the server (a "delete" update); the row collapses when the update comes back.
    virtual void didChooseDeleteMessage(const IMMessagePtr &message, const IMIndexPath &indexPath);
    //! Opens the row's picture full screen over the first window.
    void IMMessageTableViewCellImageViewDidPressed(IMMessageTableViewCell *cell) override;
    //! The viewer's drag: moved with the finger, closed when let go 50 points or more from its place.
    void didPan(IMGestureRecognizer *recognizer);
    //! Whether a picture let go with its centre at `center` in a view of `size` goes back (single precision).
    static bool isPictureNearHome(const QSizeF &size, const QPointF &center);

    //! Moves the input bar above a keyboard ending at `frame` (window coordinates) over `duration` seconds.
    void keyboardWillChangeToFrame(const QRect &frame, float duration) override;
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
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void moveInputBar(qreal keyboardTop, qreal keyboardHeight, double duration);
    bool isThisRoom(const IMRoomPtr &room) const;
    void loadOlderPage();
    void appendSentRow(const IMMessagePtr &message, IMTableView::RowAnimation animation);
    void uploadPicture(const IMMessagePtr &message, const QImage &image);
    void redrawRow(int row);
    IMMessageTableViewCell *rowAt(int row) const;
    void closePictureViewer();
    IMImagePickerController *m_picker = nullptr;
    IMRoomPtr m_room;
    QList<IMMessagePtr> m_dataSource;
    IMTapGestureRecognizer *m_tap = nullptr;
    IMLongPressGestureRecognizer *m_longPress = nullptr;
    QWidget *m_inputBar = nullptr;
};

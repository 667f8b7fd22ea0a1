#pragma once

#include <QPointer>

#include "IMMessage.h"
#include "IMRoom.h"
#include "IMTableViewCell.h"

class IMActivityIndicator;
class IMBubbleView;
class IMLayoutConstraint;
class IMTapGestureRecognizer;
class IMMessageTableViewCell;
class UxButton;
class UxImageView;
class UxLabel;
class UxTextView;

//! Row kind of a text message sent by the current user, and of every message neither text nor picture.
extern const QString CellRight;
//! Row kind of a text message from anybody else.
extern const QString CellLeft;
//! Row kind of a picture sent by the current user.
extern const QString CellRightImage;
//! Row kind of a picture from anybody else.
extern const QString CellLeftImage;

//! Hears from a message row. All optional.
class IMMessageTableViewCellDelegate {
public:
    virtual ~IMMessageTableViewCellDelegate();
    //! The row's picture was tapped.
    virtual void IMMessageTableViewCellImageViewDidPressed(IMMessageTableViewCell *cell);
};

//! One message of the conversation: avatar and name, the body (text or picture) in a bubble, the
//! time, a date header, a read marker, and the sending state (spinner, error button, highlight).
class IMMessageTableViewCell : public IMTableViewCell {
    Q_OBJECT
public:
    //! A row of kind `reuseIdentifier` (one of the four constants), laid out from its Designer layout.
    explicit IMMessageTableViewCell(const QString &reuseIdentifier = CellLeft, QWidget *parent = nullptr);

    //! The message shown.
    IMMessagePtr message() const;
    //! Dresses the row for `message`: avatar, name, body, sending state, date header and time.
    void setMessage(const IMMessagePtr &message);
    //! The room (set only when read markers are wanted).
    IMRoomPtr room() const;
    //! Stores the room and recomputes the read marker off the main thread.
    void setRoom(const IMRoomPtr &room);
    //! The declared sending state: nothing writes it, so it reads 0 (the message's `sendingType` is the state).
    quint64 cellType() const;
    //! Shows sending state `type` (0 sent, 1 sending, 2 failed, 3 being edited) one main-loop turn later.
    void setCellType(quint64 type);
    //! Whether the date header shows.
    bool showDate() const;
    //! Shows the date header (21 points) or hides it (0).
    void setShowDate(bool show);
    //! The delegate (not owned).
    IMMessageTableViewCellDelegate *delegate() const;
    //! Sets the delegate.
    void setDelegate(IMMessageTableViewCellDelegate *delegate);

    IMActivityIndicator *indicator() const; //!< the spinner while sending
    UxTextView *subTextView() const; //!< the text body (null in picture rows)
    UxImageView *pictureImageView() const; //!< the picture body (null in text rows)
    UxLabel *readLabel() const; //!< the read marker
    UxButton *errorButton() const; //!< shown when sending failed
    IMBubbleView *bubbleView() const; //!< the shape behind the body
    UxLabel *dateLabel() const; //!< the date header
    IMLayoutConstraint *dateLabelHeight() const; //!< 21 or 0
    IMLayoutConstraint *photoImageViewWidth() const; //!< the avatar's width (0 collapses it)
    IMLayoutConstraint *photoImageViewHeight() const; //!< the avatar's height
    //! The tap on the picture (created on first use).
    IMTapGestureRecognizer *tapPhotoImageViewGesture();

    //! The row kind for `message`: own or other's, text or picture; every other type "CellRight".
    static QString cellIDForMessage(const IMMessagePtr &message, const QString &currentClientID);
    //! The read marker: "已讀" in a two-person room, "N 已讀" in larger ones, else empty.
    static QString readString(const IMRoomPtr &room, const IMMessagePtr &message, const QString &currentClientID);
    //! Whether the first other member (in the room's read-time order) read after the message was made.
    static bool isRead(const IMRoomPtr &room, const IMMessagePtr &message, const QString &currentClientID);
    //! How many other members' read times sort strictly after the message's creation time.
    static int readCount(const IMRoomPtr &room, const IMMessagePtr &message, const QString &currentClientID);
    //! The read marker from plain values: the room's read times and the message's creation time.
    static QString readStringFor(const QVariantMap &readTime, const QString &createdAt, const QString &currentClientID);
    //! The colour of the sending state `type` behind the row (invalid: clear).
    static QColor backgroundForSendingType(quint64 type);

private:
    void applyCellType(quint64 type);
    IMMessagePtr m_message;
    IMRoomPtr m_room;
    quint64 m_cellType = 0;
    bool m_showDate = false;
    IMMessageTableViewCellDelegate *m_delegate = nullptr;
    QPointer<IMActivityIndicator> m_indicator;
    QPointer<UxTextView> m_subTextView;
    QPointer<UxImageView> m_pictureImageView;
    QPointer<UxLabel> m_readLabel;
    QPointer<UxButton> m_errorButton;
    QPointer<IMBubbleView> m_bubbleView;
    QPointer<UxLabel> m_dateLabel;
    IMLayoutConstraint *m_dateLabelHeight = nullptr;
    IMLayoutConstraint *m_photoWidth = nullptr;
    IMLayoutConstraint *m_photoHeight = nullptr;
    IMTapGestureRecognizer *m_tap = nullptr;
};

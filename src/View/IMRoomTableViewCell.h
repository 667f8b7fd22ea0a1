#pragma once

#include <QPointer>

#include "IMRoom.h"
#include "IMTableViewCell.h"

class UxLabel;

//! A row of the room list: photo, title, last-message line, unread badge and time of one room.
class IMRoomTableViewCell : public IMTableViewCell {
    Q_OBJECT
public:
    //! A row of kind `reuseIdentifier`, laid out from its Designer layout.
    explicit IMRoomTableViewCell(const QString &reuseIdentifier = QStringLiteral("Cell"), QWidget *parent = nullptr);
    //! The room shown.
    IMRoomPtr room() const;
    //! Shows `room`: photo and title (the other member's in a one-to-one room), last message, badge, time.
    void setRoom(const IMRoomPtr &room);
    //! Whether the room has exactly two members.
    bool isRoomHasTwoClient() const;
    //! The last-message line.
    UxLabel *subTitleLabel() const;
    //! The unread count.
    UxLabel *badgeLabel() const;

    //! The last-message line for the latest message (a message dictionary): its text, or what was sent.
    static QString subtitleForMessage(const QVariantMap &message);
    //! The badge text: the count, capped at "99".
    static QString badgeText(qint32 badge);
    //! The time text: today's and yesterday's times with the locale's relative words.
    static QString timeText(const QString &lastMessageTime);

private:
    IMRoomPtr m_room;
    QPointer<UxLabel> m_subTitleLabel;
    QPointer<UxLabel> m_badgeLabel;
};

#pragma once

// The one place where a change is told: to the delegate first, then as a notification.

#include "ParloDelegate.h"

#include <QString>
#include <QVariant>

class Parlo;

//! What the facade announces; each has a delegate call and a notification (ParloNotifications.h).
enum class ParloAnnouncement {
    Badge,
    ReceiveMessage,
    ReceiveMessageFromOthers,
    Rooms,
    Room,
    SendingType,
    UpdateMessage,
    JoinedWithRoom,
    ReadTime,
    ChatIn,
};

//! Holds the facade's delegate and tells it, and the notification centre, of every change.
//! Values are the announcement's record as a QVariant (IMBadgePtr, IMMessagePtr, IMRoomPtr,
//! QList<IMRoomPtr>, or the signed-in IMClientPtr for ChatIn, whose delegate call has no argument).
class ParloAnnouncer {
public:
    //! An announcer of `facade`; its delegate is cleared when the delegate is destroyed.
    explicit ParloAnnouncer(Parlo *facade);
    ~ParloAnnouncer();
    ParloAnnouncer(const ParloAnnouncer &) = delete;
    ParloAnnouncer &operator=(const ParloAnnouncer &) = delete;

    //! The delegate, not owned (null when none).
    ParloDelegate *delegate() const { return m_delegate; }
    //! Sets the delegate.
    void setDelegate(ParloDelegate *delegate);

    //! Calls the delegate, then posts the notification.
    void tell(ParloAnnouncement what, const QVariant &value);
    //! Calls the delegate only.
    void tellDelegate(ParloAnnouncement what, const QVariant &value);
    //! Posts the notification only, with `value` as object and under "object" in the user info.
    void post(ParloAnnouncement what, const QVariant &value);
    //! Tells a connection status: the delegate, then "didChangeConnectStatus" and
    //! "ParloDidChangeConnectStatus" with user info {"status", "message"} and no object.
    void tellConnectStatus(int status, const QString &message);

    //! Posts `name` with `object`, also under "object" in the user info.
    static void postNotificationName(const QString &name, const QVariant &object);
    //! Clears `delegate` from every announcer that holds it.
    static void forgetDelegate(ParloDelegate *delegate);

private:
    ParloDelegate *m_delegate = nullptr;
};

#pragma once

#include "IMBadge.h"
#include "IMMessage.h"
#include "IMRoom.h"

#include <QList>
#include <QString>

//! Receives the facade's announcements, each before the matching notification is posted.
//! Every method is optional: the defaults do nothing. The facade holds its delegate without
//! owning it; a delegate that is destroyed stops being the delegate.
class ParloDelegate {
public:
    virtual ~ParloDelegate();

    //! The connection status changed (0 connected ... 6 reconnection gave up), with the event's first argument as text.
    virtual void ParloDidChangeConnectStatus(int status, const QString &message);
    //! The badge counters changed; `badge` is the facade's own record.
    virtual void ParloDidUpdateBadge(const IMBadgePtr &badge);
    //! A message arrived.
    virtual void ParloDidReceiveMessage(const IMMessagePtr &message);
    //! A message sent by another client arrived.
    virtual void ParloDidReceiveMessageFromOthers(const IMMessagePtr &message);
    //! The room list changed; `rooms` is the facade's chatRooms.
    virtual void ParloDidUpdateRooms(const QList<IMRoomPtr> &rooms);
    //! One room changed through a pushed event.
    virtual void ParloDidUpdateRoom(const IMRoomPtr &room);
    //! A message being sent changed its sending state.
    virtual void ParloDidChangeMessageSendingType(const IMMessagePtr &message);
    //! The server updated a message; called on the main queue, asynchronously.
    virtual void ParloDidUpdateMessage(const IMMessagePtr &message);
    //! A client joined `room`.
    virtual void ParloDidJoinedWithRoom(const IMRoomPtr &room);
    //! A read receipt changed the read times of `room`.
    virtual void ParloDidUpdateReadTimeWithRoom(const IMRoomPtr &room);
    //! Chat-in succeeded.
    virtual void ParloDidChatIn();
    //! Asked before a page of messages is requested; false cancels the request (default true).
    virtual bool ParloWillStartLoadingMessageWithRoom(const IMRoomPtr &room);
    //! A page request for `room` finished, with success or failure.
    virtual void ParloDidEndLoadingMessageWithRoom(const IMRoomPtr &room);
};

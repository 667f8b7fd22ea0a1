#pragma once

// Messages sent from this device whose echo has not arrived yet.

#include "Parlo.h"

class ParloAnnouncer;
class ParloTransport;

//! Owns the messages in flight: a send lists its message until the server's echo settles it
//! (found again by idFromSender); a failed send stays listed, failed, and only the newest
//! failedSendingLimit failed ones are kept. Main thread only.
class ParloOutbox {
public:
    ParloOutbox(Parlo *facade, ParloTransport &transport, ParloAnnouncer &announcer);

    //! The messages in flight, in sending order.
    QList<IMMessagePtr> sendingMessages() const { return m_sending; }
    int failedSendingLimit() const { return m_failedLimit; }
    void setFailedSendingLimit(int limit) { m_failedLimit = limit; }
    //! Drops every message in flight.
    void clear() { m_sending.clear(); }

    //! Lists `message` and posts it to "/message/"; see Parlo::sendMessage.
    void send(const IMMessagePtr &message, Parlo::MessageSuccess success, Parlo::Failure failure);
    //! The echo of a message: the listed message with the same idFromSender takes its properties,
    //! leaves the list and its new state is told. False when none is listed.
    bool settle(const IMMessagePtr &echo);

private:
    void dropOldestFailed();

    Parlo *m_facade;
    ParloTransport &m_transport;
    ParloAnnouncer &m_announcer;
    QList<IMMessagePtr> m_sending;
    int m_failedLimit = 100;
};

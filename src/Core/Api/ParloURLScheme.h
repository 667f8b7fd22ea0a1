#pragma once

// The app's URL scheme: links to rooms are shared under the host's own scheme and opened here.

#include <QString>
#include <QUrl>

class Parlo;
class ParloRoomRequests;
class ParloTransport;

//! Reads the host's URL scheme configuration afresh on every call and opens room links.
class ParloURLScheme {
public:
    ParloURLScheme(Parlo *facade, ParloTransport &transport, ParloRoomRequests &rooms);

    bool isScehemeWorks() const;
    QString urlType() const;
    QString urlStringForScheme() const;
    QString appIDOnStore() const;
    //! Joins the room of a "parlo.integrate/joinRoom/<id>" link, now or after the next chat-in.
    bool open(const QUrl &url);

private:
    Parlo *m_facade;
    ParloTransport &m_transport;
    ParloRoomRequests &m_rooms;
};

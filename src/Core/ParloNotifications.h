#pragma once

#include <QString>

// Names of the facade's notifications; each constant holds its own name. The object of each
// notification is also put under "object" in its user info.

//! Chat-in succeeded; object: the signed-in IMClientPtr.
inline const QString kParloDidChatIn = QStringLiteral("ParloDidChatIn");
//! One room changed (pushed update, read time written back); object: IMRoomPtr.
inline const QString kParloDidUpdateRoom = QStringLiteral("ParloDidUpdateRoom");
//! The room list changed; object: QList<IMRoomPtr>, the facade's chatRooms.
inline const QString kParloDidUpdateRooms = QStringLiteral("ParloDidUpdateRooms");
//! A read receipt arrived; object: the pushed IMRoomPtr.
inline const QString kParloDidUpdateReadTimeWithRoom = QStringLiteral("ParloDidUpdateReadTimeWithRoom");
//! A client joined a room; object: IMRoomPtr.
inline const QString kParloDidJoinedWithRoom = QStringLiteral("ParloDidJoinedWithRoom");
//! Any incoming message; object: IMMessagePtr.
inline const QString kParloDidReceiveMessage = QStringLiteral("ParloDidReceiveMessage");
//! An incoming message sent by another client; object: IMMessagePtr.
inline const QString kParloDidReceiveMessageFromOthers = QStringLiteral("ParloDidReceiveMessageFromOthers");
//! A message sent from this device changed its sending state; object: IMMessagePtr.
inline const QString kParloDidChangeMessageSendingType = QStringLiteral("ParloDidChangeMessageSendingType");
//! The server pushed a message update; object: IMMessagePtr.
inline const QString kParloDidUpdateMessage = QStringLiteral("ParloDidUpdateMessage");
//! The badge counters changed; object: the facade's IMBadgePtr.
inline const QString kParloDidUpdateBadge = QStringLiteral("ParloDidUpdateBadge");
//! The connection status changed; no object; user info "status" (int) and "message" (text).
inline const QString kParloDidChangeConnectStatus = QStringLiteral("ParloDidChangeConnectStatus");

//! Request header key of the application key.
inline const QString kParloApiKey = QStringLiteral("apiKey");
//! Request header key of the client key.
inline const QString kParloClientKey = QStringLiteral("clientKey");
//! Request header key of the signed-in client's id.
inline const QString kParloClientID = QStringLiteral("clientID");
//! Request header key of the session token.
inline const QString kParloToken = QStringLiteral("token");

#pragma once

#include "IMSocketIOClient.h"

#include <QMap>
#include <QVariantMap>

//! Another user of the reference server, driven by a test over a Socket.IO client of its own:
//! virtual requests with its keys and session, and a record of the events pushed to it.
class ServerPeer {
public:
    ServerPeer(const QString &url, const QString &apiKey, const QString &clientKey);

    //! Connects and waits for the connection.
    bool connect();
    //! Sends a virtual request and waits for its answer {"statusCode", "body"}.
    QVariantMap request(const QString &method, const QString &url, const QVariantMap &data = {});
    //! The body of a request that must answer 200 (the test fails otherwise).
    QVariantMap ok(const QString &method, const QString &url, const QVariantMap &data = {});
    //! Connects when needed, signs up as `id` and keeps the token.
    bool signUp(const QString &id);
    //! The payloads pushed under `event` so far.
    QList<QVariantMap> pushed(const QString &event) const { return pushes.value(event); }

    IMSocketIOClient socket;
    QString apiKey;
    QString clientKey;
    QString clientID;
    QString token;
    QMap<QString, QList<QVariantMap>> pushes;
};

#pragma once

// Session and account: sign-up, chat-in and chat-out, sign-out, the push device token, the
// badge counters and the client and class queries.

#include "Parlo.h"

class ParloAnnouncer;
class ParloFiles;
class ParloLogger;
class ParloOutbox;
class ParloRoomList;
class ParloTransport;

//! Owns the device token and the session operations (see Parlo's session members); the session
//! itself (client id, token, current user) is persisted in IMUserDefaults.
class ParloSession {
public:
    ParloSession(Parlo *facade, ParloTransport &transport, ParloRoomList &rooms, ParloOutbox &outbox, ParloFiles &files,
        ParloAnnouncer &announcer, ParloLogger &logger);

    QString deviceToken() const { return m_deviceToken; }
    void setDeviceToken(const QString &token) { m_deviceToken = token; }
    QString identityToken() const { return m_identityToken; }
    void setIdentityToken(const QString &token) { m_identityToken = token; }

    void signWithClient(const IMClientPtr &client, Parlo::ClientSuccess success, Parlo::Failure failure);
    void chatinSuccess(Parlo::ClientSuccess success, Parlo::Failure failure);
    void chatOutSuccess(Parlo::Success success, Parlo::Failure failure);
    void logout();
    void updateDeviceTokenIfPossiable(const QByteArray &deviceToken);
    void badgeSuccess(Parlo::BadgeSuccess success, Parlo::Failure failure);
    void badgeTotalSuccess(Parlo::BadgeSuccess success, Parlo::Failure failure);
    void clientsListWithOffset(Parlo::ClientsSuccess success, Parlo::Failure failure);
    void queryWithClass(const QString &className, qint64 offset, qint64 limit, const QString &sort,
        Parlo::Success success, Parlo::Failure failure);
    void chatinHTTPSuccess(Parlo::ClientSuccess success, Parlo::Failure failure);

private:
    QVariantMap envelope(const QString &path) const;
    //! Makes the badge of an answer from the body and the badge held.
    using BadgeFromAnswer = std::function<IMBadgePtr(const QVariant &body, const IMBadgePtr &held)>;
    //! Posts `path`; the badge `take` makes becomes the facade's, `success` gets it, then it is told.
    void readBadge(const QString &path, Parlo::BadgeSuccess success, Parlo::Failure failure, BadgeFromAnswer take);

    Parlo *m_facade;
    ParloTransport &m_transport;
    ParloRoomList &m_rooms;
    ParloOutbox &m_outbox;
    ParloFiles &m_files;
    ParloAnnouncer &m_announcer;
    ParloLogger &m_logger;
    QString m_deviceToken;
    QString m_identityToken;
};

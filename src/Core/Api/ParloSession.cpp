// Session and account: sign-up, chat-in and chat-out, sign-out, the push device token, the
// badge counters and the client and class queries.
#include "ParloSession.h"

#include "IMClient.h"
#include "IMDB.h"
#include "IMDispatch.h"
#include "IMUserDefaults.h"
#include "ParloAnnouncer.h"
#include "ParloFiles.h"
#include "ParloLogger.h"
#include "ParloOutbox.h"
#include "ParloRoomList.h"
#include "ParloTransport.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace {
const QString kSignUpFirst = QStringLiteral("signUpWithClient: first");

IMClientPtr clientFrom(const QVariant &body)
{
    IMClientPtr client = IMClient::fromDictionary(body.toMap());
    return client ? client : std::make_shared<IMClient>();
}

// The printed form of a device token as the platform writes data: "<0a1b2c3d 4e5f...>", four
// bytes a group.
QString printedDescription(const QByteArray &data)
{
    const QString hex = QString::fromLatin1(data.toHex());
    QString out = QStringLiteral("<");
    for (qsizetype i = 0; i < hex.size(); i += 8) {
        if (i > 0)
            out += QLatin1Char(' ');
        out += hex.mid(i, 8);
    }
    return out + QLatin1Char('>');
}

// The four request headers of the plain-HTTP session calls, from the current client.
QNetworkRequest plainRequest(const QString &url, const QString &apiKey, const QString &clientKey)
{
    const IMClientPtr me = IMClient::currentClient();
    QNetworkRequest request {QUrl(url)};
    request.setRawHeader("apiKey", apiKey.toUtf8());
    request.setRawHeader("clientKey", clientKey.toUtf8());
    request.setRawHeader("token", me->token().toUtf8());
    request.setRawHeader("clientID", me->clientID().toUtf8());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    return request;
}
} // namespace

ParloSession::ParloSession(Parlo *facade, ParloTransport &transport, ParloRoomList &rooms, ParloOutbox &outbox,
    ParloFiles &files, ParloAnnouncer &announcer, ParloLogger &logger)
    : m_facade(facade)
    , m_transport(transport)
    , m_rooms(rooms)
    , m_outbox(outbox)
    , m_files(files)
    , m_announcer(announcer)
    , m_logger(logger)
{
}

QVariantMap ParloSession::envelope(const QString &path) const
{
    return QVariantMap {{QStringLiteral("url"), path}, {QStringLiteral("headers"), m_transport.header()}};
}

void ParloSession::signWithClient(const IMClientPtr &client, Parlo::ClientSuccess success, Parlo::Failure failure)
{
    if (!client) {
        if (failure)
            failure(IMError::parlo(400, QStringLiteral("client is needed")));
        return;
    }
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    // Stored first, so that the request's headers already carry it, even if the request fails.
    settings->setClientID(client->clientID());
    settings->write();
    QVariantMap item = envelope(QStringLiteral("/client/"));
    if (!m_identityToken.isEmpty()) {
        // Beside the four headers, only where the host's backend vouches for the client.
        QVariantMap headers = item.value(QStringLiteral("headers")).toMap();
        headers.insert(QStringLiteral("identityToken"), m_identityToken);
        item.insert(QStringLiteral("headers"), headers);
    }
    item.insert(QStringLiteral("data"), client->toDictionary());
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodPost, item,
        [this, facade, success](const QVariant &body) {
            const IMClientPtr signedUp = clientFrom(body);
            IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
            settings->setToken(signedUp->token());
            settings->setCurrentUser(signedUp->toDictionary());
            settings->write();
            if (success)
                success(signedUp);
            if (facade)
                updateDeviceTokenIfPossiable(QByteArray());
        },
        std::move(failure));
}

void ParloSession::chatinSuccess(Parlo::ClientSuccess success, Parlo::Failure failure)
{
    if (IMClient::currentClient()->clientID().isEmpty()) {
        IMDispatchMainAsync([failure] {
            if (failure)
                failure(IMError::parlo(404,
                    QVariantMap {{QStringLiteral("info"), kSignUpFirst},
                        {QStringLiteral("NSLocalizedDescriptionKey"), kSignUpFirst}}));
        });
        return;
    }
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodPost, envelope(QStringLiteral("/client/chatin/")),
        [this, facade, success](const QVariant &body) {
            const IMClientPtr client = clientFrom(body);
            // The caller hears first; announcements follow once the list is in place.
            if (success)
                success(client);
            if (!facade)
                return;
            const QList<IMRoomPtr> rooms = IMRoom::arrayOfModelsFromDictionaries(client->room());
            IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
            settings->setCurrentUser(client->toDictionary());
            settings->write();
            m_rooms.saveAndReload(rooms);
            // The list goes to the delegate only; chat-in posts no room-list notification.
            m_announcer.tellDelegate(ParloAnnouncement::Rooms, QVariant::fromValue(m_rooms.chatRooms()));
            m_announcer.tell(ParloAnnouncement::ChatIn, QVariant::fromValue(client));
            m_rooms.setBadgeTotal(body.toMap().value(QStringLiteral("totalBadge")).toInt());
            m_transport.execQueue();
        },
        std::move(failure));
}

void ParloSession::chatOutSuccess(Parlo::Success success, Parlo::Failure failure)
{
    QVariantMap item = envelope(QStringLiteral("/client/chatout/"));
    item.insert(QStringLiteral("data"),
        QVariantMap {{QStringLiteral("token"), m_deviceToken.isNull() ? QStringLiteral("") : m_deviceToken}});
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodPost, item, std::move(success), [this, facade, failure](const IMError &error) {
            if (failure)
                failure(error);
            if (facade)
                m_transport.reconnect();
        });
}

void ParloSession::logout()
{
    QPointer<Parlo> facade(m_facade);
    auto signOut = [this, facade](const QString &line) {
        if (!facade)
            return;
        PARLO_LOG(m_logger, "data", line);
        IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
        settings->setCurrentUser(QVariantMap());
        settings->setClientID(QString());
        settings->setToken(QString());
        settings->write();
        m_rooms.reset();
        m_outbox.clear();
        IMDB::sharedInstance()->resetDatabase();
    };
    chatOutSuccess([signOut](const QVariant &) { signOut(QStringLiteral("logout success")); },
        [signOut](const IMError &) { signOut(QStringLiteral("logout")); });
}

void ParloSession::updateDeviceTokenIfPossiable(const QByteArray &deviceToken)
{
    if (!deviceToken.isNull()) {
        QString text = printedDescription(deviceToken);
        text.remove(QLatin1Char('<')).remove(QLatin1Char('>')).remove(QLatin1Char(' '));
        m_deviceToken = text;
    }
    if (IMClient::currentClient()->clientID().isEmpty() || m_deviceToken.isEmpty())
        return;
    QNetworkAccessManager *http = m_files.urlSession();
    const QNetworkRequest request = plainRequest(m_transport.domainString() + QStringLiteral("/client/setDeviceToken/"),
        m_transport.apiKey(), m_transport.clientKey());
    const QByteArray body = QJsonDocument::fromVariant(
        QVariantMap {{QStringLiteral("type"), QStringLiteral("ios")},
            {QStringLiteral("token"),
                m_deviceToken}}).toJson(QJsonDocument::Compact);
    QNetworkReply *reply = http->post(request, body);
    const QString token = m_deviceToken;
    QPointer<Parlo> facade(m_facade);
    QObject::connect(reply, &QNetworkReply::finished, reply, [this, facade, reply, token] {
        reply->deleteLater();
        if (facade && reply->error() == QNetworkReply::NoError)
            PARLO_LOG(m_logger, "data", QStringLiteral("device token updated : %1").arg(token));
    });
}

void ParloSession::chatinHTTPSuccess(Parlo::ClientSuccess success, Parlo::Failure failure)
{
    QNetworkAccessManager *http = m_files.urlSession();
    const QString path = QStringLiteral("%1/client/chatin/%2/")
                             .arg(m_transport.domainString(), IMUserDefaults::standardUserDefaults()->clientID());
    QNetworkRequest request = plainRequest(path, m_transport.apiKey(), m_transport.clientKey());
    if (!m_identityToken.isEmpty())
        request.setRawHeader("identityToken", m_identityToken.toUtf8());
    QNetworkReply *reply = http->post(request, QByteArray());
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, success, failure] {
        reply->deleteLater();
        const QByteArray bytes = reply->readAll();
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid() && status.toInt() >= 400) {
            const QString text = QString::fromUtf8(bytes);
            if (failure)
                failure(IMError::parlo(status.toInt(),
                    QVariantMap {{QStringLiteral("info"), text}, {QStringLiteral("NSLocalizedDescriptionKey"), text}}));
            return;
        }
        if (reply->error() != QNetworkReply::NoError) {
            if (failure)
                failure(IMError(QStringLiteral("QNetworkReply"), int(reply->error()),
                    QVariantMap {{QStringLiteral("info"), reply->errorString()}}));
            return;
        }
        QJsonParseError parseError;
        const QJsonDocument doc = QJsonDocument::fromJson(bytes, &parseError);
        if (parseError.error != QJsonParseError::NoError) {
            if (failure)
                failure(IMError(QStringLiteral("QJsonParseError"), int(parseError.error),
                    QVariantMap {{QStringLiteral("info"), parseError.errorString()}}));
            return;
        }
        if (success)
            success(clientFrom(doc.toVariant()));
    });
}

void ParloSession::badgeSuccess(Parlo::BadgeSuccess success, Parlo::Failure failure)
{
    // The answer is the whole record: it replaces the facade's badge.
    readBadge(
        QStringLiteral("/badge"), std::move(success), std::move(failure), [](const QVariant &body, const IMBadgePtr &) {
            IMBadgePtr badge = IMBadge::fromDictionary(body.toMap());
            return badge ? badge : std::make_shared<IMBadge>();
        });
}

void ParloSession::badgeTotalSuccess(Parlo::BadgeSuccess success, Parlo::Failure failure)
{
    // The answer is the total alone: the facade's badge keeps its other counters.
    readBadge(QStringLiteral("/badge/total"), std::move(success), std::move(failure),
        [](const QVariant &body, const IMBadgePtr &held) {
            held->setTotal(body.toMap().value(QStringLiteral("total")).toInt());
            return held;
        });
}

void ParloSession::readBadge(
    const QString &path, Parlo::BadgeSuccess success, Parlo::Failure failure, BadgeFromAnswer take)
{
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodPost, envelope(path),
        [this, facade, success, take](const QVariant &body) {
            // Once the facade has gone, the caller still hears, with a record of its own.
            const IMBadgePtr badge = take(body, facade ? m_rooms.badge() : std::make_shared<IMBadge>());
            if (facade)
                m_rooms.setBadge(badge);
            if (success)
                success(badge);
            if (facade)
                m_rooms.tellBadge();
        },
        std::move(failure));
}

void ParloSession::clientsListWithOffset(Parlo::ClientsSuccess success, Parlo::Failure failure)
{
    // The offset is part of the operation's name only: the request sends none.
    m_transport.emitWithMethod(
        ParloRequestMethodGet, envelope(QStringLiteral("/client/")),
        [success](const QVariant &body) {
            if (success)
                success(IMClient::arrayOfModelsFromDictionaries(body.toList()));
        },
        std::move(failure));
}

void ParloSession::queryWithClass(const QString &className, qint64 offset, qint64 limit, const QString &sort,
    Parlo::Success success, Parlo::Failure failure)
{
    // "IMRoom" asks for "Room": the two-letter class prefix is not the server's.
    const QString path = QStringLiteral("/%1/?offset=%2&limit=%3&sort=%4")
                             .arg(className.mid(2), QString::number(offset), QString::number(limit), sort);
    m_transport.emitWithMethod(ParloRequestMethodGet, envelope(path), std::move(success), std::move(failure));
}

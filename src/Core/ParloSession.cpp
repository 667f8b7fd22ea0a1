// Session and account: sign-up, chat-in and chat-out, sign-out, the push device token, the
// badge counters and the client and class queries.
#include "Parlo_p.h"

#include "IMClient.h"
#include "IMDB.h"
#include "IMDispatch.h"
#include "IMUserDefaults.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace {
const QString kSignUpFirst = QStringLiteral("signUpWithClient: first");

QVariantMap envelope(const QString &path, const QVariantMap &headers)
{
    return QVariantMap{{QStringLiteral("url"), path}, {QStringLiteral("headers"), headers}};
}

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
    QNetworkRequest request{QUrl(url)};
    request.setRawHeader("apiKey", apiKey.toUtf8());
    request.setRawHeader("clientKey", clientKey.toUtf8());
    request.setRawHeader("token", me->token().toUtf8());
    request.setRawHeader("clientID", me->clientID().toUtf8());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    return request;
}
} // namespace

void Parlo::signWithClient(const IMClientPtr &client, ClientSuccess success, Failure failure)
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
    QVariantMap item = envelope(QStringLiteral("/client/"), header());
    item.insert(QStringLiteral("data"), client->toDictionary());
    QPointer<Parlo> self(this);
    emitWithMethod(
        1, item,
        [self, success](const QVariant &body) {
            const IMClientPtr signedUp = clientFrom(body);
            IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
            settings->setToken(signedUp->token());
            settings->setCurrentUser(signedUp->toDictionary());
            settings->write();
            if (success)
                success(signedUp);
            if (self)
                self->updateDeviceTokenIfPossiable();
        },
        std::move(failure));
}

void Parlo::chatinSuccess(ClientSuccess success, Failure failure)
{
    if (IMClient::currentClient()->clientID().isEmpty()) {
        IMDispatchMainAsync([failure] {
            if (failure)
                failure(IMError::parlo(404, QVariantMap{{QStringLiteral("info"), kSignUpFirst},
                                                        {QStringLiteral("NSLocalizedDescriptionKey"), kSignUpFirst}}));
        });
        return;
    }
    QPointer<Parlo> self(this);
    emitWithMethod(
        1, envelope(QStringLiteral("/client/chatin/"), header()),
        [self, success](const QVariant &body) {
            const IMClientPtr client = clientFrom(body);
            // The caller hears first; announcements follow once the list is in place.
            if (success)
                success(client);
            if (!self)
                return;
            Parlo *p = self;
            p->setChatRooms(IMRoom::arrayOfModelsFromDictionaries(client->room()));
            IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
            settings->setCurrentUser(client->toDictionary());
            settings->write();
            p->reloadRoomsSaving(p->chatRooms());
            if (ParloDelegate *delegate = p->d->delegate) {
                delegate->ParloDidUpdateRooms(p->chatRooms());
                delegate->ParloDidChatIn();
            }
            p->postNotificationName(kParloDidChatIn, QVariant::fromValue(client));
            const IMBadgePtr badge = p->badge();
            badge->setTotal(body.toMap().value(QStringLiteral("totalBadge")).toInt());
            p->announceBadge(badge);
            p->execQueue();
        },
        std::move(failure));
}

void Parlo::chatOutSuccess(Success success, Failure failure)
{
    QVariantMap item = envelope(QStringLiteral("/client/chatout/"), header());
    item.insert(QStringLiteral("data"),
                QVariantMap{{QStringLiteral("token"), d->deviceToken.isNull() ? QStringLiteral("") : d->deviceToken}});
    QPointer<Parlo> self(this);
    emitWithMethod(1, item, std::move(success), [self, failure](const IMError &error) {
        if (failure)
            failure(error);
        if (self && self->d->socket)
            self->d->socket->reconnect();
    });
}

void Parlo::logout()
{
    QPointer<Parlo> self(this);
    auto signOut = [self](const QString &line) {
        if (!self)
            return;
        self->PARLO_LOG("data", line);
        IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
        settings->setCurrentUser(QVariantMap());
        settings->setClientID(QString());
        settings->setToken(QString());
        settings->write();
        self->resetChatRooms();
        self->d->storeMirror.clear();
        self->d->sendingMessages.reset();
        IMDB::sharedInstance()->resetDatabase();
    };
    chatOutSuccess([signOut](const QVariant &) { signOut(QStringLiteral("logout success")); },
                   [signOut](const IMError &) { signOut(QStringLiteral("logout")); });
}

void Parlo::updateDeviceTokenIfPossiable(const QByteArray &deviceToken)
{
    if (!deviceToken.isNull()) {
        QString text = printedDescription(deviceToken);
        text.remove(QLatin1Char('<')).remove(QLatin1Char('>')).remove(QLatin1Char(' '));
        d->deviceToken = text;
    }
    if (IMClient::currentClient()->clientID().isEmpty() || d->deviceToken.isEmpty())
        return;
    QNetworkAccessManager *http = urlSession();
    const QNetworkRequest request =
        plainRequest(d->domainString + QStringLiteral("/client/setDeviceToken/"), d->apiKey, d->clientKey);
    const QByteArray body = QJsonDocument::fromVariant(
                                QVariantMap{{QStringLiteral("type"), QStringLiteral("ios")},
                                            {QStringLiteral("token"), d->deviceToken}})
                                .toJson(QJsonDocument::Compact);
    QNetworkReply *reply = http->post(request, body);
    const QString token = d->deviceToken;
    QPointer<Parlo> self(this);
    connect(reply, &QNetworkReply::finished, reply, [self, reply, token] {
        reply->deleteLater();
        if (self && reply->error() == QNetworkReply::NoError)
            self->PARLO_LOG("data", QStringLiteral("device token updated : %1").arg(token));
    });
}

void Parlo::chatinHTTPSuccess(ClientSuccess success, Failure failure)
{
    QNetworkAccessManager *http = urlSession();
    const QString path = QStringLiteral("%1/client/chatin/%2/").arg(d->domainString, clientID());
    QNetworkReply *reply = http->post(plainRequest(path, d->apiKey, d->clientKey), QByteArray());
    connect(reply, &QNetworkReply::finished, reply, [reply, success, failure] {
        reply->deleteLater();
        const QByteArray bytes = reply->readAll();
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid() && status.toInt() >= 400) {
            const QString text = QString::fromUtf8(bytes);
            if (failure)
                failure(IMError::parlo(status.toInt(),
                                       QVariantMap{{QStringLiteral("info"), text},
                                                   {QStringLiteral("NSLocalizedDescriptionKey"), text}}));
            return;
        }
        if (reply->error() != QNetworkReply::NoError) {
            if (failure)
                failure(IMError(QStringLiteral("QNetworkReply"), int(reply->error()),
                                QVariantMap{{QStringLiteral("info"), reply->errorString()}}));
            return;
        }
        QJsonParseError parseError;
        const QJsonDocument doc = QJsonDocument::fromJson(bytes, &parseError);
        if (parseError.error != QJsonParseError::NoError) {
            if (failure)
                failure(IMError(QStringLiteral("QJsonParseError"), int(parseError.error),
                                QVariantMap{{QStringLiteral("info"), parseError.errorString()}}));
            return;
        }
        if (success)
            success(clientFrom(doc.toVariant()));
    });
}

void Parlo::badgeSuccess(BadgeSuccess success, Failure failure)
{
    QPointer<Parlo> self(this);
    emitWithMethod(
        1, envelope(QStringLiteral("/badge"), header()),
        [self, success](const QVariant &body) {
            IMBadgePtr badge = IMBadge::fromDictionary(body.toMap());
            if (!badge)
                badge = std::make_shared<IMBadge>();
            if (self)
                self->setBadge(badge);
            if (success)
                success(badge);
            if (!self)
                return;
            self->announceBadge(badge);
        },
        std::move(failure));
}

void Parlo::badgeTotalSuccess(BadgeSuccess success, Failure failure)
{
    QPointer<Parlo> self(this);
    emitWithMethod(
        1, envelope(QStringLiteral("/badge/total"), header()),
        [self, success](const QVariant &body) {
            const IMBadgePtr badge = self ? self->badge() : std::make_shared<IMBadge>();
            badge->setTotal(body.toMap().value(QStringLiteral("total")).toInt());
            if (success)
                success(badge);
            if (!self)
                return;
            self->announceBadge(badge);
        },
        std::move(failure));
}

void Parlo::clientsListWithOffset(qint64, ClientsSuccess success, Failure failure)
{
    // The offset is part of the operation's name only: the request sends none.
    emitWithMethod(
        0, envelope(QStringLiteral("/client/"), header()),
        [success](const QVariant &body) {
            if (success)
                success(IMClient::arrayOfModelsFromDictionaries(body.toList()));
        },
        std::move(failure));
}

void Parlo::queryWithClass(const QString &className, qint64 offset, qint64 limit, const QString &sort,
                           Success success, Failure failure)
{
    // "IMRoom" asks for "Room": the two-letter class prefix is not the server's.
    const QString path = QStringLiteral("/%1/?offset=%2&limit=%3&sort=%4")
                             .arg(className.mid(2), QString::number(offset), QString::number(limit), sort);
    emitWithMethod(0, envelope(path, header()), std::move(success), std::move(failure));
}

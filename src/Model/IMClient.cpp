#include "IMClient.h"

#include "IMJSONMapping_p.h"
#include "IMUserDefaults.h"

#include <optional>

using namespace IMJSONMapping;

struct IMClient::Private : QSharedData {
    QString clientID;
    QString token;
    QString email;
    QString password;
    QString emailVerified;
    QString photo;
    std::optional<QStringList> roomIDs;
    QString username;
    QString chatinAt;
    std::optional<QVariantList> room;
    std::optional<quint64> totalBadge;
};

IMClient::IMClient()
    : d(sharedEmpty<Private>())
{
}
IMClient::~IMClient() = default;

IMClientPtr IMClient::fromDictionary(const QVariantMap &dictionary)
{
    auto client = std::make_shared<IMClient>();
    return client->mergeFromDictionary(dictionary) ? client : nullptr;
}

QList<IMClientPtr> IMClient::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMClientPtr>(array, &IMClient::fromDictionary);
}

IMClientPtr IMClient::currentClient()
{
    if (IMClientPtr client = fromDictionary(IMUserDefaults::standardUserDefaults()->currentUser()))
        return client;
    return std::make_shared<IMClient>();
}

bool IMClient::mergeOwnFields(const QVariantMap &dict)
{
    Private staged = *std::as_const(d);
    const bool ok = read(dict, QStringLiteral("clientID"), &staged.clientID, toString)
        && read(dict, QStringLiteral("token"), &staged.token, toString)
        && read(dict, QStringLiteral("email"), &staged.email, toString)
        && read(dict, QStringLiteral("password"), &staged.password, toString)
        && read(dict, QStringLiteral("emailVerified"), &staged.emailVerified, toString)
        && read(dict, QStringLiteral("photo"), &staged.photo, toString)
        && read(dict, QStringLiteral("roomIDs"), &staged.roomIDs, toStringList)
        && read(dict, QStringLiteral("username"), &staged.username, toString)
        && read(dict, QStringLiteral("chatinAt"), &staged.chatinAt, toString)
        && read(dict, QStringLiteral("room"), &staged.room, toList)
        && read(dict, QStringLiteral("totalBadge"), &staged.totalBadge, toUInt64);
    if (ok)
        d = new Private(std::move(staged));
    return ok;
}

IMClientPtr IMClient::copy() const
{
    auto other = std::make_shared<IMClient>();
    other->copyObjectFieldsFrom(*this);
    other->d = d;
    return other;
}

void IMClient::forEachOwnField(const FieldVisitor &field) const
{
    visitString(field, QStringLiteral("chatinAt"), d->chatinAt);
    visitString(field, QStringLiteral("clientID"), d->clientID);
    visitString(field, QStringLiteral("email"), d->email);
    visitString(field, QStringLiteral("emailVerified"), d->emailVerified);
    visitString(field, QStringLiteral("password"), d->password);
    visitString(field, QStringLiteral("photo"), d->photo);
    visitOptional(field, QStringLiteral("room"), d->room);
    visitOptional(field, QStringLiteral("roomIDs"), d->roomIDs);
    visitString(field, QStringLiteral("token"), d->token);
    visitOptional(field, QStringLiteral("totalBadge"), d->totalBadge);
    visitString(field, QStringLiteral("username"), d->username);
}
QString IMClient::clientID() const { return d->clientID; }
void IMClient::setClientID(const QString &clientID) { d->clientID = clientID; }
QString IMClient::token() const { return d->token; }
void IMClient::setToken(const QString &token) { d->token = token; }
QString IMClient::email() const { return d->email; }
void IMClient::setEmail(const QString &email) { d->email = email; }
QString IMClient::password() const { return d->password; }
void IMClient::setPassword(const QString &password) { d->password = password; }
QString IMClient::emailVerified() const { return d->emailVerified; }
void IMClient::setEmailVerified(const QString &emailVerified) { d->emailVerified = emailVerified; }
QString IMClient::photo() const { return d->photo; }
void IMClient::setPhoto(const QString &photo) { d->photo = photo; }
QStringList IMClient::roomIDs() const { return d->roomIDs.value_or(QStringList()); }
void IMClient::setRoomIDs(const QStringList &roomIDs) { d->roomIDs = roomIDs; }
QString IMClient::username() const { return d->username; }
void IMClient::setUsername(const QString &username) { d->username = username; }
QString IMClient::chatinAt() const { return d->chatinAt; }
void IMClient::setChatinAt(const QString &chatinAt) { d->chatinAt = chatinAt; }
QVariantList IMClient::room() const { return d->room.value_or(QVariantList()); }
void IMClient::setRoom(const QVariantList &room) { d->room = room; }
quint64 IMClient::totalBadge() const { return d->totalBadge.value_or(0); }
void IMClient::setTotalBadge(quint64 totalBadge) { d->totalBadge = totalBadge; }
bool IMClient::hasTotalBadge() const { return d->totalBadge.has_value(); }

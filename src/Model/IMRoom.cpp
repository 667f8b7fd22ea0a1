#include "IMRoom.h"

#include "IMJSONMapping_p.h"
#include "IMRecordStorage_p.h"
#include "IMUserDefaults.h"

#include <mutex>

#include <optional>

using namespace IMJSONMapping;

struct IMRoom::Private : QSharedData {
    QString name;
    QString thumbnail;
    std::optional<bool> isPublic;
    std::optional<QVariantList> client;
    std::optional<QVariantList> message;
    std::optional<QStringList> archivedBy;
    std::optional<QVariantMap> readTime;
    QString lastMessageTime;
    std::optional<qint32> badge;
};

IMRoom::IMRoom()
    : d(sharedEmpty<Private>())
{
}
IMRoom::~IMRoom() = default;

IMRoomPtr IMRoom::fromDictionary(const QVariantMap &dictionary)
{
    auto room = std::make_shared<IMRoom>();
    return room->mergeFromDictionary(dictionary) ? room : nullptr;
}

QList<IMRoomPtr> IMRoom::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMRoomPtr>(array, &IMRoom::fromDictionary);
}

bool IMRoom::mergeOwnFields(const QVariantMap &dict)
{
    Private staged = *std::as_const(d);
    const bool ok = read(dict, QStringLiteral("name"), &staged.name, toString)
        && read(dict, QStringLiteral("thumbnail"), &staged.thumbnail, toString)
        && read(dict, QStringLiteral("isPublic"), &staged.isPublic, toBool)
        && read(dict, QStringLiteral("client"), &staged.client, toList)
        && read(dict, QStringLiteral("message"), &staged.message, toList)
        && read(dict, QStringLiteral("archivedBy"), &staged.archivedBy, toStringList)
        && read(dict, QStringLiteral("readTime"), &staged.readTime, toMap)
        && read(dict, QStringLiteral("lastMessageTime"), &staged.lastMessageTime, toString)
        && read(dict, QStringLiteral("badge"), &staged.badge, toInt32);
    if (!ok)
        return false;
    // A nested record that does not map is skipped, as every property here is optional.
    const auto sender = dict.constFind(QStringLiteral("sender"));
    if (sender != dict.constEnd() && sender->typeId() == QMetaType::QVariantMap) {
        if (IMClientPtr client = IMClient::fromDictionary(sender->toMap())) {
            senderRecord = client;
            senderShared.store(false, std::memory_order_relaxed);
        }
    }
    d = new Private(std::move(staged));
    return true;
}

IMRoomPtr IMRoom::copy() const
{
    auto other = std::make_shared<IMRoom>();
    other->copyObjectFieldsFrom(*this);
    other->d = d;
    if (const IMClientPtr mine = sender())
        other->senderRecord = mine->copy();
    return other;
}

void IMRoom::forEachOwnField(const FieldVisitor &field) const
{
    visitOptional(field, QStringLiteral("archivedBy"), d->archivedBy);
    visitOptional(field, QStringLiteral("badge"), d->badge);
    visitOptional(field, QStringLiteral("client"), d->client);
    visitOptional(field, QStringLiteral("isPublic"), d->isPublic);
    visitString(field, QStringLiteral("lastMessageTime"), d->lastMessageTime);
    visitOptional(field, QStringLiteral("message"), d->message);
    visitString(field, QStringLiteral("name"), d->name);
    visitOptional(field, QStringLiteral("readTime"), d->readTime);
    if (const IMClientPtr mine = sender())
        field.record(QStringLiteral("sender"), *mine);
    visitString(field, QStringLiteral("thumbnail"), d->thumbnail);
}
IMClientPtr IMRoom::anyOtherClient() const
{
    if (!d->client)
        return nullptr;
    const QString me = IMUserDefaults::standardUserDefaults()->clientID();
    for (const QVariant &member : *d->client) {
        if (member.typeId() != QMetaType::QVariantMap)
            continue;
        IMClientPtr client = IMClient::fromDictionary(member.toMap());
        // Compared as text: an absent id differs from a present one.
        if (client && (client->clientID() != me || client->clientID().isNull() != me.isNull()))
            return client;
    }
    return nullptr;
}

QString IMRoom::name() const { return d->name; }
void IMRoom::setName(const QString &name) { d->name = name; }
QString IMRoom::thumbnail() const { return d->thumbnail; }
void IMRoom::setThumbnail(const QString &thumbnail) { d->thumbnail = thumbnail; }
bool IMRoom::isPublic() const { return d->isPublic.value_or(false); }
void IMRoom::setIsPublic(bool isPublic) { d->isPublic = isPublic; }
bool IMRoom::hasIsPublic() const { return d->isPublic.has_value(); }
QVariantList IMRoom::client() const { return d->client.value_or(QVariantList()); }
void IMRoom::setClient(const QVariantList &client) { d->client = client; }
QVariantList IMRoom::message() const { return d->message.value_or(QVariantList()); }
void IMRoom::setMessage(const QVariantList &message) { d->message = message; }
QStringList IMRoom::archivedBy() const { return d->archivedBy.value_or(QStringList()); }
void IMRoom::setArchivedBy(const QStringList &archivedBy) { d->archivedBy = archivedBy; }
QVariantMap IMRoom::readTime() const { return d->readTime.value_or(QVariantMap()); }
void IMRoom::setReadTime(const QVariantMap &readTime) { d->readTime = readTime; }
QString IMRoom::lastMessageTime() const { return d->lastMessageTime; }
void IMRoom::setLastMessageTime(const QString &lastMessageTime) { d->lastMessageTime = lastMessageTime; }
IMClientPtr IMRoom::sender() const
{
    if (senderShared.load(std::memory_order_acquire)) {
        static std::mutex mutex; // rare and short: one lock for every room
        std::lock_guard<std::mutex> lock(mutex);
        if (senderShared.load(std::memory_order_relaxed)) {
            senderRecord = senderRecord->copy();
            senderShared.store(false, std::memory_order_release);
        }
    }
    return senderRecord;
}

void IMRoom::setSender(const IMClientPtr &sender)
{
    senderRecord = sender;
    senderShared.store(false, std::memory_order_relaxed);
}

IMRoomPtr IMRecordStorage::copyCached(const IMRoom &room)
{
    auto other = std::make_shared<IMRoom>();
    other->copyObjectFieldsFrom(room);
    other->d = room.d;
    other->senderRecord = room.senderRecord;
    other->senderShared.store(bool(room.senderRecord), std::memory_order_relaxed);
    return other;
}
qint32 IMRoom::badge() const { return d->badge.value_or(0); }
void IMRoom::setBadge(qint32 badge) { d->badge = badge; }
bool IMRoom::hasBadge() const { return d->badge.has_value(); }

#include "IMMessage.h"

#include "IMDate.h"
#include "IMJSONMapping_p.h"
#include "IMRecordStorage_p.h"

#include <QRandomGenerator>
#include <iterator>
#include <mutex>
#include <optional>

using namespace IMJSONMapping;

struct IMMessage::Private {
    QString message;
    QString messageType;
    IMRoomPtr room;
    IMClientPtr sender;
    std::optional<qint64> idFromSender;
    std::optional<quint64> sendingType;
    QVariant temp;
    IMMessageOptionPtr option;
};

struct IMMessage::Deferred {
    QByteArray room, sender, option; //!< each value's text; empty when the record had none
    IMRecordStorage::ObjectParser parse;
};

namespace {
// Sets the nested records from their dictionaries. Nested records that are not dictionaries or
// do not map are skipped, as every property here is optional.
template <typename Private>
void mergeNested(Private &staged, const std::optional<QVariantMap> &room, const std::optional<QVariantMap> &sender,
    const std::optional<QVariantMap> &option)
{
    if (room)
        if (IMRoomPtr record = IMRoom::fromDictionary(*room))
            staged.room = record;
    if (sender)
        if (IMClientPtr record = IMClient::fromDictionary(*sender))
            staged.sender = record;
    if (option)
        if (IMMessageOptionPtr record = IMMessageOption::fromDictionary(*option))
            staged.option = record;
}

qint64 randomIdFromSender() { return qint64(QRandomGenerator::global()->generate()); }

// The local day text of a timestamp, null when there is none.
QString localDay(const QString &timestamp)
{
    const QDateTime date = IMDate::toDate(timestamp);
    return date.isValid() ? date.toLocalTime().date().toString(Qt::ISODate) : QString();
}
} // namespace

IMMessage::IMMessage()
    : d(std::make_unique<Private>())
{
}
IMMessage::~IMMessage() { delete deferred.load(std::memory_order_acquire); }

void IMRecordStorage::deferNested(
    IMMessage &message, QByteArray room, QByteArray sender, QByteArray option, ObjectParser parse)
{
    message.deferred.store(new IMMessage::Deferred {std::move(room), std::move(sender), std::move(option), parse},
        std::memory_order_release);
}

void IMMessage::decodeDeferred() const
{
    if (!deferred.load(std::memory_order_acquire))
        return;
    // Decoding is rare and short: one lock for every message.
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    const std::unique_ptr<Deferred> pending(deferred.load(std::memory_order_relaxed));
    if (!pending)
        return;
    const auto nested = [parse = pending->parse](const QByteArray &text) -> std::optional<QVariantMap> {
        QVariantMap map;
        if (!text.isEmpty() && parse(text.constData(), text.size(), &map))
            return map;
        return std::nullopt;
    };
    mergeNested(*d, nested(pending->room), nested(pending->sender), nested(pending->option));
    deferred.store(nullptr, std::memory_order_release);
}

IMMessagePtr IMMessage::create()
{
    auto message = std::make_shared<IMMessage>();
    message->d->idFromSender = randomIdFromSender();
    message->d->sendingType = IMMessageSendingTypeSettled;
    message->d->messageType = kMessageTypeText;
    message->d->sender = IMClient::currentClient();
    message->d->message = QStringLiteral("");
    return message;
}

IMMessagePtr IMMessage::initWithRoom(const IMRoomPtr &room)
{
    auto message = std::make_shared<IMMessage>();
    message->d->room = room;
    message->d->idFromSender = randomIdFromSender();
    message->d->sendingType = IMMessageSendingTypeSending;
    message->d->option = std::make_shared<IMMessageOption>();
    return message;
}

IMMessagePtr IMMessage::fromDictionary(const QVariantMap &dictionary)
{
    IMMessagePtr message = create();
    return message->mergeFromDictionary(dictionary) ? message : nullptr;
}

QList<IMMessagePtr> IMMessage::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMMessagePtr>(array, &IMMessage::fromDictionary);
}

bool IMMessage::mergeOwnMember(Private &staged, const QString &key, const QVariant &value)
{
    if (isKey(key, QLatin1StringView("message")))
        return assign(value, &staged.message, toString);
    if (isKey(key, QLatin1StringView("messageType")))
        return assign(value, &staged.messageType, toString);
    if (isKey(key, QLatin1StringView("idFromSender")))
        return assign(value, &staged.idFromSender, toInt64);
    if (isKey(key, QLatin1StringView("sendingType")))
        return assign(value, &staged.sendingType, toUInt64);
    return true; // the nested records are read after the members
}

bool IMMessage::mergeOwnFields(const QVariantMap &dict)
{
    decodeDeferred(); // what the dictionary holds replaces it
    Private staged = *d;
    for (auto it = dict.cbegin(); it != dict.cend(); ++it)
        if (!mergeOwnMember(staged, it.key(), it.value()))
            return false;
    const auto nested = [&dict](const QString &key) {
        const auto it = dict.constFind(key);
        return it != dict.constEnd() && it->typeId() == QMetaType::QVariantMap ? std::optional(it->toMap())
                                                                               : std::nullopt;
    };
    mergeNested(
        staged, nested(QStringLiteral("room")), nested(QStringLiteral("sender")), nested(QStringLiteral("option")));
    *d = std::move(staged);
    return true;
}

void IMMessage::forEachOwnField(const FieldVisitor &field) const
{
    decodeDeferred();
    visitOptional(field, QStringLiteral("idFromSender"), d->idFromSender);
    visitString(field, QStringLiteral("message"), d->message);
    visitString(field, QStringLiteral("messageType"), d->messageType);
    if (d->option)
        field.map(QStringLiteral("option"), d->option->toDictionary());
    if (d->room)
        field.record(QStringLiteral("room"), *d->room);
    if (d->sender)
        field.record(QStringLiteral("sender"), *d->sender);
    visitOptional(field, QStringLiteral("sendingType"), d->sendingType);
}
QString IMMessage::message() const { return d->message; }
void IMMessage::setMessage(const QString &message) { d->message = message; }
QString IMMessage::messageType() const { return d->messageType; }
void IMMessage::setMessageType(const QString &messageType) { d->messageType = messageType; }

void IMMessage::setMessageWithType(int index)
{
    static const QString *const types[] = {&kMessageTypeText, &kMessageTypeImage, &kMessageTypeAudio,
        &kMessageTypeVideo, &kMessageTypeGeo, &kMessageTypeSticker, &kMessageTypeOther, &kMessageTypeDelete};
    if (index >= 0 && index < int(std::size(types)))
        d->messageType = *types[index];
}

IMRoomPtr IMMessage::room() const
{
    decodeDeferred();
    return d->room;
}
void IMMessage::setRoom(const IMRoomPtr &room)
{
    decodeDeferred();
    d->room = room;
}
IMClientPtr IMMessage::sender() const
{
    decodeDeferred();
    return d->sender;
}
void IMMessage::setSender(const IMClientPtr &sender)
{
    decodeDeferred();
    d->sender = sender;
}
qint64 IMMessage::idFromSender() const { return d->idFromSender.value_or(0); }
void IMMessage::setIdFromSender(qint64 idFromSender) { d->idFromSender = idFromSender; }
bool IMMessage::hasIdFromSender() const { return d->idFromSender.has_value(); }
quint64 IMMessage::sendingType() const { return d->sendingType.value_or(0); }
void IMMessage::setSendingType(quint64 sendingType) { d->sendingType = sendingType; }
bool IMMessage::hasSendingType() const { return d->sendingType.has_value(); }
QVariant IMMessage::temp() const { return d->temp; }
void IMMessage::setTemp(const QVariant &temp) { d->temp = temp; }
IMMessageOptionPtr IMMessage::option() const
{
    decodeDeferred();
    return d->option;
}
void IMMessage::setOption(const IMMessageOptionPtr &option)
{
    decodeDeferred();
    d->option = option;
}

void IMMessage::copyPropertiesFromMessage(const IMMessagePtr &other)
{
    if (!other || other.get() == this)
        return;
    decodeDeferred(); // `option` stays as it is
    other->decodeDeferred();
    setUrl(other->url());
    setClassName(other->className());
    setObjectID(other->objectID());
    setCreatedAt(other->createdAt());
    setUpdatedAt(other->updatedAt());
    copyDataFrom(*other);
    d->message = other->d->message;
    d->messageType = other->d->messageType;
    d->room = other->d->room;
    d->sender = other->d->sender;
    d->idFromSender = other->d->idFromSender;
    d->sendingType = other->d->sendingType;
}

bool IMMessage::isDifferentDateWithMessage(const IMMessagePtr &other) const
{
    const QString mine = localDay(createdAt());
    const QString theirs = other ? localDay(other->createdAt()) : QString();
    return mine.isNull() || theirs.isNull() || mine != theirs;
}

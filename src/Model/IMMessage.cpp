#include "IMMessage.h"

#include "IMDate.h"
#include "IMJSONMapping_p.h"

#include <QRandomGenerator>
#include <iterator>
#include <optional>

using namespace IMJSONMapping;

struct IMMessage::Private
{
    QString message;
    QString messageType;
    IMRoomPtr room;
    IMClientPtr sender;
    std::optional<qint64> idFromSender;
    std::optional<quint64> sendingType;
    QVariant temp;
    IMMessageOptionPtr option;
};

namespace {
qint64 randomIdFromSender() { return qint64(QRandomGenerator::global()->generate()); }

// The local day text of a timestamp, null when there is none.
QString localDay(const QString &timestamp)
{
    const QDateTime date = IMDate::toDate(timestamp);
    return date.isValid() ? date.toLocalTime().date().toString(Qt::ISODate) : QString();
}
} // namespace

IMMessage::IMMessage() : d(std::make_unique<Private>()) { }
IMMessage::~IMMessage() = default;

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

bool IMMessage::mergeOwnFields(const QVariantMap &dict)
{
    Private staged = *d;
    const bool ok = read(dict, QStringLiteral("message"), &staged.message, toString)
                    && read(dict, QStringLiteral("messageType"), &staged.messageType, toString)
                    && readOptional(dict, QStringLiteral("idFromSender"), &staged.idFromSender, toInt64)
                    && readOptional(dict, QStringLiteral("sendingType"), &staged.sendingType, toUInt64);
    if (!ok)
        return false;
    // Nested records that are not dictionaries or do not map are skipped, as every property
    // here is optional.
    const auto nested = [&dict](const QString &key) {
        const auto it = dict.constFind(key);
        return it != dict.constEnd() && it->typeId() == QMetaType::QVariantMap ? std::optional(it->toMap())
                                                                               : std::nullopt;
    };
    if (const auto room = nested(QStringLiteral("room")))
        if (IMRoomPtr record = IMRoom::fromDictionary(*room))
            staged.room = record;
    if (const auto sender = nested(QStringLiteral("sender")))
        if (IMClientPtr record = IMClient::fromDictionary(*sender))
            staged.sender = record;
    if (const auto option = nested(QStringLiteral("option")))
        if (IMMessageOptionPtr record = IMMessageOption::fromDictionary(*option))
            staged.option = record;
    *d = std::move(staged);
    return true;
}

QVariantMap IMMessage::toDictionary() const
{
    QVariantMap dict = IMObject::toDictionary();
    writeString(dict, QStringLiteral("message"), d->message);
    writeString(dict, QStringLiteral("messageType"), d->messageType);
    if (d->room)
        dict.insert(QStringLiteral("room"), d->room->toDictionary());
    if (d->sender)
        dict.insert(QStringLiteral("sender"), d->sender->toDictionary());
    writeOptional(dict, QStringLiteral("idFromSender"), d->idFromSender);
    writeOptional(dict, QStringLiteral("sendingType"), d->sendingType);
    if (d->option)
        dict.insert(QStringLiteral("option"), d->option->toDictionary());
    return dict;
}

QString IMMessage::message() const { return d->message; }
void IMMessage::setMessage(const QString &message) { d->message = message; }
QString IMMessage::messageType() const { return d->messageType; }
void IMMessage::setMessageType(const QString &messageType) { d->messageType = messageType; }

void IMMessage::setMessageWithType(int index)
{
    static const QString *const types[] = { &kMessageTypeText,  &kMessageTypeImage, &kMessageTypeAudio,
                                            &kMessageTypeVideo, &kMessageTypeGeo,   &kMessageTypeSticker,
                                            &kMessageTypeOther, &kMessageTypeDelete };
    if (index >= 0 && index < int(std::size(types)))
        d->messageType = *types[index];
}

IMRoomPtr IMMessage::room() const { return d->room; }
void IMMessage::setRoom(const IMRoomPtr &room) { d->room = room; }
IMClientPtr IMMessage::sender() const { return d->sender; }
void IMMessage::setSender(const IMClientPtr &sender) { d->sender = sender; }
qint64 IMMessage::idFromSender() const { return d->idFromSender.value_or(0); }
void IMMessage::setIdFromSender(qint64 idFromSender) { d->idFromSender = idFromSender; }
bool IMMessage::hasIdFromSender() const { return d->idFromSender.has_value(); }
quint64 IMMessage::sendingType() const { return d->sendingType.value_or(0); }
void IMMessage::setSendingType(quint64 sendingType) { d->sendingType = sendingType; }
bool IMMessage::hasSendingType() const { return d->sendingType.has_value(); }
QVariant IMMessage::temp() const { return d->temp; }
void IMMessage::setTemp(const QVariant &temp) { d->temp = temp; }
IMMessageOptionPtr IMMessage::option() const { return d->option; }
void IMMessage::setOption(const IMMessageOptionPtr &option) { d->option = option; }

void IMMessage::copyPropertiesFromMessage(const IMMessagePtr &other)
{
    if (!other || other.get() == this)
        return;
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

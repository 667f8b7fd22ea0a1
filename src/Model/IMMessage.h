#pragma once

#include "IMClient.h"
#include "IMMessageOption.h"
#include "IMObject.h"
#include "IMRoom.h"

#include <QVariant>
#include <atomic>

class IMMessage;
using IMMessagePtr = std::shared_ptr<IMMessage>;

//! Message types: the exact texts the server and other clients compare.
inline const QString kMessageTypeText = QStringLiteral("text"); //!< index 0
inline const QString kMessageTypeImage = QStringLiteral("image"); //!< index 1
inline const QString kMessageTypeAudio = QStringLiteral("audio"); //!< index 2
inline const QString kMessageTypeVideo = QStringLiteral("video"); //!< index 3
inline const QString kMessageTypeGeo = QStringLiteral("GEO"); //!< index 4; upper case on purpose
inline const QString kMessageTypeSticker = QStringLiteral("sticker"); //!< index 5
inline const QString kMessageTypeOther = QStringLiteral("other"); //!< index 6
inline const QString kMessageTypeDelete = QStringLiteral("delete"); //!< index 7

//! A message's local sending state (`IMMessage::sendingType`).
enum IMMessageSendingType : quint64 {
    IMMessageSendingTypeSettled = 0, //!< received, or sent and echoed back by the server
    IMMessageSendingTypeSending = 1, //!< on its way
    IMMessageSendingTypeFailed = 2, //!< the send or the picture upload failed
    IMMessageSendingTypeEdited = 3 //!< being edited
};

//! One chat message. Every property is optional in mapping (see IMObject); `temp` is never mapped.
class IMMessage : public IMObject {
public:
    //! A message with every property unset (the record's base initialisation).
    IMMessage();
    ~IMMessage() override;

    //! A new message: random 32-bit `idFromSender`, `sendingType` 0, `messageType` "text",
    //! `sender` the current client, `message` "".
    static IMMessagePtr create();
    //! A new message to send in `room`: random `idFromSender`, `sendingType` 1 and default
    //! `option`; `messageType`, `sender` and `message` stay unset.
    static IMMessagePtr initWithRoom(const IMRoomPtr &room);
    //! A message mapped from `dictionary` over `create()`'s defaults (the mapping initialises the
    //! record first), or null when a value's type does not fit its property.
    static IMMessagePtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped like `fromDictionary`; failures and non-dictionaries left out.
    static QList<IMMessagePtr> arrayOfModelsFromDictionaries(const QVariantList &array);

    //! The text, or for a picture the uploaded file's name ("message").
    QString message() const;
    //! Sets `message`.
    void setMessage(const QString &message);
    //! One of the kMessageType texts ("messageType").
    QString messageType() const;
    //! Sets `messageType`.
    void setMessageType(const QString &messageType);
    //! Sets `messageType` to the type at `index` (0 text ... 7 delete); other indexes change nothing.
    void setMessageWithType(int index);
    //! The room ("room"), null when unset.
    IMRoomPtr room() const;
    //! Sets `room`.
    void setRoom(const IMRoomPtr &room);
    //! The sender ("sender"), null when unset.
    IMClientPtr sender() const;
    //! Sets `sender`.
    void setSender(const IMClientPtr &sender);
    //! Identifier made by the sending device, matching the server's echo ("idFromSender"); 0 when unset.
    qint64 idFromSender() const;
    //! Sets `idFromSender`.
    void setIdFromSender(qint64 idFromSender);
    //! True when `idFromSender` is set.
    bool hasIdFromSender() const;
    //! Local sending state, an IMMessageSendingType value ("sendingType"); 0 when unset.
    quint64 sendingType() const;
    //! Sets `sendingType`.
    void setSendingType(quint64 sendingType);
    //! True when `sendingType` is set.
    bool hasSendingType() const;
    //! A local scratch value that never travels (a picture not yet uploaded, for example).
    QVariant temp() const;
    //! Sets `temp`.
    void setTemp(const QVariant &temp);
    //! Push options ("option"), null when unset.
    IMMessageOptionPtr option() const;
    //! Sets `option`.
    void setOption(const IMMessageOptionPtr &option);

    //! Copies url, className, objectID, createdAt, updatedAt, data, message, messageType, room,
    //! sender, idFromSender and sendingType from `other` (set or unset alike); `temp` and
    //! `option` stay as they are. Does nothing when `other` is null or this message.
    void copyPropertiesFromMessage(const IMMessagePtr &other);
    //! True unless both messages have a `createdAt` falling on the same local calendar day
    //! (device time zone); a missing or unreadable `createdAt` counts as different.
    bool isDifferentDateWithMessage(const IMMessagePtr &other) const;

protected:
    //! "room", "sender" and "option" nested; never "temp".
    void forEachOwnField(const FieldVisitor &field) const override;
    bool mergeOwnFields(const QVariantMap &dictionary) override;

private:
    struct Private;
    std::unique_ptr<Private> d;
    // A message read back from the store keeps its room, sender and options as text until one
    // of them is first used (any thread may be the first).
    struct Deferred;
    mutable std::atomic<Deferred *> deferred {nullptr};
    void decodeDeferred() const;
    static bool mergeOwnMember(Private &staged, const QString &key, const QVariant &value);
    friend struct IMRecordStorage;
};

Q_DECLARE_METATYPE(IMMessagePtr)

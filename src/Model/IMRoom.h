#pragma once

#include "IMClient.h"
#include "IMObject.h"

#include <QStringList>
#include <atomic>

class IMRoom;
using IMRoomPtr = std::shared_ptr<IMRoom>;

//! A chat room. Every property is optional in mapping (see IMObject).
class IMRoom : public IMObject {
public:
    //! A room with every property unset.
    IMRoom();
    ~IMRoom() override;

    //! A room mapped from `dictionary`, or null when a value's type does not fit its property.
    static IMRoomPtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped; elements that fail to map or are not dictionaries are left out.
    static QList<IMRoomPtr> arrayOfModelsFromDictionaries(const QVariantList &array);

    //! A new record with the same properties (the `sender` copied too, not shared).
    IMRoomPtr copy() const;

    //! Room title ("name").
    QString name() const;
    //! Sets `name`.
    void setName(const QString &name);
    //! The room picture ("thumbnail"): a URL when it contains "http", else an uploaded file's name.
    QString thumbnail() const;
    //! Sets `thumbnail`.
    void setThumbnail(const QString &thumbnail);
    //! Public room ("isPublic"); false when unset.
    bool isPublic() const;
    //! Sets `isPublic`.
    void setIsPublic(bool isPublic);
    //! True when `isPublic` is set.
    bool hasIsPublic() const;
    //! Members as client dictionaries ("client"); empty when unset.
    QVariantList client() const;
    //! Sets `client`.
    void setClient(const QVariantList &client);
    //! Message dictionaries ("message"); index 0 is the room's latest message. Empty when unset.
    QVariantList message() const;
    //! Sets `message`.
    void setMessage(const QVariantList &message);
    //! Client identifiers of the members who archived the room ("archivedBy"); empty when unset.
    QStringList archivedBy() const;
    //! Sets `archivedBy`.
    void setArchivedBy(const QStringList &archivedBy);
    //! Client identifier to that member's last read time as timestamp text ("readTime").
    QVariantMap readTime() const;
    //! Sets `readTime`.
    void setReadTime(const QVariantMap &readTime);
    //! Time of the latest message as timestamp text ("lastMessageTime"); orders the room list.
    QString lastMessageTime() const;
    //! Sets `lastMessageTime`.
    void setLastMessageTime(const QString &lastMessageTime);
    //! Sender of the latest message ("sender"), null when unset.
    IMClientPtr sender() const;
    //! Sets `sender`.
    void setSender(const IMClientPtr &sender);
    //! Unread count of this room for the signed-in client ("badge"); 0 when unset.
    qint32 badge() const;
    //! Sets `badge`.
    void setBadge(qint32 badge);
    //! True when `badge` is set.
    bool hasBadge() const;

    //! The first member (in `client` order) whose `clientID` differs from the persisted
    //! `clientID` setting, built as a new record; null when there is none. Not mapped.
    IMClientPtr anyOtherClient() const;

protected:
    void forEachOwnField(const FieldVisitor &field) const override;
    bool mergeOwnFields(const QVariantMap &dictionary) override;

private:
    struct Private;
    // Shared between copies until one of them changes (`copy` costs a reference count).
    QSharedDataPointer<Private> d;
    // A record of its own in every copy, so kept beside `d`. A copy of the store's cached room
    // shares the cache's (which no one changes) until it is first used (from any thread).
    mutable IMClientPtr senderRecord;
    mutable std::atomic<bool> senderShared {false};
    friend struct IMRecordStorage;
};

Q_DECLARE_METATYPE(IMRoomPtr)

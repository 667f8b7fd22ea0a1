#pragma once

#include "IMObject.h"

#include <QStringList>

class IMClient;
using IMClientPtr = std::shared_ptr<IMClient>;

//! A user of the chat service. Every property is optional in mapping (see IMObject).
class IMClient : public IMObject {
public:
    //! A client with every property unset.
    IMClient();
    ~IMClient() override;

    //! A client mapped from `dictionary`, or null when a value's type does not fit its property.
    static IMClientPtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped; elements that fail to map or are not dictionaries are left out.
    static QList<IMClientPtr> arrayOfModelsFromDictionaries(const QVariantList &array);
    //! A new client built from the persisted `currentUser` each call; every property unset when
    //! nothing (or nothing mappable) is persisted. Never null.
    static IMClientPtr currentClient();

    //! A new record with the same properties.
    IMClientPtr copy() const;

    //! The application-level identity, sent in every request header ("clientID").
    QString clientID() const;
    //! Sets `clientID`.
    void setClientID(const QString &clientID);
    //! The session token ("token").
    QString token() const;
    //! Sets `token`.
    void setToken(const QString &token);
    //! E-mail address ("email").
    QString email() const;
    //! Sets `email`.
    void setEmail(const QString &email);
    //! Password as the server returns it ("password").
    QString password() const;
    //! Sets `password`.
    void setPassword(const QString &password);
    //! Verification flag as text ("emailVerified"); a JSON boolean maps to "1" or "0".
    QString emailVerified() const;
    //! Sets `emailVerified`.
    void setEmailVerified(const QString &emailVerified);
    //! Picture URL ("photo").
    QString photo() const;
    //! Sets `photo`.
    void setPhoto(const QString &photo);
    //! Identifiers of the client's rooms ("roomIDs"); empty when unset.
    QStringList roomIDs() const;
    //! Sets `roomIDs`.
    void setRoomIDs(const QStringList &roomIDs);
    //! Display name ("username").
    QString username() const;
    //! Sets `username`.
    void setUsername(const QString &username);
    //! Time of the last chat-in as timestamp text ("chatinAt").
    QString chatinAt() const;
    //! Sets `chatinAt`.
    void setChatinAt(const QString &chatinAt);
    //! The client's rooms as dictionaries, as chat-in returns them ("room"); empty when unset.
    QVariantList room() const;
    //! Sets `room`.
    void setRoom(const QVariantList &room);
    //! Total unread count ("totalBadge"); 0 when unset.
    quint64 totalBadge() const;
    //! Sets `totalBadge`.
    void setTotalBadge(quint64 totalBadge);
    //! True when `totalBadge` is set.
    bool hasTotalBadge() const;

protected:
    void forEachOwnField(const FieldVisitor &field) const override;
    bool mergeOwnFields(const QVariantMap &dictionary) override;

private:
    struct Private;
    // Shared between copies until one of them changes (`copy` costs a reference count).
    QSharedDataPointer<Private> d;
};

Q_DECLARE_METATYPE(IMClientPtr)

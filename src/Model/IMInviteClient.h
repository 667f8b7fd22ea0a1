#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <memory>

class IMInviteClient;
using IMInviteClientPtr = std::shared_ptr<IMInviteClient>;

//! A candidate for invitation. All three keys are required in JSON.
class IMInviteClient {
public:
    //! A candidate with every text null.
    IMInviteClient();
    ~IMInviteClient();
    IMInviteClient(const IMInviteClient &) = delete;
    IMInviteClient &operator=(const IMInviteClient &) = delete;

    //! A candidate mapped from `dictionary`, or null when a key is missing, null or not text.
    static IMInviteClientPtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped; elements that fail to map or are not dictionaries are left out.
    static QList<IMInviteClientPtr> arrayOfModelsFromDictionaries(const QVariantList &array);
    //! The three keys; a null text is written as JSON null.
    QVariantMap toDictionary() const;

    //! Display name ("name").
    QString name() const;
    //! Sets `name`.
    void setName(const QString &name);
    //! Picture URL ("pictureURLString").
    QString pictureURLString() const;
    //! Sets `pictureURLString`.
    void setPictureURLString(const QString &pictureURLString);
    //! The candidate's client identity ("clientID").
    QString clientID() const;
    //! Sets `clientID`.
    void setClientID(const QString &clientID);

private:
    QString m_name;
    QString m_pictureURLString;
    QString m_clientID;
};

Q_DECLARE_METATYPE(IMInviteClientPtr)

#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <memory>

class IMMessageOption;
using IMMessageOptionPtr = std::shared_ptr<IMMessageOption>;

//! Push options of a message. "needToPush" and "badgeIncrease" are required in JSON: a
//! dictionary without either fails to map; "pushMessage" and "pushSound" may be missing.
class IMMessageOption {
public:
    //! Options with `needToPush` true, `badgeIncrease` false and no push texts.
    IMMessageOption();
    ~IMMessageOption();
    IMMessageOption(const IMMessageOption &) = delete;
    IMMessageOption &operator=(const IMMessageOption &) = delete;

    //! Options mapped from `dictionary`, or null when a required key is missing or a type does not fit.
    static IMMessageOptionPtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped; elements that fail to map or are not dictionaries are left out.
    static QList<IMMessageOptionPtr> arrayOfModelsFromDictionaries(const QVariantList &array);
    //! The options as a JSON dictionary; unset push texts left out.
    QVariantMap toDictionary() const;

    //! The push notification's text ("pushMessage"); null when unset.
    QString pushMessage() const;
    //! Sets `pushMessage`.
    void setPushMessage(const QString &pushMessage);
    //! Whether receivers get a push ("needToPush").
    bool needToPush() const;
    //! Sets `needToPush`.
    void setNeedToPush(bool needToPush);
    //! Whether the message raises receivers' unread counts ("badgeIncrease").
    bool badgeIncrease() const;
    //! Sets `badgeIncrease`.
    void setBadgeIncrease(bool badgeIncrease);
    //! The push notification's sound name ("pushSound"); null when unset.
    QString pushSound() const;
    //! Sets `pushSound`.
    void setPushSound(const QString &pushSound);

private:
    QString m_pushMessage;
    bool m_needToPush = true;
    bool m_badgeIncrease = false;
    QString m_pushSound;
};

Q_DECLARE_METATYPE(IMMessageOptionPtr)

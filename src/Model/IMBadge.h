#pragma once

#include <QMetaType>
#include <QVariantList>
#include <QVariantMap>
#include <memory>

class IMBadge;
using IMBadgePtr = std::shared_ptr<IMBadge>;

//! The signed-in client's total unread count. "total" is required in JSON.
class IMBadge {
public:
    //! A badge with `total` 0.
    IMBadge();
    ~IMBadge();
    IMBadge(const IMBadge &) = delete;
    IMBadge &operator=(const IMBadge &) = delete;

    //! A badge mapped from `dictionary`, or null when "total" is missing or not a 32-bit integer.
    static IMBadgePtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped; elements that fail to map or are not dictionaries are left out.
    static QList<IMBadgePtr> arrayOfModelsFromDictionaries(const QVariantList &array);
    //! {"total": total}.
    QVariantMap toDictionary() const;

    //! Total unread count ("total").
    qint32 total() const;
    //! Sets `total`.
    void setTotal(qint32 total);

private:
    qint32 m_total = 0;
};

Q_DECLARE_METATYPE(IMBadgePtr)

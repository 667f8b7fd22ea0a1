#pragma once

#include "IMError.h"

#include <QList>
#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <functional>
#include <memory>

class IMObject;
using IMObjectPtr = std::shared_ptr<IMObject>;

//! The base of the server's objects (clients, rooms, messages, files): identity, timestamps and
//! the JSON mapping. The JSON key "id" maps to `objectID`; every other key is the property's own
//! name. Every property is optional: a missing key or JSON null leaves it unset; unknown keys are
//! dropped; a value whose type cannot become the property's makes the record fail to map.
//! Records are shared by pointer and compared by identity; they are not thread-safe.
class IMObject {
public:
    //! A record with every property unset.
    IMObject();
    virtual ~IMObject();
    IMObject(const IMObject &) = delete;
    IMObject &operator=(const IMObject &) = delete;

    //! A record mapped from `dictionary`, or null when a value's type does not fit its property.
    static IMObjectPtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped; elements that fail to map or are not dictionaries are left out.
    static QList<IMObjectPtr> arrayOfModelsFromDictionaries(const QVariantList &array);

    //! Sets the properties whose keys `dictionary` holds; all or nothing: false (and no change) on a mismatch.
    bool mergeFromDictionary(const QVariantMap &dictionary);
    //! The record as a JSON dictionary: "id" for `objectID`, unset properties left out.
    virtual QVariantMap toDictionary() const;

    //! The server location of the object ("url").
    QString url() const;
    //! Sets `url`.
    void setUrl(const QString &url);
    //! The server's class name ("className").
    QString className() const;
    //! Sets `className`.
    void setClassName(const QString &className);
    //! The server's identifier (JSON "id").
    QString objectID() const;
    //! Sets `objectID`.
    void setObjectID(const QString &objectID);
    //! Creation time as "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'" text (see IMDate).
    QString createdAt() const;
    //! Sets `createdAt`.
    void setCreatedAt(const QString &createdAt);
    //! Last change, same form as `createdAt`.
    QString updatedAt() const;
    //! Sets `updatedAt`.
    void setUpdatedAt(const QString &updatedAt);
    //! Free-form extra data ("data"); empty when unset.
    QVariantMap data() const;
    //! Sets `data` (an empty dictionary is set, and written as {}).
    void setData(const QVariantMap &data);
    //! True when `data` is set.
    bool hasData() const;

    //! Calls `saveInBackGround(completion)` with a completion that does nothing.
    void saveInBackGround();
    //! An empty hook kept for subclasses: does nothing and never calls `completion`.
    virtual void saveInBackGround(const std::function<void(bool, const IMError &)> &completion);

protected:
    //! Receives a record's set properties, each with its JSON key, by the property's type (so
    //! that the text writer needs no QVariant). A value need last only as long as the call.
    class FieldVisitor {
    public:
        //! A text property.
        virtual void text(const QString &key, const QString &value) const = 0;
        //! A signed integer property.
        virtual void integer(const QString &key, qint64 value) const = 0;
        //! An unsigned integer property.
        virtual void unsignedInteger(const QString &key, quint64 value) const = 0;
        //! A boolean property.
        virtual void boolean(const QString &key, bool value) const = 0;
        //! A list of JSON values.
        virtual void list(const QString &key, const QVariantList &value) const = 0;
        //! A list of texts.
        virtual void stringList(const QString &key, const QStringList &value) const = 0;
        //! A dictionary of JSON values.
        virtual void map(const QString &key, const QVariantMap &value) const = 0;
        //! A nested record, written as its dictionary.
        virtual void record(const QString &key, const IMObject &value) const = 0;

    protected:
        ~FieldVisitor() = default;
    };
    //! Calls `field` for each set property this class adds to its base, in key order:
    //! `toDictionary` and the store's text are made from these.
    virtual void forEachOwnField(const FieldVisitor &field) const;
    //! Reads the subclass's own properties from `dictionary`, all or nothing; false on a mismatch.
    virtual bool mergeOwnFields(const QVariantMap &dictionary);
    //! Copies `data` from `other`, set or unset alike.
    void copyDataFrom(const IMObject &other);
    //! Copies every property of this base from `other`, set or unset alike.
    void copyObjectFieldsFrom(const IMObject &other);
    //! For a record being built member by member: sets the base's property that `key` names
    //! (other keys are left alone); false on a mismatch.
    bool mergeBaseMember(const QString &key, const QVariant &value);

private:
    struct Private;
    static bool mergeMember(Private &staged, const QString &key, const QVariant &value);
    void forEachBaseField(const FieldVisitor &field) const;
    friend struct IMRecordStorage;
    // Shared between copies until one of them changes (`copy` costs a reference count).
    QSharedDataPointer<Private> d;
};

Q_DECLARE_METATYPE(IMObjectPtr)

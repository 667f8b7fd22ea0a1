#include "IMObject.h"

#include "IMJSONMapping_p.h"

#include <optional>

using namespace IMJSONMapping;

struct IMObject::Private : QSharedData {
    QString url;
    QString className;
    QString objectID;
    QString createdAt;
    QString updatedAt;
    std::optional<QVariantMap> data;
};

IMObject::IMObject()
    : d(sharedEmpty<Private>())
{
}
IMObject::~IMObject() = default;

IMObjectPtr IMObject::fromDictionary(const QVariantMap &dictionary)
{
    auto object = std::make_shared<IMObject>();
    return object->mergeFromDictionary(dictionary) ? object : nullptr;
}

QList<IMObjectPtr> IMObject::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMObjectPtr>(array, &IMObject::fromDictionary);
}

bool IMObject::mergeMember(Private &staged, const QString &key, const QVariant &value)
{
    if (isKey(key, QLatin1StringView("id")))
        return assign(value, &staged.objectID, toString);
    if (isKey(key, QLatin1StringView("createdAt")))
        return assign(value, &staged.createdAt, toString);
    if (isKey(key, QLatin1StringView("updatedAt")))
        return assign(value, &staged.updatedAt, toString);
    if (isKey(key, QLatin1StringView("url")))
        return assign(value, &staged.url, toString);
    if (isKey(key, QLatin1StringView("className")))
        return assign(value, &staged.className, toString);
    if (isKey(key, QLatin1StringView("data")))
        return assign(value, &staged.data, toMap);
    return true;
}

bool IMObject::mergeBaseMember(const QString &key, const QVariant &value) { return mergeMember(*d, key, value); }

bool IMObject::mergeFromDictionary(const QVariantMap &dictionary)
{
    // Member by member: a dictionary holds a few of the properties, so this beats looking each up.
    Private staged = *std::as_const(d);
    for (auto it = dictionary.cbegin(); it != dictionary.cend(); ++it)
        if (!mergeMember(staged, it.key(), it.value()))
            return false;
    // The subclass commits its own part only when it maps; ours follows.
    if (!mergeOwnFields(dictionary))
        return false;
    d = new Private(std::move(staged));
    return true;
}

bool IMObject::mergeOwnFields(const QVariantMap &) { return true; }

void IMObject::forEachBaseField(const FieldVisitor &field) const
{
    visitString(field, QStringLiteral("className"), d->className);
    visitString(field, QStringLiteral("createdAt"), d->createdAt);
    visitOptional(field, QStringLiteral("data"), d->data);
    visitString(field, QStringLiteral("id"), d->objectID);
    visitString(field, QStringLiteral("updatedAt"), d->updatedAt);
    visitString(field, QStringLiteral("url"), d->url);
}

void IMObject::forEachOwnField(const FieldVisitor &) const {}

QVariantMap IMObject::toDictionary() const
{
    // Nested records as their dictionaries.
    struct Builder final : FieldVisitor {
        QVariantMap *dict;
        void text(const QString &key, const QString &value) const override { dict->insert(key, value); }
        void integer(const QString &key, qint64 value) const override { dict->insert(key, value); }
        void unsignedInteger(const QString &key, quint64 value) const override { dict->insert(key, value); }
        void boolean(const QString &key, bool value) const override { dict->insert(key, value); }
        void list(const QString &key, const QVariantList &value) const override { dict->insert(key, value); }
        void stringList(const QString &key, const QStringList &value) const override { dict->insert(key, value); }
        void map(const QString &key, const QVariantMap &value) const override { dict->insert(key, value); }
        void record(const QString &key, const IMObject &value) const override
        {
            dict->insert(key, value.toDictionary());
        }
    };
    QVariantMap dict;
    Builder builder;
    builder.dict = &dict;
    forEachBaseField(builder);
    forEachOwnField(builder);
    return dict;
}

QString IMObject::url() const { return d->url; }
void IMObject::setUrl(const QString &url) { d->url = url; }
QString IMObject::className() const { return d->className; }
void IMObject::setClassName(const QString &className) { d->className = className; }
QString IMObject::objectID() const { return d->objectID; }
void IMObject::setObjectID(const QString &objectID) { d->objectID = objectID; }
QString IMObject::createdAt() const { return d->createdAt; }
void IMObject::setCreatedAt(const QString &createdAt) { d->createdAt = createdAt; }
QString IMObject::updatedAt() const { return d->updatedAt; }
void IMObject::setUpdatedAt(const QString &updatedAt) { d->updatedAt = updatedAt; }
QVariantMap IMObject::data() const { return d->data.value_or(QVariantMap()); }
void IMObject::setData(const QVariantMap &data) { d->data = data; }
bool IMObject::hasData() const { return d->data.has_value(); }
void IMObject::copyDataFrom(const IMObject &other) { d->data = other.d->data; }
void IMObject::copyObjectFieldsFrom(const IMObject &other) { d = other.d; }

void IMObject::saveInBackGround()
{
    saveInBackGround([](bool, const IMError &) {});
}

void IMObject::saveInBackGround(const std::function<void(bool, const IMError &)> &) {}

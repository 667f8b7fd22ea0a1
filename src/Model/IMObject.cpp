#include "IMObject.h"

#include "IMJSONMapping_p.h"
#include "IMJSONText_p.h"
#include "IMStoredText_p.h"

#include <QVarLengthArray>
#include <algorithm>
#include <iterator>

#include <optional>

using namespace IMJSONMapping;

struct IMObject::Private : QSharedData
{
    QString url;
    QString className;
    QString objectID;
    QString createdAt;
    QString updatedAt;
    std::optional<QVariantMap> data;
};

IMObject::IMObject() : d(sharedEmpty<Private>()) { }
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

void IMObject::forEachOwnField(const FieldVisitor &) const { }

QVariantMap IMObject::toDictionary() const
{
    QVariantMap dict;
    const auto insert = [&dict](const QString &key, const QVariant &value) { dict.insert(key, value); };
    forEachBaseField(insert);
    forEachOwnField(insert);
    return dict;
}

QByteArray IMStoredText::write(const IMObject &record)
{
    // The base's properties and the class's own, each in key order, merged as a dictionary orders them.
    using Member = IMJSONText::Member;
    QVarLengthArray<Member, 8> base;
    QVarLengthArray<Member, 16> own;
    record.forEachBaseField([&base](const QString &key, const QVariant &value) { base.append({ key, value }); });
    record.forEachOwnField([&own](const QString &key, const QVariant &value) { own.append({ key, value }); });
    QVarLengthArray<Member, 24> members;
    std::merge(base.cbegin(), base.cend(), own.cbegin(), own.cend(), std::back_inserter(members),
               [](const Member &a, const Member &b) { return a.first < b.first; });
    return IMJSONText::toJson(members.constData(), members.size());
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

void IMObject::saveInBackGround(const std::function<void(bool, const IMError &)> &) { }

#include "IMObject.h"

#include "IMJSONMapping_p.h"

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

bool IMObject::mergeFromDictionary(const QVariantMap &dictionary)
{
    Private staged = *std::as_const(d);
    const bool ok = read(dictionary, QStringLiteral("url"), &staged.url, toString)
                    && read(dictionary, QStringLiteral("className"), &staged.className, toString)
                    && read(dictionary, QStringLiteral("id"), &staged.objectID, toString)
                    && read(dictionary, QStringLiteral("createdAt"), &staged.createdAt, toString)
                    && read(dictionary, QStringLiteral("updatedAt"), &staged.updatedAt, toString)
                    && readOptional(dictionary, QStringLiteral("data"), &staged.data, toMap);
    // The subclass commits its own part only when it maps; ours follows.
    if (!ok || !mergeOwnFields(dictionary))
        return false;
    d = new Private(std::move(staged));
    return true;
}

bool IMObject::mergeOwnFields(const QVariantMap &) { return true; }

QVariantMap IMObject::toDictionary() const
{
    QVariantMap dict;
    writeString(dict, QStringLiteral("url"), d->url);
    writeString(dict, QStringLiteral("className"), d->className);
    writeString(dict, QStringLiteral("id"), d->objectID);
    writeString(dict, QStringLiteral("createdAt"), d->createdAt);
    writeString(dict, QStringLiteral("updatedAt"), d->updatedAt);
    writeOptional(dict, QStringLiteral("data"), d->data);
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

void IMObject::saveInBackGround(const std::function<void(bool, const IMError &)> &) { }

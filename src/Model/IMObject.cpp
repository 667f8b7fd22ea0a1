#include "IMObject.h"

#include "IMJSONMapping_p.h"
#include "IMJSONText_p.h"
#include "IMStoredText_p.h"

#include <QVarLengthArray>

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
    // Nested records as their dictionaries.
    struct Builder final : FieldVisitor
    {
        QVariantMap *dict;
        void text(const QString &key, const QString &value) const override { dict->insert(key, value); }
        void integer(const QString &key, qint64 value) const override { dict->insert(key, value); }
        void unsignedInteger(const QString &key, quint64 value) const override { dict->insert(key, value); }
        void boolean(const QString &key, bool value) const override { dict->insert(key, value); }
        void list(const QString &key, const QVariantList &value) const override { dict->insert(key, value); }
        void stringList(const QString &key, const QStringList &value) const override { dict->insert(key, value); }
        void map(const QString &key, const QVariantMap &value) const override { dict->insert(key, value); }
        void record(const QString &key, const IMObject &value) const override { dict->insert(key, value.toDictionary()); }
    };
    QVariantMap dict;
    Builder builder;
    builder.dict = &dict;
    forEachBaseField(builder);
    forEachOwnField(builder);
    return dict;
}

// Writes a record straight as JSON text, the text its dictionary would give: members in key
// order, the base's properties among the class's own where their keys fall (collected first, as
// the base's are few and the class's many: they are the base's own members, so pointers to them
// hold while the record is written), nested records written the same way.
struct IMStoredText::Writer final : IMObject::FieldVisitor
{
    explicit Writer(IMJSONText::Writer &out) : out(out) { }

    void write(const IMObject &record)
    {
        struct Base final : FieldVisitor
        {
            Writer *writer;
            void text(const QString &key, const QString &value) const override { writer->pend(key, Pending::Text).text = &value; }
            void integer(const QString &key, qint64 value) const override { writer->pend(key, Pending::Integer).integer = value; }
            void unsignedInteger(const QString &key, quint64 value) const override { writer->pend(key, Pending::UnsignedInteger).unsignedInteger = value; }
            void boolean(const QString &key, bool value) const override { writer->pend(key, Pending::Boolean).boolean = value; }
            void list(const QString &key, const QVariantList &value) const override { writer->pend(key, Pending::List).list = &value; }
            void stringList(const QString &key, const QStringList &value) const override { writer->pend(key, Pending::Strings).strings = &value; }
            void map(const QString &key, const QVariantMap &value) const override { writer->pend(key, Pending::Map).map = &value; }
            void record(const QString &key, const IMObject &value) const override { writer->pend(key, Pending::Record).record = &value; }
        };
        Base base;
        base.writer = this;
        record.forEachBaseField(base);
        out.append('{');
        record.forEachOwnField(*this);
        while (next < pending.size())
            writePending(pending.at(next++));
        out.append('}');
    }

    // Each property: its key in its place, then its value.
    void text(const QString &key, const QString &value) const override { member(key); out.string(value); }
    void integer(const QString &key, qint64 value) const override { member(key); out.integer(value); }
    void unsignedInteger(const QString &key, quint64 value) const override { member(key); out.unsignedInteger(value); }
    void boolean(const QString &key, bool value) const override { member(key); out.boolean(value); }
    void list(const QString &key, const QVariantList &value) const override { member(key); out.list(value, 1); }
    void stringList(const QString &key, const QStringList &value) const override { member(key); out.stringList(value); }
    void map(const QString &key, const QVariantMap &value) const override { member(key); out.map(value, 1); }
    void record(const QString &key, const IMObject &value) const override { member(key); Writer(out).write(value); }

private:
    // A base property waiting for its place, by its kind.
    struct Pending
    {
        enum Kind { Text, Integer, UnsignedInteger, Boolean, List, Strings, Map, Record };
        QString key;
        Kind kind;
        union {
            const QString *text;
            qint64 integer;
            quint64 unsignedInteger;
            bool boolean;
            const QVariantList *list;
            const QStringList *strings;
            const QVariantMap *map;
            const IMObject *record;
        };
    };
    Pending &pend(const QString &key, Pending::Kind kind)
    {
        pending.append(Pending{ key, kind, {} });
        return pending.last();
    }
    void writePending(const Pending &p) const
    {
        switch (p.kind) {
        case Pending::Text: return text(p.key, *p.text);
        case Pending::Integer: return integer(p.key, p.integer);
        case Pending::UnsignedInteger: return unsignedInteger(p.key, p.unsignedInteger);
        case Pending::Boolean: return boolean(p.key, p.boolean);
        case Pending::List: return list(p.key, *p.list);
        case Pending::Strings: return stringList(p.key, *p.strings);
        case Pending::Map: return map(p.key, *p.map);
        case Pending::Record: return record(p.key, *p.record);
        }
    }

    // The next member is `key`: the base's properties before it go first, then its key.
    void member(const QString &key) const
    {
        while (next < pending.size() && pending.at(next).key < key)
            writePending(pending.at(next++));
        if (!first)
            out.append(',');
        first = false;
        out.key(key);
    }

    IMJSONText::Writer &out;
    QVarLengthArray<Pending, 8> pending;
    mutable qsizetype next = 0;
    mutable bool first = true;
};

// Walks what writing `record` reads, asking for each text's characters ahead of need: a batch's
// records lie scattered over the heap, and a walk that only follows pointers keeps many of
// their cache misses in flight at once, where the writer meets them one by one.
struct IMStoredText::Prefetcher final : IMObject::FieldVisitor
{
    static void ask(const QString &text) { __builtin_prefetch(text.constData()); }
    // Values nested deeper than records' are left to the writer (nor can they overflow the stack).
    static constexpr int kDeepest = 4;
    static void value(const QVariant &value, int depth)
    {
        if (depth > kDeepest)
            return;
        switch (value.typeId()) {
        case QMetaType::QString:
            return ask(*static_cast<const QString *>(value.constData()));
        case QMetaType::QVariantMap:
            return members(*static_cast<const QVariantMap *>(value.constData()), depth);
        case QMetaType::QVariantList:
            return items(*static_cast<const QVariantList *>(value.constData()), depth);
        default:
            return;
        }
    }
    static void members(const QVariantMap &map, int depth)
    {
        for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
            ask(it.key());
            value(it.value(), depth + 1);
        }
    }
    static void items(const QVariantList &list, int depth)
    {
        for (const QVariant &item : list)
            value(item, depth + 1);
    }
    void text(const QString &, const QString &value) const override { ask(value); }
    void integer(const QString &, qint64) const override { }
    void unsignedInteger(const QString &, quint64) const override { }
    void boolean(const QString &, bool) const override { }
    void list(const QString &, const QVariantList &value) const override
    {
        if (shallow)
            __builtin_prefetch(value.constData());
        else
            items(value, 0);
    }
    void stringList(const QString &, const QStringList &value) const override
    {
        if (shallow)
            __builtin_prefetch(value.constData());
        else
            for (const QString &text : value)
                ask(text);
    }
    void map(const QString &, const QVariantMap &value) const override
    {
        if (!shallow)
            members(value, 0);
    }
    void record(const QString &, const IMObject &value) const override { walk(value); }
    void walk(const IMObject &record) const
    {
        record.forEachBaseField(*this);
        record.forEachOwnField(*this);
    }
    bool shallow = false;
};

void IMStoredText::prefetch(const IMObject &record, bool shallow)
{
    Prefetcher walker;
    walker.shallow = shallow;
    walker.walk(record);
}

QByteArray IMStoredText::write(const IMObject &record)
{
    QByteArray text;
    write(record, &text);
    return text;
}

void IMStoredText::write(const IMObject &record, QByteArray *text)
{
    IMJSONText::Writer out(text);
    Writer(out).write(record);
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

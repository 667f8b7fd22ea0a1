#include "IMStoredText_p.h"

#include "IMJSONText_p.h"
#include "IMRecordStorage_p.h"

#include <QVarLengthArray>
#include <cstring>
#include <iterator>

namespace {
// A message's nested records' keys, in the order of the spans `readMessage` keeps.
const QLatin1StringView kNestedKeys[]
    = {QLatin1StringView("room"), QLatin1StringView("sender"), QLatin1StringView("option")};
} // namespace

// Writes a record straight as JSON text, the text its dictionary would give: members in key
// order, the base's properties among the class's own where their keys fall (collected first, as
// the base's are few and the class's many: they are the base's own members, so pointers to them
// hold while the record is written), nested records written the same way.
struct IMStoredText::Writer final : IMRecordStorage::FieldVisitor {
    explicit Writer(IMJSONText::Writer &out)
        : out(out)
    {
    }

    void write(const IMObject &record)
    {
        struct Base final : IMRecordStorage::FieldVisitor {
            Writer *writer;
            void text(const QString &key, const QString &value) const override
            {
                writer->pend(key, Pending::Text).text = &value;
            }
            void integer(const QString &key, qint64 value) const override
            {
                writer->pend(key, Pending::Integer).integer = value;
            }
            void unsignedInteger(const QString &key, quint64 value) const override
            {
                writer->pend(key, Pending::UnsignedInteger).unsignedInteger = value;
            }
            void boolean(const QString &key, bool value) const override
            {
                writer->pend(key, Pending::Boolean).boolean = value;
            }
            void list(const QString &key, const QVariantList &value) const override
            {
                writer->pend(key, Pending::List).list = &value;
            }
            void stringList(const QString &key, const QStringList &value) const override
            {
                writer->pend(key, Pending::Strings).strings = &value;
            }
            void map(const QString &key, const QVariantMap &value) const override
            {
                writer->pend(key, Pending::Map).map = &value;
            }
            void record(const QString &key, const IMObject &value) const override
            {
                writer->pend(key, Pending::Record).record = &value;
            }
        };
        Base base;
        base.writer = this;
        IMRecordStorage::forEachBaseField(record, base);
        out.append('{');
        IMRecordStorage::forEachOwnField(record, *this);
        while (next < pending.size())
            writePending(pending.at(next++));
        out.append('}');
    }

    // Each property: its key in its place, then its value.
    void text(const QString &key, const QString &value) const override
    {
        member(key);
        out.string(value);
    }
    void integer(const QString &key, qint64 value) const override
    {
        member(key);
        out.integer(value);
    }
    void unsignedInteger(const QString &key, quint64 value) const override
    {
        member(key);
        out.unsignedInteger(value);
    }
    void boolean(const QString &key, bool value) const override
    {
        member(key);
        out.boolean(value);
    }
    void list(const QString &key, const QVariantList &value) const override
    {
        member(key);
        out.list(value, 1);
    }
    void stringList(const QString &key, const QStringList &value) const override
    {
        member(key);
        out.stringList(value);
    }
    void map(const QString &key, const QVariantMap &value) const override
    {
        member(key);
        out.map(value, 1);
    }
    void record(const QString &key, const IMObject &value) const override
    {
        member(key);
        Writer(out).write(value);
    }

private:
    // A base property waiting for its place, by its kind.
    struct Pending {
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
        pending.append(Pending {key, kind, {}});
        return pending.last();
    }
    void writePending(const Pending &p) const
    {
        switch (p.kind) {
        case Pending::Text:
            return text(p.key, *p.text);
        case Pending::Integer:
            return integer(p.key, p.integer);
        case Pending::UnsignedInteger:
            return unsignedInteger(p.key, p.unsignedInteger);
        case Pending::Boolean:
            return boolean(p.key, p.boolean);
        case Pending::List:
            return list(p.key, *p.list);
        case Pending::Strings:
            return stringList(p.key, *p.strings);
        case Pending::Map:
            return map(p.key, *p.map);
        case Pending::Record:
            return record(p.key, *p.record);
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
struct IMStoredText::Prefetcher final : IMRecordStorage::FieldVisitor {
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
    void integer(const QString &, qint64) const override {}
    void unsignedInteger(const QString &, quint64) const override {}
    void boolean(const QString &, bool) const override {}
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
        IMRecordStorage::forEachBaseField(record, *this);
        IMRecordStorage::forEachOwnField(record, *this);
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

IMMessagePtr IMStoredText::readMessage(const char *text, qsizetype size, ReadContext *context)
{
    // Straight from the text into the new record, member by member (a stored record names each
    // key once); a mismatch drops the record, so nothing needs staging.
    auto message = std::make_shared<IMMessage>();
    IMJSONText::Span spans[std::size(kNestedKeys)];
    const bool ok = IMJSONText::parseMembers(text, size, kNestedKeys, int(std::size(kNestedKeys)), spans,
        [&message](const QString &key, const QVariant &value) {
            return IMRecordStorage::mergeMessageMember(*message, key, value);
        });
    if (!ok)
        return nullptr;
    if (!spans[0].size && !spans[1].size && !spans[2].size)
        return message;
    // A page's messages mostly carry the same room and sender: their texts are kept once.
    const auto keep = [text](const IMJSONText::Span &span, QByteArray *last) {
        const char *value = text + span.offset;
        if (!span.size)
            return QByteArray();
        if (!last)
            return QByteArray(value, span.size);
        if (last->size() != span.size || std::memcmp(last->constData(), value, size_t(span.size)) != 0)
            *last = QByteArray(value, span.size);
        return *last;
    };
    IMRecordStorage::deferNested(*message, keep(spans[0], context ? &context->room : nullptr),
        keep(spans[1], context ? &context->sender : nullptr), keep(spans[2], nullptr), &IMJSONText::parseObject);
    return message;
}

IMRoomPtr IMStoredText::copyCached(const IMRoom &room) { return IMRecordStorage::copyCached(room); }

#include "IMJSONText_p.h"

#include <QLocale>
#include <QStringList>
#include <QVariantHash>
#include <QVariantList>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace IMJSONText {

namespace {
// Appends through a cursor: the array grows geometrically, and is cut to its length at the end,
// so that the many small appends of a record cost no checks beyond one comparison.
class Sink
{
public:
    explicit Sink(QByteArray *target) : target(target), used(target->size()) { }
    ~Sink() { target->resize(used); }
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    //! Room for `n` more bytes; write them at the pointer returned, then call `advance`.
    char *reserve(qsizetype n)
    {
        if (used + n > capacity) {
            target->resize(std::max(used + n, 2 * capacity + 256));
            buffer = target->data();
            capacity = target->size();
        }
        return buffer + used;
    }
    void advance(const char *to) { used = to - buffer; }
    void append(char c) { *reserve(1) = c, ++used; }
    void append(const char *data, qsizetype n)
    {
        std::memcpy(reserve(n), data, size_t(n));
        used += n;
    }
    void append(const char *text) { append(text, qsizetype(std::strlen(text))); }
    void append(const QByteArray &bytes) { append(bytes.constData(), bytes.size()); }

private:
    QByteArray *target;
    char *buffer = nullptr;
    qsizetype used;
    qsizetype capacity = 0;
};

void writeEscaped(const QByteArray &utf8, Sink *out);

void writeString(const QString &text, Sink *out)
{
    // Most texts are plain ASCII with nothing to escape: copied straight.
    const char16_t *p = reinterpret_cast<const char16_t *>(text.constData());
    const char16_t *const end = p + text.size();
    char *to = out->reserve(text.size() + 2);
    *to++ = '"';
    for (; p < end; ++p) {
        const char16_t c = *p;
        if (c >= 0x80 || c < 0x20 || c == u'"' || c == u'\\')
            break;
        *to++ = char(c);
    }
    if (p == end) {
        *to++ = '"';
        out->advance(to);
        return;
    }
    out->advance(to);
    writeEscaped(QStringView(p, end).toUtf8(), out);
}

// The rest of a text that needs escapes or is not ASCII, and its closing quote.
void writeEscaped(const QByteArray &utf8, Sink *out)
{
    const char *p = utf8.constData();
    const char *run = p;
    const char *end = p + utf8.size();
    for (; p < end; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out->append(run, p - run);
        run = p + 1;
        switch (c) {
        case '"': out->append("\\\""); break;
        case '\\': out->append("\\\\"); break;
        case '\n': out->append("\\n"); break;
        case '\r': out->append("\\r"); break;
        case '\t': out->append("\\t"); break;
        case '\b': out->append("\\b"); break;
        case '\f': out->append("\\f"); break;
        default: {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
            out->append(buffer);
        }
        }
    }
    out->append(run, end - run);
    out->append('"');
}

template<typename Integer>
void writeInteger(Integer value, Sink *out)
{
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    out->append(digits, result.ptr - digits);
}

void writeValue(const QVariant &value, Sink *out, int depth);

void writeMap(const QVariantMap &map, Sink *out, int depth)
{
    out->append('{');
    bool first = true;
    for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
        if (!first)
            out->append(',');
        first = false;
        writeString(it.key(), out);
        out->append(':');
        writeValue(it.value(), out, depth + 1);
    }
    out->append('}');
}

void writeValue(const QVariant &value, Sink *out, int depth)
{
    // Deeper than any record goes; cut off rather than overflow the stack on a cycle-like input.
    if (depth > 200) {
        out->append("null");
        return;
    }
    // Containers and texts are read in place (`constData` of the variant's own type): no copies.
    switch (value.typeId()) {
    case QMetaType::QString: {
        const QString &text = *static_cast<const QString *>(value.constData());
        if (text.isNull())
            out->append("null");
        else
            writeString(text, out);
        return;
    }
    case QMetaType::Bool:
        out->append(value.toBool() ? "true" : "false");
        return;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
        writeInteger(value.toLongLong(), out);
        return;
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        writeInteger(value.toULongLong(), out);
        return;
    case QMetaType::Double:
    case QMetaType::Float: {
        const double d = value.toDouble();
        if (!std::isfinite(d))
            out->append("null");
        else
            out->append(QByteArray::number(d, 'g', QLocale::FloatingPointShortest));
        return;
    }
    case QMetaType::QVariantMap:
        writeMap(*static_cast<const QVariantMap *>(value.constData()), out, depth);
        return;
    case QMetaType::QVariantHash: {
        const QVariantHash hash = value.toHash();
        QVariantMap map;
        for (auto it = hash.constBegin(); it != hash.constEnd(); ++it)
            map.insert(it.key(), it.value());
        writeMap(map, out, depth);
        return;
    }
    case QMetaType::QVariantList: {
        const QVariantList &list = *static_cast<const QVariantList *>(value.constData());
        out->append('[');
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (i)
                out->append(',');
            writeValue(list.at(i), out, depth + 1);
        }
        out->append(']');
        return;
    }
    case QMetaType::QStringList: {
        const QStringList &list = *static_cast<const QStringList *>(value.constData());
        out->append('[');
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (i)
                out->append(',');
            if (list.at(i).isNull())
                out->append("null");
            else
                writeString(list.at(i), out);
        }
        out->append(']');
        return;
    }
    default:
        if (!value.isValid() || value.isNull() || value.typeId() == QMetaType::Nullptr)
            out->append("null");
        else if (value.canConvert<QString>())
            writeString(value.toString(), out);
        else
            out->append("null");
    }
}

// The records' own keys, shared instead of made anew for every parsed object.
QString knownKey(const char *data, qsizetype size)
{
    static const QString keys[] = {
        QStringLiteral("id"), QStringLiteral("createdAt"), QStringLiteral("updatedAt"), QStringLiteral("message"),
        QStringLiteral("messageType"), QStringLiteral("idFromSender"), QStringLiteral("sendingType"),
        QStringLiteral("room"), QStringLiteral("sender"), QStringLiteral("option"), QStringLiteral("clientID"),
        QStringLiteral("username"), QStringLiteral("photo"), QStringLiteral("name"), QStringLiteral("thumbnail"),
        QStringLiteral("isPublic"), QStringLiteral("client"), QStringLiteral("archivedBy"),
        QStringLiteral("readTime"), QStringLiteral("lastMessageTime"), QStringLiteral("badge"),
        QStringLiteral("url"), QStringLiteral("className"), QStringLiteral("data"), QStringLiteral("token"),
        QStringLiteral("pushMessage"), QStringLiteral("needToPush"), QStringLiteral("badgeIncrease"),
        QStringLiteral("pushSound"), QStringLiteral("totalBadge"), QStringLiteral("chatinAt"),
    };
    for (const QString &key : keys)
        if (key.size() == size && QLatin1StringView(data, size) == key)
            return key;
    return QString();
}

class Parser
{
public:
    Parser(const char *data, qsizetype size) : begin(data), p(data), end(data + size) { }

    //! Keys whose top-level values are only checked, and where each was found.
    const QLatin1StringView *deferredKeys = nullptr;
    int deferredCount = 0;
    Span *spans = nullptr;
    //! Takes the top-level members instead of the map, when set.
    const std::function<bool(const QString &, const QVariant &)> *member = nullptr;

    bool object(QVariantMap *out)
    {
        skip();
        if (!parseObject(out, 0))
            return false;
        skip();
        return p == end;
    }

private:
    const char *const begin;
    const char *p;
    const char *end;
    static constexpr int kMaxDepth = 256;

    void skip()
    {
        while (p < end && (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t'))
            ++p;
    }
    bool literal(const char *word)
    {
        const size_t n = std::strlen(word);
        if (size_t(end - p) < n || std::memcmp(p, word, n) != 0)
            return false;
        p += n;
        return true;
    }
    static int hex(char c)
    {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }
    bool hex4(uint *out)
    {
        if (end - p < 4)
            return false;
        uint v = 0;
        for (int i = 0; i < 4; ++i) {
            const int h = hex(p[i]);
            if (h < 0)
                return false;
            v = v * 16 + uint(h);
        }
        p += 4;
        *out = v;
        return true;
    }

    bool string(QString *out, bool isKey = false)
    {
        if (p >= end || *p != '"')
            return false;
        const char *start = ++p;
        while (p < end && *p != '"' && *p != '\\') {
            if (static_cast<unsigned char>(*p) < 0x20)
                return false;
            ++p;
        }
        if (p >= end)
            return false;
        if (*p == '"') {
            if (isKey)
                *out = knownKey(start, p - start);
            if (out->isNull())
                *out = QString::fromUtf8(start, p - start);
            ++p;
            return true;
        }
        // With escapes: collect UTF-8 bytes, then convert once.
        QByteArray bytes(start, p - start);
        while (p < end && *p != '"') {
            const char c = *p++;
            if (static_cast<unsigned char>(c) < 0x20)
                return false;
            if (c != '\\') {
                bytes.append(c);
                continue;
            }
            if (p >= end)
                return false;
            switch (*p++) {
            case '"': bytes.append('"'); break;
            case '\\': bytes.append('\\'); break;
            case '/': bytes.append('/'); break;
            case 'b': bytes.append('\b'); break;
            case 'f': bytes.append('\f'); break;
            case 'n': bytes.append('\n'); break;
            case 'r': bytes.append('\r'); break;
            case 't': bytes.append('\t'); break;
            case 'u': {
                uint code = 0;
                if (!hex4(&code))
                    return false;
                if (code >= 0xD800 && code < 0xDC00 && end - p >= 6 && p[0] == '\\' && p[1] == 'u') {
                    const char *save = p;
                    p += 2;
                    uint low = 0;
                    if (hex4(&low) && low >= 0xDC00 && low < 0xE000)
                        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                    else
                        p = save;
                }
                const char32_t cp = (code >= 0xD800 && code < 0xE000) ? 0xFFFD : code;
                bytes.append(QString::fromUcs4(&cp, 1).toUtf8());
                break;
            }
            default:
                return false;
            }
        }
        if (p >= end)
            return false;
        ++p;
        *out = QString::fromUtf8(bytes);
        return true;
    }

    bool number(QVariant *out)
    {
        const char *start = p;
        if (p < end && *p == '-')
            ++p;
        if (p >= end || *p < '0' || *p > '9')
            return false;
        bool integral = true;
        while (p < end && ((*p >= '0' && *p <= '9') || *p == '.' || *p == 'e' || *p == 'E' || *p == '+' || *p == '-')) {
            if (*p == '.' || *p == 'e' || *p == 'E')
                integral = false;
            ++p;
        }
        const QByteArray text = QByteArray::fromRawData(start, p - start);
        bool ok = false;
        if (integral) {
            const qlonglong v = text.toLongLong(&ok);
            if (ok) {
                *out = v;
                return true;
            }
        }
        const double d = text.toDouble(&ok);
        if (!ok)
            return false;
        *out = d;
        return true;
    }

    bool value(QVariant *out, int depth)
    {
        skip();
        if (p >= end)
            return false;
        switch (*p) {
        case '{': {
            QVariantMap map;
            if (!parseObject(&map, depth + 1))
                return false;
            *out = std::move(map);
            return true;
        }
        case '[': {
            QVariantList list;
            if (!parseArray(&list, depth + 1))
                return false;
            *out = std::move(list);
            return true;
        }
        case '"': {
            QString text;
            if (!string(&text))
                return false;
            *out = std::move(text);
            return true;
        }
        case 't':
            *out = true;
            return literal("true");
        case 'f':
            *out = false;
            return literal("false");
        case 'n':
            *out = QVariant::fromValue(nullptr);
            return literal("null");
        default:
            return number(out);
        }
    }

    bool parseObject(QVariantMap *out, int depth)
    {
        if (depth > kMaxDepth || p >= end || *p != '{')
            return false;
        ++p;
        skip();
        QVariantMap map;
        if (p < end && *p == '}') {
            ++p;
            *out = std::move(map);
            return true;
        }
        while (true) {
            skip();
            QString key;
            if (!string(&key, true))
                return false;
            skip();
            if (p >= end || *p != ':')
                return false;
            ++p;
            QVariant v;
            if (depth == 0 && deferred(key)) {
                // Checked, not kept: the caller decodes the text when it needs it.
            } else if (!value(&v, depth)) {
                return false;
            } else if (depth == 0 && member) {
                if (!(*member)(key, v))
                    return false;
            } else {
                map.insert(key, std::move(v));
            }
            skip();
            if (p < end && *p == ',') {
                ++p;
                continue;
            }
            if (p < end && *p == '}') {
                ++p;
                *out = std::move(map);
                return true;
            }
            return false;
        }
    }

    // For a deferred key: checks the value that follows and notes where it lies.
    bool deferred(const QString &key)
    {
        for (int i = 0; i < deferredCount; ++i) {
            if (key != deferredKeys[i])
                continue;
            skip();
            const char *start = p;
            QVariant scalar;  // a deferred text, number or literal is checked by reading it
            if (!(p < end && (*p == '{' || *p == '[') ? skipContainer() : value(&scalar, 0)))
                return false;
            spans[i] = Span{ start - begin, p - start };
            return true;
        }
        return false;
    }
    // Moves past the object or array at `p`, matching brackets outside strings; what lies
    // inside is checked when it is decoded. False when the text ends first.
    bool skipContainer()
    {
        int depth = 0;
        while (p < end) {
            const char c = *p++;
            if (c == '"') {
                while (true) {
                    while (p < end && *p != '"' && *p != '\\')
                        ++p;
                    if (p >= end)
                        return false;
                    if (*p == '"')
                        break;
                    if (end - p < 2)
                        return false;
                    p += 2;
                }
                ++p;
            } else if (c == '{' || c == '[') {
                ++depth;
            } else if ((c == '}' || c == ']') && --depth == 0) {
                return true;
            }
        }
        return false;
    }
    bool parseArray(QVariantList *out, int depth)
    {
        if (depth > kMaxDepth || p >= end || *p != '[')
            return false;
        ++p;
        skip();
        QVariantList list;
        if (p < end && *p == ']') {
            ++p;
            *out = std::move(list);
            return true;
        }
        while (true) {
            QVariant v;
            if (!value(&v, depth))
                return false;
            list.append(std::move(v));
            skip();
            if (p < end && *p == ',') {
                ++p;
                continue;
            }
            if (p < end && *p == ']') {
                ++p;
                *out = std::move(list);
                return true;
            }
            return false;
        }
    }
};
} // namespace

void write(const QVariantMap &map, QByteArray *out)
{
    Sink sink(out);
    writeMap(map, &sink, 0);
}

QByteArray toJson(const Member *members, qsizetype count)
{
    QByteArray out;
    {
        Sink sink(&out);  // cuts `out` to its length when it goes
        sink.append('{');
        for (qsizetype i = 0; i < count; ++i) {
            if (i)
                sink.append(',');
            writeString(members[i].first, &sink);
            sink.append(':');
            writeValue(members[i].second, &sink, 1);
        }
        sink.append('}');
    }
    return out;
}

QByteArray toJson(const QVariantMap &map)
{
    QByteArray out;
    out.reserve(512);
    write(map, &out);
    return out;
}

bool parseObject(const char *data, qsizetype size, QVariantMap *out)
{
    if (!data || size <= 0)
        return false;
    QVariantMap map;
    Parser parser(data, size);
    if (!parser.object(&map))
        return false;
    *out = std::move(map);
    return true;
}

bool parseMembers(const char *data, qsizetype size, const QLatin1StringView *deferredKeys, int deferredCount,
                  Span *spans, const std::function<bool(const QString &key, const QVariant &value)> &member)
{
    if (!data || size <= 0)
        return false;
    QVariantMap unused;
    Parser parser(data, size);
    parser.deferredKeys = deferredKeys;
    parser.deferredCount = deferredCount;
    parser.spans = spans;
    parser.member = &member;
    return parser.object(&unused);
}


} // namespace IMJSONText

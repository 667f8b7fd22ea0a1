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
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace IMJSONText {

namespace {
    // Escapes for the characters below 0x20 that have a short form.
    const char *shortEscape(unsigned char c)
    {
        switch (c) {
        case '"':
            return "\\\"";
        case '\\':
            return "\\\\";
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        case '\b':
            return "\\b";
        case '\f':
            return "\\f";
        default:
            return nullptr;
        }
    }

    // Where the first character of `p` (at most `n`) that cannot be copied narrowed into a JSON string
    // is: not ASCII, a control character, a quote or a backslash. Found eight or sixteen at a time:
    // texts are mostly plain, and this loop is most of writing a record.
    qsizetype plainPrefix(const char16_t *p, qsizetype n, char *to)
    {
        qsizetype i = 0;
#if defined(__SSE2__)
        // Narrowed with unsigned saturation, every character outside ASCII becomes 0x00 or 0x80 and up,
        // which the signed "less than space" test catches with the controls.
        const __m128i space = _mm_set1_epi8(0x20), quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\');
        const auto special = [&](__m128i bytes) {
            return _mm_movemask_epi8(_mm_or_si128(_mm_cmplt_epi8(bytes, space),
                _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash))));
        };
        for (; n - i >= 16; i += 16) {
            const __m128i bytes = _mm_packus_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i)),
                _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i + 8)));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(to + i), bytes);
            if (const int mask = special(bytes))
                return i + qCountTrailingZeroBits(uint(mask));
        }
        if (n - i >= 8) {
            const __m128i wide = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i));
            const __m128i bytes = _mm_packus_epi16(wide, wide);
            _mm_storel_epi64(reinterpret_cast<__m128i *>(to + i), bytes);
            if (const int mask = special(bytes) & 0xff)
                return i + qCountTrailingZeroBits(uint(mask));
            i += 8;
        }
#endif
        for (; i < n; ++i) {
            const char16_t c = p[i];
            if (c >= 0x80 || c < 0x20 || c == u'"' || c == u'\\')
                return i;
            to[i] = char(c);
        }
        return n;
    }
} // namespace

Writer::Writer(QByteArray *target)
    : target(target)
    , used(target->size())
{
    // A reused array keeps its capacity: no allocation until the text outgrows it.
    if (target->capacity() > used) {
        target->resize(target->capacity());
        buffer = target->data();
        capacity = target->size();
    }
}

Writer::~Writer() { target->resize(used); }

char *Writer::reserve(qsizetype n)
{
    if (used + n > capacity) {
        target->resize(std::max(used + n, 2 * capacity + 256));
        buffer = target->data();
        capacity = target->size();
    }
    return buffer + used;
}

void Writer::append(const char *data, qsizetype n)
{
    std::memcpy(reserve(n), data, size_t(n));
    used += n;
}

void Writer::key(const QString &key)
{
    string(key);
    append(':');
}

void Writer::string(const QString &text)
{
    if (text.isNull()) {
        append("null", 4);
        return;
    }
    // Plain ASCII is copied narrowed; the rest of a text that needs escapes or is not ASCII goes
    // through UTF-8.
    const char16_t *p = reinterpret_cast<const char16_t *>(text.constData());
    const qsizetype n = text.size();
    char *to = reserve(n + 2);
    *to++ = '"';
    const qsizetype plain = plainPrefix(p, n, to);
    used += 1 + plain;
    if (plain == n) {
        append('"');
        return;
    }
    const QByteArray utf8 = QStringView(p + plain, p + n).toUtf8();
    const char *q = utf8.constData();
    const char *run = q;
    const char *const end = q + utf8.size();
    for (; q < end; ++q) {
        const unsigned char c = static_cast<unsigned char>(*q);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        append(run, q - run);
        run = q + 1;
        if (const char *escape = shortEscape(c)) {
            append(escape, 2);
        } else {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
            append(buffer, 6);
        }
    }
    append(run, end - run);
    append('"');
}

void Writer::integer(qint64 value)
{
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    append(digits, result.ptr - digits);
}

void Writer::unsignedInteger(quint64 value)
{
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    append(digits, result.ptr - digits);
}

void Writer::boolean(bool value) { value ? append("true", 4) : append("false", 5); }

void Writer::map(const QVariantMap &map, int depth)
{
    append('{');
    bool first = true;
    for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
        if (!first)
            append(',');
        first = false;
        key(it.key());
        value(it.value(), depth + 1);
    }
    append('}');
}

void Writer::list(const QVariantList &list, int depth)
{
    append('[');
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i)
            append(',');
        value(list.at(i), depth + 1);
    }
    append(']');
}

void Writer::stringList(const QStringList &list)
{
    append('[');
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i)
            append(',');
        string(list.at(i));
    }
    append(']');
}

void Writer::value(const QVariant &value, int depth)
{
    // Deeper than any record goes; cut off rather than overflow the stack on a cycle-like input.
    if (depth > 200) {
        append("null", 4);
        return;
    }
    // Containers and texts are read in place (`constData` of the variant's own type): no copies.
    switch (value.typeId()) {
    case QMetaType::QString:
        string(*static_cast<const QString *>(value.constData()));
        return;
    case QMetaType::Bool:
        boolean(value.toBool());
        return;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
        integer(value.toLongLong());
        return;
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        unsignedInteger(value.toULongLong());
        return;
    case QMetaType::Double:
    case QMetaType::Float: {
        const double d = value.toDouble();
        if (!std::isfinite(d))
            append("null", 4);
        else
            append(QByteArray::number(d, 'g', QLocale::FloatingPointShortest));
        return;
    }
    case QMetaType::QVariantMap:
        map(*static_cast<const QVariantMap *>(value.constData()), depth);
        return;
    case QMetaType::QVariantHash: {
        const QVariantHash hash = value.toHash();
        QVariantMap sorted;
        for (auto it = hash.constBegin(); it != hash.constEnd(); ++it)
            sorted.insert(it.key(), it.value());
        map(sorted, depth);
        return;
    }
    case QMetaType::QVariantList:
        list(*static_cast<const QVariantList *>(value.constData()), depth);
        return;
    case QMetaType::QStringList:
        stringList(*static_cast<const QStringList *>(value.constData()));
        return;
    default:
        if (!value.isValid() || value.isNull() || value.typeId() == QMetaType::Nullptr)
            append("null", 4);
        else if (value.canConvert<QString>())
            string(value.toString());
        else
            append("null", 4);
    }
}

namespace {
    // The records' own keys, shared instead of made anew for every parsed object.
    QString knownKey(const char *data, qsizetype size)
    {
        static const QString keys[] = {
            QStringLiteral("id"),
            QStringLiteral("createdAt"),
            QStringLiteral("updatedAt"),
            QStringLiteral("message"),
            QStringLiteral("messageType"),
            QStringLiteral("idFromSender"),
            QStringLiteral("sendingType"),
            QStringLiteral("room"),
            QStringLiteral("sender"),
            QStringLiteral("option"),
            QStringLiteral("clientID"),
            QStringLiteral("username"),
            QStringLiteral("photo"),
            QStringLiteral("name"),
            QStringLiteral("thumbnail"),
            QStringLiteral("isPublic"),
            QStringLiteral("client"),
            QStringLiteral("archivedBy"),
            QStringLiteral("readTime"),
            QStringLiteral("lastMessageTime"),
            QStringLiteral("badge"),
            QStringLiteral("url"),
            QStringLiteral("className"),
            QStringLiteral("data"),
            QStringLiteral("token"),
            QStringLiteral("pushMessage"),
            QStringLiteral("needToPush"),
            QStringLiteral("badgeIncrease"),
            QStringLiteral("pushSound"),
            QStringLiteral("totalBadge"),
            QStringLiteral("chatinAt"),
        };
        for (const QString &key : keys)
            if (key.size() == size && QLatin1StringView(data, size) == key)
                return key;
        return QString();
    }

    class Parser {
    public:
        Parser(const char *data, qsizetype size)
            : begin(data)
            , p(data)
            , end(data + size)
        {
        }

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
            if (c >= '0' && c <= '9')
                return c - '0';
            if (c >= 'a' && c <= 'f')
                return c - 'a' + 10;
            if (c >= 'A' && c <= 'F')
                return c - 'A' + 10;
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
                case '"':
                    bytes.append('"');
                    break;
                case '\\':
                    bytes.append('\\');
                    break;
                case '/':
                    bytes.append('/');
                    break;
                case 'b':
                    bytes.append('\b');
                    break;
                case 'f':
                    bytes.append('\f');
                    break;
                case 'n':
                    bytes.append('\n');
                    break;
                case 'r':
                    bytes.append('\r');
                    break;
                case 't':
                    bytes.append('\t');
                    break;
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
            while (p < end
                && ((*p >= '0' && *p <= '9') || *p == '.' || *p == 'e' || *p == 'E' || *p == '+' || *p == '-')) {
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
                QVariant scalar; // a deferred text, number or literal is checked by reading it
                if (!(p < end && (*p == '{' || *p == '[') ? skipContainer() : value(&scalar, 0)))
                    return false;
                spans[i] = Span {start - begin, p - start};
                return true;
            }
            return false;
        }
        // Moves past the object or array at `p`, matching brackets outside strings; what lies
        // inside is checked when it is decoded. False when the text ends first.
        bool skipContainer()
        {
            int depth = 0;
            bool inString = false;
#if defined(__SSE2__)
            // Sixty-four bytes at a time, as bit masks: quotes open and close strings (a prefix XOR of
            // their mask marks what lies inside), and only the brackets outside strings count. A block
            // with a backslash goes byte by byte. Records hold many short strings, and the byte loop
            // mispredicted a branch at nearly every quote.
            while (end - p >= 64) {
                quint64 quotes = 0, backslashes = 0, opens = 0, closes = 0;
                for (int k = 0; k < 4; ++k) {
                    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * k));
                    // '[' and '{', ']' and '}' differ only in the 0x20 bit.
                    const __m128i folded = _mm_or_si128(bytes, _mm_set1_epi8(0x20));
                    const auto mask
                        = [&](__m128i equal) { return quint64(quint16(_mm_movemask_epi8(equal))) << (16 * k); };
                    quotes |= mask(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')));
                    backslashes |= mask(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
                    opens |= mask(_mm_cmpeq_epi8(folded, _mm_set1_epi8('{')));
                    closes |= mask(_mm_cmpeq_epi8(folded, _mm_set1_epi8('}')));
                }
                if (backslashes) {
                    const Scan scan = scanBytes(p + 64, &depth, &inString);
                    if (scan != Scan::Open)
                        return scan == Scan::Closed;
                    continue;
                }
                quint64 strings = quotes;
                for (int shift = 1; shift < 64; shift *= 2)
                    strings ^= strings << shift;
                if (inString)
                    strings = ~strings;
                for (quint64 brackets = (opens | closes) & ~strings; brackets; brackets &= brackets - 1) {
                    const int at = qCountTrailingZeroBits(brackets);
                    if (opens >> at & 1) {
                        ++depth;
                    } else if (--depth == 0) {
                        p += at + 1;
                        return true;
                    }
                }
                inString = strings >> 63;
                p += 64;
            }
#endif
            return scanBytes(end, &depth, &inString) == Scan::Closed;
        }
        enum class Scan { Open, Closed, Broken };
        // The bracket count byte by byte up to `limit` (one past it when an escape straddles it).
        Scan scanBytes(const char *limit, int *depth, bool *inString)
        {
            while (p < limit) {
                const char c = *p++;
                if (*inString) {
                    if (c == '\\') {
                        if (p >= end)
                            return Scan::Broken;
                        ++p;
                    } else if (c == '"') {
                        *inString = false;
                    }
                } else if (c == '"') {
                    *inString = true;
                } else if (c == '{' || c == '[') {
                    ++*depth;
                } else if ((c == '}' || c == ']') && --*depth == 0) {
                    return Scan::Closed;
                }
            }
            return Scan::Open;
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
    Writer writer(out);
    writer.map(map);
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

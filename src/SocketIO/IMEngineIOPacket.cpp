#include "IMEngineIOPacket.h"

namespace {
constexpr char kRecordSeparator = '\x1e';

bool typeFromChar(QChar c, IMEngineIOPacket::Type *type)
{
    const ushort u = c.unicode();
    if (u < '0' || u > '6')
        return false;
    *type = static_cast<IMEngineIOPacket::Type>(u - '0');
    return true;
}
} // namespace

IMEngineIOPacket IMEngineIOPacket::makeText(Type type, const QString &text)
{
    IMEngineIOPacket p;
    p.type = type;
    p.text = text;
    return p;
}

IMEngineIOPacket IMEngineIOPacket::makeBinary(const QByteArray &bytes)
{
    IMEngineIOPacket p;
    p.type = Message;
    p.binary = bytes;
    p.isBinary = true;
    return p;
}

QString IMEngineIOPacket::encodeText(const IMEngineIOPacket &packet, int eio)
{
    if (packet.isBinary) {
        const QByteArray b64 = packet.binary.toBase64();
        QString out;
        out.reserve(b64.size() + 2);
        out += QLatin1Char('b');
        if (eio == 3)
            out += QLatin1Char('4');
        out += QLatin1String(b64);
        return out;
    }
    QString out;
    out.reserve(packet.text.size() + 1);
    out += QLatin1Char(char('0' + int(packet.type)));
    out += packet.text;
    return out;
}

bool IMEngineIOPacket::decodeText(const QString &text, int eio, IMEngineIOPacket *packet)
{
    if (text.isEmpty())
        return false;
    if (text.at(0) == QLatin1Char('b')) {
        // Base64 binary: "b<base64>" in v4, "b<type><base64>" in v3.
        qsizetype start = 1;
        if (eio == 3) {
            if (text.size() < 2 || text.at(1) != QLatin1Char('4'))
                return false;
            start = 2;
        }
        const QByteArray latin = QStringView(text).mid(start).toLatin1();
        auto decoded = QByteArray::fromBase64Encoding(latin, QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded)
            return false;
        *packet = makeBinary(*decoded);
        return true;
    }
    Type type;
    if (!typeFromChar(text.at(0), &type))
        return false;
    *packet = makeText(type, text.mid(1));
    return true;
}

QByteArray IMEngineIOPacket::encodeBinaryFrame(const QByteArray &bytes, int eio)
{
    if (eio != 3)
        return bytes;
    QByteArray out;
    out.reserve(bytes.size() + 1);
    out.append(char(Message));
    out.append(bytes);
    return out;
}

bool IMEngineIOPacket::decodeBinaryFrame(const QByteArray &frame, int eio, IMEngineIOPacket *packet)
{
    if (eio != 3) {
        *packet = makeBinary(frame);
        return true;
    }
    if (frame.isEmpty() || frame.at(0) != char(Message))
        return false;
    *packet = makeBinary(frame.mid(1));
    return true;
}

QByteArray IMEngineIOPacket::encodePayload(const QList<IMEngineIOPacket> &packets, int eio)
{
    if (eio == 3) {
        // Lengths count UTF-16 code units, as the server's JavaScript string length does.
        QString out;
        for (const IMEngineIOPacket &p : packets) {
            const QString one = encodeText(p, eio);
            out += QString::number(one.size());
            out += QLatin1Char(':');
            out += one;
        }
        return out.toUtf8();
    }
    QByteArray out;
    for (int i = 0; i < packets.size(); ++i) {
        if (i)
            out.append(kRecordSeparator);
        out.append(encodeText(packets.at(i), eio).toUtf8());
    }
    return out;
}

bool IMEngineIOPacket::decodePayload(const QByteArray &body, int eio, QList<IMEngineIOPacket> *packets, QString *error)
{
    auto fail = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    packets->clear();
    if (body.isEmpty())
        return fail(QStringLiteral("empty payload"));
    if (eio != 3) {
        // 0x1e never occurs inside a UTF-8 multi-byte sequence, so the bytes can be split first.
        qsizetype start = 0;
        while (start <= body.size()) {
            qsizetype end = body.indexOf(kRecordSeparator, start);
            if (end < 0)
                end = body.size();
            IMEngineIOPacket p;
            if (!decodeText(QString::fromUtf8(body.constData() + start, end - start), eio, &p))
                return fail(QStringLiteral("malformed packet in payload"));
            packets->append(std::move(p));
            start = end + 1;
        }
        return true;
    }
    const QString text = QString::fromUtf8(body);
    qsizetype i = 0;
    while (i < text.size()) {
        const qsizetype colon = text.indexOf(QLatin1Char(':'), i);
        if (colon <= i || colon - i > 18)
            return fail(QStringLiteral("malformed payload length"));
        bool ok = false;
        const qlonglong n = QStringView(text).mid(i, colon - i).toLongLong(&ok);
        if (!ok || n < 0 || colon + 1 + n > text.size())
            return fail(QStringLiteral("malformed payload length"));
        if (n > 0) {
            IMEngineIOPacket p;
            if (!decodeText(text.mid(colon + 1, n), eio, &p))
                return fail(QStringLiteral("malformed packet in payload"));
            packets->append(std::move(p));
        }
        i = colon + 1 + n;
    }
    return true;
}

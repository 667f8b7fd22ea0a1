#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

//! One Engine.IO packet and its wire forms for protocol revisions 3 and 4: WebSocket frames
//! (one packet each) and long-polling payloads (several packets in one HTTP body).
//! Pure value code, usable from any thread.
struct IMEngineIOPacket {
    //! The packet kinds, numbered as on the wire.
    enum Type { Open = 0, Close = 1, Ping = 2, Pong = 3, Message = 4, Upgrade = 5, Noop = 6 };

    Type type = Noop;
    //! The text data (open JSON, ping/pong probe, message text).
    QString text;
    //! The bytes of a binary message.
    QByteArray binary;
    //! True when the data is `binary`, false when it is `text`.
    bool isBinary = false;

    //! A text packet of `type` with `text`.
    static IMEngineIOPacket makeText(Type type, const QString &text = QString());
    //! A binary message packet carrying `bytes`.
    static IMEngineIOPacket makeBinary(const QByteArray &bytes);
    //! The size of the packet's data in characters or bytes.
    qsizetype dataSize() const { return isBinary ? binary.size() : text.size(); }

    //! The text form of a packet in a WebSocket text frame or a payload ("4hello", "b<base64>").
    //! `eio` is 3 or 4; binary packets are written as base64 ("b" in v4, "b4" in v3).
    static QString encodeText(const IMEngineIOPacket &packet, int eio);
    //! Reads one packet from its text form; false when malformed.
    static bool decodeText(const QString &text, int eio, IMEngineIOPacket *packet);
    //! The bytes of a WebSocket binary frame (raw in v4, led by the type byte 4 in v3).
    static QByteArray encodeBinaryFrame(const QByteArray &bytes, int eio);
    //! Reads a WebSocket binary frame; false when malformed.
    static bool decodeBinaryFrame(const QByteArray &frame, int eio, IMEngineIOPacket *packet);

    //! A long-polling body holding `packets` (v4: joined by 0x1e; v3: each led by "<length>:").
    static QByteArray encodePayload(const QList<IMEngineIOPacket> &packets, int eio);
    //! Reads a long-polling body; false (and `error` set) when malformed.
    static bool decodePayload(
        const QByteArray &body, int eio, QList<IMEngineIOPacket> *packets, QString *error = nullptr);
};

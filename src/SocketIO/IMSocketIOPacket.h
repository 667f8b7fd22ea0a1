#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

//! One Socket.IO packet (protocol revisions 4 and 5) and its text form
//! `<type>[<attachments>-][<nsp>,][<ack id>][JSON]`, with binary attachments carried aside.
//! Pure value code, usable from any thread.
struct IMSocketIOPacket {
    //! The packet kinds, numbered as on the wire.
    enum Type { Connect = 0, Disconnect = 1, Event = 2, Ack = 3, ConnectError = 4, BinaryEvent = 5, BinaryAck = 6 };

    Type type = Event;
    //! The namespace ("/" when omitted on the wire).
    QString nsp = QStringLiteral("/");
    //! The acknowledgement id, -1 when none.
    qint64 id = -1;
    //! The payload as JSON-like values (QByteArray for bytes once attachments are in place).
    QVariant data;
    //! True when a payload was present on the wire.
    bool hasData = false;
    //! The number of binary attachments announced.
    int attachments = 0;
    //! The attachments received so far (decoding) or to send (encoding).
    QList<QByteArray> buffers;

    //! The text form. QByteArray values inside `data` are replaced by placeholders and appended
    //! to `buffers` (the type becomes BinaryEvent/BinaryAck when there are any).
    QString encode(QList<QByteArray> *buffers) const;
    //! Reads the text form; placeholders stay in `data` until `reconstruct`. False (and `error`
    //! set) when malformed: unknown type, bad attachment count, bad id or bad JSON.
    static bool decode(const QString &text, IMSocketIOPacket *packet, QString *error = nullptr);
    //! Puts `buffers` in place of the placeholders in `data`; false when one is out of range.
    bool reconstruct(QString *error = nullptr);
    //! True when all announced attachments are in `buffers`.
    bool isComplete() const { return buffers.size() >= attachments; }

    //! A JSON text for `value`; bytes become placeholders appended to `buffers`.
    static QByteArray toJson(const QVariant &value, QList<QByteArray> *buffers);
};

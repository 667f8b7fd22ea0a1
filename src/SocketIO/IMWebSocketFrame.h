#pragma once

#include <QByteArray>
#include <QtGlobal>

//! The WebSocket frame layout a client needs: masked frames out, unmasked frame headers in.
//! Pure value code, usable from any thread.
struct IMWebSocketFrame {
    //! The frame opcodes, numbered as on the wire.
    enum Opcode { Continuation = 0x0, Text = 0x1, Binary = 0x2, Close = 0x8, Ping = 0x9, Pong = 0xA };

    //! The fields of a frame header.
    struct Header {
        bool fin = false;
        int opcode = 0;
        bool masked = false;
        quint64 length = 0;
        //! The bytes the header takes, mask included.
        int size = 0;
        //! The masking key (meaningful when `masked`).
        quint32 mask = 0;
    };

    //! Appends one final frame of `opcode` carrying `size` bytes at `payload`, masked with `mask`
    //! as a client must, with the shortest length encoding.
    static void appendMasked(QByteArray *out, Opcode opcode, const char *payload, qsizetype size, quint32 mask);
    //! Reads the frame header at the start of `data`: 1 when read, 0 when more bytes are
    //! needed, -1 when malformed (reserved bits set, bad length, fragmented control frame).
    static int readHeader(const char *data, qsizetype size, Header *header);
    //! Unmasks (or masks) `size` bytes in place with `mask`.
    static void applyMask(char *data, qsizetype size, quint32 mask);
};

#include "IMWebSocketFrame.h"

#include <cstring>

void IMWebSocketFrame::appendMasked(QByteArray *out, Opcode opcode, const char *payload, qsizetype size, quint32 mask)
{
    uchar header[14];
    int n = 0;
    header[n++] = uchar(0x80 | opcode);
    if (size <= 125) {
        header[n++] = uchar(0x80 | size);
    } else if (size <= 0xffff) {
        header[n++] = 0x80 | 126;
        header[n++] = uchar(size >> 8);
        header[n++] = uchar(size);
    } else {
        header[n++] = 0x80 | 127;
        for (int shift = 56; shift >= 0; shift -= 8)
            header[n++] = uchar(quint64(size) >> shift);
    }
    for (int shift = 24; shift >= 0; shift -= 8)
        header[n++] = uchar(mask >> shift);
    const qsizetype start = out->size();
    // Grown once per frame; the caller's buffer keeps its capacity between writes.
    out->resize(start + n + size);
    char *dst = out->data() + start;
    std::memcpy(dst, header, size_t(n));
    if (size > 0)
        std::memcpy(dst + n, payload, size_t(size));
    applyMask(dst + n, size, mask);
}

int IMWebSocketFrame::readHeader(const char *data, qsizetype size, Header *h)
{
    if (size < 2)
        return 0;
    const uchar b0 = uchar(data[0]);
    const uchar b1 = uchar(data[1]);
    if (b0 & 0x70)
        return -1; // no extension was negotiated
    h->fin = b0 & 0x80;
    h->opcode = b0 & 0x0f;
    h->masked = b1 & 0x80;
    const bool control = h->opcode & 0x8;
    int n = 2;
    quint64 length = b1 & 0x7f;
    if (length == 126) {
        if (size < 4)
            return 0;
        length = (quint64(uchar(data[2])) << 8) | uchar(data[3]);
        n = 4;
    } else if (length == 127) {
        if (size < 10)
            return 0;
        length = 0;
        for (int i = 2; i < 10; ++i)
            length = (length << 8) | uchar(data[i]);
        if (length >> 63)
            return -1;
        n = 10;
    }
    if (control && (!h->fin || length > 125))
        return -1;
    if ((h->opcode > Binary && !control) || h->opcode > Pong)
        return -1;
    if (h->masked) {
        if (size < n + 4)
            return 0;
        h->mask = (quint32(uchar(data[n])) << 24) | (quint32(uchar(data[n + 1])) << 16)
            | (quint32(uchar(data[n + 2])) << 8) | uchar(data[n + 3]);
        n += 4;
    }
    h->length = length;
    h->size = n;
    return 1;
}

void IMWebSocketFrame::applyMask(char *data, qsizetype size, quint32 mask)
{
    const uchar key[4] = {uchar(mask >> 24), uchar(mask >> 16), uchar(mask >> 8), uchar(mask)};
    for (qsizetype i = 0; i < size; ++i)
        data[i] = char(uchar(data[i]) ^ key[i & 3]);
}

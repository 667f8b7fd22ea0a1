// Engine.IO wire forms from the network: text packets, binary frames and polling payloads, in
// both protocol revisions. What decodes must encode again and decode to the same packets.
#include "FuzzInput.h"
#include "IMEngineIOPacket.h"

#include <cstdlib>

namespace {
bool same(const IMEngineIOPacket &a, const IMEngineIOPacket &b)
{
    return a.type == b.type && a.isBinary == b.isBinary && (a.isBinary ? a.binary == b.binary : a.text == b.text);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = fuzzBytes(data, size);
    for (const int eio : {3, 4}) {
        IMEngineIOPacket packet;
        IMEngineIOPacket::decodeText(QString::fromUtf8(bytes), eio, &packet);
        IMEngineIOPacket::decodeBinaryFrame(bytes, eio, &packet);
        QList<IMEngineIOPacket> packets;
        // A payload of empty records holds no packet, and no packets make no payload.
        if (!IMEngineIOPacket::decodePayload(bytes, eio, &packets) || packets.isEmpty())
            continue;
        QList<IMEngineIOPacket> again;
        if (!IMEngineIOPacket::decodePayload(IMEngineIOPacket::encodePayload(packets, eio), eio, &again)
            || again.size() != packets.size())
            abort();
        for (qsizetype i = 0; i < packets.size(); ++i)
            if (!same(packets[i], again[i]))
                abort();
    }
    return 0;
}

// Socket.IO packet text from the network, with attachments put in place as they arrive.
#include "FuzzInput.h"
#include "IMSocketIOPacket.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    IMSocketIOPacket packet;
    if (!IMSocketIOPacket::decode(QString::fromUtf8(fuzzBytes(data, size)), &packet))
        return 0;
    for (int i = 0; i < qMin(packet.attachments, 4); ++i)
        packet.buffers.append(QByteArray(i, 'x'));
    packet.reconstruct();
    QList<QByteArray> buffers;
    packet.encode(&buffers);
    return 0;
}

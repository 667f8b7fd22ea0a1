// The store's JSON text, as read back from a database file that may be damaged. What parses must
// be written again as text that parses to the same dictionary.
#include "FuzzInput.h"
#include "IMJSONText_p.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QVariantMap map;
    if (!IMJSONText::parseObject(reinterpret_cast<const char *>(data), qsizetype(size), &map))
        return 0;
    const QByteArray text = IMJSONText::toJson(map);
    QVariantMap again;
    if (!IMJSONText::parseObject(text.constData(), text.size(), &again) || IMJSONText::toJson(again) != text)
        abort();
    return 0;
}

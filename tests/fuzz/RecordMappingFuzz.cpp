// Records mapped from the JSON a server sends: every record kind, alone and in lists, and back.
#include "FuzzInput.h"
#include "IMBadge.h"
#include "IMClient.h"
#include "IMFile.h"
#include "IMInviteClient.h"
#include "IMMessage.h"
#include "IMMessageOption.h"
#include "IMRoom.h"

#include <QJsonDocument>

namespace {
template <typename Record> void mapBothWays(const QVariant &value)
{
    if (const auto record = Record::fromDictionary(value.toMap()))
        record->toDictionary();
    for (const auto &record : Record::arrayOfModelsFromDictionaries(value.toList()))
        record->toDictionary();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzApplication();
    const QVariant value = QJsonDocument::fromJson(fuzzBytes(data, size)).toVariant();
    mapBothWays<IMRoom>(value);
    mapBothWays<IMMessage>(value);
    mapBothWays<IMClient>(value);
    mapBothWays<IMFile>(value);
    mapBothWays<IMMessageOption>(value);
    mapBothWays<IMInviteClient>(value);
    mapBothWays<IMBadge>(value);
    return 0;
}

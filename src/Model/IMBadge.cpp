#include "IMBadge.h"

#include "IMJSONMapping_p.h"

using namespace IMJSONMapping;

IMBadge::IMBadge() = default;
IMBadge::~IMBadge() = default;

IMBadgePtr IMBadge::fromDictionary(const QVariantMap &dict)
{
    auto badge = std::make_shared<IMBadge>();
    return readRequired(dict, QStringLiteral("total"), &badge->m_total, toInt32) ? badge : nullptr;
}

QList<IMBadgePtr> IMBadge::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMBadgePtr>(array, &IMBadge::fromDictionary);
}

QVariantMap IMBadge::toDictionary() const { return {{QStringLiteral("total"), m_total}}; }

qint32 IMBadge::total() const { return m_total; }
void IMBadge::setTotal(qint32 total) { m_total = total; }

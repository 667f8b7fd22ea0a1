#include "IMMessageOption.h"

#include "IMJSONMapping_p.h"

using namespace IMJSONMapping;

IMMessageOption::IMMessageOption() = default;
IMMessageOption::~IMMessageOption() = default;

IMMessageOptionPtr IMMessageOption::fromDictionary(const QVariantMap &dict)
{
    auto option = std::make_shared<IMMessageOption>();
    const bool ok = read(dict, QStringLiteral("pushMessage"), &option->m_pushMessage, toString)
        && readRequired(dict, QStringLiteral("needToPush"), &option->m_needToPush, toBool)
        && readRequired(dict, QStringLiteral("badgeIncrease"), &option->m_badgeIncrease, toBool)
        && read(dict, QStringLiteral("pushSound"), &option->m_pushSound, toString);
    return ok ? option : nullptr;
}

QList<IMMessageOptionPtr> IMMessageOption::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMMessageOptionPtr>(array, &IMMessageOption::fromDictionary);
}

QVariantMap IMMessageOption::toDictionary() const
{
    QVariantMap dict;
    writeString(dict, QStringLiteral("pushMessage"), m_pushMessage);
    dict.insert(QStringLiteral("needToPush"), m_needToPush);
    dict.insert(QStringLiteral("badgeIncrease"), m_badgeIncrease);
    writeString(dict, QStringLiteral("pushSound"), m_pushSound);
    return dict;
}

QString IMMessageOption::pushMessage() const { return m_pushMessage; }
void IMMessageOption::setPushMessage(const QString &pushMessage) { m_pushMessage = pushMessage; }
bool IMMessageOption::needToPush() const { return m_needToPush; }
void IMMessageOption::setNeedToPush(bool needToPush) { m_needToPush = needToPush; }
bool IMMessageOption::badgeIncrease() const { return m_badgeIncrease; }
void IMMessageOption::setBadgeIncrease(bool badgeIncrease) { m_badgeIncrease = badgeIncrease; }
QString IMMessageOption::pushSound() const { return m_pushSound; }
void IMMessageOption::setPushSound(const QString &pushSound) { m_pushSound = pushSound; }

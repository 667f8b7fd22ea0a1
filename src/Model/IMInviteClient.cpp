#include "IMInviteClient.h"

#include "IMJSONMapping_p.h"

using namespace IMJSONMapping;

IMInviteClient::IMInviteClient() = default;
IMInviteClient::~IMInviteClient() = default;

IMInviteClientPtr IMInviteClient::fromDictionary(const QVariantMap &dict)
{
    auto invite = std::make_shared<IMInviteClient>();
    const bool ok = readRequired(dict, QStringLiteral("name"), &invite->m_name, toString)
        && readRequired(dict, QStringLiteral("pictureURLString"), &invite->m_pictureURLString, toString)
        && readRequired(dict, QStringLiteral("clientID"), &invite->m_clientID, toString);
    return ok ? invite : nullptr;
}

QList<IMInviteClientPtr> IMInviteClient::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMInviteClientPtr>(array, &IMInviteClient::fromDictionary);
}

QVariantMap IMInviteClient::toDictionary() const
{
    const auto text = [](const QString &s) { return s.isNull() ? QVariant::fromValue(nullptr) : QVariant(s); };
    return {{QStringLiteral("name"), text(m_name)}, {QStringLiteral("pictureURLString"), text(m_pictureURLString)},
        {QStringLiteral("clientID"), text(m_clientID)}};
}

QString IMInviteClient::name() const { return m_name; }
void IMInviteClient::setName(const QString &name) { m_name = name; }
QString IMInviteClient::pictureURLString() const { return m_pictureURLString; }
void IMInviteClient::setPictureURLString(const QString &url) { m_pictureURLString = url; }
QString IMInviteClient::clientID() const { return m_clientID; }
void IMInviteClient::setClientID(const QString &clientID) { m_clientID = clientID; }

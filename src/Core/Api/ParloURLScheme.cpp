#include "ParloURLScheme.h"

#include "IMLog.h"
#include "IMPlatform.h"
#include "Parlo.h"
#include "ParloRoomRequests.h"
#include "ParloTransport.h"

namespace {
const QString kIntegrateHost = QStringLiteral("parlo.integrate");

// The host's configuration, read afresh on every call.
struct SchemeConfig {
    QString scheme;
    QString url;
    QString storeID;
    bool works = false;
};

SchemeConfig readSchemeConfig()
{
    SchemeConfig config;
    const QVariantMap info = IMPlatform::instance()->infoDictionary();
    // Tested in this order; only the last URL type counts, and in it the first scheme.
    const QVariant types = info.value(QStringLiteral("CFBundleURLTypes"));
    const QVariantList typeList = types.toList();
    const QVariantMap parlo = info.value(QStringLiteral("parlo")).toMap();
    const bool ok = types.isValid() && !typeList.isEmpty()
        && typeList.last().toMap().contains(QStringLiteral("CFBundleURLSchemes"))
        && !typeList.last().toMap().value(QStringLiteral("CFBundleURLSchemes")).toList().value(0).isNull()
        && info.contains(QStringLiteral("parlo")) && parlo.contains(QStringLiteral("storeid"))
        && parlo.contains(QStringLiteral("url"));
    if (!ok) {
        qCInfo(lcParlo).noquote() << QStringLiteral("url scheme not found");
        return config;
    }
    config.works = true;
    config.scheme = typeList.last().toMap().value(QStringLiteral("CFBundleURLSchemes")).toList().value(0).toString();
    config.url = parlo.value(QStringLiteral("url")).toString();
    config.storeID = parlo.value(QStringLiteral("storeid")).toString();
    return config;
}
} // namespace

ParloURLScheme::ParloURLScheme(Parlo *facade, ParloTransport &transport, ParloRoomRequests &rooms)
    : m_facade(facade)
    , m_transport(transport)
    , m_rooms(rooms)
{
}

bool ParloURLScheme::isScehemeWorks() const { return readSchemeConfig().works; }

QString ParloURLScheme::urlType() const { return readSchemeConfig().scheme; }

QString ParloURLScheme::urlStringForScheme() const { return readSchemeConfig().url; }

QString ParloURLScheme::appIDOnStore() const { return readSchemeConfig().storeID; }

bool ParloURLScheme::open(const QUrl &openURL)
{
    if (openURL.host() != kIntegrateHost)
        return false;
    const QString path = openURL.path();
    const QStringList parts = path.split(QLatin1Char('/'));
    if (path.contains(QLatin1String("joinRoom")) && parts.size() == 3) {
        const QString roomID = parts[2];
        if (m_transport.connectStatus() != ParloConnectStatusConnected) {
            m_transport.appendToQueue([facade = QPointer<Parlo>(m_facade), rooms = &m_rooms, roomID] {
                if (facade)
                    rooms->joinRoomWithID(roomID);
            });
        } else {
            m_rooms.joinRoomWithID(roomID);
        }
    }
    // The join above starts whatever the scheme: the answer only tells whether the URL was ours.
    return openURL.scheme() == urlType();
}

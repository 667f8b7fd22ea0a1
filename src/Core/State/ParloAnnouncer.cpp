#include "ParloAnnouncer.h"

#include "IMClient.h"
#include "IMNotificationCenter.h"
#include "Parlo.h"
#include "ParloNotifications.h"

#include <QMutex>
#include <QSet>

namespace {
// Every live announcer, so that a delegate being destroyed can be cleared from each.
QMutex g_announcersMutex;
QSet<ParloAnnouncer *> g_announcers;

struct Entry {
    const QString &name;
    void (*call)(ParloDelegate *, const QVariant &);
};

// One row per announcement: its notification and its delegate call, in ParloAnnouncement's order.
const Entry &entry(ParloAnnouncement what)
{
    static const Entry table[] = {
        {kParloDidUpdateBadge,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidUpdateBadge(v.value<IMBadgePtr>()); }},
        {kParloDidReceiveMessage,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidReceiveMessage(v.value<IMMessagePtr>()); }},
        {kParloDidReceiveMessageFromOthers,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidReceiveMessageFromOthers(v.value<IMMessagePtr>()); }},
        {kParloDidUpdateRooms,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidUpdateRooms(v.value<QList<IMRoomPtr>>()); }},
        {kParloDidUpdateRoom, [](ParloDelegate *d, const QVariant &v) { d->ParloDidUpdateRoom(v.value<IMRoomPtr>()); }},
        {kParloDidChangeMessageSendingType,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidChangeMessageSendingType(v.value<IMMessagePtr>()); }},
        {kParloDidUpdateMessage,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidUpdateMessage(v.value<IMMessagePtr>()); }},
        {kParloDidJoinedWithRoom,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidJoinedWithRoom(v.value<IMRoomPtr>()); }},
        {kParloDidUpdateReadTimeWithRoom,
            [](ParloDelegate *d, const QVariant &v) { d->ParloDidUpdateReadTimeWithRoom(v.value<IMRoomPtr>()); }},
        {kParloDidChatIn, [](ParloDelegate *d, const QVariant &) { d->ParloDidChatIn(); }},
    };
    static_assert(sizeof(table) / sizeof(table[0]) == int(ParloAnnouncement::ChatIn) + 1, "one row per announcement");
    return table[int(what)];
}
} // namespace

ParloDelegate::~ParloDelegate() { ParloAnnouncer::forgetDelegate(this); }

void ParloDelegate::ParloDidChangeConnectStatus(int, const QString &) {}
void ParloDelegate::ParloDidUpdateBadge(const IMBadgePtr &) {}
void ParloDelegate::ParloDidReceiveMessage(const IMMessagePtr &) {}
void ParloDelegate::ParloDidReceiveMessageFromOthers(const IMMessagePtr &) {}
void ParloDelegate::ParloDidUpdateRooms(const QList<IMRoomPtr> &) {}
void ParloDelegate::ParloDidUpdateRoom(const IMRoomPtr &) {}
void ParloDelegate::ParloDidChangeMessageSendingType(const IMMessagePtr &) {}
void ParloDelegate::ParloDidUpdateMessage(const IMMessagePtr &) {}
void ParloDelegate::ParloDidJoinedWithRoom(const IMRoomPtr &) {}
void ParloDelegate::ParloDidUpdateReadTimeWithRoom(const IMRoomPtr &) {}
void ParloDelegate::ParloDidChatIn() {}
bool ParloDelegate::ParloWillStartLoadingMessageWithRoom(const IMRoomPtr &) { return true; }
void ParloDelegate::ParloDidEndLoadingMessageWithRoom(const IMRoomPtr &) {}

ParloAnnouncer::ParloAnnouncer(Parlo *)
{
    QMutexLocker lock(&g_announcersMutex);
    g_announcers.insert(this);
}

ParloAnnouncer::~ParloAnnouncer()
{
    QMutexLocker lock(&g_announcersMutex);
    g_announcers.remove(this);
}

void ParloAnnouncer::setDelegate(ParloDelegate *delegate)
{
    QMutexLocker lock(&g_announcersMutex);
    m_delegate = delegate;
}

void ParloAnnouncer::forgetDelegate(ParloDelegate *delegate)
{
    QMutexLocker lock(&g_announcersMutex);
    for (ParloAnnouncer *a : std::as_const(g_announcers)) {
        if (a->m_delegate == delegate)
            a->m_delegate = nullptr;
    }
}

void ParloAnnouncer::tell(ParloAnnouncement what, const QVariant &value)
{
    tellDelegate(what, value);
    post(what, value);
}

void ParloAnnouncer::tellDelegate(ParloAnnouncement what, const QVariant &value)
{
    if (ParloDelegate *delegate = m_delegate)
        entry(what).call(delegate, value);
}

void ParloAnnouncer::post(ParloAnnouncement what, const QVariant &value)
{
    postNotificationName(entry(what).name, value);
}

void ParloAnnouncer::postNotificationName(const QString &name, const QVariant &object)
{
    IMNotificationCenter::defaultCenter()->post(name, object, QVariantMap {{QStringLiteral("object"), object}});
}

void ParloAnnouncer::tellConnectStatus(int status, const QString &message)
{
    if (ParloDelegate *delegate = m_delegate)
        delegate->ParloDidChangeConnectStatus(status, message);
    const QVariantMap userInfo {{QStringLiteral("status"), status}, {QStringLiteral("message"), message}};
    IMNotificationCenter *center = IMNotificationCenter::defaultCenter();
    center->post(QStringLiteral("didChangeConnectStatus"), QVariant(), userInfo);
    center->post(kParloDidChangeConnectStatus, QVariant(), userInfo);
}

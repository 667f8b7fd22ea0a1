#include "Parlo_p.h"

#include "IMDB.h"
#include "IMNotificationCenter.h"
#include "IMUserDefaults.h"

#include <QCoreApplication>
#include <QMutex>
#include <QSet>
#include <mutex>

namespace {
// Every live facade, so that a delegate being destroyed can be cleared from each.
QMutex g_facadesMutex;
QSet<Parlo *> g_facades;
} // namespace

ParloDelegate::~ParloDelegate()
{
    Parlo::forgetDelegate(this);
}

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

Parlo *Parlo::shareInstance()
{
    static Parlo *instance = nullptr;
    static std::once_flag once;
    std::call_once(once, [] { instance = new Parlo; });
    return instance;
}

Parlo::Parlo(QObject *parent) : QObject(parent), d(new Private)
{
    qRegisterMetaType<IMError>();
    QMutexLocker lock(&g_facadesMutex);
    g_facades.insert(this);
}

Parlo::~Parlo()
{
    {
        QMutexLocker lock(&g_facadesMutex);
        g_facades.remove(this);
    }
    // Destroying the socket hands "NO ACK" to every pending acknowledgement; the transport
    // notices that the facade is going and fails those requests without retrying.
    d->socket.reset();
}

void Parlo::forgetDelegate(ParloDelegate *delegate)
{
    QMutexLocker lock(&g_facadesMutex);
    for (Parlo *p : std::as_const(g_facades)) {
        if (p->d->delegate == delegate)
            p->d->delegate = nullptr;
    }
}

Parlo::Block Parlo::onConnectBlock() const { return d->onConnectBlock; }
void Parlo::setOnConnectBlock(Block block) { d->onConnectBlock = std::move(block); }
Parlo::Block Parlo::createInstallationIfNeeded() const { return d->createInstallationIfNeeded; }
void Parlo::setCreateInstallationIfNeeded(Block block) { d->createInstallationIfNeeded = std::move(block); }
IMSocket *Parlo::socket() const { return d->socket.get(); }
bool Parlo::isDebuging() const { return d->isDebuging; }
void Parlo::setIsDebuging(bool on) { d->isDebuging = on; }
QString Parlo::domainString() const { return d->domainString; }
void Parlo::setDomainString(const QString &url) { d->domainString = url; }

QList<IMMessagePtr> &Parlo::sendingMessages()
{
    if (!d->sendingMessages)
        d->sendingMessages.emplace();
    return *d->sendingMessages;
}

int Parlo::failedSendingLimit() const { return d->failedSendingLimit; }
void Parlo::setFailedSendingLimit(int limit) { d->failedSendingLimit = limit; }

QList<Parlo::Block> &Parlo::queueArray()
{
    if (!d->queueArray)
        d->queueArray.emplace();
    return *d->queueArray;
}

bool Parlo::isPausedLoadingRoomData() const { return d->isPausedLoadingRoomData; }
void Parlo::setIsPausedLoadingRoomData(bool paused) { d->isPausedLoadingRoomData = paused; }
int Parlo::connectStatus() const { return d->connectStatus; }
void Parlo::setConnectStatus(int status) { d->connectStatus = status; }

QList<IMRoomPtr> &Parlo::chatRooms()
{
    if (!d->chatRooms) {
        d->chatRooms = IMDB::sharedInstance()->getAllRooms();
        d->storeMirror = *d->chatRooms;
    }
    return *d->chatRooms;
}

void Parlo::setChatRooms(const QList<IMRoomPtr> &rooms) { d->chatRooms = rooms; }
void Parlo::resetChatRooms() { d->chatRooms.reset(); }
QVariantList Parlo::messages() const { return d->messages; }
void Parlo::setMessages(const QVariantList &messages) { d->messages = messages; }

IMBadgePtr Parlo::badge()
{
    if (!d->badge)
        d->badge = std::make_shared<IMBadge>();
    return d->badge;
}

void Parlo::setBadge(const IMBadgePtr &badge) { d->badge = badge; }
ParloDelegate *Parlo::delegate() const { return d->delegate; }

void Parlo::setDelegate(ParloDelegate *delegate)
{
    QMutexLocker lock(&g_facadesMutex);
    d->delegate = delegate;
}

QString Parlo::token() const { return IMUserDefaults::standardUserDefaults()->token(); }
QString Parlo::clientID() const { return IMUserDefaults::standardUserDefaults()->clientID(); }
bool Parlo::firstTimeLaunch() const { return IMUserDefaults::standardUserDefaults()->firstTimeLaunch(); }
QString Parlo::deviceToken() const { return d->deviceToken; }
void Parlo::setDeviceToken(const QString &token) { d->deviceToken = token; }
int Parlo::roomCountLimit() const { return d->roomCountLimit; }
void Parlo::setRoomCountLimit(int limit) { d->roomCountLimit = limit; }
qint64 Parlo::timeout() const { return d->timeout; }
void Parlo::setTimeout(qint64 seconds) { d->timeout = seconds; }
QString Parlo::apiKey() const { return d->apiKey; }
void Parlo::setApiKey(const QString &key) { d->apiKey = key; }
QString Parlo::clientKey() const { return d->clientKey; }
void Parlo::setClientKey(const QString &key) { d->clientKey = key; }
bool Parlo::log() const { return d->log; }
void Parlo::setLog(bool on) { d->log = on; }
bool Parlo::printLog() const { return d->printLog; }
void Parlo::setPrintLog(bool on) { d->printLog = on; }
void Parlo::setSocketFactory(SocketFactory factory) { d->socketFactory = std::move(factory); }

void Parlo::postNotificationName(const QString &name, const QVariant &object)
{
    IMNotificationCenter::defaultCenter()->post(name, object, QVariantMap{{QStringLiteral("object"), object}});
}

void Parlo::announceBadge(const IMBadgePtr &badge)
{
    if (ParloDelegate *delegate = d->delegate)
        delegate->ParloDidUpdateBadge(badge);
    postNotificationName(kParloDidUpdateBadge, QVariant::fromValue(badge));
}

void Parlo::logDictionaryIfNeeded(const QVariantMap &record)
{
    if (d->log) {
        IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
        if (!settings->hasLog())
            settings->setLog(QVariantList());
        QVariantList log = settings->log();
        log.prepend(record);
        settings->setLog(log);
        settings->write();
    }
    if (d->printLog)
        qCInfo(lcParlo).noquote() << IMDescription(record);
}

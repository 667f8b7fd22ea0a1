// The facade's life and configuration; each member forwards to the owner of what it touches.
#include "Parlo_p.h"

#include "IMUserDefaults.h"

#include <mutex>

Parlo::Private::Private(Parlo *q)
    : announcer(q)
    , transport(q, logger, announcer)
    , rooms(announcer)
    , outbox(q, transport, announcer)
    , events(rooms, outbox, announcer, logger)
    , files(q, transport, logger)
    , session(q, transport, rooms, outbox, files, announcer, logger)
    , roomRequests(q, transport, rooms, logger)
    , messageRequests(q, transport, rooms, announcer, logger)
    , scheme(q, transport, roomRequests)
{
    transport.setRegistrar([this](IMSocket &socket) { events.attach(socket); });
    files.setChatIn([this](ClientSuccess success, Failure failure) {
        session.chatinHTTPSuccess(std::move(success), std::move(failure));
    });
}

Parlo *Parlo::shareInstance()
{
    static Parlo *instance = nullptr;
    static std::once_flag once;
    std::call_once(once, [] { instance = new Parlo; });
    return instance;
}

Parlo::Parlo(QObject *parent)
    : QObject(parent)
    , d(new Private(this))
{
    qRegisterMetaType<IMError>();
}

Parlo::~Parlo() { d->transport.close(); }

Parlo::Block Parlo::onConnectBlock() const { return d->transport.onConnectBlock(); }
void Parlo::setOnConnectBlock(Block block) { d->transport.setOnConnectBlock(std::move(block)); }
Parlo::Block Parlo::createInstallationIfNeeded() const { return d->createInstallationIfNeeded; }
void Parlo::setCreateInstallationIfNeeded(Block block) { d->createInstallationIfNeeded = std::move(block); }
IMSocket *Parlo::socket() const { return d->transport.socket(); }
bool Parlo::isDebuging() const { return d->isDebuging; }
void Parlo::setIsDebuging(bool on) { d->isDebuging = on; }
QString Parlo::domainString() const { return d->transport.domainString(); }
void Parlo::setDomainString(const QString &url) { d->transport.setDomainString(url); }
QList<IMMessagePtr> Parlo::sendingMessages() const { return d->outbox.sendingMessages(); }
int Parlo::failedSendingLimit() const { return d->outbox.failedSendingLimit(); }
void Parlo::setFailedSendingLimit(int limit) { d->outbox.setFailedSendingLimit(limit); }
QList<Parlo::Block> Parlo::queueArray() const { return d->transport.queueArray(); }
void Parlo::appendToQueue(Block block) { d->transport.appendToQueue(std::move(block)); }
bool Parlo::isPausedLoadingRoomData() const { return d->rooms.isPaused(); }
void Parlo::setIsPausedLoadingRoomData(bool paused) { d->rooms.setPaused(paused); }
int Parlo::connectStatus() const { return d->transport.connectStatus(); }
void Parlo::setConnectStatus(int status) { d->transport.setConnectStatus(status); }
QList<IMRoomPtr> Parlo::chatRooms() { return d->rooms.chatRooms(); }
void Parlo::setChatRooms(const QList<IMRoomPtr> &rooms) { d->rooms.setChatRooms(rooms); }
void Parlo::resetChatRooms() { d->rooms.reset(); }
QVariantList Parlo::messages() const { return d->messages; }
void Parlo::setMessages(const QVariantList &messages) { d->messages = messages; }
IMBadgePtr Parlo::badge() { return d->rooms.badge(); }
void Parlo::setBadge(const IMBadgePtr &badge) { d->rooms.setBadge(badge); }
ParloDelegate *Parlo::delegate() const { return d->announcer.delegate(); }
void Parlo::setDelegate(ParloDelegate *delegate) { d->announcer.setDelegate(delegate); }
QString Parlo::token() const { return IMUserDefaults::standardUserDefaults()->token(); }
QString Parlo::clientID() const { return IMUserDefaults::standardUserDefaults()->clientID(); }
bool Parlo::firstTimeLaunch() const { return IMUserDefaults::standardUserDefaults()->firstTimeLaunch(); }
QString Parlo::deviceToken() const { return d->session.deviceToken(); }
void Parlo::setDeviceToken(const QString &token) { d->session.setDeviceToken(token); }
int Parlo::roomCountLimit() const { return d->rooms.pageSize(); }
void Parlo::setRoomCountLimit(int limit) { d->rooms.setPageSize(limit); }
qint64 Parlo::timeout() const { return d->transport.timeout(); }
void Parlo::setTimeout(qint64 seconds) { d->transport.setTimeout(seconds); }
QString Parlo::apiKey() const { return d->transport.apiKey(); }
void Parlo::setApiKey(const QString &key) { d->transport.setApiKey(key); }
QString Parlo::clientKey() const { return d->transport.clientKey(); }
void Parlo::setClientKey(const QString &key) { d->transport.setClientKey(key); }
QString Parlo::identityToken() const { return d->session.identityToken(); }
void Parlo::setIdentityToken(const QString &token) { d->session.setIdentityToken(token); }
bool Parlo::log() const { return d->logger.log(); }
void Parlo::setLog(bool on) { d->logger.setLog(on); }
bool Parlo::printLog() const { return d->logger.printLog(); }
void Parlo::setPrintLog(bool on) { d->logger.setPrintLog(on); }
void Parlo::setSocketFactory(SocketFactory factory) { d->transport.setSocketFactory(std::move(factory)); }

void Parlo::postNotificationName(const QString &name, const QVariant &object)
{
    ParloAnnouncer::postNotificationName(name, object);
}

void Parlo::logDictionaryIfNeeded(const QVariantMap &record) { d->logger.logDictionaryIfNeeded(record); }

void Parlo::connectWithURL(const QString &url, const QVariantMap &options, Block onConnect)
{
    d->transport.connectWithURL(url, options, std::move(onConnect));
}

void Parlo::reconnect() { d->transport.reconnect(); }
void Parlo::didChangeConnectStatus(int status, const QVariantList &data)
{
    d->transport.didChangeConnectStatus(status, data);
}
QVariantMap Parlo::header() const { return d->transport.header(); }

void Parlo::emitWithMethod(uint method, const QVariantMap &item, Success success, Failure failure)
{
    d->transport.emitWithMethod(method, item, std::move(success), std::move(failure));
}

void Parlo::emitWithMethod(uint method, int counter, const QVariantMap &item, Success success, Failure failure)
{
    d->transport.emitWithMethod(method, counter, item, std::move(success), std::move(failure));
}

bool Parlo::isPostRetryListAPI(const QVariantMap &item) const { return d->transport.isPostRetryListAPI(item); }
void Parlo::execQueue() { d->transport.execQueue(); }

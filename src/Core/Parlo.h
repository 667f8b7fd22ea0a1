#pragma once

#include "IMBadge.h"
#include "IMError.h"
#include "IMMessage.h"
#include "IMRoom.h"
#include "IMSocket.h"
#include "ParloDelegate.h"
#include "ParloNotifications.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>

//! The one object through which a host application and the kit's screens reach the chat
//! service: configuration, the realtime connection, the shared state (rooms, badge, messages in
//! flight) and the announcements (delegate first, then a notification on
//! IMNotificationCenter::defaultCenter()). Use it from the main thread; its callbacks and
//! announcements run there unless a member says otherwise.
class Parlo : public QObject
{
    Q_OBJECT
public:
    using Block = std::function<void()>;
    //! Receives the body of a successful answer.
    using Success = std::function<void(const QVariant &body)>;
    //! Receives the error record of a failed request.
    using Failure = std::function<void(const IMError &error)>;
    //! Makes the realtime connection for a URL and options (the kit's IMSocketIOClient by default).
    using SocketFactory = std::function<IMSocket *(const QUrl &url, const QVariantMap &options)>;

    //! The process-wide facade, created on first use (thread-safe).
    static Parlo *shareInstance();
    //! A facade of its own; the kit and its screens use shareInstance(), tests may make more.
    explicit Parlo(QObject *parent = nullptr);
    //! Closes the connection; requests still pending fail with code 999.
    ~Parlo() override;

    // Configuration and state

    //! The block run when the connection reports "connect", before status 0 is announced.
    Block onConnectBlock() const;
    //! Sets the block run on "connect".
    void setOnConnectBlock(Block block);
    //! A host hook kept for compatibility; the kit never calls it.
    Block createInstallationIfNeeded() const;
    //! Sets the host hook kept for compatibility.
    void setCreateInstallationIfNeeded(Block block);
    //! The realtime connection made by connectWithURL (null before).
    IMSocket *socket() const;
    //! A flag kept for hosts; the kit never reads it.
    bool isDebuging() const;
    //! Sets the flag kept for hosts.
    void setIsDebuging(bool on);
    //! The server URL given to connectWithURL; the base of plain-HTTP addresses.
    QString domainString() const;
    //! Replaces the base of plain-HTTP addresses.
    void setDomainString(const QString &url);
    //! Messages sent from this device whose echo has not arrived yet (created empty on first use).
    QList<IMMessagePtr> &sendingMessages();
    //! Work waiting for chat-in, run in order by execQueue (created empty on first use).
    QList<Block> &queueArray();
    //! Whether keeping the room list up to date is paused.
    bool isPausedLoadingRoomData() const;
    //! Pauses or resumes keeping the room list up to date.
    void setIsPausedLoadingRoomData(bool paused);
    //! The connection status: 0 connected, 1 disconnected (initially), 2 error, 3 reconnected,
    //! 4 trying to reconnect, 5 reconnecting, 6 reconnection gave up.
    int connectStatus() const;
    //! Sets the connection status without announcing it.
    void setConnectStatus(int status);
    //! The room list, newest last message first; read from the local store on first use. The
    //! facade's operations write the rooms they change to the store; edits made to it or its
    //! rooms elsewhere are not written by themselves.
    QList<IMRoomPtr> &chatRooms();
    //! Replaces the room list.
    void setChatRooms(const QList<IMRoomPtr> &rooms);
    //! Drops the room list, so the next read loads it from the local store again.
    void resetChatRooms();
    //! A free list kept for hosts; the kit never reads it.
    QVariantList messages() const;
    //! Sets the free list kept for hosts.
    void setMessages(const QVariantList &messages);
    //! The badge counters (an empty record is created on first use).
    IMBadgePtr badge();
    //! Replaces the badge record; null makes the next read create an empty one.
    void setBadge(const IMBadgePtr &badge);
    //! The delegate, not owned (null when none).
    ParloDelegate *delegate() const;
    //! Sets the delegate; it stops being the delegate when destroyed.
    void setDelegate(ParloDelegate *delegate);
    //! The session token, read from the persisted settings on every call.
    QString token() const;
    //! The signed-in client's id, read from the persisted settings on every call.
    QString clientID() const;
    //! The persisted first-launch flag.
    bool firstTimeLaunch() const;
    //! The push-notification device token (null until set).
    QString deviceToken() const;
    //! Sets the push-notification device token.
    void setDeviceToken(const QString &token);
    //! Page size of room lists (25).
    int roomCountLimit() const;
    //! Sets the page size of room lists.
    void setRoomCountLimit(int limit);
    //! Seconds to wait for each acknowledgement (5).
    qint64 timeout() const;
    //! Sets the acknowledgement time-out in seconds.
    void setTimeout(qint64 seconds);
    //! The application key sent with every request; the host sets it.
    QString apiKey() const;
    //! Sets the application key.
    void setApiKey(const QString &key);
    //! The client key sent with every request; the host sets it.
    QString clientKey() const;
    //! Sets the client key.
    void setClientKey(const QString &key);
    //! Whether log records are kept in the persisted log, newest first (off).
    bool log() const;
    //! Turns the persisted log on or off.
    void setLog(bool on);
    //! Whether log records are printed to the console (off).
    bool printLog() const;
    //! Turns printing of log records on or off.
    void setPrintLog(bool on);
    //! Replaces how connectWithURL makes the realtime connection (null restores the default).
    void setSocketFactory(SocketFactory factory);

    //! Posts `name` with `object`, which is also put under "object" in the user info.
    void postNotificationName(const QString &name, const QVariant &object);
    //! Keeps `record` in the persisted log when `log` is on and prints it when `printLog` is on.
    void logDictionaryIfNeeded(const QVariantMap &record);

    // Realtime connection

    //! Creates the connection to `url` with `options` (passed through to the socket), registers
    //! the life-event and pushed-event handlers, connects and keeps `url` as domainString.
    void connectWithURL(const QString &url, const QVariantMap &options, Block onConnect);
    //! Announces status `status` with the event's arguments: delegate, then "didChangeConnectStatus"
    //! and "ParloDidChangeConnectStatus" with user info {"status", "message"}.
    void didChangeConnectStatus(int status, const QVariantList &data);

    // Request transport

    //! The request headers: apiKey, clientKey, clientID and token ("" when none is stored).
    QVariantMap header() const;
    //! Sends a virtual request: method 0 "get", 1 "post", 2 "put", 3 "delete"; `item` is the
    //! envelope {"url", "headers", "data"}. Not connected: `failure` at once on the caller's
    //! thread with code 400. Otherwise exactly one of the blocks runs later on the main queue:
    //! success with the answer's body, or failure (999 no acknowledgement, or the server's status).
    void emitWithMethod(uint method, const QVariantMap &item, Success success, Failure failure);
    //! One attempt of a request; `counter` counts the attempts made before it (0 for the first).
    void emitWithMethod(uint method, int counter, const QVariantMap &item, Success success, Failure failure);
    //! Whether a post with this envelope may be retried ("/client/chatin/" and "/client/").
    bool isPostRetryListAPI(const QVariantMap &item) const;
    //! Runs the work of queueArray in order on the calling thread and empties it.
    void execQueue();

    // Session and account (ParloSession.cpp)

    // Rooms (ParloRooms.cpp)

    // Messages (ParloMessages.cpp)

    // URL scheme (ParloScheme.cpp)

    // Files and the file cache (ParloFiles.cpp)

private:
    friend class ParloDelegate;
    void onDefaultEvents();
    void onEvents();
    void handleMessage(const QVariantList &data);
    void handleMessageUpdate(const QVariantList &data);
    void handleJoined(const QVariantList &data);
    void handleReceive(const QVariantList &data);
    void handleRoomDidUpdate(const QVariantList &data);
    void reloadRoomsSaving(const QList<IMRoomPtr> &rooms);
    bool saveMovedRoom(const IMRoomPtr &moved);
    static void forgetDelegate(ParloDelegate *delegate);

    // Session, rooms, messages and URL scheme internals

    // Files internals

    struct Private;
    std::unique_ptr<Private> d;
};

Q_DECLARE_METATYPE(QList<IMRoomPtr>)

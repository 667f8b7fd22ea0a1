#pragma once

// The realtime connection and the request transport: virtual HTTP requests carried as
// Socket.IO events with acknowledgements, retried where that is safe.

#include "Parlo.h"

#include <QMutex>
#include <QPointer>
#include <atomic>
#include <memory>

class ParloAnnouncer;
class ParloLogger;

//! Owns the connection (its socket, URL, options and status), the request settings (keys,
//! acknowledgement time-out) and the queue of work waiting for chat-in. Requests may be sent
//! from any thread: the socket and the time-out are handed over under a lock.
class ParloTransport {
public:
    using Block = Parlo::Block;
    using Success = Parlo::Success;
    using Failure = Parlo::Failure;
    //! Registers the pushed-event handlers on a new socket.
    using Registrar = std::function<void(IMSocket &socket)>;

    ParloTransport(Parlo *facade, ParloLogger &logger, ParloAnnouncer &announcer);
    //! Closes the connection: requests still pending fail.
    ~ParloTransport();

    //! Replaces the connection with one to `url`, registering the life events and, through
    //! `registrar`, the pushed events; keeps `url` as domainString.
    void connectWithURL(const QString &url, const QVariantMap &options, Block onConnect);
    //! Drops the connection and opens it anew (nothing before connectWithURL).
    void reconnect();
    //! Drops the connection for good (the facade's end).
    void close();
    //! Sets who registers the pushed events on each new socket.
    void setRegistrar(Registrar registrar) { m_registrar = std::move(registrar); }
    //! Replaces how the socket is made (null restores the Socket.IO client).
    void setSocketFactory(Parlo::SocketFactory factory) { m_socketFactory = std::move(factory); }
    //! The current socket (null before connectWithURL); main thread.
    IMSocket *socket() const;
    //! Whether the connection is up now; any thread.
    bool isConnected() const;

    int connectStatus() const { return m_connectStatus; }
    void setConnectStatus(int status) { m_connectStatus = status; }
    //! Sets the status and tells it (delegate, then both notifications).
    void didChangeConnectStatus(int status, const QVariantList &data);
    Block onConnectBlock() const { return m_onConnect; }
    void setOnConnectBlock(Block block) { m_onConnect = std::move(block); }
    QString domainString() const { return m_domainString; }
    void setDomainString(const QString &url) { m_domainString = url; }
    //! The connection option "selfSigned": plain HTTP honours it too.
    bool selfSigned() const { return m_selfSigned; }

    QString apiKey() const { return m_apiKey; }
    void setApiKey(const QString &key) { m_apiKey = key; }
    QString clientKey() const { return m_clientKey; }
    void setClientKey(const QString &key) { m_clientKey = key; }
    qint64 timeout() const { return m_timeout; }
    void setTimeout(qint64 seconds) { m_timeout = seconds; }

    //! The four request headers.
    QVariantMap header() const;
    //! Whether a post with this envelope may be retried.
    bool isPostRetryListAPI(const QVariantMap &item) const;
    //! Sends a request: "not connected" fails at once on the caller's thread, otherwise one
    //! block runs later on the main queue. Any thread.
    void emitWithMethod(uint method, const QVariantMap &item, Success success, Failure failure);
    //! One attempt; `counter` counts the attempts before it. Any thread.
    void emitWithMethod(uint method, int counter, const QVariantMap &item, Success success, Failure failure);
    //! Sends once on the connection as it is, without a check or a retry: `done` gets the
    //! acknowledgement's items (["NO ACK"] when none came). False when there is no socket.
    bool emitOnce(uint method, const QVariantMap &item, IMSocket::AckCallback done);

    //! The work waiting for chat-in.
    QList<Block> queueArray() const { return m_queue; }
    //! Adds work to run at the next chat-in.
    void appendToQueue(Block block) { m_queue.append(std::move(block)); }
    //! Runs the waiting work in order and empties the queue.
    void execQueue();

private:
    void onLifeEvents(IMSocket &socket);
    std::shared_ptr<IMSocket> currentSocket() const;

    Parlo *m_facade;
    ParloLogger &m_logger;
    ParloAnnouncer &m_announcer;
    Registrar m_registrar;
    Parlo::SocketFactory m_socketFactory;
    //! The socket, read by requests on other threads: always copied out under the lock, and
    //! destroyed on the main thread whoever drops it last.
    mutable QMutex m_socketMutex;
    std::shared_ptr<IMSocket> m_socket;
    Block m_onConnect;
    QString m_domainString;
    bool m_selfSigned = false;
    int m_connectStatus = ParloConnectStatusDisconnected;
    QString m_apiKey;
    QString m_clientKey;
    std::atomic<qint64> m_timeout {5};
    QList<Block> m_queue;
};

#pragma once

#include "IMEngineIOConfig.h"
#include "IMEngineIOPacket.h"

#include <QObject>

//! A way to carry Engine.IO packets (long-polling or WebSocket). Lives on the engine's thread.
//! After `close` or `abandon` it emits nothing more.
class IMEngineIOTransport : public QObject {
    Q_OBJECT
public:
    IMEngineIOTransport(const IMEngineIOConfig &config, QObject *parent)
        : QObject(parent)
        , m_config(config)
    {
    }

    //! "polling" or "websocket".
    virtual QString name() const = 0;
    //! Starts the transport for session `sid` (empty: the first packet will be the open packet).
    virtual void open(const QString &sid) = 0;
    //! Sets the session id once the handshake named it.
    virtual void setSid(const QString &sid) = 0;
    //! Sends `packets` in order (queued while a request is under way).
    virtual void send(const QList<IMEngineIOPacket> &packets) = 0;
    //! Ends the session politely (a close packet on polling, a close frame on WebSocket), then
    //! deletes itself once that is done.
    virtual void close() = 0;
    //! Stops and deletes itself without telling the server (the session moved elsewhere).
    virtual void abandon() = 0;

signals:
    //! The WebSocket handshake completed (polling: never emitted; its first response is the data).
    void opened();
    //! Packets arrived, in order.
    void packetsReceived(const QList<IMEngineIOPacket> &packets);
    //! The transport failed or the server closed it; `error` says why.
    void failed(const QString &error);

protected:
    IMEngineIOConfig m_config;
};

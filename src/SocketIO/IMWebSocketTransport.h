#pragma once

#include "IMEngineIOTransport.h"

#include <QPointer>

class QWebSocket;

//! Engine.IO over one WebSocket: one packet per frame.
class IMWebSocketTransport : public IMEngineIOTransport
{
    Q_OBJECT
public:
    IMWebSocketTransport(const IMEngineIOConfig &config, QObject *parent);
    ~IMWebSocketTransport() override;

    QString name() const override { return QStringLiteral("websocket"); }
    void open(const QString &sid) override;
    void setSid(const QString &) override {}
    void send(const QList<IMEngineIOPacket> &packets) override;
    void close() override;
    void abandon() override;

private:
    void finish();
    QWebSocket *m_socket = nullptr;
    bool m_done = false;
};

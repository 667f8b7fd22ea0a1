#pragma once

#include "IMEngineIOTransport.h"

#include <QPointer>
#include <functional>

class QNetworkReply;

//! Engine.IO over HTTP long-polling: one GET waiting for data and at most one POST carrying
//! queued packets at any time.
class IMPollingTransport : public IMEngineIOTransport {
    Q_OBJECT
public:
    IMPollingTransport(const IMEngineIOConfig &config, QObject *parent);
    ~IMPollingTransport() override;

    QString name() const override { return QStringLiteral("polling"); }
    void open(const QString &sid) override;
    void setSid(const QString &sid) override { m_sid = sid; }
    void send(const QList<IMEngineIOPacket> &packets) override;
    void close() override;
    void abandon() override;
    //! Stops polling once the requests under way (and the queued packets) are done, then calls
    //! `done`; used while upgrading to WebSocket.
    void pause(std::function<void()> done);

private:
    void poll();
    void flush();
    void onPollFinished();
    void onPostFinished();
    void checkPaused();
    QString httpError(QNetworkReply *reply, const QByteArray &body) const;

    QString m_sid;
    // Replies belong to the network access manager, which may delete them first.
    QPointer<QNetworkReply> m_get;
    QPointer<QNetworkReply> m_post;
    QList<IMEngineIOPacket> m_queue;
    std::function<void()> m_pauseDone;
    bool m_paused = false;
    bool m_done = false;
};

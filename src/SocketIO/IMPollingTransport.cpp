#include "IMPollingTransport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTimer>

IMPollingTransport::IMPollingTransport(const IMEngineIOConfig &config, QObject *parent)
    : IMEngineIOTransport(config, parent)
{
}

IMPollingTransport::~IMPollingTransport()
{
    for (QNetworkReply *r : {m_get.data(), m_post.data()}) {
        if (r) {
            r->disconnect(this);
            r->abort();
            r->deleteLater();
        }
    }
}

void IMPollingTransport::open(const QString &sid)
{
    m_sid = sid;
    poll();
}

void IMPollingTransport::poll()
{
    if (m_done || m_paused || m_get)
        return;
    m_get = m_config.nam->get(m_config.request(m_config.transportUrl(name(), m_sid)));
    connect(m_get, &QNetworkReply::finished, this, &IMPollingTransport::onPollFinished);
}

QString IMPollingTransport::httpError(QNetworkReply *reply, const QByteArray &body) const
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    QString text = QStringLiteral("transport error: ");
    if (status > 0) {
        text += QStringLiteral("HTTP %1").arg(status);
        const QJsonObject o = QJsonDocument::fromJson(body).object();
        if (o.contains(QStringLiteral("message")))
            text += QStringLiteral(" (code %1: %2)")
                        .arg(o.value(QStringLiteral("code")).toInt())
                        .arg(o.value(QStringLiteral("message")).toString());
    } else {
        text += reply->errorString();
    }
    return text;
}

void IMPollingTransport::onPollFinished()
{
    QNetworkReply *reply = m_get;
    m_get = nullptr;
    reply->deleteLater();
    if (m_done)
        return;
    const QByteArray body = reply->readAll();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (reply->error() != QNetworkReply::NoError || status != 200) {
        m_done = true;
        emit failed(httpError(reply, body));
        return;
    }
    if (m_config.maxPayload > 0 && body.size() > m_config.maxPayload) {
        m_done = true;
        emit failed(QStringLiteral("parse error: payload larger than maxPayload"));
        return;
    }
    QList<IMEngineIOPacket> packets;
    QString error;
    if (!IMEngineIOPacket::decodePayload(body, m_config.eio, &packets, &error)) {
        m_done = true;
        emit failed(QStringLiteral("parse error: ") + error);
        return;
    }
    QPointer<IMPollingTransport> self(this);
    emit packetsReceived(packets);
    if (!self || m_done)
        return;
    // A session ends with a close packet: do not poll a dead session.
    for (const IMEngineIOPacket &p : packets)
        if (p.type == IMEngineIOPacket::Close)
            return;
    if (m_paused)
        checkPaused();
    else
        poll();
}

void IMPollingTransport::send(const QList<IMEngineIOPacket> &packets)
{
    if (m_done)
        return;
    m_queue.append(packets);
    flush();
}

void IMPollingTransport::flush()
{
    if (m_done || m_post || m_queue.isEmpty() || m_sid.isEmpty())
        return;
    const QByteArray body = IMEngineIOPacket::encodePayload(m_queue, m_config.eio);
    m_queue.clear();
    m_post = m_config.nam->post(m_config.request(m_config.transportUrl(name(), m_sid)), body);
    connect(m_post, &QNetworkReply::finished, this, &IMPollingTransport::onPostFinished);
}

void IMPollingTransport::onPostFinished()
{
    QNetworkReply *reply = m_post;
    m_post = nullptr;
    reply->deleteLater();
    if (m_done)
        return;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (reply->error() != QNetworkReply::NoError || status != 200) {
        m_done = true;
        emit failed(httpError(reply, reply->readAll()));
        return;
    }
    flush();
    if (m_paused)
        checkPaused();
}

void IMPollingTransport::pause(std::function<void()> done)
{
    m_paused = true;
    m_pauseDone = std::move(done);
    flush();
    checkPaused();
}

void IMPollingTransport::checkPaused()
{
    if (!m_paused || m_get || m_post || !m_queue.isEmpty() || !m_pauseDone)
        return;
    auto done = std::move(m_pauseDone);
    m_pauseDone = nullptr;
    done();
}

void IMPollingTransport::close()
{
    if (m_done)
        return;
    m_done = true;
    if (m_get) {
        m_get->disconnect(this);
        m_get->abort();
        m_get->deleteLater();
        m_get = nullptr;
    }
    if (m_sid.isEmpty()) {
        deleteLater();
        return;
    }
    // The close packet follows whatever is still queued; the POST under way finishes first.
    m_queue.append(IMEngineIOPacket::makeText(IMEngineIOPacket::Close));
    const QByteArray body = IMEngineIOPacket::encodePayload(m_queue, m_config.eio);
    m_queue.clear();
    QNetworkReply *reply = m_config.nam->post(m_config.request(m_config.transportUrl(name(), m_sid)), body);
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    connect(reply, &QNetworkReply::finished, this, &QObject::deleteLater);
    QTimer::singleShot(2000, this, &QObject::deleteLater);
}

void IMPollingTransport::abandon()
{
    m_done = true;
    deleteLater();
}

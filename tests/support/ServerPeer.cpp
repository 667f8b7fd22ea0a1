#include "ServerPeer.h"
#include "IMLog.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

ServerPeer::ServerPeer(const QString &url, const QString &apiKey, const QString &clientKey)
    : socket(QUrl(url), {})
    , apiKey(apiKey)
    , clientKey(clientKey)
{
    for (const char *event : {"message", "didUpdateMessage", "joined", "receive", "roomDidUpadte"}) {
        const QString name = QString::fromLatin1(event);
        socket.on(name, [this, name](const QVariantList &items, const IMSocket::AckEmitter &) {
            pushes[name].append(items.value(0).toMap());
        });
    }
}

bool ServerPeer::connect()
{
    socket.connect();
    return waitUntil([&] { return socket.status() == IMSocket::Status::Connected; }, 10000);
}

QVariantMap ServerPeer::request(const QString &method, const QString &url, const QVariantMap &data)
{
    QVariantMap envelope {{"url", url},
        {"headers",
            QVariantMap {{"apiKey", apiKey}, {"clientKey", clientKey}, {"clientID", clientID}, {"token", token}}}};
    if (!data.isEmpty())
        envelope["data"] = data;
    QVariantMap answer;
    bool done = false;
    socket.emitWithAck(method, {envelope}, 10, [&](const QVariantList &items) {
        answer = items.value(0).toMap();
        done = true;
    });
    waitUntil([&] { return done; }, 12000);
    return answer;
}

QVariantMap ServerPeer::ok(const QString &method, const QString &url, const QVariantMap &data)
{
    const QVariantMap answer = request(method, url, data);
    EXPECT_EQ(answer.value("statusCode").toInt(), 200)
        << url.toStdString() << " " << IMDescription(answer).toStdString();
    return answer.value("body").toMap();
}

bool ServerPeer::signUp(const QString &id)
{
    if (socket.status() != IMSocket::Status::Connected && !connect())
        return false;
    clientID = id;
    const QVariantMap answer = request("post", "/client/", {{"clientID", id}, {"username", id}});
    token = answer.value("body").toMap().value("token").toString();
    return answer.value("statusCode").toInt() == 200 && !token.isEmpty();
}

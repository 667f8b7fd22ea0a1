// Shared pieces of the live tests: the Node peer (tests/node/peer.js) and a recorder of the
// events a client delivers.
#pragma once

#include "IMLog.h"
#include "IMSocketIOClient.h"
#include "NodeProcess.h"
#include "QtPrinters.h"
#include "TestUtil.h"

#include <QDir>
#include <QProcess>
#include <QStringList>
#include <gtest/gtest.h>
#include <memory>

//! Starts the peer with `args`; the calling test fails when it does not start.
inline std::unique_ptr<NodeProcess> startPeer(const QStringList &args = {})
{
    auto peer = std::make_unique<NodeProcess>(QStringLiteral(PARLO_SOURCE_DIR "/tests/node/peer.js"), args);
    if (!peer->start())
        ADD_FAILURE() << "peer did not start: " << peer->errorText().toStdString();
    return peer;
}

inline QUrl peerUrl(const NodeProcess &peer, const QString &scheme = QStringLiteral("http"))
{
    return QUrl(QStringLiteral("%1://127.0.0.1:%2").arg(scheme).arg(peer.port()));
}

//! Records every event a client delivers, in order, with its items.
struct EventLog {
    QStringList names;
    QList<QVariantList> items;

    EventLog() = default;
    explicit EventLog(IMSocketIOClient &client) { attach(client); }
    void attach(IMSocketIOClient &client)
    {
        client.onAny([this](const QString &event, const QVariantList &list) {
            names.append(event);
            items.append(list);
        });
    }
    int count(const QString &name) const { return int(names.count(name)); }
    QVariantList last(const QString &name) const
    {
        for (int i = int(names.size()) - 1; i >= 0; --i)
            if (names.at(i) == name)
                return items.at(i);
        return {};
    }
    //! Only the life events, in order.
    QStringList lifeEvents() const
    {
        static const QStringList life
            = {"connect", "disconnect", "error", "reconnect", "reconnectAttempt", "reconnecting", "reconnectfailed"};
        QStringList out;
        for (const QString &n : names)
            if (life.contains(n))
                out.append(n);
        return out;
    }
};

//! Waits for the client to be connected.
inline bool waitConnected(IMSocketIOClient &client, int ms = 8000)
{
    return waitUntil([&] { return client.status() == IMSocket::Status::Connected; }, ms);
}

//! Connects the client and waits until it is.
inline bool connectAndWait(IMSocketIOClient &client, int ms = 8000)
{
    client.connect();
    return waitConnected(client, ms);
}

//! Sends `event` with `items` and waits for the answer (["NO ACK"] on time-out).
inline QVariantList call(IMSocketIOClient &client, const QString &event, const QVariantList &items, double timeout = 5)
{
    auto answers = std::make_shared<QList<QVariantList>>();
    client.emitWithAck(event, items, timeout, [answers](const QVariantList &a) { answers->append(a); });
    waitUntil([&] { return !answers->isEmpty(); }, int(timeout * 1000) + 3000);
    EXPECT_EQ(answers->size(), 1);
    return answers->value(0);
}

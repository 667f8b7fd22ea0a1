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

inline QString peerScript()
{
    return QStringLiteral(PARLO_SOURCE_DIR "/tests/node/peer.js");
}

//! Starts the peer with `args`; skips the calling test when Node or its packages are missing.
inline std::unique_ptr<NodeProcess> startPeer(const QStringList &args = {})
{
    auto peer = std::make_unique<NodeProcess>(peerScript(), args);
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
        static const QStringList life = {"connect",      "disconnect",         "error",          "reconnect",
                                         "reconnectAttempt", "reconnecting", "reconnectfailed"};
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

//! Sends `event` with `items` and waits for the answer (["NO ACK"] on time-out).
inline QVariantList call(IMSocketIOClient &client, const QString &event, const QVariantList &items,
                         double timeout = 5)
{
    struct State {
        QVariantList answer;
        int calls = 0;
    };
    auto state = std::make_shared<State>();
    client.emitWithAck(event, items, timeout, [state](const QVariantList &a) {
        state->answer = a;
        ++state->calls;
    });
    waitUntil([&] { return state->calls > 0; }, int(timeout * 1000) + 3000);
    EXPECT_EQ(state->calls, 1);
    return state->answer;
}

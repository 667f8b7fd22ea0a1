#pragma once

// The facade against the reference server, started by the fixture for each test, and a second
// user of the server driven by the test.

#include "CoreFixture.h"
#include "IMSocketIOClient.h"
#include "NodeProcess.h"
#include "ServerPeer.h"

#include <QJsonDocument>
#include <atomic>

inline const QString kLiveApiKey = QStringLiteral("live-api");
//! The client the server lets take rooms that ask for an agent.
inline const QString kLiveAgentID = QStringLiteral("agent");
inline const QString kLiveClientKey = QStringLiteral("live-client");

//! Another user of the server, with the live keys.
class Peer : public ServerPeer {
public:
    explicit Peer(const QString &url)
        : ServerPeer(url, kLiveApiKey, kLiveClientKey)
    {
    }
};

//! The kit's client whose acknowledgement time-outs run for `timeScale` of the asked time, so that
//! a test sees the facade's whole-second time-outs and retries without waiting seconds.
class QuickAckClient : public IMSocketIOClient {
public:
    using IMSocketIOClient::IMSocketIOClient;
    void emitWithAck(
        const QString &event, const QVariantList &items, double timeoutSeconds, AckCallback callback) override
    {
        IMSocketIOClient::emitWithAck(event, items, timeoutSeconds * timeScale, std::move(callback));
    }
    static inline std::atomic<double> timeScale {1.0};
};

class LiveCoreTest : public CoreTest {
protected:
    void SetUp() override;
    void TearDown() override;

    //! Connects the facade and signs it up and in as `id` through its transport, as a host would.
    void signInFacade(const QString &id);
    //! Signs up as `id` on the connected facade and makes it the current client.
    void signUpAs(const QString &id);
    //! Another user of the server, connected and signed up on first use.
    Peer &signedInPeer();
    //! Connects the facade with `options` and waits for status 0.
    bool connectFacade(const QVariantMap &options = {});
    //! A request through the facade's transport; fails the test on a failure.
    QVariant call(uint method, const QString &path, const QVariantMap &data = {});
    //! The listed room `id` (null when not listed).
    IMRoomPtr listed(const QString &id, Parlo *facade = nullptr);
    //! A plain-HTTP JSON request to the server's test-control routes; the answer's JSON.
    QVariant control(const QByteArray &method, const QString &path, const QVariantMap &body = {});
    //! Adds a fault rule to the server (see the server's "/__control/faults" route).
    void fault(const QVariantMap &rule)
    {
        ASSERT_TRUE(control("POST", "/__control/faults", rule).toMap().contains("id"));
    }
    //! How often the server's first fault rule has applied.
    int faultHits() { return control("GET", "/__control/faults").toList().value(0).toMap().value("hits").toInt(); }
    //! The server drops the answers of requests matching `rule`, and from now on the facade waits
    //! a second for an acknowledgement, run at a tenth of its time.
    void dropAnswers(const QVariantMap &rule)
    {
        fault(rule);
        parlo->setTimeout(1);
        QuickAckClient::timeScale = 0.1;
    }
    //! A unique client id starting with `prefix`.
    static QString uniqueID(const QString &prefix);

    std::unique_ptr<NodeProcess> server;
    std::unique_ptr<Peer> peer_;
    QString url;
};

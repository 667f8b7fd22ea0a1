#pragma once

#include "IMDB.h"
#include "IMDispatch.h"
#include "IMLog.h"
#include "IMNotificationCenter.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "Outcome.h"
#include "Parlo.h"
#include "QtPrinters.h"
#include "ScriptedSocket.h"
#include "TestUtil.h"

#include <QStringList>
#include <QTcpServer>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

//! Records every delegate call and every facade notification, in order, as "d:Name" / "n:Name".
//! Page loads are allowed while `allowLoading`.
class Recorder : public ParloDelegate {
public:
    Recorder();
    ~Recorder() override;
    QStringList events;
    QList<IMNotification> notifications;
    bool allowLoading = true;

    void ParloDidChangeConnectStatus(int status, const QString &message) override;
    void ParloDidUpdateBadge(const IMBadgePtr &) override { events << "d:UpdateBadge"; }
    void ParloDidReceiveMessage(const IMMessagePtr &) override { events << "d:ReceiveMessage"; }
    void ParloDidReceiveMessageFromOthers(const IMMessagePtr &) override { events << "d:ReceiveMessageFromOthers"; }
    void ParloDidUpdateRooms(const QList<IMRoomPtr> &) override { events << "d:UpdateRooms"; }
    void ParloDidUpdateRoom(const IMRoomPtr &) override { events << "d:UpdateRoom"; }
    void ParloDidChangeMessageSendingType(const IMMessagePtr &) override { events << "d:ChangeMessageSendingType"; }
    void ParloDidUpdateMessage(const IMMessagePtr &) override { events << "d:UpdateMessage"; }
    void ParloDidJoinedWithRoom(const IMRoomPtr &) override { events << "d:JoinedWithRoom"; }
    void ParloDidUpdateReadTimeWithRoom(const IMRoomPtr &) override { events << "d:UpdateReadTimeWithRoom"; }
    void ParloDidChatIn() override { events << "d:ChatIn"; }
    bool ParloWillStartLoadingMessageWithRoom(const IMRoomPtr &) override
    {
        events << "d:WillStartLoading";
        return allowLoading;
    }
    void ParloDidEndLoadingMessageWithRoom(const IMRoomPtr &) override { events << "d:DidEndLoading"; }

    //! The notifications named `name`, in order.
    QList<IMNotification> named(const QString &name) const;

private:
    IMNotificationCenter::Token m_token;
};

//! A facade on a scripted socket, with the store and the settings in a fresh temporary folder.
class CoreTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;
    //! Connects the facade through the scripted socket and marks it connected.
    void connectScripted();

    std::unique_ptr<Parlo> parlo;
    ScriptedSocket *socket = nullptr;
    Recorder recorder;
};

//! Waits for `o`'s end: one success, on the main thread, after the call returned.
template <typename T>::testing::AssertionResult succeedsOnce(Outcome<T> &o, int ms = 20000)
{
    if (o.wait(ms) && o.oneAsyncSuccess())
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << o.successes << " successes, " << o.failures << " failures, off main "
                                         << o.offMain << ", synchronous " << o.synchronous << ", error "
                                         << o.error.description().toStdString();
}
//! Waits for `o`'s end: one failure with `code`, on the main thread, after the call returned.
template <typename T>::testing::AssertionResult failsOnceWith(Outcome<T> &o, int code, int ms = 20000)
{
    if (!o.wait(ms))
        return ::testing::AssertionFailure() << "no end within " << ms << " ms";
    return o.failedOnceWith(code);
}

//! A local HTTP server (HTTPS with the self-signed test certificate when `tls`) that answers each
//! whole request with `answer(request)` and closes the connection.
class LocalHttpServer {
public:
    explicit LocalHttpServer(std::function<QByteArray(const QByteArray &request)> answer, bool tls = false);
    QString url() const;

private:
    std::function<QByteArray(const QByteArray &)> m_answer;
    std::unique_ptr<QTcpServer> m_server;
    bool m_tls;
};

//! A room dictionary with an id, a name and a last message time.
QVariantMap roomDict(const QString &id, const QString &lastMessageTime);
//! A message dictionary from `senderID`, in room `roomID` whose last message time is `createdAt`.
QVariantMap messageDict(
    const QString &id, const QString &roomID, const QString &senderID, qint64 idFromSender, const QString &createdAt);
//! The texts of the persisted log, newest first.
QStringList logLines();
//! The ids of `rooms`, in order.
QStringList idsOf(const QList<IMRoomPtr> &rooms);
//! Saves rooms {id, last message time} to the store, as a previous session would have.
void storeRooms(const QList<QPair<QString, QString>> &rooms);

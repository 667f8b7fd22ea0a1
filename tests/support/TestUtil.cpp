#include "TestUtil.h"
#include "IMClient.h"
#include "NodeProcess.h"
#include "Parlo.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

bool waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return done();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(1);
    }
    return true;
}

void spinFor(int ms)
{
    QDeadlineTimer deadline(ms);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
}

QString makeTempDir()
{
    static std::vector<std::unique_ptr<QTemporaryDir>> dirs;
    dirs.push_back(std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/parlo-test-XXXXXX")));
    return dirs.back()->path();
}

std::unique_ptr<NodeProcess> startReferenceServer(const QStringList &arguments)
{
    auto server = std::make_unique<NodeProcess>(QStringLiteral(PARLO_SOURCE_DIR "/server/index.js"),
        QStringList {"--port", "0"} + arguments,
        QRegularExpression(QStringLiteral("^parlo-server listening on \\S+:(\\d+)$")));
    EXPECT_TRUE(server->start()) << server->errorText().toStdString();
    return server;
}

bool signInAs(Parlo *parlo, const QString &url, const QString &id)
{
    parlo->connectWithURL(url, {}, [] {});
    if (!waitUntil([&] { return parlo->connectStatus() == 0; }, 10000)) {
        ADD_FAILURE() << "no connection to " << url.toStdString();
        return false;
    }
    auto me = std::make_shared<IMClient>();
    me->setClientID(id);
    me->setUsername(id);
    bool chattedIn = false;
    const auto failed = [](const IMError &e) { ADD_FAILURE() << e.description().toStdString(); };
    parlo->signWithClient(
        me,
        [&, parlo, failed](
            const IMClientPtr &) { parlo->chatinSuccess([&](const IMClientPtr &) { chattedIn = true; }, failed); },
        failed);
    return waitUntil([&] { return chattedIn; }, 15000);
}

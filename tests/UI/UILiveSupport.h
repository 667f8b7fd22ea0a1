#pragma once

// The screens against the reference server: the shared facade signed in as one user (the screens
// use the shared facade), another user of the server driven by the test over its own socket.
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

#include "IMSocketIOClient.h"
#include "NodeProcess.h"

//! Another user of the server: virtual requests over a socket of its own.
class UIPeer
{
public:
    explicit UIPeer(const QString &url);
    //! Connects and signs up as `id`.
    bool signUp(const QString &id);
    //! A request that must answer 200; its body (the test fails otherwise).
    QVariant ok(const QString &method, const QString &path, const QVariantMap &data = {});

    IMSocketIOClient socket;
    QString clientID;
    QString token;
};

class UILiveTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
    //! Connects the shared facade and signs it up and in as `id`, as a host does.
    void signIn(const QString &id);

    QTemporaryDir dir;
    std::unique_ptr<NodeProcess> server;
    QString url;
};

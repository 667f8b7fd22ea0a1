#pragma once

// The screens against the reference server: the shared facade signed in as one user (the screens
// use the shared facade), another user of the server driven by the test over its own socket.
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

#include "NodeProcess.h"
#include "ServerPeer.h"
#include "UITestSupport.h"

//! Another user of the server, with the screens' keys.
class UIPeer : public ServerPeer {
public:
    explicit UIPeer(const QString &url);
};

class UILiveTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
    //! Connects the shared facade and signs it up and in as `id`, as a host does.
    void signIn(const QString &id);

    QTemporaryDir dir;
    SettingsInDir settings{ dir };
    std::unique_ptr<NodeProcess> server;
    QString url;
};

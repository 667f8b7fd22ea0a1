#pragma once

// The screens against the reference server: the shared facade signed in as "alice" (the screens
// use the shared facade), and "bob", another user of the server driven by the test over its own socket.
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

#include "IMRoom.h"
#include "NodeProcess.h"
#include "ServerPeer.h"
#include "UITestSupport.h"

//! Another user of the server, with the screens' keys.
class UIPeer : public ServerPeer {
public:
    explicit UIPeer(const QString &url);
};

class UILiveTest : public ::testing::Test {
protected:
    //! Starts the server, signs the shared facade up and in as "alice", as a host does, and Bob up.
    void SetUp() override;
    void TearDown() override;
    //! A room named `name` that Bob makes with Alice in it; its id.
    QString bobsRoomWithAlice(const QString &name);
    //! Bob's text message in room `roomID`; its id.
    QString bobWrites(const QString &roomID, const QString &text, qint64 idFromSender);
    //! The shared facade's record of room `id` (null when it never came).
    IMRoomPtr fetchRoom(const QString &id);

    QTemporaryDir dir;
    SettingsInDir settings {dir};
    std::unique_ptr<NodeProcess> server;
    QString url;
    std::unique_ptr<UIPeer> bob;
};

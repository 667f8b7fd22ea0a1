#pragma once

// Shared helpers for the screens' tests: settle the event loop, find widgets by text, show screens,
// and the common fixture.
#include <QAbstractButton>
#include <QCoreApplication>
#include <QEvent>
#include <QPointingDevice>
#include <QTemporaryDir>
#include <QWidget>
#include <functional>
#include <gtest/gtest.h>

#include "IMRoom.h"
#include "IMWindow.h"

// Runs posted calls and deferred deletes until nothing is left (a few rounds).
inline void settle(int rounds = 3)
{
    for (int i = 0; i < rounds; ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
}

// The first button under `root` whose text is `text`, or null.
template <typename Button = QAbstractButton> Button *buttonWithText(QWidget *root, const QString &text)
{
    for (Button *b : root->findChildren<Button *>())
        if (b->text() == text)
            return b;
    return nullptr;
}

class IMMessageViewController;
class IMNavigationController;
class IMUIViewController;

// Makes `root` the first screen of a navigation controller filling `window` (390 x 640) and shows
// it; `style`, when given, dresses the controller before its screens load.
IMNavigationController *showInNavigation(
    IMWindow &window, IMUIViewController *root, const std::function<void(IMNavigationController *)> &style = {});
// The conversation screen on `room`, shown that way; `echoReads` is set before it loads.
IMMessageViewController *showConversation(IMWindow &window, const IMRoomPtr &room, bool echoReads = false);

// The user defaults kept in `dir`'s "settings.ini" while this lives; written out and pointed back
// at the application's standard settings before the folder goes (a later write would remake it).
// Declare it after `dir`.
class SettingsInDir {
public:
    explicit SettingsInDir(const QTemporaryDir &dir);
    ~SettingsInDir();
};

// The ground of a screen test: animations off, the user defaults in a fresh folder, signed in
// locally as "me", and a window to show screens in.
class ScreenTest : public ::testing::Test {
protected:
    ScreenTest();
    ~ScreenTest() override;

    QTemporaryDir dir;
    SettingsInDir settings {dir};
    IMWindow window;
};

// A touch screen for QTest::touchEvent, registered once.
QPointingDevice *testTouchScreen();

#include <QStringList>

// Collects the kit's console lines ("<File:line> text") while it lives.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    //! The texts logged, without their "<File:line> " prefix.
    QStringList texts() const;
};

#pragma once

// Shared helpers for the screens' tests: settle the event loop, find widgets by text.
#include <QAbstractButton>
#include <QCoreApplication>
#include <QEvent>
#include <QPointingDevice>
#include <QWidget>

// Runs posted calls and deferred deletes until nothing is left (a few rounds).
inline void settle(int rounds = 3)
{
    for (int i = 0; i < rounds; ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
    }
}

// The first button under `root` whose text is `text`, or null.
template <typename Button = QAbstractButton>
Button *buttonWithText(QWidget *root, const QString &text)
{
    for (Button *b : root->findChildren<Button *>())
        if (b->text() == text)
            return b;
    return nullptr;
}

class QTemporaryDir;

// The user defaults kept in `dir`'s "settings.ini" while this lives; written out and pointed back
// at the application's standard settings before the folder goes (a later write would remake it).
// Declare it after `dir`.
class SettingsInDir
{
public:
    explicit SettingsInDir(const QTemporaryDir &dir);
    ~SettingsInDir();
};

// A touch screen for QTest::touchEvent, registered once.
QPointingDevice *testTouchScreen();

#include <QStringList>

// Collects the kit's console lines ("<File:line> text") while it lives.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    //! The texts logged, without their "<File:line> " prefix.
    QStringList texts() const;
};

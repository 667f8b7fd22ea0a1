#pragma once

#include <QString>

//! Posted on `IMNotificationCenter::defaultCenter()` before the on-screen keyboard changes its frame.
//! User info: "frameEnd" (QRect, window coordinates) and "duration" (seconds, double).
extern const QString kIMKeyboardWillChangeFrameNotification;
//! Posted after the on-screen keyboard changed its frame (same user info).
extern const QString kIMKeyboardDidChangeFrameNotification;

//! Bridges the platform's on-screen keyboard to the notifications above: it follows
//! `QInputMethod::keyboardRectangleChanged` (desktops have no on-screen keyboard and never post).
class IMKeyboard {
public:
    //! Starts the bridge once for the process (the screens call it; later calls do nothing).
    static void install();
};

#pragma once

#include <QString>
#include <functional>

//! Runs the calling thread's event loop until `done` is true or `timeoutMs` passes; returns `done()`.
bool waitUntil(const std::function<bool()> &done, int timeoutMs = 5000);
//! Runs the calling thread's event loop for `ms` milliseconds.
void spinFor(int ms);
//! A fresh empty folder under the system's temporary folder, removed when the process ends.
QString makeTempDir();

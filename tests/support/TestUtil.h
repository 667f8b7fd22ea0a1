#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

class NodeProcess;
class Parlo;

//! Runs the calling thread's event loop until `done` is true or `timeoutMs` passes; returns `done()`.
bool waitUntil(const std::function<bool()> &done, int timeoutMs = 5000);
//! Runs the calling thread's event loop for `ms` milliseconds.
void spinFor(int ms);
//! A fresh empty folder under the system's temporary folder, removed when the process ends.
QString makeTempDir();
//! The reference chat server on a free port with `arguments`, started; the test fails if it
//! does not start.
std::unique_ptr<NodeProcess> startReferenceServer(const QStringList &arguments);
//! Connects `parlo` to `url`, signs it up as `id` and chats in, as a host does; false (and the
//! test fails) when any step does not succeed in time.
bool signInAs(Parlo *parlo, const QString &url, const QString &id);

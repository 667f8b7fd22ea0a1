#pragma once

// Helpers of the file owner: the disk cache (the folder "Parlo" in the app's temporary folder,
// safe from any thread), file names and transfer errors.

#include "IMError.h"
#include "IMFile.h"

#include <QByteArray>
#include <QString>

//! Null when `name` can be used as a file of the cache folder; else the error that refuses it.
IMError parloFileNameError(const QString &name);
//! The whole contents of `path`; null when it cannot be read (an empty file gives empty bytes).
QByteArray parloReadWholeFile(const QString &path);
//! The path of file `name` in the cache folder (made when missing); null for a refused name.
QString parloFilePathWithName(const QString &name);
//! Whether the cache folder holds file `name`.
bool parloIsFileExistsWithName(const QString &name);
//! The bytes of file `name`; null when there is none.
QByteArray parloFileWithName(const QString &name);
//! Writes `data` as file `name` atomically; false when refused or failed.
bool parloFileSaveWithName(const QString &name, const QByteArray &data);
//! The "/files/<name>" path segment: server names pass unchanged, anything else is escaped.
QString parloFileSegment(const QString &name);
//! A transfer error in the kit's network domain with `code` (a QNetworkReply error) and "info".
IMError parloNetworkError(int code, const QString &info);
//! The file an upload's answer names; null when the answer is no record or its name is refused.
IMFilePtr parloUploadedFile(const QByteArray &answer);

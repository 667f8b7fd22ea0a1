#pragma once

// Names shared by the facade's file transfers: the keys of a transfer record in
// Parlo::taskDict() and the domain of transport-level network errors.

#include "IMFile.h"

#include <QImage>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QString>

//! Transfer record key: the transfer's QNetworkReply ("task").
inline const QString kSessionTask = QStringLiteral("task");
//! Transfer record key: the success block ("success").
inline const QString kSessionSuccess = QStringLiteral("success");
//! Transfer record key: the failure block ("failure").
inline const QString kSessionFailure = QStringLiteral("failure");
//! Transfer record key: the progress block ("progress"); a download always has one.
inline const QString kSessionProgress = QStringLiteral("progress");
//! Transfer record key: the file name ("filename"); downloads only.
inline const QString kFilename = QStringLiteral("filename");

//! Domain of the error records of plain-HTTP transfers that failed below HTTP (connection
//! refused, time-out, cut connection); the code is the QNetworkReply::NetworkError value and
//! "info" its text. Answers with an HTTP error status use the "Parlo" domain and the status.
inline const QString kParloNetworkErrorDomain = QStringLiteral("QNetworkReply");

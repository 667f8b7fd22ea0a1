#pragma once

// State of the facade's file transfers and file cache (ParloFiles.cpp).

#include "IMDispatch.h"
#include "Parlo_p.h"

#include <QHash>
#include <QMap>
#include <QNetworkAccessManager>
#include <QTemporaryFile>
#include <memory>

//! One HTTP download in flight: where its bytes go.
struct ParloDownload
{
    QString name;
    //! The bytes received so far, in the app's cache folder; made on the first bytes.
    std::unique_ptr<QTemporaryFile> file;
    //! The body of an answer with an error status (kept small; it becomes the error's "info").
    QByteArray errorBody;
    qint64 written = 0;
    QString writeError;
};

struct Parlo::FilesState
{
    FilesState();
    //! Fails every transfer still in flight (on the main queue), then lets the disk queues finish.
    ~FilesState();

    FileCache cache;
    //! Context of every connection to a transfer's signals: deleting it silences them all.
    std::unique_ptr<QObject> transferContext;
    std::unique_ptr<QNetworkAccessManager> urlSession;
    QMap<QString, QVariantMap> taskDict;
    quint64 nextTaskIdentifier = 1;
    //! The next download goes through urlSession, not a worker of its own.
    bool viaSessionOnce = false;
    int requestTimeoutMs = 120 * 1000;
    int resourceTimeoutMs = 180 * 1000;
    //! The transfers that have not ended, each with the failure that ends it if the facade goes
    //! first. A transfer ends by being taken out of here, so it ends once.
    QHash<QNetworkReply *, Failure> inFlight;
    QHash<QString, std::shared_ptr<ParloDownload>> downloads;
    //! HTTP chat-ins that a download waits for, with the failure that ends the wait.
    QHash<quint64, Failure> chatinWaits;
    quint64 nextChatinWait = 1;
    //! Reads of the disk cache ("queue") and writes after a download ("QUEUE"); made on first use
    //! on the main thread. Declared last: their blocks use the cache, so they finish first.
    std::unique_ptr<IMDispatchQueue> readQueue;
    std::unique_ptr<IMDispatchQueue> writeQueue;

    IMDispatchQueue &reads();
    IMDispatchQueue &writes();
};

//! Test and benchmark access to the transfer state of a facade.
struct ParloFilesInternals
{
    //! Sets the time after which a transfer is ended whatever it is doing (180 s).
    static void setResourceTimeout(Parlo *parlo, int ms) { parlo->files()->resourceTimeoutMs = ms; }
    //! The number of transfers that have not ended.
    static int transfersInFlight(Parlo *parlo) { return int(parlo->files()->inFlight.size()); }
};

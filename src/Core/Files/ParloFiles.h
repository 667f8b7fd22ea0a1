#pragma once

// Files: the memory and disk caches, fetching over the connection, HTTP downloads and uploads.

#include "IMDispatch.h"
#include "Parlo.h"

#include <QHash>
#include <QMap>
#include <QNetworkAccessManager>
#include <QTemporaryFile>
#include <memory>

class ParloLogger;
class ParloTransport;

//! One HTTP download in flight: where its bytes go.
struct ParloDownload {
    QString name;
    //! The bytes received so far, in the app's cache folder; made on the first bytes.
    std::unique_ptr<QTemporaryFile> file;
    //! The body of an answer with an error status (kept small; it becomes the error's "info").
    QByteArray errorBody;
    qint64 written = 0;
    QString writeError;
};

//! Owns the file caches, the URL session and the transfers in flight (see Parlo's file members
//! for what each operation does). Each transfer ends exactly once, also when the facade goes first.
class ParloFiles {
public:
    using Block = Parlo::Block;
    using Failure = Parlo::Failure;
    using Progress = Parlo::Progress;
    using DataSuccess = Parlo::DataSuccess;
    using FileSuccess = Parlo::FileSuccess;
    using FileComplete = Parlo::FileComplete;
    //! The HTTP chat-in whose cookie downloads present.
    using ChatIn = std::function<void(Parlo::ClientSuccess, Failure)>;

    ParloFiles(Parlo *facade, ParloTransport &transport, ParloLogger &logger);
    //! Fails every transfer still in flight (on the main queue), then lets the disk queues finish.
    ~ParloFiles();
    ParloFiles(const ParloFiles &) = delete;
    ParloFiles &operator=(const ParloFiles &) = delete;

    void setChatIn(ChatIn chatIn) { m_chatinHTTP = std::move(chatIn); }

    QNetworkAccessManager *urlSession();
    const QMap<QString, QVariantMap> &taskDict() const { return m_taskDict; }
    Parlo::FileCache &cache() { return m_cache; }

    QString filePathWithName(const QString &name);
    bool isFileExistsWithName(const QString &name);
    QByteArray fileWithName(const QString &name);
    bool fileSaveWithName(const QString &name, const QByteArray &data);

    void getFileWithName(const QString &name, FileComplete complete);
    void getFileWithName(const QString &name, bool fromCache, DataSuccess success, Failure failure);
    void getFileWithName(const QString &name, bool fromCache, Progress progress, DataSuccess success, Failure failure);

    QPointer<QNetworkReply> uploadFileWithData(const QByteArray &data, const QString &type, const IMRoomPtr &room,
        bool isPublic, Progress progress, FileSuccess success, Failure failure);
    QPointer<QNetworkReply> uploadFileWithImage(
        const QImage &image, const IMRoomPtr &room, bool isPublic, FileSuccess success, Failure failure);
    Parlo::UploadRequest requestWithData(const QByteArray &data, const QVariantMap &dict) const;

    //! Sets the time after which a transfer is ended whatever it is doing (180 s); for tests.
    void setResourceTimeout(int ms) { m_resourceTimeoutMs = ms; }
    //! The number of transfers that have not ended.
    int transfersInFlight() const { return int(m_inFlight.size()); }

private:
    void downloadFile(const QString &name, Progress progress, DataSuccess success, Failure failure);
    void startDownload(const QString &name, Progress progress, DataSuccess success, Failure failure);
    void finishDownload(QNetworkReply *reply, const QString &key);
    void finishUpload(
        QNetworkReply *reply, const QString &key, const QByteArray &data, FileSuccess success, Failure failure);
    void chatinHTTPForFiles(Block success, Failure failure);
    QNetworkReply *startTransfer(QNetworkReply *reply, Failure abandon);
    IMDispatchQueue &reads();
    IMDispatchQueue &writes();

    Parlo *m_facade;
    ParloTransport &m_transport;
    ParloLogger &m_logger;
    ChatIn m_chatinHTTP;
    Parlo::FileCache m_cache;
    //! Context of every connection to a transfer's signals: deleting it silences them all.
    std::unique_ptr<QObject> m_transferContext;
    std::unique_ptr<QNetworkAccessManager> m_urlSession;
    QMap<QString, QVariantMap> m_taskDict;
    quint64 m_nextTaskIdentifier = 1;
    //! The next download goes through the URL session, not a worker of its own.
    bool m_viaSessionOnce = false;
    int m_requestTimeoutMs = 120 * 1000;
    int m_resourceTimeoutMs = 180 * 1000;
    //! The transfers that have not ended, each with the failure that ends it if the facade goes
    //! first. A transfer ends by being taken out of here, so it ends once.
    QHash<QNetworkReply *, Failure> m_inFlight;
    QHash<QString, std::shared_ptr<ParloDownload>> m_downloads;
    //! HTTP chat-ins that a download waits for, with the failure that ends the wait.
    QHash<quint64, Failure> m_chatinWaits;
    quint64 m_nextChatinWait = 1;
    //! Reads of the disk cache ("queue") and writes after a download ("QUEUE"); made on first use
    //! on the main thread. Declared last: their blocks use the cache, so they finish first.
    std::unique_ptr<IMDispatchQueue> m_readQueue;
    std::unique_ptr<IMDispatchQueue> m_writeQueue;
};

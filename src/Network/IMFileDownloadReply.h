#pragma once

// A plain-HTTP file download on a thread of its own.

#include <QNetworkReply>
#include <QPointer>
#include <atomic>
#include <memory>
#include <thread>

class QNetworkAccessManager;

//! An HTTP/1.1 GET for a file, run on a worker thread that reads the body in large blocks
//! straight into the bytes handed to the caller and writes them to the disk cache as they come,
//! moving the finished file into place. It looks like any other transfer of the URL session: it
//! reports downloadProgress() and ends with finished() on the thread that made it, once, with the
//! HTTP status as attribute and a network error as error(); abort() ends it at once.
//!
//! Answers it does not take on (a redirect, a body of unannounced length) end it early with
//! needsSession(): the caller then asks the URL session, which knows them all.
class IMFileDownloadReply final : public QNetworkReply {
public:
    //! A started download of `request` into `target`, its partial file in `temporaryFolder`; null
    //! when this URL is the URL session's to fetch (not plain http, a proxy, credentials).
    //! `idleTimeoutMs` ends a download that receives nothing for that long.
    static IMFileDownloadReply *get(QNetworkAccessManager *session, const QNetworkRequest &request,
        const QString &temporaryFolder, const QString &target, int idleTimeoutMs);
    //! Ends the worker (it removes its partial file) before the reply goes.
    ~IMFileDownloadReply() override;

    void abort() override;
    //! After finished(): the server's answer is one to ask the URL session for again.
    bool needsSession() const { return m_needsSession; }
    //! After a finished() without error and with a status below 400: the whole body, also on disk.
    QByteArray bytes() const { return m_bytes; }
    //! After finished() with a status of 400 or more: the first bytes of the answer's body.
    QByteArray errorBody() const { return m_errorBody; }
    //! After finished(): why the body could not be written to disk, null when it was.
    QString writeError() const { return m_writeError; }
    //! After finished(): the file the download replaced, still open; dropping the last reference
    //! frees it (empty when nothing was replaced).
    std::shared_ptr<void> takeReplacedFile() { return std::move(m_replaced); }

    struct Outcome;

protected:
    //! The body is not read from the reply: it is in bytes() and on disk.
    qint64 readData(char *, qint64) override { return -1; }

private:
    struct Job;
    IMFileDownloadReply(QNetworkAccessManager *session, const QNetworkRequest &request);
    void run(const Job &job);
    void stop();
    void end(Outcome outcome);
    void reportProgress(qint64 received, qint64 total);

    QPointer<QNetworkAccessManager> m_session;
    //! This reply while it lives: the worker's reports reach the main thread through the kit's
    //! main queue (a hand-over ThreadSanitizer sees), and may arrive after the reply has gone.
    const std::shared_ptr<IMFileDownloadReply *> m_alive;
    std::thread m_worker;
    int m_wake[2] = {-1, -1}; //!< a byte written here wakes the worker out of any wait
    std::atomic<bool> m_cancelled {false};
    std::atomic<bool> m_progressQueued {false}; //!< reports coalesce while the main thread is busy
    std::atomic<qint64> m_received {0};
    qint64 m_reported = 0;
    bool m_needsSession = false;
    QByteArray m_bytes;
    QByteArray m_errorBody;
    QString m_writeError;
    std::shared_ptr<void> m_replaced;
};

// The plain-HTTP file download on a worker thread. Through QNetworkAccessManager every block of
// a large body crosses from Qt's HTTP thread to the main thread and is copied on the way, then
// written, then read back for the caller; here the socket is read straight into the caller's
// bytes and each large block goes from there to the file, as curl does.
#include "IMFileDownloadReply.h"

#include "IMDispatch.h"

#include <QDir>
#include <QHostAddress>
#include <QHostInfo>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkProxy>
#include <QTemporaryFile>
#include <filesystem>
#include <new>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {
constexpr qsizetype kErrorBodyLimit = 64 * 1024;
constexpr qsizetype kHeaderLimit = 64 * 1024;
// Written while the block is still in the processor's cache, large enough to cost few calls.
constexpr qint64 kWriteBlock = 512 * 1024;

// Asks for a large body's buffer in huge pages where the system gives them on request: each
// 4 KiB page of a fresh buffer otherwise costs a fault as the socket is read into it, which on
// some machines (virtual ones above all) took longer than the copy itself.
void preferHugePages(char *data, qsizetype size)
{
#if defined(MADV_HUGEPAGE)
    constexpr quintptr kHuge = 2 * 1024 * 1024;
    const quintptr begin = (quintptr(data) + kHuge - 1) & ~(kHuge - 1);
    const quintptr end = (quintptr(data) + quintptr(size)) & ~(kHuge - 1);
    if (end > begin)
        ::madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE); // advice only
#else
    Q_UNUSED(data);
    Q_UNUSED(size);
#endif
}
} // namespace

struct IMFileDownloadReply::Job {
    QUrl url;
    QByteArray request;
    QString temporaryFolder;
    QString target;
    int idleTimeoutMs = 0;
};

struct IMFileDownloadReply::Outcome {
    int status = 0;
    QList<QPair<QByteArray, QByteArray>> headers;
    NetworkError error = NoError;
    QString errorString;
    bool needsSession = false;
    QString writeError;
    std::shared_ptr<void> replaced;
    QByteArray bytes;
    QByteArray errorBody;
};

IMFileDownloadReply::IMFileDownloadReply(QNetworkAccessManager *session, const QNetworkRequest &request)
    : QNetworkReply(session)
    , m_session(session)
    , m_alive(std::make_shared<IMFileDownloadReply *>(this))
{
    setRequest(request);
    setUrl(request.url());
    setOperation(QNetworkAccessManager::GetOperation);
    QIODevice::open(QIODevice::ReadOnly);
}

IMFileDownloadReply::~IMFileDownloadReply()
{
    stop();
    *m_alive = nullptr; // reports still queued for the main thread find no reply
#ifdef Q_OS_UNIX
    for (int fd : m_wake)
        if (fd >= 0)
            ::close(fd);
#endif
}

void IMFileDownloadReply::stop()
{
    if (!m_worker.joinable())
        return;
    m_cancelled = true;
#ifdef Q_OS_UNIX
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(m_wake[1], &byte, 1);
#endif
    m_worker.join();
}

void IMFileDownloadReply::abort()
{
    if (isFinished())
        return;
    stop(); // the worker has removed its partial file
    setError(OperationCanceledError, QStringLiteral("Operation canceled"));
    setFinished(true);
    emit errorOccurred(OperationCanceledError);
    emit finished();
}

void IMFileDownloadReply::reportProgress(qint64 received, qint64 total)
{
    m_received = received;
    if (m_progressQueued.exchange(true))
        return;
    IMDispatchMainAsync([alive = m_alive, total] {
        IMFileDownloadReply *reply = *alive;
        if (!reply)
            return;
        reply->m_progressQueued = false;
        if (reply->isFinished())
            return;
        reply->m_reported = reply->m_received;
        emit reply->downloadProgress(reply->m_reported, total);
    });
}

void IMFileDownloadReply::end(Outcome outcome)
{
    if (isFinished())
        return; // aborted meanwhile
    if (m_worker.joinable())
        m_worker.join(); // it has nothing left to do but return
    if (outcome.status)
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, outcome.status);
    for (const auto &[name, value] : outcome.headers) {
        setRawHeader(name, value);
        if (m_session && m_session->cookieJar() && name.compare("set-cookie", Qt::CaseInsensitive) == 0)
            m_session->cookieJar()->setCookiesFromUrl(QNetworkCookie::parseCookies(value), url());
    }
    m_needsSession = outcome.needsSession;
    m_bytes = std::move(outcome.bytes);
    m_errorBody = std::move(outcome.errorBody);
    m_writeError = outcome.writeError;
    m_replaced = std::move(outcome.replaced);
    if (!m_bytes.isNull() && m_reported < m_bytes.size())
        emit downloadProgress(m_bytes.size(), m_bytes.size());
    setFinished(true);
    if (outcome.error != NoError) {
        setError(outcome.error, outcome.errorString);
        emit errorOccurred(outcome.error);
    }
    emit finished();
}

#ifndef Q_OS_UNIX

IMFileDownloadReply *IMFileDownloadReply::get(
    QNetworkAccessManager *, const QNetworkRequest &, const QString &, const QString &, int)
{
    return nullptr; // the worker speaks to POSIX sockets
}

void IMFileDownloadReply::run(const Job &) {}

#else

IMFileDownloadReply *IMFileDownloadReply::get(QNetworkAccessManager *session, const QNetworkRequest &request,
    const QString &temporaryFolder, const QString &target, int idleTimeoutMs)
{
    const QUrl url = request.url();
    if (url.scheme() != QLatin1String("http") || !url.userInfo().isEmpty() || url.host().isEmpty())
        return nullptr;
    if (session->proxy().type() != QNetworkProxy::DefaultProxy || session->proxyFactory())
        return nullptr;
    const QList<QNetworkProxy> proxies = QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(url));
    if (!proxies.isEmpty() && proxies.constFirst().type() != QNetworkProxy::NoProxy)
        return nullptr;

    Job job;
    job.url = url;
    job.temporaryFolder = temporaryFolder;
    job.target = target;
    job.idleTimeoutMs = idleTimeoutMs;
    QByteArray path = url.path(QUrl::FullyEncoded).toLatin1();
    if (path.isEmpty())
        path = "/";
    if (url.hasQuery())
        path += '?' + url.query(QUrl::FullyEncoded).toLatin1();
    job.request = "GET " + path + " HTTP/1.1\r\nHost: " + url.authority(QUrl::FullyEncoded).toLatin1() + "\r\n";
    // The session's cookies (the HTTP chat-in's above all) go with the request, as they would
    // through the session itself.
    QByteArray cookies;
    if (QNetworkCookieJar *jar = session->cookieJar())
        for (const QNetworkCookie &cookie : jar->cookiesForUrl(url))
            cookies += (cookies.isEmpty() ? "" : "; ") + cookie.toRawForm(QNetworkCookie::NameAndValueOnly);
    if (!cookies.isEmpty())
        job.request += "Cookie: " + cookies + "\r\n";
    for (const QByteArray &name : request.rawHeaderList())
        job.request += name + ": " + request.rawHeader(name) + "\r\n";
    job.request += "Accept-Encoding: identity\r\nConnection: close\r\n\r\n";

    auto *reply = new IMFileDownloadReply(session, request);
    if (::pipe(reply->m_wake) != 0) {
        delete reply;
        return nullptr;
    }
    for (int fd : reply->m_wake)
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    reply->m_worker = std::thread([reply, job] {
#ifdef Q_OS_LINUX
        pthread_setname_np(pthread_self(), "ParloDownload");
#endif
        reply->run(job);
    });
    return reply;
}

namespace {

//! One connection of the worker: every wait also ends when the reply is cancelled.
class Connection {
public:
    Connection(int wake, const std::atomic<bool> &cancelled, int idleTimeoutMs)
        : m_wake(wake)
        , m_cancelled(cancelled)
        , m_idleTimeoutMs(idleTimeoutMs)
    {
    }
    ~Connection()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }

    //! False with `out`'s error set when no address of the host takes the connection.
    bool open(const QUrl &url, IMFileDownloadReply::Outcome &out);
    bool send(const QByteArray &data, IMFileDownloadReply::Outcome &out);
    //! Bytes received into `to` (at most `max`), 0 at the end of the stream, -1 with `out`'s error
    //! set.
    qint64 receive(char *to, qint64 max, IMFileDownloadReply::Outcome &out);

private:
    //! True when `events` are ready; false with `out`'s error set on cancellation or time-out.
    bool wait(short events, IMFileDownloadReply::Outcome &out);
    bool fail(IMFileDownloadReply::Outcome &out, QNetworkReply::NetworkError error, const QString &text)
    {
        out.error = error;
        out.errorString = text;
        return false;
    }

    int m_fd = -1;
    int m_wake;
    const std::atomic<bool> &m_cancelled;
    int m_idleTimeoutMs;
};

bool Connection::wait(short events, IMFileDownloadReply::Outcome &out)
{
    pollfd fds[2] = {{m_fd, events, 0}, {m_wake, POLLIN, 0}};
    int ready;
    do
        ready = ::poll(fds, 2, m_idleTimeoutMs);
    while (ready < 0 && errno == EINTR);
    if (m_cancelled || fds[1].revents)
        return fail(out, QNetworkReply::OperationCanceledError, QStringLiteral("Operation canceled"));
    if (ready == 0)
        return fail(out, QNetworkReply::TimeoutError,
            QStringLiteral("nothing was received for %1 s").arg(m_idleTimeoutMs / 1000.0));
    if (ready < 0)
        return fail(out, QNetworkReply::UnknownNetworkError, QString::fromLocal8Bit(std::strerror(errno)));
    return true;
}

bool Connection::open(const QUrl &url, IMFileDownloadReply::Outcome &out)
{
    QList<QHostAddress> addresses;
    QHostAddress literal;
    if (literal.setAddress(url.host())) {
        addresses.append(literal);
    } else {
        const QHostInfo info = QHostInfo::fromName(url.host());
        if (info.error() != QHostInfo::NoError || info.addresses().isEmpty())
            return fail(out, QNetworkReply::HostNotFoundError, QStringLiteral("Host %1 not found").arg(url.host()));
        addresses = info.addresses();
    }
    const quint16 port = quint16(url.port(80));
    int lastError = ECONNREFUSED;
    for (const QHostAddress &address : addresses) {
        sockaddr_storage storage {};
        socklen_t length;
        if (address.protocol() == QAbstractSocket::IPv4Protocol) {
            auto *in = reinterpret_cast<sockaddr_in *>(&storage);
            in->sin_family = AF_INET;
            in->sin_port = htons(port);
            in->sin_addr.s_addr = htonl(address.toIPv4Address());
            length = sizeof(sockaddr_in);
        } else {
            auto *in6 = reinterpret_cast<sockaddr_in6 *>(&storage);
            in6->sin6_family = AF_INET6;
            in6->sin6_port = htons(port);
            const Q_IPV6ADDR bytes = address.toIPv6Address();
            std::memcpy(&in6->sin6_addr, &bytes, sizeof bytes);
            in6->sin6_scope_id = address.scopeId().toUInt();
            length = sizeof(sockaddr_in6);
        }
        m_fd = ::socket(storage.ss_family, SOCK_STREAM, 0);
        if (m_fd < 0) {
            lastError = errno;
            continue;
        }
        ::fcntl(m_fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
#ifdef SO_NOSIGPIPE
        const int on = 1;
        ::setsockopt(m_fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
        int result = ::connect(m_fd, reinterpret_cast<sockaddr *>(&storage), length);
        if (result != 0 && errno == EINPROGRESS) {
            if (!wait(POLLOUT, out))
                return false;
            int error = 0;
            socklen_t size = sizeof error;
            ::getsockopt(m_fd, SOL_SOCKET, SO_ERROR, &error, &size);
            result = error ? -1 : 0;
            errno = error;
        }
        if (result == 0)
            return true;
        lastError = errno;
        ::close(m_fd);
        m_fd = -1;
    }
    return fail(out,
        lastError == ECONNREFUSED ? QNetworkReply::ConnectionRefusedError : QNetworkReply::UnknownNetworkError,
        lastError == ECONNREFUSED ? QStringLiteral("Connection refused")
                                  : QString::fromLocal8Bit(std::strerror(lastError)));
}

bool Connection::send(const QByteArray &data, IMFileDownloadReply::Outcome &out)
{
#ifdef MSG_NOSIGNAL
    constexpr int flags = MSG_NOSIGNAL;
#else
    constexpr int flags = 0;
#endif
    qsizetype sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(m_fd, data.constData() + sent, size_t(data.size() - sent), flags);
        if (n > 0)
            sent += n;
        else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!wait(POLLOUT, out))
                return false;
        } else if (n < 0 && errno != EINTR)
            return fail(out, QNetworkReply::RemoteHostClosedError, QString::fromLocal8Bit(std::strerror(errno)));
    }
    return true;
}

qint64 Connection::receive(char *to, qint64 max, IMFileDownloadReply::Outcome &out)
{
    for (;;) {
        const ssize_t n = ::recv(m_fd, to, size_t(max), 0);
        if (n >= 0)
            return n;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!wait(POLLIN, out))
                return -1;
        } else if (errno != EINTR) {
            fail(out, QNetworkReply::RemoteHostClosedError, QString::fromLocal8Bit(std::strerror(errno)));
            return -1;
        }
    }
}

//! The header block at the start of `head` (ending in an empty line), parsed into `out`; its
//! length, 0 when incomplete, -1 when it is no HTTP answer.
qsizetype parseHead(const QByteArray &head, IMFileDownloadReply::Outcome &out)
{
    const qsizetype end = head.indexOf("\r\n\r\n");
    if (end < 0)
        return 0;
    const QList<QByteArray> lines = head.left(end).split('\n');
    const QList<QByteArray> statusLine = lines.constFirst().trimmed().split(' ');
    bool ok = false;
    out.status = statusLine.size() >= 2 && statusLine[0].startsWith("HTTP/1.") ? statusLine[1].toInt(&ok) : 0;
    if (!ok || out.status < 100 || out.status > 599)
        return -1;
    out.headers.clear();
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            out.headers.append({lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()});
    }
    return end + 4;
}

QByteArray headerValue(const IMFileDownloadReply::Outcome &out, const char *name)
{
    for (const auto &[key, value] : out.headers)
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    return QByteArray();
}

} // namespace

void IMFileDownloadReply::run(const Job &job)
{
    Outcome out;
    [&] {
        Connection connection(m_wake[0], m_cancelled, job.idleTimeoutMs);
        if (!connection.open(job.url, out) || !connection.send(job.request, out))
            return;

        // The header block; interim answers (1xx) are passed over.
        QByteArray head;
        qsizetype headLength = 0;
        while (headLength == 0 || (out.status >= 100 && out.status < 200)) {
            if (headLength > 0)
                head.remove(0, headLength);
            while ((headLength = parseHead(head, out)) == 0) {
                if (head.size() >= kHeaderLimit) {
                    headLength = -1;
                    break;
                }
                const qsizetype had = head.size();
                head.resize(had + 16 * 1024);
                const qint64 n = connection.receive(head.data() + had, 16 * 1024, out);
                if (n < 0)
                    return;
                head.resize(had + n);
                if (n == 0) {
                    out.error = RemoteHostClosedError;
                    out.errorString = QStringLiteral("the connection closed before the answer's header ended");
                    return;
                }
            }
            if (headLength < 0) {
                out.status = 0;
                out.error = ProtocolFailure;
                out.errorString = QStringLiteral("the answer is not HTTP/1.x");
                return;
            }
        }
        head.remove(0, headLength);
        bool sized = false;
        const QByteArray lengthText = headerValue(out, "content-length");
        const qint64 length = lengthText.toLongLong(&sized);
        const QByteArray coding = headerValue(out, "transfer-encoding");
        const bool plainBody = coding.isEmpty() || coding.compare("identity", Qt::CaseInsensitive) == 0;

        if (out.status >= 400 && plainBody) {
            // The start of the body is the error's text; the rest is not waited for.
            const qint64 wanted = sized ? std::min<qint64>(length, kErrorBodyLimit) : kErrorBodyLimit;
            out.errorBody = head.left(wanted);
            while (out.errorBody.size() < wanted) {
                char block[16 * 1024];
                const qint64 n = connection.receive(block, sizeof block, out);
                if (n <= 0) {
                    out.error = NoError; // what arrived is the text
                    break;
                }
                out.errorBody += QByteArray(block, n).left(wanted - out.errorBody.size());
            }
            return;
        }
        const bool redirected = out.status >= 300 && !headerValue(out, "location").isEmpty();
        if (redirected || !sized || length < 0 || !plainBody || length > std::numeric_limits<qsizetype>::max() / 2) {
            out.needsSession = true;
            return;
        }

        QTemporaryFile file(QDir(job.temporaryFolder).filePath(QStringLiteral("parlo-download-XXXXXX")));
        if (!file.open()) {
            out.writeError = file.errorString();
            return;
        }
        // An announced length too large to hold goes the session's way too, which keeps only
        // what arrives: an answer must never take the host down.
        QByteArray bytes;
        try {
            bytes = QByteArray(qsizetype(length), Qt::Uninitialized);
        } catch (const std::bad_alloc &) {
            out.needsSession = true;
            return;
        }
        preferHugePages(bytes.data(), bytes.size());
        qint64 received = std::min<qint64>(head.size(), length);
        std::memcpy(bytes.data(), head.constData(), size_t(received));
        head = QByteArray();
        qint64 written = 0;
        for (;;) {
            if (received - written >= kWriteBlock || (received == length && written < length)) {
                if (file.write(bytes.constData() + written, received - written) != received - written) {
                    out.writeError = file.errorString();
                    return;
                }
                written = received;
            }
            if (received == length)
                break;
            const qint64 n = connection.receive(bytes.data() + received, length - received, out);
            if (n < 0)
                return;
            if (n == 0) {
                out.error = RemoteHostClosedError;
                out.errorString = QStringLiteral("the download ended after %1 of %2 bytes").arg(received).arg(length);
                return;
            }
            received += n;
            reportProgress(received, length);
        }
        file.close();
        if (file.error() != QFileDevice::NoError) {
            out.writeError = file.errorString();
            return;
        }
        // Moved into the cache folder, replacing what was there; a file that cannot be moved only
        // means a refetch later. The file replaced is held open across the move: freeing a large
        // file's blocks takes the file system longer than the move, and is left to the caller.
        const int replaced = ::open(QFile::encodeName(job.target).constData(), O_RDONLY | O_CLOEXEC);
        if (replaced >= 0)
            out.replaced.reset(new int(replaced), [](int *fd) {
                ::close(*fd);
                delete fd;
            });
        std::error_code ignored;
        std::filesystem::rename(std::filesystem::path(file.fileName().toStdU16String()),
            std::filesystem::path(job.target.toStdU16String()), ignored);
        if (!ignored)
            file.setAutoRemove(false);
        out.bytes = length ? std::move(bytes) : QByteArray("", 0);
    }();
    if (m_cancelled)
        return; // abort() ends the reply
    IMDispatchMainAsync([alive = m_alive, out = std::move(out)]() mutable {
        if (IMFileDownloadReply *reply = *alive)
            reply->end(std::move(out));
    });
}

#endif

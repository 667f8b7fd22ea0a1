// The file cache and the HTTP download against the reference server, each beside a baseline
// measured in the same run:
//   memory-cache hit        vs a bare QCache lookup under a mutex
//   disk-cache hit (100 KB) vs QFile::readAll of the same file
//   HTTP download (50 MB)   vs curl fetching the same file into the same folder
// and the peak memory growth of a 100 MB download (the bytes handed over are 100 MB).
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "NodeProcess.h"
#include "Parlo.h"

#include <QCache>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {
const QString kApiKey = QStringLiteral("bench-api");
const QString kClientKey = QStringLiteral("bench-client");

bool waitUntil(const std::function<bool()> &done, int ms)
{
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

//! waitUntil, asleep between events: for the downloads, where a spinning wait would take a core
//! from the transfer it measures (curl's side waits in waitForFinished, asleep).
bool sleepUntil(const std::function<bool()> &done, int ms)
{
    QDeadlineTimer deadline(ms);
    QTimer tick;
    tick.start(10);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

QVariant call(Parlo &parlo, uint method, const QString &path, const QVariantMap &data = {})
{
    QVariantMap item {{"url", path}, {"headers", parlo.header()}};
    if (!data.isEmpty())
        item["data"] = data;
    QVariant result;
    bool done = false;
    parlo.emitWithMethod(
        method, item,
        [&](const QVariant &body) {
            result = body;
            done = true;
        },
        [&](const IMError &error) {
            std::fprintf(stderr, "%s: %s\n", qPrintable(path), qPrintable(error.description()));
            done = true;
        });
    waitUntil([&] { return done; }, 30000);
    return result;
}

QString upload(Parlo &parlo, const QByteArray &bytes)
{
    QString name;
    bool done = false;
    parlo.uploadFileWithData(
        bytes, "other", nullptr, true,
        [&](const IMFilePtr &file) {
            name = file->fileName();
            done = true;
        },
        [&](const IMError &error) {
            std::fprintf(stderr, "upload: %s\n", qPrintable(error.description()));
            done = true;
        });
    waitUntil([&] { return done; }, 120000);
    return name;
}

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    return bytes;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

qint64 procStatusKB(const char *field)
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(qstrlen(field)).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

//! Seconds of one HTTP download of `name` by the facade, without the cache; -1 on failure.
double download(Parlo &parlo, const QString &name, qsizetype expected)
{
    QElapsedTimer timer;
    timer.start();
    qsizetype got = -1;
    bool done = false;
    parlo.getFileWithName(
        name, false, [](double) {},
        [&](const QByteArray &bytes) {
            got = bytes.size();
            done = true;
        },
        [&](const IMError &error) {
            std::fprintf(stderr, "download: %s\n", qPrintable(error.description()));
            done = true;
        });
    sleepUntil([&] { return done; }, 120000);
    const double seconds = timer.nsecsElapsed() / 1e9;
    return got == expected ? seconds : -1;
}

double curlDownload(const QString &url, const QString &to)
{
    QProcess curl;
    curl.start("curl", {"-s", "-f", "-o", to, "-w", "%{time_total}", url});
    curl.waitForFinished(120000);
    return curl.exitCode() == 0 ? curl.readAllStandardOutput().toDouble() : -1;
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    IMPlatform::instance()->setDocumentsPath(dir.filePath("data"));
    IMPlatform::instance()->setTemporaryPath(dir.filePath("cache"));
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir.filePath("settings.ini"));
    // Back to the standard settings before the folder goes (a later write would make it again).
    const auto standardSettings
        = qScopeGuard([] { IMUserDefaults::standardUserDefaults()->setSettingsFile(QString()); });

    NodeProcess server(QStringLiteral(PARLO_SOURCE_DIR "/server/index.js"),
        {"--port", "0", "--api-key", kApiKey, "--client-key", kClientKey, "--max-upload", "120000000"},
        QRegularExpression(QStringLiteral("^parlo-server listening on \\S+:(\\d+)$")));
    if (!server.start()) {
        std::fprintf(stderr, "server: %s\n", qPrintable(server.errorText()));
        return 1;
    }
    const QString url = QStringLiteral("http://127.0.0.1:%1").arg(server.port());

    Parlo parlo;
    parlo.setApiKey(kApiKey);
    parlo.setClientKey(kClientKey);
    parlo.connectWithURL(url, {}, [] {});
    if (!waitUntil([&] { return parlo.connectStatus() == 0; }, 10000))
        return 1;
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    settings->setClientID("bench");
    const QVariantMap me = call(parlo, 1, "/client/", {{"clientID", "bench"}, {"username", "bench"}}).toMap();
    settings->setToken(me.value("token").toString());
    settings->setCurrentUser(me);

    const QByteArray small = randomBytes(100 * 1024);
    const QString smallName = upload(parlo, small);
    const QString bigName = upload(parlo, randomBytes(50 * 1024 * 1024));
    if (smallName.isEmpty() || bigName.isEmpty())
        return 1;

    // Memory-cache hit: the synchronous fetch answered from memory.
    const int hits = 200000;
    QElapsedTimer timer;
    qsizetype sink = 0;
    parlo.cache().setObject(smallName, small);
    timer.start();
    for (int i = 0; i < hits; ++i)
        parlo.getFileWithName(
            smallName, true, [&](const QByteArray &b) { sink += b.size(); }, nullptr);
    const double memoryNs = double(timer.nsecsElapsed()) / hits;
    QMutex mutex;
    QCache<QString, QByteArray> bare(1 << 26);
    bare.insert(smallName, new QByteArray(small), small.size());
    timer.restart();
    for (int i = 0; i < hits; ++i) {
        QMutexLocker lock(&mutex);
        sink += bare.object(smallName)->size();
    }
    const double bareNs = double(timer.nsecsElapsed()) / hits;

    // Disk-cache hit of 100 KB: the memory cache is emptied before each fetch.
    parlo.fileSaveWithName(smallName, small);
    const int reads = 5000;
    timer.restart();
    for (int i = 0; i < reads; ++i) {
        parlo.cache().removeObject(smallName);
        parlo.getFileWithName(
            smallName, true, [&](const QByteArray &b) { sink += b.size(); }, nullptr);
    }
    const double diskUs = timer.nsecsElapsed() / 1e3 / reads;
    const QString path = parlo.filePathWithName(smallName);
    timer.restart();
    for (int i = 0; i < reads; ++i) {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        sink += file.readAll().size();
    }
    const double rawUs = timer.nsecsElapsed() / 1e3 / reads;
    // The same hit through the HTTP form: read on the "queue" serial queue, answered on the main queue.
    const int asyncReads = 1000;
    timer.restart();
    for (int i = 0; i < asyncReads; ++i) {
        parlo.cache().removeObject(smallName);
        bool done = false;
        parlo.getFileWithNameProgress(
            smallName, nullptr, [&](const QByteArray &b) { sink += b.size(), done = true; },
            [&](const IMError &) { done = true; });
        waitUntil([&] { return done; }, 10000);
    }
    const double asyncUs = timer.nsecsElapsed() / 1e3 / asyncReads;

    // HTTP download of 50 MB, several rounds each, alternating.
    const int kRounds = 7;
    const double mb = 50.0 * 1024 * 1024 / 1e6;
    std::vector<double> ours, theirs;
    // Each side writes a new file: the previous round's copy is removed first, outside the timing
    // (replacing a large file costs the file system more than the download itself).
    const QString curlFile = dir.filePath("cache/curl.bin");
    // The side that goes first alternates, so that neither always meets the other's writeback.
    for (int run = 0; run < kRounds; ++run) {
        parlo.cache().removeAllObjects();
        QFile::remove(parlo.filePathWithName(bigName));
        QFile::remove(curlFile);
        double s = 0, c = 0;
        for (int side = 0; side < 2; ++side) {
            if ((side + run) % 2 == 0)
                s = download(parlo, bigName, 50 * 1024 * 1024);
            else
                c = curlDownload(url + "/files/" + bigName, curlFile);
        }
        if (s <= 0 || c <= 0)
            return 1;
        ours.push_back(mb / s);
        theirs.push_back(mb / c);
    }

    // Peak memory of a 100 MB download: the peak is reset, then measured after the success block.
    const QString hugeName = upload(parlo, randomBytes(100 * 1024 * 1024));
    parlo.cache().removeAllObjects();
    QCoreApplication::processEvents();
    const qint64 before = procStatusKB("VmRSS:");
    QFile clear("/proc/self/clear_refs");
    const bool reset = clear.open(QIODevice::WriteOnly) && clear.write("5") == 1;
    clear.close();
    const double hugeSeconds = download(parlo, hugeName, 100 * 1024 * 1024);
    const qint64 peak = procStatusKB("VmHWM:");

    std::printf("parlo_files_bench (sink %lld)\n", (long long)sink);
    std::printf("  memory-cache hit:            %8.0f ns   bare QCache lookup %6.0f ns   ratio %.2f\n", memoryNs,
        bareNs, memoryNs / bareNs);
    std::printf("  disk-cache hit, 100 KB:      %8.1f us   QFile::readAll     %6.1f us   ratio %.2f\n", diskUs, rawUs,
        diskUs / rawUs);
    std::printf("  disk-cache hit, HTTP form:   %8.1f us   (read on \"queue\", answered on the main queue)\n", asyncUs);
    std::printf("  HTTP download, 50 MB:        %8.0f MB/s curl to a file     %6.0f MB/s ratio %.2f (median of %d)\n",
        median(ours), median(theirs), median(ours) / median(theirs), kRounds);
    if (hugeSeconds > 0 && reset)
        std::printf("  100 MB download:             %8.0f MB/s peak RSS growth %lld MB over %lld MB before\n",
            100.0 * 1024 * 1024 / 1e6 / hugeSeconds, (long long)(peak - before) / 1024, (long long)before / 1024);
    return 0;
}

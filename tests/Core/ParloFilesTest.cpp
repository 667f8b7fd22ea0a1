// Files: the multipart form, the caches and the refused names on their own; uploads and fetches
// by socket and by HTTP against the reference server.
#include "LiveFixture.h"
#include "Parlo_p.h"

#include <QDir>
#include <QRandomGenerator>
#include <algorithm>
#include <list>

namespace {
//! An operation's ends, with the file, the progress and the completion blocks of the file calls.
struct Ends : Outcome<QByteArray> {
    IMFilePtr file;
    QList<double> fractions;

    Parlo::FileSuccess file_()
    {
        return [this](const IMFilePtr &f) {
            note();
            ++successes;
            file = f;
        };
    }
    Parlo::Progress progress()
    {
        return [this](double fraction) {
            note();
            fractions << fraction;
        };
    }
    Parlo::FileComplete complete()
    {
        return [this](const IMError &e, const QByteArray &bytes) {
            note();
            e.isNull() ? ++successes : ++failures;
            error = e;
            value = bytes;
        };
    }
    bool fractionsRiseToOne() const
    {
        return !fractions.isEmpty() && fractions.last() == 1.0 && std::is_sorted(fractions.begin(), fractions.end());
    }
};

//! Ends that outlive the test body: a test that stops early may leave blocks that run during
//! the tear-down, when the facade goes.
struct EndsPool {
    std::list<Ends> all;
    Ends &operator()() { return all.emplace_back(); }
};

QStringList downloadsIn(const QString &folder)
{
    return QDir(folder).entryList({QStringLiteral("parlo-download-*")}, QDir::Files);
}

QImage picture()
{
    QImage image(64, 48, QImage::Format_ARGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgba(x * 4, y * 5, (x * y) & 0xff, 200));
    return image;
}

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    return bytes;
}

const QByteArray kBoundary = "---------------------------14737809831466499882746641449";

//! The answer of a plain HTTP server that chats in with a cookie and serves "hello" in the shapes
//! a download's worker leaves to the URL session: "moved" is a redirect to "chunked", whose body
//! has no announced length. It notes the cookie of every file request in `cookies`.
QByteArray sessionShapes(const QByteArray &head, QList<QByteArray> &cookies)
{
    const QByteArray target = head.split(' ').value(1);
    const qsizetype cookie = head.indexOf("Cookie: ");
    if (target.startsWith("/files/"))
        cookies << head.mid(cookie + 8, head.indexOf("\r\n", cookie) - cookie - 8);
    if (head.startsWith("POST /client/chatin/"))
        return "HTTP/1.1 200 OK\r\nSet-Cookie: sid=s1; Path=/\r\nContent-Length: 17\r\n\r\n"
               R"({"clientID":"me"})";
    if (target == "/files/moved")
        return "HTTP/1.1 302 Found\r\nLocation: /files/chunked\r\nContent-Length: 0\r\n\r\n";
    if (target == "/files/chunked")
        return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nhel\r\n2\r\nlo\r\n0\r\n\r\n";
    if (target == "/files/huge") // announces 100 GB, sends 5 bytes
        return "HTTP/1.1 200 OK\r\nContent-Length: 100000000000\r\n\r\nhello";
    return "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n";
}
} // namespace

// ---- without a server --------------------------------------------------------------------------

//! Files fixtures keep their cache and downloads in a folder of the test's own.
template <typename Base> class WithOwnTemp : public Base {
protected:
    void SetUp() override
    {
        Base::SetUp();
        suiteTemp = IMPlatform::instance()->temporaryPath();
        temp = makeTempDir();
        IMPlatform::instance()->setTemporaryPath(temp);
    }
    void TearDown() override
    {
        Base::TearDown();
        IMPlatform::instance()->setTemporaryPath(suiteTemp);
    }
    //! The ways to fetch a file: by HTTP through the caches or past them, by socket alone, or
    //! through the memory and disk caches to the socket.
    enum Via { Http, HttpFresh, Socket, CachedSocket };
    //! Starts fetching `name` the `via` way.
    Ends &start(const QString &name, Via via)
    {
        Ends &ends = track();
        Parlo *p = this->parlo.get();
        switch (via) {
        case Http:
            p->getFileWithNameProgress(name, ends.progress(), ends.ok(), ends.fail());
            break;
        case HttpFresh:
            p->getFileWithName(name, false, ends.progress(), ends.ok(), ends.fail());
            break;
        case Socket:
            p->getFileWithName(name, ends.complete());
            break;
        case CachedSocket:
            p->getFileWithName(name, true, ends.ok(), ends.fail());
            break;
        }
        return ends;
    }
    //! Fetches `name` the `via` way and waits for the end.
    Ends &fetch(const QString &name, Via via = Http, int ms = 20000)
    {
        Ends &ends = start(name, via);
        EXPECT_TRUE(ends.wait(ms));
        return ends;
    }
    //! No transfer is left running or half-written, and none of `names` is cached.
    void expectNothingLeft(const QStringList &names = {})
    {
        EXPECT_TRUE(this->parlo->taskDict().isEmpty());
        EXPECT_EQ(downloadsIn(temp), QStringList());
        for (const QString &name : names) {
            EXPECT_TRUE(this->parlo->cache().object(name).isNull()) << name.toStdString();
            EXPECT_FALSE(this->parlo->isFileExistsWithName(name)) << name.toStdString();
        }
    }

    QString temp;
    QString suiteTemp;
    EndsPool track;
};

using FilesTest = WithOwnTemp<CoreTest>;

TEST_F(FilesTest, MultipartRequestIsByteForByteWithAndWithoutBytes)
{
    parlo->setDomainString("http://files.example:8");
    IMUserDefaults::standardUserDefaults()->setCurrentUser({{"clientID", "me"}, {"token", "t0k"}});
    const QVariantMap fields {{"type", "image"}, {"room", ""}, {"isPublic", 1}};

    const Parlo::UploadRequest upload = parlo->requestWithData("\x89PNG\r\n", fields);
    EXPECT_EQ(upload.request.url(), QUrl("http://files.example:8/files/upload"));
    const std::pair<const char *, const char *> headers[] {
        {"apiKey", "api"}, {"clientKey", "client"}, {"clientID", "me"}, {"token", "t0k"}};
    for (const auto &[name, value] : headers)
        EXPECT_EQ(upload.request.rawHeader(name), value) << name;
    EXPECT_EQ(upload.request.rawHeader("Content-Type"), "multipart/form-data; boundary=" + kBoundary);
    const QByteArray fieldsPart = "--" + kBoundary
        + "\r\nContent-Disposition: form-data; name=\"isPublic\"\r\n\r\n1\r\n"
          "--"
        + kBoundary
        + "\r\nContent-Disposition: form-data; name=\"room\"\r\n\r\n\r\n"
          "--"
        + kBoundary + "\r\nContent-Disposition: form-data; name=\"type\"\r\n\r\nimage\r\n";
    EXPECT_EQ(upload.body,
        fieldsPart + "--" + kBoundary
            + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"1\"\r\n"
              "Content-Type: application/octet-stream\r\n\r\n\x89PNG\r\n\r\n--"
            + kBoundary + "--\r\n");
    // No bytes: the fields alone, without a file part or a closing line.
    EXPECT_EQ(parlo->requestWithData(QByteArray(), fields).body, fieldsPart);
}

TEST_F(FilesTest, DiskCacheLivesInParloFolderAndWritesAtomically)
{
    const QString folder = temp + "/Parlo";
    EXPECT_FALSE(QFileInfo::exists(folder));
    EXPECT_EQ(parlo->filePathWithName("a.png"), folder + "/a.png");
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_FALSE(parlo->isFileExistsWithName("a.png"));
    EXPECT_TRUE(parlo->fileWithName("a.png").isNull());

    ASSERT_TRUE(parlo->fileSaveWithName("a.png", "first"));
    ASSERT_TRUE(parlo->fileSaveWithName("a.png", "second, longer"));
    EXPECT_TRUE(parlo->isFileExistsWithName("a.png"));
    EXPECT_EQ(parlo->fileWithName("a.png"), "second, longer");
    ASSERT_TRUE(parlo->fileSaveWithName("empty", QByteArray()));
    const QByteArray empty = parlo->fileWithName("empty");
    EXPECT_TRUE(empty.isEmpty() && !empty.isNull()) << "an empty file is a file, not the absent marker";
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList({"a.png", "empty"}));
}

TEST_F(FilesTest, RefusedNamesGiveCode400AndTouchNoFile)
{
    parlo->setDomainString("http://127.0.0.1:1");
    const QStringList names {"", ".", "..", "../escape", "a/b", "a\\b", QString("a") + QChar(0) + "b"};
    for (const QString &name : names) {
        SCOPED_TRACE(name.toStdString());
        EXPECT_TRUE(parlo->filePathWithName(name).isNull());
        EXPECT_FALSE(parlo->isFileExistsWithName(name));
        EXPECT_TRUE(parlo->fileWithName(name).isNull());
        EXPECT_FALSE(parlo->fileSaveWithName(name, "x"));

        Ends &http = fetch(name, HttpFresh);
        EXPECT_TRUE(http.failedOnceWith(400));
        EXPECT_TRUE(http.error.info().startsWith("refused file name")) << http.error.info().toStdString();
        // Through the caches the refusal comes at once, inside the call.
        Ends &socket = fetch(name, CachedSocket);
        EXPECT_EQ(socket.failures, 1);
        EXPECT_TRUE(socket.synchronous && socket.error.code() == 400);
    }
    EXPECT_EQ(QDir(temp).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
    EXPECT_TRUE(parlo->taskDict().isEmpty());
}

TEST_F(FilesTest, MemoryCacheComesFirstAndItsNullMarkerCountsAsAbsent)
{
    // No server address: any fetch that reached the network would fail.
    ASSERT_TRUE(parlo->fileSaveWithName("f.bin", "from disk"));
    parlo->cache().setObject("f.bin", QByteArray());
    Ends &socket = fetch("f.bin", CachedSocket);
    EXPECT_TRUE(socket.successes == 1 && socket.synchronous); // a cache hit answers inside the call
    EXPECT_EQ(socket.value, "from disk");
    EXPECT_EQ(parlo->cache().object("f.bin"), "from disk");

    parlo->cache().setObject("f.bin", "from memory");
    Ends &http = fetch("f.bin");
    EXPECT_TRUE(http.oneAsyncSuccess());
    EXPECT_EQ(http.value, "from memory");

    // Bytes over the limit are not kept, and do not leave older bytes under the name.
    parlo->cache().setTotalCostLimit(8);
    parlo->cache().setObject("f.bin", "123456789");
    EXPECT_TRUE(parlo->cache().object("f.bin").isNull());

    Ends &image = track();
    EXPECT_TRUE(parlo->uploadFileWithImage(QImage(), nullptr, false, image.file_(), image.fail()).isNull());
    EXPECT_TRUE(failsOnceWith(image, 400));
}

TEST_F(FilesTest, AnswersTheWorkerLeavesToTheSessionArriveWholeWithTheCookie)
{
    QList<QByteArray> cookies;
    LocalHttpServer server([&](const QByteArray &request) { return sessionShapes(request, cookies); });
    parlo->setSocketFactory([](const QUrl &, const QVariantMap &) { return new ScriptedSocket; });
    parlo->connectWithURL(server.url(), {}, [] {});
    // Each file request is made by the worker first, then by the session (which follows the redirect).
    const struct {
        const char *name;
        int requests;
    } cases[] = {{"moved", 3}, {"chunked", 2}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        cookies.clear();
        Ends &ends = fetch(c.name, HttpFresh);
        ASSERT_TRUE(ends.oneAsyncSuccess()) << ends.error.description().toStdString();
        EXPECT_EQ(ends.value, "hello");
        EXPECT_EQ(parlo->fileWithName(c.name), "hello");
        EXPECT_EQ(cookies, QList<QByteArray>(c.requests, "sid=s1"));
        expectNothingLeft();
    }
#ifndef PARLO_UNDER_SANITIZER // the sanitizers' allocators abort where malloc would fail
    // A length too large to hold fails once, like any answer cut short.
    EXPECT_TRUE(fetch("huge", HttpFresh).oneAsyncFailure());
    expectNothingLeft();
#endif
}

// ---- against the server ------------------------------------------------------------------------

class FilesLiveTest : public WithOwnTemp<LiveCoreTest> {
protected:
    IMFilePtr upload(const QByteArray &data, const IMRoomPtr &room, bool isPublic = false)
    {
        Ends &ends = track();
        parlo->uploadFileWithData(data, "other", room, isPublic, ends.file_(), ends.fail());
        EXPECT_TRUE(succeedsOnce(ends, 50000));
        return ends.file;
    }
    //! Signs in as a new client and uploads `data` outside any room, leaving the memory cache
    //! empty; the file's name (empty when the upload failed).
    QString signedInUpload(const QByteArray &data, bool isPublic = false)
    {
        signInFacade(uniqueID("files"));
        const IMFilePtr file = upload(data, nullptr, isPublic);
        parlo->cache().removeAllObjects();
        return file ? file->fileName() : QString();
    }
};

TEST_F(FilesLiveTest, PictureTravelsUpAndBackBySocketHttpDiskAndMemory)
{
    signInFacade(uniqueID("pic"));
    const IMRoomPtr room = IMRoom::fromDictionary(call(1, "/room", {{"name", "pictures"}}).toMap());
    ASSERT_TRUE(room && !room->objectID().isEmpty());

    Ends &up = track();
    QPointer<QNetworkReply> task = parlo->uploadFileWithImage(picture(), room, false, up.file_(), up.fail());
    EXPECT_TRUE(task);
    // The record is there while the upload runs.
    EXPECT_EQ(parlo->taskDict().size(), 1);
    ASSERT_TRUE(succeedsOnce(up));
    const QString name = up.file->fileName();
    EXPECT_TRUE(name.endsWith(".png"));
    EXPECT_EQ(up.file->type(), kMessageTypeImage);
    EXPECT_EQ(up.file->room(), room->objectID());
    const QByteArray png = parlo->cache().object(name);
    ASSERT_FALSE(png.isEmpty());
    EXPECT_EQ(QImage::fromData(png, "PNG").convertToFormat(QImage::Format_ARGB32), picture()) << "lossless";
    EXPECT_FALSE(parlo->isFileExistsWithName(name)) << "uploads are not written to disk";
    EXPECT_TRUE(parlo->taskDict().isEmpty());

    // By socket: the memory cache is filled, the disk is not.
    parlo->cache().removeAllObjects();
    Ends &socket = fetch(name, Socket);
    ASSERT_TRUE(socket.oneAsyncSuccess()) << socket.error.description().toStdString();
    EXPECT_EQ(socket.value, png);
    EXPECT_EQ(parlo->cache().object(name), png);
    EXPECT_FALSE(parlo->isFileExistsWithName(name));

    // By HTTP from cold: the record names the file while the (delayed) download runs.
    parlo->cache().removeAllObjects();
    fault({{"path", "/files/" + name}, {"method", "get"}, {"action", "delay"}, {"ms", 300}, {"times", 1}});
    Ends &cold = start(name, Http);
    ASSERT_TRUE(waitUntil([&] { return !parlo->taskDict().isEmpty(); }, 10000));
    const QVariantMap record = parlo->taskDict().first();
    EXPECT_EQ(record.value(kFilename).toString(), name);
    EXPECT_TRUE(record.value(kSessionTask).value<QNetworkReply *>());
    EXPECT_TRUE(record.value(kSessionProgress).value<Parlo::Progress>());
    ASSERT_TRUE(succeedsOnce(cold));
    EXPECT_EQ(cold.value, png);
    EXPECT_TRUE(cold.fractionsRiseToOne()) << cold.fractions.size();
    EXPECT_EQ(parlo->cache().object(name), png);
    EXPECT_EQ(parlo->fileWithName(name), png);
    expectNothingLeft(); // the download was moved into the cache folder

    // From disk into memory: the network now fails every request, and is not asked. (That
    // memory comes before disk is the memory cache test's.)
    fault({{"path", "/"}, {"prefix", true}, {"action", "status"}, {"status", 503}});
    parlo->cache().removeAllObjects();
    Ends &disk = fetch(name);
    ASSERT_TRUE(disk.oneAsyncSuccess()) << disk.error.description().toStdString();
    EXPECT_EQ(disk.value, png);
    EXPECT_EQ(parlo->cache().object(name), png);

    // Without the cache the network is always asked.
    EXPECT_TRUE(fetch(name, HttpFresh).failedOnceWith(503));
}

TEST_F(FilesLiveTest, MissingFilesAndNonMembersFailAndNothingIsCached)
{
    signInFacade(uniqueID("owner"));
    const IMRoomPtr room = IMRoom::fromDictionary(call(1, "/room", {{"name", "private"}}).toMap());
    const IMFilePtr file = upload("secret bytes", room);
    ASSERT_TRUE(file);

    EXPECT_TRUE(fetch("missing.png", Socket).failedOnceWith(404));
    Ends &http = fetch("missing.png");
    EXPECT_TRUE(http.failedOnceWith(404));
    EXPECT_TRUE(http.error.info().contains("missing.png")) << http.error.info().toStdString();
    EXPECT_TRUE(http.fractions.isEmpty());

    // Someone outside the room can neither read the file nor upload into the room.
    signUpAs(uniqueID("outsider"));
    parlo->cache().removeAllObjects();
    EXPECT_TRUE(fetch(file->fileName(), CachedSocket).failedOnceWith(403));
    EXPECT_TRUE(fetch(file->fileName()).failedOnceWith(403));
    Ends &intoRoom = track();
    EXPECT_TRUE(
        parlo->uploadFileWithData("x", "other", room, false, intoRoom.progress(), intoRoom.file_(), intoRoom.fail()));
    EXPECT_TRUE(failsOnceWith(intoRoom, 403));
    expectNothingLeft({"missing.png", file->fileName()});
}

TEST_F(FilesLiveTest, BrokenDownloadsFailAndLeaveNothingBehind)
{
    const QString name = signedInUpload(randomBytes(256 * 1024));
    ASSERT_FALSE(name.isEmpty());
    const QString path = "/files/" + name;

    fault({{"path", path}, {"method", "get"}, {"action", "status"}, {"status", 500}, {"times", 1}});
    Ends &failed = fetch(name);
    EXPECT_TRUE(failed.failedOnceWith(500));
    EXPECT_EQ(failed.error.info(), "injected failure");

    fault({{"path", path}, {"method", "get"}, {"action", "truncate"}, {"times", 1}});
    Ends &cut = fetch(name);
    EXPECT_TRUE(cut.oneAsyncFailure());
    EXPECT_EQ(cut.error.domain(), kParloNetworkErrorDomain) << cut.error.description().toStdString();

    // A download that outlives the resource time-out is ended, once.
    ParloInternals::of(parlo.get()).files.setResourceTimeout(400);
    fault({{"path", path}, {"method", "get"}, {"action", "delay"}, {"ms", 5000}, {"times", 1}});
    Ends &slow = fetch(name, Http, 4000);
    EXPECT_TRUE(slow.oneAsyncFailure());
    EXPECT_EQ(slow.error.domain(), kParloNetworkErrorDomain);
    EXPECT_EQ(slow.error.code(), int(QNetworkReply::TimeoutError));

    expectNothingLeft({name});
    EXPECT_EQ(ParloInternals::of(parlo.get()).files.transfersInFlight(), 0);
    EXPECT_EQ(parlo->urlSession()->transferTimeout(), 120000);
}

TEST_F(FilesLiveTest, LargeDownloadsArriveWholeWithRisingProgressAndNoLeftovers)
{
    const QByteArray bytes = randomBytes(4 * 1024 * 1024);
    const QString name = signedInUpload(bytes, true);
    ASSERT_FALSE(name.isEmpty());

    Ends &ends = fetch(name, HttpFresh);
    ASSERT_TRUE(ends.oneAsyncSuccess()) << ends.error.description().toStdString();
    EXPECT_TRUE(ends.value == bytes);
    // (That the bytes stream to disk rather than memory is what the files benchmark's peak-memory
    // figure shows; a check from the progress reports raced the move into the cache under load.)
    EXPECT_TRUE(ends.fractionsRiseToOne());
    EXPECT_EQ(downloadsIn(temp), QStringList());
    EXPECT_TRUE(parlo->fileWithName(name) == bytes);
}

TEST_F(FilesLiveTest, TransfersInFlightFailOnceWhenTheFacadeGoes)
{
    const QString name = signedInUpload("held");
    ASSERT_FALSE(name.isEmpty());
    fault({{"path", "/files/" + name}, {"method", "get"}, {"action", "drop"}});
    fault({{"path", "/files/upload"}, {"action", "drop"}});

    Ends &download = start(name, Http);
    Ends &up = track();
    parlo->uploadFileWithData("never answered", "other", nullptr, false, up.file_(), up.fail());
    download.started = up.started = true;
    // Both requests are out: the download's record is there (the upload's goes once its body is sent).
    ASSERT_TRUE(waitUntil(
        [&] {
            for (const QVariantMap &record : parlo->taskDict())
                if (record.contains(kFilename))
                    return ParloInternals::of(parlo.get()).files.transfersInFlight() == 2;
            return false;
        },
        10000));
    // And a download still waiting for its HTTP chat-in.
    fault({{"path", "/client/chatin"}, {"prefix", true}, {"action", "drop"}});
    Ends &waiting = start(name, HttpFresh);
    waiting.started = true;
    spinFor(300);
    parlo.reset();
    for (Ends *ends : {&download, &up, &waiting})
        EXPECT_TRUE(failsOnceWith(*ends, int(QNetworkReply::OperationCanceledError)));
    EXPECT_EQ(downloadsIn(temp), QStringList());
}

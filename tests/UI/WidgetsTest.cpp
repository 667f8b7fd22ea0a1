// The toolkit's small widgets with real events: the action sheet, gesture recognisers, the image
// view and its loader, named images and the text view.
#include <QBuffer>
#include <QProcess>
#include <QPushButton>
#include <QResource>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include "TestUtil.h"

#include "IMAnimation.h"
#include "IMGestureRecognizer.h"
#include "IMImage.h"
#include "IMPlatform.h"
#include "UITestSupport.h"
#include "UxAlertController.h"
#include "UxImageView.h"
#include "UxTextView.h"

namespace {

TEST(ActionSheet, CompletesExactlyOnceWhicheverWayItCloses)
{
    IMSetAnimationsEnabled(false);
    QWidget window;
    window.resize(390, 700);
    window.show();
    const QStringList buttons {QStringLiteral("照相機"), QStringLiteral("相片圖庫")};
    // How it closes -> the index the completion gets.
    const QList<QPair<std::function<void(UxAlertController *)>, int>> ways {
        {[](UxAlertController *s) {
             QTest::mouseClick(buttonWithText<QPushButton>(s, QStringLiteral("相片圖庫")), Qt::LeftButton);
         },
            1},
        {[](UxAlertController *s) {
             QTest::mouseClick(buttonWithText<QPushButton>(s, QStringLiteral("取消")), Qt::LeftButton);
         },
            -1},
        {[](UxAlertController *s) { QTest::keyClick(s, Qt::Key_Escape); }, -1},
        {[](UxAlertController *s) { QTest::mouseClick(s, Qt::LeftButton, {}, QPoint(10, 10)); }, -1},
        {[](UxAlertController *s) { delete s; }, -1},
    };
    for (const auto &way : ways) {
        QList<int> got;
        UxAlertController *sheet = UxAlertController::showWithController(&window, QStringLiteral("取消"), 0,
            QStringLiteral("照片來自"), QString(), buttons, [&](int i) { got << i; });
        ASSERT_EQ(UxAlertController::current(), sheet);
        EXPECT_EQ(sheet->buttonTitles(), QStringList({"照相機", "相片圖庫", "取消"}));
        way.first(sheet);
        settle();
        EXPECT_EQ(got, QList<int> {way.second});
        EXPECT_EQ(UxAlertController::current(), nullptr);
    }
    // A second sheet cancels the first.
    QList<int> first, second;
    UxAlertController::showWithController(
        &window, QStringLiteral("取消"), 0, {}, {}, buttons, [&](int i) { first << i; });
    UxAlertController *next = UxAlertController::showWithController(
        &window, QStringLiteral("取消"), 0, {}, {}, buttons, [&](int i) { second << i; });
    next->choose(0);
    settle();
    EXPECT_EQ(first, QList<int> {-1});
    EXPECT_EQ(second, QList<int> {0});
    IMSetAnimationsEnabled(true);
}

TEST(Gestures, TapLongPressAndPanOverMouseAndTouch)
{
    QWidget view;
    view.resize(300, 300);
    auto *child = new QWidget(&view); // events on a child reach the parent's recognisers
    child->setGeometry(50, 50, 100, 100);
    view.show();

    int taps = 0;
    IMTapGestureRecognizer tap([&](IMGestureRecognizer *r) { taps += r->state() == IMGestureRecognizer::Ended; });
    tap.addToView(&view);
    tap.addToView(&view);
    EXPECT_EQ(IMGestureRecognizer::gestureRecognizers(&view).size(), 1);
    QTest::mouseClick(child, Qt::LeftButton, {}, QPoint(10, 10));
    EXPECT_EQ(taps, 1);
    EXPECT_EQ(tap.locationInView(&view), QPointF(60, 60));

    QList<IMGestureRecognizer::State> presses;
    IMLongPressGestureRecognizer longPress([&](IMGestureRecognizer *r) { presses << r->state(); });
    longPress.setMinimumPressDuration(0.3);
    longPress.addToView(&view);
    QTest::mousePress(&view, Qt::LeftButton, {}, QPoint(20, 20));
    QTest::qWait(100);
    QTest::mouseRelease(&view, Qt::LeftButton, {}, QPoint(20, 20));
    EXPECT_TRUE(presses.isEmpty()); // shorter than the minimum
    QTest::mousePress(&view, Qt::LeftButton, {}, QPoint(20, 20));
    ASSERT_TRUE(waitUntil([&] { return !presses.isEmpty(); })); // began while still held
    QTest::mouseRelease(&view, Qt::LeftButton, {}, QPoint(20, 20));
    EXPECT_EQ(presses, (QList<IMGestureRecognizer::State> {IMGestureRecognizer::Began, IMGestureRecognizer::Ended}));
    longPress.removeFromView();

    QPointF moved;
    IMPanGestureRecognizer pan(
        [&](IMGestureRecognizer *r) { moved = static_cast<IMPanGestureRecognizer *>(r)->translationInView(); });
    pan.addToView(&view);
    QTest::touchEvent(&view, testTouchScreen()).press(0, QPoint(100, 100));
    QTest::touchEvent(&view, testTouchScreen()).move(0, QPoint(130, 120));
    QTest::touchEvent(&view, testTouchScreen()).move(0, QPoint(160, 140));
    QTest::touchEvent(&view, testTouchScreen()).release(0, QPoint(160, 140));
    EXPECT_EQ(moved, QPointF(60, 40));
    EXPECT_EQ(pan.state(), IMGestureRecognizer::Possible);
}

// A one-shot HTTP server on loopback answering every request with `body`.
class TinyServer : public QTcpServer {
public:
    QByteArray body;
    int requests = 0;
    TinyServer()
    {
        listen(QHostAddress::LocalHost, 0);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *s = nextPendingConnection()) {
                connect(s, &QTcpSocket::readyRead, s, [this, s] {
                    if (!s->readAll().contains("\r\n\r\n"))
                        return;
                    ++requests;
                    s->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size())
                        + "\r\nConnection: close\r\n\r\n" + body);
                    s->disconnectFromHost();
                });
            }
        });
    }
    QUrl url(const QString &path) const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/%2").arg(serverPort()).arg(path));
    }
};

TEST(ImageView, LoadsThroughBothCachesKeepsPlaceholderOnGarbageAndLetsTheLaterRequestWin)
{
    QTemporaryDir cache;
    IMPlatform::instance()->setTemporaryPath(cache.path());
    UxImageLoader::shared()->clearAll();
    QImage red(8, 8, QImage::Format_RGB32);
    red.fill(Qt::red);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    red.save(&buffer, "PNG");
    TinyServer server;
    server.body = png;

    const QImage placeholder = IMImage::named(QStringLiteral("placeholder"));
    // The network, then memory, then disk after the memory is emptied: one request in all.
    int calls = 0;
    bool fromCache = false;
    for (int round = 0; round < 3; ++round) {
        if (round == 2)
            UxImageLoader::shared()->clearMemory();
        UxImageView view;
        view.setImageWithURL(server.url("a.png"), round ? QImage() : placeholder,
            round ? 0 : int(UxImageOptionSetImageWithFadeAnimation), [&](const QImage &, bool cached) {
                ++calls;
                fromCache = cached;
            });
        ASSERT_TRUE(waitUntil([&] { return calls == round + 1; })) << round;
        EXPECT_EQ(fromCache, round > 0) << round;
        EXPECT_EQ(view.image().pixelColor(0, 0), QColor(Qt::red)) << round;
    }
    EXPECT_EQ(server.requests, 1);

    // Garbage and a refused URL keep the placeholder.
    server.body = "not a picture";
    UxImageView broken;
    int brokenCalls = 0;
    broken.setImageWithURL(server.url("b.png"), placeholder, 0, [&](const QImage &image, bool) {
        ++brokenCalls;
        EXPECT_TRUE(image.isNull());
    });
    broken.setImageWithURL(
        QUrl(QStringLiteral("http://127.0.0.1:1/none.png")), placeholder, 0, [&](const QImage &image, bool) {
            ++brokenCalls;
            EXPECT_TRUE(image.isNull());
        });
    ASSERT_TRUE(
        waitUntil([&] { return (brokenCalls) == (1); })); // the first request was replaced: only the later one answers
    EXPECT_EQ(broken.image(), placeholder);
    QTest::qWait(200);
    EXPECT_EQ(brokenCalls, 1);
    IMPlatform::instance()->setTemporaryPath(QString());
}

TEST(NamedImages, DefaultsExistAndAHostResourceWins)
{
    for (const char *name : {"expand_arrow", "placeholder", "camera", "Combined Shape"})
        EXPECT_FALSE(IMImage::named(QString::fromLatin1(name)).isNull()) << name;
    EXPECT_TRUE(IMImage::named(QStringLiteral("no such image")).isNull());
    // A host ships its own "camera" as a resource.
    QTemporaryDir dir;
    QImage blue(5, 5, QImage::Format_RGB32);
    blue.fill(Qt::blue);
    const QString file = dir.filePath(QStringLiteral("camera.png"));
    blue.save(file);
    QFile qrc(dir.filePath(QStringLiteral("host.qrc")));
    ASSERT_TRUE(qrc.open(QIODevice::WriteOnly));
    qrc.write("<RCC><qresource prefix=\"/ParloSDK/images\"><file>camera.png</file></qresource></RCC>");
    qrc.close();
    const QString rcc = dir.filePath(QStringLiteral("host.rcc"));
    if (QProcess::execute(QStringLiteral("/usr/lib/qt6/libexec/rcc"),
            {QStringLiteral("-binary"), qrc.fileName(), QStringLiteral("-o"), rcc})
        != 0)
        GTEST_SKIP() << "rcc not found";
    ASSERT_TRUE(QResource::registerResource(rcc));
    EXPECT_EQ(IMImage::named(QStringLiteral("camera")).size(), QSize(5, 5));
    QResource::unregisterResource(rcc);
}

TEST(TextView, CountsVisualLines)
{
    UxTextView text;
    text.resize(200, 100);
    text.show();
    EXPECT_EQ(text.numberOfLine(), 1);
    text.setText(QStringLiteral("一\n二\n三"));
    EXPECT_EQ(text.numberOfLine(), 3);
    text.setText(QStringLiteral("word ").repeated(60));
    EXPECT_GT(text.numberOfLine(), 3); // wrapped at the width
}

} // namespace

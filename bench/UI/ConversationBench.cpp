// The conversation screen offscreen: the first frame of a 40-message page of texts and pictures
// (pictures already in the facade's memory cache), then 100 incoming messages appended one by one
// while at the bottom, each timed to its frame. Baseline: the same rows as plain labels in a
// QListView, rebuilt and appended to the same way.
#include <QBuffer>
#include <QListView>
#include <QScopeGuard>
#include <QStandardItemModel>
#include <QTemporaryDir>

#include "IMDate.h"
#include "IMMessageViewController.h"
#include "IMNavigationController.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "Parlo.h"
#include "UIBenchSupport.h"

namespace {
IMMessagePtr message(int i, const IMRoomPtr &room, bool picture)
{
    const QString from = i % 3 ? QStringLiteral("bob") : QStringLiteral("alice");
    IMMessagePtr m
        = IMMessage::fromDictionary({{"id", QStringLiteral("m%1").arg(i)}, {"messageType", picture ? "image" : "text"},
            {"message",
                picture ? QStringLiteral("bench-%1.png").arg(i % 4)
                        : QStringLiteral("Message %1: ").arg(i) + QStringLiteral("word ").repeated(i % 12 + 1)},
            {"sender", QVariantMap {{"clientID", from}, {"username", from}}},
            {"createdAt", IMDate::toString8601(QDateTime::currentDateTimeUtc().addSecs(i * 30 - 100000))}});
    m->setRoom(room);
    return m;
}
} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir dir;
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir.filePath(QStringLiteral("settings.ini")));
    // Back to the standard settings before the folder goes (a later write would make it again).
    const auto standardSettings
        = qScopeGuard([] { IMUserDefaults::standardUserDefaults()->setSettingsFile(QString()); });
    IMUserDefaults::standardUserDefaults()->setCurrentUser({{"clientID", "alice"}});
    IMPlatform::instance()->setTemporaryPath(dir.filePath(QStringLiteral("cache")));
    // Four pictures in the file cache, as after a first visit.
    for (int k = 0; k < 4; ++k) {
        QImage img(320, 240, QImage::Format_RGB32);
        img.fill(QColor::fromHsv(k * 80, 160, 220));
        QByteArray png;
        QBuffer b(&png);
        b.open(QIODevice::WriteOnly);
        img.save(&b, "PNG");
        Parlo::shareInstance()->fileSaveWithName(QStringLiteral("bench-%1.png").arg(k), png);
    }
    IMRoomPtr room = IMRoom::fromDictionary({{"id", "r1"}, {"name", "Bench"},
        {"client", QVariantList {QVariantMap {{"clientID", "alice"}}, QVariantMap {{"clientID", "bob"}}}}});
    QList<IMMessagePtr> page;
    for (int i = 0; i < 40; ++i)
        page << message(i, room, i % 5 == 4);

    IMWindow window;
    window.resize(390, 720);
    auto *screen = new IMMessageViewController;
    screen->setRoom(room);
    window.setRootViewController(new IMNavigationController(screen));
    window.show();
    QApplication::processEvents();

    double first = 0;
    std::vector<double> appends;
    int next = 1000;
    uiMeasure(
        &window, 7, 100,
        [&] {
            screen->tableview()->invalidateHeightCache();
            screen->setDataSource(page);
            screen->scrollToBottomWithAnimate(false);
        },
        [&](int) { screen->ParloDidReceiveMessageFromOthers(message(next++, room, false)); }, first, appends);

    QListView list;
    QStandardItemModel model;
    list.setWordWrap(true);
    list.setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    list.resize(390, 720);
    list.show();
    double baseFirst = 0;
    std::vector<double> baseAppends;
    int baseNext = 1000;
    uiMeasure(
        &list, 7, 100,
        [&] {
            model.clear();
            for (const IMMessagePtr &m : page)
                model.appendRow(new QStandardItem(m->message()));
            list.setModel(&model);
            list.scrollToBottom();
        },
        [&](int) {
            model.appendRow(new QStandardItem(message(baseNext++, room, false)->message()));
            list.scrollToBottom();
        },
        baseFirst, baseAppends);

    std::printf("conversation: first frame of 40 rows %.2f ms (QListView %.2f ms); append at the bottom median %.2f / "
                "p99 %.2f ms "
                "(QListView %.2f / %.2f ms)\n",
        first, baseFirst, uiPercentile(appends, 0.5), uiPercentile(appends, 0.99), uiPercentile(baseAppends, 0.5),
        uiPercentile(baseAppends, 0.99));
    uiRow("conversation: first frame of 40 mixed rows (baseline QListView)", first, "ms", baseFirst, "<=", 50);
    uiRow("conversation: incoming message at the bottom, p99 (baseline QListView)", uiPercentile(appends, 0.99), "ms",
        uiPercentile(baseAppends, 0.99), "<=", 16);
    return 0;
}

// The room list with 10,000 local rooms beside a plain QListView over a QStandardItemModel holding
// the same titles and last messages, offscreen: time to the first frame after ParloDidUpdateRooms,
// the frame time of a scroll step, and the unread total over the 10,000 rooms.
#include <QDir>
#include <QListView>
#include <QScopeGuard>
#include <QScrollBar>
#include <QStandardItemModel>
#include <QTemporaryDir>

#include "IMDate.h"
#include "IMNavigationController.h"
#include "IMRoomViewController.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "UIBenchSupport.h"

namespace {
const int kRooms = 10000;
const int kRounds = 7;
const int kSteps = 300;

QString lastMessage(int i)
{
    return QStringLiteral("Message %1: ").arg(i) + QStringLiteral("see you at seven ").repeated(1 + i % 4);
}

QList<IMRoomPtr> makeRooms()
{
    QList<IMRoomPtr> rooms;
    rooms.reserve(kRooms);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < kRooms; ++i) {
        IMRoomPtr r = IMRoom::fromDictionary({{"id", QStringLiteral("room%1").arg(i)}});
        QVariantList members {QVariantMap {{"clientID", "me"}}};
        // Every third room is one-to-one; the rest are groups of three.
        members << QVariantMap {
            {"clientID", QStringLiteral("c%1").arg(i)}, {"username", QStringLiteral("Client %1").arg(i)}};
        if (i % 3)
            members << QVariantMap {{"clientID", QStringLiteral("d%1").arg(i)}};
        r->setName(QStringLiteral("Room %1").arg(i));
        r->setClient(members);
        r->setBadge(i % 7 == 0 ? i % 200 : 0);
        r->setMessage({QVariantMap {{"messageType", "text"}, {"message", lastMessage(i)}}});
        r->setLastMessageTime(IMDate::toString8601(now.addSecs(-60 * i)));
        rooms << r;
    }
    return rooms;
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
    IMUserDefaults::standardUserDefaults()->setCurrentUser({{"clientID", "me"}});
    const QList<IMRoomPtr> rooms = makeRooms();

    auto *list = new IMRoomViewController;
    IMWindow window;
    window.setRootViewController(new IMNavigationController(list));
    window.resize(390, 720);
    window.show();
    QApplication::processEvents();
    double ourFirst = 0;
    std::vector<double> ourSteps;
    // The rooms arrive as the facade hands them over; each round a fresh list, as after a refresh.
    uiMeasure(
        list, kRounds, kSteps, [&] { list->ParloDidUpdateRooms(rooms); },
        [&](int s) {
            QScrollBar *bar = list->tableview()->verticalScrollBar();
            bar->setValue(bar->value() + 40 + (s % 3) * 20);
        },
        ourFirst, ourSteps);

    std::vector<double> sums;
    qint32 total = 0;
    for (int r = 0; r < kRounds; ++r) {
        QElapsedTimer t;
        t.start();
        total = IMRoomViewController::getAllUnreadNumber(rooms);
        sums.push_back(t.nsecsElapsed() / 1e6);
    }

    QListView view;
    QStandardItemModel model;
    view.setUniformItemSizes(false);
    view.setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    view.resize(390, 720);
    view.show();
    double baseFirst = 0;
    std::vector<double> baseSteps;
    uiMeasure(
        &view, kRounds, kSteps,
        [&] {
            model.clear();
            for (int i = 0; i < kRooms; ++i)
                model.appendRow(new QStandardItem(QStringLiteral("Room %1\n%2").arg(i).arg(lastMessage(i))));
            view.setModel(&model);
        },
        [&](int s) { view.verticalScrollBar()->setValue(view.verticalScrollBar()->value() + 40 + (s % 3) * 20); },
        baseFirst, baseSteps);

    std::printf("room list, %d rooms: first frame %.2f ms (QListView %.2f ms); scroll step median "
                "%.2f / p99 %.2f ms "
                "(QListView %.2f / %.2f ms); unread total %d in %.3f ms; row widgets made %d\n",
        kRooms, ourFirst, baseFirst, uiPercentile(ourSteps, 0.5), uiPercentile(ourSteps, 0.99),
        uiPercentile(baseSteps, 0.5), uiPercentile(baseSteps, 0.99), int(total), uiPercentile(sums, 0.5),
        list->tableview()->createdCellCount());
    uiRow("room list: first frame after ParloDidUpdateRooms, 10,000 rooms (baseline QListView)", ourFirst, "ms",
        baseFirst, "<=", 50);
    uiRow("room list: scroll step, median (baseline QListView)", uiPercentile(ourSteps, 0.5), "ms",
        uiPercentile(baseSteps, 0.5));
    uiRow("room list: scroll step, p99 (baseline QListView)", uiPercentile(ourSteps, 0.99), "ms",
        uiPercentile(baseSteps, 0.99), "<=", 16);
    uiRow("room list: unread total over 10,000 rooms", uiPercentile(sums, 0.5), "ms", 0, "<=", 16);
    return 0;
}

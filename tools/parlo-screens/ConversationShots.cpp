// Screenshots of the conversation: a one-to-one and a group room with text and picture rows from
// both sides, date headers, read markers, a row sending, a failed row and a row being edited; then
// the input bar's states, the message menus and the picture viewer.
#include <QLinearGradient>
#include <QPainter>
#include <QTemporaryDir>
#include <QTimer>

#include "IMDate.h"
#include "IMLayoutConstraint.h"
#include "IMMessageTableViewCell.h"
#include "IMMessageViewController.h"
#include "IMNavigationController.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "Screenshots.h"
#include "UxLabel.h"
#include "UxTextView.h"

namespace {
QImage landscape()
{
    QImage img(480, 320, QImage::Format_RGB32);
    QPainter p(&img);
    QLinearGradient sky(0, 0, 0, 320);
    sky.setColorAt(0, QColor(120, 180, 240));
    sky.setColorAt(1, QColor(250, 214, 165));
    p.fillRect(img.rect(), sky);
    p.setBrush(QColor(60, 120, 80));
    p.setPen(Qt::NoPen);
    p.drawEllipse(QPointF(120, 360), 220, 150);
    p.setBrush(QColor(40, 90, 60));
    p.drawEllipse(QPointF(380, 380), 240, 170);
    p.setBrush(QColor(255, 235, 150));
    p.drawEllipse(QPointF(380, 80), 36, 36);
    return img;
}

QVariantMap person(const QString &id, const QString &name) { return {{"clientID", id}, {"username", name}}; }

// A conversation screen with local messages, signed in as Alice (in a throw-away settings file);
// `then` runs once the window has its size and the list is at the bottom.
QWidget *conversation(bool group, const std::function<void(IMMessageViewController *)> &then = {})
{
    static QTemporaryDir settings;
    IMUserDefaults::standardUserDefaults()->setSettingsFile(settings.filePath(QStringLiteral("settings.ini")));
    IMUserDefaults::standardUserDefaults()->setCurrentUser(person("alice", "Alice"));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QVariantList members {person("alice", "Alice"), person("bob", "Bob")};
    QVariantMap reads {{"alice", IMDate::toString8601(now)}, {"bob", IMDate::toString8601(now.addSecs(-1800))}};
    if (group) {
        members << person("carol", "Carol") << person("dan", "Dan");
        reads.insert("carol", IMDate::toString8601(now));
        reads.insert("dan", IMDate::toString8601(now.addSecs(-7200)));
    }
    IMRoomPtr room = IMRoom::fromDictionary({{"id", group ? "g1" : "r1"}, {"name", "週末登山社"}, {"client", members}});
    room->setReadTime(reads);

    struct Line {
        QString from;
        QString type;
        QString text;
        int minutesAgo;
        quint64 state;
    };
    QList<Line> lines = group
        ? QList<Line> {{"bob", "text", "這週六去七星山好嗎？", 60 * 26, 0},
            {"carol", "text", "好啊！我可以開車 🚗", 60 * 25, 0}, {"alice", "text", "我帶午餐 🍙", 60 * 24, 0},
            {"dan", "image", "", 90, 0}, {"dan", "text", "上次拍的，天氣很好", 88, 0},
            {"alice", "text", "哇，好漂亮！", 40, 0}, {"alice", "text", "幾點集合？", 2, 1}}
        : QList<Line> {{"bob", "text", "Hi Alice! Noodles at noon?", 60 * 26, 0},
            {"alice", "text", "Sure, see you there.", 60 * 25, 0}, {"bob", "image", "", 130, 0},
            {"bob", "text", "This is the place.", 129, 0}, {"alice", "image", "", 45, 0},
            {"alice", "text", "Running five minutes late, sorry!", 35, 3},
            {"alice", "text", "Ordering for both of us\n(the usual, no onions)", 3, 2}};
    QList<IMMessagePtr> messages;
    int n = 0;
    for (const Line &l : lines) {
        QVariantMap sender = person(l.from, l.from.left(1).toUpper() + l.from.mid(1));
        IMMessagePtr m = IMMessage::fromDictionary({{"id", QStringLiteral("m%1").arg(++n)}, {"messageType", l.type},
            {"message", l.type == "image" ? QStringLiteral("photo%1.jpg").arg(n) : l.text}, {"sender", sender},
            {"createdAt", IMDate::toString8601(now.addSecs(-60 * l.minutesAgo))}});
        m->setRoom(room);
        m->setSendingType(l.state);
        if (l.type == "image")
            m->setTemp(QVariant::fromValue(landscape()));
        messages << m;
    }
    auto *screen = new IMMessageViewController;
    screen->echoReadToRoom = true;
    screen->setRoom(room);
    auto *nav = new IMNavigationController(screen);
    nav->setBarTintColor(QColor(36, 113, 163));
    nav->setTintColor(Qt::white);
    auto *window = new IMWindow;
    window->resize(390, 720);
    window->setRootViewController(nav);
    screen->setDataSource(messages);
    // Once the window has its size, as the screen does after its first page.
    QTimer::singleShot(50, screen, [screen, then] {
        screen->scrollToBottomWithAnimate(false);
        if (then)
            then(screen);
    });
    return window;
}

int lastRowOfType(IMMessageViewController *screen, const QString &type, bool own)
{
    const QList<IMMessagePtr> messages = screen->dataSource();
    for (int i = messages.size() - 1; i >= 0; --i)
        if (messages[i]->messageType() == type && (messages[i]->sender()->clientID() == QLatin1String("alice")) == own)
            return i;
    return -1;
}

// The conversation with the long-press menu of the newest message of `type` from Alice or not.
QWidget *menu(const QString &type, bool own)
{
    return conversation(false, [type, own](IMMessageViewController *screen) {
        screen->longPressForMessageAtRowOfIndexPath(IMIndexPath::indexPathForRow(lastRowOfType(screen, type, own)));
    });
}
} // namespace

PARLO_SCREENSHOT({"conversation-one-to-one", [] { return conversation(false); }, {390, 720}, 400});
PARLO_SCREENSHOT({"conversation-group", [] { return conversation(true); }, {390, 720}, 400});

PARLO_SCREENSHOT({"composing-five-lines",
    [] {
        return conversation(false, [](IMMessageViewController *screen) {
            screen->inputTextView->setText(
                QStringLiteral("Plan for Saturday:\n1. Meet at the station, 8:30\n2. Bus to the trailhead\n"
                               "3. Lunch at the top 🍙\n4. Hot springs after\n5. Dinner?"));
            screen->inputTextView->moveCursor(QTextCursor::End);
        });
    },
    {390, 720}, 400});
PARLO_SCREENSHOT({"composing-editing",
    [] {
        return conversation(false, [](IMMessageViewController *screen) {
            const int row = lastRowOfType(screen, QStringLiteral("text"), true);
            for (const IMMessagePtr &m : screen->dataSource())
                m->setSendingType(IMMessageSendingTypeSettled);
            screen->tableview()->reloadData();
            screen->didChooseEditMessage(screen->dataSource()[row], IMIndexPath::indexPathForRow(row));
        });
    },
    {390, 720}, 400});
PARLO_SCREENSHOT({"composing-more-panel",
    [] {
        return conversation(false, [](IMMessageViewController *screen) {
            screen->showMoreOptionBtn = true;
            screen->inputTextViewLeadingDistance->setConstant(8);
            screen->moreButtonDidPressed();
        });
    },
    {390, 720}, 600});
PARLO_SCREENSHOT({"composing-picture-uploading",
    [] {
        return conversation(false, [](IMMessageViewController *screen) {
            // The row as the upload's progress leaves it: the picture shown at once, 37 % in its time label.
            IMMessagePtr picture = IMMessage::initWithRoom(screen->room());
            picture->setSender(IMClient::fromDictionary(person("alice", "Alice")));
            picture->setMessageType(QStringLiteral("image"));
            picture->setMessage(QStringLiteral("sending image"));
            picture->setTemp(QVariant::fromValue(landscape()));
            QList<IMMessagePtr> messages = screen->dataSource();
            messages << picture;
            screen->setDataSource(messages);
            screen->scrollToBottomWithAnimate(false);
            QTimer::singleShot(100, screen, [screen] {
                auto *row = qobject_cast<IMMessageTableViewCell *>(screen->tableview()->cellForRowAtIndexPath(
                    IMIndexPath::indexPathForRow(screen->dataSource().size() - 1)));
                if (row && row->timeLabel())
                    row->timeLabel()->setText(QStringLiteral("%1 %").arg(int(0.372 * 100)));
            });
        });
    },
    {390, 720}, 500});
PARLO_SCREENSHOT({"composing-picture-source",
    [] { return conversation(false, [](IMMessageViewController *screen) { screen->cameraBtnPressed(); }); }, {390, 720},
    400});
PARLO_SCREENSHOT({"menu-own-text", [] { return menu(QStringLiteral("text"), true); }, {390, 720}, 400});
PARLO_SCREENSHOT({"menu-other-text", [] { return menu(QStringLiteral("text"), false); }, {390, 720}, 400});
PARLO_SCREENSHOT({"menu-own-picture", [] { return menu(QStringLiteral("image"), true); }, {390, 720}, 400});
PARLO_SCREENSHOT({"menu-other-picture", [] { return menu(QStringLiteral("image"), false); }, {390, 720}, 400});
PARLO_SCREENSHOT({"viewer-open",
    [] {
        return conversation(false, [](IMMessageViewController *screen) {
            const int row = lastRowOfType(screen, QStringLiteral("image"), false);
            screen->tableview()->scrollToRowAtIndexPath(
                IMIndexPath::indexPathForRow(row), IMTableView::ScrollPositionMiddle, false);
            QTimer::singleShot(50, screen, [screen, row] {
                screen->IMMessageTableViewCellImageViewDidPressed(qobject_cast<IMMessageTableViewCell *>(
                    screen->tableview()->cellForRowAtIndexPath(IMIndexPath::indexPathForRow(row))));
            });
        });
    },
    {390, 720}, 600});

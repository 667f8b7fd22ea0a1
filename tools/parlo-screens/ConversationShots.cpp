// Screenshots of the conversation: a one-to-one and a group room with text and picture rows from
// both sides, date headers, read markers, a row sending, a failed row and a row being edited.
#include <QLinearGradient>
#include <QPainter>
#include <QTemporaryDir>

#include "IMDate.h"
#include "IMMessageViewController.h"
#include "IMNavigationController.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "Screenshots.h"

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

// A conversation screen with local messages, signed in as Alice (in a throw-away settings file).
QWidget *conversation(bool group)
{
    static QTemporaryDir settings;
    IMUserDefaults::standardUserDefaults()->setSettingsFile(settings.filePath(QStringLiteral("settings.ini")));
    IMUserDefaults::standardUserDefaults()->setCurrentUser(person("alice", "Alice"));
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QVariantList members{person("alice", "Alice"), person("bob", "Bob")};
    QVariantMap reads{{"alice", IMDate::toString8601(now)}, {"bob", IMDate::toString8601(now.addSecs(-1800))}};
    if (group) {
        members << person("carol", "Carol") << person("dan", "Dan");
        reads.insert("carol", IMDate::toString8601(now));
        reads.insert("dan", IMDate::toString8601(now.addSecs(-7200)));
    }
    IMRoomPtr room = IMRoom::fromDictionary({{"id", group ? "g1" : "r1"}, {"name", "週末登山社"}, {"client", members}});
    room->setReadTime(reads);

    struct Line { QString from; QString type; QString text; int minutesAgo; quint64 state; };
    QList<Line> lines = group
        ? QList<Line>{{"bob", "text", "這週六去七星山好嗎？", 60 * 26, 0}, {"carol", "text", "好啊！我可以開車 🚗", 60 * 25, 0},
                      {"alice", "text", "我帶午餐 🍙", 60 * 24, 0}, {"dan", "image", "", 90, 0},
                      {"dan", "text", "上次拍的，天氣很好", 88, 0}, {"alice", "text", "哇，好漂亮！", 40, 0},
                      {"alice", "text", "幾點集合？", 2, 1}}
        : QList<Line>{{"bob", "text", "Hi Alice! Noodles at noon?", 60 * 26, 0}, {"alice", "text", "Sure, see you there.", 60 * 25, 0},
                      {"bob", "image", "", 130, 0}, {"bob", "text", "This is the place.", 129, 0},
                      {"alice", "image", "", 45, 0}, {"alice", "text", "Running five minutes late, sorry!", 35, 3},
                      {"alice", "text", "Ordering for both of us", 3, 2}};
    QList<IMMessagePtr> messages;
    int n = 0;
    for (const Line &l : lines) {
        QVariantMap sender = person(l.from, l.from.left(1).toUpper() + l.from.mid(1));
        IMMessagePtr m = IMMessage::fromDictionary({{"id", QStringLiteral("m%1").arg(++n)}, {"messageType", l.type},
                                                   {"message", l.type == "image" ? QStringLiteral("photo%1.jpg").arg(n) : l.text},
                                                   {"sender", sender}, {"createdAt", IMDate::toString8601(now.addSecs(-60 * l.minutesAgo))}});
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
    screen->scrollToBottomWithAnimate(false);
    return window;
}
} // namespace

PARLO_SCREENSHOT({"conversation-one-to-one", [] { return conversation(false); }, {390, 720}, 400});
PARLO_SCREENSHOT({"conversation-group", [] { return conversation(true); }, {390, 720}, 400});

// Typing in the conversation's input bar offscreen: a key press in a five-line text (the text view
// at its tallest) to the next frame of the whole window, which holds a 40-message page. Keys
// alternate between a letter and Backspace so the text keeps its five lines. Baseline: the same
// keys into a bare QPlainTextEdit of the same size in a window of the same size.
#include <QKeyEvent>
#include <QPlainTextEdit>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QVBoxLayout>

#include "IMDate.h"
#include "IMLayoutConstraint.h"
#include "IMMessageViewController.h"
#include "IMNavigationController.h"
#include "IMUserDefaults.h"
#include "IMWindow.h"
#include "UIBenchSupport.h"
#include "UxTextView.h"

namespace {
const QString kFiveLines
    = QStringLiteral("Plan for Saturday:\n1. Meet at the station\n2. Bus to the trailhead\n3. Lunch at the top\n4. ");

// Times `keys` key presses into `editor`, each followed by a frame of `window`.
std::vector<double> typeInto(QWidget *window, QWidget *editor, int keys)
{
    std::vector<double> times;
    for (int i = 0; i < keys; ++i) {
        const bool letter = i % 2 == 0;
        const int key = letter ? Qt::Key_A : Qt::Key_Backspace;
        const QString text = letter ? QStringLiteral("a") : QString();
        QElapsedTimer t;
        t.start();
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
        QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
        QApplication::sendEvent(editor, &press);
        QApplication::sendEvent(editor, &release);
        QApplication::processEvents();
        QPixmap frame = window->grab();
        Q_UNUSED(frame);
        times.push_back(t.nsecsElapsed() / 1e6);
    }
    return times;
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
    IMRoomPtr room = IMRoom::fromDictionary({{"id", "r1"}, {"name", "Bench"}});
    QList<IMMessagePtr> page;
    for (int i = 0; i < 40; ++i) {
        const QString from = i % 3 ? QStringLiteral("bob") : QStringLiteral("alice");
        page << IMMessage::fromDictionary({{"id", QStringLiteral("m%1").arg(i)}, {"messageType", "text"},
            {"message", QStringLiteral("Message %1: ").arg(i) + QStringLiteral("word ").repeated(i % 12 + 1)},
            {"sender", QVariantMap {{"clientID", from}, {"username", from}}},
            {"createdAt", IMDate::toString8601(QDateTime::currentDateTimeUtc().addSecs(i * 30 - 100000))}});
    }

    IMWindow window;
    window.resize(390, 720);
    auto *screen = new IMMessageViewController;
    screen->setRoom(room);
    window.setRootViewController(new IMNavigationController(screen));
    window.show();
    QApplication::processEvents();
    screen->setDataSource(page);
    screen->scrollToBottomWithAnimate(false);
    screen->inputTextView->setText(kFiveLines);
    screen->inputTextView->setFocus();
    screen->inputTextView->moveCursor(QTextCursor::End);
    uiFrameMs(&window);
    uiFrameMs(&window);
    const std::vector<double> ours = typeInto(&window, screen->inputTextView, 400);
    const int height = int(screen->inputTextViewHeight->constant());

    QWidget plain;
    plain.resize(390, 720);
    auto *layout = new QVBoxLayout(&plain);
    layout->addStretch();
    auto *editor = new QPlainTextEdit(&plain);
    editor->setFixedHeight(height);
    layout->addWidget(editor);
    plain.show();
    editor->setPlainText(kFiveLines);
    editor->setFocus();
    editor->moveCursor(QTextCursor::End);
    uiFrameMs(&plain);
    const std::vector<double> base = typeInto(&plain, editor, 400);

    std::printf("typing: key to frame median %.2f / p99 %.2f ms with the text view at %d points (bare QPlainTextEdit "
                "%.2f / %.2f ms)\n",
        uiPercentile(ours, 0.5), uiPercentile(ours, 0.99), height, uiPercentile(base, 0.5), uiPercentile(base, 0.99));
    uiRow("typing: key press in a 5-line text to the next frame, median (baseline bare QPlainTextEdit)",
        uiPercentile(ours, 0.5), "ms", uiPercentile(base, 0.5), "<=", 8);
    uiRow("typing: key press to frame, p99 (baseline bare QPlainTextEdit)", uiPercentile(ours, 0.99), "ms",
        uiPercentile(base, 0.99), "<=", 8);
    return 0;
}

// parlo-screens: renders the kit's screens in named states offscreen and writes one PNG each.
//   parlo-screens [--out DIR] [--list] [NAME-PREFIX...]
// Without --out the pictures go to a new temporary folder; the folder is printed last.
#include "Screenshots.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTextStream>
#include <algorithm>
#include <cstdio>

#include "IMAnimation.h"

static QList<Screenshot> &registry()
{
    static QList<Screenshot> shots;
    return shots;
}

int parloRegisterScreenshot(const Screenshot &shot)
{
    registry().append(shot);
    return registry().size();
}

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("ParloSDK"));
    QApplication::setApplicationName(QStringLiteral("parlo-screens"));
    QTextStream out(stdout);

    QString outDir;
    bool list = false;
    QStringList prefixes;
    const QStringList args = app.arguments().mid(1);
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--out") && i + 1 < args.size())
            outDir = args[++i];
        else if (args[i] == QLatin1String("--list"))
            list = true;
        else if (args[i] == QLatin1String("--help") || args[i] == QLatin1String("-h")) {
            out << "usage: parlo-screens [--out DIR] [--list] [NAME-PREFIX...]\n";
            return 0;
        } else
            prefixes << args[i];
    }

    QList<Screenshot> shots = registry();
    std::sort(shots.begin(), shots.end(), [](const Screenshot &a, const Screenshot &b) { return a.name < b.name; });
    auto chosen = [&](const Screenshot &s) {
        return prefixes.isEmpty()
            || std::any_of(prefixes.begin(), prefixes.end(), [&](const QString &p) { return s.name.startsWith(p); });
    };
    if (list) {
        for (const Screenshot &s : shots)
            if (chosen(s))
                out << s.name << '\n';
        return 0;
    }

    QTemporaryDir temp(QDir::temp().filePath(QStringLiteral("parlo-screens-XXXXXX")));
    if (outDir.isEmpty()) {
        temp.setAutoRemove(false);
        outDir = temp.path();
    }
    QDir().mkpath(outDir);

    // Pictures show settled states: animations jump to their end.
    IMSetAnimationsEnabled(false);
    int written = 0, failed = 0;
    for (const Screenshot &s : shots) {
        if (!chosen(s))
            continue;
        QWidget *w = s.make ? s.make() : nullptr;
        if (!w) {
            fprintf(stderr, "parlo-screens: %s: nothing to show\n", qPrintable(s.name));
            ++failed;
            continue;
        }
        w->resize(s.size);
        w->show();
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < s.settleMs)
            QApplication::processEvents(QEventLoop::AllEvents, 20);
        const QString path = QDir(outDir).filePath(s.name + QStringLiteral(".png"));
        if (w->grab().save(path)) {
            out << path << '\n';
            ++written;
        } else {
            fprintf(stderr, "parlo-screens: could not write %s\n", qPrintable(path));
            ++failed;
        }
        out.flush();
        delete w;
        QApplication::processEvents();
    }
    out << written << " screenshot(s) in " << QDir(outDir).absolutePath() << '\n';
    return failed ? 1 : 0;
}

// parlo-cli: a terminal client of a Parlo chat server, written on the kit's public API.
#include "CliOptions.h"
#include "CliPrinter.h"
#include "CliSession.h"

#include <ParloSDK/IMPlatform.h>
#include <ParloSDK/IMUserDefaults.h>
#include <ParloSDK/Parlo.h>

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QLoggingCategory>
#include <QProcessEnvironment>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

using namespace ParloCli;

namespace {

int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(g_signalPipe[1], &byte, 1);
}

// A small colourful PNG, so a demo needs no image tools.
int makePicture(const Options &o, Printer &printer)
{
    const QString path = o.args.value(0);
    QImage image(o.size, o.size, QImage::Format_RGB32);
    for (int y = 0; y < o.size; ++y)
        for (int x = 0; x < o.size; ++x) {
            const int r = 255 * x / o.size;
            const int g = 255 * y / o.size;
            const bool ring = qAbs((x - o.size / 2) * (x - o.size / 2) + (y - o.size / 2) * (y - o.size / 2)
                                  - (o.size / 3) * (o.size / 3))
                < o.size;
            image.setPixel(x, y, ring ? qRgb(255, 255, 255) : qRgb(r, g, 160));
        }
    if (!image.save(path, "PNG")) {
        printer.error(ExitFailure, QStringLiteral("make-picture: cannot write %1").arg(path));
        return ExitFailure;
    }
    printer.result({QStringLiteral("wrote %1 (%2x%2 PNG)").arg(path).arg(o.size),
        {{QStringLiteral("type"), QStringLiteral("picture")}, {QStringLiteral("path"), path}}});
    return ExitOk;
}

// Points the kit's settings, store and cache at the profile folder.
bool useProfile(const QString &dir, Printer &printer)
{
    QDir root(dir);
    if (!root.mkpath(QStringLiteral("data")) || !root.mkpath(QStringLiteral("cache"))) {
        printer.error(ExitFailure, QStringLiteral("cannot use the profile folder %1").arg(dir));
        return false;
    }
    IMUserDefaults::standardUserDefaults()->setSettingsFile(root.absoluteFilePath(QStringLiteral("settings.ini")));
    IMPlatform::instance()->setDocumentsPath(root.absoluteFilePath(QStringLiteral("data")));
    IMPlatform::instance()->setTemporaryPath(root.absoluteFilePath(QStringLiteral("cache")));
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("parlo-cli"));
    QCoreApplication::setOrganizationName(QStringLiteral("parlo-cli"));

    QMap<QString, QString> environment;
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &key : env.keys())
        if (key.startsWith(QLatin1String("PARLO_")))
            environment.insert(key, env.value(key));
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    const ParseResult parsed = parseArguments(arguments, environment);

    Printer printer(parsed.options.json);
    if (!parsed.error.isEmpty()) {
        printer.error(ExitUsage, parsed.error);
        std::fputs("(parlo-cli --help lists the commands and options)\n", stderr);
        return ExitUsage;
    }
    if (parsed.help) {
        std::fputs(usageText(parsed.helpTopic).toUtf8().constData(), stdout);
        return ExitOk;
    }
    if (parsed.version) {
        std::printf("%s\n", versionText().toUtf8().constData());
        return ExitOk;
    }
    const Options &options = parsed.options;
    if (options.command == QLatin1String("make-picture"))
        return makePicture(options, printer);

    // The kit's own log stays quiet unless asked for.
    QLoggingCategory::setFilterRules(options.verbose ? QStringLiteral("parlo*=true") : QStringLiteral("parlo*=false"));
    if (!options.profile.isEmpty() && !useProfile(options.profile, printer))
        return ExitFailure;

    // Ctrl-C and SIGTERM end the run through the event loop.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_signalPipe) != 0) {
        printer.error(ExitFailure, QStringLiteral("cannot set up signal handling"));
        return ExitFailure;
    }
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::signal(SIGPIPE, SIG_IGN);

    int exitCode = ExitFailure;
    {
        Session session(Parlo::shareInstance(), options, printer);
        QSocketNotifier signalNotifier(g_signalPipe[0], QSocketNotifier::Read);
        QObject::connect(&signalNotifier, &QSocketNotifier::activated, &session, [&session] {
            char byte;
            [[maybe_unused]] const ssize_t n = ::read(g_signalPipe[0], &byte, 1);
            session.interrupt();
        });
        bool ended = false;
        session.start([&exitCode, &ended](int code) {
            exitCode = code;
            ended = true;
            QCoreApplication::exit(code);
        });
        // A run refused before it started never enters the loop (exit() would be lost there).
        if (!ended)
            app.exec();
        // Session data written by the kit reaches the disk before leaving.
        IMUserDefaults::standardUserDefaults()->write();
    }
    return exitCode;
}

#include "UITestSupport.h"

#include "IMUserDefaults.h"

#include <QTemporaryDir>
#include <QTest>

SettingsInDir::SettingsInDir(const QTemporaryDir &dir)
{
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir.filePath(QStringLiteral("settings.ini")));
}

SettingsInDir::~SettingsInDir() { IMUserDefaults::standardUserDefaults()->setSettingsFile(QString()); }

QPointingDevice *testTouchScreen()
{
    static QPointingDevice *device = QTest::createTouchDevice();
    return device;
}

#include <QMutex>
#include <QRegularExpression>

namespace {
QMutex g_logLock;
QStringList g_lines;
QtMessageHandler g_previous = nullptr;

void capture(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    {
        QMutexLocker lock(&g_logLock);
        g_lines << message;
    }
    if (g_previous)
        g_previous(type, context, message);
}
} // namespace

LogCapture::LogCapture()
{
    QMutexLocker lock(&g_logLock);
    g_lines.clear();
    g_previous = qInstallMessageHandler(capture);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(g_previous);
}

QStringList LogCapture::texts() const
{
    QMutexLocker lock(&g_logLock);
    QStringList out;
    static const QRegularExpression prefix(QStringLiteral("^<[^>]*:\\d+> "));
    for (const QString &line : g_lines)
        if (line.contains(prefix))
            out << QString(line).remove(prefix);
    return out;
}

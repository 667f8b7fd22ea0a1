#include "NodeProcess.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QStandardPaths>
#include <QThread>

#include <csignal>
#include <sys/types.h>

NodeProcess::NodeProcess(const QString &script, const QStringList &arguments, const QRegularExpression &portLine)
    : m_script(script)
    , m_arguments(arguments)
    , m_portLine(portLine)
{
}

NodeProcess::~NodeProcess() { stop(); }

QString NodeProcess::nodeExecutable()
{
    const QString found = QStandardPaths::findExecutable(QStringLiteral("node"));
    return found.isEmpty() ? QStringLiteral("node") : found;
}

bool NodeProcess::start(int timeoutMs, const QStringList &extraArguments)
{
    stop();
    m_error.clear();
    m_port = 0;
    m_process = std::make_unique<QProcess>();
    m_process->setWorkingDirectory(QFileInfo(m_script).absolutePath());
    m_process->setProcessChannelMode(QProcess::SeparateChannels);
    m_process->start(nodeExecutable(), QStringList {m_script} + m_arguments + extraArguments);
    if (!m_process->waitForStarted(timeoutMs)) {
        m_error = QStringLiteral("cannot start node: ") + m_process->errorString();
        return false;
    }
    QDeadlineTimer deadline(timeoutMs);
    QByteArray buffered;
    while (!deadline.hasExpired()) {
        if (m_process->state() == QProcess::NotRunning)
            break;
        m_process->waitForReadyRead(50);
        buffered += m_process->readAllStandardOutput();
        qsizetype nl;
        while ((nl = buffered.indexOf('\n')) >= 0) {
            const QString line = QString::fromUtf8(buffered.left(nl)).trimmed();
            buffered.remove(0, nl + 1);
            const auto match = m_portLine.match(line);
            if (match.hasMatch()) {
                m_port = match.captured(1).toInt();
                return true;
            }
        }
    }
    m_error = QStringLiteral("no port line from %1: %2").arg(m_script, errorText());
    stop();
    return false;
}

void NodeProcess::stop()
{
    if (!m_process)
        return;
    if (m_process->state() != QProcess::NotRunning) {
        suspend(false);
        m_process->kill();
        m_process->waitForFinished(5000);
    }
    m_error += QString::fromUtf8(m_process->readAllStandardError());
    m_process.reset();
}

bool NodeProcess::restart(const QStringList &extraArguments, int timeoutMs)
{
    stop();
    return start(timeoutMs, extraArguments);
}

void NodeProcess::suspend(bool suspended)
{
    const qint64 pid = processId();
    if (pid > 0)
        ::kill(pid_t(pid), suspended ? SIGSTOP : SIGCONT);
}

bool NodeProcess::isRunning() const { return m_process && m_process->state() != QProcess::NotRunning; }

qint64 NodeProcess::processId() const { return isRunning() ? m_process->processId() : 0; }

QString NodeProcess::errorText() const
{
    QString text = m_error;
    if (m_process)
        text += QString::fromUtf8(m_process->readAllStandardError());
    return text;
}

#pragma once

#include <QProcess>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <memory>

//! A Node.js program run by a test: started with a script and arguments, ready once it printed
//! the line carrying its port. Stopped (killed) when destroyed. Use on the main thread.
class NodeProcess {
public:
    //! `script` is run by `node` with `arguments`; `portLine` captures the port in group 1
    //! (default: a line "PORT <n>").
    NodeProcess(const QString &script, const QStringList &arguments = {},
        const QRegularExpression &portLine = QRegularExpression(QStringLiteral("^PORT (\\d+)$")));
    ~NodeProcess();
    NodeProcess(const NodeProcess &) = delete;
    NodeProcess &operator=(const NodeProcess &) = delete;

    //! Starts the program and waits up to `timeoutMs` for its port line; false on failure
    //! (see `errorText`). `extraArguments` are appended to the arguments given at creation.
    bool start(int timeoutMs = 15000, const QStringList &extraArguments = {});
    //! Kills the program and waits for it to end.
    void stop();
    //! Stops, then starts again with the same arguments plus `extraArguments`.
    bool restart(const QStringList &extraArguments = {}, int timeoutMs = 15000);
    //! Sends SIGSTOP (true) or SIGCONT (false): a server that stops answering without closing.
    void suspend(bool suspended);
    //! True while the program runs.
    bool isRunning() const;
    //! The port read from the port line, 0 before.
    int port() const { return m_port; }
    //! The program's process id, 0 when not running.
    qint64 processId() const;
    //! What the program printed on stderr so far, and why a start failed.
    QString errorText() const;

    //! The `node` executable (found on PATH).
    static QString nodeExecutable();

private:
    QString m_script;
    QStringList m_arguments;
    QRegularExpression m_portLine;
    std::unique_ptr<QProcess> m_process;
    int m_port = 0;
    QString m_error;
};

#pragma once

// One run of parlo-cli against a server, on the kit's public API: connect, sign up or chat in,
// then one command (or the interactive mode), ending with an exit code exactly once.

#include "CliOptions.h"
#include "CliPrinter.h"

#include <ParloSDK/IMNotificationCenter.h>
#include <ParloSDK/Parlo.h>
#include <ParloSDK/ParloDelegate.h>

#include <QMap>
#include <QObject>
#include <QSocketNotifier>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <memory>

namespace ParloCli {

class Session : public QObject, public ParloDelegate {
    Q_OBJECT
public:
    using Done = std::function<void(int exitCode)>;

    Session(Parlo *parlo, const Options &options, Printer &printer, QObject *parent = nullptr);
    ~Session() override;

    //! Starts; `finished` runs once with the exit code.
    void start(Done finished);
    //! Ends the run at once (an interrupt): watch and the interactive mode end well, others not.
    void interrupt();

    // ParloDelegate
    void ParloDidChangeConnectStatus(int status, const QString &message) override;
    void ParloDidReceiveMessage(const IMMessagePtr &message) override;
    void ParloDidJoinedWithRoom(const IMRoomPtr &room) override;
    void ParloDidUpdateReadTimeWithRoom(const IMRoomPtr &room) override;
    void ParloDidUpdateMessage(const IMMessagePtr &message) override;

private:
    void finish(int code, const QString &error = QString());
    void connected();
    void signUpThenChatIn(const QString &clientID, const QString &name);
    void chatIn(bool mayRepair);
    void ready();
    void remember(const QList<IMRoomPtr> &rooms);
    QList<IMRoomPtr> knownRooms();
    void countEvent();

    // Runs one command; `done` is called exactly once.
    void run(const Options &o, Done done);
    void fail(const Done &done, const IMError &error, const QString &what);
    bool roomFor(const Options &o, const QString &reference, IMRoomPtr *room, const Done &done);
    void runRooms(const Options &o, Done done);
    void runCreateRoom(const Options &o, Done done);
    void runHistory(const Options &o, const IMRoomPtr &room, Done done);
    void runSend(const IMRoomPtr &room, const QString &text, Done done);
    void runUpload(const Options &o, const IMRoomPtr &room, const QString &path, bool picture, Done done);
    void runDownload(const Options &o, Done done);
    void runRead(const Options &o, const IMRoomPtr &room, Done done);
    void runOpenLink(const Options &o, Done done);
    void runWatch(const Options &o, Done done);
    void sendMessage(const IMMessagePtr &message, Done done);
    void waitForNotification(const QString &name, std::function<bool(const IMNotification &)> matches, int timeoutMs,
        std::function<void(bool arrived)> then);

    // The interactive mode.
    void startShell();
    void readInput();
    void nextLine();

    Parlo *m_parlo;
    Options m_options;
    Printer &m_printer;
    Done m_finished;
    bool m_done = false;
    bool m_everConnected = false;
    bool m_ready = false;
    int m_connectErrors = 0;
    int m_serverDrops = 0; // since the last chat-in; sets the delay before reconnecting
    QString m_me;
    QTimer m_connectDeadline;

    // Watching: what is known of each room, to tell joiners and readers apart.
    bool m_watching = false;
    int m_events = 0;
    int m_eventLimit = 0;
    Done m_watchDone;
    QMap<QString, QStringList> m_members;
    QMap<QString, QVariantMap> m_readTimes;
    QList<IMRoomPtr> m_otherRooms;

    // The interactive mode.
    std::unique_ptr<QSocketNotifier> m_input;
    QByteArray m_inputBuffer;
    QStringList m_lines;
    bool m_inputEnded = false;
    bool m_busy = false;
    int m_shellCode = 0;
};

} // namespace ParloCli

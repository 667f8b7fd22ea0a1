#pragma once

// Internals of the facade shared by its units (state, transport, events and the API families).

#include "IMLog.h"
#include "Parlo.h"

#include <QPointer>
#include <optional>

struct Parlo::Private
{
    Block onConnectBlock;
    Block createInstallationIfNeeded;
    std::unique_ptr<IMSocket> socket;
    SocketFactory socketFactory;
    bool isDebuging = false;
    QString domainString;
    // The host's "selfSigned" connection option; plain-HTTP transfers honour it too.
    bool selfSigned = false;
    std::optional<QList<IMMessagePtr>> sendingMessages;
    int failedSendingLimit = 100;
    std::optional<QList<Block>> queueArray;
    bool isPausedLoadingRoomData = false;
    int connectStatus = 1;
    std::optional<QList<IMRoomPtr>> chatRooms;
    QVariantList messages;
    IMBadgePtr badge;
    ParloDelegate *delegate = nullptr;
    QString deviceToken;
    int roomCountLimit = 25;
    qint64 timeout = 5;
    QString apiKey;
    QString clientKey;
    bool log = false;
    bool printLog = false;

    // Session, rooms, messages and URL scheme state
    // Read reports leave from the global queue and may reach the facade only while it lives:
    // the gate (defined in ParloMessages.cpp) is closed under its lock when the state goes.
    std::shared_ptr<struct ParloReadReportGate> readReportGate;
    std::shared_ptr<void> readReportGateCloser;

    // Files state
    // Made on first use (ParloFiles_p.h): the URL session, taskDict, the memory cache and the
    // serial queues of the disk cache. Its end fails every transfer still in flight.
    std::unique_ptr<FilesState, void (*)(FilesState *)> files{nullptr, nullptr};

    // The room list as the store returned it at the last reload. While chatRooms still holds
    // exactly these rooms, the store and the list agree, and an incoming message needs to write
    // only the room it changed and move it to its place, instead of writing every room and
    // reading them all back: the store and the list end up the same either way.
    QList<IMRoomPtr> storeMirror;
    //! Always write every room and reload (the baseline the benchmark compares with).
    bool literalRoomWrites = false;

    bool listMirrorsStore() const
    {
        if (!chatRooms || chatRooms->size() != storeMirror.size())
            return false;
        for (qsizetype i = 0; i < storeMirror.size(); ++i)
            if ((*chatRooms)[i] != storeMirror[i])
                return false;
        return true;
    }
};

//! A log record of the facade: {"line": "<File.cpp:N>", key: the "%@" text of value}.
#define PARLO_LOG_RECORD(key, value)                                                                \
    QVariantMap                                                                                     \
    {                                                                                               \
        {QStringLiteral("line"), IM_LOG_LINE()}, { QStringLiteral(key), IMDescription(QVariant(value)) } \
    }

//! Hands a log record to the facade's logging scheme; the record is built only when logging is on.
#define PARLO_LOG(key, value) logLazily([&] { return PARLO_LOG_RECORD(key, value); })

//! Internal switches for the kit's own tests and benchmarks.
struct ParloInternals
{
    //! Makes every incoming message write all rooms and read them back (the plain way).
    static void setLiteralRoomWrites(Parlo *parlo, bool on) { parlo->d->literalRoomWrites = on; }
};

#pragma once

// The owners the facade forwards to, in the order they are made (and the reverse of their end).

#include "Parlo.h"
#include "ParloAnnouncer.h"
#include "ParloEventDispatcher.h"
#include "ParloFiles.h"
#include "ParloLogger.h"
#include "ParloMessageRequests.h"
#include "ParloOutbox.h"
#include "ParloRoomList.h"
#include "ParloRoomRequests.h"
#include "ParloSession.h"
#include "ParloTransport.h"
#include "ParloURLScheme.h"

struct Parlo::Private {
    explicit Private(Parlo *q);

    ParloLogger logger;
    ParloAnnouncer announcer;
    ParloTransport transport;
    ParloRoomList rooms;
    ParloOutbox outbox;
    ParloEventDispatcher events;
    ParloFiles files;
    ParloSession session;
    ParloRoomRequests roomRequests;
    ParloMessageRequests messageRequests;
    ParloURLScheme scheme;

    // Properties kept for hosts; the kit never reads them.
    Block createInstallationIfNeeded;
    bool isDebuging = false;
    QVariantList messages;
};

//! Reaches a facade's owners, for the kit's own tests and benchmarks.
struct ParloInternals {
    static Parlo::Private &of(Parlo *parlo) { return *parlo->d; }
};

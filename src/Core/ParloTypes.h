#pragma once

// Values the facade's operations take and report.

//! The connection status the facade reports (Parlo::connectStatus, ParloDidChangeConnectStatus).
enum ParloConnectStatus : int {
    ParloConnectStatusConnected = 0, //!< connected; sign up or chat in again
    ParloConnectStatusDisconnected = 1, //!< disconnected (also the initial value)
    ParloConnectStatusError = 2, //!< a connection error; a retry follows when reconnection is on
    ParloConnectStatusReconnected = 3, //!< reconnected; ParloConnectStatusConnected follows
    ParloConnectStatusReconnectAttempt = 4, //!< a reconnection try is due
    ParloConnectStatusReconnecting = 5, //!< a reconnection try starts
    ParloConnectStatusReconnectFailed = 6, //!< reconnection gave up; call Parlo::reconnect
};

//! The method of a virtual request (Parlo::emitWithMethod), sent as the event's name.
enum ParloRequestMethod : unsigned {
    ParloRequestMethodGet = 0, //!< "get"
    ParloRequestMethodPost = 1, //!< "post"
    ParloRequestMethodPut = 2, //!< "put"
    ParloRequestMethodDelete = 3, //!< "delete"
};

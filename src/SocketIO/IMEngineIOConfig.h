#pragma once

#include <QByteArray>
#include <QList>
#include <QLoggingCategory>
#include <QPair>
#include <QStringList>
#include <QUrl>
#include <QUrlQuery>

class QNetworkAccessManager;
class QNetworkRequest;

//! The traffic log of the Socket.IO client ("parlo.socketio").
Q_DECLARE_LOGGING_CATEGORY(lcSocketIO)

//! What the Engine.IO layer needs to reach a server, shared by its transports.
struct IMEngineIOConfig {
    //! The server's http(s) URL with the Engine.IO path ("/socket.io/").
    QUrl url;
    //! The Engine.IO revision: 4 (socket.io 3/4 servers) or 3 (socket.io 1/2 servers).
    int eio = 4;
    bool forceWebsockets = false;
    bool forcePolling = false;
    //! Extra query items added to every request.
    QList<QPair<QString, QString>> query;
    //! Extra HTTP headers sent with every request and the WebSocket handshake.
    QList<QPair<QByteArray, QByteArray>> headers;
    //! "name=value" cookies sent with every request, besides those the server set.
    QStringList cookies;
    //! Accept TLS certificates that do not verify.
    bool selfSigned = false;
    //! Largest incoming packet, in bytes or characters.
    qint64 maxPayload = 100000000;
    //! Time allowed for a WebSocket probe during the upgrade, in milliseconds.
    int upgradeTimeoutMs = 10000;
    //! The network access manager for long-polling; it keeps the server's cookies.
    QNetworkAccessManager *nam = nullptr;

    //! The URL of a transport request (`transport` "polling" or "websocket"), `sid` when known.
    QUrl transportUrl(const QString &transport, const QString &sid) const;
    //! A request to `url` with the headers, cookies and TLS settings applied.
    QNetworkRequest request(const QUrl &url) const;
};

#pragma once

#include "IMBadge.h"
#include "IMError.h"
#include "IMMessage.h"
#include "IMRoom.h"
#include "IMSocket.h"
#include "ParloDelegate.h"
#include "ParloFileKeys.h"
#include "ParloNotifications.h"
#include "ParloTypes.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>

//! The one object through which a host application and the kit's screens reach the chat
//! service: configuration, the realtime connection, the shared state (rooms, badge, messages in
//! flight) and the announcements (delegate first, then a notification on
//! IMNotificationCenter::defaultCenter()). Use it from the main thread; its callbacks and
//! announcements run there unless a member says otherwise. It holds no logic of its own: each
//! member forwards to the part of the kit that owns what it touches.
class Parlo : public QObject {
    Q_OBJECT
public:
    using Block = std::function<void()>;
    //! Receives the body of a successful answer.
    using Success = std::function<void(const QVariant &body)>;
    //! Receives the error record of a failed request.
    using Failure = std::function<void(const IMError &error)>;
    //! Makes the realtime connection for a URL and options (the kit's IMSocketIOClient by default).
    using SocketFactory = std::function<IMSocket *(const QUrl &url, const QVariantMap &options)>;

    //! The process-wide facade, created on first use (thread-safe).
    static Parlo *shareInstance();
    //! A facade of its own; the kit and its screens use shareInstance(), tests may make more.
    explicit Parlo(QObject *parent = nullptr);
    //! Closes the connection; requests still pending fail with code 999.
    ~Parlo() override;

    // Configuration and state

    //! The block run when the connection reports "connect", before status 0 is announced.
    Block onConnectBlock() const;
    //! Sets the block run on "connect".
    void setOnConnectBlock(Block block);
    //! A host hook kept for compatibility; the kit never calls it.
    Block createInstallationIfNeeded() const;
    //! Sets the host hook kept for compatibility.
    void setCreateInstallationIfNeeded(Block block);
    //! The realtime connection made by connectWithURL (null before).
    IMSocket *socket() const;
    //! A flag kept for hosts; the kit never reads it.
    bool isDebuging() const;
    //! Sets the flag kept for hosts.
    void setIsDebuging(bool on);
    //! The server URL given to connectWithURL; the base of plain-HTTP addresses.
    QString domainString() const;
    //! Replaces the base of plain-HTTP addresses.
    void setDomainString(const QString &url);
    //! Messages sent from this device whose echo has not arrived yet (created empty on first use).
    //! A failed send stays listed (state 2); beyond failedSendingLimit failed entries the oldest
    //! failed ones are dropped, so a long-running host does not grow without end.
    QList<IMMessagePtr> sendingMessages() const;
    //! How many failed sends sendingMessages keeps at most (100); below 0 means no limit.
    int failedSendingLimit() const;
    //! Sets the number of failed sends kept; applied at the next failure.
    void setFailedSendingLimit(int limit);
    //! A copy of the work waiting for chat-in, run in order by execQueue.
    QList<Block> queueArray() const;
    //! Adds work to run, in order, at the next execQueue (chat-in runs it).
    void appendToQueue(Block block);
    //! Whether keeping the room list up to date is paused.
    bool isPausedLoadingRoomData() const;
    //! Pauses or resumes keeping the room list up to date.
    void setIsPausedLoadingRoomData(bool paused);
    //! The connection status (what the host should do in brackets): 0 connected (sign up or chat
    //! in again: a new connection is anonymous to the server); 1 disconnected, initially and after
    //! a drop (the socket retries by itself, except after the server ended the connection, message
    //! "io server disconnect", or disconnect(): then call reconnect); 2 connection error (wait, a
    //! retry follows when reconnection is on); 3 reconnected (0 follows); 4 trying to reconnect and
    //! 5 reconnecting (wait); 6 reconnection gave up (call reconnect when it suits the host).
    int connectStatus() const;
    //! Sets the connection status without announcing it.
    void setConnectStatus(int status);
    //! The room list, newest last message first; read from the local store on first use. The
    //! facade's operations write the rooms they change to the store; edits made to its rooms
    //! elsewhere are not written by themselves.
    QList<IMRoomPtr> chatRooms();
    //! Replaces the room list (written to the store with the next change).
    void setChatRooms(const QList<IMRoomPtr> &rooms);
    //! Drops the room list, so the next read loads it from the local store again.
    void resetChatRooms();
    //! A free list kept for hosts; the kit never reads it.
    QVariantList messages() const;
    //! Sets the free list kept for hosts.
    void setMessages(const QVariantList &messages);
    //! The badge counters (an empty record is created on first use).
    IMBadgePtr badge();
    //! Replaces the badge record; null makes the next read create an empty one.
    void setBadge(const IMBadgePtr &badge);
    //! The delegate, not owned (null when none).
    ParloDelegate *delegate() const;
    //! Sets the delegate; it stops being the delegate when destroyed.
    void setDelegate(ParloDelegate *delegate);
    //! The session token, read from the persisted settings on every call.
    QString token() const;
    //! The signed-in client's id, read from the persisted settings on every call.
    QString clientID() const;
    //! The persisted first-launch flag.
    bool firstTimeLaunch() const;
    //! The push-notification device token (null until set).
    QString deviceToken() const;
    //! Sets the push-notification device token.
    void setDeviceToken(const QString &token);
    //! Page size of room lists (25).
    int roomCountLimit() const;
    //! Sets the page size of room lists.
    void setRoomCountLimit(int limit);
    //! Seconds to wait for each acknowledgement (5).
    qint64 timeout() const;
    //! Sets the acknowledgement time-out in seconds.
    void setTimeout(qint64 seconds);
    //! The application key sent with every request; the host sets it.
    QString apiKey() const;
    //! Sets the application key.
    void setApiKey(const QString &key);
    //! The client key sent with every request; the host sets it.
    QString clientKey() const;
    //! Sets the client key.
    void setClientKey(const QString &key);
    //! The identity token the host's own backend issued for the client (a JWT whose subject is
    //! the client id; null when none). Servers in strict mode ask for it at sign-up: it is sent as
    //! the header "identityToken" with signWithClient and chatinHTTPSuccess when set.
    QString identityToken() const;
    //! Sets the identity token sent with sign-up and the HTTP chat-in.
    void setIdentityToken(const QString &token);
    //! Whether log records are kept in the persisted log, newest first (off).
    bool log() const;
    //! Turns the persisted log on or off.
    void setLog(bool on);
    //! Whether log records are printed to the console (off).
    bool printLog() const;
    //! Turns printing of log records on or off.
    void setPrintLog(bool on);
    //! Replaces how connectWithURL makes the realtime connection (null restores the default).
    void setSocketFactory(SocketFactory factory);

    //! Posts `name` with `object`, which is also put under "object" in the user info.
    void postNotificationName(const QString &name, const QVariant &object);
    //! Keeps `record` in the persisted log when `log` is on and prints it when `printLog` is on.
    void logDictionaryIfNeeded(const QVariantMap &record);

    // Realtime connection

    //! Creates the connection to `url` with `options` (passed through to the socket), registers
    //! the life-event and pushed-event handlers, connects and keeps `url` as domainString.
    //! The option "selfSigned" (bool) accepts a TLS certificate that does not verify, on the
    //! connection and on plain HTTP alike (chat-in, device token, downloads, uploads).
    void connectWithURL(const QString &url, const QVariantMap &options, Block onConnect);
    //! Drops the connection, if any, and opens it anew with the same URL and options: the way
    //! back after the server ended it or reconnection gave up. Does nothing before connectWithURL.
    void reconnect();
    //! Announces status `status` with the event's arguments: delegate, then "didChangeConnectStatus"
    //! and "ParloDidChangeConnectStatus" with user info {"status", "message"}.
    void didChangeConnectStatus(int status, const QVariantList &data);

    // Request transport

    //! The request headers: apiKey, clientKey, clientID and token ("" when none is stored).
    QVariantMap header() const;
    //! Sends a virtual request: method 0 "get", 1 "post", 2 "put", 3 "delete"; `item` is the
    //! envelope {"url", "headers", "data"}. Not connected: `failure` at once on the caller's
    //! thread with code 400. Otherwise exactly one of the blocks runs later on the main queue:
    //! success with the answer's body, or failure (999 no acknowledgement, or the server's status).
    void emitWithMethod(uint method, const QVariantMap &item, Success success, Failure failure);
    //! One attempt of a request; `counter` counts the attempts made before it (0 for the first).
    void emitWithMethod(uint method, int counter, const QVariantMap &item, Success success, Failure failure);
    //! Whether a post with this envelope may be retried ("/client/chatin/" and "/client/").
    bool isPostRetryListAPI(const QVariantMap &item) const;
    //! Runs the work of queueArray in order on the calling thread and empties it.
    void execQueue();

    // Session and account (ParloSession.cpp)
    //! Receives the client record of an answer.
    using ClientSuccess = std::function<void(const IMClientPtr &client)>;
    //! Receives a list of client records.
    using ClientsSuccess = std::function<void(const QList<IMClientPtr> &clients)>;
    //! Receives the facade's badge record.
    using BadgeSuccess = std::function<void(const IMBadgePtr &badge)>;

    //! Signs `client` (at least its clientID) up: the clientID is persisted before the post to
    //! "/client/"; on success the token and the current user are persisted, `success` gets the
    //! server's client and the held device token is sent again. Blocks run on the main queue;
    //! a null client fails at once with code 400.
    void signWithClient(const IMClientPtr &client, ClientSuccess success, Failure failure);
    //! Chats in ("/client/chatin/"). Without a signed-up current client, `failure` gets code 404
    //! "signUpWithClient: first" (main queue, asynchronously). On success, on the main queue:
    //! `success` first, then chatRooms, the current user and the store are replaced from the
    //! answer, ParloDidUpdateRooms (delegate only), ParloDidChatIn, the badge total, and last
    //! the deferred work of queueArray.
    void chatinSuccess(ClientSuccess success, Failure failure);
    //! Chats out ("/client/chatout/" with {"token": deviceToken or ""}); `success` gets the
    //! answer's body. A failure asks the connection to reconnect after `failure` has run.
    void chatOutSuccess(Success success, Failure failure);
    //! Signs out: chats out, then (whatever the answer) clears the persisted current user,
    //! clientID and token, drops chatRooms and sendingMessages and resets the local store.
    //! Keys, connection and badge stay.
    void logout();
    //! Keeps the push token `deviceToken` (raw bytes; null keeps the token held) as lower-case
    //! hexadecimal and, when a client is signed up and a token is held, posts it over plain HTTP
    //! to "<domainString>/client/setDeviceToken/". Reports nothing; a success is logged.
    void updateDeviceTokenIfPossiable(const QByteArray &deviceToken = QByteArray());
    //! Reads the badge ("/badge"), makes it the facade's badge, calls `success` with it and
    //! announces ParloDidUpdateBadge. Blocks run on the main queue.
    void badgeSuccess(BadgeSuccess success, Failure failure);
    //! Reads the badge total ("/badge/total") into the facade's badge, calls `success` with the
    //! badge and announces ParloDidUpdateBadge. Blocks run on the main queue.
    void badgeTotalSuccess(BadgeSuccess success, Failure failure);
    //! Lists clients (get "/client/"; `offset` is not sent). Blocks run on the main queue.
    void clientsListWithOffset(qint64 offset, ClientsSuccess success, Failure failure);
    //! Queries a server class: `className` without its two-letter prefix ("IMMessage" asks for
    //! "/Message/?offset=..&limit=..&sort=.."); `success` gets the body as it is. Main queue.
    void queryWithClass(
        const QString &className, qint64 offset, qint64 limit, const QString &sort, Success success, Failure failure);
    //! Chats in over plain HTTP ("<domainString>/client/chatin/<clientID>/"); `success` gets the
    //! client of the answer and nothing else changes. A transfer error fails with its
    //! QNetworkReply code (domain "QNetworkReply"), a failure status with that status (domain
    //! "Parlo", the body as "info"), an unreadable answer with domain "QJsonParseError". Sent
    //! on urlSession, whose cookie jar keeps the session cookie for file downloads; the blocks
    //! run on the main thread, where the URL session delivers.
    void chatinHTTPSuccess(ClientSuccess success, Failure failure);

    // Rooms (ParloRooms.cpp)
    //! Receives one room record.
    using RoomSuccess = std::function<void(const IMRoomPtr &room)>;
    //! Receives a page of room records.
    using RoomsSuccess = std::function<void(const QList<IMRoomPtr> &rooms)>;
    //! Runs after a list operation's success or failure: (null error, page) or (error, {}).
    using RoomsComplete = std::function<void(const IMError &error, const QList<IMRoomPtr> &rooms)>;

    //! Creates `room` (post "/room" with its dictionary); both blocks run on the main queue,
    //! asynchronously. A null room fails the same way with code 400.
    void createRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure);
    //! Creates or reuses the two-member room with `clientID` (get
    //! "/room/createAndJoinWithClient/<clientID>" with the room's dictionary and "duplicate").
    void createRoom(
        const IMRoomPtr &room, const QString &clientID, bool duplicate, RoomSuccess success, Failure failure);
    //! The same without "duplicate".
    void createRoom(const IMRoomPtr &room, const QString &clientID, RoomSuccess success, Failure failure);
    //! The same with "forceCreate" set: always a new room.
    void forceCreateRoom(const IMRoomPtr &room, const QString &clientID, RoomSuccess success, Failure failure);
    //! Joins `room` (post "/room/join" with its dictionary); blocks on the main queue, asynchronously.
    void joinRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure);
    //! Joins `room` as its service agent (post "/room/agentJoin/<id>"); blocks on the main queue,
    //! asynchronously.
    void tovoAgentJoinRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure);
    //! Joins the room `roomID` and merges it into chatRooms and the store (announcing
    //! ParloDidUpdateRooms); a failure is only logged.
    void joinRoomWithID(const QString &roomID);
    //! Joins the room `roomID` as its agent, with the same merge.
    void tovoAgentJoinRoomWithID(const QString &roomID);
    //! Fetches one room (get "/room/<id>") straight on the connection, without retries; `failure`
    //! gets the status and the body as "info" for anything but 200, 999 when no answer came
    //! within `timeout`, 400 when there is no connection. Blocks run on the main thread.
    void roomWithRoomID(const QString &roomID, RoomSuccess success, Failure failure);
    //! Lists rooms by page (get "/room/list?offset=&limit="): `success` and `complete` get the
    //! page, then it is appended to chatRooms, stored, chatRooms is reloaded from the store (one
    //! record per room, newest first) and ParloDidUpdateRooms is announced. On failure
    //! `failure`, then `complete`. Main queue.
    void roomListWithOffset(
        int offset, int limit, RoomsSuccess success, Failure failure, RoomsComplete complete = nullptr);
    //! The page after the rooms held (offset = chatRooms' size, 30 rooms).
    void roomListSuccess(RoomsSuccess success, Failure failure);
    //! roomListSuccess with blocks that do nothing.
    void roomListInBackground();
    //! Rooms whose last message is later than `lastMessageTime` (an invalid date asks for all,
    //! sent as "(null)"), oldest first: the page is stored, chatRooms reloaded from the store,
    //! then `success`, `complete` and ParloDidUpdateRooms. Main queue.
    void roomListLastMessageTime(const QDateTime &lastMessageTime, int offset, int limit, RoomsSuccess success,
        Failure failure, RoomsComplete complete = nullptr);
    //! Walks the room list forward from the newest room held, roomCountLimit rooms a page, until
    //! a page is not full; `complete` then gets that page (or the error). Setting
    //! isPausedLoadingRoomData stops the walk after the page in flight without calling `complete`.
    void roomListKeepUpdateingToNewestComplete(RoomsComplete complete);
    //! Rooms waiting for an agent (get "/room/needAgentList" with the query of `params`: "county",
    //! "district", "status", "type", "limit", "skip"; "type" is sent, even 0, once any value is
    //! set), merged like roomListWithOffset.
    void needAgentListForTovoAgentWithParames(
        const QVariantMap &params, RoomsSuccess success, Failure failure, RoomsComplete complete = nullptr);
    //! The agent's rooms (get "/room/list" with the query of `params`; only values that are not
    //! 0 are sent), merged like roomListWithOffset.
    void roomListForTovoAgentWithParams(
        const QVariantMap &params, RoomsSuccess success, Failure failure, RoomsComplete complete = nullptr);
    //! Archives `room` for the signed-in client (put "/rooms/<id>/archive"); chatRooms and the
    //! store are left as they are. Blocks run on the main queue.
    void archiveRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure);

    // Messages (ParloMessages.cpp)
    //! Receives one message record.
    using MessageSuccess = std::function<void(const IMMessagePtr &message)>;
    //! Receives a page of messages in the server's order (oldest first).
    using MessagesSuccess = std::function<void(const QList<IMMessagePtr> &messages)>;
    //! Receives a count.
    using CountSuccess = std::function<void(int count)>;

    //! A page of `room`'s history skipping the `offset` newest messages (get
    //! "/message/?room=&offset=&limit="). The delegate's ParloWillStartLoadingMessageWithRoom is
    //! asked first: on false it is called a second time and nothing else happens (no request, no
    //! block, no did-end call). Otherwise one block runs on the main queue, then
    //! ParloDidEndLoadingMessageWithRoom.
    void messageWithRoom(const IMRoomPtr &room, qint64 offset, int limit, MessagesSuccess success, Failure failure);
    //! The same for the messages before `pinDate` (timestamp text, sent as given).
    void messageWithRoom(
        const IMRoomPtr &room, const QString &pinDate, int limit, MessagesSuccess success, Failure failure);
    //! Sends `message` (post "/message/" with its dictionary, "room" = the room's id, "sender" =
    //! the current client's id, no "sendingType") and keeps it in sendingMessages until its echo
    //! settles it (state 0). Success: the server's record is copied onto `message`, which
    //! `success` gets. Failure: state 2, `failure`, then ParloDidChangeMessageSendingType. Not
    //! retried. Blocks run on the main queue (on the caller's thread when not connected); a null
    //! message fails at once with code 400.
    void sendMessage(const IMMessagePtr &message, MessageSuccess success, Failure failure);
    //! sendMessage with blocks that do nothing.
    void sendMessageInBackground(const IMMessagePtr &message);
    //! Updates `message` on the server (put "/message/<id>", its dictionary without "id", no
    //! headers: the connection's signed-in client sends it); `success` gets the server's record.
    //! Without an objectID `failure` gets code 400 "objectID is needed" at once.
    void updateMessage(const IMMessagePtr &message, MessageSuccess success, Failure failure);
    //! Reports that `room` was read (put "/room/receive/<id>" with {"echo"}): the badge total
    //! drops by the room's unread count at once (ParloDidUpdateBadge, icon badge); the request
    //! leaves from the global queue; the answer's read times and badge are written to every
    //! listed copy of the room, then ParloDidUpdateRoom and ParloDidUpdateRooms (main queue).
    //! A failure is only logged.
    void updateReadTimeWithRoom(const IMRoomPtr &room, bool echoToRoom);
    //! Counts others' messages in `room` after `lastSeenDate` up to `messageDate` (texts sent as
    //! given); `success` gets "count". Main queue.
    void unseenCountAfterLastSeenDate(const QString &lastSeenDate, const QString &messageDate, const IMRoomPtr &room,
        CountSuccess success, Failure failure);

    // URL scheme (ParloScheme.cpp)
    //! True when the host's information dictionary names a URL scheme (element 0 of the last
    //! "CFBundleURLTypes" entry's "CFBundleURLSchemes") and a "parlo" entry with "storeid" and
    //! "url"; otherwise prints "url scheme not found" and returns false. Read afresh each call.
    bool isScehemeWorks() const;
    //! The app's URL scheme; null unless isScehemeWorks.
    QString urlType() const;
    //! The base address of shared room links ("parlo" -> "url"); null unless isScehemeWorks.
    QString urlStringForScheme() const;
    //! The app's store identifier ("parlo" -> "storeid"); null unless isScehemeWorks.
    QString appIDOnStore() const;
    //! Handles an opened URL: for host "parlo.integrate" and path "/joinRoom/<id>" joins the room
    //! (joinRoomWithID), at once when connected, else after the next chat-in. Returns true when
    //! the URL's scheme equals urlType (case-sensitive; QUrl lower-cases schemes, so register a
    //! lower-case one), false for another host. `application` and the rest are not used.
    bool application(QObject *application, const QUrl &openURL, const QString &sourceApplication = QString(),
        const QVariant &annotation = QVariant());

    // Files and the file cache (ParloFiles.cpp)
    //! Receives a file's bytes.
    using DataSuccess = std::function<void(const QByteArray &data)>;
    //! Ends a socket fetch: (null error, bytes) or (error, null bytes).
    using FileComplete = std::function<void(const IMError &error, const QByteArray &data)>;
    //! Receives a transfer's progress: bytes so far divided by bytes expected (negative while
    //! the size is unknown).
    using Progress = std::function<void(double fraction)>;
    //! Receives the server's record of an uploaded file.
    using FileSuccess = std::function<void(const IMFilePtr &file)>;
    //! A multipart upload: the request (URL, header fields) and the whole body.
    struct UploadRequest {
        QNetworkRequest request;
        QByteArray body;
    };

    //! The memory cache of file bytes by file name, costed in bytes (64 MiB unless changed);
    //! it may drop entries to stay under its limit. Safe to use from any thread. A null
    //! QByteArray is the null marker: storing it is allowed and it reads as absent.
    class FileCache {
    public:
        FileCache();
        ~FileCache();
        FileCache(const FileCache &) = delete;
        FileCache &operator=(const FileCache &) = delete;
        //! The bytes kept for `name`; null when absent, dropped or the null marker.
        QByteArray object(const QString &name) const;
        //! Keeps `data` for `name`, replacing what was kept; bytes over the limit are not kept.
        void setObject(const QString &name, const QByteArray &data);
        //! Forgets `name`.
        void removeObject(const QString &name);
        //! Forgets everything.
        void removeAllObjects();
        //! The limit of the bytes kept.
        qint64 totalCostLimit() const;
        //! Sets the limit of the bytes kept, dropping entries to fit.
        void setTotalCostLimit(qint64 bytes);

    private:
        struct Private;
        std::unique_ptr<Private> d;
    };

    //! The URL session of plain-HTTP file transfers: one QNetworkAccessManager on the main
    //! thread with a cookie jar (the HTTP chat-in's session cookie) and a transfer (idle)
    //! time-out of 120 s; every transfer also ends after 180 s in all. Created on first use;
    //! use it from the main thread.
    QNetworkAccessManager *urlSession();
    //! The transfers in flight by id (increasing integers as text): records of kSessionTask,
    //! kSessionSuccess, kSessionFailure, kSessionProgress and, for downloads, kFilename (see
    //! ParloFileKeys.h). A download's record lives until it ends; an upload's until its body
    //! is sent or it ends. Main thread only.
    const QMap<QString, QVariantMap> &taskDict();
    //! The memory cache of files (see FileCache).
    FileCache &cache();

    // The disk cache: the folder "Parlo" inside IMPlatform::temporaryPath(). Synchronous; safe
    // from any thread. A name is one path component: an empty name, "." or "..", or one with
    // "/", "\" or a NUL character is refused (null path, no file is touched).

    //! The path of file `name` in the disk cache, creating the folder (not its parents) when
    //! missing; null for a refused name.
    QString filePathWithName(const QString &name);
    //! Whether the disk cache holds file `name`.
    bool isFileExistsWithName(const QString &name);
    //! The bytes of file `name` in the disk cache; null when there is none.
    QByteArray fileWithName(const QString &name);
    //! Writes `data` as file `name` atomically (a reader sees the old file or the new one);
    //! false when the name is refused or the write failed.
    bool fileSaveWithName(const QString &name, const QByteArray &data);

    //! Fetches file `name` over the connection (get "/files/<name>") and keeps the bytes in the
    //! memory cache (not on disk). `complete` runs once: on the main queue after an answer, at
    //! once on the caller's thread when not connected or the name is refused (code 400).
    void getFileWithName(const QString &name, FileComplete complete);
    //! Fetches file `name`: with `fromCache` from the memory cache, else the disk cache (then
    //! kept in memory), else over the connection (then kept in memory and on disk). Cache hits
    //! and refusals call back at once on the caller's thread; answers on the main queue.
    void getFileWithName(const QString &name, bool fromCache, DataSuccess success, Failure failure);
    //! Fetches file `name`: with `fromCache` from the memory cache, else the disk cache (read on
    //! the serial queue "queue"), else by HTTP download from "<domainString>/files/<name>" after
    //! an HTTP chat-in. The download streams to a temporary file; the bytes are read once, kept
    //! in memory and moved into the disk cache on the serial queue "QUEUE". An error status fails
    //! with that status ("info" the body), a cut download with the network error; neither is
    //! cached. Every block runs asynchronously on the main queue, exactly one of success/failure.
    void getFileWithName(const QString &name, bool fromCache, Progress progress, DataSuccess success, Failure failure);
    //! getFileWithName(name, true, progress, success, failure). Named apart from the
    //! four-argument fetch, which a lambda in second place would make ambiguous.
    void getFileWithNameProgress(const QString &name, Progress progress, DataSuccess success, Failure failure);

    //! Uploads `data` as a multipart form (requestWithData) with "type" = `type`, "room" = the
    //! room's id ("" without a room) and "isPublic" = 1 or 0. `progress` gets the fraction of
    //! the body sent; `success` gets the server's IMFile, whose bytes are then in the memory
    //! cache under its fileName. An error status fails with that status ("info" the body).
    //! Blocks run asynchronously on the main queue, exactly one of success/failure. Returns the
    //! transfer (owned by urlSession; abort() ends it with a failure), null when refused.
    QPointer<QNetworkReply> uploadFileWithData(const QByteArray &data, const QString &type, const IMRoomPtr &room,
        bool isPublic, Progress progress, FileSuccess success, Failure failure);
    //! uploadFileWithData without progress reports.
    QPointer<QNetworkReply> uploadFileWithData(const QByteArray &data, const QString &type, const IMRoomPtr &room,
        bool isPublic, FileSuccess success, Failure failure);
    //! Uploads `image` as PNG (lossless, unscaled) with type kMessageTypeImage. A null image
    //! fails with code 400 (main queue, asynchronously) and returns null.
    QPointer<QNetworkReply> uploadFileWithImage(
        const QImage &image, const IMRoomPtr &room, bool isPublic, FileSuccess success, Failure failure);
    //! The multipart upload request for "<domainString>/files/upload": header fields apiKey,
    //! clientKey, and the current client's clientID and token; the fixed boundary
    //! "---------------------------14737809831466499882746641449"; one part per field of `dict`
    //! in key order, then, only when `data` is not empty, the part "file" with file name "1"
    //! and the closing boundary line.
    UploadRequest requestWithData(const QByteArray &data, const QVariantMap &dict) const;

private:
    friend struct ParloInternals;
    struct Private;
    std::unique_ptr<Private> d;
};

Q_DECLARE_METATYPE(QList<IMRoomPtr>)

// The facade's operations; each forwards to the owner of what it touches.
#include "Parlo_p.h"

#include "IMMessageSend.h"

// Session and account

void Parlo::signWithClient(const IMClientPtr &client, ClientSuccess success, Failure failure)
{
    d->session.signWithClient(client, std::move(success), std::move(failure));
}

void Parlo::chatinSuccess(ClientSuccess success, Failure failure)
{
    d->session.chatinSuccess(std::move(success), std::move(failure));
}

void Parlo::chatOutSuccess(Success success, Failure failure)
{
    d->session.chatOutSuccess(std::move(success), std::move(failure));
}

void Parlo::logout() { d->session.logout(); }
void Parlo::updateDeviceTokenIfPossiable(const QByteArray &deviceToken)
{
    d->session.updateDeviceTokenIfPossiable(deviceToken);
}
void Parlo::badgeSuccess(BadgeSuccess success, Failure failure)
{
    d->session.badgeSuccess(std::move(success), std::move(failure));
}

void Parlo::badgeTotalSuccess(BadgeSuccess success, Failure failure)
{
    d->session.badgeTotalSuccess(std::move(success), std::move(failure));
}

void Parlo::clientsListWithOffset(qint64, ClientsSuccess success, Failure failure)
{
    // The offset is part of the operation's name only: the request sends none.
    d->session.clientsListWithOffset(std::move(success), std::move(failure));
}

void Parlo::queryWithClass(
    const QString &className, qint64 offset, qint64 limit, const QString &sort, Success success, Failure failure)
{
    d->session.queryWithClass(className, offset, limit, sort, std::move(success), std::move(failure));
}

void Parlo::chatinHTTPSuccess(ClientSuccess success, Failure failure)
{
    d->session.chatinHTTPSuccess(std::move(success), std::move(failure));
}

// Rooms

void Parlo::createRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    d->roomRequests.createRoom(room, std::move(success), std::move(failure));
}

void Parlo::createRoom(
    const IMRoomPtr &room, const QString &clientID, bool duplicate, RoomSuccess success, Failure failure)
{
    d->roomRequests.createRoomWithClient(
        room, clientID, {{QStringLiteral("duplicate"), duplicate ? 1 : 0}}, std::move(success), std::move(failure));
}

void Parlo::createRoom(const IMRoomPtr &room, const QString &clientID, RoomSuccess success, Failure failure)
{
    d->roomRequests.createRoomWithClient(room, clientID, {}, std::move(success), std::move(failure));
}

void Parlo::forceCreateRoom(const IMRoomPtr &room, const QString &clientID, RoomSuccess success, Failure failure)
{
    d->roomRequests.createRoomWithClient(
        room, clientID, {{QStringLiteral("forceCreate"), true}}, std::move(success), std::move(failure));
}

void Parlo::joinRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    d->roomRequests.joinRoom(room, std::move(success), std::move(failure));
}

void Parlo::tovoAgentJoinRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    d->roomRequests.tovoAgentJoinRoom(room, std::move(success), std::move(failure));
}

void Parlo::joinRoomWithID(const QString &roomID) { d->roomRequests.joinRoomWithID(roomID); }
void Parlo::tovoAgentJoinRoomWithID(const QString &roomID) { d->roomRequests.tovoAgentJoinRoomWithID(roomID); }

void Parlo::roomWithRoomID(const QString &roomID, RoomSuccess success, Failure failure)
{
    d->roomRequests.roomWithRoomID(roomID, std::move(success), std::move(failure));
}

void Parlo::roomListWithOffset(int offset, int limit, RoomsSuccess success, Failure failure, RoomsComplete complete)
{
    d->roomRequests.roomListWithOffset(offset, limit, std::move(success), std::move(failure), std::move(complete));
}

void Parlo::roomListSuccess(RoomsSuccess success, Failure failure)
{
    d->roomRequests.roomListSuccess(std::move(success), std::move(failure));
}

void Parlo::roomListInBackground() { d->roomRequests.roomListSuccess(nullptr, nullptr); }

void Parlo::roomListLastMessageTime(const QDateTime &lastMessageTime, int offset, int limit, RoomsSuccess success,
    Failure failure, RoomsComplete complete)
{
    d->roomRequests.roomListLastMessageTime(
        lastMessageTime, offset, limit, std::move(success), std::move(failure), std::move(complete));
}

void Parlo::roomListKeepUpdateingToNewestComplete(RoomsComplete complete)
{
    d->roomRequests.keepUpdatingRooms(std::move(complete));
}

void Parlo::needAgentListForTovoAgentWithParames(
    const QVariantMap &params, RoomsSuccess success, Failure failure, RoomsComplete complete)
{
    d->roomRequests.needAgentList(params, std::move(success), std::move(failure), std::move(complete));
}

void Parlo::roomListForTovoAgentWithParams(
    const QVariantMap &params, RoomsSuccess success, Failure failure, RoomsComplete complete)
{
    d->roomRequests.agentRoomList(params, std::move(success), std::move(failure), std::move(complete));
}

void Parlo::archiveRoom(const IMRoomPtr &room, RoomSuccess success, Failure failure)
{
    d->roomRequests.archiveRoom(room, std::move(success), std::move(failure));
}

// Messages

void Parlo::messageWithRoom(const IMRoomPtr &room, qint64 offset, int limit, MessagesSuccess success, Failure failure)
{
    const QString id = room ? room->objectID() : QString();
    d->messageRequests.loadPage(room,
        QStringLiteral("/message/?room=%1&offset=%2&limit=%3").arg(id, QString::number(offset), QString::number(limit)),
        std::move(success), std::move(failure));
}

void Parlo::messageWithRoom(
    const IMRoomPtr &room, const QString &pinDate, int limit, MessagesSuccess success, Failure failure)
{
    const QString id = room ? room->objectID() : QString();
    d->messageRequests.loadPage(room,
        QStringLiteral("/message/?room=%1&pinDate=%2&limit=%3").arg(id, pinDate, QString::number(limit)),
        std::move(success), std::move(failure));
}

void Parlo::sendMessage(const IMMessagePtr &message, MessageSuccess success, Failure failure)
{
    d->outbox.send(message, std::move(success), std::move(failure));
}

void Parlo::sendMessageInBackground(const IMMessagePtr &message) { d->outbox.send(message, nullptr, nullptr); }

void Parlo::updateMessage(const IMMessagePtr &message, MessageSuccess success, Failure failure)
{
    d->messageRequests.updateMessage(message, std::move(success), std::move(failure));
}

void Parlo::updateReadTimeWithRoom(const IMRoomPtr &room, bool echoToRoom)
{
    d->messageRequests.updateReadTimeWithRoom(room, echoToRoom);
}

void Parlo::unseenCountAfterLastSeenDate(const QString &lastSeenDate, const QString &messageDate, const IMRoomPtr &room,
    CountSuccess success, Failure failure)
{
    d->messageRequests.unseenCount(lastSeenDate, messageDate, room, std::move(success), std::move(failure));
}

void IMMessageSend(const IMMessagePtr &message) { Parlo::shareInstance()->sendMessageInBackground(message); }
void IMMessageUpdate(const IMMessagePtr &message) { Parlo::shareInstance()->updateMessage(message, nullptr, nullptr); }

// URL scheme

bool Parlo::isScehemeWorks() const { return d->scheme.isScehemeWorks(); }
QString Parlo::urlType() const { return d->scheme.urlType(); }
QString Parlo::urlStringForScheme() const { return d->scheme.urlStringForScheme(); }
QString Parlo::appIDOnStore() const { return d->scheme.appIDOnStore(); }
bool Parlo::application(QObject *, const QUrl &openURL, const QString &, const QVariant &)
{
    return d->scheme.open(openURL);
}

// Files

QNetworkAccessManager *Parlo::urlSession() { return d->files.urlSession(); }
const QMap<QString, QVariantMap> &Parlo::taskDict() { return d->files.taskDict(); }
Parlo::FileCache &Parlo::cache() { return d->files.cache(); }
QString Parlo::filePathWithName(const QString &name) { return d->files.filePathWithName(name); }
bool Parlo::isFileExistsWithName(const QString &name) { return d->files.isFileExistsWithName(name); }
QByteArray Parlo::fileWithName(const QString &name) { return d->files.fileWithName(name); }
bool Parlo::fileSaveWithName(const QString &name, const QByteArray &data)
{
    return d->files.fileSaveWithName(name, data);
}
void Parlo::getFileWithName(const QString &name, FileComplete complete)
{
    d->files.getFileWithName(name, std::move(complete));
}

void Parlo::getFileWithName(const QString &name, bool fromCache, DataSuccess success, Failure failure)
{
    d->files.getFileWithName(name, fromCache, std::move(success), std::move(failure));
}

void Parlo::getFileWithName(
    const QString &name, bool fromCache, Progress progress, DataSuccess success, Failure failure)
{
    d->files.getFileWithName(name, fromCache, std::move(progress), std::move(success), std::move(failure));
}

void Parlo::getFileWithNameProgress(const QString &name, Progress progress, DataSuccess success, Failure failure)
{
    d->files.getFileWithName(name, true, std::move(progress), std::move(success), std::move(failure));
}

QPointer<QNetworkReply> Parlo::uploadFileWithData(const QByteArray &data, const QString &type, const IMRoomPtr &room,
    bool isPublic, Progress progress, FileSuccess success, Failure failure)
{
    return d->files.uploadFileWithData(
        data, type, room, isPublic, std::move(progress), std::move(success), std::move(failure));
}

QPointer<QNetworkReply> Parlo::uploadFileWithData(const QByteArray &data, const QString &type, const IMRoomPtr &room,
    bool isPublic, FileSuccess success, Failure failure)
{
    return d->files.uploadFileWithData(
        data, type, room, isPublic, [](double) {}, std::move(success), std::move(failure));
}

QPointer<QNetworkReply> Parlo::uploadFileWithImage(
    const QImage &image, const IMRoomPtr &room, bool isPublic, FileSuccess success, Failure failure)
{
    return d->files.uploadFileWithImage(image, room, isPublic, std::move(success), std::move(failure));
}

Parlo::UploadRequest Parlo::requestWithData(const QByteArray &data, const QVariantMap &dict) const
{
    return d->files.requestWithData(data, dict);
}

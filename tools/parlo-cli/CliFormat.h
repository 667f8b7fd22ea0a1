#pragma once

// What parlo-cli prints: every result and event as a line of text for people and as a JSON
// object for scripts, the progress bar, room references, join links and the exit code of an
// error. Pure functions over the kit's records.

#include <ParloSDK/IMError.h>
#include <ParloSDK/IMMessage.h>
#include <ParloSDK/IMRoom.h>

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace ParloCli {

//! One printed result: `text` for people, `record` (with a "type") for --json.
struct Line {
    QString text;
    QVariantMap record;
};

//! `record` as one compact JSON line (no newline).
QString jsonLine(const QVariantMap &record);

//! A timestamp text of the server as local "yyyy-MM-dd HH:mm:ss"; the text itself when unreadable.
QString localTime(const QString &timestamp);
//! A client dictionary's display name: its username, else its clientID, else "?".
QString displayName(const QVariantMap &client);
//! How a message reads in one line: its text, "[picture NAME]", "[file NAME]", "(deleted)"...
QString messagePreview(const QString &messageType, const QString &message);

//! A room of the list: name, id, unread count, members and the last message.
Line roomLine(const IMRoomPtr &room, const QString &me);
//! A message of a history page or a sent one.
Line messageLine(const IMMessagePtr &message);
//! The signed-in client after sign-up or chat-in.
Line clientLine(const IMClientPtr &client, int unreadTotal);

//! Pushed events.
Line messageEvent(const IMMessagePtr &message, const QString &me);
Line readEvent(const IMRoomPtr &room, const QString &reader, const QString &time);
Line joinedEvent(const IMRoomPtr &room, const QStringList &joiners, const QString &me);
Line statusEvent(int status, const QString &message);
Line messageUpdatedEvent(const IMMessagePtr &message);

//! The name of a connection status (0 connected ... 6 gave up reconnecting).
QString statusName(int status);
//! Members of `room` (by clientID) not in `known`.
QStringList newMembers(const QStringList &known, const IMRoomPtr &room);
//! The clientIDs of `room`'s members.
QStringList memberIDs(const IMRoomPtr &room);
//! The read times that a receipt changed: (clientID, time) for members other than `me` whose
//! time in `after` differs from the one in `before`.
QList<QPair<QString, QString>> readReceipts(const QVariantMap &before, const QVariantMap &after, const QString &me);

//! "label [#####.....]  50%" (with "  done / total" when `totalBytes` > 0); a negative
//! fraction (size unknown) shows no bar. Fractions above 1 count as 1.
QString progressBar(double fraction, const QString &label, qint64 totalBytes = 0, int width = 30);
//! 512 B, 1.5 KiB, 2.0 MiB.
QString humanSize(qint64 bytes);

//! A ROOM argument: a listed room's id, else the one listed room of that name, else the text
//! itself (taken as an id the server will judge). `error` is set when several rooms bear the name.
QString resolveRoom(const QString &reference, const QList<IMRoomPtr> &rooms, QString *error);

//! The host name of the kit's join links.
inline const QString kJoinLinkHost = QStringLiteral("parlo.integrate");
//! The link that opens `roomID` under `scheme`: "<scheme>://parlo.integrate/joinRoom/<id>".
QString joinLink(const QString &scheme, const QString &roomID);
//! The room of a join link under `scheme`; empty with `error` set when it is not one.
QString roomFromJoinLink(const QString &link, const QString &scheme, QString *error);

//! The exit code of a failed request: unreachable for transport errors, missing answers and
//! requests made while not `connected`; refused for the server's statuses; else failure.
int exitCodeFor(const IMError &error, bool connected);
//! One sentence about a failed request.
QString describeError(const IMError &error, bool connected);

} // namespace ParloCli

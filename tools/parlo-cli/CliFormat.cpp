#include "CliFormat.h"

#include <ParloSDK/IMDate.h>
#include <ParloSDK/ParloFileKeys.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUrl>

#include <algorithm>
#include <cmath>

namespace ParloCli {

QString jsonLine(const QVariantMap &record)
{
    return QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(record)).toJson(QJsonDocument::Compact));
}

QString localTime(const QString &timestamp)
{
    const QDateTime at = IMDate::toDate(timestamp);
    if (!at.isValid())
        return timestamp;
    return at.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString displayName(const QVariantMap &client)
{
    const QString username = client.value(QStringLiteral("username")).toString();
    if (!username.isEmpty())
        return username;
    const QString id = client.value(QStringLiteral("clientID")).toString();
    return id.isEmpty() ? QStringLiteral("?") : id;
}

QString messagePreview(const QString &messageType, const QString &message)
{
    if (messageType == kMessageTypeImage)
        return QStringLiteral("[picture %1]").arg(message);
    if (messageType == kMessageTypeDelete)
        return QStringLiteral("(deleted)");
    if (messageType == kMessageTypeText || messageType.isEmpty())
        return QString(message).replace(QLatin1Char('\n'), QStringLiteral(" / "));
    if (messageType == kMessageTypeOther)
        return QStringLiteral("[file %1]").arg(message);
    return QStringLiteral("[%1 %2]").arg(messageType, message);
}

namespace {

    QVariantMap clientOf(const IMClientPtr &client) { return client ? client->toDictionary() : QVariantMap(); }

    QString roomName(const IMRoomPtr &room)
    {
        if (!room)
            return QStringLiteral("?");
        return room->name().isEmpty() ? QStringLiteral("(room %1)").arg(room->objectID()) : room->name();
    }

    QVariantMap messageRecord(const IMMessagePtr &m)
    {
        const QVariantMap sender = clientOf(m->sender());
        return QVariantMap {{QStringLiteral("type"), QStringLiteral("message")}, {QStringLiteral("id"), m->objectID()},
            {QStringLiteral("room"), m->room() ? m->room()->objectID() : QString()},
            {QStringLiteral("sender"), sender.value(QStringLiteral("clientID")).toString()},
            {QStringLiteral("senderName"), displayName(sender)}, {QStringLiteral("messageType"), m->messageType()},
            {QStringLiteral("message"), m->message()}, {QStringLiteral("createdAt"), m->createdAt()}};
    }

    QVariantMap event(const QString &name, QVariantMap fields)
    {
        fields.insert(QStringLiteral("type"), QStringLiteral("event"));
        fields.insert(QStringLiteral("event"), name);
        return fields;
    }

    QString column(const QString &text, int width) { return text.leftJustified(width); }

} // namespace

QStringList memberIDs(const IMRoomPtr &room)
{
    QStringList ids;
    if (!room)
        return ids;
    for (const QVariant &c : room->client()) {
        const QVariantMap client = c.toMap();
        const QString id = client.value(QStringLiteral("clientID")).toString();
        ids.append(id.isEmpty() ? c.toString() : id);
    }
    ids.removeAll(QString());
    return ids;
}

Line roomLine(const IMRoomPtr &room, const QString &me)
{
    const QVariantMap last = room->message().value(0).toMap();
    const QVariantMap sender = last.value(QStringLiteral("sender")).toMap();
    const bool archived = room->archivedBy().contains(me);
    QVariantMap lastRecord;
    QString lastText = QStringLiteral("no messages yet");
    if (!last.isEmpty()) {
        const QString type = last.value(QStringLiteral("messageType")).toString();
        const QString text = last.value(QStringLiteral("message")).toString();
        lastRecord = QVariantMap {{QStringLiteral("id"), last.value(QStringLiteral("id"))},
            {QStringLiteral("sender"), sender.value(QStringLiteral("clientID"))},
            {QStringLiteral("senderName"), displayName(sender)}, {QStringLiteral("messageType"), type},
            {QStringLiteral("message"), text}, {QStringLiteral("createdAt"), last.value(QStringLiteral("createdAt"))}};
        lastText = QStringLiteral("%1: %2 (%3)")
                       .arg(displayName(sender), messagePreview(type, text),
                           localTime(last.value(QStringLiteral("createdAt")).toString()));
    }
    const QStringList members = memberIDs(room);
    Line line;
    line.text = QStringLiteral("%1 %2 %3 %4 last: %5")
                    .arg(column(roomName(room), 16), column(room->objectID(), 22),
                        column(QStringLiteral("%1 unread").arg(room->badge()), 10),
                        column(QStringLiteral("[%1]").arg(members.join(QStringLiteral(", "))), 18), lastText);
    if (archived)
        line.text += QStringLiteral("  (archived)");
    if (room->isPublic())
        line.text += QStringLiteral("  (public)");
    line.record = QVariantMap {{QStringLiteral("type"), QStringLiteral("room")},
        {QStringLiteral("id"), room->objectID()}, {QStringLiteral("name"), room->name()},
        {QStringLiteral("unread"), room->badge()}, {QStringLiteral("members"), members},
        {QStringLiteral("isPublic"), room->isPublic()}, {QStringLiteral("archived"), archived},
        {QStringLiteral("readTime"), room->readTime()}, {QStringLiteral("lastMessageTime"), room->lastMessageTime()},
        {QStringLiteral("lastMessage"), last.isEmpty() ? QVariant() : QVariant(lastRecord)}};
    return line;
}

Line messageLine(const IMMessagePtr &message)
{
    Line line;
    line.record = messageRecord(message);
    line.text = QStringLiteral("[%1] %2: %3")
                    .arg(localTime(message->createdAt()), line.record.value(QStringLiteral("senderName")).toString(),
                        messagePreview(message->messageType(), message->message()));
    return line;
}

Line clientLine(const IMClientPtr &client, int unreadTotal)
{
    const QVariantMap dict = clientOf(client);
    Line line;
    line.text = QStringLiteral("signed in as %1 (%2), %3 rooms, %4 unread")
                    .arg(client->clientID(), displayName(dict))
                    .arg(client->roomIDs().size())
                    .arg(unreadTotal);
    line.record = QVariantMap {{QStringLiteral("type"), QStringLiteral("client")},
        {QStringLiteral("clientID"), client->clientID()}, {QStringLiteral("username"), client->username()},
        {QStringLiteral("rooms"), client->roomIDs().size()}, {QStringLiteral("unread"), unreadTotal}};
    return line;
}

Line messageEvent(const IMMessagePtr &message, const QString &me)
{
    Line line;
    QVariantMap record = messageRecord(message);
    const bool mine = record.value(QStringLiteral("sender")).toString() == me;
    record.insert(QStringLiteral("roomName"), message->room() ? message->room()->name() : QString());
    record.insert(QStringLiteral("mine"), mine);
    line.text = QStringLiteral("message  %1  %2%3: %4")
                    .arg(roomName(message->room()), record.value(QStringLiteral("senderName")).toString(),
                        mine ? QStringLiteral(" (you)") : QString(),
                        messagePreview(message->messageType(), message->message()));
    record.remove(QStringLiteral("type"));
    line.record = event(QStringLiteral("message"), record);
    return line;
}

Line readEvent(const IMRoomPtr &room, const QString &reader, const QString &time)
{
    Line line;
    line.text = QStringLiteral("read     %1  %2 read up to %3").arg(roomName(room), reader, localTime(time));
    line.record = event(QStringLiteral("read"),
        {{QStringLiteral("room"), room ? room->objectID() : QString()},
            {QStringLiteral("roomName"), room ? room->name() : QString()}, {QStringLiteral("reader"), reader},
            {QStringLiteral("readTime"), time}});
    return line;
}

Line joinedEvent(const IMRoomPtr &room, const QStringList &joiners, const QString &me)
{
    Line line;
    const QStringList members = memberIDs(room);
    QStringList others = joiners;
    const bool added = others.removeAll(me) > 0;
    QStringList parts;
    if (added)
        parts << QStringLiteral("you are in it now");
    if (!others.isEmpty())
        parts << QStringLiteral("%1 joined").arg(others.join(QStringLiteral(", ")));
    if (parts.isEmpty())
        parts << QStringLiteral("membership changed");
    line.text = QStringLiteral("joined   %1  %2 (members: %3)")
                    .arg(roomName(room), parts.join(QStringLiteral("; ")), members.join(QStringLiteral(", ")));
    line.record = event(QStringLiteral("joined"),
        {{QStringLiteral("room"), room ? room->objectID() : QString()},
            {QStringLiteral("roomName"), room ? room->name() : QString()}, {QStringLiteral("joined"), joiners},
            {QStringLiteral("members"), members}});
    return line;
}

Line statusEvent(int status, const QString &message)
{
    Line line;
    line.text = QStringLiteral("status   %1").arg(statusName(status));
    if (!message.isEmpty() && status != 0 && status != 3)
        line.text += QStringLiteral(" (%1)").arg(message);
    line.record = event(QStringLiteral("status"),
        {{QStringLiteral("status"), status}, {QStringLiteral("name"), statusName(status)},
            {QStringLiteral("message"), message}});
    return line;
}

Line messageUpdatedEvent(const IMMessagePtr &message)
{
    Line line;
    QVariantMap record = messageRecord(message);
    line.text = QStringLiteral("edited   %1: %2")
                    .arg(record.value(QStringLiteral("senderName")).toString(),
                        messagePreview(message->messageType(), message->message()));
    record.remove(QStringLiteral("type"));
    line.record = event(QStringLiteral("edited"), record);
    return line;
}

QString statusName(int status)
{
    switch (status) {
    case 0:
        return QStringLiteral("connected");
    case 1:
        return QStringLiteral("disconnected");
    case 2:
        return QStringLiteral("connection error");
    case 3:
        return QStringLiteral("reconnected");
    case 4:
        return QStringLiteral("trying to reconnect");
    case 5:
        return QStringLiteral("reconnecting");
    case 6:
        return QStringLiteral("gave up reconnecting");
    default:
        return QStringLiteral("status %1").arg(status);
    }
}

QStringList newMembers(const QStringList &known, const IMRoomPtr &room)
{
    QStringList added;
    for (const QString &id : memberIDs(room))
        if (!known.contains(id))
            added.append(id);
    return added;
}

QList<QPair<QString, QString>> readReceipts(const QVariantMap &before, const QVariantMap &after, const QString &me)
{
    QList<QPair<QString, QString>> changed;
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        if (it.key() == me)
            continue;
        const QString time = it.value().toString();
        if (time.isEmpty() || before.value(it.key()).toString() == time)
            continue;
        changed.append({it.key(), time});
    }
    return changed;
}

QString humanSize(qint64 bytes)
{
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    if (bytes < 1024 * 1024)
        return QStringLiteral("%1 KiB").arg(double(bytes) / 1024, 0, 'f', 1);
    return QStringLiteral("%1 MiB").arg(double(bytes) / (1024 * 1024), 0, 'f', 1);
}

QString progressBar(double fraction, const QString &label, qint64 totalBytes, int width)
{
    if (fraction < 0 || std::isnan(fraction))
        return QStringLiteral("%1 [%2]  ...").arg(label, QString(width, QLatin1Char(' ')));
    fraction = std::min(fraction, 1.0);
    const int filled = int(std::floor(fraction * width));
    QString text = QStringLiteral("%1 [%2%3] %4%")
                       .arg(label, QString(filled, QLatin1Char('#')), QString(width - filled, QLatin1Char('.')))
                       .arg(int(std::floor(fraction * 100)), 3);
    if (totalBytes > 0)
        text
            += QStringLiteral("  %1 / %2").arg(humanSize(qint64(fraction * double(totalBytes))), humanSize(totalBytes));
    return text;
}

QString resolveRoom(const QString &reference, const QList<IMRoomPtr> &rooms, QString *error)
{
    QStringList named;
    for (const IMRoomPtr &room : rooms) {
        if (room->objectID() == reference)
            return reference;
        if (room->name() == reference && !named.contains(room->objectID()))
            named.append(room->objectID());
    }
    if (named.size() == 1)
        return named.first();
    if (named.size() > 1) {
        if (error)
            *error = QStringLiteral("%1 rooms are named \"%2\" (%3): use an id")
                         .arg(named.size())
                         .arg(reference, named.join(QStringLiteral(", ")));
        return QString();
    }
    return reference;
}

QString joinLink(const QString &scheme, const QString &roomID)
{
    QUrl url;
    url.setScheme(scheme);
    url.setHost(kJoinLinkHost);
    url.setPath(QStringLiteral("/joinRoom/") + roomID);
    return url.toString(QUrl::FullyEncoded);
}

QString roomFromJoinLink(const QString &link, const QString &scheme, QString *error)
{
    auto refuse = [&](const QString &why) {
        if (error)
            *error = QStringLiteral("not a join link (%1): %2").arg(why, link);
        return QString();
    };
    const QUrl url(link, QUrl::StrictMode);
    if (!url.isValid())
        return refuse(QStringLiteral("unreadable"));
    if (url.scheme() != scheme)
        return refuse(QStringLiteral("the scheme must be %1:").arg(scheme));
    if (url.host() != kJoinLinkHost)
        return refuse(QStringLiteral("the host must be %1").arg(kJoinLinkHost));
    const QStringList parts = url.path().split(QLatin1Char('/'));
    if (parts.size() != 3 || parts[1] != QLatin1String("joinRoom") || parts[2].isEmpty())
        return refuse(QStringLiteral("the path must be /joinRoom/ROOM"));
    return parts[2];
}

int exitCodeFor(const IMError &error, bool connected)
{
    if (error.domain() == kParloNetworkErrorDomain || error.code() == 999)
        return 3;
    if (error.domain() == kParlo && error.code() == 400 && !connected)
        return 3;
    if (error.domain() == kParlo && error.code() >= 400 && error.code() < 600)
        return 4;
    return 1;
}

QString describeError(const IMError &error, bool connected)
{
    const QString info = error.info();
    switch (exitCodeFor(error, connected)) {
    case 3:
        if (error.code() == 999)
            return QStringLiteral("no answer from the server in time");
        if (error.domain() == kParloNetworkErrorDomain)
            return QStringLiteral("network error: %1").arg(info);
        return QStringLiteral("not connected to the server");
    case 4:
        return QStringLiteral("the server refused the request (%1)%2")
            .arg(error.code())
            .arg(info.isEmpty() ? QString() : QStringLiteral(": ") + info);
    default:
        return error.description();
    }
}

} // namespace ParloCli

#include "ParloOutbox.h"

#include "IMClient.h"
#include "ParloAnnouncer.h"
#include "ParloTransport.h"

#include <algorithm>

ParloOutbox::ParloOutbox(Parlo *facade, ParloTransport &transport, ParloAnnouncer &announcer)
    : m_facade(facade)
    , m_transport(transport)
    , m_announcer(announcer)
{
}

void ParloOutbox::send(const IMMessagePtr &message, Parlo::MessageSuccess success, Parlo::Failure failure)
{
    if (!message) {
        if (failure)
            failure(IMError::parlo(400, QStringLiteral("message is needed")));
        return;
    }
    QVariantMap body = message->toDictionary();
    body.remove(QStringLiteral("sendingType"));
    // Identifiers stand for the records; an absent one leaves its key out.
    const QString room = message->room() ? message->room()->objectID() : QString();
    if (room.isEmpty())
        body.remove(QStringLiteral("room"));
    else
        body.insert(QStringLiteral("room"), room);
    const QString sender = IMClient::currentClient()->clientID();
    if (sender.isEmpty())
        body.remove(QStringLiteral("sender"));
    else
        body.insert(QStringLiteral("sender"), sender);
    const QVariantMap item {{QStringLiteral("url"), QStringLiteral("/message/")},
        {QStringLiteral("headers"), m_transport.header()}, {QStringLiteral("data"), body}};

    // It stays listed until its echo arrives, even when the send fails.
    m_sending.append(message);
    QPointer<Parlo> facade(m_facade);
    m_transport.emitWithMethod(
        ParloRequestMethodPost, item,
        [message, success](const QVariant &answer) {
            // An answer that is no message record leaves the local copy as it is.
            const IMMessagePtr server
                = answer.typeId() == QMetaType::QVariantMap ? IMMessage::fromDictionary(answer.toMap()) : nullptr;
            message->copyPropertiesFromMessage(server);
            if (success)
                success(message);
        },
        [this, facade, message, failure](const IMError &error) {
            message->setSendingType(IMMessageSendingTypeFailed);
            if (facade)
                dropOldestFailed();
            if (failure)
                failure(error);
            if (facade)
                m_announcer.tell(ParloAnnouncement::SendingType, QVariant::fromValue(message));
        });
}

bool ParloOutbox::settle(const IMMessagePtr &echo)
{
    for (qsizetype i = 0; i < m_sending.size(); ++i) {
        const IMMessagePtr local = m_sending[i];
        if (local->idFromSender() != echo->idFromSender())
            continue;
        local->copyPropertiesFromMessage(echo);
        m_announcer.tell(ParloAnnouncement::SendingType, QVariant::fromValue(local));
        m_sending.removeAt(i);
        return true;
    }
    return false;
}

void ParloOutbox::dropOldestFailed()
{
    if (m_failedLimit < 0)
        return;
    const auto isFailed = [](const IMMessagePtr &m) { return m->sendingType() == IMMessageSendingTypeFailed; };
    qsizetype failed = std::count_if(m_sending.cbegin(), m_sending.cend(), isFailed);
    // The list is in sending order, so the first failed entries are the oldest.
    for (qsizetype i = 0; failed > m_failedLimit && i < m_sending.size();) {
        if (isFailed(m_sending[i])) {
            m_sending.removeAt(i);
            --failed;
        } else {
            ++i;
        }
    }
}

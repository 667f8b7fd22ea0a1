#pragma once

// The records' side of the store's codec. The store writes and reads records as text of its own
// (Store/IMStoredText_p.h); the records know no text format and give it only what it needs:
// their typed fields, member-by-member reading of a message, a message's nested records kept as
// text until first used (decoded by the parser the store hands over with the texts), and the
// cache's cheap copy of a room.

#include "IMMessage.h"
#include "IMRoom.h"

#include <QByteArray>

struct IMRecordStorage {
    //! Receives a record's set properties by type (see IMObject::forEachOwnField).
    using FieldVisitor = IMObject::FieldVisitor;

    //! Calls `field` for each set property of the records' common base, in key order.
    static void forEachBaseField(const IMObject &record, const FieldVisitor &field) { record.forEachBaseField(field); }
    //! Calls `field` for each set property the record's class adds to the base, in key order.
    static void forEachOwnField(const IMObject &record, const FieldVisitor &field) { record.forEachOwnField(field); }

    //! For a message being built member by member: sets the property `key` names, without the
    //! initialisers' defaults (other keys are left alone); false on a mismatch.
    static bool mergeMessageMember(IMMessage &message, const QString &key, const QVariant &value)
    {
        return message.mergeBaseMember(key, value) && IMMessage::mergeOwnMember(*message.d, key, value);
    }

    //! Parses one JSON object's text; false for anything else.
    using ObjectParser = bool (*)(const char *data, qsizetype size, QVariantMap *out);
    //! Keeps the message's room, sender and push options as their texts (empty: none), decoded
    //! with `parse` when one of them is first used (from any thread).
    static void deferNested(
        IMMessage &message, QByteArray room, QByteArray sender, QByteArray option, ObjectParser parse);

    //! A copy of a room that no one changes or hands out (the store's cache): its sender is
    //! shared until the copy first uses it, and then copied.
    static IMRoomPtr copyCached(const IMRoom &room);
};

#pragma once

#include "IMMessage.h"

//! Records as the store keeps them: JSON text, written and read without dictionaries in between.
struct IMStoredText {
    //! `record` as JSON text: the same text as its dictionary written with IMJSONText::toJson.
    static QByteArray write(const IMObject &record);
    //! `write` appended to `text` (a reused array keeps its capacity).
    static void write(const IMObject &record, QByteArray *text);
    //! Starts loading what `write` will read of `record`, ahead of need; `shallow`: only its own
    //! texts and the arrays of its lists, not what those lists and its maps hold.
    static void prefetch(const IMObject &record, bool shallow = false);
    //! The message archived as `text`, mapped without the initialisers' defaults; its room,
    //! sender and push options are checked now and decoded when first used. Null for malformed
    //! text or a value that does not fit its property.
    static IMMessagePtr readMessage(const QByteArray &text) { return readMessage(text.constData(), text.size()); }
    //! What a run of reads shares: the last nested texts kept, which the next message reuses
    //! when its own are the same.
    struct ReadContext {
        QByteArray room, sender;
    };
    //! `readMessage` of text that need not outlive the call (a page's rows share a `context`).
    static IMMessagePtr readMessage(const char *text, qsizetype size, ReadContext *context = nullptr);
    //! A copy of a room that no one changes or hands out (the store's cache): its sender is
    //! shared until the copy first uses it, and then copied.
    static IMRoomPtr copyCached(const IMRoom &room);

private:
    struct Writer;
    struct Prefetcher;
};

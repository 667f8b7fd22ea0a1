#pragma once

#include "IMMessage.h"

//! Messages read back from the store's text.
struct IMMessageStoredText
{
    //! The message archived as `data` (JSON text), mapped without the initialisers' defaults;
    //! its room, sender and push options are checked now and decoded when first used. Null for
    //! malformed text or a value that does not fit its property.
    static IMMessagePtr read(const QByteArray &text);
};

#pragma once

#include "IMMessage.h"

// The send and update conveniences of a message record. They go through the shared facade,
// which the model layer does not know, so they live beside it as free functions.

//! Sends `message` through Parlo::shareInstance()->sendMessageInBackground (no callbacks).
void IMMessageSend(const IMMessagePtr &message);
//! Updates `message` through Parlo::shareInstance()->updateMessage with blocks that do nothing.
void IMMessageUpdate(const IMMessagePtr &message);

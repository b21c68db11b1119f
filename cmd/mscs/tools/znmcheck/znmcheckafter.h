// The look after a move, however it ended.
#pragma once

#include "znmsurvey.h"

// Exit statuses of the look.
enum ZN_STATE
{
    ZN_MOVED = 0,       // and whole; nothing is left of the old trees, as far as they are known
    ZN_NOT_MOVED = 1,   // and whole
    ZN_IN_BETWEEN = 2,  // and whole
    ZN_CANNOT_TELL = 3, // or something is missing, or differs from the record
};

// Prints the state, whether the queue manager may be started, and what finishes the move or takes it back.
// Changes nothing on disk.
ZN_STATE ZNCheckAfter(const ZNCheckWords& words);

// The look after a move.
#pragma once

#include "znmdecide.h"
#include "znmsurvey.h"

// Prints where a move stands, whether the queue manager may be started, and what finishes the move or takes
// it back. Changes nothing on disk.
ZN_STATUS ZNCheckAfter(const ZNCheckWords& words);

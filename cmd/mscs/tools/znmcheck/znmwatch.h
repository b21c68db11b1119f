// The look while a move runs.
#pragma once

#include "znmdecide.h"
#include "znmsurvey.h"

// Shows how far a move is until it is over: on a console in one line, elsewhere in a line at once and then
// every ten seconds. Changes nothing on disk, and opens nothing that the move deletes.
ZN_STATUS ZNWatch(const ZNCheckWords& words);

// Queue managers as the product's configuration describes them.
#pragma once

#include <cstdint>

#include "tovxcs2.h"

// Fills the record of a queue manager. Returns 0 or a return code; a stanza of which anything does not fit
// the record or could lead into a wrong directory is a failure: what the record names is copied and deleted.
int32_t FindQueueManager(const char* pszName, XCS_QM_DETAILS& details);

// Queue managers as the product's configuration describes them.
#pragma once

#include "config.h"
#include "returncodes.h"
#include "tovxcs2.h"

// Fills the record of the queue manager of a stanza. Returns 0 or a return code; a stanza of which anything
// does not fit the record or could lead into a wrong directory is a failure: what the record names is copied
// and deleted.
int32_t ReadQueueManagerDetails(const ConfigFile& file, const IniFile::Stanza& stanza,
                                XCS_QM_DETAILS& details);

// The same for the queue manager of that name in zns.ini.
Outcome LookUpQueueManager(const char* pszName, XCS_QM_DETAILS& details);

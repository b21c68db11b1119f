// Paths of the source modules, for their identification strings and for failure records.
#pragma once

#include "sourceid.h"

#define ZNM_STRINGIZE_(text) #text
#define ZNM_STRINGIZE(text) ZNM_STRINGIZE_(text)

// Path of a source module without its extension, as identification strings and failure records contain it.
#define ZNM_CLUSTER_LIBRARY(module) "lib/admin/pc/winnt/mscs/tovmclut/" module
#define ZNM_MIGRATE_TOOL(module) "cmd/mscs/tools/znmmigrate/" module

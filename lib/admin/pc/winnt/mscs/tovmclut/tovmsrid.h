// Identification strings of the source modules, which can be read in the executable with a dump tool.
#pragma once

#define ZNM_STRINGIZE_(text) #text
#define ZNM_STRINGIZE(text) ZNM_STRINGIZE_(text)

// Path of a source module without its extension, as identification strings and failure records contain it.
#define ZNM_CLUSTER_LIBRARY(module) "lib/admin/pc/winnt/mscs/tovmclut/" module
#define ZNM_MIGRATE_TOOL(module) "cmd/mscs/tools/znmmigrate/" module

// Stands once, at namespace scope, in every source module. Nothing reads the pointer at run time: volatile
// and the attribute keep the pointer and the string in the executable.
#define ZNM_SOURCE_ID(path)                                                                                  \
    [[gnu::used]] static const char* volatile s_pszSourceId =                                                \
        "@(#) ZNMBID sn=" XCS_VERSION_LEVEL " su=tarvel-" TARVEL_VERSION " pn=" path

// Identification strings of the source modules, which can be read in the executable with a dump tool.
#pragma once

// The level of the product that the program is built for.
#define ZN_BUILD_LEVEL "9.3.1.0"

// Stands once, at namespace scope, in every source module, with the module's path without its extension.
// Nothing reads the pointer at run time: volatile and the attribute keep the pointer and the string in the
// executable.
#define ZNM_SOURCE_ID(path)                                                                                  \
    [[gnu::used]] static const char* volatile s_pszSourceId =                                                \
        "@(#) ZNMBID sn=" ZN_BUILD_LEVEL " su=tarvel-" TARVEL_VERSION " pn=" path

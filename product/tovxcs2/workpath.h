// The product's work path.
#pragma once

#include <string>

// The directory that holds zns.ini, the trace and the failure records, without a backslash at its end: the
// environment's ZN_WORK_PATH, else the registry's WorkPath, else Vantor\ZN below the program data. Empty when
// none of them names an absolute path.
std::wstring WorkPath();

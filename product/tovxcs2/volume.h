// What the volume of a path can do.
#pragma once

#include <string>

#include "returncodes.h"

// 0, XCS_RC_NO_VOLUME_SECURITY, or another code when it could not be found out. strRoot is the volume's root,
// with a backslash at its end, once it is known.
Outcome TestVolumeSecurity(const std::wstring& strPath, std::wstring& strRoot);

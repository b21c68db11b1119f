// What the volume of a path can do.
#pragma once

#include <cstdint>
#include <string>

// 0, XCS_RC_NO_VOLUME_SECURITY, or another code when it could not be found out. strRoot is the volume's root,
// with a backslash at its end, once it is known.
int32_t TestVolumeSecurity(const std::wstring& strPath, std::wstring& strRoot);

// The local group whose members administer the product.
#pragma once

#include <windows.h>

#include <vector>

// SID of the local group "znm", or empty when this machine has none. An account of that name that is no group
// counts for nothing.
std::vector<unsigned char> ZnmGroupSid();

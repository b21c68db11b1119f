// The group whose members administer the product.
#pragma once

#include <windows.h>

#include <vector>

// SID of the group "znm": a local group of this machine or, where there is none, a global group of its
// domain. Empty when there is neither. An account of that name that is no group counts for nothing.
std::vector<unsigned char> ZnmGroupSid();

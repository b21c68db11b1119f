// Who administers the product, and what they share.
#pragma once

#include <windows.h>

#include <vector>

#include "owner.h"

// SID of the group "znm": a local group of this machine or, where there is none, a global group of its
// domain. Empty when there is neither. An account of that name that is no group does not count.
std::vector<unsigned char> ZnmGroupSid();

// Access for Administrators, the system and the group, to named objects that they share.
class SharedObjectSecurity
{
  public:
    SharedObjectSecurity();
    SECURITY_ATTRIBUTES* Get() { return m_descriptor ? &m_attributes : nullptr; }

  private:
    LocalBlock m_descriptor;
    SECURITY_ATTRIBUTES m_attributes = {};
};

// The named kernel objects of a running queue manager. They die with its process, so that nothing is left
// behind however it ends.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

#include "owner.h"

// Names of the objects, made of what identifies the queue manager on this machine.
struct RunObjectNames
{
    // Each part at most 128 characters without a backslash; nothing otherwise.
    static std::optional<RunObjectNames> Make(std::wstring_view strSubpool, std::wstring_view strDirectory,
                                              std::wstring_view strInstallation);

    std::wstring strRunning; // mutex, owned while the queue manager runs
    std::wstring strEnd;     // event: asks it to end
    std::wstring strRefused; // event: it will not
};

// Access for Administrators, the system and the product's group, to named objects that they share.
class RunObjectSecurity
{
  public:
    RunObjectSecurity();
    SECURITY_ATTRIBUTES* Get() { return m_descriptor ? &m_attributes : nullptr; }

  private:
    LocalBlock m_descriptor;
    SECURITY_ATTRIBUTES m_attributes = {};
};

// True when the queue manager runs, and also when that cannot be found out: its files are not touched then.
bool IsRunning(const RunObjectNames& names);

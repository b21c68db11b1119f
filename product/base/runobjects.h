// The named kernel objects of a running queue manager. They die with its process, so that nothing is left
// behind however it ends.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Names of the objects, made of what identifies the queue manager on this machine.
struct RunObjectNames
{
    // Nothing when a part holds a backslash or the names would be too long.
    static std::optional<RunObjectNames> Make(std::wstring_view strSubpool, std::wstring_view strDirectory,
                                              std::wstring_view strInstallation);

    std::wstring strRunning; // mutex, owned while the queue manager runs
    std::wstring strEnd;     // event: asks it to end
    std::wstring strRefused; // event: it will not
};

// True when the queue manager runs, and also when that cannot be found out: its files are not touched then.
bool IsRunning(const RunObjectNames& names);

// Names and tests the kernel objects of a running queue manager. Must not say "stopped" of one that may run.
#include "runobjects.h"

#include "owner.h"

std::optional<RunObjectNames> RunObjectNames::Make(std::wstring_view strSubpool,
                                                   std::wstring_view strDirectory,
                                                   std::wstring_view strInstallation)
{
    constexpr size_t MAX_NAME = 240; // leaves room for the endings below the system's 260
    std::wstring strBase = L"Global\\ZN";
    for (const std::wstring_view strPart : {strSubpool, strDirectory, strInstallation})
    {
        if (strPart.find(L'\\') != std::wstring_view::npos)
            return std::nullopt;
        strBase.append(L".").append(strPart);
    }
    if (strBase.size() > MAX_NAME)
        return std::nullopt;
    return RunObjectNames{strBase + L".Running", strBase + L".End", strBase + L".Refused"};
}

bool IsRunning(const RunObjectNames& names)
{
    const KernelHandle mutex(OpenMutexW(SYNCHRONIZE, FALSE, names.strRunning.c_str()));
    const DWORD nError = GetLastError();
    if (!mutex)
        return nError != ERROR_FILE_NOT_FOUND;
    // A handle of another program can keep the mutex alive after its owner died: only an owned one counts.
    return !AcquireMutex(mutex, 0);
}

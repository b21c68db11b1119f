// What each call of the common-services library costs that reads or writes zns.ini: milliseconds, the median
// of a few calls. The last stanza of the file is asked for, a queue manager QM1.
#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "tovxcs2.h"

namespace
{
template <class Call>
void Measure(const char* pszName, Call call)
{
    constexpr int CALLS = 5;
    double anMilliseconds[CALLS];
    LARGE_INTEGER nStart, nEnd, nFrequency;
    QueryPerformanceFrequency(&nFrequency);
    int32_t nResult = 0;
    for (double& n : anMilliseconds)
    {
        QueryPerformanceCounter(&nStart);
        nResult |= call();
        QueryPerformanceCounter(&nEnd);
        n = static_cast<double>(nEnd.QuadPart - nStart.QuadPart) * 1e3 /
            static_cast<double>(nFrequency.QuadPart);
    }
    std::sort(anMilliseconds, anMilliseconds + CALLS);
    std::printf("%s\t%.3f%s\n", pszName, anMilliseconds[CALLS / 2], nResult != 0 ? "\tfailed" : "");
}
} // namespace

int main()
{
    char szFile[XCS_PATH_SIZE];
    uint32_t nType = 0;
    XCS_SCRATCH scratch;
    XCS_CONNECTION connection = {};
    Measure("xcsInitializeEx and xcsTerminate", [&] {
        return xcsInitializeEx(0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, &connection) |
               xcsTerminate(&connection, 0);
    });
    Measure("xcsGetIniFilename, zns.ini", [&] { return xcsGetIniFilename(nullptr, szFile, &nType); });
    Measure("xcsGetIniFilename, qm.ini", [&] {
        char szQmIni[XCS_PATH_SIZE];
        uint32_t nQmType = 0;
        return xcsGetIniFilename("QM1", szQmIni, &nQmType);
    });
    Measure("xcsGetQMDetails", [&] {
        XCS_QM_DETAILS* pDetails = nullptr;
        const int32_t nResult = xcsGetQMDetails("QM1", &scratch, &pDetails);
        xcsFreeMemFn(nullptr, 0, nullptr, pDetails);
        return nResult;
    });
    Measure("xcsGetInstallationDetails", [&] {
        XCS_INSTALLATION_DETAILS* pInstallation = nullptr;
        const int32_t nResult = xcsGetInstallationDetails("Inst1", nullptr, nullptr, XCS_INSTALLATION_BY_NAME,
                                                          nullptr, &scratch, &pInstallation);
        xcsFreeMemFn(nullptr, 0, nullptr, pInstallation);
        return nResult;
    });
    Measure("xcsIniUtilRead", [&] {
        char szValue[XCS_PATH_SIZE];
        uint32_t nLength = sizeof szValue;
        return xcsIniUtilRead("QueueManager", "Name", "QM1", "Prefix", szValue, &nLength, szFile, nType);
    });
    Measure("xcsIniUtilWrite", [&] {
        return xcsIniUtilWrite("QueueManager", "Name", "QM1", "Prefix", "T:\\old\\data", szFile, nType);
    });
    return 0;
}

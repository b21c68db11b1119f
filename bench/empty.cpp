// What starting any program costs. With BENCH_IMPORTS it also needs the system libraries that a move needs,
// so that the time the system takes to load those shows by itself. Neither does anything.
#include <windows.h>
#include <aclapi.h>
#include <shellapi.h>

extern "C" int wmain(int argc, wchar_t*[])
{
#ifdef BENCH_IMPORTS
    if (argc > 1000)
    {
        CharLowerW(nullptr);
        SHFileOperationW(nullptr);
        return static_cast<int>(SetEntriesInAclW(0, nullptr, nullptr, nullptr));
    }
#endif
    return argc > 1000;
}

// The stack protector's guard value, and what happens when a function finds it overwritten. Linked into every
// program and library that ships, in place of the tool chain's own: that one opens a cryptographic provider
// for its one random number, which costs each of them some 4 ms at every start.
#include <windows.h>
#include <ntsecapi.h>

#include <cstdint>

extern "C"
{
    // Read by the code that the compiler puts around functions with buffers.
    uintptr_t __stack_chk_guard = 0;

    [[noreturn]] void __stack_chk_fail()
    {
        // Nothing of the thread's stack can be trusted any more: no handler runs, no destructor.
        asm volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
        __builtin_unreachable();
    }
}

// Before every other initialisation: no function may be running that read the former value.
__attribute__((constructor(101), no_stack_protector)) static void SetGuard()
{
    uintptr_t nGuard = 0;
    if (!RtlGenRandom(&nGuard, sizeof nGuard))
    {
        // Harder to guess than nothing.
        FILETIME now = {};
        GetSystemTimeAsFileTime(&now);
        nGuard = (uintptr_t{now.dwLowDateTime} << 16) ^ (uintptr_t{GetCurrentProcessId()} << 32) ^
                 reinterpret_cast<uintptr_t>(&nGuard);
    }
    __stack_chk_guard = nGuard;
}

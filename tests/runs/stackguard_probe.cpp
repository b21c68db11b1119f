// Prints its stack guard, then writes as many bytes as its first word says into a buffer of 16 on its stack.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" uintptr_t __stack_chk_guard;

__attribute__((noinline, no_sanitize("undefined"))) static int Fill(int nLength)
{
    char achBuffer[16];
    volatile char* const p = achBuffer;
    for (int i = 0; i < nLength; ++i)
        p[i] = 'x';
    return p[15];
}

int main(int, char** argv)
{
    std::printf("%llx\n", static_cast<unsigned long long>(__stack_chk_guard));
    std::fflush(stdout);
    return Fill(std::atoi(argv[1]));
}

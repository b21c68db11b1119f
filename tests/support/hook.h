// Replaces one imported function of the running test program, in its import table, as long as an object
// lives:
//     const auto hook = Hook(Sleep, [&](DWORD n) { Sleep(n / 10); });
// Calls from the code under test, which is linked into the test program, then reach the lambda; calls made
// inside a DLL do not. In the lambda the function is itself, or the hook that was set before this one.
#pragma once

#include <windows.h>

#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

// Calls visit(DLL, name, slot) for every import by name of a module.
template <class Visit>
void ForEachImport(HMODULE hModule, Visit visit)
{
    auto* pBase = reinterpret_cast<unsigned char*>(hModule);
    auto at = [pBase](auto nOffset) { return pBase + nOffset; };
    auto* pDos = reinterpret_cast<IMAGE_DOS_HEADER*>(pBase);
    auto* pNt = reinterpret_cast<IMAGE_NT_HEADERS64*>(at(pDos->e_lfanew));
    const auto& directory = pNt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* p = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(at(directory.VirtualAddress)); p->Name != 0;
         ++p)
    {
        auto* pName = reinterpret_cast<IMAGE_THUNK_DATA64*>(at(p->OriginalFirstThunk));
        auto* pSlot = reinterpret_cast<IMAGE_THUNK_DATA64*>(at(p->FirstThunk));
        for (; pName->u1.AddressOfData != 0; ++pName, ++pSlot)
        {
            if (IMAGE_SNAP_BY_ORDINAL64(pName->u1.Ordinal))
                continue;
            auto* pImport = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(at(pName->u1.AddressOfData));
            visit(reinterpret_cast<const char*>(at(p->Name)), reinterpret_cast<const char*>(pImport->Name),
                  reinterpret_cast<void**>(&pSlot->u1.Function));
        }
    }
}

// The import table slot of a function in the program, or null if it does not import it.
inline void** FindImportSlot(const char* pszFunction)
{
    void** ppFound = nullptr;
    ForEachImport(GetModuleHandleW(nullptr), [&](const char*, const char* pszName, void** ppSlot) {
        if (std::strcmp(pszName, pszFunction) == 0)
            ppFound = ppSlot;
    });
    return ppFound;
}

inline void WriteImportSlot(void** ppSlot, void* pFunction)
{
    DWORD nProtection = 0;
    VirtualProtect(ppSlot, sizeof *ppSlot, PAGE_READWRITE, &nProtection);
    *ppSlot = pFunction;
    VirtualProtect(ppSlot, sizeof *ppSlot, nProtection, &nProtection);
}

// The name of a function as a template argument: each hooked function has a trampoline of its own.
struct FunctionName
{
    char szText[40];
};

template <FunctionName NAME, class Signature>
class ImportHook;

template <FunctionName NAME, class Result, class... Args>
class ImportHook<NAME, Result(Args...)>
{
  public:
    explicit ImportHook(std::function<Result(Args...)> replacement)
        : m_replacement(std::move(replacement)), m_pOuter(s_pCurrent), m_ppSlot(FindImportSlot(NAME.szText))
    {
        if (m_pOuter == nullptr)
            s_pReal = reinterpret_cast<Result (*)(Args...)>(*m_ppSlot);
        WriteImportSlot(m_ppSlot, reinterpret_cast<void*>(&Trampoline));
        s_pCurrent = this;
    }
    ~ImportHook()
    {
        s_pCurrent = m_pOuter;
        if (m_pOuter == nullptr)
            WriteImportSlot(m_ppSlot, reinterpret_cast<void*>(s_pReal));
    }

  private:
    static Result Trampoline(Args... args)
    {
        ImportHook* const pHook = s_pCurrent;
        if (pHook == nullptr)
            return s_pReal(args...);
        const std::unique_ptr<ImportHook, decltype([](auto* p) { s_pCurrent = p; })> restore(pHook);
        s_pCurrent = pHook->m_pOuter;
        return pHook->m_replacement(args...);
    }

    static inline ImportHook* s_pCurrent = nullptr; // which takes the next call; null: the function itself
    static inline Result (*s_pReal)(Args...) = nullptr;
    std::function<Result(Args...)> m_replacement;
    ImportHook* m_pOuter;
    void** m_ppSlot;
};
using Hooks = std::vector<std::shared_ptr<void>>;

#define Hook(function, ...)                                                                                  \
    std::make_shared<ImportHook<FunctionName{#function}, decltype(function)>>(__VA_ARGS__)

// Makes every call of a function fail: const auto hook = Fails(CreateFileW, INVALID_HANDLE_VALUE, 5);
#define Fails(function, result, error) Hook(function, [](auto...) { return SetLastError(error), result; })

// Replaces one imported function of the running test program, in its import table, for the life of an object:
//
//     ImportHook<decltype(GetTempPathW)> hook("GetTempPathW", [&](DWORD n, LPWSTR p) { return 0; });
//
// Calls from the code under test, which is linked into the test program, then reach the lambda; hook.Real()
// is the function itself. Calls made inside a DLL are not caught.
#pragma once

#include <windows.h>

#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

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

// Tag makes every hook object its own type, with its own trampoline: two hooks of one signature do not meet.
template <class Signature, class Tag = decltype([] {})>
class ImportHook;

template <class Result, class... Args, class Tag>
class ImportHook<Result(Args...), Tag>
{
  public:
    ImportHook(const char* pszFunction, std::function<Result(Args...)> replacement)
        : m_ppSlot(FindImportSlot(pszFunction))
    {
        if (m_ppSlot == nullptr)
            throw std::invalid_argument(std::string("not imported: ") + pszFunction);
        m_pReal = *m_ppSlot;
        s_replacement = std::move(replacement);
        WriteImportSlot(m_ppSlot, reinterpret_cast<void*>(&Trampoline));
    }
    ~ImportHook() { WriteImportSlot(m_ppSlot, m_pReal); }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

    Result Real(Args... args) const { return reinterpret_cast<Result (*)(Args...)>(m_pReal)(args...); }

  private:
    static Result Trampoline(Args... args) { return s_replacement(args...); }

    static inline std::function<Result(Args...)> s_replacement;
    void** m_ppSlot;
    void* m_pReal = nullptr;
};

// A hook under which every call of a function fails: const auto hook = Fails(CreateFileW,
// INVALID_HANDLE_VALUE, 5);
#define Fails(function, result, error)                                                                       \
    ImportHook<decltype(function)>(#function, [](auto...) { return SetLastError(error), result; })

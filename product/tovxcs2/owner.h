// Owners of what Windows hands out, one type for each kind of "nothing". No function gives such a thing back
// by hand.
#pragma once

#include <windows.h>

#include <memory>
#include <utility>

// Closing keeps the thread's last error, so that the error of what happened meanwhile survives.
template <class Kind>
class Owner
{
  public:
    Owner() noexcept = default;
    explicit Owner(HANDLE handle) noexcept : m_handle(handle) {}
    Owner(Owner&& other) noexcept : m_handle(std::exchange(other.m_handle, Kind::Nothing())) {}
    Owner& operator=(Owner&& other) noexcept
    {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~Owner() { Close(); }

    explicit operator bool() const noexcept { return m_handle != Kind::Nothing(); }
    HANDLE Get() const noexcept { return m_handle; }

    // Closes now; a second call does nothing.
    void Close() noexcept
    {
        if (!*this)
            return;
        const DWORD nError = GetLastError();
        Kind::Close(std::exchange(m_handle, Kind::Nothing())); // nothing can be done about a failure
        SetLastError(nError);
    }

  private:
    HANDLE m_handle = Kind::Nothing();
};

// Events, mutexes, processes: null is nothing.
struct KernelHandleKind
{
    static HANDLE Nothing() noexcept { return nullptr; }
    static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using KernelHandle = Owner<KernelHandleKind>;

struct FileHandleKind
{
    static HANDLE Nothing() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using FileHandle = Owner<FileHandleKind>;

struct FindHandleKind
{
    static HANDLE Nothing() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(HANDLE handle) noexcept { FindClose(handle); }
};
using FindHandle = Owner<FindHandleKind>;

// A block that Windows allocated with LocalAlloc: a security descriptor, a text.
struct LocalDeleter
{
    void operator()(void* pBlock) const noexcept { LocalFree(pBlock); }
};
using LocalBlock = std::unique_ptr<void, LocalDeleter>;

// A lock that is held as long as this object lives.
class Lock
{
  public:
    explicit Lock(SRWLOCK& lock) noexcept : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ~Lock() { ReleaseSRWLockExclusive(&m_lock); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    SRWLOCK& m_lock;
};

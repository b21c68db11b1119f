// Owners of what Windows hands out, one type for each kind of "nothing". No function gives such a thing back
// by hand.
#pragma once

#include <windows.h>

#include <cstdlib>
#include <utility>

// Owns one handle, block or SID. Kind says what it is: Type, Nothing(), Close(Type). Closing keeps the
// thread's last error, so that the error of what happened meanwhile survives.
template <class Kind>
class Owner
{
  public:
    using Type = typename Kind::Type;

    Owner() noexcept = default;
    explicit Owner(Type owned) noexcept : m_owned(owned) {}
    Owner(Owner&& other) noexcept : m_owned(std::exchange(other.m_owned, Kind::Nothing())) {}
    Owner& operator=(Owner&& other) noexcept
    {
        std::swap(m_owned, other.m_owned);
        return *this;
    }
    ~Owner() { Close(); }

    explicit operator bool() const noexcept { return m_owned != Kind::Nothing(); }
    Type Get() const noexcept { return m_owned; }

    // For a function that hands something out through a pointer. What was owned before is given back.
    Type* Out() noexcept
    {
        Close();
        return &m_owned;
    }

    // Hands over what is owned: giving it back is the caller's then.
    Type Release() noexcept { return std::exchange(m_owned, Kind::Nothing()); }

    // Gives it back now; a second call does nothing.
    void Close() noexcept
    {
        if (!*this)
            return;
        const DWORD nError = GetLastError();
        Kind::Close(std::exchange(m_owned, Kind::Nothing())); // nothing can be done about a failure
        SetLastError(nError);
    }

  private:
    Type m_owned = Kind::Nothing();
};

// Events, mutexes, processes, tokens: null is nothing.
struct KernelHandleKind
{
    using Type = HANDLE;
    static HANDLE Nothing() noexcept { return nullptr; }
    static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using KernelHandle = Owner<KernelHandleKind>;

struct FileHandleKind
{
    using Type = HANDLE;
    static HANDLE Nothing() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using FileHandle = Owner<FileHandleKind>;

struct FindHandleKind
{
    using Type = HANDLE;
    static HANDLE Nothing() noexcept { return INVALID_HANDLE_VALUE; }
    static void Close(HANDLE handle) noexcept { FindClose(handle); }
};
using FindHandle = Owner<FindHandleKind>;

// What Windows allocated with LocalAlloc: a security descriptor, an access list, a text.
template <class T>
struct LocalKind
{
    using Type = T*;
    static T* Nothing() noexcept { return nullptr; }
    static void Close(T* pBlock) noexcept { LocalFree(pBlock); }
};
using LocalBlock = Owner<LocalKind<void>>;
using LocalAcl = Owner<LocalKind<ACL>>;
using LocalText = Owner<LocalKind<wchar_t>>;

// A SID from AllocateAndInitializeSid.
struct AllocatedSidKind
{
    using Type = PSID;
    static PSID Nothing() noexcept { return nullptr; }
    static void Close(PSID pSid) noexcept { FreeSid(pSid); }
};
using AllocatedSid = Owner<AllocatedSidKind>;

// A SID in a buffer of the C heap.
struct HeapSidKind
{
    using Type = PSID;
    static PSID Nothing() noexcept { return nullptr; }
    static void Close(PSID pSid) noexcept { std::free(pSid); }
};
using HeapSid = Owner<HeapSidKind>;

// A mutex that this thread has acquired: given up when this object goes, which cannot fail.
struct HeldMutexKind
{
    using Type = HANDLE;
    static HANDLE Nothing() noexcept { return nullptr; }
    static void Close(HANDLE handle) noexcept { ReleaseMutex(handle); }
};
using HeldMutex = Owner<HeldMutexKind>;

// Waits for a mutex. Owns nothing if the time ran out or the mutex is null. A mutex whose owner died counts
// as free.
inline HeldMutex AcquireMutex(const KernelHandle& mutex, DWORD nTimeoutMs) noexcept
{
    const DWORD nWait = WaitForSingleObject(mutex.Get(), nTimeoutMs);
    const bool fHeld = nWait == WAIT_OBJECT_0 || nWait == WAIT_ABANDONED;
    return HeldMutex(fHeld ? mutex.Get() : nullptr);
}

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

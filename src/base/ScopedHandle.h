// Owners for handles that live within one scope. Each is empty when it holds its kind's invalid value,
// closes what it holds at the end of the scope, and leaves the last error as it was.
#pragma once

#include <windows.h>

template <typename Traits>
class CScopedHandle
{
public:
    using Handle = typename Traits::Handle;

    explicit CScopedHandle(Handle handle = Traits::Invalid()) : m_handle(handle) {}
    ~CScopedHandle() { Close(); }
    CScopedHandle(const CScopedHandle&) = delete;
    CScopedHandle& operator=(const CScopedHandle&) = delete;

    explicit operator bool() const { return m_handle != Traits::Invalid(); }
    Handle Get() const { return m_handle; }

    // Closes what is held and hands out the place for a call that stores a handle.
    Handle* Put()
    {
        Close();
        return &m_handle;
    }

    // Hands the handle over to the caller, who closes it from now on.
    Handle Detach()
    {
        const Handle handle = m_handle;
        m_handle = Traits::Invalid();
        return handle;
    }

    void Close()
    {
        if (m_handle != Traits::Invalid())
        {
            const DWORD dwLastError = GetLastError();
            Traits::Close(m_handle);
            m_handle = Traits::Invalid();
            SetLastError(dwLastError);
        }
    }

private:
    Handle m_handle;
};

struct FileHandleTraits
{
    using Handle = HANDLE;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) { CloseHandle(handle); }
};
using CFileHandle = CScopedHandle<FileHandleTraits>;

struct KernelHandleTraits
{
    using Handle = HANDLE;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { CloseHandle(handle); }
};
using CKernelHandle = CScopedHandle<KernelHandleTraits>;

struct RegistryKeyTraits
{
    using Handle = HKEY;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { RegCloseKey(handle); }
};
using CRegistryKey = CScopedHandle<RegistryKeyTraits>;

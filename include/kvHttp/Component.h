// Owns a component and what it stands on: the thread's apartment, and the module where that was loaded by its
// path. C++17. Nothing here throws.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <new>
#include <string>
#include <utility>

#include "kvHttp/HttpRaw.h"
#include "kvHttp/Outcome.h"

#ifdef _MSC_VER
#pragma comment(lib, "ole32.lib")
#pragma comment(lib, "oleaut32.lib")
#pragma comment(lib, "user32.lib")
#endif

// Hosts may be compiled without exceptions.
#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
#define KVHTTP_TRY try
#define KVHTTP_CATCH(exception) catch (exception)
#else
#define KVHTTP_TRY if (true)
#define KVHTTP_CATCH(exception) else
#endif

namespace kvHttp
{

static_assert(sizeof(void*) == 8, "kvHttp.dll is for 64-bit programs only: build this host for x64");

// All calls on one are for the thread that made it, its destructor too. On any other thread the component is
// kept for the life of the process, for it cannot be released there.
class CComponent
{
public:
    // The registered one.
    CComponent() = default;

    // That of the module in this file, registered or not. A relative path is one beside the program; an empty
    // one stands for the registered component.
    explicit CComponent(std::wstring strModule) noexcept : m_strModule(std::move(strModule)) {}

    // What this factory makes, which must not be null.
    explicit CComponent(IClassFactory* pFactory) noexcept : m_pFactory(pFactory) { m_pFactory->AddRef(); }

    ~CComponent()
    {
        Close();
        if (m_pFactory != nullptr && IsOwner())
        {
            m_pFactory->Release();
        }
    }
    CComponent(const CComponent&) = delete;
    CComponent& operator=(const CComponent&) = delete;

    // Makes the component where there is none. Outcome::Idle, or why there is none.
    Outcome Open() noexcept
    {
        if (!IsOwner())
        {
            return Outcome::OtherThread;
        }
        if (m_pHttpRaw != nullptr)
        {
            return Outcome::Idle;
        }
        Outcome outcome = EnterApartment();
        if (outcome == Outcome::Idle)
        {
            outcome = Make();
        }
        if (outcome != Outcome::Idle)
        {
            Leave(std::exchange(m_hModule, nullptr), std::exchange(m_bInApartment, false));
        }
        return outcome;
    }

    // Releases the component. Its workers are waited for, and this thread's messages dispatched meanwhile.
    void Close() noexcept
    {
        if (!IsOwner() || m_pHttpRaw == nullptr)
        {
            return;
        }
        // What the dispatched messages lead to must not find the component any more.
        IHttpRaw* const pHttpRaw = std::exchange(m_pHttpRaw, nullptr);
        const HMODULE hModule = std::exchange(m_hModule, nullptr);
        const bool bInApartment = std::exchange(m_bInApartment, false);
        // A WM_QUIT that waits would make the component kill its workers.
        MSG quit = {};
        const bool bQuit = PeekMessageW(&quit, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != FALSE;
        const bool bGone = pHttpRaw->Release() == 0;
        if (bQuit)
        {
            PostQuitMessage(static_cast<int>(quit.wParam));
        }
        // A worker that is still on its way out has a reference to the module of its own. Where somebody else
        // holds the component, the module stays for good.
        Leave(bGone ? hModule : nullptr, bInApartment);
    }

    // Null where there is none.
    IHttpRaw* Get() const noexcept { return m_pHttpRaw; }

    // What the platform said when the component could not be made.
    HRESULT Result() const noexcept { return m_hr; }

    bool IsOwner() const noexcept { return GetCurrentThreadId() == m_dwThreadId; }

private:
    Outcome EnterApartment() noexcept
    {
        m_hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        m_bInApartment = SUCCEEDED(m_hr);
        if (m_hr == RPC_E_CHANGED_MODE)
        {
            return Outcome::OtherApartment;
        }
        return m_bInApartment ? Outcome::Idle : Outcome::NoComponent;
    }

    Outcome Make() noexcept
    {
        void* pHttpRaw = nullptr;
        if (m_pFactory != nullptr)
        {
            m_hr = m_pFactory->CreateInstance(nullptr, IID_IHttpRaw, &pHttpRaw);
        }
        else if (m_strModule.empty())
        {
            m_hr = CoCreateInstance(CLSID_HttpRaw, nullptr, CLSCTX_INPROC_SERVER, IID_IHttpRaw, &pHttpRaw);
        }
        else
        {
            const Outcome outcome = MakeFromModule(&pHttpRaw);
            if (outcome != Outcome::Idle)
            {
                return outcome;
            }
        }
        m_pHttpRaw = SUCCEEDED(m_hr) ? static_cast<IHttpRaw*>(pHttpRaw) : nullptr;
        if (SUCCEEDED(m_hr))
        {
            return m_pHttpRaw != nullptr ? Outcome::Idle : Outcome::NoMemory;
        }
        return Judge(m_hr);
    }

    // Outcome::Idle: the module was asked, and m_hr says how that went.
    Outcome MakeFromModule(void** ppHttpRaw) noexcept
    {
        KVHTTP_TRY
        {
            m_hModule = LoadLibraryExW(FullPath().c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        }
        KVHTTP_CATCH(const std::bad_alloc&)
        {
            return Outcome::NoMemory;
        }
        if (m_hModule == nullptr)
        {
            m_hr = HRESULT_FROM_WIN32(GetLastError());
            const Outcome outcome = Judge(m_hr);
            return outcome == Outcome::NoComponent ? Outcome::ModuleNotFound : outcome;
        }
        using GetClassObjectProc = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
        const auto pfnGetClassObject = reinterpret_cast<GetClassObjectProc>(
            reinterpret_cast<void*>(GetProcAddress(m_hModule, "DllGetClassObject")));
        void* pFactory = nullptr;
        m_hr = pfnGetClassObject != nullptr
                   ? pfnGetClassObject(CLSID_HttpRaw, __uuidof(IClassFactory), &pFactory)
                   : CLASS_E_CLASSNOTAVAILABLE;
        if (m_hr == CLASS_E_CLASSNOTAVAILABLE)
        {
            return Outcome::OtherModule;
        }
        if (SUCCEEDED(m_hr))
        {
            m_hr = static_cast<IClassFactory*>(pFactory)->CreateInstance(nullptr, IID_IHttpRaw, ppHttpRaw);
            static_cast<IClassFactory*>(pFactory)->Release();
        }
        return Outcome::Idle;
    }

    // Nothing is looked for in the current folder, where anybody may have put a library.
    std::wstring FullPath() const
    {
        if (m_strModule[0] == L'\\' || m_strModule[0] == L'/' || m_strModule.find(L':') != std::wstring::npos)
        {
            return m_strModule;
        }
        std::wstring path(MAX_PATH, L'\0');
        DWORD dwLength = 0;
        while ((dwLength = GetModuleFileNameW(nullptr, &path[0], static_cast<DWORD>(path.size()))) ==
               path.size())
        {
            path.resize(path.size() * 2);
        }
        path.resize(dwLength);
        return path.substr(0, path.rfind(L'\\') + 1) + m_strModule;
    }

    static Outcome Judge(HRESULT hr) noexcept
    {
        // Each as the platform's headers have it, whose macros are of several types.
        constexpr HRESULT kModuleNotFound = static_cast<HRESULT>(0x8007007E);
        constexpr HRESULT kFileNotFound = static_cast<HRESULT>(0x80070002);
        constexpr HRESULT kBadImage = static_cast<HRESULT>(0x800700C1);
        switch (hr)
        {
            case REGDB_E_CLASSNOTREG:
                return Outcome::NotRegistered;
            case E_NOINTERFACE:
                return Outcome::OtherApartment;  // nothing marshals the interface
            case E_OUTOFMEMORY:
                return Outcome::NoMemory;
            case kModuleNotFound:
            case kFileNotFound:
                return Outcome::ModuleNotFound;
            case kBadImage:
                return Outcome::OtherBitness;
            default:
                return Outcome::NoComponent;
        }
    }

    static void Leave(HMODULE hModule, bool bInApartment) noexcept
    {
        if (hModule != nullptr)
        {
            FreeLibrary(hModule);
        }
        if (bInApartment)
        {
            CoUninitialize();
        }
    }

    const DWORD m_dwThreadId = GetCurrentThreadId();
    const std::wstring m_strModule;
    IClassFactory* const m_pFactory = nullptr;
    HMODULE m_hModule = nullptr;
    IHttpRaw* m_pHttpRaw = nullptr;
    HRESULT m_hr = S_OK;
    bool m_bInApartment = false;
};

}  // namespace kvHttp

#include "support/BuiltModule.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr wchar_t kModuleName[] = L"kvHttp.dll";

}  // namespace

std::wstring CBuiltModule::Folder()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    const std::wstring path(szPath);
    return path.substr(0, path.rfind(L'\\'));
}

CBuiltModule::CBuiltModule() : m_hModule(LoadLibraryW((Folder() + L"\\" + kModuleName).c_str()))
{
    if (m_hModule == nullptr)
    {
        std::printf("BuiltModule: the module is not beside the test program\n");
        std::fflush(stdout);
        std::_Exit(3);
    }
}

void CBuiltModule::Free()
{
    FreeLibrary(m_hModule);
    m_bFreed = true;
}

CBuiltModule::~CBuiltModule()
{
    if (!m_bFreed)
    {
        Free();
    }
    if (GetModuleHandleW(kModuleName) != nullptr)
    {
        ADD_FAILURE() << "the module stays loaded after its last release";
        return;
    }
    m_imports.Forget();
}

IHttpRaw* CBuiltModule::CreateHttpRaw() const
{
    using GetClassObjectProc = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getClassObject = reinterpret_cast<GetClassObjectProc>(
        reinterpret_cast<void*>(GetProcAddress(m_hModule, "DllGetClassObject")));
    IClassFactory* pFactory = nullptr;
    if (getClassObject == nullptr ||
        FAILED(getClassObject(CLSID_HttpRaw, IID_IClassFactory, reinterpret_cast<void**>(&pFactory))))
    {
        return nullptr;
    }
    void* pHttpRaw = nullptr;
    pFactory->CreateInstance(nullptr, IID_IHttpRaw, &pHttpRaw);
    pFactory->Release();
    return static_cast<IHttpRaw*>(pHttpRaw);
}

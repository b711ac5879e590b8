#include "support/ScriptedShell.h"

namespace
{

CScriptedShell* g_pShell = nullptr;

PIDLIST_ABSOLUTE FakeList()
{
    static ITEMIDLIST s_list = {};
    return &s_list;
}

class CFakeMalloc final : public IMalloc
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        g_pShell->Add("allocator released");
        return 0;
    }
    void* STDMETHODCALLTYPE Alloc(SIZE_T) override { return nullptr; }
    void* STDMETHODCALLTYPE Realloc(void*, SIZE_T) override { return nullptr; }
    void STDMETHODCALLTYPE Free(void* block) override
    {
        g_pShell->Add(block == FakeList() ? "list freed" : "something else freed");
    }
    SIZE_T STDMETHODCALLTYPE GetSize(void*) override { return 0; }
    int STDMETHODCALLTYPE DidAlloc(void*) override { return 1; }
    void STDMETHODCALLTYPE HeapMinimize() override {}
};

}  // namespace

struct CScriptedShell::Platform
{
    static HRESULT WINAPI ScriptedGetMalloc(IMalloc** ppMalloc)
    {
        static CFakeMalloc s_malloc;
        g_pShell->Add("SHGetMalloc");
        if (!g_pShell->m_bAllocator)
        {
            return E_FAIL;
        }
        *ppMalloc = g_pShell->m_bNullAllocator ? nullptr : &s_malloc;
        return S_OK;
    }

    static HRESULT WINAPI ScriptedGetLocation(HWND hWnd, int folder, PIDLIST_ABSOLUTE* ppList)
    {
        g_pShell->Add("SHGetSpecialFolderLocation(" +
                      std::string(hWnd == nullptr ? "no window" : "a window") + ", " +
                      std::to_string(folder) + ")");
        if (g_pShell->m_bLocation || g_pShell->m_bListOnFailure)
        {
            *ppList = FakeList();
        }
        return g_pShell->m_bLocation ? S_OK : E_FAIL;
    }

    static BOOL WINAPI ScriptedGetPath(PCIDLIST_ABSOLUTE pList, LPSTR pszPath)
    {
        g_pShell->Add(pList == FakeList() ? "SHGetPathFromIDListA" : "SHGetPathFromIDListA of another list");
        g_pShell->m_folder.copy(pszPath, g_pShell->m_folder.size());
        return g_pShell->m_bPath ? TRUE : FALSE;
    }

    static UINT WINAPI ScriptedGetWindows(LPSTR pszPath, UINT cch)
    {
        g_pShell->Add("GetWindowsDirectoryA(" + std::to_string(cch) + ")");
        if (!g_pShell->m_windows.empty())
        {
            g_pShell->m_windows.copy(pszPath, g_pShell->m_windows.size());
            pszPath[g_pShell->m_windows.size()] = '\0';
        }
        return g_pShell->m_cchWindows;
    }
};

void CScriptedShell::Attach(CImportPatches& imports)
{
    g_pShell = this;
    imports.Add("SHGetMalloc", Platform::ScriptedGetMalloc);
    imports.Add("SHGetSpecialFolderLocation", Platform::ScriptedGetLocation);
    imports.Add("SHGetPathFromIDListA", Platform::ScriptedGetPath);
    imports.Add("GetWindowsDirectoryA", Platform::ScriptedGetWindows);
}

void CScriptedShell::Add(const std::string& call)
{
    m_calls.push_back(call);
    if (m_onCall)
    {
        m_onCall(call);
    }
}

CScriptedShell::~CScriptedShell()
{
    g_pShell = nullptr;
}

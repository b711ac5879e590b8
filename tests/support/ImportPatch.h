// Replaces a platform function for one loaded module by patching that module's import table, so that a
// test scripts the platform while the product stays the very file that ships. The original entries come
// back when the object goes. Patch while no other thread calls the function.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <vector>

class CImportPatch
{
public:
    // Patches every import of that name, whatever library it comes from. A name that hModule does not
    // import ends the test program with a message: a patch that patches nothing tests nothing.
    template <typename Function>
    CImportPatch(HMODULE hModule, const char* pszFunction, Function* pfnReplacement)
    {
        Apply(hModule, pszFunction, reinterpret_cast<void*>(pfnReplacement));
    }
    ~CImportPatch();
    CImportPatch(const CImportPatch&) = delete;
    CImportPatch& operator=(const CImportPatch&) = delete;

    // The function that the module called before.
    template <typename Function>
    Function* Original() const
    {
        return reinterpret_cast<Function*>(m_pOriginal);
    }

    // Leaves the entries alone from now on, because the patched module has been unloaded.
    void Forget() { m_entries.clear(); }

    // True when hModule imports a function of that name.
    static bool IsImported(HMODULE hModule, const char* pszFunction);

    // Gives visit each import by name of hModule, the C runtime's variables too, and where its entry is.
    using Visit = std::function<void(const char* pszLibrary, const char* pszName, void** ppEntry)>;
    static void ForEach(HMODULE hModule, const Visit& visit);
    static void Write(void** ppEntry, void* pValue);

private:
    void Apply(HMODULE hModule, const char* pszFunction, void* pReplacement);
    static std::vector<void**> FindEntries(HMODULE hModule, const char* pszFunction);

    std::vector<void**> m_entries;
    void* m_pOriginal = nullptr;
};

// The replaced functions of one module. They are put back, the last first, when the object goes.
class CImportPatches
{
public:
    explicit CImportPatches(HMODULE hModule = GetModuleHandleW(nullptr)) : m_hModule(hModule) {}
    ~CImportPatches()
    {
        while (!m_patches.empty())
        {
            m_patches.pop_back();
        }
    }
    CImportPatches(const CImportPatches&) = delete;
    CImportPatches& operator=(const CImportPatches&) = delete;

    // Gives the function that the module called before.
    template <typename Function>
    Function* Add(const char* pszFunction, Function* pfnReplacement)
    {
        m_patches.push_back(std::make_unique<CImportPatch>(m_hModule, pszFunction, pfnReplacement));
        return m_patches.back()->template Original<Function>();
    }

    // For a function that the module may do without; null then.
    template <typename Function>
    Function* AddIfImported(const char* pszFunction, Function* pfnReplacement)
    {
        return CImportPatch::IsImported(m_hModule, pszFunction) ? Add(pszFunction, pfnReplacement) : nullptr;
    }

    // Leaves all entries alone from now on, because the module has been unloaded.
    void Forget()
    {
        for (const std::unique_ptr<CImportPatch>& patch : m_patches)
        {
            patch->Forget();
        }
    }

private:
    const HMODULE m_hModule;
    std::vector<std::unique_ptr<CImportPatch>> m_patches;
};

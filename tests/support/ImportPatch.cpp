#include "support/ImportPatch.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

template <typename T>
T* At(HMODULE hModule, std::uintptr_t offset)
{
    return reinterpret_cast<T*>(reinterpret_cast<std::uintptr_t>(hModule) + offset);
}

}  // namespace

CImportPatch::~CImportPatch()
{
    for (void** ppEntry : m_entries)
    {
        Write(ppEntry, m_pOriginal);
    }
}

bool CImportPatch::IsImported(HMODULE hModule, const char* pszFunction)
{
    return !FindEntries(hModule, pszFunction).empty();
}

void CImportPatch::Apply(HMODULE hModule, const char* pszFunction, void* pReplacement)
{
    m_entries = FindEntries(hModule, pszFunction);
    if (m_entries.empty())
    {
        std::printf("ImportPatch: the module does not import %s\n", pszFunction);
        std::fflush(stdout);
        std::_Exit(3);
    }
    m_pOriginal = *m_entries.front();
    for (void** ppEntry : m_entries)
    {
        Write(ppEntry, pReplacement);
    }
}

std::vector<void**> CImportPatch::FindEntries(HMODULE hModule, const char* pszFunction)
{
    std::vector<void**> entries;
    ForEach(hModule,
            [&](const char*, const char* pszName, void** ppEntry)
            {
                if (std::strcmp(pszName, pszFunction) == 0)
                {
                    entries.push_back(ppEntry);
                }
            });
    return entries;
}

void CImportPatch::ForEach(HMODULE hModule, const Visit& visit)
{
    const auto* pDos = At<const IMAGE_DOS_HEADER>(hModule, 0);
    const auto* pNt = At<const IMAGE_NT_HEADERS64>(hModule, static_cast<std::uintptr_t>(pDos->e_lfanew));
    const IMAGE_DATA_DIRECTORY& imports = pNt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* pDescriptor = At<const IMAGE_IMPORT_DESCRIPTOR>(hModule, imports.VirtualAddress);
    for (; imports.VirtualAddress != 0 && pDescriptor->Name != 0; ++pDescriptor)
    {
        const auto* pName = At<const IMAGE_THUNK_DATA64>(hModule, pDescriptor->OriginalFirstThunk);
        auto* pEntry = At<IMAGE_THUNK_DATA64>(hModule, pDescriptor->FirstThunk);
        for (; pName->u1.AddressOfData != 0; ++pName, ++pEntry)
        {
            if (IMAGE_SNAP_BY_ORDINAL64(pName->u1.Ordinal))
            {
                continue;
            }
            const auto* pImport = At<const IMAGE_IMPORT_BY_NAME>(hModule, pName->u1.AddressOfData);
            visit(At<const char>(hModule, pDescriptor->Name), reinterpret_cast<const char*>(pImport->Name),
                  reinterpret_cast<void**>(&pEntry->u1.Function));
        }
    }
}

void CImportPatch::Write(void** ppEntry, void* pValue)
{
    DWORD dwProtection = 0;
    VirtualProtect(ppEntry, sizeof(*ppEntry), PAGE_READWRITE, &dwProtection);
    *ppEntry = pValue;
    VirtualProtect(ppEntry, sizeof(*ppEntry), dwProtection, &dwProtection);
}

// The file that ships, read as bytes and through the loader.
#include <gmock/gmock.h>

#include <windows.h>

#include <winver.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "module/com/ServerModule.h"

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class ModuleFileTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::FILE* pFile = _wfopen(CServerModule::BuiltPath().c_str(), L"rb");
        ASSERT_NE(pFile, nullptr);
        std::vector<char> chunk(65536);
        for (size_t cb = 0; (cb = std::fread(chunk.data(), 1, chunk.size(), pFile)) > 0;)
        {
            m_bytes.append(chunk.data(), cb);
        }
        std::fclose(pFile);
        ASSERT_GT(m_bytes.size(), sizeof(IMAGE_DOS_HEADER));
    }

    template <typename T>
    const T* AtOffset(size_t offset) const
    {
        EXPECT_LE(offset + sizeof(T), m_bytes.size());
        return reinterpret_cast<const T*>(m_bytes.data() + offset);
    }
    const IMAGE_NT_HEADERS64& Headers() const
    {
        return *AtOffset<IMAGE_NT_HEADERS64>(static_cast<size_t>(AtOffset<IMAGE_DOS_HEADER>(0)->e_lfanew));
    }
    const IMAGE_SECTION_HEADER* Sections() const
    {
        const auto* pOptional = reinterpret_cast<const char*>(&Headers().OptionalHeader);
        return reinterpret_cast<const IMAGE_SECTION_HEADER*>(pOptional +
                                                             Headers().FileHeader.SizeOfOptionalHeader);
    }

    // What lies at an address relative to the loaded image's start.
    template <typename T>
    const T* At(DWORD address) const
    {
        for (WORD i = 0; i < Headers().FileHeader.NumberOfSections; ++i)
        {
            const IMAGE_SECTION_HEADER& section = Sections()[i];
            if (address >= section.VirtualAddress && address - section.VirtualAddress < section.SizeOfRawData)
            {
                return AtOffset<T>(address - section.VirtualAddress + section.PointerToRawData);
            }
        }
        ADD_FAILURE() << "nothing at " << address;
        return AtOffset<T>(0);
    }
    const IMAGE_DATA_DIRECTORY& Directory(int index) const
    {
        return Headers().OptionalHeader.DataDirectory[index];
    }

    struct Import
    {
        std::string library;
        std::vector<std::string> functions;
    };
    std::vector<Import> Imports() const
    {
        std::vector<Import> imports;
        const auto* pDescriptor =
            At<IMAGE_IMPORT_DESCRIPTOR>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress);
        for (; pDescriptor->Name != 0; ++pDescriptor)
        {
            Import import = {At<char>(pDescriptor->Name), {}};
            const auto* pThunk = At<IMAGE_THUNK_DATA64>(pDescriptor->OriginalFirstThunk);
            for (; pThunk->u1.AddressOfData != 0; ++pThunk)
            {
                // All are imported by name, which stands behind a hint.
                import.functions.push_back(
                    At<char>(static_cast<DWORD>(pThunk->u1.AddressOfData) + sizeof(WORD)));
            }
            imports.push_back(import);
        }
        return imports;
    }

    std::string m_bytes;
};

TEST_F(ModuleFileTest, IsA64BitLibraryThatCanBeLoadedAnywhere)
{
    const IMAGE_NT_HEADERS64& headers = Headers();
    EXPECT_EQ(headers.Signature, static_cast<DWORD>(IMAGE_NT_SIGNATURE));
    EXPECT_EQ(headers.FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
    EXPECT_TRUE(headers.FileHeader.Characteristics & IMAGE_FILE_DLL);
    EXPECT_FALSE(headers.FileHeader.Characteristics & IMAGE_FILE_RELOCS_STRIPPED);
    EXPECT_NE(Directory(IMAGE_DIRECTORY_ENTRY_BASERELOC).Size, 0u);
    // Address-space randomisation with high entropy, and no execution of data.
    const WORD wanted = 0x0020 | IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    EXPECT_EQ(headers.OptionalHeader.DllCharacteristics & wanted, wanted);
}

TEST_F(ModuleFileTest, HasNoSectionThatCanBeWrittenAndExecuted)
{
    for (WORD i = 0; i < Headers().FileHeader.NumberOfSections; ++i)
    {
        const DWORD both = IMAGE_SCN_MEM_WRITE | IMAGE_SCN_MEM_EXECUTE;
        EXPECT_NE(Sections()[i].Characteristics & both, both) << "section " << i;
    }
}

TEST_F(ModuleFileTest, ExportsItsFourEntryPointsOnly)
{
    const auto& exports = *At<IMAGE_EXPORT_DIRECTORY>(Directory(IMAGE_DIRECTORY_ENTRY_EXPORT).VirtualAddress);
    const DWORD* pNames = At<DWORD>(exports.AddressOfNames);
    std::vector<std::string> names;
    for (DWORD i = 0; i < exports.NumberOfNames; ++i)
    {
        names.push_back(At<char>(pNames[i]));
    }
    EXPECT_THAT(names, ElementsAre("DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer",
                                   "DllUnregisterServer"));
    EXPECT_EQ(exports.NumberOfFunctions, 4u) << "something is exported by number";
}

TEST_F(ModuleFileTest, ImportsOnlyWhatEvery64BitWindowsHas)
{
    const std::vector<std::string> allowed = {"advapi32.dll", "kernel32.dll", "msvcrt.dll",  "ole32.dll",
                                              "oleaut32.dll", "psapi.dll",    "shell32.dll", "shlwapi.dll",
                                              "user32.dll",   "userenv.dll",  "version.dll", "wininet.dll",
                                              "wtsapi32.dll"};
    std::vector<std::string> imported;
    for (const Import& import : Imports())
    {
        std::string name = import.library;
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char ch) { return static_cast<char>(ch >= 'A' && ch <= 'Z' ? ch + 32 : ch); });
        EXPECT_THAT(allowed, Contains(name));
        imported.push_back(name);
    }
    EXPECT_THAT(imported, Contains("wininet.dll")) << "the list was not read";
    EXPECT_EQ(Directory(IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT).Size, 0u);
}

// What the thread library of a compiler with another thread model would bring: it looks like an injector's
// work, and it takes an index for thread-local values for good at each load.
TEST_F(ModuleFileTest, ImportsNothingThatReachesIntoOtherThreads)
{
    std::vector<std::string> functions;
    for (const Import& import : Imports())
    {
        functions.insert(functions.end(), import.functions.begin(), import.functions.end());
    }
    EXPECT_THAT(functions, Contains("InternetOpenW")) << "the list was not read";
    for (const char* const pszFunction :
         {"SetThreadContext", "GetThreadContext", "SuspendThread", "ResumeThread",
          "AddVectoredExceptionHandler", "RemoveVectoredExceptionHandler", "CreateRemoteThread",
          "WriteProcessMemory"})
    {
        EXPECT_EQ(std::count(functions.begin(), functions.end(), pszFunction), 0) << pszFunction;
    }
}

TEST_F(ModuleFileTest, DescribesItselfInItsVersionRecord)
{
    const std::wstring path = CServerModule::BuiltPath();
    DWORD dwIgnored = 0;
    std::vector<BYTE> record(GetFileVersionInfoSizeW(path.c_str(), &dwIgnored));
    ASSERT_FALSE(record.empty());
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(record.size()), record.data()));
    void* pValue = nullptr;
    UINT cch = 0;
    ASSERT_TRUE(VerQueryValueW(record.data(), L"\\VarFileInfo\\Translation", &pValue, &cch));
    ASSERT_GE(cch, sizeof(DWORD));
    EXPECT_EQ(*static_cast<const DWORD*>(pValue), 0x04B00409u);
    ASSERT_TRUE(VerQueryValueW(record.data(), L"\\StringFileInfo\\040904B0\\FileDescription", &pValue, &cch));
    EXPECT_STREQ(static_cast<const wchar_t*>(pValue), L"QelHttp Module");
    ASSERT_TRUE(
        VerQueryValueW(record.data(), L"\\StringFileInfo\\040904B0\\OriginalFilename", &pValue, &cch));
    EXPECT_STREQ(static_cast<const wchar_t*>(pValue), L"kvHttp.dll");
}

// What follows holds for the build that ships only.
class ShippedModuleFileTest : public ModuleFileTest
{
protected:
    void SetUp() override
    {
        if (!KVHTTP_SHIPPED_BUILD)
        {
            GTEST_SKIP() << "this build is for finding errors, not for shipping";
        }
        ModuleFileTest::SetUp();
    }
};

TEST_F(ShippedModuleFileTest, IsAtMost400KilobytesLong)
{
    EXPECT_LE(m_bytes.size(), 400u * 1024u);
}

TEST_F(ShippedModuleFileTest, IsStripped)
{
    EXPECT_EQ(Headers().FileHeader.NumberOfSymbols, 0u);
    EXPECT_EQ(Headers().FileHeader.PointerToSymbolTable, 0u);
    EXPECT_EQ(Directory(IMAGE_DIRECTORY_ENTRY_DEBUG).Size, 0u);
    for (WORD i = 0; i < Headers().FileHeader.NumberOfSections; ++i)
    {
        const std::string name(reinterpret_cast<const char*>(Sections()[i].Name), 8);
        EXPECT_NE(name[0], '/') << "a long section name, as debug sections have";
        EXPECT_EQ(name.find("debug"), std::string::npos) << name;
        EXPECT_EQ(name.find("stab"), std::string::npos) << name;
    }
}

TEST_F(ShippedModuleFileTest, TellsNothingAboutTheMachineThatBuiltIt)
{
    for (const std::string path :
         {KVHTTP_SOURCE_DIR, KVHTTP_BINARY_DIR, "/home/", "/root/", "/tmp/", "/build/", "C:\\Users\\"})
    {
        std::string wide;
        for (const char ch : path)
        {
            wide.append(1, ch).append(1, '\0');
        }
        EXPECT_EQ(m_bytes.find(path), std::string::npos) << path;
        EXPECT_EQ(m_bytes.find(wide), std::string::npos) << path << " (UTF-16)";
    }
    EXPECT_EQ(Headers().FileHeader.TimeDateStamp, 0u) << "the time of the build";
}

}  // namespace

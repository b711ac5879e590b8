#include "module/calls/SeenModule.h"

#include <algorithm>

#include "support/CallText.h"
#include "support/WindowNames.h"

const char* NameOf(ExchangeKind kind)
{
    constexpr const char* kNames[] = {"Text", "File", "Redirect", "Dialog", "Discovery", "Release", "Quit"};
    return kNames[kind];
}

void BrowseWithManualProxy(const CProxyUser& user)
{
    user.BrowseWithFirefox(
        "user_pref(\"network.proxy.type\", 1);\n"
        "user_pref(\"network.proxy.http\", \"127.0.0.3\");\n"
        "user_pref(\"network.proxy.http_port\", 8080);\n"
        "user_pref(\"network.proxy.socks\", \"127.0.0.4\");\n"
        "user_pref(\"network.proxy.socks_version\", 5);\n"
        "user_pref(\"network.proxy.no_proxies_on\", \"localhost\");\n");
}

CSeenModule::CSeenModule(ExchangeKind kind, const CProxyUser& user)
    : m_kind(kind), m_pModule(std::make_unique<CBuiltModule>())
{
    CImportPatches& imports = m_pModule->Imports();
    m_winInet.Attach(imports);
    m_system.Attach(imports);
    m_trace.Attach(imports);
    Script(user);
    m_pCalls = std::make_unique<CPlatformCalls>(m_pModule->Handle());
}

CSeenModule::~CSeenModule() = default;

void CSeenModule::Script(const CProxyUser& user)
{
    const std::string answer = kAnswer;
    m_winInet.m_reads.Then({answer.substr(0, 4)}).Then({answer.substr(4)});
    m_winInet.m_bNeedsHost = true;
    m_winInet.m_dialogs.Always(ERROR_SUCCESS);
    m_winInet.m_securityFlags.Always(0x100);
    switch (m_kind)
    {
        case EXCHANGE_REDIRECT:
            m_winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", L"http://127.0.0.2/q"));
            break;
        case EXCHANGE_DIALOG:
            m_winInet.m_attempts.Then(CScriptedWinInet::FailingSend(ERROR_INTERNET_INVALID_CA));
            m_system.m_windows.insert(1);
            break;
        case EXCHANGE_DISCOVERY:
            m_system.m_bHasSettings = true;
            m_system.m_dwMajorVersion = 6;
            m_shell.emplace(m_pModule->Imports());
            m_shell->m_folder = user.AppDataFolder();
            m_console.emplace(m_pModule->Imports());
            m_console->m_hHive = HKEY_CURRENT_USER;
            break;
        case EXCHANGE_RELEASE:
        case EXCHANGE_QUIT:
            m_winInet.m_reads.Always({"", kSucceeds, true});
            m_winInet.m_reads.Then({kAnswer});
            break;
        default:
            break;
    }
}

void CSeenModule::Prepare(IHttpRaw* pHttpRaw) const
{
    if (m_kind == EXCHANGE_FILE || m_kind == EXCHANGE_RELEASE || m_kind == EXCHANGE_QUIT)
    {
        pHttpRaw->SetDownloadFile(kFile);
    }
    pHttpRaw->SetParentWnd(FakeWindow(1));
}

unsigned long CSeenModule::Poll(IHttpRaw* pHttpRaw)
{
    unsigned long status = 0xFFFF;
    Expect(pHttpRaw->GetRequestStatus(&status) == S_OK, "a poll fails");
    return status;
}

std::optional<std::string> CSeenModule::Take(IHttpRaw* pHttpRaw)
{
    BSTR text = nullptr;
    const HRESULT hr = pHttpRaw->GetResponseData(&text);
    Expect(hr == S_OK || (hr == E_FAIL && text == nullptr), "the answer gives another error");
    if (hr != S_OK)
    {
        return std::nullopt;
    }
    const std::wstring answer(text, SysStringLen(text));
    m_pCalls->Ledger().Close("BSTR", text);
    SysFreeString(text);
    return ToUtf8(answer.c_str());
}

bool CSeenModule::DropReferencesOfKilled()
{
    const int references = m_pCalls->Ledger().Count("reference to the module");
    for (int reference = 0; reference < references; ++reference)
    {
        FreeLibrary(m_pModule->Handle());
    }
    return references != 0;
}

void CSeenModule::JudgeFaults()
{
    for (const std::string& fault : m_pCalls->Ledger().Faults())
    {
        Expect(false, fault);
    }
    for (const std::string& fault : m_winInet.m_handles.TakeFaults())
    {
        Expect(false, fault);
    }
}

void CSeenModule::JudgeLeftovers()
{
    for (const std::string& left : m_pCalls->Ledger().Left())
    {
        Expect(false, "left: " + left);
    }
    for (const std::string& open : m_winInet.m_handles.TakeOpen())
    {
        Expect(false, open + " was left open");
    }
    Expect(!m_system.IsFileOpen(), "the file was left open");
    Expect(!m_trace.IsLoaded(), "the trace library was left");
    if (m_shell)
    {
        const auto count = [this](const char* pszCall)
        { return std::count(m_shell->m_calls.begin(), m_shell->m_calls.end(), pszCall); };
        Expect(count("something else freed") == 0, "the shell's allocator frees something else");
        Expect(count("allocator released") == count("SHGetMalloc"), "the shell's allocator was left");
        Expect(count("list freed") == count("SHGetSpecialFolderLocation(no window, 26)"),
               "the shell's list was left");
    }
    if (m_console)
    {
        for (const std::string& open : m_console->OpenHandles())
        {
            Expect(false, open + " was left open");
        }
    }
}

void CSeenModule::Expect(bool bTrue, const std::string& fault)
{
    if (!bTrue)
    {
        const std::lock_guard lock(m_mutex);
        m_faults.push_back(fault);
    }
}

std::vector<std::string> CSeenModule::Faults() const
{
    const std::lock_guard lock(m_mutex);
    return m_faults;
}

#include "unit/session/RecordedSession.h"

#include <cstdio>

namespace
{

CRecordedSession* g_pSession = nullptr;

std::string Narrow(const wchar_t* text)
{
    if (text == nullptr)
    {
        return "null";
    }
    std::string narrow = "'";
    for (; *text != L'\0'; ++text)
    {
        narrow += static_cast<char>(*text);
    }
    return narrow + "'";
}

std::string Name(HINTERNET handle)
{
    return handle == nullptr ? "null" : handle == CRecordedSession::Handle() ? "session" : "unknown";
}

std::string OptionText(const INTERNET_PER_CONN_OPTIONW& option)
{
    const std::string value = option.dwOption == INTERNET_PER_CONN_FLAGS
                                  ? std::to_string(option.Value.dwValue)
                                  : Narrow(option.Value.pszValue);
    return std::to_string(option.dwOption) + "=" + value;
}

std::string ListText(const INTERNET_PER_CONN_OPTION_LISTW& list)
{
    std::string text = "size " + std::to_string(list.dwSize) + ", " + Narrow(list.pszConnection) +
                       ", error " + std::to_string(list.dwOptionError) + ":";
    for (DWORD index = 0; index < list.dwOptionCount; ++index)
    {
        text += " " + OptionText(list.pOptions[index]);
    }
    return text;
}

}  // namespace

struct CRecordedSession::Platform
{
    static HINTERNET WINAPI Open(LPCWSTR agent, DWORD dwAccessType, LPCWSTR proxy, LPCWSTR bypass,
                                 DWORD dwFlags)
    {
        g_pSession->m_calls.push_back("open(" + Narrow(agent) + ", " + std::to_string(dwAccessType) + ", " +
                                      Narrow(proxy) + ", " + Narrow(bypass) + ", " + std::to_string(dwFlags) +
                                      ")");
        return g_pSession->m_bOpens ? Handle() : nullptr;
    }

    static BOOL WINAPI SetOption(HINTERNET handle, DWORD dwOption, LPVOID buffer, DWORD cb)
    {
        const bool bList = dwOption == INTERNET_OPTION_PER_CONNECTION_OPTION;
        g_pSession->m_calls.push_back("set(" + Name(handle) + ", " + std::to_string(dwOption) + ", " +
                                      (bList ? ListText(*static_cast<INTERNET_PER_CONN_OPTION_LISTW*>(buffer))
                                       : buffer == nullptr ? std::string("null")
                                                           : std::string("buffer")) +
                                      ", " + std::to_string(cb) + ")");
        if (bList && g_pSession->m_onOptions)
        {
            g_pSession->m_onOptions();
        }
        if (bList && g_pSession->m_dwOptionError != ERROR_SUCCESS)
        {
            SetLastError(g_pSession->m_dwOptionError);
            return FALSE;
        }
        return TRUE;
    }

    static BOOL WINAPI Close(HINTERNET handle)
    {
        g_pSession->m_calls.push_back("close(" + Name(handle) + ")");
        return TRUE;
    }
};

CRecordedSession::CRecordedSession()
{
    g_pSession = this;
    const HMODULE hProgram = GetModuleHandleW(nullptr);
    m_patches.push_back(std::make_unique<CImportPatch>(hProgram, "InternetOpenW", Platform::Open));
    m_patches.push_back(std::make_unique<CImportPatch>(hProgram, "InternetSetOptionW", Platform::SetOption));
    m_patches.push_back(std::make_unique<CImportPatch>(hProgram, "InternetCloseHandle", Platform::Close));
}

CRecordedSession::~CRecordedSession()
{
    m_patches.clear();
    g_pSession = nullptr;
}

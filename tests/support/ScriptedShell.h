// Scripts where the shell says that the user's application data lies, and the Windows folder. Calls are
// recorded in their order.
#pragma once

#include <windows.h>

#include <shlobj.h>

#include <functional>
#include <string>
#include <vector>

#include "support/ImportPatch.h"

class CScriptedShell
{
public:
    CScriptedShell() { Attach(m_own); }
    // For a module that this program has loaded; it stays scripted until it is unloaded.
    explicit CScriptedShell(CImportPatches& imports) { Attach(imports); }
    ~CScriptedShell();
    CScriptedShell(const CScriptedShell&) = delete;
    CScriptedShell& operator=(const CScriptedShell&) = delete;

    // What the shell gives. On a failing conversion too the folder is written, as a platform may do.
    std::string m_folder = "Q:\\appdata";
    bool m_bAllocator = true;
    bool m_bNullAllocator = false;  // a success that hands out none
    bool m_bLocation = true;
    bool m_bListOnFailure = false;  // an item list is handed out though the location fails
    bool m_bPath = true;

    // What GetWindowsDirectoryA writes and returns; written is nothing when it is empty.
    std::string m_windows = "Q:\\windir";
    UINT m_cchWindows = 9;

    std::vector<std::string> m_calls;
    // Gets every call as it comes, when there is one.
    std::function<void(const std::string&)> m_onCall;

    void Add(const std::string& call);

private:
    struct Platform;

    void Attach(CImportPatches& imports);

    CImportPatches m_own;
};

// Stands between the built module's workers and the platform, and lets the calls through: it keeps which
// worker used whose request handle, a test holds a worker within a call that the platform has done, and a
// closed handle's number is given out again to the worker that the test names.
//
// Workers are numbered from 1 in the order in which they connect; a test lets one connect at a time.
#pragma once

#include <windows.h>

#include <wininet.h>

#include <functional>
#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "support/Journal.h"
#include "system/HttpRawHost.h"

class CWorkerWatch
{
public:
    CWorkerWatch();
    // All workers must have ended.
    ~CWorkerWatch();
    CWorkerWatch(const CWorkerWatch&) = delete;
    CWorkerWatch& operator=(const CWorkerWatch&) = delete;

    // The workers' calls, each once the platform has done it, for CHold: "1: InternetReadFile" is one of
    // the first worker. The names of options and queries end with their number, and option 31 with its value.
    CJournal& Calls();
    // Those of one worker, in their order, without its number.
    std::vector<std::string> CallsOf(int worker) const;

    // The calls that a worker has made with a request handle that was not, or no longer, its own.
    std::vector<std::string> Faults() const;

    // The request handle that the worker has opened last, even when it has been closed; null when none.
    HINTERNET RequestOf(int worker) const;
    // Lets post begin the exchange of that worker, whose request gets the number of hRequest: a handle that
    // is closed when post returns. Checks that it does under Wine, which hands out the lowest free number.
    void HandOn(HINTERNET hRequest, int worker, const std::function<void()>& post);

    // The worker's next send fails, or its next dialog ends, so without the platform.
    void EndNextSend(int worker, DWORD dwError);
    void EndNextDialog(int worker, DWORD dwResult);

private:
    CImportPatches m_imports{CHttpRawHost::Module()};
};

// A host that traces through the built library: TraceHost LIBRARY NAME THREADS RECORDS END. Each thread
// writes its records "NAME thread N record M", every tenth with a tail that takes three pieces. Then the
// process ends as END says: unload, return, exit, kill or crash.
#include <windows.h>

#include <process.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using TraceProc = void(WINAPI*)(unsigned long, unsigned long, unsigned long, const char*);

TraceProc g_write = nullptr;
std::string g_name;
int g_records = 0;

void WriteRecord(std::string record)
{
    constexpr size_t kPiece = 2047;
    record.append(",\n");
    for (; record.size() > kPiece; record.erase(0, kPiece))
    {
        g_write(2, 0, 0, record.substr(0, kPiece).c_str());
    }
    g_write(2, 0, 0, record.c_str());
}

void AwaitTheOthers()
{
    char name[64] = {};
    if (GetEnvironmentVariableA("KVHTTP_TRACE_START", name, sizeof(name)) == 0)
    {
        return;
    }
    constexpr DWORD kPatienceMs = 20000;
    const std::string text = name;
    const HANDLE hReady = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, (text + "-ready").c_str());
    const HANDLE hGo = OpenEventA(SYNCHRONIZE, FALSE, (text + "-go").c_str());
    ReleaseSemaphore(hReady, 1, nullptr);
    WaitForSingleObject(hGo, kPatienceMs);
    CloseHandle(hReady);
    CloseHandle(hGo);
}

unsigned __stdcall Trace(void* pNumber)
{
    const std::string head = " " + g_name + " thread " + std::to_string(*static_cast<int*>(pNumber));
    for (int record = 0; record < g_records; ++record)
    {
        WriteRecord(head + " record " + std::to_string(record) +
                    (record % 10 == 9 ? " " + std::string(5000, 'x') : ""));
    }
    return 0;
}

// So that no debugger of the platform's is started for it.
LONG WINAPI EndAtOnce(EXCEPTION_POINTERS*)
{
    return EXCEPTION_EXECUTE_HANDLER;
}

int End(std::string_view end, HMODULE hLibrary)
{
    if (end == "unload")
    {
        FreeLibrary(hLibrary);
    }
    else if (end == "exit")
    {
        ExitProcess(0);
    }
    else if (end == "kill")
    {
        TerminateProcess(GetCurrentProcess(), 0);
    }
    else if (end == "crash")
    {
        RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    constexpr int kArguments = 6;
    if (argc != kArguments)
    {
        return 2;
    }
    SetUnhandledExceptionFilter(EndAtOnce);
    const HMODULE hLibrary = LoadLibraryA(argv[1]);
    if (hLibrary == nullptr)
    {
        return 3;
    }
    g_write = reinterpret_cast<TraceProc>(reinterpret_cast<void*>(GetProcAddress(hLibrary, "QNZTRACERAWA")));
    g_name = argv[2];
    g_records = std::atoi(argv[4]);
    AwaitTheOthers();
    std::vector<int> numbers(static_cast<size_t>(std::atoi(argv[3])));
    std::vector<HANDLE> threads;
    for (size_t thread = 0; thread < numbers.size(); ++thread)
    {
        numbers[thread] = static_cast<int>(thread);
        threads.push_back(
            reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Trace, &numbers[thread], 0, nullptr)));
    }
    WaitForMultipleObjects(static_cast<DWORD>(threads.size()), threads.data(), TRUE, INFINITE);
    return End(argv[5], hLibrary);
}

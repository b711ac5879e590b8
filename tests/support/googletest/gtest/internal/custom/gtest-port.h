// GoogleTest includes a header of this name for what a platform does its own way. Its class Notification
// needs the standard library's threads, which MinGW compilers with the Windows thread model lack before
// GCC 13.
#pragma once

#include <mutex>

#if defined(__GLIBCXX__) && !defined(_GLIBCXX_HAS_GTHREADS)

#include <windows.h>

#define GTEST_HAS_NOTIFICATION_ 1

namespace testing::internal
{

class Notification
{
public:
    Notification() : m_hEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~Notification() { CloseHandle(m_hEvent); }
    Notification(const Notification&) = delete;
    Notification& operator=(const Notification&) = delete;

    void Notify() { SetEvent(m_hEvent); }
    void WaitForNotification() { WaitForSingleObject(m_hEvent, INFINITE); }

private:
    const HANDLE m_hEvent;
};

}  // namespace testing::internal

#endif

#include "base/TextConversion.h"

#include <climits>
#include <new>

std::unique_ptr<char[]> NarrowCopy(UINT codePage, const wchar_t* text, int* pcb)
{
    int cb = text != nullptr ? WideCharToMultiByte(codePage, 0, text, -1, nullptr, 0, nullptr, nullptr) : 0;
    std::unique_ptr<char[]> copy;
    if (cb > 0)
    {
        copy.reset(new (std::nothrow) char[static_cast<size_t>(cb)]());
    }
    if (copy != nullptr)
    {
        cb = WideCharToMultiByte(codePage, 0, text, -1, copy.get(), cb, nullptr, nullptr);
    }
    if (pcb != nullptr)
    {
        *pcb = cb;
    }
    return copy;
}

std::unique_ptr<wchar_t[]> WideCopy(UINT codePage, const char* text, int cb, int* pcch)
{
    const int cch = MultiByteToWideChar(codePage, 0, text, cb, nullptr, 0);
    std::unique_ptr<wchar_t[]> copy;
    if (cch > 0)
    {
        const size_t cchTerminator = cb < 0 ? 0 : 1;
        copy.reset(new (std::nothrow) wchar_t[static_cast<size_t>(cch) + cchTerminator]());
    }
    if (copy != nullptr)
    {
        MultiByteToWideChar(codePage, 0, text, cb, copy.get(), cch);
    }
    if (pcch != nullptr)
    {
        *pcch = cch;
    }
    return copy;
}

std::unique_ptr<wchar_t[]> WideCopyAtOnce(UINT codePage, const char* text, DWORD cb)
{
    std::unique_ptr<wchar_t[]> copy;
    if (cb < INT_MAX - 1)
    {
        copy.reset(new (std::nothrow) wchar_t[size_t{cb} + 2]);
    }
    const int cch = copy != nullptr
                        ? MultiByteToWideChar(codePage, 0, text, -1, copy.get(), static_cast<int>(cb) + 1)
                        : 0;
    if (cch <= 0)
    {
        return nullptr;
    }
    // The terminator may have been taken for the rest of a character that is cut off.
    copy[static_cast<size_t>(cch)] = L'\0';
    return copy;
}

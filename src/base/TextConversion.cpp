#include "base/TextConversion.h"

#include <climits>
#include <cstring>
#include <new>
#include <type_traits>

#include "base/TextLength.h"

namespace
{

constexpr size_t kStride = 32;

// How many of the first length characters of text are ASCII and not the terminator, or a few less. They have
// the same codes in UTF-8 and in every code page that a system can have as its own. In strides, which the
// compiler makes a few instructions of: the platform's conversions take each character by itself.
template <typename Char>
size_t CountAscii(const Char* text, size_t length)
{
    using Unsigned = std::make_unsigned_t<Char>;
    size_t count = 0;
    for (; count + kStride <= length; count += kStride)
    {
        Unsigned bits = 0;
        for (size_t i = 0; i < kStride; ++i)
        {
            // Above 127 for a code of 0, too.
            const Unsigned code = static_cast<Unsigned>(text[count + i]);
            bits = static_cast<Unsigned>(bits | code | (code - 1));
        }
        if (bits > 127)
        {
            break;
        }
    }
    return count;
}

// As many characters as CountAscii has counted.
template <typename From, typename To>
void CopyAscii(const From* from, size_t count, To* to)
{
    for (const From* const end = from + count; from < end; from += kStride, to += kStride)
    {
        // By way of a block of its own, which the compiler knows to be elsewhere.
        To stride[kStride];
        for (size_t i = 0; i < kStride; ++i)
        {
            stride[i] = static_cast<To>(from[i]);
        }
        std::memcpy(to, stride, sizeof(stride));
    }
}

}  // namespace

std::unique_ptr<char[]> NarrowCopy(UINT codePage, const wchar_t* text, int* pcb)
{
    size_t cchHead = 0;
    int cb = 0;
    if (text != nullptr)
    {
        const size_t cch = TextLength(text);
        cchHead = cch < INT_MAX / 4 ? CountAscii(text, cch) : 0;
        cb = WideCharToMultiByte(codePage, 0, text + cchHead, -1, nullptr, 0, nullptr, nullptr);
    }
    std::unique_ptr<char[]> copy;
    if (cb > 0)
    {
        copy.reset(new (std::nothrow) char[cchHead + static_cast<size_t>(cb)]);
    }
    int cbAll = cb > 0 ? static_cast<int>(cchHead) + cb : 0;
    if (copy != nullptr)
    {
        CopyAscii(text, cchHead, copy.get());
        cb = WideCharToMultiByte(codePage, 0, text + cchHead, -1, copy.get() + cchHead, cb, nullptr, nullptr);
        cbAll = cb > 0 ? static_cast<int>(cchHead) + cb : 0;
        if (cb <= 0)
        {
            copy[0] = '\0';
        }
    }
    if (pcb != nullptr)
    {
        *pcb = cbAll;
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
    if (copy == nullptr)
    {
        return nullptr;
    }
    const size_t cbHead = CountAscii(text, cb);
    CopyAscii(text, cbHead, copy.get());
    const int cch = MultiByteToWideChar(codePage, 0, text + cbHead, -1, copy.get() + cbHead,
                                        static_cast<int>(cb - cbHead) + 1);
    if (cch <= 0)
    {
        return nullptr;
    }
    // The terminator may have been taken for the rest of a character that is cut off.
    copy[cbHead + static_cast<size_t>(cch)] = L'\0';
    return copy;
}

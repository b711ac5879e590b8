#include "trace/VarAdapter.h"

#include <windows.h>

#include <comdef.h>

#include <charconv>
#include <cstdint>
#include <memory>
#include <new>

#include "base/TextConversion.h"

namespace
{

std::string ToAnsi(const wchar_t* value)
{
    if (value == nullptr || *value == L'\0')
    {
        return std::string();
    }
    int cb = 0;
    const std::unique_ptr<char[]> text = NarrowCopy(CP_ACP, value, &cb);
    if (text == nullptr && cb > 0)
    {
        throw std::bad_alloc();
    }
    return cb > 0 ? std::string(text.get(), static_cast<size_t>(cb) - 1) : std::string();
}

std::string ToDecimal(unsigned long value)
{
    char digits[10];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof(digits), value);
    return std::string(digits, result.ptr);
}

std::string ToHexadecimal(const void* value)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = "0x";
    const std::uintptr_t number = reinterpret_cast<std::uintptr_t>(value);
    for (int shift = 60; shift >= 0; shift -= 4)
    {
        text += kDigits[(number >> shift) & 0xF];
    }
    return text;
}

template <typename Convert, typename Value>
void Assign(std::string& text, Convert convert, Value value)
{
    try
    {
        text = convert(value);
    }
    catch (const std::bad_alloc&)
    {
        _com_issue_error(E_OUTOFMEMORY);
    }
}

}  // namespace

CVarAdapter::CVarAdapter(const wchar_t* value)
{
    Assign(m_strText, ToAnsi, value);
}

CVarAdapter::CVarAdapter(unsigned long value)
{
    Assign(m_strText, ToDecimal, value);
}

CVarAdapter::CVarAdapter(const void* value)
{
    Assign(m_strText, ToHexadecimal, value);
}

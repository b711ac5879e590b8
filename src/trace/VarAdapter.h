// The text form of one traced value, in the system's ANSI code page.
#pragma once

#include <string>
#include <utility>

class CVarAdapter
{
public:
    // Characters without a mapping become the code page's default character; null gives the empty
    // text. Every constructor raises _com_error with E_OUTOFMEMORY when there is no memory for the text.
    explicit CVarAdapter(const wchar_t* value);
    // Decimal digits, no sign, no padding.
    explicit CVarAdapter(unsigned long value);
    // "0x" and 16 upper-case hexadecimal digits.
    explicit CVarAdapter(const void* value);
    virtual ~CVarAdapter() = default;

    const std::string& Text() const& { return m_strText; }
    std::string Text() && { return std::move(m_strText); }

private:
    std::string m_strText;
};

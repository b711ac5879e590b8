#include "support/CallText.h"

#include <cstdio>

std::string ToUtf8(const wchar_t* text)
{
    const int cb = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(cb), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), cb, nullptr, nullptr);
    utf8.pop_back();
    return utf8;
}

std::string Quoted(const wchar_t* text)
{
    return text == nullptr ? "null" : "'" + ToUtf8(text) + "'";
}

std::string Hex(unsigned long value)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%lX", value);
    return text;
}

std::string CallText(const char* name, std::initializer_list<std::string> arguments)
{
    std::string text = std::string(name) + "(";
    const char* separator = "";
    for (const std::string& argument : arguments)
    {
        text += separator + argument;
        separator = ", ";
    }
    return text + ")";
}

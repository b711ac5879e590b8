// Formatting: the estimate of the length beside another way to add it up, for any format, and the text beside
// the C runtime's, which may be longer than the estimate and is cut there.
#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <list>
#include <string>
#include <vector>

#include "base/StringEx.h"
#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"

namespace
{

// An argument as the calling convention passes it: eight bytes, whatever it is.
using Slot = std::uint64_t;
constexpr size_t kSlots = 16;

template <typename Value>
Slot SlotOf(Value value)
{
    static_assert(sizeof(Value) <= sizeof(Slot));
    Slot slot = 0;
    std::memcpy(&slot, &value, sizeof(value));
    return slot;
}

va_list ListOf(std::vector<Slot>& slots)
{
    return reinterpret_cast<va_list>(slots.data());
}

// Adds up the estimate from its table, the 32-bit sums running over.
class CEstimate
{
public:
    CEstimate(const std::wstring& format, const std::vector<Slot>& slots)
        : m_format(format + L'\0'), m_slots(slots)
    {
    }

    int Total()
    {
        std::uint32_t total = 4;
        while (Now() != L'\0')
        {
            if (Take() != L'%')
            {
                ++total;
            }
            else if (Now() == L'%')
            {
                Take();
                ++total;
            }
            else
            {
                total += Conversion();
            }
        }
        return static_cast<int>(total);
    }

private:
    wchar_t Now() const { return m_format[m_at]; }
    wchar_t Take() { return m_format[m_at++]; }
    bool Is(const wchar_t* set) const { return Now() != L'\0' && std::wcschr(set, Now()) != nullptr; }
    Slot NextSlot() { return m_slots.at(m_slot++); }
    int NextInt() { return static_cast<int>(static_cast<std::uint32_t>(NextSlot())); }

    // As _wtoi reads it, digits only: what it makes of blanks and signs cannot stand here.
    int Digits()
    {
        const int number = _wtoi(m_format.c_str() + m_at);
        while (Now() >= L'0' && Now() <= L'9')
        {
            ++m_at;
        }
        return number;
    }

    std::uint32_t Conversion()
    {
        std::uint32_t extra = 0;
        bool bStar = false;
        int width = 0;
        for (; Is(L"#*-+0 "); Take())
        {
            extra += Now() == L'#' ? 2u : 0u;
            if (Now() == L'*')
            {
                bStar = true;
                width = NextInt();
            }
        }
        width = bStar ? width : Digits();
        int precision = 0;
        if (Now() == L'.')
        {
            Take();
            if (Now() == L'*')
            {
                Take();
                precision = NextInt();
            }
            else
            {
                precision = Digits();
            }
        }
        wchar_t modifier = 0;
        if (m_format.compare(m_at, 3, L"I64") == 0)
        {
            m_at += 3;
        }
        else if (Is(L"hlFLN"))
        {
            modifier = Take();
        }
        const wchar_t type = Now() != L'\0' ? Take() : L'\0';
        return extra + static_cast<std::uint32_t>(Item(type, modifier, width, precision));
    }

    int Item(wchar_t type, wchar_t modifier, int width, int precision)
    {
        const int both =
            static_cast<int>(static_cast<std::uint32_t>(width) + static_cast<std::uint32_t>(precision));
        switch (type)
        {
            case L'c':
            case L'C':
                NextSlot();
                return InField(2, width, precision);
            case L's':
            case L'S':
                return InField(TextLength(modifier == L'h' || (type == L'S' && modifier != L'l')), width,
                               precision);
            case L'd':
            case L'i':
            case L'u':
            case L'x':
            case L'X':
            case L'o':
            case L'p':
                NextSlot();
                return std::max(32, both);
            case L'e':
            case L'g':
            case L'G':
                NextSlot();
                return std::max(128, both);
            case L'f':
                NextSlot();
                return std::max(128, static_cast<int>(static_cast<std::uint32_t>(precision) + 312));
            case L'n':
                NextSlot();
                return 0;
            default:
                return 0;
        }
    }

    int TextLength(bool bNarrow)
    {
        const Slot slot = NextSlot();
        if (slot == 0)
        {
            return 6;
        }
        const size_t length = bNarrow ? std::strlen(reinterpret_cast<const char*>(slot))
                                      : std::wcslen(reinterpret_cast<const wchar_t*>(slot));
        return static_cast<int>(std::max<size_t>(1, length));
    }

    static int InField(int length, int width, int precision)
    {
        length = precision != 0 ? std::min(length, precision) : length;
        return std::max(length, width);
    }

    const std::wstring m_format;
    const std::vector<Slot>& m_slots;
    size_t m_at = 0;
    size_t m_slot = 0;
};

std::string CheckEstimate(const std::wstring& format, std::vector<Slot> slots)
{
    const int expected = CEstimate(format, slots).Total();
    return Difference("the estimate of " + Shown(format), std::to_string(expected),
                      std::to_string(CStringEx::GetFormatLength(format.c_str(), ListOf(slots))));
}

// A format that no C runtime need understand; every argument is a text, wide and narrow.
std::string CheckAnyFormat(CChoices& choices)
{
    static const wchar_t s_text[] = L"abc";
    const std::wstring format = choices.Text(L"%%%%%%#*-+0 .123959hlFLNI64cCsSdiuxXoegGfpnEa", 40);
    return CheckEstimate(format, std::vector<Slot>(64, choices.OneIn(8) ? 0 : SlotOf(s_text)));
}

// A format that the C runtime understands, and what it takes.
class CValidFormat
{
public:
    explicit CValidFormat(CChoices& choices) : m_choices(choices)
    {
        for (int left = choices.Between(0, 4); left > 0; --left)
        {
            m_format += choices.Text(L"a=; ", 3) + (choices.OneIn(4) ? L"%%" : L"");
            AddConversion();
        }
        m_format += choices.Text(L"z", 2);
        m_slots.resize(kSlots, 0);
    }

    const std::wstring& Text() const { return m_format; }
    const std::vector<Slot>& Slots() const { return m_slots; }

private:
    // Wine's C runtime overruns a buffer of its own when an integer with a width has more than some 15
    // digits, or '#' with a width that is filled with zeros: neither is asked of it.
    void AddConversion()
    {
        switch (m_choices.Between(0, 6))
        {
            case 0:
                AddField(L"-+0 ", 12);
                m_format += m_choices.OneOf(L"diuxXo");
                m_slots.push_back(SlotOf(m_choices.Between(-2'000'000'000, 2'000'000'000)));
                break;
            case 1:
                m_format +=
                    L"%" + m_choices.Text(L"-+0 ", 2) + std::wstring(L"I64") + m_choices.OneOf(L"diuxXo");
                m_slots.push_back(static_cast<Slot>(m_choices.Between(-2'000'000'000, 2'000'000'000)) *
                                  4'000'000'007u);
                break;
            case 2:
                AddField(L"-+0 #", 150);
                m_format += m_choices.OneOf(L"fegG");
                m_slots.push_back(
                    SlotOf(m_choices.Between(-1'000'000, 1'000'000) * (m_choices.OneIn(2) ? 1e-9 : 1e290)));
                break;
            case 3:
                AddField(L"-", 150);
                m_format += m_choices.OneIn(2) ? L"s" : L"ls";
                m_texts.push_back(m_choices.Text(L"ab%\u00E9\u20AC", 60) +
                                  std::wstring(m_choices.OneIn(4) ? 190 : 0, L'w'));
                m_slots.push_back(m_choices.OneIn(8) ? 0 : SlotOf(m_texts.back().c_str()));
                break;
            case 4:
                AddField(L"-", 150);
                m_format += m_choices.OneIn(2) ? L"S" : L"hs";
                m_slots.push_back(m_choices.OneIn(8) ? 0 : SlotOf("narrow text"));
                break;
            case 5:
                AddField(L"-", 0);
                m_format += L'c';
                m_slots.push_back(static_cast<Slot>(m_choices.Between(1, 0x7E)));
                break;
            default:
                m_format += L"%p";
                m_slots.push_back(static_cast<Slot>(m_choices.Between(0, 2'000'000'000)));
                break;
        }
    }

    template <size_t count>
    void AddField(const wchar_t (&flags)[count], int greatestPrecision)
    {
        m_format += L"%" + m_choices.Text(flags, 2);
        switch (m_choices.Between(0, 3))
        {
            case 0:
                m_format += std::to_wstring(m_choices.Between(1, 200));
                break;
            case 1:
                m_format += L'*';
                m_slots.push_back(SlotOf(m_choices.Between(0, 200)));
                break;
            default:
                break;
        }
        if (greatestPrecision > 0 && m_choices.OneIn(2))
        {
            m_format += L'.' + std::to_wstring(m_choices.Between(0, greatestPrecision));
        }
    }

    CChoices& m_choices;
    std::wstring m_format;
    std::list<std::wstring> m_texts;
    std::vector<Slot> m_slots;
};

}  // namespace

std::string CheckFormat(std::string_view input)
{
    CChoices choices(input);
    if (choices.OneIn(2))
    {
        return CheckAnyFormat(choices);
    }
    const CValidFormat format(choices);
    std::vector<Slot> s = format.Slots();
    const std::string complaint = CheckEstimate(format.Text(), s);
    if (!complaint.empty())
    {
        return complaint;
    }
    static wchar_t s_text[8192];
    const int length = _vsnwprintf(s_text, std::size(s_text), format.Text().c_str(), ListOf(s));
    const int estimate = CEstimate(format.Text(), s).Total();
    const std::wstring before(static_cast<size_t>(choices.OneIn(2) ? 0 : choices.Between(0, 400)), L'o');
    CStringEx str(before.c_str());
    // A block that has just as many characters as are estimated is kept: then the terminator takes the last.
    const int room = static_cast<int>(before.size()) + 1 == estimate ? estimate - 1 : estimate;
    const std::wstring expected(s_text, static_cast<size_t>(std::clamp(length, 0, room)));
    str.Format(format.Text().c_str(), s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8], s[9], s[10],
               s[11]);
    return Difference(Shown(format.Text()), Shown(expected), Shown(std::wstring_view(str.c_str())));
}

// Operations on a string, each beside the same on a std::wstring.
#include <algorithm>
#include <cwchar>
#include <string>
#include <utility>

#include "base/StringEx.h"
#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"
#include "support/guarded_heap/GuardedHeap.h"

namespace
{

constexpr wchar_t kAlphabet[] = L"aabbAB/\\.\u00E9\u20AC";
constexpr wchar_t kAsciiAlphabet[] = L"abAB/\\.%";
constexpr size_t kLongest = 300;

std::string Narrow(const std::wstring& ascii)
{
    return std::string(ascii.begin(), ascii.end());
}

// Models of the operations that std::wstring does not have.
std::wstring ModelMid(const std::wstring& text, int start, int count)
{
    const int from = std::max(start, 0);
    if (from > static_cast<int>(text.size()))
    {
        return {};
    }
    return text.substr(static_cast<size_t>(from),
                       count < 0 ? std::wstring::npos : static_cast<size_t>(count));
}

int ModelReplace(std::wstring& text, const std::wstring& oldText, const std::wstring& newText)
{
    if (oldText.empty() || oldText == newText || text.find(oldText) == std::wstring::npos)
    {
        return 0;
    }
    int count = 0;
    size_t at = 0;
    while ((at = text.find(oldText, newText.empty() ? 0 : at)) != std::wstring::npos)
    {
        text.replace(at, oldText.size(), newText);
        at += newText.size();
        ++count;
    }
    return newText.empty() ? count : count + 1;
}

void ModelPathAppend(std::wstring& text, std::wstring file)
{
    for (const wchar_t separator : {L'/', L'\\'})
    {
        file.erase(0, std::min(file.find_first_not_of(separator), file.size()));
        text.erase(text.find_last_not_of(separator) + 1);
    }
    text += L'\\' + file;
}

int AsIndex(size_t position)
{
    return position == std::wstring::npos ? -1 : static_cast<int>(position);
}

// One string and its model.
class CPair
{
public:
    explicit CPair(CChoices& choices) : m_choices(choices) {}

    // Returns the operation's name for the failure message.
    const char* Step()
    {
        if (m_model.size() > kLongest)
        {
            m_str.Empty();
            m_model.clear();
            return "Empty";
        }
        switch (m_choices.Between(0, 15))
        {
            case 0:
                return Assign();
            case 1:
                return AssignNarrow();
            case 2:
                return SetUtf8();
            case 3:
                return Copy();
            case 4:
            case 5:
                return Append();
            case 6:
                return AppendOwn();
            case 7:
                return TakePart();
            case 8:
                return Find();
            case 9:
            case 10:
                return Delete();
            case 11:
            case 12:
                return Replace();
            case 13:
                return PathAppend();
            case 14:
                return Write();
            default:
                return MakeLower();
        }
    }

    bool Agrees() const
    {
        return m_bResultAgrees && m_str.c_str() == m_model &&
               m_str.GetLength() == static_cast<int>(m_model.size());
    }

    std::string Describe() const
    {
        return "expected " + Shown(m_model) + ", got " + Shown(std::wstring_view(m_str.c_str())) +
               (m_bResultAgrees ? "" : ", and another result of the call");
    }

private:
    std::wstring Text() { return m_choices.Text(kAlphabet, 12); }
    int Length() const { return static_cast<int>(m_model.size()); }
    int AnyIndex() { return m_choices.Between(-2, Length() + 3); }

    void ExpectResult(int got, int expected) { m_bResultAgrees = got == expected; }

    const char* Assign()
    {
        m_model = Text();
        m_str = m_model.c_str();
        return "assign";
    }

    const char* AssignNarrow()
    {
        m_model = m_choices.Text(kAsciiAlphabet, 12);
        m_str = Narrow(m_model).c_str();
        return "assign narrow";
    }

    const char* SetUtf8()
    {
        const std::wstring text = m_choices.Text(kAsciiAlphabet, 6);
        ExpectResult(m_str.SetUTF8(Narrow(text).c_str()), text.empty() ? FALSE : TRUE);
        m_model = text.empty() ? m_model : text;
        return "SetUTF8";
    }

    const char* Copy()
    {
        CStringEx strCopy(m_str);
        m_str = L"something else";
        if (m_choices.Between(0, 1) == 0)
        {
            m_str = strCopy;
        }
        else
        {
            m_str = std::move(strCopy);
        }
        return "copy";
    }

    const char* Append()
    {
        const std::wstring text = Text();
        if (m_choices.Between(0, 1) == 0 && !text.empty())
        {
            m_str.AppendChar(text[0]);
            m_model += text[0];
            return "AppendChar";
        }
        m_str += text.c_str();
        m_model += text;
        return "append";
    }

    const char* AppendOwn()
    {
        const size_t from = static_cast<size_t>(m_choices.Between(0, Length()));
        m_str += m_str.c_str() + from;
        m_model += std::wstring(m_model, from);
        return "append its own text";
    }

    const char* TakePart()
    {
        const int start = AnyIndex();
        const int count = AnyIndex();
        switch (m_choices.Between(0, 2))
        {
            case 0:
                m_str = m_str.Mid(start, count);
                m_model = ModelMid(m_model, start, count);
                return "Mid";
            case 1:
                m_str = m_str.Left(count);
                m_model = ModelMid(m_model, 0, count);
                return "Left";
            default:
                m_str = m_str.Right(count);
                m_model = ModelMid(m_model, Length() - count, count);
                return "Right";
        }
    }

    const char* Find()
    {
        const std::wstring sub = m_choices.Text(kAlphabet, 3);
        const bool bEmpty = m_model.empty();
        if (m_choices.Between(0, 1) == 0)
        {
            ExpectResult(m_str.Find(sub.c_str()), bEmpty ? -1 : AsIndex(m_model.find(sub)));
            return "Find";
        }
        ExpectResult(m_str.ReverseFind(sub.c_str()), bEmpty ? -1 : AsIndex(m_model.rfind(sub)));
        return "ReverseFind";
    }

    const char* Delete()
    {
        const int index = AnyIndex();
        const int count = m_choices.Between(0, Length() + 3);
        if (index >= 0 && index <= Length())
        {
            m_model.erase(static_cast<size_t>(index), static_cast<size_t>(count));
        }
        ExpectResult(m_str.Delete(index, count), Length());
        return "Delete";
    }

    const char* Replace()
    {
        const std::wstring oldText = m_choices.Text(kAlphabet, 3);
        const std::wstring newText = m_choices.Text(kAlphabet, 5);
        const int expected = ModelReplace(m_model, oldText, newText);
        ExpectResult(m_str.Replace(oldText.c_str(), newText.c_str()), expected);
        return "Replace";
    }

    const char* PathAppend()
    {
        const std::wstring file = m_choices.Text(L"//\\\\ab", 6);
        ModelPathAppend(m_model, file);
        m_str.PathAppend(file.c_str());
        return "PathAppend";
    }

    const char* Write()
    {
        const std::wstring text = m_choices.Text(kAlphabet, 30);
        // Two more than the text it may hold now: a request for one more keeps the block.
        wchar_t* buffer = m_str.GetBuffer(std::max(Length() + 2, static_cast<int>(text.size())));
        m_bResultAgrees = buffer != nullptr && m_str.GetBuffer(1) == nullptr;
        if (buffer != nullptr)
        {
            std::wmemcpy(buffer, text.c_str(), text.size() + 1);
            m_str.ReleaseBuffer();
            m_model = text;
        }
        return "GetBuffer";
    }

    const char* MakeLower()
    {
        // Only the letters that every locale knows.
        const std::wstring text = m_choices.Text(kAsciiAlphabet, 12);
        m_str = text.c_str();
        m_str.MakeLower();
        m_model = text;
        for (wchar_t& ch : m_model)
        {
            ch = ch >= L'A' && ch <= L'Z' ? static_cast<wchar_t>(ch + (L'a' - L'A')) : ch;
        }
        return "MakeLower";
    }

    CChoices& m_choices;
    CStringEx m_str;
    std::wstring m_model;
    bool m_bResultAgrees = true;
};

}  // namespace

std::string CheckString(std::string_view input)
{
    CChoices choices(input);
    CPair pair(choices);
    std::string operations;
    while (!choices.AtEnd())
    {
        operations += std::string(operations.empty() ? "" : ", ") + pair.Step();
        if (!pair.Agrees())
        {
            return operations + ": " + pair.Describe();
        }
    }
    return "";
}

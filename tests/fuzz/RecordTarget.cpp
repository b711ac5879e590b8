// Trace records, and the pieces that long ones are cut into.
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"
#include "support/RecordedTrace.h"
#include "trace/Trace.h"

namespace
{

constexpr size_t kLongestPiece = 2047;

// Mostly short; else such that records end around the places where they are cut.
std::string Text(CChoices& choices)
{
    std::string text = choices.Text("ab=,%s\n\\", 6);
    if (choices.OneIn(3))
    {
        text.append(static_cast<size_t>(choices.Between(1, 3) * 2047 + choices.Between(-12, 12)), 'x');
    }
    return text;
}

struct Item
{
    std::string name;
    bool bNamed;
    std::unique_ptr<CVarAdapter> value;
    std::string expected;
};

Item MakeItem(CChoices& choices)
{
    Item item = {choices.Text("nm%=", 4), !choices.OneIn(3), nullptr, {}};
    item.expected = item.bNamed ? item.name + "=" : "";
    if (choices.OneIn(4))
    {
        const int number = choices.Between(0, 2'000'000'000);
        item.value = std::make_unique<CVarAdapter>(static_cast<unsigned long>(number));
        item.expected += std::to_string(number);
    }
    else if (!choices.OneIn(4))
    {
        const std::string text = Text(choices);
        item.value = std::make_unique<CVarAdapter>(std::wstring(text.begin(), text.end()).c_str());
        item.expected += text;
    }
    item.expected += ",";
    return item;
}

std::vector<std::string> Cut(const std::string& record)
{
    std::vector<std::string> pieces;
    for (size_t at = 0; at < record.size(); at += kLongestPiece)
    {
        pieces.push_back("2|" + record.substr(at, kLongestPiece));
    }
    return pieces;
}

}  // namespace

void LoadTraceLibrary()
{
    const CRecordedTrace trace;
    TraceText(kTraceProgress, L"");
}

std::string CheckRecord(std::string_view input)
{
    CJournal journal;
    CRecordedTrace trace(journal);
    CChoices choices(input);
    const bool bMessage = !choices.OneIn(5);
    const std::string message = Text(choices);
    const Item items[] = {MakeItem(choices), MakeItem(choices), MakeItem(choices)};
    const int count = choices.Between(0, 3);
    const TraceVarPair* pairs[4] = {};
    std::string record = bMessage ? message + " " : "";
    TraceVarPair storage[3] = {};
    for (int index = 0; index < count; ++index)
    {
        storage[index] = {items[index].bNamed ? items[index].name.c_str() : nullptr,
                          items[index].value.get()};
        pairs[index] = &storage[index];
        record += items[index].expected;
    }
    record += "\n";
    TraceVars(2, bMessage ? message.c_str() : nullptr, pairs[0], pairs[1], pairs[2], pairs[3]);
    const std::vector<std::string> expected = Cut(record);
    const std::vector<std::string> got = trace.Take();
    if (got == expected)
    {
        return "";
    }
    std::string complaint = "a record of " + std::to_string(record.size()) + " characters came in pieces of";
    for (const std::string& piece : got)
    {
        complaint += " " + std::to_string(piece.size() - 2);
    }
    return complaint + ": " + Shown(record);
}

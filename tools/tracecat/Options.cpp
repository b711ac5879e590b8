#include "tracecat/Options.h"

#include <charconv>
#include <string_view>
#include <system_error>

const char kUsage[] =
    "usage: tracecat [options] FILE\n"
    "Shows a trace file of qnztraceX64.dll, indented by entry and exit of functions, with durations.\n"
    "  --follow        go on with what is added to the file, until Ctrl+C\n"
    "  --old           begin with the files set aside: FILE.3, FILE.2, FILE.1, then FILE\n"
    "  --level N       only records of level N and above: 2 progress, 8 errors\n"
    "  --process ID    only this process; may be given several times\n"
    "  --thread ID     only this thread; may be given several times\n"
    "  --function TEXT only what happens in functions with TEXT in their names\n"
    "  --text TEXT     only records with TEXT in them, in capitals or not\n"
    "  --timeline[=N]  draw the last exchange, or the Nth, as a time line\n"
    "  --decode        show percent-encoded values as what they stand for\n"
    "Times are UTC. Exit code: 0; 1 the file cannot be read, or has no such exchange; 2 the command line "
    "makes no "
    "sense.\n";

namespace
{

constexpr std::string_view kTimeLine = "--timeline=";

template <typename Number>
bool ToNumber(std::string_view text, Number& number)
{
    const std::from_chars_result result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool AddNumber(const std::string& text, std::vector<unsigned long>& numbers)
{
    unsigned long number = 0;
    const bool bGood = ToNumber(text, number);
    numbers.push_back(number);
    return bGood;
}

// False when there is no such option.
bool TakeSwitch(const std::string& argument, Options& options)
{
    bool* const pSwitch = argument == "--follow"     ? &options.bFollow
                          : argument == "--old"      ? &options.bOld
                          : argument == "--decode"   ? &options.bDecode
                          : argument == "--timeline" ? &options.bTimeLine
                          : argument == "--help"     ? &options.bHelp
                                                     : nullptr;
    if (pSwitch != nullptr)
    {
        *pSwitch = true;
    }
    else if (argument.starts_with(kTimeLine))
    {
        options.bTimeLine = true;
        return ToNumber(std::string_view(argument).substr(kTimeLine.size()), options.nExchange) &&
               options.nExchange > 0;
    }
    return pSwitch != nullptr;
}

// False when there is no such option, or the value is none for it.
bool TakeValue(const std::string& argument, const std::string& value, Options& options)
{
    if (argument == "--level")
    {
        return ToNumber(value, options.level.emplace());
    }
    if (argument == "--process")
    {
        return AddNumber(value, options.processes);
    }
    if (argument == "--thread")
    {
        return AddNumber(value, options.threads);
    }
    if (argument == "--function")
    {
        options.strFunction = value;
        return true;
    }
    options.strText = value;
    return argument == "--text";
}

}  // namespace

std::string ReadOptions(const std::vector<std::string>& arguments, Options& options)
{
    for (size_t index = 0; index < arguments.size(); ++index)
    {
        const std::string& argument = arguments[index];
        if (!argument.starts_with('-'))
        {
            if (!options.strFile.empty())
            {
                return "one file at a time";
            }
            options.strFile = argument;
        }
        else if (!TakeSwitch(argument, options))
        {
            if (index + 1 == arguments.size() || !TakeValue(argument, arguments[index + 1], options))
            {
                return argument + " makes no sense here";
            }
            ++index;
        }
    }
    if (options.bFollow && options.bTimeLine)
    {
        return "--timeline shows what is in the file: not together with --follow";
    }
    return options.strFile.empty() && !options.bHelp ? "which file?" : "";
}

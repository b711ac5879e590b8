// What text the host gets for an answer's bytes.
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/answers/TargetFolder.h"
#include "system/HttpRawHost.h"

using namespace std::string_view_literals;

namespace
{

struct TextRow
{
    const char* pszLabel;
    std::string_view bytes;
    std::wstring_view text;
};

const TextRow kGoodRows[] = {
    {"one byte each", "\x01\t\r\nA~\x7F", L"\x01\t\r\nA~\x7F"},
    {"two bytes, from the first to the last", "\xC2\x80\xC3\xA4\xD0\x9F\xDF\xBF",
     L"\x0080\x00E4\x041F\x07FF"},
    {"three bytes", "\xE0\xA0\x80\xE2\x82\xAC\xE4\xB8\xAD\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD",
     L"\x0800\x20AC\x4E2D\xD7FF\xE000\xFFFD"},
    {"three bytes, no characters", "\xEF\xB7\x90\xEF\xBF\xBE\xEF\xBF\xBF", L"\xFDD0\xFFFE\xFFFF"},
    {"four bytes", "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF",
     L"\xD800\xDC00\xD83D\xDE00\xDBFF\xDFFF"},
    {"mixed", "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z", L"a\x00E4\x20AC\xD83D\xDE00z"},
    {"a letter and its combining mark", "e\xCC\x81", L"e\x0301"},
    {"right to left", "\xD7\xA9\xD7\x9C", L"\x05E9\x05DC"},
    {"a byte order mark", "\xEF\xBB\xBFtext", L"\xFEFFtext"},
    {"a byte order mark alone", "\xEF\xBB\xBF", L"\xFEFF"},
};

// Each sequence that is no UTF-8 becomes U+FFFD, as many as stand here under Wine.
const TextRow kBadRows[] = {
    {"a lone continuation", "a\x80z", L"a\xFFFDz"},
    {"two lone continuations", "a\xBF\x80z", L"a\xFFFD\xFFFDz"},
    {"a slash in two bytes", "a\xC0\xAFz", L"a\xFFFD\xFFFDz"},
    {"a NUL in two bytes", "a\xC0\x80z", L"a\xFFFD\xFFFDz"},
    {"a slash in three bytes", "a\xE0\x80\xAFz", L"a\xFFFD\xFFFDz"},
    {"a slash in four bytes", "a\xF0\x80\x80\xAFz", L"a\xFFFD\xFFFD\xFFFDz"},
    {"the first half of a pair", "a\xED\xA0\x80z", L"a\xFFFD\xFFFDz"},
    {"the second half of a pair", "a\xED\xBF\xBFz", L"a\xFFFD\xFFFDz"},
    {"a pair in three bytes each", "a\xED\xA0\xBD\xED\xB8\x80z", L"a\xFFFD\xFFFD\xFFFD\xFFFDz"},
    {"beyond the last character", "a\xF4\x90\x80\x80z", L"a\xFFFD\xFFFD\xFFFDz"},
    {"five bytes", "a\xF8\x88\x80\x80\x80z", L"a\xFFFD\xFFFD\xFFFD\xFFFD\xFFFDz"},
    {"bytes of UTF-16", "\xFF\xFEhz", L"\xFFFD\xFFFDhz"},
    {"text of another code page", "caf\xE9 z", L"caf\xFFFD z"},
    {"cut inside, then a letter, two bytes", "a\xC3z", L"a\xFFFDz"},
    {"cut inside, then a letter, three bytes", "a\xE2\x82z", L"a\xFFFDz"},
    {"cut inside, then a letter, four bytes", "a\xF0\x9F\x98z", L"a\xFFFDz"},
    {"ends after 1 of 2 bytes", "a\xC3", L"a\xFFFD"},
    {"ends after 1 of 3 bytes", "a\xE2", L"a\xFFFD"},
    {"ends after 2 of 3 bytes", "a\xE2\x82", L"a\xFFFD"},
    {"ends after 1 of 4 bytes", "a\xF0", L"a\xFFFD"},
    {"ends after 2 of 4 bytes", "a\xF0\x9F", L"a\xFFFD"},
    {"ends after 3 of 4 bytes", "a\xF0\x9F\x98", L"a\xFFFD"},
    {"nothing but a part of a character", "\xF0\x9F", L"\xFFFD"},
};

// The text ends there. It is an empty one, other than for an empty body, when the first byte is a NUL.
const TextRow kNulRows[] = {
    {"a NUL alone", "\0"sv, L""},
    {"a NUL at the beginning", "\0text"sv, L""},
    {"a NUL in the middle", "some\0text"sv, L"some"},
    {"a NUL at the end", "text\0"sv, L"text"},
    {"a NUL inside a character", "a\xE2\0\x82z"sv, L"a\xFFFD"},
    {"text in UTF-16", "t\0e\0x\0t\0"sv, L"t"},
};

class AnswerTextTest : public testing::Test
{
protected:
    std::optional<std::wstring> Get(std::string_view body)
    {
        m_body = body;
        EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
        return m_host.TakeAnswer();
    }

    std::string m_body;
    std::string m_headers;
    CLoopbackServer m_server{[this](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(200, m_body, m_headers)); }};
    CHttpRawHost m_host;
};

// One U+FFFD for each run of them.
std::wstring WithoutRepeats(std::wstring_view text)
{
    std::wstring shortened;
    for (const wchar_t character : text)
    {
        if (character != L'\xFFFD' || !shortened.ends_with(L'\xFFFD'))
        {
            shortened += character;
        }
    }
    return shortened;
}

TEST_F(AnswerTextTest, EveryCharacterIsKept)
{
    for (const TextRow& row : kGoodRows)
    {
        EXPECT_EQ(Get(row.bytes), row.text) << row.pszLabel;
    }
}

TEST_F(AnswerTextTest, WhatIsNoUtf8IsReplacedAndTheRestKept)
{
    for (const TextRow& row : kBadRows)
    {
        const std::optional<std::wstring> answer = Get(row.bytes);
        ASSERT_TRUE(answer.has_value()) << row.pszLabel;
        // How many replacements a sequence gets differs between versions of the platform.
        EXPECT_EQ(IsWine() ? *answer : WithoutRepeats(*answer),
                  IsWine() ? std::wstring(row.text) : WithoutRepeats(row.text))
            << row.pszLabel;
    }
}

TEST_F(AnswerTextTest, EndsAtTheFirstNul)
{
    for (const TextRow& row : kNulRows)
    {
        EXPECT_EQ(Get(row.bytes), row.text) << row.pszLabel;
    }
}

TEST_F(AnswerTextTest, IsUtf8WhateverTheServerSays)
{
    for (const char* pszHeader :
         {"Content-Type: text/html; charset=iso-8859-1\r\n", "Content-Type: text/plain; charset=utf-16\r\n",
          "Content-Type: application/octet-stream\r\n"})
    {
        m_headers = pszHeader;
        EXPECT_EQ(Get("\xC3\xA4\xE2\x82\xAC"), L"\x00E4\x20AC") << pszHeader;
    }
}

TEST_F(AnswerTextTest, ACharacterMayLieAcrossTwoPieces)
{
    for (const TextRow& row : {TextRow{"two bytes", "\xC3\xA4", L"\x00E4"},
                               {"three bytes", "\xE2\x82\xAC", L"\x20AC"},
                               {"four bytes", "\xF0\x9F\x98\x80", L"\xD83D\xDE00"}})
    {
        for (const size_t pieces : {size_t{1}, size_t{2}})
        {
            for (size_t before = 1; before < row.bytes.size(); ++before)
            {
                const size_t letters = pieces * 16384 - before;
                const std::optional<std::wstring> answer =
                    Get(std::string(letters, 'a').append(row.bytes).append("z"));
                EXPECT_EQ(answer.value_or(L"").substr(0, letters), std::wstring(letters, L'a'));
                EXPECT_EQ(answer.value_or(L"").substr(letters), std::wstring(row.text) + L"z")
                    << row.pszLabel << ", " << before << " of them before the end of piece " << pieces;
            }
        }
    }
}

TEST_F(AnswerTextTest, AFileKeepsTheBytesAsTheyAre)
{
    std::string bytes;
    for (const auto& rows : {std::span<const TextRow>(kNulRows), {kBadRows}, {kGoodRows}})
    {
        for (const TextRow& row : rows)
        {
            bytes += row.bytes;
        }
    }
    // Line ends that a file opened as text would change, and what ends such a file.
    bytes += "\n\r\n\r\x1A\n";
    CTargetFolder folder;
    m_host->SetDownloadFile((folder.Path() + L"file").c_str());
    EXPECT_EQ(Get(bytes), std::nullopt);
    EXPECT_EQ(folder.Files(), (FileContents{{L"file", bytes}}));
}

}  // namespace

// Feeds each target with random inputs, and with those that were kept because they failed once.
//   KVHTTP_SEED          the seed of the inputs; it is printed
//   KVHTTP_FUZZ_INPUTS   how many inputs, instead of as many as are tried in a moment
//   KVHTTP_FUZZ_SECONDS  or for how long
//   KVHTTP_FUZZ_CURRENT  a file that holds the input that is being tried, however the program ends
#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "base/ScopedHandle.h"
#include "fuzz/FuzzRandom.h"
#include "fuzz/FuzzTarget.h"
#include "support/guarded_heap/GuardedHeap.h"

namespace
{

constexpr std::uint64_t kQuickInputs = 2000;
constexpr std::uint64_t kQuickMilliseconds = 400;
constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};
constexpr size_t kCurrentBytes = 4096;

// 0 when it is not set.
std::uint64_t NumberFrom(const char* pszVariable)
{
    char text[32] = {};
    return GetEnvironmentVariableA(pszVariable, text, sizeof(text)) != 0 ? std::strtoull(text, nullptr, 10)
                                                                         : 0;
}

// The file that outlives the program: the size of the input, in 8 bytes, and the input.
class CCurrentInput
{
public:
    CCurrentInput()
    {
        char szPath[MAX_PATH] = {};
        if (GetEnvironmentVariableA("KVHTTP_FUZZ_CURRENT", szPath, MAX_PATH) == 0)
        {
            return;
        }
        const HANDLE hFile = CreateFileA(szPath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                         CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        const HANDLE hMapping = CreateFileMappingA(hFile, nullptr, PAGE_READWRITE, 0, kCurrentBytes, nullptr);
        m_pView = static_cast<char*>(MapViewOfFile(hMapping, FILE_MAP_WRITE, 0, 0, kCurrentBytes));
        CloseHandle(hMapping);
        CloseHandle(hFile);
        if (m_pView == nullptr)
        {
            std::printf("FuzzTest: %s cannot be written\n", szPath);
            std::exit(2);
        }
    }
    ~CCurrentInput()
    {
        if (m_pView != nullptr)
        {
            UnmapViewOfFile(m_pView);
        }
    }
    CCurrentInput(const CCurrentInput&) = delete;
    CCurrentInput& operator=(const CCurrentInput&) = delete;

    void Set(const std::string& input)
    {
        if (m_pView != nullptr)
        {
            const std::uint64_t cb = input.size();
            std::memcpy(m_pView, &cb, sizeof(cb));
            std::memcpy(m_pView + sizeof(cb), input.data(), input.size());
        }
    }

private:
    char* m_pView = nullptr;
};

std::string Complaint(const CFuzzTarget& target, const std::string& input)
{
    const size_t liveBefore = CGuardedHeap::LiveArrays();
    std::string complaint = target.pfnCheck(input);
    const size_t liveAfter = CGuardedHeap::LiveArrays();
    return complaint.empty()
               ? Difference("array blocks left", std::to_string(liveBefore), std::to_string(liveAfter))
               : complaint;
}

class FuzzTest : public testing::TestWithParam<CFuzzTarget>
{
protected:
    static void SetUpTestSuite()
    {
        CGuardedHeap::RecycleBlocks();
        LoadTraceLibrary();
    }
};

TEST_P(FuzzTest, AgreesWithItsModelOnRandomInput)
{
    const CFuzzTarget& target = GetParam();
    const std::uint64_t given = NumberFrom("KVHTTP_SEED");
    const std::uint64_t seed = given != 0 ? given : std::random_device{}();
    const std::uint64_t inputs = NumberFrom("KVHTTP_FUZZ_INPUTS");
    const std::uint64_t seconds = NumberFrom("KVHTTP_FUZZ_SECONDS");
    const bool bQuick = inputs == 0 && seconds == 0;
    const std::uint64_t most = bQuick ? kQuickInputs : inputs != 0 ? inputs : kNoLimit;
    const auto begin = std::chrono::steady_clock::now();
    const auto end = begin + (bQuick         ? std::chrono::milliseconds(kQuickMilliseconds)
                              : seconds != 0 ? std::chrono::milliseconds(seconds * 1000)
                                             : std::chrono::hours(1000));
    std::printf("KVHTTP_SEED=%llu repeats this run\n", seed);
    std::fflush(stdout);
    CCurrentInput current;
    std::uint64_t number = 0;
    for (; number < most && (number % 64 != 0 || std::chrono::steady_clock::now() < end); ++number)
    {
        const std::string input = RandomInput(seed, number, target.cbLongest);
        current.Set(input);
        ASSERT_EQ(Complaint(target, input), "") << "seed " << seed << ", input " << number;
    }
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    std::printf("%s: %llu inputs in %lld ms\n", target.pszName, number, took.count());
}

// A case is a file of hexadecimal digits; what stands behind a '#' is a remark.
std::string ReadCase(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::string input;
    for (std::string line; std::getline(file, line);)
    {
        const std::string digits = line.substr(0, line.find('#'));
        for (size_t at = 0; at + 1 < digits.size(); at += 2)
        {
            input += static_cast<char>(std::stoul(digits.substr(at, 2), nullptr, 16));
        }
    }
    return input;
}

TEST_P(FuzzTest, AgreesWithItsModelOnKeptInput)
{
    const CFuzzTarget& target = GetParam();
    const std::filesystem::path folder = std::filesystem::path(KVHTTP_FUZZ_CASES) / target.pszName;
    ASSERT_TRUE(exists(folder)) << folder;
    for (const auto& file : std::filesystem::directory_iterator(folder))
    {
        EXPECT_EQ(Complaint(target, ReadCase(file.path())), "") << file.path().filename();
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzTest, testing::ValuesIn(kFuzzTargets),
                         [](const auto& target) { return std::string(target.param.pszName); });

}  // namespace

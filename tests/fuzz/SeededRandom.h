// The random choices of one test. The seed is printed; KVHTTP_SEED repeats a run.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

class CSeededRandom
{
public:
    CSeededRandom() : m_seed(ChooseSeed()), m_engine(m_seed)
    {
        std::printf("KVHTTP_SEED=%u repeats this run\n", m_seed);
        std::fflush(stdout);
    }

    unsigned Seed() const { return m_seed; }

    // Both ends included.
    int Between(int least, int greatest)
    {
        return std::uniform_int_distribution<int>(least, greatest)(m_engine);
    }

    std::wstring Text(std::wstring_view alphabet, int greatestLength)
    {
        std::wstring text(static_cast<size_t>(Between(0, greatestLength)), L'\0');
        for (wchar_t& ch : text)
        {
            ch = alphabet[static_cast<size_t>(Between(0, static_cast<int>(alphabet.size()) - 1))];
        }
        return text;
    }

private:
    static unsigned ChooseSeed()
    {
        char buffer[32] = {};
        const DWORD cch = GetEnvironmentVariableA("KVHTTP_SEED", buffer, sizeof(buffer));
        return cch != 0 ? static_cast<unsigned>(std::strtoul(buffer, nullptr, 10)) : std::random_device{}();
    }

    unsigned m_seed;
    std::mt19937 m_engine;
};

// Ends a random test that a busy machine makes slow.
class CTimeLimit
{
public:
    explicit CTimeLimit(std::chrono::milliseconds limit) : m_end(std::chrono::steady_clock::now() + limit) {}
    bool IsOver() const { return std::chrono::steady_clock::now() >= m_end; }

private:
    std::chrono::steady_clock::time_point m_end;
};

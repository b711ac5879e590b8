// Holds the thread that makes the nth call from now on, within that call, until the test lets it go.
#pragma once

#include <memory>
#include <string>

#include "support/Gate.h"
#include "support/Journal.h"

class CHold
{
public:
    CHold(CJournal& journal, const std::string& call, int nth = 1)
    {
        journal.On(call, nth,
                   [gates = m_gates]
                   {
                       gates->reached.Open();
                       gates->letGo.Wait();
                   });
    }
    ~CHold() { LetGo(); }
    CHold(const CHold&) = delete;
    CHold& operator=(const CHold&) = delete;

    // Waits for the call; false when it does not come in time.
    bool Reached() { return m_gates->reached.Wait(); }
    void LetGo() { m_gates->letGo.Open(); }

private:
    struct Gates
    {
        CGate reached;
        CGate letGo;
    };

    std::shared_ptr<Gates> m_gates = std::make_shared<Gates>();
};

// What is measured: a client, one of the ways in which a host can post a form, and a poster, one object of a
// client. All are used on the thread that made them.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

// A poster that cannot do what it is asked for, with the reason.
struct CFailure : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// An exchange whose end was not seen. The object is fit for another one.
struct CLostEnd : CFailure
{
    using CFailure::CFailure;
};

struct CTask
{
    std::wstring url;
    std::string form;
    std::wstring wideForm;  // the same
    std::wstring file;      // that the answer goes into; empty: taken as text
    std::string answer;     // that is expected; of no use with a file
    std::wstring wideAnswer;
};

class CPoster
{
public:
    virtual ~CPoster() = default;

    // Begins an exchange. One that cannot run beside its caller has ended on return.
    virtual void Start(const CTask& task) = 0;
    virtual bool HasEnded() = 0;
    // Takes the answer as the client gives it: as text where it decodes one.
    virtual void TakeAnswer(const CTask& task) = 0;
    virtual bool HasAnswer(const CTask& task) const = 0;
};

struct CClient
{
    std::string name;
    DWORD dwPollMs = 0;  // between two polls; 0: the thread only offers its processor to others
    bool bWritesFiles = false;
    bool bRunsBesideCaller = true;
    bool bPaired = false;    // takes part in further rounds
    bool bMustWork = false;  // others are left out of what they cannot do
    std::function<std::unique_ptr<CPoster>(bool bManyAtOnce)> make;
};

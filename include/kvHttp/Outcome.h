// How an exchange of CClient has ended, or why it has not begun: one value for each, and one sentence.
#pragma once

#include "kvHttp/HttpRaw.h"

namespace kvHttp
{

// No name here is a macro of the platform's headers.
enum class Outcome
{
    Idle,     // nothing has been posted yet
    Running,  // it has not ended
    Done,     // the answer is there

    // It has ended without an answer.
    Refused,
    Failed,
    NotConnected,
    TimedOut,
    DeadlinePassed,
    Cancelled,
    QuitAsked,
    NoMemory,
    FileUnreadable,

    // It has not begun.
    NoUrl,
    NoData,
    FileNotWritable,
    Busy,
    OtherThread,

    // There is no component.
    OtherApartment,
    NotRegistered,
    ModuleNotFound,
    OtherBitness,
    OtherModule,
    NoComponent
};

// What has happened and what to do about it, for people. ASCII only.
inline const wchar_t* Describe(Outcome outcome) noexcept
{
    switch (outcome)
    {
        case Outcome::Idle:
            return L"Nothing has been posted yet.";
        case Outcome::Running:
            return L"The exchange is under way.";
        case Outcome::Done:
            return L"The answer is complete.";
        case Outcome::Refused:
            return L"The server answered 400, 401, 404 or 405: check the path of the URL, and whether that "
                   L"page "
                   L"takes this form without a login.";
        case Outcome::Failed:
            return L"The server could not be reached, or broke off: check that the URL is complete "
                   L"(http://host:port/path), that the host name is right and that the server runs.";
        case Outcome::NotConnected:
            return L"This machine has no network connection, or the error dialog was cancelled: connect it, "
                   L"or "
                   L"accept the dialog, and try again.";
        case Outcome::TimedOut:
            return L"The exchange took too long, was redirected in a circle, or a password was refused too "
                   L"often: "
                   L"try a longer time-out.";
        case Outcome::DeadlinePassed:
            return L"The exchange was given up because its deadline has passed; the server may have got the "
                   L"form.";
        case Outcome::Cancelled:
            return L"The exchange was cancelled; the server may have got the form.";
        case Outcome::QuitAsked:
            return L"The exchange was given up because the program is to end.";
        case Outcome::NoMemory:
            return L"There is not enough memory: take large answers into a file.";
        case Outcome::FileUnreadable:
            return L"The answer has arrived, but its file cannot be read.";
        case Outcome::NoUrl:
            return L"There is no URL to post to.";
        case Outcome::NoData:
            return L"There is no form data to post: the component sends no empty form.";
        case Outcome::FileNotWritable:
            return L"The file for the answer cannot be made, so nothing was sent: check its folder, and "
                   L"whether "
                   L"another program has it open.";
        case Outcome::Busy:
            return L"An exchange of this client is under way: wait for its end, or cancel it.";
        case Outcome::OtherThread:
            return L"The client belongs to the thread that made it: call it from there.";
        case Outcome::OtherApartment:
            return L"This thread is not one of an apartment: the component wants CoInitializeEx with "
                   L"COINIT_APARTMENTTHREADED, or a thread that nobody has initialised.";
        case Outcome::NotRegistered:
            return L"The component is not registered: run regsvr32 kvHttp.dll from an elevated prompt, or "
                   L"name the "
                   L"module's path.";
        case Outcome::ModuleNotFound:
            return L"The module kvHttp.dll is not where it should be, or cannot be loaded.";
        case Outcome::OtherBitness:
            return L"The module is for 64-bit programs: build this one for x64.";
        case Outcome::OtherModule:
            return L"The file is a library, but not the module kvHttp.dll.";
        case Outcome::NoComponent:
            break;
    }
    return L"The component could not be made.";
}

// Of a status of the component.
inline Outcome OutcomeOf(unsigned long nStatus) noexcept
{
    switch (nStatus)
    {
        case REQ_STATUS_HTTP_ERROR:
            return Outcome::Refused;
        case REQ_STATUS_IDLE:
            return Outcome::Idle;
        case REQ_STATUS_NOT_CONNECTED:
            return Outcome::NotConnected;
        case REQ_STATUS_SENDING:
        case REQ_STATUS_RECEIVING:
            return Outcome::Running;
        case REQ_STATUS_TIMEOUT:
            return Outcome::TimedOut;
        case REQ_STATUS_DONE:
            return Outcome::Done;
        default:
            return Outcome::Failed;
    }
}

}  // namespace kvHttp

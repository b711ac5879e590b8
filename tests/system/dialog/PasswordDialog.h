// The platform's dialog that asks for the user's name and password at a proxy. The numbers and texts of its
// controls are Wine's.
#pragma once

#include <windows.h>

#include <ostream>
#include <string>

struct Credentials
{
    std::wstring user;
    std::wstring password;
    bool operator==(const Credentials&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Credentials& credentials);

class CPasswordDialog
{
public:
    explicit CPasswordDialog(HWND hDialog) : m_hDialog(hDialog) {}

    // By its title and its texts.
    void ExpectAsksForProxy(const std::wstring& proxy, const std::wstring& realm) const;
    Credentials Entered() const;
    bool IsToBeSaved() const;

    // Fills in both and presses OK.
    void Enter(const Credentials& credentials) const;
    void Cancel() const;

private:
    HWND m_hDialog;
};

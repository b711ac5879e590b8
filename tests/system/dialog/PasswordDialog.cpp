#include "system/dialog/PasswordDialog.h"

#include <gmock/gmock.h>

#include "system/dialog/DesktopHost.h"

namespace
{

constexpr int kUser = 1027;
constexpr int kPassword = 1028;
constexpr int kSave = 1029;

// The text of another thread's control.
std::wstring TextOf(HWND hDialog, int controlId)
{
    wchar_t szText[256] = {};
    SendDlgItemMessageW(hDialog, controlId, WM_GETTEXT, 256, reinterpret_cast<LPARAM>(szText));
    return szText;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Credentials& credentials)
{
    return stream << testing::PrintToString(credentials.user) << " with password "
                  << testing::PrintToString(credentials.password);
}

void CPasswordDialog::ExpectAsksForProxy(const std::wstring& proxy, const std::wstring& realm) const
{
    EXPECT_EQ(CDesktopHost::TitleOf(m_hDialog), L"Enter Network Password");
    EXPECT_THAT(CDesktopHost::TextsOf(m_hDialog),
                testing::ElementsAre(L"Please enter your username and password:", L"Proxy", L"Realm", L"User",
                                     L"Password", proxy, realm, L"", L"", L"&Save this password (insecure)",
                                     L"OK", L"Cancel"));
}

Credentials CPasswordDialog::Entered() const
{
    return {TextOf(m_hDialog, kUser), TextOf(m_hDialog, kPassword)};
}

bool CPasswordDialog::IsToBeSaved() const
{
    return SendDlgItemMessageW(m_hDialog, kSave, BM_GETCHECK, 0, 0) != BST_UNCHECKED;
}

void CPasswordDialog::Enter(const Credentials& credentials) const
{
    CDesktopHost::Fill(m_hDialog, kUser, credentials.user);
    CDesktopHost::Fill(m_hDialog, kPassword, credentials.password);
    CDesktopHost::Press(m_hDialog, IDOK);
}

void CPasswordDialog::Cancel() const
{
    CDesktopHost::Press(m_hDialog, IDCANCEL);
}

#include "Checksum.h"

#include <windows.h>

#include <bcrypt.h>

#include <array>
#include <vector>

namespace
{

constexpr size_t kPiece = 1 << 20;
constexpr size_t kHashBytes = 32;

class CSha256
{
public:
    CSha256()
    {
        BCryptOpenAlgorithmProvider(&m_hAlgorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0);
        BCryptCreateHash(m_hAlgorithm, &m_hHash, nullptr, 0, nullptr, 0, 0);
    }
    ~CSha256()
    {
        BCryptDestroyHash(m_hHash);
        BCryptCloseAlgorithmProvider(m_hAlgorithm, 0);
    }
    CSha256(const CSha256&) = delete;
    CSha256& operator=(const CSha256&) = delete;

    bool Add(std::vector<unsigned char>& bytes, DWORD dwCount)
    {
        return BCryptHashData(m_hHash, bytes.data(), dwCount, 0) >= 0;
    }

    // Empty when the platform has no such algorithm.
    std::wstring Finish()
    {
        std::array<unsigned char, kHashBytes> hash = {};
        if (BCryptFinishHash(m_hHash, hash.data(), static_cast<ULONG>(hash.size()), 0) < 0)
        {
            return {};
        }
        constexpr wchar_t kDigits[] = L"0123456789abcdef";
        std::wstring text;
        for (const unsigned char byte : hash)
        {
            text += kDigits[byte >> 4];
            text += kDigits[byte & 0xF];
        }
        return text;
    }

private:
    BCRYPT_ALG_HANDLE m_hAlgorithm = nullptr;
    BCRYPT_HASH_HANDLE m_hHash = nullptr;
};

}  // namespace

std::optional<FileSummary> SummarizeFile(const std::wstring& path)
{
    const HANDLE hFile =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
    {
        return std::nullopt;
    }
    FileSummary summary;
    CSha256 hash;
    std::vector<unsigned char> piece(kPiece);
    DWORD dwRead = 0;
    bool bGood = true;
    while (bGood)
    {
        bGood = ReadFile(hFile, piece.data(), static_cast<DWORD>(piece.size()), &dwRead, nullptr) != FALSE;
        if (dwRead == 0)
        {
            break;
        }
        bGood = bGood && hash.Add(piece, dwRead);
        summary.nSize += dwRead;
    }
    CloseHandle(hFile);
    summary.strSha256 = hash.Finish();
    if (!bGood || summary.strSha256.empty())
    {
        return std::nullopt;
    }
    return summary;
}

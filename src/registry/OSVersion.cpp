#include "registry/OSVersion.h"

#include <windows.h>

#include <atomic>

namespace
{

struct SystemVersion
{
    DWORD dwPlatformId;
    DWORD dwMajor;
    DWORD dwMinor;
};

int ClassifyWindows9x(const SystemVersion& version)
{
    if (version.dwMajor != 4)
    {
        return 0;
    }
    switch (version.dwMinor)
    {
        case 0:
            return 1;
        case 10:
            return 2;
        case 90:
            return 4;
        default:
            return 0;
    }
}

int ClassifyNT(const SystemVersion& version)
{
    if (version.dwMajor < 5)
    {
        return 3;
    }
    if (version.dwMajor == 5)
    {
        switch (version.dwMinor)
        {
            case 0:
                return kOSWindows2000;
            case 1:
                return 6;
            default:
                return 0;
        }
    }
    return version.dwMajor == 6 ? kOSVista : 0;
}

int Classify(const SystemVersion& version)
{
    switch (version.dwPlatformId)
    {
        case VER_PLATFORM_WIN32_WINDOWS:
            return ClassifyWindows9x(version);
        case VER_PLATFORM_WIN32_NT:
            return ClassifyNT(version);
        default:
            return 0;
    }
}

#ifdef _MSC_VER
#pragma warning(push)
#pragma warning(disable : 4996)  // the version that the system reports to this program is what is wanted
#endif
bool QueryVersion(SystemVersion& version)
{
    OSVERSIONINFOEXW information = {};
    auto* const pPlain = reinterpret_cast<OSVERSIONINFOW*>(&information);
    pPlain->dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXW);
    if (!GetVersionExW(pPlain))
    {
        pPlain->dwOSVersionInfoSize = sizeof(OSVERSIONINFOW);
        if (!GetVersionExW(pPlain))
        {
            return false;
        }
    }
    version = {information.dwPlatformId, information.dwMajorVersion, information.dwMinorVersion};
    return true;
}
#ifdef _MSC_VER
#pragma warning(pop)
#endif

}  // namespace

int GetOSVersion()
{
    static std::atomic<int> s_class{0};
    if (s_class == 0)
    {
        SystemVersion version = {};
        if (QueryVersion(version))
        {
            s_class = Classify(version);
        }
    }
    return s_class;
}

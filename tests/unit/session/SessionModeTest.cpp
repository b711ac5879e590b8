#include "session/SessionMode.h"

#include <gtest/gtest.h>

#include <wininet.h>

#include <string>

#include "proxy/ProxyInfo.h"

namespace
{

enum Way
{
    SYSTEM,          // the system's settings, as for a browser that uses them itself
    FIREFOX_SYSTEM,  // the system's settings, because Firefox says so
    SCRIPT,          // the system's settings, then a configuration script
    DIRECT,
    LIST,  // a proxy list
};

struct ModeRow
{
    DWORD dwBrowser;
    Way ways[7];  // by proxy type 0 to 6
};

constexpr ModeRow kRows[] = {
    {BROWSER_OTHER, {SYSTEM, SYSTEM, SYSTEM, SYSTEM, SYSTEM, SYSTEM, SYSTEM}},
    {BROWSER_IE, {SYSTEM, SYSTEM, SYSTEM, SYSTEM, SYSTEM, SYSTEM, SYSTEM}},
    {BROWSER_FIREFOX, {DIRECT, LIST, SCRIPT, LIST, FIREFOX_SYSTEM, FIREFOX_SYSTEM, LIST}},
    {BROWSER_CHROME, {DIRECT, LIST, LIST, LIST, LIST, LIST, LIST}},
    {BROWSER_SAFARI, {DIRECT, LIST, LIST, LIST, LIST, LIST, LIST}},
};

TEST(SessionModeTest, FollowsBrowserAndProxyType)
{
    for (const ModeRow& row : kRows)
    {
        for (DWORD dwType = 0; dwType < 7; ++dwType)
        {
            SCOPED_TRACE("browser " + std::to_string(row.dwBrowser) + ", type " + std::to_string(dwType));
            const Way way = row.ways[dwType];
            const SessionMode mode = ChooseSessionMode(row.dwBrowser, dwType);
            const DWORD dwAccessType = way == DIRECT ? INTERNET_OPEN_TYPE_DIRECT
                                       : way == LIST ? INTERNET_OPEN_TYPE_PROXY
                                                     : INTERNET_OPEN_TYPE_PRECONFIG;
            EXPECT_EQ(mode.dwAccessType, dwAccessType);
            EXPECT_EQ(mode.bUsesProxyList, way == LIST);
            EXPECT_EQ(mode.bUsesSystemProxy, way == FIREFOX_SYSTEM || way == SCRIPT);
            EXPECT_EQ(mode.bUsesScript, way == SCRIPT);
        }
    }
}

TEST(SessionModeTest, TakesTheAccessTypesOfThePlatform)
{
    EXPECT_EQ(ChooseSessionMode(BROWSER_IE, 1).dwAccessType, 0u);
    EXPECT_EQ(ChooseSessionMode(BROWSER_FIREFOX, 0).dwAccessType, 1u);
    EXPECT_EQ(ChooseSessionMode(BROWSER_FIREFOX, 1).dwAccessType, 3u);
}

TEST(SessionModeTest, TakesAnyOtherTypeOfFirefoxForAProxyList)
{
    for (const DWORD dwType : {7ul, 99ul, 0xFFFFFFFFul})
    {
        const SessionMode mode = ChooseSessionMode(BROWSER_FIREFOX, dwType);
        EXPECT_EQ(mode.dwAccessType, DWORD{INTERNET_OPEN_TYPE_PROXY}) << "type " << dwType;
        EXPECT_TRUE(mode.bUsesProxyList) << "type " << dwType;
    }
}

}  // namespace

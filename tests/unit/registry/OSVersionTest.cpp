#include "registry/OSVersion.h"

#include <gmock/gmock.h>

#include "support/ReportedVersion.h"

namespace
{

using testing::ElementsAre;

constexpr DWORD kExtendedSize = 284;
constexpr DWORD kPlainSize = 276;
constexpr DWORD kWin32s = 0;
constexpr DWORD kWindows9x = 1;
constexpr DWORD kNT = 2;

struct VersionRow
{
    const char* label;
    DWORD dwPlatformId;
    DWORD dwMajor;
    DWORD dwMinor;
    int expected;
};

void PrintTo(const VersionRow& row, std::ostream* pStream)
{
    *pStream << "platform " << row.dwPlatformId << " version " << row.dwMajor << '.' << row.dwMinor;
}

constexpr VersionRow kRows[] = {
    {"Windows95", kWindows9x, 4, 0, 1},
    {"Windows98", kWindows9x, 4, 10, 2},
    {"WindowsMe", kWindows9x, 4, 90, 4},
    {"Windows9xOtherMinor", kWindows9x, 4, 20, 0},
    {"Windows9xMajor3", kWindows9x, 3, 0, 0},
    {"Windows9xMajor5", kWindows9x, 5, 0, 0},
    {"Windows9xMajor6", kWindows9x, 6, 0, 0},
    {"NT351", kNT, 3, 51, 3},
    {"NT40", kNT, 4, 0, 3},
    {"NT490", kNT, 4, 90, 3},
    {"NTMajor0", kNT, 0, 0, 3},
    {"NT50", kNT, 5, 0, 5},
    {"NT51", kNT, 5, 1, 6},
    {"NT52", kNT, 5, 2, 0},
    {"NT53", kNT, 5, 3, 0},
    {"NT60", kNT, 6, 0, 8},
    {"NT61", kNT, 6, 1, 8},
    {"NT62", kNT, 6, 2, 8},
    {"NT63", kNT, 6, 3, 8},
    {"NT699", kNT, 6, 99, 8},
    {"NT70", kNT, 7, 0, 0},
    {"NT100", kNT, 10, 0, 0},
    {"Win32sLike95", kWin32s, 4, 0, 0},
    {"Win32sLike61", kWin32s, 6, 1, 0},
    {"UnknownPlatform", 3, 6, 1, 0},
};

// Each row needs a process of its own, which has not worked out the class yet.
class OSVersionRowTest : public testing::TestWithParam<VersionRow>
{
};

TEST_P(OSVersionRowTest, GivesTheClassOfTheReportedVersion)
{
    const VersionRow& row = GetParam();
    CReportedVersion version(row.dwMajor, row.dwMinor, row.dwPlatformId);
    EXPECT_EQ(GetOSVersion(), row.expected) << row.label;
    EXPECT_THAT(version.m_sizes, ElementsAre(kExtendedSize)) << row.label;
}

INSTANTIATE_TEST_SUITE_P(Versions, OSVersionRowTest, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<VersionRow>& test)
                         { return std::string(test.param.label); });

TEST(OSVersionTest, NamesTheClassesThatOthersTestFor)
{
    EXPECT_EQ(kOSWindows2000, 5);
    EXPECT_EQ(kOSVista, 8);
}

TEST(OSVersionTest, KeepsAKnownClassForTheLifeOfTheProcess)
{
    CReportedVersion version(6, 1);
    EXPECT_EQ(GetOSVersion(), 8);
    version.Set(5, 1);
    EXPECT_EQ(GetOSVersion(), 8);
    version.Set(10, 0);
    EXPECT_EQ(GetOSVersion(), 8);
    EXPECT_EQ(version.m_sizes.size(), 1u);
}

TEST(OSVersionTest, WorksOutAnUnknownClassAgain)
{
    CReportedVersion version(5, 2);
    EXPECT_EQ(GetOSVersion(), 0);
    version.Set(10, 0);
    EXPECT_EQ(GetOSVersion(), 0);
    version.Set(5, 1);
    EXPECT_EQ(GetOSVersion(), 6);
    version.Set(5, 2);
    EXPECT_EQ(GetOSVersion(), 6);
    EXPECT_EQ(version.m_sizes.size(), 3u);
}

TEST(OSVersionTest, AsksForThePlainRecordWhenTheExtendedOneIsRefused)
{
    CReportedVersion version(5, 0);
    version.m_refusedSizes = {kExtendedSize};
    EXPECT_EQ(GetOSVersion(), 5);
    EXPECT_THAT(version.m_sizes, ElementsAre(kExtendedSize, kPlainSize));
}

TEST(OSVersionTest, IsUnknownWhenBothRecordsAreRefusedAndAsksAgainLater)
{
    CReportedVersion version(5, 1);
    version.m_refusedSizes = {kExtendedSize, kPlainSize};
    EXPECT_EQ(GetOSVersion(), 0);
    EXPECT_THAT(version.m_sizes, ElementsAre(kExtendedSize, kPlainSize));
    version.m_refusedSizes.clear();
    EXPECT_EQ(GetOSVersion(), 6);
}

}  // namespace

// The IDL and the header that is written by hand declare the same: identifiers, statuses, slots and types.
#include "module/declarations/Declarations.h"

#include <gtest/gtest.h>

#include <array>
#include <ostream>
#include <string>
#include <utility>

#include "kvHttp/HttpRaw.h"

namespace
{

size_t g_lastSlot = 0;

template <size_t slot>
HRESULT STDMETHODCALLTYPE Slot(void*)
{
    g_lastSlot = slot;
    return S_OK;
}

template <size_t... slots>
std::array<void*, sizeof...(slots)> MakeTable(std::index_sequence<slots...>)
{
    return {reinterpret_cast<void*>(&Slot<slots>)...};
}

struct Row
{
    const char* label;
    void (*read)(Declarations*);
    bool bCpp;
};

constexpr Row kRows[] = {{"header in C", ReadHeaderInC, false},
                         {"header in C++", ReadHeaderInCpp, true},
                         {"IDL in C", ReadIdlInC, false},
                         {"IDL in C++", ReadIdlInCpp, true}};

Declarations Read(const Row& row)
{
    Declarations declarations = {};
    row.read(&declarations);
    return declarations;
}

std::wstring Text(const GUID& guid)
{
    wchar_t szGuid[40] = {};
    StringFromGUID2(guid, szGuid, 40);
    return szGuid;
}

TEST(DeclarationsTest, HaveTheSameIdentifiers)
{
    for (const Row& row : kRows)
    {
        SCOPED_TRACE(row.label);
        const Declarations declarations = Read(row);
        EXPECT_EQ(Text(declarations.iid), L"{4C7E2B19-0D3A-4F86-B5E1-97A2C4D8E063}");
        EXPECT_EQ(Text(declarations.clsid), L"{6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2}");
        if (row.bCpp)
        {
            EXPECT_EQ(Text(declarations.uuidof), L"{4C7E2B19-0D3A-4F86-B5E1-97A2C4D8E063}");
        }
    }
}

TEST(DeclarationsTest, HaveTheSameStatuses)
{
    constexpr unsigned long kStatuses[] = {0, 1, 2, 3, 5, 6, 7, 9};
    for (const Row& row : kRows)
    {
        SCOPED_TRACE(row.label);
        const Declarations declarations = Read(row);
        for (size_t i = 0; i < std::size(kStatuses); ++i)
        {
            EXPECT_EQ(declarations.statuses[i], kStatuses[i]) << "the status number " << i;
        }
    }
}

TEST(DeclarationsTest, CallEachMethodThroughTheSameSlot)
{
    for (const Row& row : kRows)
    {
        SCOPED_TRACE(row.label);
        const Declarations declarations = Read(row);
        for (size_t i = 0; i < KVHTTP_METHODS; ++i)
        {
            EXPECT_EQ(declarations.slots[i].slot, i) << declarations.slots[i].pszMethod;
        }
    }
}

TEST(DeclarationsTest, GiveEachMethodTheSameType)
{
    const Declarations header = Read({"", ReadHeaderInCpp, true});
    const Declarations idl = Read({"", ReadIdlInCpp, true});
    for (size_t i = 0; i < KVHTTP_METHODS; ++i)
    {
        EXPECT_STREQ(idl.types[i], header.types[i]) << header.slots[i].pszMethod;
    }
}

}  // namespace

void* ObjectOfSlots()
{
    static auto s_table = MakeTable(std::make_index_sequence<KVHTTP_METHODS>());
    static void* s_pObject = s_table.data();
    return &s_pObject;
}

size_t LastSlot()
{
    return std::exchange(g_lastSlot, SIZE_MAX);
}

// The type library as a tool that imports one reads it.
#include <gtest/gtest.h>

#include <oleauto.h>

#include <string>
#include <vector>

#include "kvHttp/HttpRaw.h"
#include "module/com/ServerModule.h"

namespace
{

struct Method
{
    std::wstring name;
    int slot;
    std::vector<VARTYPE> types;  // of the arguments; VT_BYREF stands for a pointer
    bool operator==(const Method&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Method& method)
{
    stream << method.slot << ' ' << testing::PrintToString(method.name);
    for (const VARTYPE type : method.types)
    {
        stream << ' ' << type;
    }
    return stream;
}

VARTYPE TypeOf(const TYPEDESC& type)
{
    return type.vt == VT_PTR ? static_cast<VARTYPE>(VT_BYREF | type.lptdesc->vt) : type.vt;
}

class TypeLibraryTest : public testing::Test
{
protected:
    TypeLibraryTest()
    {
        const std::wstring module = CServerModule::BuiltPath();
        const std::wstring path = module.substr(0, module.rfind(L'.')) + L".tlb";
        EXPECT_EQ(LoadTypeLibEx(path.c_str(), REGKIND_NONE, &m_pLibrary), S_OK);
    }
    ~TypeLibraryTest() override
    {
        Forget();
        if (m_pLibrary != nullptr)
        {
            m_pLibrary->Release();
        }
    }

    void Forget()
    {
        if (m_pInfo != nullptr)
        {
            m_pInfo->ReleaseTypeAttr(m_pAttributes);
            m_pInfo->Release();
            m_pInfo = nullptr;
        }
    }

    // Goes to the type of that name.
    void Find(const wchar_t* pszName)
    {
        Forget();
        std::wstring name(pszName);
        MEMBERID id = 0;
        USHORT count = 1;
        ASSERT_NE(m_pLibrary, nullptr);
        ASSERT_EQ(m_pLibrary->FindName(name.data(), 0, &m_pInfo, &id, &count), S_OK);
        ASSERT_EQ(count, 1) << "there is no such type";
        ASSERT_EQ(m_pInfo->GetTypeAttr(&m_pAttributes), S_OK);
    }

    std::wstring NameOf(MEMBERID id) const
    {
        BSTR bstrName = nullptr;
        m_pInfo->GetDocumentation(id, &bstrName, nullptr, nullptr, nullptr);
        const std::wstring name(bstrName, SysStringLen(bstrName));
        SysFreeString(bstrName);
        return name;
    }

    Method MethodAt(UINT index) const
    {
        FUNCDESC* pFunction = nullptr;
        EXPECT_EQ(m_pInfo->GetFuncDesc(index, &pFunction), S_OK);
        Method method = {NameOf(pFunction->memid), pFunction->oVft / static_cast<int>(sizeof(void*)), {}};
        EXPECT_EQ(pFunction->funckind, FUNC_PUREVIRTUAL) << index;
        EXPECT_EQ(pFunction->elemdescFunc.tdesc.vt, VT_HRESULT) << index;
        for (SHORT i = 0; i < pFunction->cParams; ++i)
        {
            method.types.push_back(TypeOf(pFunction->lprgelemdescParam[i].tdesc));
        }
        m_pInfo->ReleaseFuncDesc(pFunction);
        return method;
    }

    ITypeLib* m_pLibrary = nullptr;
    ITypeInfo* m_pInfo = nullptr;
    TYPEATTR* m_pAttributes = nullptr;
};

TEST_F(TypeLibraryTest, HasTheMethodsOfTheHeader)
{
    const Method methods[] = {{L"PostRequest", 3, {VT_LPWSTR, VT_LPWSTR}},
                              {L"PostUrl", 4, {VT_LPWSTR}},
                              {L"GetRequestStatus", 5, {VT_BYREF | VT_UI4}},
                              {L"GetResponseData", 6, {VT_BYREF | VT_BSTR}},
                              {L"SetDownloadFile", 7, {VT_LPWSTR}},
                              {L"SetParentWnd", 8, {VT_I8}},
                              {L"SetTimeout", 9, {VT_UI4}},
                              {L"SetTraceResponse", 10, {VT_UI4}}};
    ASSERT_NO_FATAL_FAILURE(Find(L"IHttpRaw"));
    EXPECT_TRUE(IsEqualGUID(m_pAttributes->guid, IID_IHttpRaw));
    EXPECT_EQ(m_pAttributes->typekind, TKIND_INTERFACE);
    EXPECT_EQ(m_pAttributes->cbSizeVft, 11 * sizeof(void*));
    ASSERT_EQ(m_pAttributes->cFuncs, std::size(methods));
    for (UINT i = 0; i < std::size(methods); ++i)
    {
        EXPECT_EQ(MethodAt(i), methods[i]);
    }
}

TEST_F(TypeLibraryTest, SaysWhichClassHasTheInterface)
{
    ASSERT_NO_FATAL_FAILURE(Find(L"HttpRaw"));
    EXPECT_EQ(m_pAttributes->typekind, TKIND_COCLASS);
    EXPECT_TRUE(IsEqualGUID(m_pAttributes->guid, CLSID_HttpRaw));
    HREFTYPE reference = 0;
    ITypeInfo* pInterface = nullptr;
    ASSERT_EQ(m_pInfo->GetRefTypeOfImplType(0, &reference), S_OK);
    ASSERT_EQ(m_pInfo->GetRefTypeInfo(reference, &pInterface), S_OK);
    BSTR bstrName = nullptr;
    pInterface->GetDocumentation(MEMBERID_NIL, &bstrName, nullptr, nullptr, nullptr);
    EXPECT_STREQ(bstrName, L"IHttpRaw");
    SysFreeString(bstrName);
    pInterface->Release();
}

TEST_F(TypeLibraryTest, HasTheStatusesOfTheHeader)
{
    const std::pair<const wchar_t*, unsigned long> statuses[] = {
        {L"REQ_STATUS_HTTP_ERROR", REQ_STATUS_HTTP_ERROR},
        {L"REQ_STATUS_IDLE", REQ_STATUS_IDLE},
        {L"REQ_STATUS_FAILED", REQ_STATUS_FAILED},
        {L"REQ_STATUS_NOT_CONNECTED", REQ_STATUS_NOT_CONNECTED},
        {L"REQ_STATUS_SENDING", REQ_STATUS_SENDING},
        {L"REQ_STATUS_RECEIVING", REQ_STATUS_RECEIVING},
        {L"REQ_STATUS_TIMEOUT", REQ_STATUS_TIMEOUT},
        {L"REQ_STATUS_DONE", REQ_STATUS_DONE}};
    ASSERT_NO_FATAL_FAILURE(Find(L"HttpRequestStatus"));
    EXPECT_EQ(m_pAttributes->typekind, TKIND_ENUM);
    ASSERT_EQ(m_pAttributes->cVars, std::size(statuses));
    for (UINT i = 0; i < std::size(statuses); ++i)
    {
        VARDESC* pVariable = nullptr;
        ASSERT_EQ(m_pInfo->GetVarDesc(i, &pVariable), S_OK);
        EXPECT_EQ(NameOf(pVariable->memid), statuses[i].first);
        EXPECT_EQ(static_cast<unsigned long>(pVariable->lpvarValue->lVal), statuses[i].second);
        m_pInfo->ReleaseVarDesc(pVariable);
    }
}

}  // namespace

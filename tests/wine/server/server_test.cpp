// The COM server as a host sees it: registered by regsvr32, created by ProgID, called through its
// vtable and through IDispatch, unloadable once released, and unregistered without a trace.

#include "corvid_h.h"
#include "platform/win/handles.h"
#include "resources/string_table.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using corvid::win::Bstr;
using corvid::win::ComPtr;

constexpr wchar_t kClsidText[] = L"{96427893-8DB4-42C5-9DAC-1E0110672A4D}";
constexpr wchar_t kLibidText[] = L"{C3B485C2-8160-4AA6-9BFE-5DBBEDF42504}";

std::wstring BesideThisProgram(const wchar_t* name) {
    wchar_t path[MAX_PATH] = {};
    DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring result(path, length);
    return result.substr(0, result.find_last_of(L"\\/") + 1) + name;
}

std::wstring ServerPath() {
    return BesideThisProgram(L"Corvid.dll");
}

// Runs regsvr32 silently on the server and returns its exit code.
DWORD RunRegsvr32(bool unregister) {
    std::wstring command = L"regsvr32.exe /s ";
    if (unregister) {
        command += L"/u ";
    }
    command += L"\"" + ServerPath() + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process)) {
        return ::GetLastError() | 0x80000000u;
    }
    corvid::win::KernelHandle processHandle(process.hProcess);
    corvid::win::KernelHandle threadHandle(process.hThread);
    ::WaitForSingleObject(process.hProcess, 60000);
    DWORD code = 0xFFFFFFFFu;
    ::GetExitCodeProcess(process.hProcess, &code);
    return code;
}

// The string value of a key under HKEY_CLASSES_ROOT, or nothing when absent.
std::optional<std::wstring> ClassesValue(const std::wstring& key, const wchar_t* name = nullptr) {
    wchar_t data[1024] = {};
    DWORD size = sizeof data;
    LONG status =
        ::RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), name, RRF_RT_REG_SZ, nullptr, data, &size);
    if (status != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return std::wstring(data);
}

bool ClassesKeyExists(const std::wstring& key) {
    corvid::win::RegKey handle;
    return ::RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, handle.put()) ==
           ERROR_SUCCESS;
}

class RegisteredServer : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(apartment_.result()));
        ASSERT_EQ(RunRegsvr32(false), 0u);
    }
    void TearDown() override { EXPECT_EQ(RunRegsvr32(true), 0u); }

    corvid::win::ComApartment apartment_;
};

TEST_F(RegisteredServer, WritesTheClassProgIdsTypeLibraryAndPlugInValue) {
    const std::wstring classKey = std::wstring(L"CLSID\\") + kClsidText;
    EXPECT_EQ(ClassesValue(classKey), L"P2PView Class");
    auto server = ClassesValue(classKey + L"\\InprocServer32");
    ASSERT_TRUE(server.has_value());
    EXPECT_EQ(::lstrcmpiW(server->c_str(), ServerPath().c_str()), 0) << *server;
    EXPECT_EQ(ClassesValue(classKey + L"\\InprocServer32", L"ThreadingModel"), L"Apartment");
    EXPECT_EQ(ClassesValue(classKey + L"\\ProgID"), L"Corvid.P2PView.1");
    EXPECT_EQ(ClassesValue(classKey + L"\\VersionIndependentProgID"), L"Corvid.P2PView");
    EXPECT_TRUE(ClassesKeyExists(classKey + L"\\Programmable"));
    EXPECT_EQ(ClassesValue(classKey + L"\\TypeLib"), kLibidText);

    EXPECT_EQ(ClassesValue(L"Corvid.P2PView.1"), L"P2PView Class");
    EXPECT_EQ(ClassesValue(L"Corvid.P2PView.1\\CLSID"), kClsidText);
    EXPECT_EQ(ClassesValue(L"Corvid.P2PView"), L"P2PView Class");
    EXPECT_EQ(ClassesValue(L"Corvid.P2PView\\CLSID"), kClsidText);
    EXPECT_EQ(ClassesValue(L"Corvid.P2PView\\CurVer"), L"Corvid.P2PView.1");

    EXPECT_EQ(ClassesValue(L"Software\\Tarvo Explorer\\PlugIns", kClsidText), L"Corvid");
    EXPECT_TRUE(ClassesKeyExists(std::wstring(L"TypeLib\\") + kLibidText + L"\\1.0"));
}

TEST_F(RegisteredServer, CreatesByProgIdThroughCurVerAndSearchesThroughVtableAndDispatch) {
    auto current = ClassesValue(L"Corvid.P2PView\\CurVer");
    ASSERT_TRUE(current.has_value());
    CLSID clsid = {};
    ASSERT_EQ(::CLSIDFromProgID(current->c_str(), &clsid), S_OK);
    EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_P2PView));
    CLSID independent = {};
    ASSERT_EQ(::CLSIDFromProgID(L"Corvid.P2PView", &independent), S_OK);
    EXPECT_TRUE(IsEqualCLSID(independent, CLSID_P2PView));

    ComPtr<IP2PView> view;
    ASSERT_EQ(
        ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IP2PView, view.put_void()),
        S_OK);

    HMODULE server = ::GetModuleHandleW(L"Corvid.dll");
    ASSERT_NE(server, nullptr);
    auto canUnloadNow =
        corvid::win::ProcAddress<HRESULT(STDAPICALLTYPE*)()>(server, "DllCanUnloadNow");
    ASSERT_NE(canUnloadNow, nullptr);
    EXPECT_EQ(canUnloadNow(), S_FALSE) << "an object is alive";

    Bstr keywords(L"free music");
    Bstr type(L"Audio");
    EXPECT_EQ(view->SearchOnP2P(keywords.get(), type.get()), S_OK);
    EXPECT_EQ(view->SearchOnP2P(nullptr, nullptr), S_OK);

    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(view.As(IID_IDispatch, dispatch), S_OK);
    UINT count = 0;
    EXPECT_EQ(dispatch->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    LPOLESTR name = const_cast<LPOLESTR>(L"SearchOnP2P");
    DISPID id = DISPID_UNKNOWN;
    ASSERT_EQ(dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id), S_OK);
    VARIANT arguments[2];
    // DISPPARAMS lists arguments last first.
    ::VariantInit(&arguments[0]);
    arguments[0].vt = VT_BSTR;
    arguments[0].bstrVal = type.get();
    ::VariantInit(&arguments[1]);
    arguments[1].vt = VT_BSTR;
    arguments[1].bstrVal = keywords.get();
    DISPPARAMS params = {arguments, nullptr, 2, 0};
    EXPECT_EQ(dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                               nullptr, nullptr),
              S_OK);

    dispatch.reset();
    view.reset();
    EXPECT_EQ(canUnloadNow(), S_OK) << "every object is released";
}

TEST_F(RegisteredServer, RefusesAggregationAndUnknownClasses) {
    ComPtr<IUnknown> outer;
    ComPtr<IUnknown> object;
    ASSERT_EQ(::CoCreateInstance(CLSID_P2PView, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                 outer.put_void()),
              S_OK);
    EXPECT_EQ(::CoCreateInstance(CLSID_P2PView, outer.get(), CLSCTX_INPROC_SERVER, IID_IUnknown,
                                 object.put_void()),
              CLASS_E_NOAGGREGATION);
    EXPECT_FALSE(object);

    corvid::win::Module server(::LoadLibraryW(ServerPath().c_str()));
    ASSERT_TRUE(server);
    auto getClassObject =
        corvid::win::ProcAddress<HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**)>(
            server.get(), "DllGetClassObject");
    ASSERT_NE(getClassObject, nullptr);
    void* factory = reinterpret_cast<void*>(1);
    EXPECT_EQ(getClassObject(IID_IP2PView, IID_IClassFactory, &factory), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(factory, nullptr) << "out-parameters are cleared first";
}

TEST(ServerModule, UnregistrationRemovesItsKeysButNotTheHostsPlugInsKey) {
    corvid::win::ComApartment apartment;
    ASSERT_EQ(RunRegsvr32(false), 0u);
    ASSERT_EQ(RunRegsvr32(true), 0u);
    EXPECT_FALSE(ClassesKeyExists(std::wstring(L"CLSID\\") + kClsidText));
    EXPECT_FALSE(ClassesKeyExists(L"Corvid.P2PView.1"));
    EXPECT_FALSE(ClassesKeyExists(L"Corvid.P2PView"));
    EXPECT_FALSE(ClassesKeyExists(std::wstring(L"TypeLib\\") + kLibidText));
    EXPECT_TRUE(ClassesKeyExists(L"Software\\Tarvo Explorer\\PlugIns"));
    EXPECT_FALSE(ClassesValue(L"Software\\Tarvo Explorer\\PlugIns", kClsidText).has_value());
    EXPECT_EQ(RunRegsvr32(true), 0u) << "unregistering twice is harmless";
}

TEST(ServerModule, EmbedsTheTypeLibraryWithItsExactLibid) {
    ComPtr<ITypeLib> library;
    ASSERT_EQ(::LoadTypeLibEx(ServerPath().c_str(), REGKIND_NONE, library.put()), S_OK);
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);
    GUID expected = {};
    ASSERT_EQ(::CLSIDFromString(kLibidText, &expected), S_OK);
    EXPECT_TRUE(IsEqualGUID(attributes->guid, expected));
    library->ReleaseTLibAttr(attributes);

    ComPtr<ITypeInfo> events;
    EXPECT_EQ(library->GetTypeInfoOfGuid(DIID__IP2PViewEvents, events.put()), S_OK);
}

TEST(ServerModule, CarriesTheBuiltInStringTable) {
    corvid::win::Module server(
        ::LoadLibraryExW(ServerPath().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
    ASSERT_TRUE(server);
    for (const auto& entry : corvid::BuiltinStrings()) {
        char text[4096] = {};
        int length = ::LoadStringA(server.get(), entry.id, text, sizeof text);
        EXPECT_EQ(std::string(text, length), entry.text) << "string " << entry.id;
    }
}

} // namespace

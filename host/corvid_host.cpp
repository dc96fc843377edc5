// The standalone host: plays the browser's part so the plug-in runs without it. For now it
// creates the plug-in by its ProgID and starts a search through the scriptable interface, as
// the plug-in's home page does, reporting each step.

#include "corvid_h.h"
#include "platform/win/handles.h"
#include "platform/win/text.h"

#include <cstdio>
#include <string>

namespace {

using corvid::win::Bstr;
using corvid::win::ComPtr;

std::string HresultText(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
    return text;
}

int Search(const std::wstring& keywords, const std::wstring& type) {
    corvid::win::ComApartment apartment;
    if (FAILED(apartment.result())) {
        std::printf("COM could not start: %s\n", HresultText(apartment.result()).c_str());
        return 1;
    }
    CLSID clsid = {};
    HRESULT hr = ::CLSIDFromProgID(L"Corvid.P2PView", &clsid);
    if (FAILED(hr)) {
        std::printf("Corvid.P2PView is not registered (%s)\n", HresultText(hr).c_str());
        return 1;
    }
    wchar_t clsidText[40] = {};
    ::StringFromGUID2(clsid, clsidText, 40);
    std::printf("Corvid.P2PView is class %s\n",
                corvid::win::ToAnsi(clsidText, ::lstrlenW(clsidText)).c_str());

    ComPtr<IP2PView> view;
    hr = ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IP2PView, view.put_void());
    if (FAILED(hr)) {
        std::printf("creating P2PView failed (%s)\n", HresultText(hr).c_str());
        return 1;
    }
    std::printf("created P2PView in process\n");

    Bstr keywordText(keywords.c_str());
    Bstr typeText(type.c_str());
    hr = view->SearchOnP2P(keywordText.get(), typeText.get());
    std::printf("SearchOnP2P(\"%s\", \"%s\") returned %s\n",
                corvid::win::BstrToAnsi(keywordText.get()).c_str(),
                corvid::win::BstrToAnsi(typeText.get()).c_str(), HresultText(hr).c_str());
    view.reset();
    std::printf("released P2PView\n");
    return SUCCEEDED(hr) ? 0 : 1;
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc >= 3 && std::wstring(argv[1]) == L"search") {
        return Search(argv[2], argc >= 4 ? argv[3] : L"All");
    }
    std::printf("usage: corvid-host search KEYWORDS [TYPE]\n");
    return 2;
}

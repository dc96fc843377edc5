#pragma once

// Stand-ins for the engine's search object and the file manager, for driving a result window
// without an engine: the search object fires whatever texts a test hands it.

#include <windows.h>

#include "platform/win/text.h"
#include "search/win/search_window.h"
#include "tests/wine/support/engine_fakes.h"

#include <map>
#include <string>
#include <vector>

namespace corvid::testing {

// An engine that only searches and browses: both hand out a FakeSearch and remember what they
// were asked.
class FakeEngine : public EngineStub<FakeEngine> {
public:
    HRESULT STDMETHODCALLTYPE CreateSearch(BSTR keywords, BSTR type, long, long, long, long,
                                           IGnutellaSearch** search) override {
        searched.push_back(win::BstrToAnsi(keywords) + "/" + win::BstrToAnsi(type));
        lastSearch = FakeSearch::Make();
        lastSearch->AddRef();
        *search = lastSearch.get();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BrowseHost(BSTR address, IGnutellaSearch** browse) override {
        browsed.push_back(win::BstrToAnsi(address));
        lastBrowse = FakeSearch::Make();
        lastBrowse->AddRef();
        *browse = lastBrowse.get();
        return S_OK;
    }

    std::vector<std::string> searched;
    win::ComPtr<FakeSearch> lastSearch;
    std::vector<std::string> browsed;
    win::ComPtr<FakeSearch> lastBrowse;
};

class FakeFileManager : public FileManagerStub<FakeFileManager> {
public:
    HRESULT STDMETHODCALLTYPE FindBySha1(BSTR sha1, BSTR* path) override {
        asked.push_back(win::BstrToAnsi(sha1));
        auto found = onDisk.find(asked.back());
        *path =
            found == onDisk.end() ? nullptr : ::SysAllocString(win::ToWide(found->second).c_str());
        return S_OK;
    }

    std::map<std::string, std::string> onDisk;
    std::vector<std::string> asked;
};

// The window's dialogs, recorded instead of shown.
struct DialogLog {
    std::vector<std::string> alreadyOnDisk;
    std::vector<std::pair<std::string, int>> properties; // group SHA1, source index
};

class RecordingDialogs : public search::ResultDialogs {
public:
    explicit RecordingDialogs(DialogLog& log) : log_(log) {}
    void AlreadyOnDisk(HWND, const std::string& path) override {
        log_.alreadyOnDisk.push_back(path);
    }
    void Properties(HWND, const ResultGroup& group, int sourceIndex) override {
        log_.properties.emplace_back(group.sha1, sourceIndex);
    }

private:
    DialogLog& log_;
};

} // namespace corvid::testing

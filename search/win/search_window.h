#pragma once

// The search side's windows, as the main view uses them:
//
//   MakeSearchWindow(site, search, keywords, type)
//       a result window for one running search, opened as a tab through PanelSite::OpenTab
//       (from SearchOnP2P, which then starts the search). The window listens to the search
//       object's OnSearchResult texts from the moment it is made.
//   MakeBrowseHostTab(site, address)
//       the tab for message 2028: address is "http://host:port"; the tab asks the engine to
//       browse that host and lists its files. Null when the address or the engine is missing.
//   AskBrowseHost(owner, language, url)          (search/win/search_dialogs.h)
//       the "Input Host Address" dialog of the p2p_browse_host command.
//
// The "Window" menu's list of search windows is the shell's (it lists panels whose
// IsSearchWindow() holds, by Title()).
//
// Choices the window makes: a click on a column's header sorts by that column, ascending, and a
// second click on the same header reverses the order; the list is sorted again at every refresh
// that brings new results; with "Search ShowDownloaded" clear (its default) files handed to the
// download list leave the result list, with it set they stay; the refine box above the list
// narrows the shown files by words in their names without touching the store; closing a window
// stops its search.

// Before the wrappers: they need the types <windows.h> defines.
#include <windows.h>

#include "platform/win/handles.h"
#include "platform/win/window.h"
#include "search/search_window_model.h"
#include "shell/win/panel.h"

#include <commctrl.h>
#include <ocidl.h>

#include <memory>
#include <string>
#include <vector>

struct IGnutellaSearch;

namespace corvid::search {

class SearchEventSink;

// The dialogs a result window shows; tests record them instead of running modal loops.
class ResultDialogs {
public:
    virtual ~ResultDialogs() = default;
    // Dialog 339 for a file the library already holds.
    virtual void AlreadyOnDisk(HWND owner, const std::string& path) = 0;
    // Dialog 207 for one source of a group (-1: the group's first source).
    virtual void Properties(HWND owner, const ResultGroup& group, int sourceIndex) = 0;
};

// The modal dialogs themselves.
std::unique_ptr<ResultDialogs> MakeModalResultDialogs(const LanguageTable& language);

class ResultWindow : public shell::Panel,
                     private win::WindowBase,
                     private ResultHandOver,
                     private SearchControl {
public:
    enum class Kind { Search, BrowseHost };
    static constexpr UINT_PTR kRefreshTimer = 1;
    static constexpr UINT kRefreshPeriodMs = 3000;

    // search may be null (a window that only shows what it is given). dialogs null: the modal
    // ones.
    ResultWindow(shell::PanelSite& site, IGnutellaSearch* search, std::string keywords,
                 std::string type, Kind kind = Kind::Search,
                 std::unique_ptr<ResultDialogs> dialogs = nullptr);
    ~ResultWindow() override;

    // shell::Panel
    bool Create(HWND parent) override;
    HWND Window() const override { return hwnd(); }
    std::string Title() const override;
    void OnShow(bool shown) override;
    bool OnEditCommand(const std::string& name) override;
    void OnSettingsChanged() override;
    void ApplyLanguage() override;
    std::string SearchKeywords() const override { return keywords_; }
    bool IsSearchWindow() const override { return kind_ == Kind::Search; }

    // One text of the search's OnSearchResult event.
    void OnResultText(const std::string& text);
    // The search tab's menu (202) at a screen point; the chosen command is carried out.
    bool ShowTabMenu(POINT screen) override;

    HWND List() const { return list_; }
    HWND FilterBox() const { return filter_; }
    const SearchWindowModel& Model() const { return model_; }
    const std::string& Type() const { return type_; }

private:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;
    LRESULT OnNotify(NMHDR* header);
    void OnCommand(int id);
    void Layout();
    void AddColumns();
    void SetColumnTitles();

    void Refresh();
    // Rebuilds the list view from the model after the rows changed, keeping the selection on the
    // same results where they are still shown.
    struct Selection {
        std::vector<ResultRow> selected;
        ResultRow focused;
    };
    Selection SaveSelection() const;
    void ShowRows(const Selection& before, ResultRow fallbackFocus = {});
    std::vector<int> SelectedPositions() const;
    int FocusedPosition() const;

    bool OnListKey(UINT key, bool alt);
    bool IsOnBox(int position, POINT client) const;
    void Toggle(int position);
    void ShowContextMenu(POINT screen);
    void DrawHeaderArrow(HWND header, HDC dc);
    LRESULT OnCustomDraw(NMLVCUSTOMDRAW* draw);
    void FillCell(NMLVDISPINFOA* info);

    void Download();
    void BrowseHost();
    void ShowProperties();

    // ResultHandOver
    std::string PathOnDisk(const std::string& sha1) override;
    void ShowAlreadyOnDisk(const std::string& path) override;
    bool StartDownload(const ResultGroup& group) override;
    bool AnyDownloads() override;
    void OfferHit(const std::string& sha1, const ResultSource& source) override;
    // SearchControl, over the engine's search object
    void Stop() override;
    void Restart() override;

    static LRESULT CALLBACK ListProcedure(HWND, UINT, WPARAM, LPARAM, UINT_PTR, DWORD_PTR);
    static LRESULT CALLBACK HeaderProcedure(HWND, UINT, WPARAM, LPARAM, UINT_PTR, DWORD_PTR);

    shell::PanelSite& site_;
    win::ComPtr<IGnutellaSearch> search_;
    win::ComPtr<IConnectionPoint> point_;
    win::ComPtr<SearchEventSink> sink_;
    DWORD cookie_ = 0;
    std::string keywords_;
    std::string type_;
    Kind kind_;
    std::unique_ptr<ResultDialogs> dialogs_;
    SearchWindowModel model_;
    HWND list_ = nullptr;
    HWND filter_ = nullptr;
    HWND filterLabel_ = nullptr;
    HIMAGELIST arrows_ = nullptr;
    HIMAGELIST smallIcons_ = nullptr;
    int shownCount_ = -1;
};

std::unique_ptr<shell::Panel> MakeSearchWindow(shell::PanelSite& site, IGnutellaSearch* search,
                                               const std::string& keywords,
                                               const std::string& type);
std::unique_ptr<shell::Panel> MakeBrowseHostTab(shell::PanelSite& site, const std::string& address);

} // namespace corvid::search

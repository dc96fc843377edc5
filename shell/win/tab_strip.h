#pragma once

// The strip of tabs over (or under) the panels: painted from the skin's tab bar and tab states,
// drawn as tabs or as push buttons, reordered by dragging, with the host's click actions. It
// knows panels only as keys and titles; the main view decides what a selection means.

#include "platform/win/window.h"
#include "shell/settings.h"
#include "shell/win/skin_painter.h"

#include <string>
#include <vector>

namespace corvid::shell {

class Panel;

class TabStripOwner {
public:
    virtual ~TabStripOwner() = default;
    virtual void OnTabSelected(Panel* panel) = 0;
    virtual void OnTabCloseRequested(Panel* panel) = 0;
    // A right click on a tab; screen is where the button went up.
    virtual void OnTabMenuRequested(Panel* panel, POINT screen) = 0;
};

class TabStrip : public win::WindowBase {
public:
    explicit TabStrip(TabStripOwner& owner) : owner_(owner) {}

    bool Create(HWND parent);

    void Add(Panel* panel, std::string title, bool closable);
    void Remove(Panel* panel);
    // Selects without telling the owner (the owner asked for it).
    void Select(Panel* panel);
    void SetTitle(Panel* panel, std::string title);

    Panel* Selected() const { return selected_; }
    std::size_t Count() const { return tabs_.size(); }
    Panel* At(std::size_t index) const { return tabs_[index].panel; }
    const std::string& TitleAt(std::size_t index) const { return tabs_[index].title; }
    // Where tab `index` is drawn, in the strip's client coordinates.
    RECT TabRect(std::size_t index) const;

    // The tab settings: push-like buttons, which edge the tabs hang from, the click actions.
    void Apply(const TabSettings& settings);
    void SetSkin(const SkinRecord& skin);
    int PreferredHeight() const;

protected:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    struct Tab {
        Panel* panel;
        std::string title;
        bool closable;
        int width = 0;
    };

    int IndexOf(Panel* panel) const;
    int HitTest(POINT point) const;
    bool InCloseBox(std::size_t index, POINT point) const;
    void Measure();
    void Paint(HDC dc);
    void Choose(int index);

    TabStripOwner& owner_;
    std::vector<Tab> tabs_;
    Panel* selected_ = nullptr;
    TabSettings settings_;
    SkinRecord skin_ = DefaultSkin();
    SkinPainter painter_;
    int pressed_ = -1;
};

} // namespace corvid::shell

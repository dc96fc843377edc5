#pragma once

// The one window-procedure pattern: a C++ object per window, `this` stored at WM_NCCREATE, every
// message handed to the object's virtual HandleMessage. The object owns its window: destroying
// the object destroys the window, and a window destroyed first leaves the object without one.

#include <windows.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace corvid::win {

class WindowBase {
public:
    WindowBase() = default;
    WindowBase(const WindowBase&) = delete;
    WindowBase& operator=(const WindowBase&) = delete;
    virtual ~WindowBase();

    HWND hwnd() const { return hwnd_; }

    // The object behind a window made by this pattern, or null for any other window.
    static WindowBase* FromHandle(HWND hwnd);

protected:
    // Registers the class once per process (under this binary's instance) and creates the
    // window. Returns null on failure, with GetLastError set.
    HWND Create(const char* className, const char* title, DWORD style, DWORD exStyle, HWND parent,
                const RECT& rect, HMENU menuOrId = nullptr, UINT classStyle = CS_DBLCLKS,
                HBRUSH background = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1));

    // Everything the window receives; the default hands it to DefWindowProc.
    virtual LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT Default(UINT message, WPARAM wParam, LPARAM lParam) {
        return ::DefWindowProcA(hwnd_, message, wParam, lParam);
    }

    // After WM_NCDESTROY: the window is gone, the object lives on until its owner ends it.
    virtual void OnWindowGone() {}

private:
    static LRESULT CALLBACK Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

    HWND hwnd_ = nullptr;
};

// A message-only window that runs posted closures on the thread that created it: how other
// threads (the engine's network thread, the download worker) reach the user-interface thread.
// A Poster may outlive the window: what it posts afterwards is dropped, never run.
class UiDispatcher : public WindowBase {
public:
    class Poster {
    public:
        Poster() = default;
        // Any thread. False when the dispatcher is gone and the work was dropped.
        bool Post(std::function<void()> work) const;

    private:
        friend class UiDispatcher;
        struct State;
        explicit Poster(std::shared_ptr<State> state) : state_(std::move(state)) {}
        std::shared_ptr<State> state_;
    };

    UiDispatcher();
    ~UiDispatcher() override;

    Poster poster() const { return Poster(state_); }

    // Runs what is queued now, on the calling (creating) thread; Wine tests and shut-down use it.
    void RunPending();

protected:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    std::shared_ptr<Poster::State> state_;
};

} // namespace corvid::win

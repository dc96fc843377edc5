#include "platform/win/window.h"

#include "platform/win/module.h"

namespace corvid::win {

WindowBase::~WindowBase() {
    if (hwnd_) {
        HWND hwnd = hwnd_;
        ::SetWindowLongPtrA(hwnd, GWLP_USERDATA, 0);
        hwnd_ = nullptr;
        ::DestroyWindow(hwnd);
    }
}

WindowBase* WindowBase::FromHandle(HWND hwnd) {
    if (!hwnd ||
        ::GetWindowLongPtrA(hwnd, GWLP_WNDPROC) != reinterpret_cast<LONG_PTR>(&Procedure)) {
        return nullptr;
    }
    return reinterpret_cast<WindowBase*>(::GetWindowLongPtrA(hwnd, GWLP_USERDATA));
}

HWND WindowBase::Create(const char* className, const char* title, DWORD style, DWORD exStyle,
                        HWND parent, const RECT& rect, HMENU menuOrId, UINT classStyle,
                        HBRUSH background) {
    HINSTANCE instance = ModuleHandle();
    WNDCLASSEXA existing = {};
    existing.cbSize = sizeof existing;
    if (!::GetClassInfoExA(instance, className, &existing)) {
        WNDCLASSEXA windowClass = {};
        windowClass.cbSize = sizeof windowClass;
        windowClass.style = classStyle;
        windowClass.lpfnWndProc = &Procedure;
        windowClass.hInstance = instance;
        windowClass.hCursor = ::LoadCursor(nullptr, IDC_ARROW);
        windowClass.hbrBackground = background;
        windowClass.lpszClassName = className;
        if (!::RegisterClassExA(&windowClass) && ::GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
            return nullptr;
        }
    }
    return ::CreateWindowExA(exStyle, className, title, style, rect.left, rect.top,
                             rect.right - rect.left, rect.bottom - rect.top, parent, menuOrId,
                             instance, this);
}

LRESULT WindowBase::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    return Default(message, wParam, lParam);
}

LRESULT CALLBACK WindowBase::Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    WindowBase* self = nullptr;
    if (message == WM_NCCREATE) {
        self = static_cast<WindowBase*>(reinterpret_cast<CREATESTRUCTA*>(lParam)->lpCreateParams);
        self->hwnd_ = hwnd;
        ::SetWindowLongPtrA(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    } else {
        self = reinterpret_cast<WindowBase*>(::GetWindowLongPtrA(hwnd, GWLP_USERDATA));
    }
    if (!self) {
        return ::DefWindowProcA(hwnd, message, wParam, lParam);
    }
    LRESULT result = self->HandleMessage(message, wParam, lParam);
    if (message == WM_NCDESTROY) {
        ::SetWindowLongPtrA(hwnd, GWLP_USERDATA, 0);
        self->hwnd_ = nullptr;
        self->OnWindowGone();
    }
    return result;
}

struct UiDispatcher::Poster::State {
    std::mutex lock;
    HWND hwnd = nullptr;
    bool wakePending = false;
    std::deque<std::function<void()>> queue;
};

namespace {
constexpr UINT kRunPosted = WM_APP + 1;
} // namespace

bool UiDispatcher::Poster::Post(std::function<void()> work) const {
    if (!state_) {
        return false;
    }
    std::lock_guard<std::mutex> guard(state_->lock);
    if (!state_->hwnd) {
        return false;
    }
    state_->queue.push_back(std::move(work));
    // One wake-up message for any number of closures: a burst cannot flood the message queue.
    if (!state_->wakePending) {
        state_->wakePending = ::PostMessageA(state_->hwnd, kRunPosted, 0, 0) != FALSE;
    }
    return true;
}

UiDispatcher::UiDispatcher() : state_(std::make_shared<Poster::State>()) {
    RECT none = {};
    HWND hwnd = Create("CorvidUiDispatcher", "", 0, 0, HWND_MESSAGE, none, nullptr, 0, nullptr);
    std::lock_guard<std::mutex> guard(state_->lock);
    state_->hwnd = hwnd;
}

UiDispatcher::~UiDispatcher() {
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard<std::mutex> guard(state_->lock);
        state_->hwnd = nullptr;
        dropped.swap(state_->queue);
    }
}

void UiDispatcher::RunPending() {
    std::deque<std::function<void()>> work;
    {
        std::lock_guard<std::mutex> guard(state_->lock);
        state_->wakePending = false;
        work.swap(state_->queue);
    }
    for (auto& item : work) {
        item();
    }
}

LRESULT UiDispatcher::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kRunPosted) {
        RunPending();
        return 0;
    }
    return Default(message, wParam, lParam);
}

} // namespace corvid::win

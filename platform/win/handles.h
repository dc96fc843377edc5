#pragma once

// One owner for every Windows and COM resource: small move-only wrappers, copy deleted, and
// put() releasing whatever is held before handing out the address for an out-parameter.

// <windows.h> first: the COM headers after it need its types.
#include <windows.h>

#include <oleauto.h>
#include <unknwn.h>

#include <utility>

namespace corvid::win {

// A handle with a close function and an invalid value, e.g. HANDLE/CloseHandle or HKEY/RegCloseKey.
template <typename Traits> class UniqueHandle {
public:
    using Handle = typename Traits::Handle;

    UniqueHandle() = default;
    explicit UniqueHandle(Handle handle) : handle_(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { reset(); }

    Handle get() const { return handle_; }
    explicit operator bool() const { return handle_ != Traits::Invalid(); }
    Handle release() { return std::exchange(handle_, Traits::Invalid()); }
    void reset(Handle handle = Traits::Invalid()) {
        if (handle_ != Traits::Invalid()) {
            Traits::Close(handle_);
        }
        handle_ = handle;
    }
    Handle* put() {
        reset();
        return &handle_;
    }

private:
    Handle handle_ = Traits::Invalid();
};

struct KernelHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle h) { ::CloseHandle(h); }
};
// CreateFile and a few others say "invalid" with INVALID_HANDLE_VALUE instead of null.
struct FileHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Handle h) { ::CloseHandle(h); }
};
struct RegKeyTraits {
    using Handle = HKEY;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle h) { ::RegCloseKey(h); }
};
struct WindowTraits {
    using Handle = HWND;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle h) { ::DestroyWindow(h); }
};
struct GdiObjectTraits {
    using Handle = HGDIOBJ;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle h) { ::DeleteObject(h); }
};
struct ModuleTraits {
    using Handle = HMODULE;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle h) { ::FreeLibrary(h); }
};

// A typed export of a loaded module, or null. The cast goes through void* because FARPROC's own
// signature never matches the real one.
template <typename Function> Function ProcAddress(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

using KernelHandle = UniqueHandle<KernelHandleTraits>;
using FileHandle = UniqueHandle<FileHandleTraits>;
using RegKey = UniqueHandle<RegKeyTraits>;
using Window = UniqueHandle<WindowTraits>;
using GdiObject = UniqueHandle<GdiObjectTraits>;
using Module = UniqueHandle<ModuleTraits>;

// An owning COM interface pointer: one reference, released on destruction or put().
template <typename T> class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    // Takes a new reference of its own.
    explicit ComPtr(T* p) : p_(p) {
        if (p_) {
            p_->AddRef();
        }
    }
    ComPtr(const ComPtr& other) : ComPtr(other.p_) {}
    ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(p_, other.p_);
        return *this;
    }
    ~ComPtr() { reset(); }

    // Adopts a reference the caller already owns.
    static ComPtr Attach(T* p) {
        ComPtr result;
        result.p_ = p;
        return result;
    }

    T* get() const { return p_; }
    T* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    T* detach() { return std::exchange(p_, nullptr); }
    void reset() {
        if (T* p = std::exchange(p_, nullptr)) {
            p->Release();
        }
    }
    T** put() {
        reset();
        return &p_;
    }
    void** put_void() { return reinterpret_cast<void**>(put()); }

    template <typename U> HRESULT As(REFIID iid, ComPtr<U>& out) const {
        return p_ ? p_->QueryInterface(iid, out.put_void()) : E_POINTER;
    }

private:
    T* p_ = nullptr;
};

// An owning BSTR.
class Bstr {
public:
    Bstr() = default;
    explicit Bstr(const wchar_t* text) : s_(text ? ::SysAllocString(text) : nullptr) {}
    Bstr(Bstr&& other) noexcept : s_(std::exchange(other.s_, nullptr)) {}
    Bstr& operator=(Bstr&& other) noexcept {
        reset(other.detach());
        return *this;
    }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    ~Bstr() { reset(); }

    BSTR get() const { return s_; }
    UINT length() const { return ::SysStringLen(s_); }
    BSTR detach() { return std::exchange(s_, nullptr); }
    void reset(BSTR s = nullptr) {
        if (s_) {
            ::SysFreeString(s_);
        }
        s_ = s;
    }
    BSTR* put() {
        reset();
        return &s_;
    }

private:
    BSTR s_ = nullptr;
};

// An owning VARIANT, cleared on destruction.
class Variant {
public:
    Variant() { ::VariantInit(&v_); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    ~Variant() { ::VariantClear(&v_); }

    VARIANT* get() { return &v_; }
    const VARIANT* get() const { return &v_; }
    VARIANT* put() {
        ::VariantClear(&v_);
        return &v_;
    }

private:
    VARIANT v_;
};

// COM initialised for the current thread for as long as the object lives.
class ComApartment {
public:
    explicit ComApartment(DWORD model = COINIT_APARTMENTTHREADED)
        : hr_(::CoInitializeEx(nullptr, model)) {}
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment() {
        if (SUCCEEDED(hr_)) {
            ::CoUninitialize();
        }
    }
    HRESULT result() const { return hr_; }

private:
    HRESULT hr_;
};

} // namespace corvid::win

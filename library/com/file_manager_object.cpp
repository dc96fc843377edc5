#include "library/com/file_manager_object.h"

#include "platform/win/text.h"

namespace corvid::library {
namespace {

constexpr UINT kWatchPeriodMs = 500;
constexpr UINT_PTR kWatchTimer = 1;

HRESULT PathArgument(BSTR text, std::wstring& path) {
    const UINT length = text ? ::SysStringLen(text) : 0;
    if (length == 0 || length >= 32767) {
        return E_INVALIDARG;
    }
    path.assign(text, length);
    if (path.find(L'\0') != std::wstring::npos) {
        return E_INVALIDARG;
    }
    return S_OK;
}

HRESULT ReturnText(const std::wstring& text, BSTR* out) {
    *out = ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

std::wstring FromUtf8(const std::string& text) {
    return win::ToWide(text, CP_UTF8);
}

// The library text carries paths and names from disk: no angle bracket may end an element early.
std::string Clean(std::string text) {
    for (char& c : text) {
        if (c == '<' || c == '>' || static_cast<unsigned char>(c) < 0x20) {
            c = '_';
        }
    }
    return text;
}

std::string Utf8Path(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

} // namespace

// A message-only window whose timer asks the object to look for changes.
class FileManagerObject::Watch : public win::WindowBase {
public:
    explicit Watch(FileManagerObject& owner) : owner_(owner) {
        RECT none = {};
        if (Create("CorvidLibraryWatch", "", 0, 0, HWND_MESSAGE, none, nullptr, 0, nullptr)) {
            ::SetTimer(hwnd(), kWatchTimer, kWatchPeriodMs, nullptr);
        }
    }

protected:
    LRESULT HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        if (message == WM_TIMER && wParam == kWatchTimer) {
            owner_.CheckForChange();
            return 0;
        }
        return Default(message, wParam, lParam);
    }

private:
    FileManagerObject& owner_;
};

FileManagerObject::FileManagerObject()
    : ConnectionPoints(Identity(), {DIID__IFileManagerEvents}), library_(SharedLibrary::Acquire()),
      watch_(std::make_unique<Watch>(*this)), seenRevision_(library_->index().Revision()),
      seenWaiting_(library_->index().WaitingForHash()) {}

FileManagerObject::~FileManagerObject() {
    watch_.reset();
    DisconnectAll();
}

void FileManagerObject::CheckForChange() {
    const std::uint64_t revision = library_->index().Revision();
    const std::size_t waiting = library_->index().WaitingForHash();
    if (revision == seenRevision_ && waiting == seenWaiting_) {
        return;
    }
    seenRevision_ = revision;
    seenWaiting_ = waiting;
    // A sink may release us from inside its handler.
    win::ComPtr<FileManagerObject> alive(this);
    Fire(DIID__IFileManagerEvents, 1);
}

HRESULT FileManagerObject::AddSharedFolder(BSTR path) {
    return win::ComBoundary([&] {
        std::wstring folder;
        HRESULT hr = PathArgument(path, folder);
        return FAILED(hr) ? hr : library_->AddFolder(folder);
    });
}

HRESULT FileManagerObject::RemoveSharedFolder(BSTR path) {
    return win::ComBoundary([&] {
        std::wstring folder;
        HRESULT hr = PathArgument(path, folder);
        return FAILED(hr) ? hr : library_->RemoveFolder(folder);
    });
}

HRESULT FileManagerObject::GetSharedFolders(BSTR* folders) {
    return win::ComBoundary([&] {
        if (!folders) {
            return E_POINTER;
        }
        *folders = nullptr;
        std::wstring text;
        for (const auto& folder : library_->Folders()) {
            text += folder + L"\r\n";
        }
        return ReturnText(text, folders);
    });
}

HRESULT FileManagerObject::GetSharedFileCount(long* count) {
    return win::ComBoundary([&] {
        if (!count) {
            return E_POINTER;
        }
        *count = static_cast<long>(library_->index().HashedCount());
        return S_OK;
    });
}

HRESULT FileManagerObject::FindBySha1(BSTR sha1, BSTR* path) {
    return win::ComBoundary([&] {
        if (!path) {
            return E_POINTER;
        }
        *path = nullptr;
        std::string text = win::BstrToAnsi(sha1);
        if (text.size() > 9 && _strnicmp(text.c_str(), "urn:sha1:", 9) == 0) {
            text.erase(0, 9);
        }
        if (text.size() != 32) {
            return E_INVALIDARG;
        }
        const auto file = library_->index().FindBySha1(text);
        return ReturnText(file ? file->path.wstring() : std::wstring(), path);
    });
}

HRESULT FileManagerObject::ShareDownload(BSTR path) {
    return win::ComBoundary([&] {
        std::wstring file;
        HRESULT hr = PathArgument(path, file);
        return FAILED(hr) ? hr : library_->ShareFile(file);
    });
}

HRESULT FileManagerObject::GetLibraryText(BSTR* text) {
    return win::ComBoundary([&] {
        if (!text) {
            return E_POINTER;
        }
        *text = nullptr;
        const auto folders = library_->Folders();
        std::string out = "<library>";
        for (const auto& file : library_->index().Files()) {
            const std::wstring wide = file.path.wstring();
            bool inFolder = false;
            for (const auto& folder : folders) {
                inFolder =
                    inFolder || (wide.size() > folder.size() &&
                                 _wcsnicmp(wide.c_str(), folder.c_str(), folder.size()) == 0);
            }
            out += "<file><name>" + Clean(file.name) + "</name><path>" +
                   Clean(Utf8Path(file.path)) + "</path><size>" + std::to_string(file.size) +
                   "</size><sha1>" + file.sha1 + "</sha1><progress>" +
                   (file.sha1.empty() ? "0" : "100") + "</progress><download>" +
                   (inFolder ? "0" : "1") + "</download></file>";
        }
        out += "</library>";
        return ReturnText(FromUtf8(out), text);
    });
}

HRESULT FileManagerObject::get_HashingCpuShare(long* percent) {
    if (!percent) {
        return E_POINTER;
    }
    *percent = library_->CpuShare();
    return S_OK;
}

HRESULT FileManagerObject::put_HashingCpuShare(long percent) {
    if (percent < 1 || percent > 100) {
        return E_INVALIDARG;
    }
    return win::ComBoundary([&] {
        library_->SetCpuShare(static_cast<int>(percent));
        return S_OK;
    });
}

HRESULT FileManagerObject::get_ShareCompletedDownloads(VARIANT_BOOL* share) {
    if (!share) {
        return E_POINTER;
    }
    *share = library_->ShareDownloads() ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT FileManagerObject::put_ShareCompletedDownloads(VARIANT_BOOL share) {
    return win::ComBoundary([&] {
        library_->SetShareDownloads(share != VARIANT_FALSE);
        return S_OK;
    });
}

} // namespace corvid::library

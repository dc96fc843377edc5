#include "engine/com/engine_core.h"

#include "engine/com/engine_objects.h"
#include "engine/com/engine_settings.h"
#include "platform/win/text.h"

namespace corvid::engine {

BSTR Utf8ToBstr(const std::string& text) {
    const std::wstring wide = win::ToWide(text, CP_UTF8);
    return ::SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
}

std::string BstrToUtf8(BSTR text) {
    const int length = text ? static_cast<int>(::SysStringLen(text)) : 0;
    if (length == 0) {
        return {};
    }
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
    std::string result(size > 0 ? size : 0, '\0');
    if (size > 0) {
        ::WideCharToMultiByte(CP_UTF8, 0, text, length, result.data(), size, nullptr, nullptr);
    }
    return result;
}

std::shared_ptr<EngineCore> EngineCore::Make() {
    return std::shared_ptr<EngineCore>(new EngineCore());
}

EngineCore::EngineCore()
    : library_(library::SharedLibrary::Acquire()), poster_(dispatcher_.poster()),
      service_(std::make_unique<EngineService>(library_->index(), *this)) {}

EngineCore::~EngineCore() {
    // The network thread ends before the dispatcher and the searches it would report to.
    service_.reset();
}

template <typename Work> void EngineCore::PostToCreator(Work work) {
    poster_.Post([weak = weak_from_this(), generation = generation_.load(),
                  work = std::move(work)]() mutable {
        auto self = weak.lock();
        if (self && self->generation_.load() == generation) {
            work(*self);
        }
    });
}

HRESULT EngineCore::Connect() {
    if (service_->running()) {
        return S_FALSE;
    }
    const std::error_code error = service_->Start(ReadEngineOptions());
    if (error) {
        return error.value() ? HRESULT_FROM_WIN32(static_cast<DWORD>(error.value())) : E_FAIL;
    }
    return S_OK;
}

bool EngineCore::Disconnect() {
    if (!service_->running()) {
        return false;
    }
    service_->Stop();
    ++generation_;
    announcedConnected_ = false;
    return true;
}

HRESULT EngineCore::ReloadSettings() {
    if (!service_->running()) {
        return S_OK;
    }
    return service_->ApplySettings(ReadEngineOptions()) ? S_OK : S_FALSE;
}

std::uint32_t EngineCore::AddSearch(SearchObject* search) {
    do {
        ++lastSearch_;
    } while (lastSearch_ == 0 || searches_.count(lastSearch_));
    searches_[lastSearch_] = search;
    return lastSearch_;
}

void EngineCore::RemoveSearch(std::uint32_t id) {
    searches_.erase(id);
}

SearchObject* EngineCore::FindSearch(std::uint32_t id) const {
    auto found = searches_.find(id);
    return found == searches_.end() ? nullptr : found->second;
}

void EngineCore::OnNodeCount(int count) {
    PostToCreator([count](EngineCore& self) {
        if (count > 0 && !self.announcedConnected_) {
            self.announcedConnected_ = true;
            if (self.engine_) {
                self.engine_->FireConnected();
            }
        } else if (count == 0 && self.announcedConnected_) {
            self.announcedConnected_ = false;
            if (self.engine_) {
                self.engine_->FireDisconnected();
            }
        }
    });
}

void EngineCore::OnStatus(const std::string& text, int code) {
    PostToCreator([text, code](EngineCore& self) {
        if (self.engine_) {
            self.engine_->FireStatus(text, code);
        }
    });
}

void EngineCore::OnSearchResult(std::uint32_t search, const std::string& text) {
    PostToCreator([search, text](EngineCore& self) {
        if (SearchObject* target = self.FindSearch(search)) {
            target->Deliver(text);
        }
    });
}

} // namespace corvid::engine

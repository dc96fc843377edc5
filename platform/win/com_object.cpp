#include "platform/win/com_object.h"

#include <map>
#include <mutex>

namespace corvid::win {
namespace {

struct GuidLess {
    bool operator()(const GUID& a, const GUID& b) const { return memcmp(&a, &b, sizeof a) < 0; }
};

} // namespace

HRESULT EmbeddedTypeInfo(const GUID& guid, ITypeInfo** info) {
    if (!info) {
        return E_POINTER;
    }
    *info = nullptr;
    // Type information is free-threaded; the cache is shared by every object of the binary.
    static std::mutex lock;
    static std::map<GUID, ITypeInfo*, GuidLess> cache;
    std::lock_guard<std::mutex> guard(lock);
    auto found = cache.find(guid);
    if (found == cache.end()) {
        const std::wstring path = ModulePath();
        HRESULT last = TYPE_E_ELEMENTNOTFOUND;
        ITypeInfo* loaded = nullptr;
        for (int index = 1; index <= 4 && !loaded; ++index) {
            std::wstring resource = path;
            if (index > 1) {
                resource += L"\\" + std::to_wstring(index);
            }
            ComPtr<ITypeLib> library;
            last = ::LoadTypeLibEx(resource.c_str(), REGKIND_NONE, library.put());
            if (FAILED(last)) {
                break;
            }
            last = library->GetTypeInfoOfGuid(guid, &loaded);
        }
        if (!loaded) {
            return FAILED(last) ? last : TYPE_E_ELEMENTNOTFOUND;
        }
        // Kept for the process's life: type information is cheap and asked for on every call.
        found = cache.emplace(guid, loaded).first;
    }
    *info = found->second;
    (*info)->AddRef();
    return S_OK;
}

} // namespace corvid::win

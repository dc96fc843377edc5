#include "platform/win/connection_point.h"

#include "platform/win/com_object.h"

#include <algorithm>

namespace corvid::win {

// One event interface's list of sinks.
class ConnectionPoint final : public ComObject<ConnectionPoint, IConnectionPoint> {
public:
    ConnectionPoint(IUnknown* container, const IID& iid) : container_(container), iid_(iid) {}

    const IID& iid() const { return iid_; }

    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
        if (!iid) {
            return E_POINTER;
        }
        *iid = iid_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** c) override {
        if (!c) {
            return E_POINTER;
        }
        *c = nullptr;
        if (!container_) {
            return E_UNEXPECTED;
        }
        return container_->QueryInterface(IID_IConnectionPointContainer,
                                          reinterpret_cast<void**>(c));
    }
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override {
        return ComBoundary([&] {
            if (!sink || !cookie) {
                return E_POINTER;
            }
            *cookie = 0;
            ComPtr<IDispatch> dispatch;
            // A sink must speak the event interface; plain IDispatch is what scripts offer.
            if (FAILED(sink->QueryInterface(iid_, dispatch.put_void())) &&
                FAILED(sink->QueryInterface(IID_IDispatch, dispatch.put_void()))) {
                return CONNECT_E_CANNOTCONNECT;
            }
            sinks_.push_back({++lastCookie_, std::move(dispatch)});
            *cookie = lastCookie_;
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
        auto found = std::find_if(sinks_.begin(), sinks_.end(),
                                  [cookie](const Sink& s) { return s.cookie == cookie; });
        if (found == sinks_.end()) {
            return CONNECT_E_NOCONNECTION;
        }
        // Released after the erase: the sink's Release may call back into us.
        ComPtr<IDispatch> leaving = std::move(found->dispatch);
        sinks_.erase(found);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) override {
        if (connections) {
            *connections = nullptr;
        }
        return E_NOTIMPL;
    }

    void Fire(DISPID id, std::initializer_list<VARIANT> arguments) {
        std::vector<VARIANT> reversed(arguments.begin(), arguments.end());
        std::reverse(reversed.begin(), reversed.end());
        DISPPARAMS params = {reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
        std::vector<ComPtr<IDispatch>> listeners;
        listeners.reserve(sinks_.size());
        for (const auto& sink : sinks_) {
            listeners.push_back(sink.dispatch);
        }
        for (const auto& listener : listeners) {
            listener->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                             nullptr, nullptr);
        }
    }
    size_t SinkCount() const { return sinks_.size(); }
    void DisconnectAll() {
        std::vector<Sink> leaving;
        leaving.swap(sinks_);
    }
    void Orphan() { container_ = nullptr; }

private:
    struct Sink {
        DWORD cookie;
        ComPtr<IDispatch> dispatch;
    };

    IUnknown* container_;
    IID iid_;
    std::vector<Sink> sinks_;
    DWORD lastCookie_ = 0;
};

namespace {

// A snapshot of the container's points for EnumConnectionPoints.
class PointEnumerator final : public ComObject<PointEnumerator, IEnumConnectionPoints> {
public:
    PointEnumerator(std::vector<ComPtr<IConnectionPoint>> points, size_t next = 0)
        : points_(std::move(points)), next_(next) {}

    HRESULT STDMETHODCALLTYPE Next(ULONG count, IConnectionPoint** out, ULONG* fetched) override {
        if (!out || (count > 1 && !fetched)) {
            return E_POINTER;
        }
        ULONG given = 0;
        while (given < count && next_ < points_.size()) {
            out[given] = points_[next_++].get();
            out[given++]->AddRef();
        }
        if (fetched) {
            *fetched = given;
        }
        return given == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
        next_ = std::min<size_t>(points_.size(), next_ + count);
        return next_ < points_.size() ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        next_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumConnectionPoints** copy) override {
        return ComBoundary([&] {
            if (!copy) {
                return E_POINTER;
            }
            *copy = Make(points_, next_).detach();
            return S_OK;
        });
    }

private:
    std::vector<ComPtr<IConnectionPoint>> points_;
    size_t next_;
};

} // namespace

ConnectionPoints::ConnectionPoints(IUnknown* owner, std::initializer_list<IID> eventInterfaces) {
    for (const IID& iid : eventInterfaces) {
        points_.push_back(ConnectionPoint::Make(owner, iid).detach());
    }
}

ConnectionPoints::~ConnectionPoints() {
    for (ConnectionPoint* point : points_) {
        // A client may still hold a point; it must not reach the container once we are gone.
        point->Orphan();
        point->DisconnectAll();
        point->Release();
    }
}

HRESULT ConnectionPoints::EnumConnectionPoints(IEnumConnectionPoints** points) {
    return ComBoundary([&] {
        if (!points) {
            return E_POINTER;
        }
        *points = nullptr;
        std::vector<ComPtr<IConnectionPoint>> all;
        for (ConnectionPoint* point : points_) {
            all.emplace_back(point);
        }
        *points = PointEnumerator::Make(std::move(all)).detach();
        return S_OK;
    });
}

HRESULT ConnectionPoints::FindConnectionPoint(REFIID iid, IConnectionPoint** point) {
    if (!point) {
        return E_POINTER;
    }
    *point = nullptr;
    ConnectionPoint* found = Find(iid);
    if (!found) {
        return CONNECT_E_NOCONNECTION;
    }
    found->AddRef();
    *point = found;
    return S_OK;
}

void ConnectionPoints::Fire(REFIID eventInterface, DISPID id,
                            std::initializer_list<VARIANT> arguments) {
    if (ConnectionPoint* point = Find(eventInterface)) {
        ComPtr<ConnectionPoint> alive(point);
        point->Fire(id, arguments);
    }
}

size_t ConnectionPoints::SinkCount(REFIID eventInterface) const {
    ConnectionPoint* point = Find(eventInterface);
    return point ? point->SinkCount() : 0;
}

void ConnectionPoints::DisconnectAll() {
    for (ConnectionPoint* point : points_) {
        point->DisconnectAll();
    }
}

ConnectionPoint* ConnectionPoints::Find(REFIID iid) const {
    for (ConnectionPoint* point : points_) {
        if (IsEqualIID(point->iid(), iid)) {
            return point;
        }
    }
    return nullptr;
}

} // namespace corvid::win

#pragma once

// A failing HRESULT from a call we make is raised as a ComError carrying the interface's IID; every
// COM entry point of ours catches at its boundary and turns it (or any other exception) back into
// an HRESULT, so no exception ever crosses into the caller.

#include <windows.h>

#include <exception>
#include <new>

namespace corvid::win {

class ComError : public std::exception {
public:
    ComError(HRESULT hr, const IID& iid) : hr_(hr), iid_(iid) {}
    HRESULT result() const { return hr_; }
    const IID& interfaceId() const { return iid_; }
    const char* what() const noexcept override { return "COM call failed"; }

private:
    HRESULT hr_;
    IID iid_;
};

inline void ThrowIfFailed(HRESULT hr, const IID& iid) {
    if (FAILED(hr)) {
        throw ComError(hr, iid);
    }
}

// Runs body() and returns its HRESULT, or the HRESULT of whatever it threw.
template <typename Body> HRESULT ComBoundary(Body&& body) noexcept {
    try {
        return body();
    } catch (const ComError& e) {
        return e.result();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_UNEXPECTED;
    }
}

} // namespace corvid::win

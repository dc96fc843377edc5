#pragma once

#include "engine_h.h"
#include "library/com/shared_library.h"
#include "platform/win/com_object.h"
#include "platform/win/connection_point.h"
#include "platform/win/window.h"

#include <memory>

namespace corvid::library {

// The file manager ("TFMan"): the shared folders and the index the engine serves from. Its
// OnLibraryChanged event fires on the creating thread, at most twice a second, whenever folders,
// files or hashing progress changed.
class FileManagerObject final : public win::ComObject<FileManagerObject, IFileManager,
                                                      IConnectionPointContainer, IProvideClassInfo>,
                                public win::ConnectionPoints {
public:
    static HRESULT Create(REFIID iid, void** object) { return CreateObject(iid, object); }
    static const CLSID& ClassId() { return CLSID_FileManager; }

    FileManagerObject();
    ~FileManagerObject() override;

    // IConnectionPointContainer
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        return ConnectionPoints::EnumConnectionPoints(points);
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        return ConnectionPoints::FindConnectionPoint(iid, point);
    }

    // IFileManager
    HRESULT STDMETHODCALLTYPE AddSharedFolder(BSTR path) override;
    HRESULT STDMETHODCALLTYPE RemoveSharedFolder(BSTR path) override;
    HRESULT STDMETHODCALLTYPE GetSharedFolders(BSTR* folders) override;
    HRESULT STDMETHODCALLTYPE GetSharedFileCount(long* count) override;
    HRESULT STDMETHODCALLTYPE FindBySha1(BSTR sha1, BSTR* path) override;
    HRESULT STDMETHODCALLTYPE ShareDownload(BSTR path) override;
    HRESULT STDMETHODCALLTYPE GetLibraryText(BSTR* text) override;
    HRESULT STDMETHODCALLTYPE get_HashingCpuShare(long* percent) override;
    HRESULT STDMETHODCALLTYPE put_HashingCpuShare(long percent) override;
    HRESULT STDMETHODCALLTYPE get_ShareCompletedDownloads(VARIANT_BOOL* share) override;
    HRESULT STDMETHODCALLTYPE put_ShareCompletedDownloads(VARIANT_BOOL share) override;

private:
    class Watch;
    void CheckForChange();

    std::shared_ptr<SharedLibrary> library_;
    std::unique_ptr<Watch> watch_;
    std::uint64_t seenRevision_ = 0;
    std::size_t seenWaiting_ = 0;
};

} // namespace corvid::library

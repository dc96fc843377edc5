#pragma once

// Everything the download page needs from outside itself. The Windows face implements these over
// Download.dll, the list view, message boxes, the file manager and the shell; the tests fake them.

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace corvid::transfer {

struct DownloadItem;
struct DownloadSource;

// The engine's event callback: (context, handle, source id, event code, argument). The argument is
// a NUL-terminated text for events 4, 5, 9, 11, 14 and 15, a number for events 13 and 19, and the
// address of three 32-bit words for event 16. Returns 1 when handled (or ignored because the page
// is closing), 0 when no item has that handle.
using EngineEventCallback = int (*)(void* context, std::uint32_t handle, std::uint32_t sourceId,
                                    std::int32_t code, std::uintptr_t argument);

// The seven operations of the download library. Handles and source ids are 32-bit; 0 is never a
// live one. StopDownload, CloseDownloadObject and DeleteDownloadObject may wait for callbacks that
// are in flight, so the page never calls them while it holds an item's lock.
class DownloadEngine {
public:
    virtual ~DownloadEngine() = default;
    virtual std::uint32_t CreateDownloadObject(const std::string& localPath) = 0;
    virtual std::uint32_t AddDownloadSource(std::uint32_t handle, const std::string& url) = 0;
    virtual void Download(std::uint32_t handle, EngineEventCallback callback, void* context) = 0;
    virtual std::int32_t GetDownloadInfo(std::uint32_t handle, std::int32_t reserved,
                                         std::int32_t infoCode) = 0;
    virtual void StopDownload(std::uint32_t handle) = 0;
    virtual void CloseDownloadObject(std::uint32_t handle) = 0;
    virtual void DeleteDownloadObject(std::uint32_t handle) = 0;
};

// One cell of a list row: the column's identifier (its title's string id) and its text.
struct RowCell {
    std::uint32_t column = 0;
    std::string text;
    bool operator==(const RowCell&) const = default;
};
using RowCells = std::vector<RowCell>;

// The download list. Called from the worker thread, sometimes with an item's lock held: the face
// posts to its window and never waits for the user-interface thread.
class DownloadListView {
public:
    virtual ~DownloadListView() = default;
    virtual void AddRow(const std::shared_ptr<DownloadItem>& item, const RowCells& cells) = 0;
    // Does nothing when the window is gone or no row holds the item.
    virtual void UpdateRow(const DownloadItem& item, const RowCells& cells) = 0;
    virtual void RemoveRow(const DownloadItem& item) = 0;
    // Message 2029: refresh the counters and the toolbar.
    virtual void PostRefresh() = 0;
};

// The detail pane beside the list, as the page and its worker drive it. Calls come from the worker
// and from the engine's threads with an item's lock held: the face posts them to the pane's window
// (where the log model does the work) and never waits.
class SourcePane {
public:
    virtual ~SourcePane() = default;
    virtual void Clear() = 0;
    // Command 1: redraw one source's node (its status icon).
    virtual void UpdateSource(const std::shared_ptr<DownloadSource>& source) = 0;
    // Command 2: refresh the detail view of the item.
    virtual void RefreshDetail(const std::shared_ptr<DownloadItem>& item) = 0;
    // Command 8: forget the item; true when the pane knew it.
    virtual bool ForgetItem(const std::shared_ptr<DownloadItem>& item) = 0;
    // Command 10: add nodes for sources the item gained.
    virtual void RebuildSources(const std::shared_ptr<DownloadItem>& item) = 0;
    // New log lines were recorded for the item.
    virtual void AppendLogLines(const std::shared_ptr<DownloadItem>& item) = 0;
    // Event 13 in the detailed display: the bytes received so far.
    virtual void ShowReceived(const std::shared_ptr<DownloadItem>& item, std::int64_t bytes) = 0;
};

// Questions and messages to the user, on the user-interface thread.
class UserPrompts {
public:
    virtual ~UserPrompts() = default;
    // A yes/no box with a question icon; true for Yes.
    virtual bool AskYesNo(const std::string& text, const std::string& caption) = 0;
    // Dialog 339, modal to the page.
    virtual void ShowFileExists(const std::string& message, const std::string& detail) = 0;
};

// The file-manager component. The face answers under the component's own lock and reports it
// absent when it is not created.
class LibraryComponent {
public:
    virtual ~LibraryComponent() = default;
    virtual bool Present() = 0;
    virtual bool IsFileOnDisk(const std::string& sha1) = 0;
    // Where the completed file at localPath is kept now, in the download folder.
    virtual std::string CompletedFilePath(const std::string& localPath) = 0;
    virtual bool SharesDownloads() = 0;
    virtual void ShareFile(const std::string& path) = 0;
};

// Files and the shell.
class FileShell {
public:
    virtual ~FileShell() = default;
    virtual bool Exists(const std::string& path) = 0;
    virtual void Remove(const std::string& path) = 0;
    // Hands the file to the Theater page's player; true when it took it (the face then switches to
    // the Theater page with command 34012).
    virtual bool PlayInTheater(const std::string& path) = 0;
    // Opens the file with the shell's "open" verb.
    virtual void Open(const std::string& path) = 0;
};

class Clock {
public:
    virtual ~Clock() = default;
    virtual std::time_t Now() = 0;
};

} // namespace corvid::transfer

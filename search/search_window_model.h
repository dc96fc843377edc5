#pragma once

// Everything a result window decides, apart from drawing it: its store of results, the rows it
// shows, when its list is refreshed, the limit on distinct files and its search's stop and
// restart, and the Download, Browse Host and Properties commands. The Windows face turns messages
// into these calls and these answers into controls; a browse-host tab is the same window over a
// browse of one host.

#include "search/result_rows.h"
#include "search/result_store.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

// The limit grows by this much on each Restart of a search that reached it.
inline constexpr int kResultLimitStep = 10000;

// The engine's search object, as far as the window drives it. A missing search object is the
// face's to ignore; other failures leave through the face's exceptions.
class SearchControl {
public:
    virtual ~SearchControl() = default;
    virtual void Stop() = 0;
    virtual void Restart() = 0;
};

// What the window asks of the rest of the plug-in for its Download command and for the sources
// that keep arriving for files already downloading.
class ResultHandOver {
public:
    virtual ~ResultHandOver() = default;
    // The path of the file with this SHA1 when the library holds it on disk, else empty (also when
    // no library is running).
    virtual std::string PathOnDisk(const std::string& sha1) = 0;
    // Dialog 339: "File already exists on your hard disk:" and the path.
    virtual void ShowAlreadyOnDisk(const std::string& path) = 0;
    // Hands the whole group to the download list. False when the download list refused it.
    virtual bool StartDownload(const ResultGroup& group) = 0;
    // Whether the download list holds any file: only then are result texts read a second time
    // for hosts to offer it.
    virtual bool AnyDownloads() = 0;
    // A host seen offering a file; the download list takes it up when it is downloading that file
    // and the host is new to it.
    virtual void OfferHit(const std::string& sha1, const ResultSource& source) = 0;
};

class SearchWindowModel {
public:
    explicit SearchWindowModel(MediaClassNames classNames = {});

    ResultStore& Store() { return store_; }
    const ResultStore& Store() const { return store_; }
    ResultRows& Rows() { return rows_; }
    const ResultRows& Rows() const { return rows_; }

    // One result text of the window's search. Counts the new files, marks the list for the next
    // refresh, and stops the search when the store reaches its limit. Hosts newly offering a
    // file that is downloading are offered to the download list (handOver may be null).
    // Returns the number of new distinct files.
    int OnResultText(std::string_view text, SearchControl* search, ResultHandOver* handOver);

    bool ResultsChanged() const { return resultsChanged_; }
    // The refresh timer's tick. Nothing happens unless results changed and the window is
    // visible; then the new groups join the list, which is sorted again. True when the list must
    // be redrawn with a new row count.
    bool Refresh(bool visible);

    // Restart: a search stopped at its limit gets kResultLimitStep further files.
    void Restart(SearchControl* search);
    void Stop(SearchControl* search);
    // Deletes every group; the limit and the sort stay.
    void Clear();

    // Download of the selected rows, in list order: each group once. A file the library holds is
    // shown in dialog 339 and skipped; the others are handed over and marked as handed to the
    // downloads. Returns how many groups were handed over.
    int Download(std::span<const int> selectedPositions, ResultHandOver& handOver);
    // "http://host:port" of the first selected row's source (a group row's first source).
    std::optional<std::string> BrowseAddress(std::span<const int> selectedPositions) const;
    // The source the Properties dialog shows for the first selected row, with its group.
    std::optional<ResultRow> PropertiesRow(std::span<const int> selectedPositions) const;

private:
    ResultStore store_;
    ResultRows rows_;
    bool resultsChanged_ = false;
    // Set once the window has told the search to stop at the limit, so it says so once.
    bool stoppedAtLimit_ = false;
};

// The fields of one source as the Properties dialog lists them: string-table id of the field's
// name (the column titles, and 34041 "Push") and its text.
struct PropertyField {
    std::uint32_t nameId;
    std::string value;
};
std::vector<PropertyField> SourceProperties(const ResultGroup& group, int sourceIndex);

// The rows at these positions as text for the clipboard: one line per row in list order, its
// cells in column order separated by tabs, each line ended by CR LF.
std::string RowsAsText(const ResultRows& rows, std::span<const int> positions);

// A search window's tab title: its key words and its count of distinct files, "words (N)".
std::string SearchWindowTitle(std::string_view keywords, int count);

} // namespace corvid

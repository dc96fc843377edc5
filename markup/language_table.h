#pragma once

// The plug-in-wide source of user-visible texts by string-table id. A translation file,
// "<host folder>\language\<language>\Corvid.srml", may replace texts and re-caption and re-lay out
// dialogs; whatever it leaves out comes from the built-in string table.

#include "markup/xml.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvid {

// What a translation file changes in one dialog, in dialog units. The Windows face maps the units
// to pixels and applies it to the open dialog, skipping controls that the dialog does not have.
struct DialogChanges {
    struct Control {
        int id = 0;
        std::optional<std::pair<int, int>> position;
        std::optional<std::pair<int, int>> size;
        std::optional<std::string> label;
        bool operator==(const Control&) const = default;
    };
    std::optional<std::string> caption;
    std::optional<std::pair<int, int>> size;
    std::vector<Control> controls;
};

// An open dialog as ApplyToDialog sees it. The Windows face maps dialog units to pixels with the
// dialog's own mapping, grows the dialog size by its frame, and moves without changing z-order.
class DialogSurface {
public:
    virtual ~DialogSurface() = default;
    virtual void SetCaption(const std::string& caption) = 0;
    virtual void SetSize(int width, int height) = 0;
    virtual bool HasControl(int id) const = 0;
    virtual void MoveControl(int id, int x, int y) = 0;
    virtual void ResizeControl(int id, int width, int height) = 0;
    virtual void SetControlText(int id, const std::string& text) = 0;
};

class LanguageTable {
public:
    // Loads the file of `language`, falling back to the part before the first "-" (pt-br, then pt).
    // On failure no language document is left, and every text comes from the string table.
    // Returns whether a file loaded.
    bool Load(const std::string& language);

    // The text of string-table id `id`: the translation when the file has one, otherwise the
    // built-in text. False when neither has the id.
    bool LoadText(std::uint32_t id, std::string& text) const;
    // The symbolic name that a `define` item binds to the number `id`, or empty.
    std::string FindName(int id) const;
    // The number that a `define` item binds to `name`, if any.
    std::optional<int> FindNumber(const std::string& name) const;
    // The changes that the file's `dialog` element for resource `resourceId` asks for.
    DialogChanges ChangesForDialog(int resourceId) const;
    // Re-captions and re-lays out an open dialog; controls that it does not have are skipped.
    void ApplyToDialog(DialogSurface& dialog, int resourceId) const;

    bool loaded() const { return !rootElement().IsNull(); }
    const std::string& language() const { return language_; }
    const std::string& folder() const { return folder_; }

private:
    bool LoadOnce(const std::string& language);
    XmlBranch rootElement() const;

    std::string language_;
    std::string folder_;
    XmlDocument document_;
    bool documentLoaded_ = false;
};

// The process-wide table, made on first use.
LanguageTable& Language();

// Reads "%d,%d": two decimal numbers with a comma right after the first.
std::optional<std::pair<int, int>> ReadNumberPair(const char* text);

} // namespace corvid

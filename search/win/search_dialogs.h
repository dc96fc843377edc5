#pragma once

// The search side's dialogs: 339 (a file already on disk), 207 (a result's properties) and 337
// ("Input Host Address", with its history of addresses). Each runs modal through its Show or Ask
// function; tests create the same dialogs modeless with CreateModeless and drive them with
// messages.

#include "search/result_records.h"

#include <windows.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace corvid {
class LanguageTable;
}

namespace corvid::search {

// A message box owned by the dialog: text, MB_* type; returns the button pressed.
using MessagePrompt = std::function<int(HWND owner, const std::string& text, UINT type)>;
// The plug-in's message box, captioned "Tarvo Explorer".
int TarvoMessageBox(HWND owner, const std::string& text, UINT type);

// What one dialog holds while it is open. The dialog procedure finds it through DWLP_USER.
class DialogState {
public:
    DialogState(const LanguageTable& language, int resourceId)
        : language_(language), resourceId_(resourceId) {}
    virtual ~DialogState() = default;

    // Runs the dialog modal; returns the id of the button that ended it (or -1).
    INT_PTR ShowModal(HWND owner);
    // Creates the dialog modeless (for tests); it destroys itself when a button ends it.
    HWND CreateModeless(HWND owner);

    bool ended() const { return ended_; }
    INT_PTR result() const { return result_; }

protected:
    virtual void OnInit(HWND dialog) = 0;
    // True when the command was handled.
    virtual bool OnCommand(HWND dialog, int id, int code) = 0;
    void End(HWND dialog, INT_PTR result);
    const LanguageTable& language() const { return language_; }
    std::string Text(std::uint32_t id) const;

private:
    static INT_PTR CALLBACK Procedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);

    const LanguageTable& language_;
    int resourceId_;
    bool modeless_ = false;
    bool ended_ = false;
    INT_PTR result_ = -1;
};

// Dialog 339: "File already exists on your hard disk:" and the path.
class FileExistsDialog : public DialogState {
public:
    FileExistsDialog(const LanguageTable& language, std::string path);

protected:
    void OnInit(HWND dialog) override;
    bool OnCommand(HWND dialog, int id, int code) override;

private:
    std::string path_;
};

// Dialog 207: the fields of one result source, name and value on each line.
class PropertiesDialog : public DialogState {
public:
    PropertiesDialog(const LanguageTable& language, const ResultGroup& group, int sourceIndex);
    const std::vector<std::pair<std::string, std::string>>& Fields() const { return fields_; }

protected:
    void OnInit(HWND dialog) override;
    bool OnCommand(HWND dialog, int id, int code) override;

private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

// Dialog 337. After OK, Entry() is "a.b.c.d:port" and Url() "http://a.b.c.d:port".
class BrowseHostDialog : public DialogState {
public:
    BrowseHostDialog(const LanguageTable& language, std::string historyPath,
                     MessagePrompt prompt = &TarvoMessageBox);
    const std::string& Entry() const { return entry_; }
    const std::string& Url() const { return url_; }
    const std::vector<std::string>& History() const { return history_; }

protected:
    void OnInit(HWND dialog) override;
    bool OnCommand(HWND dialog, int id, int code) override;

private:
    void ChooseHistoryLine(HWND dialog);
    void Accept(HWND dialog);
    void ClearHistory(HWND dialog);

    std::string historyPath_;
    MessagePrompt prompt_;
    std::vector<std::string> history_;
    std::string entry_;
    std::string url_;
};

// "<temp>\Tarvo\P2P\BHistory.txt", creating the two folders when they are missing.
std::string BrowseHistoryPath();

// The browse-host request (the p2p_browse_host command): dialog 337, modal to owner. True after
// OK, with url set to "http://a.b.c.d:port" for message 2028.
bool AskBrowseHost(HWND owner, const LanguageTable& language, std::string& url);

} // namespace corvid::search

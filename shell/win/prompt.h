#pragma once

// The questions and failures the main view puts to the user. The real one shows message boxes;
// tests put in one that records what would have been shown.

#include <windows.h>

#include <string>

namespace corvid::shell {

class UserPrompt {
public:
    virtual ~UserPrompt() = default;
    // An error with an OK button and the caption "Tarvo Explorer".
    virtual void Error(HWND owner, const std::string& text) = 0;
    // A Yes/No question with the caption "Tarvo"; true for Yes.
    virtual bool AskYesNo(HWND owner, const std::string& text) = 0;
};

class MessageBoxPrompt : public UserPrompt {
public:
    void Error(HWND owner, const std::string& text) override {
        ::MessageBoxA(owner, text.c_str(), "Tarvo Explorer", MB_OK | MB_ICONERROR);
    }
    bool AskYesNo(HWND owner, const std::string& text) override {
        return ::MessageBoxA(owner, text.c_str(), "Tarvo", MB_YESNO | MB_ICONQUESTION) == IDYES;
    }
};

} // namespace corvid::shell

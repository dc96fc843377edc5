#pragma once

// What every Wine test of a window needs: pumping messages until something holds (never sleeping
// to wait), and saving a screenshot for the run's record.

#include <windows.h>

#include <functional>
#include <string>

namespace corvid::testing {

// Dispatches this thread's messages until done() holds or the deadline passes; true if it held.
bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs = 10000);
// Dispatches what is queued now.
void PumpPending();

// Saves the whole screen as NAME.bmp in the folder named by CORVID_SCREENSHOTS (scripts/test
// turns them into PNG files); does nothing when the variable is not set. Returns the path written.
std::string SaveScreenshot(const std::string& name);

// The text of a list-view cell, a status-bar pane, a window.
std::string ListViewText(HWND list, int row, int column);
// A report list's column title; false when the list has no column there.
bool ListViewColumnTitle(HWND list, int column, std::string& title);
// The first column with that title, or -1; the number of rows.
int ColumnOf(HWND list, const std::string& title);
int RowCount(HWND list);
std::string StatusBarText(HWND bar, int pane);
std::string WindowText(HWND window);

} // namespace corvid::testing

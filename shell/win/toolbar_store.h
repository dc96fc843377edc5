#pragma once

// The toolbar's button order under HKEY_CURRENT_USER\Software\Tarvo Explorer\P2P View\Toolbar:
// one REG_DWORD "Button%d" per button, in toolbar order.

#include <optional>
#include <vector>

namespace corvid::shell {

inline constexpr char kToolbarKey[] = "Software\\Tarvo Explorer\\P2P View\\Toolbar";

// The saved order, in the registry's enumeration order; nothing when the key cannot be opened.
std::optional<std::vector<int>> LoadToolbarOrder();
// Replaces the key with the given order; an empty order leaves the key present and empty.
bool SaveToolbarOrder(const std::vector<int>& order);

} // namespace corvid::shell

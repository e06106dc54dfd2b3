// parseWindows: the W/T line listing that capture scripts print.
#pragma once

#include "model/snapshot.h"

#include <optional>
#include <string_view>
#include <vector>

namespace tarnwick {

// The lines of a tool's output, split at line feeds only, empty ones dropped.
std::vector<std::string_view> nonEmptyLines(std::string_view text);

// "W<tab>bounds<tab>active index" starts a window, "T<tab>item" adds an item to
// it; other lines are ignored and windows without items are dropped. Absent in,
// absent out; a present text always gives a list.
std::optional<std::vector<ScriptedWindow>> parseWindows(const std::optional<std::string>& listing);

}  // namespace tarnwick

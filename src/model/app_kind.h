// AppKind: how an application is captured and restored, and classify().
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarnwick {

enum class AppKind { generic, chromium, safari, finder, terminal, iterm };

// The text form stored in snapshot files.
std::string_view toString(AppKind kind);

// The kind for a text form; nothing for any text that is not one of the six.
std::optional<AppKind> appKindFrom(std::string_view text);

// Maps a bundle identifier to its kind by exact, case-sensitive match; an absent
// or unknown identifier is generic.
AppKind classify(const std::optional<std::string>& bundleID);

}  // namespace tarnwick

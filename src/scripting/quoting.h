// asq and shq: the only ways data enters a script or a shell command.
#pragma once

#include <string>
#include <string_view>

namespace tarnwick {

// An AppleScript string literal: backslashes doubled, then double quotes escaped,
// in double quotes. Nothing else is escaped.
std::string asq(std::string_view s);

// A POSIX shell single-quoted word: each ' becomes '\'' , in single quotes.
std::string shq(std::string_view s);

}  // namespace tarnwick

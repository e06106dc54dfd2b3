// asq and shq: the only ways data enters a script or a shell command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnwick {

// An AppleScript string literal: backslashes doubled, then double quotes escaped,
// in double quotes. Nothing else is escaped.
std::string asq(std::string_view s);

// A POSIX shell single-quoted word: each ' becomes '\'' , in single quotes.
std::string shq(std::string_view s);

// A command line as a shell would read it back: words joined by blanks, each
// single-quoted only when it holds anything but letters, digits and _@%+=:,./-.
std::string shellCommand(const std::vector<std::string>& words);

}  // namespace tarnwick

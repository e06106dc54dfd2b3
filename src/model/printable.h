// printable(): a text from outside made safe to print on a terminal or in one log line.
#pragma once

#include <string>
#include <string_view>

namespace tarnwick {

// The text with every control character escaped in JSON's form: C0 controls
// ("\n", "\r", "\t", others as "\u001b"), DEL ("\u007f") and the C1 controls
// U+0080 to U+009F ("\u009b"); a backslash is doubled so an escape cannot be
// forged, and a byte that starts no valid UTF-8 sequence is written "\xff".
// Every other character, ASCII or not, stays as it is.
std::string printable(std::string_view text);

}  // namespace tarnwick

// UTF-8 validity, shared by the JSON writer and the script runner.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarnwick {

// Length of the valid UTF-8 sequence that starts at s[i], or 0 when none does
// (overlong forms, surrogates and code points above U+10FFFF are invalid).
size_t utf8SequenceLength(std::string_view s, size_t i);

bool isValidUtf8(std::string_view s);

// The text with each byte that starts no valid sequence replaced by U+FFFD, as
// the snapshot writer replaces it.
std::string validUtf8(std::string_view s);

}  // namespace tarnwick

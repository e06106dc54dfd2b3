// invariantFailed: stops the process when something that cannot happen did.
#pragma once

#include <string_view>

namespace tarnwick {

// Prints the message to standard error and aborts. Used for broken invariants
// only; ordinary failures are returned as values.
[[noreturn]] void invariantFailed(std::string_view message);

}  // namespace tarnwick

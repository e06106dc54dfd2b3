// invariantFailed: the one way the program stops on a broken invariant.
#include "model/invariant.h"

#include <cstdio>
#include <cstdlib>

namespace tarnwick {

void invariantFailed(std::string_view message) {
    std::fprintf(stderr, "tarnwick: broken invariant: %.*s\n", static_cast<int>(message.size()), message.data());
    std::abort();
}

}  // namespace tarnwick

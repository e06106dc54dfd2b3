// Fuzzes the reading of saved document URLs: a path found is absolute, holds no
// NUL, and only ever comes from a well-formed "file:" URL.
#include "model/invariant.h"
#include "session/restore.h"

#include <cstddef>
#include <cstdint>

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto path = Restore::fileURLPath(text);
    if (!path) return 0;
    if (path->empty() || path->front() != '/') invariantFailed("a path that is not absolute");
    if (path->find('\0') != std::string::npos) invariantFailed("a path with a NUL");
    if (text.size() < 5 || text.find_first_of(" \n\t\"<>\\^`{|}") != std::string_view::npos)
        invariantFailed("a path from text that is not a URL");
    // Decoding only ever shortens: every escape is three characters for one byte.
    if (path->size() > text.size()) invariantFailed("a path longer than its URL");
    return 0;
}

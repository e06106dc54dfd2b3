// writeFileAtomically: replace a file so that readers and power cuts see the old or the new content, never a mix.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tarnwick {

// Writes the bytes to a temporary file in the same folder, flushes it to disk,
// renames it over `path` and flushes the folder. On failure returns false with a
// description in `error`, and leaves the folder as it was.
bool writeFileAtomically(const std::filesystem::path& path, std::string_view bytes, std::string& error);

}  // namespace tarnwick

// Fuzzes parseWindows: any text gives a list whose windows all have items, none
// of which is empty or holds a line feed or a tab.
#include "model/invariant.h"
#include "scripting/listing.h"

#include <cstddef>
#include <cstdint>

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto windows = parseWindows(std::string(reinterpret_cast<const char*>(data), size));
    if (!windows) invariantFailed("a present listing gave no list");
    for (const auto& window : *windows) {
        if (window.items.empty()) invariantFailed("a window without items was kept");
        for (const auto& item : window.items)
            if (item.empty() || item.find_first_of("\n\t") != std::string::npos)
                invariantFailed("an item is empty or holds a line feed or a tab");
    }
    return 0;
}

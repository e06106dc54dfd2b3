// parseWindows: turns a capture script's listing into ScriptedWindow records.
#include "scripting/listing.h"

#include <charconv>

namespace tarnwick {

namespace {

// [+-]digits within int64, nothing else; anything else reads as the default 1.
int64_t activeIndex(std::string_view text) {
    std::string_view digits = text;
    if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) digits.remove_prefix(1);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos) return 1;
    // from_chars takes a minus sign but not a plus sign.
    std::string_view number = text.front() == '-' ? text : digits;
    int64_t value = 0;
    auto [end, code] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (code != std::errc() || end != number.data() + number.size()) return 1;
    return value;
}

}  // namespace

std::vector<std::string_view> nonEmptyLines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        size_t cut = text.find('\n');
        if (cut != 0) lines.push_back(text.substr(0, cut));
        text = cut == std::string_view::npos ? std::string_view{} : text.substr(cut + 1);
    }
    return lines;
}

std::optional<std::vector<ScriptedWindow>> parseWindows(const std::optional<std::string>& listing) {
    if (!listing) return std::nullopt;
    std::vector<ScriptedWindow> windows;
    for (std::string_view line : nonEmptyLines(*listing)) {
        // At most three fields: any tab after the second stays in field 3.
        size_t firstTab = line.find('\t');
        std::string_view tag = line.substr(0, firstTab);
        std::optional<std::string_view> field2, field3;
        if (firstTab != std::string_view::npos) {
            std::string_view after = line.substr(firstTab + 1);
            size_t secondTab = after.find('\t');
            field2 = after.substr(0, secondTab);
            if (secondTab != std::string_view::npos) field3 = after.substr(secondTab + 1);
        }

        if (tag == "W") {
            ScriptedWindow window{std::nullopt, {}, 1};
            if (field2) {
                window.frame = Frame::init(*field2);
                if (field3) window.activeIndex = activeIndex(*field3);
            }
            windows.push_back(std::move(window));
        } else if (tag == "T" && field2 && !field2->empty() && !windows.empty()) {
            windows.back().items.push_back(*field2);
        }
    }
    std::erase_if(windows, [](const ScriptedWindow& w) { return w.items.empty(); });
    return windows;
}

}  // namespace tarnwick

// AppleScript and shell quoting.
#include "scripting/quoting.h"

namespace tarnwick {

std::string asq(std::string_view s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string shq(std::string_view s) {
    std::string out = "'";
    for (char c : s) {
        if (c == '\'') out += "'\\''";
        else out += c;
    }
    return out + "'";
}

std::string shellCommand(const std::vector<std::string>& words) {
    static constexpr std::string_view plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += ' ';
        text += !word.empty() && word.find_first_not_of(plain) == std::string::npos ? word : shq(word);
    }
    return text;
}

}  // namespace tarnwick

// Restore::fileURLPath: the path inside a "file:" URL.
#include "session/restore.h"

#include <cctype>

namespace tarnwick::Restore {

namespace {

bool hexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    return std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
}

// The characters a URL may hold as they are (everything else must be escaped).
bool urlCharacter(char c) {
    if (std::isalnum(static_cast<unsigned char>(c))) return true;
    static constexpr std::string_view allowed = "-._~:/?#[]@!$&'()*+,;=%";
    return allowed.find(c) != std::string_view::npos;
}

}  // namespace

std::optional<std::string> fileURLPath(std::string_view url) {
    // A saved document is whatever the application reported; a text that is not a
    // well-formed URL (a space, a stray "%") does not name a file.
    for (size_t i = 0; i < url.size(); ++i) {
        if (!urlCharacter(url[i])) return std::nullopt;
        if (url[i] == '%' && (i + 2 >= url.size() || !hexDigit(url[i + 1]) || !hexDigit(url[i + 2])))
            return std::nullopt;
    }
    constexpr std::string_view scheme = "file:";
    if (url.size() < scheme.size()) return std::nullopt;
    for (size_t i = 0; i < scheme.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(url[i])) != scheme[i]) return std::nullopt;
    std::string_view rest = url.substr(scheme.size());
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        size_t slash = rest.find('/');
        std::string_view host = rest.substr(0, slash);
        // Only this machine's files can be opened here.
        if (!host.empty() && host != "localhost") return std::nullopt;
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    }
    rest = rest.substr(0, rest.find_first_of("?#"));
    if (rest.empty() || rest.front() != '/') return std::nullopt;
    std::string path;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == '%') {
            char decoded = static_cast<char>(hexValue(rest[i + 1]) * 16 + hexValue(rest[i + 2]));
            if (decoded == '\0') return std::nullopt;  // no file-system path holds one
            path += decoded;
            i += 2;
        } else {
            path += rest[i];
        }
    }
    return path;
}

}  // namespace tarnwick::Restore

// Reading desktop entries, expanding their Exec lines and matching them to windows.
#include "platform/linux/desktop_entry.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>

namespace tarnwick::DesktopEntries {

namespace {

// A string value's escapes: \s \n \t \r \\ (anything else is kept as written).
std::string unescape(std::string_view value) {
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        char next = value[++i];
        switch (next) {
        case 's': out += ' '; break;
        case 'n': out += '\n'; break;
        case 't': out += '\t'; break;
        case 'r': out += '\r'; break;
        case '\\': out += '\\'; break;
        default:
            out += '\\';
            out += next;
        }
    }
    return out;
}

std::string trim(std::string_view text) {
    size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos) return {};
    size_t end = text.find_last_not_of(" \t\r");
    return std::string(text.substr(start, end - start + 1));
}

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// Splits an Exec value into words: blanks separate, double quotes group, and
// inside quotes a backslash escapes " ` $ and itself.
std::optional<std::vector<std::string>> words(std::string_view exec) {
    std::vector<std::string> out;
    std::string word;
    bool inWord = false;
    for (size_t i = 0; i < exec.size(); ++i) {
        char c = exec[i];
        if (c == ' ' || c == '\t' || c == '\n') {
            if (inWord) out.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else if (c == '"') {
            inWord = true;
            for (++i;; ++i) {
                if (i >= exec.size()) return std::nullopt;
                if (exec[i] == '"') break;
                if (exec[i] == '\\' && i + 1 < exec.size() && std::string_view("\"`$\\").find(exec[i + 1]) !=
                                                                  std::string_view::npos)
                    ++i;
                word += exec[i];
            }
        } else {
            inWord = true;
            word += c;
        }
    }
    if (inWord) out.push_back(std::move(word));
    return out;
}

std::vector<std::string> pathList(const char* variable, const char* fallback) {
    const char* value = std::getenv(variable);
    std::string text = value && *value ? value : fallback;
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, ':');)
        if (!part.empty() && part.front() == '/') parts.push_back(part);
    return parts;
}

// Whether a TryExec program exists: an absolute path, or a name on $PATH.
bool programExists(const std::string& program) {
    std::error_code ignored;
    if (program.find('/') != std::string::npos) return std::filesystem::exists(program, ignored);
    for (const std::string& folder : pathList("PATH", "/usr/local/bin:/usr/bin:/bin"))
        if (std::filesystem::exists(std::filesystem::path(folder) / program, ignored)) return true;
    return false;
}

}  // namespace

std::vector<std::filesystem::path> applicationFolders() {
    std::vector<std::filesystem::path> folders;
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/') {
        folders.push_back(std::filesystem::path(data) / "applications");
    } else if (const char* home = std::getenv("HOME"); home && *home == '/') {
        folders.push_back(std::filesystem::path(home) / ".local/share/applications");
    }
    for (const std::string& folder : pathList("XDG_DATA_DIRS", "/usr/local/share:/usr/share"))
        folders.push_back(std::filesystem::path(folder) / "applications");
    return folders;
}

std::optional<Entry> read(const std::filesystem::path& file, const std::string& id) {
    std::ifstream in(file);
    if (!in) return std::nullopt;
    std::map<std::string, std::string> keys, newWindowKeys;
    std::map<std::string, std::string>* group = nullptr;
    bool sawMain = false;
    for (std::string line; std::getline(in, line);) {
        std::string trimmed = trim(line);
        if (trimmed.empty() || trimmed.front() == '#') continue;
        if (trimmed.front() == '[') {
            // The first group must be [Desktop Entry]; of the others only the
            // action that opens a new window matters here.
            if (!sawMain)
                group = trimmed == "[Desktop Entry]" ? &keys : nullptr;
            else
                group = trimmed == "[Desktop Action new-window]" ? &newWindowKeys : nullptr;
            sawMain = true;
            continue;
        }
        size_t equals = trimmed.find('=');
        if (group == nullptr || equals == std::string::npos) continue;
        std::string key = trim(std::string_view(trimmed).substr(0, equals));
        if (!group->count(key)) (*group)[key] = trim(std::string_view(trimmed).substr(equals + 1));
    }
    auto value = [&](const std::string& key) -> std::optional<std::string> {
        auto found = keys.find(key);
        if (found == keys.end()) return std::nullopt;
        return unescape(found->second);
    };
    if (value("Type") != "Application" || value("Hidden") == "true") return std::nullopt;
    auto exec = value("Exec");
    if (!exec || exec->empty()) return std::nullopt;
    if (auto tryExec = value("TryExec"); tryExec && !programExists(*tryExec)) return std::nullopt;
    Entry entry{id, file, value("Name").value_or(""), *exec, value("Icon"), value("StartupWMClass"), {}, {}};
    if (auto categories = value("Categories"))
        for (size_t at = 0; at < categories->size();) {
            size_t end = categories->find(';', at);
            if (end == std::string::npos) end = categories->size();
            if (end > at) entry.categories.push_back(categories->substr(at, end - at));
            at = end + 1;
        }
    // An action counts only when the entry lists it.
    if (auto actions = value("Actions"); actions && newWindowKeys.count("Exec") &&
                                         (";" + *actions + ";").find(";new-window;") != std::string::npos)
        entry.newWindowExec = unescape(newWindowKeys["Exec"]);
    auto command = arguments(entry);
    if (!command) return std::nullopt;
    // The program the Exec line starts: "gedit" for "/usr/bin/gedit %U"; behind
    // "env A=B", the program after the settings.
    size_t first = 0;
    if (std::filesystem::path((*command)[first]).filename() == "env") {
        ++first;
        while (first < command->size() && (*command)[first].find('=') != std::string::npos) ++first;
    }
    if (first < command->size()) entry.program = std::filesystem::path((*command)[first]).filename().string();
    return entry;
}

std::vector<Entry> all(const std::vector<std::filesystem::path>& folders) {
    std::vector<Entry> entries;
    std::set<std::string> seen;
    for (const auto& folder : folders) {
        std::error_code error;
        std::vector<std::filesystem::path> files;
        for (auto it = std::filesystem::recursive_directory_iterator(folder, error);
             !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
            if (it->path().extension() == ".desktop") files.push_back(it->path());
        std::sort(files.begin(), files.end());
        for (const auto& file : files) {
            std::string id = file.lexically_relative(folder).string();
            for (char& c : id)
                if (c == '/') c = '-';
            // An id hidden or broken in a more important folder still shadows the others.
            if (!seen.insert(id).second) continue;
            if (auto entry = read(file, id)) entries.push_back(std::move(*entry));
        }
    }
    return entries;
}

std::optional<std::filesystem::file_time_type> Catalog::modified(const std::filesystem::path& folder) {
    std::error_code error;
    auto time = std::filesystem::last_write_time(folder, error);
    if (error) return std::nullopt;
    return time;
}

namespace {

// The variables the application folders come from, as one text.
std::string folderEnvironment() {
    std::string text;
    for (const char* name : {"XDG_DATA_HOME", "HOME", "XDG_DATA_DIRS"}) {
        const char* value = std::getenv(name);
        text += value == nullptr ? std::string("\x01") : value;
        text.push_back('\0');
    }
    return text;
}

}  // namespace

bool Catalog::unchangedLocked() {
    if (!watch_) {
        for (const Stamp& stamp : stamps_)
            if (modified(stamp.first) != stamp.second) return false;
        return true;
    }
    // Any event at all (an overflow too), or a failed read: read again.
    char events[4096];
    ssize_t got = retryOnEintr([&] { return ::read(watch_.get(), events, sizeof events); });
    if (got != -1 || errno != EAGAIN) return false;
    // A folder that was not there cannot be watched: it counts as changed once it is.
    for (const Stamp& stamp : stamps_)
        if (!stamp.second && modified(stamp.first)) return false;
    return true;
}

std::shared_ptr<const std::vector<Entry>> Catalog::current() {
    std::string environment = folderEnvironment();
    std::lock_guard guard(lock_);
    if (entries_ && environment == environment_ && unchangedLocked()) return entries_;
    std::vector<std::filesystem::path> folders = applicationFolders();
    // The watches and times are set before the files are read: a change
    // made meanwhile shows at the next check.
    watch_.reset(noticing_ == Noticing::kernel ? ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC) : -1);
    const std::uint32_t changes = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_MODIFY |
                                  IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
    std::vector<Stamp> stamps;
    auto stampAndWatch = [&](const std::filesystem::path& folder) {
        stamps.emplace_back(folder, modified(folder));
        if (watch_ && stamps.back().second && ::inotify_add_watch(watch_.get(), folder.c_str(), changes) < 0)
            watch_.reset();  // out of watches: the times tell instead
    };
    for (const auto& folder : folders) {
        stampAndWatch(folder);
        std::error_code error;
        for (auto it = std::filesystem::recursive_directory_iterator(folder, error);
             !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
            if (it->is_directory(error)) stampAndWatch(it->path());
    }
    entries_ = std::make_shared<const std::vector<Entry>>(all(folders));
    environment_ = std::move(environment);
    stamps_ = std::move(stamps);
    return entries_;
}

std::optional<std::vector<std::string>> arguments(const Entry& entry) {
    auto split = words(entry.exec);
    if (!split || split->empty()) return std::nullopt;
    std::vector<std::string> out;
    for (const std::string& word : *split) {
        if (word == "%i") {
            if (entry.icon) {
                out.push_back("--icon");
                out.push_back(*entry.icon);
            }
            continue;
        }
        std::string expanded;
        bool hadFileCode = false;
        for (size_t i = 0; i < word.size(); ++i) {
            if (word[i] != '%' || i + 1 == word.size()) {
                expanded += word[i];
                continue;
            }
            char code = word[++i];
            if (code == '%') expanded += '%';
            else if (code == 'c') expanded += entry.name;
            else if (code == 'k') expanded += entry.file.string();
            else hadFileCode = true;  // files and URLs (none at a relaunch), and the deprecated codes
        }
        if (hadFileCode && expanded.empty()) continue;
        out.push_back(std::move(expanded));
    }
    if (out.empty()) return std::nullopt;
    return out;
}

std::optional<std::vector<std::string>> newWindowArguments(const Entry& entry) {
    if (!entry.newWindowExec) return std::nullopt;
    Entry action = entry;
    action.exec = *entry.newWindowExec;
    return arguments(action);
}

bool Entry::terminal() const {
    return std::find(categories.begin(), categories.end(), "TerminalEmulator") != categories.end();
}

namespace {

std::string_view stemOf(const Entry& entry) {
    std::string_view stem = entry.id;
    if (stem.size() > 8 && stem.substr(stem.size() - 8) == ".desktop") stem.remove_suffix(8);
    return stem;
}

}  // namespace

std::optional<Entry> match(const std::vector<Entry>& entries, const WindowIdentity& window) {
    auto find = [&](auto&& fits) -> std::optional<Entry> {
        for (const Entry& entry : entries)
            if (fits(entry)) return entry;
        return std::nullopt;
    };
    const std::string_view names[] = {window.wmClass, window.instance};
    for (std::string_view wanted : names)
        if (!wanted.empty())
            if (auto found = find([&](const Entry& entry) { return entry.startupWMClass == wanted; })) return found;
    if (!window.gtkApplicationId.empty())
        if (auto found = find([&](const Entry& entry) { return stemOf(entry) == window.gtkApplicationId; }))
            return found;
    for (std::string_view wanted : names) {
        if (wanted.empty()) continue;
        auto found = find([&](const Entry& entry) {
            std::string_view stem = stemOf(entry);
            if (sameIgnoringCase(stem, wanted)) return true;
            // "org.xfce.mousepad" for the class "Mousepad".
            return stem.size() > wanted.size() && stem[stem.size() - wanted.size() - 1] == '.' &&
                   sameIgnoringCase(stem.substr(stem.size() - wanted.size()), wanted);
        });
        if (found) return found;
    }
    for (std::string_view wanted : {window.instance, window.wmClass}) {
        if (wanted.empty()) continue;
        if (auto found = find([&](const Entry& entry) { return sameIgnoringCase(entry.program, wanted); }))
            return found;
    }
    return std::nullopt;
}

std::optional<std::vector<std::string>> installedArguments(const std::vector<Entry>& installed,
                                                           const std::filesystem::path& path, std::string& why) {
    auto found = std::find_if(installed.begin(), installed.end(), [&](const Entry& entry) { return entry.file == path; });
    if (found == installed.end()) {
        why = "not a desktop entry of the application folders";
        return std::nullopt;
    }
    auto words = arguments(*found);
    if (!words || words->empty()) {
        why = "not a desktop entry that can be started";
        return std::nullopt;
    }
    return words;
}

}  // namespace tarnwick::DesktopEntries

// Process facts from /proc.
#include "session/process.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace tarnwick::Process {

namespace {

std::string procPath(std::int32_t pid, const char* leaf) { return "/proc/" + std::to_string(pid) + "/" + leaf; }

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

std::optional<std::string> executable(std::int32_t pid) {
    if (pid <= 0) return std::nullopt;
    std::error_code error;
    auto target = std::filesystem::read_symlink(procPath(pid, "exe"), error);
    if (error || target.empty()) return std::nullopt;
    return target.string();
}

std::optional<std::string> commandName(std::int32_t pid) {
    if (pid <= 0) return std::nullopt;
    auto text = readFile(procPath(pid, "comm"));
    if (!text) return std::nullopt;
    while (!text->empty() && text->back() == '\n') text->pop_back();
    if (text->empty()) return std::nullopt;
    return text;
}

bool alive(std::int32_t pid) {
    if (pid <= 0) return false;
    auto stat = readFile(procPath(pid, "stat"));
    if (!stat) return false;
    // "pid (comm) S …": the name may hold spaces and parentheses, the state
    // follows the last ')'.
    size_t close = stat->rfind(')');
    if (close == std::string::npos || close + 2 >= stat->size()) return false;
    char state = (*stat)[close + 2];
    return state != 'Z' && state != 'X' && state != 'x';
}

}  // namespace tarnwick::Process

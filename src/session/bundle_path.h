// Names taken from an application bundle's path.
#pragma once

#include <string>
#include <string_view>

namespace tarnwick {

// The last component of a path, ignoring trailing slashes: "/Applications/Foo.app/" → "Foo.app".
inline std::string lastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    if (path == "/") return "/";  // as the file system's own naming has it
    auto slash = path.find_last_of('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

// The bundle's file name without its extension: "/Applications/Foo Bar.app" → "Foo Bar".
inline std::string bundleFileStem(std::string_view path) {
    std::string name = lastPathComponent(path);
    auto dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name.erase(dot);
    return name;
}

}  // namespace tarnwick

// TempDir: a fresh folder under the system's temporary folder, removed with its contents.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tarnwick::testing {

class TempDir {
public:
    explicit TempDir(const std::string& prefix = "tarnwick-test");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// Every file name in a folder, sorted.
std::vector<std::string> fileNames(const std::filesystem::path& folder);

// A file's whole content, or "" when it cannot be read.
std::string readText(const std::filesystem::path& file);
void writeText(const std::filesystem::path& file, const std::string& text);

}  // namespace tarnwick::testing

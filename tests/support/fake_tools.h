// Paths to the fake interpreter and tool programs, and a guard that installs them.
#pragma once

#include "scripting/runner.h"

#include <filesystem>
#include <string>

namespace tarnwick::testing {

inline std::string fakeTool(const std::string& name) {
    return (std::filesystem::path(TARNWICK_FAKE_TOOLS_DIR) / name).string();
}

// Points the runner at fakes for one test and back at the real programs after.
class UsingTools {
public:
    explicit UsingTools(const std::string& osascript, const std::string& ps = fakeTool("ps"),
                        const std::string& lsof = fakeTool("lsof")) {
        Scripts::setToolsForTesting({fakeTool(osascript), ps, lsof});
    }
    ~UsingTools() { Scripts::setToolsForTesting({}); }
    UsingTools(const UsingTools&) = delete;
    UsingTools& operator=(const UsingTools&) = delete;
};

}  // namespace tarnwick::testing

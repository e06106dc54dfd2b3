// Restore: putting a saved session back.
#pragma once

#include "model/snapshot.h"
#include "platform/platform.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::Restore {

// What a restore did, for its report.
struct Result {
    std::int64_t launched = 0;           // applications this run had to launch
    std::int64_t windows = 0;            // windows reopened or placed
    std::int64_t tabs = 0;               // browser tabs reopened
    std::vector<std::string> problems;  // one line per failure, in the order met
};

// A running application, and whether this run launched it.
struct Running {
    App app;
    bool launched = false;
};

// Where the application's bundle is: its recorded path while that exists,
// otherwise wherever its identifier is installed; nothing when neither.
std::optional<std::string> appURL(const AppState& app);

// The application running, launched without activating it when needed; nothing,
// with a problem line in `result`, when it cannot be had.
std::optional<Running> ensureRunning(const AppState& app, Result& result);

}  // namespace tarnwick::Restore

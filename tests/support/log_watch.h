// LogWatch: the log lines a test wrote, apart from what was there before.
#pragma once

#include "store/data_folder.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <string>

namespace tarnwick::testing {

class LogWatch {
public:
    // The log's text written since the watch was made.
    std::string newText() const {
        std::string all = readText(logURL());
        return all.substr(std::min(all.size(), start_));
    }

private:
    size_t start_ = readText(logURL()).size();
};

}  // namespace tarnwick::testing

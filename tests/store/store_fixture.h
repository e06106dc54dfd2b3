// StoreTest: a fixture that empties the snapshot folder and the log before each test.
#pragma once

#include "model/snapshot_json.h"
#include "store/data_folder.h"
#include "store/store.h"
#include "support/snapshot_gen.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace tarnwick::testing {

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::error_code ignored;
        std::filesystem::remove_all(supportDir(), ignored);
        std::filesystem::create_directories(supportDir());
        std::filesystem::remove(logURL(), ignored);
    }

    // An instant `seconds` after (or, negative, before) the boot.
    static Date afterBoot(int seconds) {
        return std::chrono::floor<std::chrono::seconds>(Store::bootTime()) + std::chrono::hours(1) +
               std::chrono::seconds(seconds);
    }
    static Date beforeBoot(int seconds) {
        return std::chrono::floor<std::chrono::seconds>(Store::bootTime()) - std::chrono::seconds(seconds);
    }

    // A small session whose one window stands at x.
    static Snapshot session(Date date, double x = 0) {
        return Snapshot{date,
                        "manual",
                        std::nullopt,
                        {AppState{"Notes",
                                  "com.apple.Notes",
                                  "/System/Applications/Notes.app",
                                  AppKind::generic,
                                  false,
                                  {WindowState{"Notes", std::nullopt, Frame{x, 25, 800, 600}, false, false}},
                                  {}}}};
    }

    // Writes a snapshot file directly, without the unchanged test or pruning.
    static std::filesystem::path place(const Snapshot& snapshot) {
        auto path = supportDir() / Store::fileName(snapshot.date);
        writeText(path, *encodeSnapshot(snapshot));
        return path;
    }

    static std::vector<std::string> names() { return fileNames(supportDir()); }
    static std::string logText() { return readText(logURL()); }
};

}  // namespace tarnwick::testing

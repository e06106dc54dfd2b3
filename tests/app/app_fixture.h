// AppTest: a delegate on a simulated desktop and shell, with an empty store and log.
#pragma once

#include "app/app_delegate.h"
#include "app/status_menu.h"
#include "model/snapshot_json.h"
#include "store/data_folder.h"
#include "store/store.h"
#include "support/log_watch.h"
#include "support/sim_desktop.h"
#include "support/sim_shell.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace tarnwick::testing {

class AppTest : public ::testing::Test {
protected:
    AppTest() {
        // Sessions taken after the boot, as a running application takes them.
        desktop.startDate = std::chrono::floor<std::chrono::seconds>(Store::bootTime()) + std::chrono::hours(2);
    }

    // A session worth saving: one application with one window.
    std::int32_t startNotes(Frame frame = Frame{100, 100, 800, 600}) {
        std::int32_t pid = desktop.startApp(appSpec("com.apple.Notes", "/System/Applications/Notes.app", "Notes"));
        SimWindow window;
        window.title = "Notes";
        window.frame = frame;
        desktop.addWindow(pid, window);
        return pid;
    }

    // A browser whose scripts never answer: its capture runs into the time-out.
    void startHungBrowser() {
        SimAppSpec chrome = appSpec("com.google.Chrome", "/Applications/Google Chrome.app", "Google Chrome");
        chrome.scripts = ScriptFault::hang;
        desktop.startApp(chrome);
    }

    // The delegate's launch sequence, and the work it queued.
    void launch() {
        delegate->applicationDidFinishLaunching();
        shell.settle();
    }

    // A snapshot file written straight into the store, `minutes` after the session started.
    Snapshot place(int minutes, std::string reason = "auto", int windows = 1) {
        Snapshot snapshot;
        snapshot.date = desktop.startDate + std::chrono::minutes(minutes);
        snapshot.reason = std::move(reason);
        AppState app{"Notes", "com.apple.Notes", "/System/Applications/Notes.app", AppKind::generic, false, {}, {}};
        for (int i = 0; i < windows; ++i)
            app.windows.push_back(WindowState{"Note " + std::to_string(i), std::nullopt,
                                              Frame{10.0 * i, 25, 800, 600}, false, false});
        snapshot.apps.push_back(app);
        writeText(supportDir() / Store::fileName(snapshot.date), *encodeSnapshot(snapshot));
        return snapshot;
    }

    static size_t storedCount() { return Store::all().size(); }

    // Lines of the log written during the test that start with `prefix`.
    std::vector<std::string> logLines(const std::string& prefix) const {
        std::vector<std::string> lines;
        std::string text = logWatch.newText();
        size_t start = 0;
        while (start < text.size()) {
            size_t end = text.find('\n', start);
            if (end == std::string::npos) end = text.size();
            std::string line = text.substr(start, end - start);
            // "2026-03-14T09:26:53Z " comes before every message.
            size_t space = line.find(' ');
            if (space != std::string::npos && line.compare(space + 1, prefix.size(), prefix) == 0)
                lines.push_back(line.substr(space + 1));
            start = end + 1;
        }
        return lines;
    }

    // The top-level item with this title; fails the test when there is none.
    static const MenuBar::MenuItem& item(const MenuBar::Menu& menu, const std::string& title) {
        for (const MenuBar::MenuItem& candidate : menu)
            if (!candidate.separator && candidate.title == title) return candidate;
        ADD_FAILURE() << "no item \"" << title << "\"";
        static const MenuBar::MenuItem none;
        return none;
    }

    static bool emptied() {
        std::error_code ignored;
        std::filesystem::remove_all(supportDir(), ignored);
        std::filesystem::create_directories(supportDir());
        std::filesystem::remove(logURL(), ignored);
        return true;
    }

    bool emptied_ = emptied();
    LogWatch logWatch;
    SimDesktop desktop;
    ScopedPlatform platform{desktop};
    ScopedScripts scripts{desktop};
    SimShell shell{desktop};
    std::shared_ptr<MenuBar::AppDelegate> delegate = MenuBar::AppDelegate::make(shell);
};

}  // namespace tarnwick::testing

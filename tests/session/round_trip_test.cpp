// Capture, quit everything, restore, capture again: the second snapshot holds
// what the first did, in every field a restore brings back.
#include "session/capture.h"
#include "session/restore.h"

#include "model/snapshot_json.h"
#include "support/sim_desktop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

namespace tarnwick {

// A failing comparison shows the app in its file form.
void PrintTo(const AppState& app, std::ostream* out) {
    Snapshot one;
    one.apps = {app};
    *out << encodeSnapshot(one).value_or("(cannot encode)");
}

namespace {

using testing::appSpec;
using testing::ScopedPlatform;
using testing::ScopedScripts;
using testing::SimAppSpec;
using testing::SimDesktop;
using testing::SimWindow;

SimWindow titled(std::string title, Frame frame) {
    SimWindow made;
    made.title = std::move(title);
    made.frame = frame;
    return made;
}

SimWindow tabbed(std::vector<std::string> tabs, std::int64_t active, Frame frame) {
    SimWindow made;
    made.tabs = std::move(tabs);
    made.activeTab = active;
    made.frame = frame;
    return made;
}

std::vector<std::string> urls(const std::string& site, int count) {
    std::vector<std::string> made;
    for (int i = 1; i <= count; ++i) made.push_back("https://" + site + "/page/" + std::to_string(i));
    return made;
}

// What a restore promises to bring back, in a form that ignores window order:
// scripted windows are rebuilt newest in front, documents reopen after the
// windows an app shows by itself, and a full-screen window's frame is the screen's.
AppState promised(AppState app) {
    for (WindowState& window : app.windows)
        if (window.fullScreen) window.frame.reset();
    auto windowKey = [](const WindowState& w) { return std::tie(w.title, w.document); };
    std::sort(app.windows.begin(), app.windows.end(),
              [&](const WindowState& a, const WindowState& b) { return windowKey(a) < windowKey(b); });
    std::sort(app.scripted.begin(), app.scripted.end(),
              [](const ScriptedWindow& a, const ScriptedWindow& b) { return a.items.strings() < b.items.strings(); });
    return app;
}

class RoundTripTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};
    ScopedScripts scripts{desktop};

    // Installs the app, which shows `onLaunch` when launched, and starts it with `now`.
    std::int32_t app(SimAppSpec spec, std::vector<SimWindow> onLaunch, const std::vector<SimWindow>& now) {
        spec.windowsOnLaunch = std::move(onLaunch);
        desktop.install(spec);
        auto pid = desktop.startApp(spec);
        for (const SimWindow& window : now) desktop.addWindow(pid, window);
        return pid;
    }
};

TEST_F(RoundTripTest, ASessionOfThirteenAppsComesBackAsItWas) {
    const std::string home = desktop.home;
    for (const char* folder : {"/Users/tester/Documents", "/Users/tester/Projects", "/Users/tester/src/tarnwick",
                               "/Users/tester/src/site", "/var/log", "/Users/tester/Downloads"})
        desktop.addFile(folder);
    desktop.addFile("/Users/tester/Documents/report.txt");
    desktop.addFile("/Users/tester/Projects/plan b.key");

    // Generic apps. When launched they reopen their own windows at default
    // frames; documents do not come back by themselves.
    SimWindow report = titled("report.txt", {40, 60, 700, 800});
    report.document = "file:///Users/tester/Documents/report.txt";
    SimWindow minimized = titled("Scratch", {760, 60, 500, 400});
    minimized.minimized = true;
    app(appSpec("com.example.Editor", "/Applications/Editor.app", "Editor"),
        {titled("Untitled", {0, 0, 640, 480}), titled("Scratch", {0, 0, 640, 480})},
        {titled("Untitled", {0, 25, 640, 480}), report, minimized});

    SimWindow film = titled("Film", {0, 0, 1440, 900});
    film.fullScreen = true;
    app(appSpec("com.example.Viewer", "/Applications/Viewer.app", "Viewer"), {titled("Film", {200, 200, 800, 600})},
        {film});

    SimAppSpec mailSpec = appSpec("com.example.Mail", "/Applications/Mail.app", "Mail");
    SimWindow lateInbox = titled("Inbox", {0, 0, 900, 700});
    lateInbox.appearsAfter = 3.0;  // a slow start: polled for
    app(mailSpec, {lateInbox, titled("Drafts", {0, 0, 600, 500})},
        {titled("Inbox", {100, 40, 1100, 800}), titled("Drafts", {300, 300, 600, 500})});

    auto calendar = app(appSpec("com.example.Calendar", "/Applications/Calendar.app", "Calendar"),
                        {titled("Calendar", {0, 0, 800, 600})}, {titled("Calendar", {50, 50, 1000, 700})});
    desktop.app(calendar).hidden = true;

    app(appSpec("com.example.Music", "/Applications/Music.app", "Music"), {}, {});

    app(appSpec("com.example.Notes", "/Applications/Notes.app", "Notes"),
        {titled("Note", {0, 0, 300, 300}), titled("Note", {0, 0, 300, 300})},
        {titled("Note", {10, 30, 320, 400}), titled("Note", {340, 30, 320, 400})});

    SimWindow plan = titled("plan b.key", {80, 80, 1200, 760});
    plan.document = "file:///Users/tester/Projects/plan%20b.key";
    app(appSpec("com.example.Slides", "/Applications/Slides.app", "Slides"), {}, {plan});

    // Chromium: three windows, one incognito (never captured), 40 tabs in the other two.
    SimWindow incognito = tabbed({"https://private.example/"}, 1, {500, 100, 800, 600});
    incognito.incognito = true;
    SimAppSpec chromeSpec = appSpec("com.google.Chrome", "/Applications/Google Chrome.app", "Google Chrome");
    app(chromeSpec, {tabbed({"chrome://newtab/"}, 1, {0, 0, 1000, 700})},
        {tabbed(urls("docs.example", 25), 7, {0, 25, 1280, 800}), incognito,
         tabbed(urls("news.example", 15), 1, {60, 60, 1100, 760})});

    app(appSpec("com.apple.Safari", "/Applications/Safari.app", "Safari"), {},
        {tabbed({"https://apple.example/", "https://maps.example/"}, 2, {30, 40, 1000, 700}),
         tabbed({"https://weather.example/"}, 1, {90, 100, 900, 650})});

    SimWindow documents;
    documents.folder = "/Users/tester/Documents/";
    documents.frame = {100, 80, 900, 500};
    SimWindow downloads;
    downloads.folder = "/Users/tester/Downloads/";
    downloads.frame = {140, 120, 900, 500};
    app(appSpec("com.apple.finder", "/System/Library/CoreServices/Finder.app", "Finder"), {}, {documents, downloads});

    SimAppSpec terminalSpec = appSpec("com.apple.Terminal", "/System/Applications/Utilities/Terminal.app", "Terminal");
    SimWindow fresh;
    fresh.tty = "/dev/ttys000";
    fresh.shellDirectory = home;
    std::vector<SimWindow> shells;
    int tty = 1;
    for (auto [directory, frame] : {std::pair{"/Users/tester/src/tarnwick", Frame{0, 25, 700, 450}},
                                    std::pair{"/var/log", Frame{720, 25, 700, 450}},
                                    std::pair{"/Users/tester/src/site", Frame{0, 500, 700, 400}}}) {
        SimWindow shell;
        shell.tty = "/dev/ttys00" + std::to_string(tty++);
        shell.shellDirectory = directory;
        shell.frame = frame;
        shells.push_back(shell);
    }
    app(terminalSpec, {fresh}, shells);

    app(appSpec("com.googlecode.iterm2", "/Applications/iTerm.app", "iTerm"), {},
        {tabbed({"/Users/tester/src/tarnwick", "/Users/tester/src/site", "/var/log"}, 1, {200, 200, 800, 500}),
         tabbed({home}, 1, {260, 260, 800, 500})});

    auto chat = app(appSpec("com.example.Chat", "/Applications/Chat.app", "Chat"), {titled("Chat", {0, 0, 500, 500})},
                    {titled("Chat", {1000, 25, 420, 860})});
    desktop.frontmost = chat;

    Snapshot before = Capture::snapshot("manual");
    ASSERT_EQ(before.apps.size(), 13u);
    for (const AppState& recorded : before.apps) desktop.quit(*desktop.pidOf(*recorded.bundleID));

    std::vector<std::string> progress;
    Restore::Result result = Restore::run(before, [&](const std::string& text) { progress.push_back(text); });
    Snapshot after = Capture::snapshot("manual");

    EXPECT_TRUE(result.problems.empty()) << ::testing::PrintToString(result.problems);
    EXPECT_EQ(progress.size(), 13u);
    EXPECT_EQ(progress.back(), "Restoring 13/13: Chat");
    ASSERT_EQ(after.apps.size(), before.apps.size());
    for (size_t i = 0; i < before.apps.size(); ++i)
        EXPECT_EQ(promised(after.apps[i]), promised(before.apps[i])) << before.apps[i].name;
    EXPECT_EQ(after.frontmost, "com.example.Chat");
    EXPECT_TRUE(after.apps[3].hidden);

    // Every app was launched; every recorded window was reopened or placed.
    std::int64_t windows = 0, tabs = 0;
    for (const AppState& recorded : before.apps) {
        windows += static_cast<std::int64_t>(recorded.windows.size() + recorded.scripted.size());
        if (recorded.kind == AppKind::chromium || recorded.kind == AppKind::safari)
            for (const ScriptedWindow& window : recorded.scripted) tabs += std::int64_t(window.items.size());
    }
    EXPECT_EQ(result.launched, 13);
    EXPECT_EQ(windows, 22);
    EXPECT_EQ(result.windows, windows);
    EXPECT_EQ(tabs, 43);
    EXPECT_EQ(result.tabs, tabs);
    // The blank window Chrome opened at launch is gone, the incognito one never came back.
    EXPECT_EQ(desktop.visibleWindows(*desktop.pidOf("com.google.Chrome")).size(), 2u);
    // Terminal's fresh window was reused rather than left beside the restored ones.
    EXPECT_EQ(desktop.visibleWindows(*desktop.pidOf("com.apple.Terminal")).size(), 3u);
}

}  // namespace
}  // namespace tarnwick

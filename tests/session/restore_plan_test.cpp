// Restore::plan on the simulated desktop: what a restore would change, from snapshots that hold any number.
#include "session/restore_plan.h"

#include "support/sim_desktop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace tarnwick {
namespace {

using testing::appSpec;
using testing::ScopedPlatform;
using testing::SimDesktop;
using testing::SimWindow;
using ::testing::ElementsAre;

class RestorePlanTest : public ::testing::Test {
protected:
    SimDesktop desktop;
    ScopedPlatform installed{desktop};

    // The editor running with one window "Doc" at 100,100, 800x600.
    void editorRunning() {
        auto spec = appSpec("com.example.Editor", "/Applications/Editor.app", "Editor");
        desktop.install(spec);
        SimWindow window;
        window.title = "Doc";
        desktop.addWindow(desktop.startApp(spec), window);
    }
    Snapshot editorWith(const WindowState& window) {
        AppState app;
        app.name = "Editor";
        app.bundleID = "com.example.Editor";
        app.bundlePath = "/Applications/Editor.app";
        app.windows = {window};
        Snapshot snapshot;
        snapshot.apps = {app};
        return snapshot;
    }
    std::vector<std::string> said(const Restore::Plan& plan) {
        std::vector<std::string> lines;
        for (const Restore::Change& change : plan.changes) lines.push_back(change.kind + ": " + change.text);
        return lines;
    }
};

TEST_F(RestorePlanTest, AWorkspaceNoWindowManagerHasIsLeftOut) {
    editorRunning();
    for (std::int64_t absurd : {std::numeric_limits<std::int64_t>::max(), std::int64_t{1} << 40, std::int64_t{-2},
                                std::numeric_limits<std::int64_t>::min()}) {
        WindowState window{"Doc", std::nullopt, Frame{100, 100, 800, 600}, false, false};
        window.workspace = absurd;
        Restore::Plan plan = Restore::plan(editorWith(window));
        EXPECT_THAT(said(plan), ::testing::IsEmpty()) << absurd;
        EXPECT_THAT(plan.result.problems, ::testing::IsEmpty());
    }
    // The last one a window manager may have is still asked for.
    WindowState window{"Doc", std::nullopt, Frame{100, 100, 800, 600}, false, false};
    window.workspace = 0xFFFF;
    EXPECT_THAT(said(Restore::plan(editorWith(window))), ElementsAre("workspace: Editor \"Doc\" to workspace 65536"));
}

TEST_F(RestorePlanTest, AFrameNoScreenCanShowIsNotWrittenWhileTheWindowsOtherStatesAre) {
    editorRunning();
    for (Frame absurd : {Frame{1e300, 1e300, 1e300, 1e300}, Frame{-1e300, -1e300, 800, 600},
                         Frame{100, 100, -1e300, 600}, Frame{100, 100, 800, -5}, Frame{2e6, 0, 800, 600}}) {
        WindowState window{"Doc", std::nullopt, absurd, /*minimized=*/true, false};
        Restore::Plan plan = Restore::plan(editorWith(window));
        EXPECT_THAT(said(plan), ElementsAre("minimize: Editor \"Doc\"")) << absurd.x << " " << absurd.w;
        EXPECT_EQ(plan.result.windows, 1);
    }
}

TEST_F(RestorePlanTest, AScriptedWindowWithAnAbsurdFrameIsReopenedWithoutBounds) {
    auto spec = appSpec("com.google.Chrome", "/Applications/Google Chrome.app", "Google Chrome");
    desktop.install(spec);
    desktop.startApp(spec);
    AppState chrome;
    chrome.name = "Google Chrome";
    chrome.bundleID = "com.google.Chrome";
    chrome.bundlePath = "/Applications/Google Chrome.app";
    chrome.kind = AppKind::chromium;
    chrome.scripted = {ScriptedWindow{Frame{9e18, 9e18, 9e18, 9e18}, {"https://a.example/"},
                                      std::numeric_limits<std::int64_t>::max()}};
    Snapshot snapshot;
    snapshot.apps = {chrome};
    Restore::Plan plan = Restore::plan(snapshot);
    EXPECT_THAT(said(plan), ElementsAre("reopen: Google Chrome: a window with 1 tabs"));
}

}  // namespace
}  // namespace tarnwick

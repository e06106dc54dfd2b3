// Capture::snapshot: running applications through the platform, windows through
// AXO or the capture scripts.
#include "session/capture.h"

#include "access/axo.h"
#include "platform/platform.h"
#include "scripting/capture_scripts.h"
#include "session/bundle_path.h"

namespace tarnwick::Capture {

namespace {

// `managed`: a window manager keeps workspaces and maximized states to read too.
std::vector<WindowState> accessibilityWindows(std::int32_t pid, bool managed) {
    std::vector<WindowState> windows;
    if (!AXO::trusted()) return windows;
    for (const Element& window : AXO::windows(pid)) {
        windows.push_back(AXO::state(window));
        if (managed) AXO::addWindowManagerState(window, windows.back());
    }
    return windows;
}

std::vector<ScriptedWindow> scriptedWindows(AppKind kind, const std::optional<std::string>& bundleID) {
    std::optional<std::vector<ScriptedWindow>> windows;
    switch (kind) {
        case AppKind::chromium:
            // classify only answers chromium for a known identifier.
            if (bundleID) windows = Scripts::captureChromium(*bundleID);
            break;
        case AppKind::safari: windows = Scripts::captureSafari(); break;
        case AppKind::finder: windows = Scripts::captureFinder(); break;
        case AppKind::terminal: windows = Scripts::captureTerminal(); break;
        case AppKind::iterm: windows = Scripts::captureITerm(); break;
        case AppKind::generic: break;
    }
    return windows.value_or(std::vector<ScriptedWindow>{});
}

}  // namespace

Snapshot snapshot(const std::string& reason) {
    Platform& desktop = platform();
    const std::optional<std::string> own = desktop.ownBundleIdentifier();
    const bool managed = desktop.windowManagerName().has_value();

    std::vector<AppState> apps;
    for (const App& running : desktop.runningApplications()) {
        AppInfo info = desktop.appInfo(running);
        // Two absent identifiers count as equal: an unidentified app is then skipped too.
        if (info.policy != ActivationPolicy::regular || info.bundleID == own || !info.bundlePath || info.terminated)
            continue;
        AppState app;
        app.kind = classify(info.bundleID);
        app.name = info.name ? *info.name : bundleFileStem(*info.bundlePath);
        app.bundleID = info.bundleID;
        app.bundlePath = *info.bundlePath;
        app.hidden = info.hidden;
        app.commandLine = info.commandLine;
        app.workingDirectory = info.workingDirectory;
        if (app.kind == AppKind::generic)
            app.windows = accessibilityWindows(info.pid, managed);
        else
            app.scripted = scriptedWindows(app.kind, app.bundleID);
        // Finder always runs; it is worth recording only with a folder open.
        if (app.kind == AppKind::finder && app.scripted.empty()) continue;
        apps.push_back(std::move(app));
    }

    Snapshot snapshot;
    snapshot.date = desktop.currentDate();
    snapshot.reason = reason;
    if (auto front = desktop.frontmostApplication()) snapshot.frontmost = desktop.appInfo(*front).bundleID;
    snapshot.apps = std::move(apps);
    // Names, paths and titles come from other programs; the file can only hold
    // UTF-8, and the session must equal its own file, or it never counts as unchanged.
    makeTextsValidUtf8(snapshot);
    return snapshot;
}

}  // namespace tarnwick::Capture

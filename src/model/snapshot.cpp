// Equality, counts and the one-line summary of the session records.
#include "model/snapshot.h"

namespace tarnwick {

bool ScriptedWindow::operator==(const ScriptedWindow& other) const {
    return frame == other.frame && sameList(items, other.items) && activeIndex == other.activeIndex;
}

bool AppState::operator==(const AppState& other) const {
    return name == other.name && bundleID == other.bundleID && bundlePath == other.bundlePath &&
           kind == other.kind && hidden == other.hidden && sameList(windows, other.windows) &&
           sameList(scripted, other.scripted);
}

int64_t Snapshot::windowCount() const {
    int64_t count = 0;
    for (const auto& app : apps)
        count += static_cast<int64_t>(app.kind == AppKind::generic ? app.windows.size() : app.scripted.size());
    return count;
}

int64_t Snapshot::tabCount() const {
    int64_t count = 0;
    for (const auto& app : apps) {
        if (app.kind != AppKind::chromium && app.kind != AppKind::safari) continue;
        for (const auto& window : app.scripted) count += static_cast<int64_t>(window.items.size());
    }
    return count;
}

std::string Snapshot::summary() const {
    // The plural words stay plural for every count, "1 apps" included.
    std::string text = std::to_string(apps.size()) + " apps · " + std::to_string(windowCount()) + " windows";
    if (int64_t tabs = tabCount(); tabs >= 1) text += " · " + std::to_string(tabs) + " tabs";
    return text;
}

}  // namespace tarnwick

// Equality, counts and the one-line summary of the session records.
#include "model/snapshot.h"

#include "model/utf8.h"

#include <algorithm>

namespace tarnwick {

bool ScriptedWindow::operator==(const ScriptedWindow& other) const {
    return frame == other.frame && items == other.items && activeIndex == other.activeIndex;
}

bool AppState::operator==(const AppState& other) const {
    return name == other.name && bundleID == other.bundleID && bundlePath == other.bundlePath &&
           kind == other.kind && hidden == other.hidden && sameList(windows, other.windows) &&
           sameList(scripted, other.scripted) && commandLine == other.commandLine &&
           workingDirectory == other.workingDirectory;
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

namespace {

// Calls f on every text held as a string of its own (every text but the tabs),
// stopping when it returns false.
template <class S, class F>
bool eachString(S& snapshot, F f) {
    auto optional = [&](auto& text) { return !text || f(*text); };
    if (!f(snapshot.reason) || !optional(snapshot.frontmost)) return false;
    for (auto& app : snapshot.apps) {
        if (!f(app.name) || !optional(app.bundleID) || !f(app.bundlePath) || !optional(app.workingDirectory))
            return false;
        if (app.commandLine)
            for (auto& word : *app.commandLine)
                if (!f(word)) return false;
        for (auto& window : app.windows)
            if (!optional(window.title) || !optional(window.document)) return false;
    }
    return true;
}

bool allValid(const TextList& texts) { return std::all_of(texts.begin(), texts.end(), isValidUtf8); }

}  // namespace

bool textsAreValidUtf8(const Snapshot& snapshot) {
    if (!eachString(snapshot, [](const std::string& text) { return isValidUtf8(text); })) return false;
    for (const AppState& app : snapshot.apps)
        if (!std::all_of(app.scripted.begin(), app.scripted.end(),
                         [](const ScriptedWindow& window) { return allValid(window.items); }))
            return false;
    return true;
}

void makeTextsValidUtf8(Snapshot& snapshot) {
    eachString(snapshot, [](std::string& text) {
        if (!isValidUtf8(text)) text = validUtf8(text);
        return true;
    });
    // A window's tabs share one buffer, so a window with a broken tab is rebuilt whole.
    for (AppState& app : snapshot.apps)
        for (ScriptedWindow& window : app.scripted) {
            if (allValid(window.items)) continue;
            TextList fixed;
            for (std::string_view item : window.items) fixed.push_back(validUtf8(item));
            window.items = std::move(fixed);
        }
}

}  // namespace tarnwick

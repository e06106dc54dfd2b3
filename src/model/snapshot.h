// The session records: Snapshot, AppState, WindowState, ScriptedWindow.
#pragma once

#include "model/app_kind.h"
#include "model/frame.h"
#include "model/text_list.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick {

// A point in time. Snapshot files keep whole seconds only.
using Date = std::chrono::system_clock::time_point;

// One window of a generic application, as read through Accessibility.
struct WindowState {
    std::optional<std::string> title;
    std::optional<std::string> document;
    std::optional<Frame> frame;
    bool minimized = false;
    bool fullScreen = false;
    // Where the window manager says so (X11): the workspace, counted from 0, or
    // -1 on every workspace; maximized along each axis. Absent elsewhere.
    std::optional<std::int64_t> workspace = std::nullopt;
    std::optional<bool> maximizedHorizontally = std::nullopt;
    std::optional<bool> maximizedVertically = std::nullopt;
    // The output (monitor) the window was on, by the name the desktop gives it
    // ("DP-1"), where it tells (Linux).
    std::optional<std::string> output = std::nullopt;

    bool operator==(const WindowState&) const = default;
};

// One window of a scriptable application: tabs, folders or terminal directories.
struct ScriptedWindow {
    std::optional<Frame> frame;
    TextList items;
    // As the script reported it, counted from 1; never clamped to the items.
    int64_t activeIndex = 1;

    bool operator==(const ScriptedWindow& other) const;
};

// One running application.
struct AppState {
    std::string name;
    std::optional<std::string> bundleID;
    std::string bundlePath;
    AppKind kind = AppKind::generic;
    bool hidden = false;
    std::vector<WindowState> windows;      // filled for generic applications
    std::vector<ScriptedWindow> scripted;  // filled for every other kind
    // Linux: the command line of a program known by no desktop entry, which a
    // restore recognises it by and starts it with again; and the folder a
    // terminal's shell was in. Absent elsewhere.
    std::optional<std::vector<std::string>> commandLine = std::nullopt;
    std::optional<std::string> workingDirectory = std::nullopt;

    bool operator==(const AppState& other) const;
};

// One saved session. Deliberately without equality: the store compares sessions
// through their apps lists only, ignoring date, reason and frontmost.
struct Snapshot {
    Date date;
    std::string reason;
    std::optional<std::string> frontmost;
    std::vector<AppState> apps;
    // Linux: the signature this user's Tarnwick puts on the launch data of what
    // it writes (the "signature" key). Absent on a Mac and in foreign files.
    std::optional<std::string> signature = std::nullopt;
    // Whether a restore may start the command lines and executable files the
    // snapshot names. A session this process captured is its own; a file read
    // back earns it only by a signature made with this user's key.
    bool trusted = true;

    // Accessibility windows of generic apps plus scripted windows of the others.
    int64_t windowCount() const;
    // Browser tabs only: Finder folders and terminal directories are not tabs.
    int64_t tabCount() const;
    // "5 apps · 12 windows · 40 tabs"; the tabs part only when there are tabs.
    std::string summary() const;
};

// Whether every text of the snapshot is valid UTF-8.
bool textsAreValidUtf8(const Snapshot& snapshot);
// Makes every text valid UTF-8 the way the file form writes it, so that the
// snapshot equals what reading its file gives back.
void makeTextsValidUtf8(Snapshot& snapshot);

// Same length and pairwise equal, in order; a list is equal to itself without
// looking at its elements (so a list holding a NaN frame still equals itself).
template <typename T>
bool sameList(const std::vector<T>& a, const std::vector<T>& b) {
    if (&a == &b) return true;
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!(a[i] == b[i])) return false;
    return true;
}

}  // namespace tarnwick

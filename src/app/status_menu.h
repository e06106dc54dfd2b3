// The status menu's contents, built afresh from the state of the moment.
#pragma once

#include "app/menu.h"
#include "model/snapshot.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::MenuBar {

// The timed-snapshot intervals the menu offers, in minutes; 0 is off.
inline constexpr std::array<std::int64_t, 5> autosaveChoices{0, 5, 15, 30, 60};
// How many of the newest snapshots "Restore other snapshot" offers.
inline constexpr size_t otherSnapshotsOffered = 30;

// Everything the menu shows, read just before it opens.
struct MenuState {
    // Why nothing can be saved or restored on this desktop (a Linux session
    // whose compositor Tarnwick cannot serve); none where it can.
    std::optional<std::string> unavailable;
    std::optional<std::string> busy;
    std::optional<Date> lastSaved;
    std::int64_t autosaveMinutes = 0;
    std::vector<Snapshot> snapshots;  // newest first
    std::optional<Snapshot> beforeBoot;
    bool trusted = false;
    bool loginItemEnabled = false;
    // The titles that name the system; a Mac's unless the shell says otherwise.
    std::string showFolderTitle = "Show snapshots in Finder";
    std::string grantTitle = "Grant Accessibility access\u2026";
    // False where nothing can be granted: the grant item is then a note.
    bool grantable = true;
};

using DateText = std::function<std::string(Date)>;

// The status line: "Last saved Sun 15 Nov, 23:56 · saves every 15 min and at restart".
std::string statusLine(const std::optional<Date>& lastSaved, std::int64_t autosaveMinutes, const DateText& shortDate);

// The same where nothing is saved: "Not saved yet · no saves on this desktop".
std::string unavailableStatusLine(const std::optional<Date>& lastSaved, const DateText& shortDate);

// The whole menu, top to bottom, with the enabling of a busy application applied.
// Where the desktop cannot be served, its reason comes first and every item
// that would save, restore or ask for window access is disabled.
Menu buildStatusMenu(const MenuState& state, const DateText& shortDate);

}  // namespace tarnwick::MenuBar

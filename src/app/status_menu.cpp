// The status menu's items, their order, titles, tags, checkmarks and enabling.
#include "app/status_menu.h"

namespace tarnwick::MenuBar {

namespace {

// "Sun 15 Nov, 23:56 — 5 apps · 12 windows", with the reason's mark after the date when asked.
std::string describe(const Snapshot& snapshot, const DateText& shortDate, bool withMark) {
    std::string mark;
    if (withMark && snapshot.reason == "shutdown") mark = " (at shutdown)";
    if (withMark && snapshot.reason == "manual") mark = " (manual)";
    return shortDate(snapshot.date) + mark + " \u2014 " + snapshot.summary();
}

std::string choiceTitle(std::int64_t minutes) {
    return minutes == 0 ? "Off" : "Every " + std::to_string(minutes) + " minutes";
}

std::string savedPart(const std::optional<Date>& lastSaved, const DateText& shortDate) {
    return lastSaved ? "Last saved " + shortDate(*lastSaved) : "Not saved yet";
}

// The commands that reach the desktop's windows.
bool needsDesktop(Command command) {
    return command == Command::saveNow || command == Command::restoreLatest || command == Command::restorePreBoot ||
           command == Command::restoreIndexed || command == Command::openAccessibility;
}

}  // namespace

std::string statusLine(const std::optional<Date>& lastSaved, std::int64_t autosaveMinutes, const DateText& shortDate) {
    std::string line = savedPart(lastSaved, shortDate);
    line += " \u00B7 saves ";
    line += autosaveMinutes < 1 ? "at restart" : "every " + std::to_string(autosaveMinutes) + " min and at restart";
    return line;
}

std::string unavailableStatusLine(const std::optional<Date>& lastSaved, const DateText& shortDate) {
    return savedPart(lastSaved, shortDate) + " \u00B7 no saves on this desktop";
}

Menu buildStatusMenu(const MenuState& state, const DateText& shortDate) {
    Menu menu;
    // First, so that a user who finds nothing saved sees why at once.
    if (state.unavailable) {
        menu.push_back(MenuItem::label(*state.unavailable));
        menu.push_back(MenuItem::separatorItem());
    }
    if (state.busy) {
        menu.push_back(MenuItem::label(*state.busy));
        menu.push_back(MenuItem::separatorItem());
    }

    if (state.beforeBoot) {
        menu.push_back(MenuItem::action("Restore session from before restart", Command::restorePreBoot));
        menu.push_back(MenuItem::label(describe(*state.beforeBoot, shortDate, false)));
    } else if (!state.snapshots.empty()) {
        menu.push_back(MenuItem::action("Restore latest snapshot", Command::restoreLatest));
        menu.push_back(MenuItem::label(describe(state.snapshots.front(), shortDate, false)));
    } else {
        menu.push_back(MenuItem::label("No snapshots yet"));
    }

    if (state.snapshots.size() >= 2) {
        MenuItem other = MenuItem::label("Restore other snapshot", !state.unavailable);
        for (size_t i = 0; i < state.snapshots.size() && i < otherSnapshotsOffered; ++i) {
            other.submenu.push_back(MenuItem::action(describe(state.snapshots[i], shortDate, true),
                                                     Command::restoreIndexed, "", static_cast<std::int64_t>(i)));
            // Also here: some trays open a submenu whose holder is disabled.
            other.submenu.back().enabled = !state.unavailable;
        }
        menu.push_back(std::move(other));
    }

    menu.push_back(MenuItem::separatorItem());
    menu.push_back(MenuItem::action("Save snapshot now", Command::saveNow, "s"));
    menu.push_back(MenuItem::label(state.unavailable ? unavailableStatusLine(state.lastSaved, shortDate)
                                                     : statusLine(state.lastSaved, state.autosaveMinutes, shortDate)));

    MenuItem timed = MenuItem::label("Timed snapshots", true);
    for (std::int64_t minutes : autosaveChoices) {
        MenuItem choice = MenuItem::action(choiceTitle(minutes), Command::setAutosave, "", minutes);
        choice.checked = minutes == state.autosaveMinutes;
        timed.submenu.push_back(std::move(choice));
    }
    menu.push_back(std::move(timed));
    menu.push_back(MenuItem::separatorItem());

    // Where nothing can be placed at all, no access would help.
    if (!state.trusted && !state.unavailable) {
        menu.push_back(state.grantable ? MenuItem::action(state.grantTitle, Command::openAccessibility)
                                       : MenuItem::label(state.grantTitle));
        menu.push_back(MenuItem::separatorItem());
    }
    MenuItem login = MenuItem::action("Open at login", Command::toggleLogin);
    login.checked = state.loginItemEnabled;
    menu.push_back(std::move(login));
    menu.push_back(MenuItem::action(state.showFolderTitle, Command::showFolder));
    menu.push_back(MenuItem::action("Quit Tarnwick", Command::quit, "q"));

    // While something runs only quitting stays possible from the top level. The
    // submenus stay usable: their commands meet the busy guards instead.
    for (MenuItem& item : menu)
        if (item.hasAction())
            item.enabled = (!state.busy || item.command == Command::quit) &&
                           !(state.unavailable && needsDesktop(item.command));
    return menu;
}

}  // namespace tarnwick::MenuBar

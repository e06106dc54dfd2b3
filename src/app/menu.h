// The status menu and the main menu as plain values, built by portable code and
// drawn by the platform shell.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarnwick::MenuBar {

// The delegate's commands; `none` marks an item that only describes.
enum class Command {
    none,
    saveNow,
    setAutosave,
    restoreLatest,
    restorePreBoot,
    restoreIndexed,
    toggleLogin,
    openAccessibility,
    showFolder,
    quit,
};

// The command's action name, as the delegate's method is called ("saveNow").
const char* commandName(Command command);

struct MenuItem {
    bool separator = false;
    std::string title;
    Command command = Command::none;  // sent to the delegate
    // A standard editing action sent up the responder chain with no target
    // ("copy:"); only the main menu's Edit items have one.
    std::string responderAction;
    std::string keyEquivalent;
    std::int64_t tag = 0;
    bool checked = false;
    bool enabled = true;
    std::vector<MenuItem> submenu;

    bool hasAction() const { return command != Command::none || !responderAction.empty(); }

    static MenuItem separatorItem() {
        MenuItem item;
        item.separator = true;
        return item;
    }
    static MenuItem label(std::string title, bool enabled = false) {
        MenuItem item;
        item.title = std::move(title);
        item.enabled = enabled;
        return item;
    }
    static MenuItem action(std::string title, Command command, std::string key = "", std::int64_t tag = 0) {
        MenuItem item;
        item.title = std::move(title);
        item.command = command;
        item.keyEquivalent = std::move(key);
        item.tag = tag;
        return item;
    }
};

using Menu = std::vector<MenuItem>;

// The application's main menu: an empty item where the application menu goes,
// then "Edit" with the standard editing commands, so that their key
// equivalents reach text fields even though an accessory app shows no menu bar.
Menu editMainMenu();

}  // namespace tarnwick::MenuBar

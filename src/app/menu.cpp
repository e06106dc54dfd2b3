// Command names and the main menu with its Edit commands.
#include "app/menu.h"

namespace tarnwick::MenuBar {

const char* commandName(Command command) {
    switch (command) {
    case Command::none: return "";
    case Command::saveNow: return "saveNow";
    case Command::setAutosave: return "setAutosave";
    case Command::restoreLatest: return "restoreLatest";
    case Command::restorePreBoot: return "restorePreBoot";
    case Command::restoreIndexed: return "restoreIndexed";
    case Command::toggleLogin: return "toggleLogin";
    case Command::openAccessibility: return "openAccessibility";
    case Command::showFolder: return "showFolder";
    case Command::quit: return "quit";
    }
    return "";
}

Menu editMainMenu() {
    auto edit = [](std::string title, std::string action, std::string key) {
        MenuItem item;
        item.title = std::move(title);
        item.responderAction = std::move(action);
        item.keyEquivalent = std::move(key);
        return item;
    };
    MenuItem editMenu = MenuItem::label("Edit", true);
    editMenu.submenu = {edit("Undo", "undo:", "z"),        edit("Redo", "redo:", "Z"), MenuItem::separatorItem(),
                        edit("Cut", "cut:", "x"),          edit("Copy", "copy:", "c"), edit("Paste", "paste:", "v"),
                        edit("Select All", "selectAll:", "a")};
    return {MenuItem::label("", true), std::move(editMenu)};
}

}  // namespace tarnwick::MenuBar

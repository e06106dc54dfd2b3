// The command line's modes around the store: help, version, list, save, a
// snapshot by name, and what a restore would change.
#include "main/modes.h"

#include "app/texts.h"
#if !defined(__APPLE__)
#include "main/desktop.h"
#endif
#include "model/iso_date.h"
#include "model/printable.h"
#include "model/snapshot_json.h"
#include "session/capture.h"
#include "session/restore_plan.h"
#include "store/data_folder.h"
#include "store/log.h"
#include "store/store.h"

#include <algorithm>
#include <ctime>
#include <set>
#include <system_error>

namespace tarnwick::Entry {

namespace {

std::string folderText(const std::optional<std::filesystem::path>& folder) {
    return folder ? printable(folder->string()) : "(no home folder)";
}

std::string settingsText() {
#if defined(__APPLE__)
    return "the user defaults of com.tarnwick.Tarnwick";
#else
    auto config = configLocation();
    return config ? printable((*config / "Tarnwick" / "settings.ini").string()) : "(no home folder)";
#endif
}

#if !defined(__APPLE__)
// The backend this session gets, as the desktop modes would choose it (without
// asking the compositor yet): "kwin (KDE Plasma on Wayland)", "x11 (DISPLAY :0)".
std::string desktopText() {
    Session session = Session::current();
    std::string why;
    auto found = candidates(session, why);
    if (found.empty()) return "none: " + printable(why);
    if (found.front() == Backend::kwin) return "kwin (KDE Plasma's KWin, on Wayland)";
    return "x11 (the window manager on DISPLAY " + printable(session.display.value_or("")) + ")";
}
#endif

// "Sun 22 Nov 2026, 01:32" in the user's time zone.
std::string localDate(Date date) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&seconds, &local);
    char buffer[64];
    std::strftime(buffer, sizeof buffer, "%a %e %b %Y, %H:%M", &local);
    std::string text = buffer;
    if (auto twoSpaces = text.find("  "); twoSpaces != std::string::npos) text.erase(twoSpaces, 1);
    return text;
}

// A JSON string that is safe on a terminal too: JSON lets DEL and the C1
// controls through as they are, so they are escaped here as well.
std::string terminalJsonString(std::string_view text) {
    constexpr char hex[] = "0123456789abcdef";
    std::string json = jsonString(text);  // valid UTF-8: a 0xc2 byte always starts a character
    std::string out;
    out.reserve(json.size());
    for (size_t i = 0; i < json.size(); ++i) {
        auto byte = static_cast<unsigned char>(json[i]);
        auto next = i + 1 < json.size() ? static_cast<unsigned char>(json[i + 1]) : 0;
        if (byte == 0x7F) {
            out += "\\u007f";
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
            out += "\\u00";
            out += hex[next >> 4];
            out += hex[next & 0xF];
            ++i;
        } else {
            out += static_cast<char>(byte);
        }
    }
    return out;
}

// The snapshot files in the folder that the listing could not read, by name.
std::vector<std::string> unreadable(const std::vector<Store::Entry>& entries) {
    std::set<std::string> read;
    for (const Store::Entry& entry : entries) read.insert(entry.url.filename().string());
    std::vector<std::string> names;
    std::error_code error;
    for (auto it = std::filesystem::directory_iterator(supportDir(), error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        std::string name = it->path().filename().string();
        // Hidden files are a save's temporaries.
        if (name.empty() || name.front() == '.' || it->path().extension() != ".json") continue;
        if (!read.count(name)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

int helpMode(std::FILE* out) {
    const std::string text =
        "Usage: tarnwick [MODE]\n"
        "Keeps your session (running programs, their windows, browser tabs, folders and\n"
        "terminal directories) safe across restarts.\n"
        "\n"
        "Without a mode, Tarnwick starts as a menu-bar (macOS) or tray (Linux) application\n"
        "that saves snapshots on a timer, at power-off and on request.\n"
        "\n"
        "Modes:\n"
        "  --capture            print the live session as JSON (standard output) and a\n"
        "                       summary (standard error); nothing is saved\n"
        "  --restore SNAPSHOT   put a snapshot back: a file, or one of the store's:\n"
        "                       \"latest\", \"before-boot\" (the newest from before the last\n"
        "                       restart) or N, its position in --list; a file of that\n"
        "                       name wins\n"
        "  --diff [SNAPSHOT]    what a restore of the snapshot (default: latest) would do\n"
        "                       to the live session, without doing it\n"
        "  --save [REASON]      capture and save into the store, as the application's\n"
        "                       \"Save snapshot now\" does (REASON defaults to \"cli\"); an\n"
        "                       unchanged session is not written again\n"
        "  --trust              with --restore or --diff: also start the command lines\n"
        "                       and programs the snapshot names when it was not saved\n"
        "                       by this Tarnwick (a file from elsewhere); Linux\n"
        "  --list [--json]      the stored snapshots, newest first\n"
        "  --help, -h           this text\n"
        "  --version            the program's version\n"
        "\n"
        "Folders:\n"
        "  snapshots  " + folderText(snapshotFolderLocation()) + "\n"
        "  log        " + folderText(logFileLocation()) + "\n"
        "  settings   " + settingsText() + "\n"
#if !defined(__APPLE__)
        "  desktop    " + desktopText() + "\n"
#endif
        "\n"
        "Exit status: 0 when the mode ran (a restore also when some things could not be\n"
        "put back: it prints a \"problem:\" line for each); 1 when the store has no such\n"
        "snapshot, or when a save could not be written (the reason is on standard\n"
        "error); 2 when the arguments are not understood (an unknown option, a word\n"
        "no option takes, an empty snapshot name or reason: one line says which) or\n"
        "when there is no desktop to work on; 3 when the display went away while a\n"
        "mode worked on it (the restore stops there, and a capture is neither printed\n"
        "nor saved). A snapshot file that cannot be read or is not a snapshot stops\n"
        "the program abnormally, naming the file.";
    printLine(out, text);
    return 0;
}

int versionMode(std::FILE* out) {
    printLine(out, std::string("tarnwick ") + TARNWICK_VERSION);
    return 0;
}

int listMode(bool json, std::FILE* out, std::FILE* err) {
    auto entries = Store::all();
    const Store::Entry* preBoot = Store::beforeBoot(entries);
    if (json) {
        std::string text = "[";
        for (size_t i = 0; i < entries.size(); ++i) {
            const Snapshot& snapshot = entries[i].snapshot;
            text += std::string(i ? ",\n " : "\n ") + "{\"position\": " + std::to_string(i + 1) +
                    ", \"file\": " + terminalJsonString(entries[i].url.string()) +
                    ", \"date\": " + jsonString(isoDateText(snapshot.date).value_or("")) +
                    ", \"reason\": " + terminalJsonString(snapshot.reason) +
                    ", \"summary\": " + jsonString(snapshot.summary()) +
                    ", \"apps\": " + std::to_string(snapshot.apps.size()) +
                    ", \"windows\": " + std::to_string(snapshot.windowCount()) +
                    ", \"tabs\": " + std::to_string(snapshot.tabCount()) +
                    ", \"beforeBoot\": " + (&entries[i] == preBoot ? "true" : "false") + "}";
        }
        printLine(out, text + (entries.empty() ? "]" : "\n]"));
    } else if (entries.empty()) {
        printLine(out, "No snapshots yet in " + printable(supportDir().string()));
    } else {
        for (size_t i = 0; i < entries.size(); ++i) {
            const Snapshot& snapshot = entries[i].snapshot;
            std::string position = std::to_string(i + 1);
            position.insert(0, position.size() < 3 ? 3 - position.size() : 0, ' ');
            std::string reason = printable(snapshot.reason);
            reason.resize(std::max<size_t>(reason.size(), 8), ' ');
            printLine(out, position + "  " + printable(entries[i].url.filename().string()) + "  " +
                               localDate(snapshot.date) + "  " + reason + "  " + snapshot.summary() +
                               (&entries[i] == preBoot ? "  (before restart)" : ""));
        }
    }
    for (const std::string& name : unreadable(entries))
        printLine(err, "tarnwick: " + printable(name) + " is not a readable snapshot; left as it is");
    return 0;
}

std::optional<Snapshot> namedSnapshot(const std::string& name, std::string& why) {
    std::error_code error;
    // A file of that name wins over the store's names.
    if (!name.empty() && std::filesystem::exists(name, error)) return readSnapshotFile(name);
    const std::string folder = printable(supportDir().string());
    if (name.empty() || name == "latest") {
        auto entries = Store::all();
        if (!entries.empty()) return std::move(entries.front().snapshot);
        why = "no snapshots yet in " + folder;
        return std::nullopt;
    }
    if (name == "before-boot") {
        if (auto snapshot = Store::beforeBoot()) return snapshot;
        why = "no snapshot from before the last restart in " + folder;
        return std::nullopt;
    }
    if (name.find_first_not_of("0123456789") == std::string::npos && name.size() < 10) {
        auto entries = Store::all();
        size_t position = std::stoul(name);
        if (position >= 1 && position <= entries.size()) return std::move(entries[position - 1].snapshot);
        why = "no snapshot number " + printable(name) + "; the store holds " + std::to_string(entries.size()) +
              " (tarnwick --list shows them)";
        return std::nullopt;
    }
    return readSnapshotFile(name);
}

int saveMode(const std::string& reason, std::FILE* out, std::FILE* err) {
    Snapshot snapshot = Capture::snapshot(reason);
    // Half a session must not become the newest snapshot.
    if (reportedDesktopLost(err, "nothing was saved")) return displayLostStatus;
    std::string why;
    Store::Saved saved = Store::write(snapshot, &why);
    // One event, one log line: a reason from the command line may hold a line
    // feed. The log reads as the application's does; the caller is told the truth.
    std::string line = MenuBar::saveLine(printable(reason), snapshot, saved == Store::Saved::written);
    log(line);
    if (saved == Store::Saved::failed) {
        printLine(err, "tarnwick: save failed: " + printable(why));
        return 1;
    }
    printLine(out, line);
    if (saved == Store::Saved::written)
        printLine(out, "wrote " + printable((supportDir() / Store::fileName(snapshot.date)).string()));
    return 0;
}

int diffMode(const Snapshot& snapshot, std::FILE* out) {
    printLine(out, "what restoring the snapshot of " + localDate(snapshot.date) + " (" + printable(snapshot.reason) +
                       ", " + snapshot.summary() + ") would do:");
    Restore::Plan plan = Restore::plan(snapshot);
    if (reportedDesktopLost(stderr, "what a restore would do is not known")) return displayLostStatus;
    // Names and titles come from the snapshot and the live windows: escaped, so
    // none can rewrite what the terminal shows.
    for (const Restore::Change& change : plan.changes)
        printLine(out, "  " + change.kind + ": " + printable(change.text));
    for (const std::string& problem : plan.result.problems) printLine(out, "  cannot: " + printable(problem));
    if (plan.changes.empty() && plan.result.problems.empty())
        printLine(out, "  nothing: the live session already matches it");
    return 0;
}

}  // namespace tarnwick::Entry

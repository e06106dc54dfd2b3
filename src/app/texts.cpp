// Log lines and alert texts of the save and restore flows.
#include "app/texts.h"

#include "model/printable.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace tarnwick::MenuBar {

std::string plainDateText(Date date) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(date));
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &fields);
    return text;
}

std::string saveLine(const std::string& reason, const Snapshot& snapshot, bool written) {
    std::string line = "save (" + reason + "): " + snapshot.summary();
    if (!written) line += " \u2014 unchanged, skipped";
    return line;
}

std::string bracketedList(const std::vector<std::string>& texts) {
    std::string out = "[";
    for (size_t i = 0; i < texts.size(); ++i) {
        if (i > 0) out += ", ";
        out += '"';
        for (char c : texts[i]) {
            auto byte = static_cast<unsigned char>(c);
            switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\0': out += "\\0"; break;
            default:
                if (byte < 0x20 || byte == 0x7F) {
                    char escaped[12];
                    std::snprintf(escaped, sizeof escaped, "\\u{%x}", byte);
                    out += escaped;
                } else {
                    out += c;
                }
            }
        }
        out += '"';
    }
    return out + "]";
}

std::string restoreLine(const Restore::Result& result) {
    return "restore: launched " + std::to_string(result.launched) + ", windows " + std::to_string(result.windows) +
           ", tabs " + std::to_string(result.tabs) + ", problems " + bracketedList(result.problems);
}

Alert accessibilityWarning() {
    return Alert{"Accessibility access is off",
                 "Tarnwick can relaunch apps and reopen tabs, but can't move windows back into place until you "
                 "allow it in System Settings \u2192 Privacy & Security \u2192 Accessibility.",
                 {"Restore anyway", "Open Settings"}};
}

SystemTexts macTexts() {
    return SystemTexts{"Show snapshots in Finder", "Grant Accessibility access\u2026", accessibilitySettingsURL,
                       accessibilityWarning()};
}

SystemTexts linuxTexts() {
    return SystemTexts{"Show snapshots in the file manager",
                       "Windows can't be placed: no window manager answers",
                       std::nullopt,
                       Alert{"No window manager answers",
                             "Tarnwick can relaunch programs, but can't move windows back into place until a "
                             "window manager that follows EWMH runs on this display.",
                             {"Restore anyway", "Cancel"}}};
}

Alert restoreReport(const Restore::Result& result) {
    Alert alert;
    alert.message = result.problems.empty() ? "Session restored" : "Session restored, with some gaps";
    // The words stay plural for every count, "Launched 1 apps" included.
    alert.informative = "Launched " + std::to_string(result.launched) + " apps, put back " +
                        std::to_string(result.windows) + " windows";
    alert.informative += result.tabs < 1 ? "." : " and reopened " + std::to_string(result.tabs) + " tabs.";
    if (!result.problems.empty()) {
        alert.informative += "\n";
        for (size_t i = 0; i < result.problems.size() && i < problemsShown; ++i)
            alert.informative += "\n\u2022 " + result.problems[i];
    }
    return alert;
}

Alert foreignSnapshotQuestion(const std::vector<std::string>& starts) {
    std::string list;
    for (size_t i = 0; i < starts.size() && i < problemsShown; ++i) list += "\n\u2022 " + printable(starts[i]);
    if (starts.size() > problemsShown) list += "\n\u2022 \u2026";
    return Alert{"This snapshot was not saved by Tarnwick on this computer",
                 "Restoring it would also start what it names itself:" + list +
                     "\n\nStart these only if you trust where the snapshot came from. Without them, Tarnwick "
                     "still starts the programs installed here and puts the windows back.",
                 {"Restore without them", "Start them too", "Cancel"}};
}

}  // namespace tarnwick::MenuBar

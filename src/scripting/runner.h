// runAppleScript and Scripts::shell: the only places that start child processes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick {

// Runs the script in the AppleScript interpreter, fed on standard input after a
// prologue that defines `tb` as the tab character. Its standard output, as
// printed (not trimmed), on a clean exit; nothing, with a log line, when it
// cannot start, runs past the time-out (it is then terminated) or fails.
std::optional<std::string> runAppleScript(std::string_view script, double timeout = 20.0);

namespace Scripts {

// Runs a tool with the arguments (no shell) and returns its standard output;
// empty when it cannot start or prints anything but UTF-8. No time-out.
std::string shell(const std::string& path, const std::vector<std::string>& arguments);

// The programs the scripts need. Fixed in the product; tests point them at fakes.
struct Tools {
    std::string osascript = "/usr/bin/osascript";
    std::string ps = "/bin/ps";
    std::string lsof = "/usr/sbin/lsof";
};
Tools tools();
void setToolsForTesting(Tools tools);

// Stands in for the interpreter and the tools, so that scripts can be answered
// by a simulated desktop in its own virtual time. The runner still owns the
// outcome: time-outs, failures and their log lines are decided as for a child.
class Host {
public:
    struct Run {
        bool timedOut = false;
        int exitStatus = 0;
        std::string out;
        std::string err;
    };
    virtual ~Host() = default;
    // One interpreter run of the script (without the prologue).
    virtual Run appleScript(std::string_view script, double timeout) = 0;
    // One tool run: what it prints on standard output.
    virtual std::string tool(const std::string& path, const std::vector<std::string>& arguments) = 0;
};
// nullptr goes back to child processes. The caller keeps the host alive while installed.
void setHostForTesting(Host* host);

}  // namespace Scripts

}  // namespace tarnwick

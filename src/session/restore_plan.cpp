// Restore::plan: the restore run against a desktop that notes changes instead of making them.
#include "session/restore_plan.h"

#include "access/axo.h"
#include "scripting/quoting.h"
#include "scripting/restore_scripts.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace tarnwick::Restore {

namespace {

// What the plan hands back for a program it would launch, and for its
// application element: nothing on the desktop answers to them.
struct PlannedApp {
    std::int32_t pid;
    std::string name;
    std::string path;
};
struct PlannedElement {
    std::int32_t pid;
};

// A coordinate in whole points. The desktop may answer anything, and lround
// has no result for what a long does not hold.
std::string number(double value) {
    if (!std::isfinite(value)) return "?";
    constexpr double limit = 1e15;
    return std::to_string(static_cast<long long>(std::lround(std::clamp(value, -limit, limit))));
}

// What a launch would run, in full: the command line given, else that of the
// desktop entry at the path, else the application file itself.
std::string whatRuns(Platform& desktop, const std::string& path,
                     const std::optional<std::vector<std::string>>& commandLine) {
    if (commandLine && !commandLine->empty()) return shellCommand(*commandLine);
    if (auto words = desktop.launchArguments(path)) return shellCommand(*words) + " (from " + path + ")";
    return shellCommand({path});
}

template <class T>
std::optional<T> as(const std::optional<AttrValue>& value) {
    if (value && std::holds_alternative<T>(*value)) return std::get<T>(*value);
    return std::nullopt;
}

// Forwards every reading to the desktop and keeps every change to itself.
class HeldBack final : public Platform {
public:
    explicit HeldBack(Platform& desktop) : desktop_(desktop) {}

    // The application the restore works on now, from its progress line.
    std::string current;
    std::vector<Change> changes;
    std::set<std::string> askedForWindows;

    // The window changes, one line per change, once the run is over.
    void describeWindows() {
        for (Touched& window : touched_) {
            std::string who = window.app + " \"" + window.title + "\"";
            auto before = [&](const char* name) { return window.before[name]; };
            auto after = [&](const char* name) -> std::optional<AttrValue> {
                auto found = window.after.find(name);
                if (found == window.after.end()) return std::nullopt;
                return found->second;
            };
            auto from = as<Point>(before("AXPosition"));
            auto to = as<Point>(after("AXPosition"));
            if (to && (!from || std::abs(from->x - to->x) > 1 || std::abs(from->y - to->y) > 1)) {
                std::string text = who + (from ? " from " + number(from->x) + "," + number(from->y) : "") + " to " +
                                   number(to->x) + "," + number(to->y);
                if (from) text += " (" + number(std::hypot(to->x - from->x, to->y - from->y)) + " px)";
                changes.push_back({"move", text});
            }
            auto wasSized = as<Size>(before("AXSize"));
            auto sized = as<Size>(after("AXSize"));
            if (sized && (!wasSized || std::abs(wasSized->width - sized->width) > 1 ||
                          std::abs(wasSized->height - sized->height) > 1))
                changes.push_back({"resize", who + (wasSized ? " from " + number(wasSized->width) + "x" +
                                                                   number(wasSized->height)
                                                             : "") +
                                                 " to " + number(sized->width) + "x" + number(sized->height)});
            auto turnsOn = [&](const char* name) {
                auto now = as<bool>(after(name));
                return now && *now && as<bool>(before(name)) != true;
            };
            auto turnsOff = [&](const char* name) {
                auto now = as<bool>(after(name));
                return now && !*now && as<bool>(before(name)) == true;
            };
            if (auto desk = as<std::int64_t>(after(AXO::workspaceAttribute));
                desk && as<std::int64_t>(before(AXO::workspaceAttribute)) != desk) {
                auto name = [](std::int64_t index) {
                    // Counted from 1 for people; unsigned, so the largest index has a successor.
                    return index < 0 ? std::string("every workspace")
                                     : "workspace " + std::to_string(static_cast<std::uint64_t>(index) + 1);
                };
                auto was = as<std::int64_t>(before(AXO::workspaceAttribute));
                changes.push_back({"workspace", who + (was ? " from " + name(*was) : "") + " to " + name(*desk)});
            }
            for (const char* axis : {AXO::maximizedAttribute, AXO::maximizedHorizontallyAttribute,
                                     AXO::maximizedVerticallyAttribute}) {
                std::string way = axis == std::string(AXO::maximizedAttribute) ? ""
                                  : axis == std::string(AXO::maximizedHorizontallyAttribute) ? " horizontally"
                                                                                              : " vertically";
                if (turnsOn(axis)) changes.push_back({"maximize", who + way});
                if (turnsOff(axis)) changes.push_back({"unmaximize", who + way});
            }
            if (turnsOn("AXMinimized")) changes.push_back({"minimize", who});
            if (turnsOn("AXFullScreen")) changes.push_back({"full screen", who});
        }
    }

    // Window access.
    bool accessibilityTrusted() override { return desktop_.accessibilityTrusted(); }
    void promptForAccessibilityTrust() override {}
    Element applicationElement(std::int32_t pid) override {
        if (pid < 0) return planned(pid);
        return desktop_.applicationElement(pid);
    }
    void setMessagingTimeout(const Element& element, float seconds) override {
        if (!isPlanned(element)) desktop_.setMessagingTimeout(element, seconds);
    }
    std::optional<AttrValue> copyAttribute(const Element& element, const std::string& name) override {
        if (isPlanned(element)) return std::nullopt;
        if (Touched* window = find(element))
            if (auto changed = window->after.find(name); changed != window->after.end()) return changed->second;
        return desktop_.copyAttribute(element, name);
    }
    void setAttribute(const Element& element, const std::string& name, const AttrValue& value) override {
        if (isPlanned(element)) return;
        Touched* window = find(element);
        if (window == nullptr) {
            touched_.push_back(Touched{element, current, as<std::string>(desktop_.copyAttribute(element, "AXTitle"))
                                                             .value_or("a window"),
                                       {}, {}});
            window = &touched_.back();
        }
        if (!window->before.count(name)) window->before[name] = desktop_.copyAttribute(element, name);
        window->after[name] = value;
    }
    Element elementForRemoteToken(const RemoteToken& token) override { return desktop_.elementForRemoteToken(token); }
    bool sameElement(const Element& a, const Element& b) override {
        if (isPlanned(a) || isPlanned(b)) return a == b;
        return desktop_.sameElement(a, b);
    }

    // Applications.
    std::optional<std::string> ownBundleIdentifier() override { return desktop_.ownBundleIdentifier(); }
    std::vector<App> runningApplications() override { return desktop_.runningApplications(); }
    std::vector<App> runningApplications(const std::string& bundleID) override {
        return desktop_.runningApplications(bundleID);
    }
    std::optional<App> frontmostApplication() override { return desktop_.frontmostApplication(); }
    AppInfo appInfo(const App& app) override {
        if (const PlannedApp* launched = plannedApp(app)) {
            AppInfo info;
            info.pid = launched->pid;
            info.bundlePath = launched->path;
            info.name = launched->name;
            info.finishedLaunching = true;
            return info;
        }
        return desktop_.appInfo(app);
    }
    void hide(const App& app) override {
        if (!plannedApp(app) && desktop_.appInfo(app).hidden) return;
        changes.push_back({"hide", current});
    }
    // Bringing the recorded front application forward changes nothing worth telling.
    void activate(const App&) override {}
    std::optional<std::string> applicationPath(const std::string& bundleID) override {
        return desktop_.applicationPath(bundleID);
    }
    std::optional<App> openApplication(const std::string& appPath, double, ErrorSink) override {
        return launched(appPath, ": " + whatRuns(desktop_, appPath, std::nullopt));
    }
    void openDocuments(const std::vector<std::string>& urls, const std::string&, double, ErrorSink) override {
        changes.push_back({"open", std::to_string(urls.size()) + " documents in " + current});
    }
    std::vector<App> runningCommands(const std::vector<std::string>& commandLine) override {
        return desktop_.runningCommands(commandLine);
    }
    std::optional<App> launch(const LaunchRequest& request, double, ErrorSink) override {
        std::string how = ": " + whatRuns(desktop_, request.path, request.commandLine);
        if (request.workingDirectory) how += " in " + *request.workingDirectory;
        return launched(request.path, how);
    }
    bool separateInstances() override { return desktop_.separateInstances(); }
    bool opensRecordedApplications() override { return desktop_.opensRecordedApplications(); }
    std::optional<std::vector<std::string>> launchArguments(const std::string& path) override {
        return desktop_.launchArguments(path);
    }
    bool openNewWindow(const App&, ErrorSink) override {
        changes.push_back({"new window", current});
        askedForWindows.insert(current);
        return true;
    }
    std::optional<std::string> windowManagerName() override { return desktop_.windowManagerName(); }
    bool desktopLost() override { return desktop_.desktopLost(); }
    std::vector<Output> outputs() override { return desktop_.outputs(); }

    // Files and the user.
    bool fileExists(const std::string& path) override { return desktop_.fileExists(path); }
    std::string homeDirectory() override { return desktop_.homeDirectory(); }

    // Time: the restore's waits pass at once.
    Date currentDate() override { return desktop_.currentDate(); }
    double monotonicSeconds() override { return desktop_.monotonicSeconds() + waited_; }
    void sleep(double seconds) override { waited_ += std::max(0.0, seconds); }

private:
    struct Touched {
        Element element;
        std::string app;
        std::string title;
        std::map<std::string, std::optional<AttrValue>> before;
        std::map<std::string, AttrValue> after;
    };

    std::optional<App> launched(const std::string& path, const std::string& how) {
        changes.push_back({"launch", current + how});
        auto app = std::make_shared<const PlannedApp>(PlannedApp{nextPid_--, current, path});
        apps_.insert(app.get());
        return App(app);
    }
    const PlannedApp* plannedApp(const App& app) const {
        return apps_.count(app.get()) ? static_cast<const PlannedApp*>(app.get()) : nullptr;
    }
    Element planned(std::int32_t pid) {
        auto element = std::make_shared<const PlannedElement>(PlannedElement{pid});
        elements_.insert(element.get());
        held_.push_back(element);
        return Element(element);
    }
    bool isPlanned(const Element& element) const { return elements_.count(element.get()) > 0; }
    Touched* find(const Element& element) {
        for (Touched& window : touched_)
            if (window.element == element || desktop_.sameElement(window.element, element)) return &window;
        return nullptr;
    }

    Platform& desktop_;
    double waited_ = 0;
    std::int32_t nextPid_ = -1;
    std::set<const void*> apps_;
    std::set<const void*> elements_;
    std::vector<std::shared_ptr<const PlannedElement>> held_;
    std::vector<Touched> touched_;
};

}  // namespace

Plan plan(const Snapshot& snapshot) {
    Platform& desktop = platform();
    HeldBack heldBack(desktop);
    installPlatform(&heldBack);
    Plan plan;
    {
        Scripts::DryRunScope scripts([&](const std::string& what) {
            heldBack.changes.push_back({"reopen", heldBack.current + ": " + what});
        });
        plan.result = run(snapshot, [&](const std::string& progress) {
            // "Restoring 2/7: Safari": the application whose changes follow.
            size_t colon = progress.find(": ");
            heldBack.current = colon == std::string::npos ? progress : progress.substr(colon + 2);
        });
    }
    installPlatform(&desktop);
    heldBack.describeWindows();
    plan.changes = std::move(heldBack.changes);
    // A window asked of a running program does not come in a plan; the
    // restore itself would wait for it.
    std::erase_if(plan.result.problems, [&](const std::string& problem) {
        for (const std::string& name : heldBack.askedForWindows)
            if (problem == name + ": a window asked for did not appear") return true;
        return false;
    });
    return plan;
}

}  // namespace tarnwick::Restore

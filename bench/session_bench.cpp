// Session capture benchmark: 50 applications and 300 windows on the simulated
// desktop. The desktop's own cost is taken out: every platform call and script
// run goes through a timing wrapper, and what is left is capture's own work
// (listing, token attempts, merging, records, listing parsing).
#include "session/capture.h"
#include "support/sim_desktop.h"

#include <benchmark/benchmark.h>

#include <chrono>

namespace tarnwick {
namespace {

using Clock = std::chrono::steady_clock;

// Forwards to the simulator and adds up the time spent inside it.
class TimedPlatform final : public Platform, public Scripts::Host {
public:
    explicit TimedPlatform(testing::SimDesktop& inner) : inner_(inner) {}

    Clock::duration inside{};
    std::int64_t calls = 0;

    template <class F>
    auto timed(F f) {
        ++calls;
        auto start = Clock::now();
        if constexpr (std::is_void_v<decltype(f())>) {
            f();
            inside += Clock::now() - start;
        } else {
            auto result = f();
            inside += Clock::now() - start;
            return result;
        }
    }

    bool accessibilityTrusted() override { return timed([&] { return inner_.accessibilityTrusted(); }); }
    void promptForAccessibilityTrust() override { timed([&] { inner_.promptForAccessibilityTrust(); }); }
    Element applicationElement(std::int32_t pid) override { return timed([&] { return inner_.applicationElement(pid); }); }
    void setMessagingTimeout(const Element& e, float s) override { timed([&] { inner_.setMessagingTimeout(e, s); }); }
    std::optional<AttrValue> copyAttribute(const Element& e, const std::string& n) override {
        return timed([&] { return inner_.copyAttribute(e, n); });
    }
    void setAttribute(const Element& e, const std::string& n, const AttrValue& v) override {
        timed([&] { inner_.setAttribute(e, n, v); });
    }
    Element elementForRemoteToken(const RemoteToken& t) override {
        return timed([&] { return inner_.elementForRemoteToken(t); });
    }
    bool sameElement(const Element& a, const Element& b) override { return timed([&] { return inner_.sameElement(a, b); }); }
    std::optional<std::string> ownBundleIdentifier() override { return timed([&] { return inner_.ownBundleIdentifier(); }); }
    std::vector<App> runningApplications() override { return timed([&] { return inner_.runningApplications(); }); }
    std::vector<App> runningApplications(const std::string& id) override {
        return timed([&] { return inner_.runningApplications(id); });
    }
    std::optional<App> frontmostApplication() override { return timed([&] { return inner_.frontmostApplication(); }); }
    AppInfo appInfo(const App& a) override { return timed([&] { return inner_.appInfo(a); }); }
    void hide(const App& a) override { timed([&] { inner_.hide(a); }); }
    void activate(const App& a) override { timed([&] { inner_.activate(a); }); }
    std::optional<std::string> applicationPath(const std::string& id) override {
        return timed([&] { return inner_.applicationPath(id); });
    }
    std::optional<App> openApplication(const std::string& p, double t, ErrorSink s) override {
        return timed([&] { return inner_.openApplication(p, t, s); });
    }
    void openDocuments(const std::vector<std::string>& u, const std::string& p, double t, ErrorSink s) override {
        timed([&] { inner_.openDocuments(u, p, t, s); });
    }
    std::vector<App> runningCommands(const std::vector<std::string>& c) override {
        return timed([&] { return inner_.runningCommands(c); });
    }
    std::optional<App> launch(const LaunchRequest& r, double t, ErrorSink s) override {
        return timed([&] { return inner_.launch(r, t, s); });
    }
    bool separateInstances() override { return timed([&] { return inner_.separateInstances(); }); }
    bool desktopLost() override { return timed([&] { return inner_.desktopLost(); }); }
    std::vector<Output> outputs() override { return timed([&] { return inner_.outputs(); }); }
    bool opensRecordedApplications() override {
        return timed([&] { return inner_.opensRecordedApplications(); });
    }
    std::optional<std::vector<std::string>> launchArguments(const std::string& path) override {
        return timed([&] { return inner_.launchArguments(path); });
    }
    bool openNewWindow(const App& app, ErrorSink onError) override {
        return timed([&] { return inner_.openNewWindow(app, std::move(onError)); });
    }
    std::optional<std::string> windowManagerName() override { return timed([&] { return inner_.windowManagerName(); }); }
    bool fileExists(const std::string& p) override { return timed([&] { return inner_.fileExists(p); }); }
    std::string homeDirectory() override { return timed([&] { return inner_.homeDirectory(); }); }
    Date currentDate() override { return timed([&] { return inner_.currentDate(); }); }
    double monotonicSeconds() override { return timed([&] { return inner_.monotonicSeconds(); }); }
    void sleep(double s) override { timed([&] { inner_.sleep(s); }); }

    Run appleScript(std::string_view script, double timeout) override {
        return timed([&] { return inner_.appleScript(script, timeout); });
    }
    std::string tool(const std::string& path, const std::vector<std::string>& arguments) override {
        return timed([&] { return inner_.tool(path, arguments); });
    }

private:
    testing::SimDesktop& inner_;
};

// What one reading of the clock costs. The timed stretch of each call holds
// about one reading (the end of the first and the start of the second), which
// is taken off the time measured inside the simulator.
double clockReadNanoseconds() {
    constexpr int rounds = 1000000;
    Clock::time_point last{};
    auto start = Clock::now();
    for (int i = 0; i < rounds; ++i) {
        last = Clock::now();
        benchmark::DoNotOptimize(last);
    }
    return std::chrono::duration<double, std::nano>(last - start).count() / rounds;
}

// 45 generic apps with 280 windows among them, and five scripted apps with 20 windows.
void populate(testing::SimDesktop& desktop) {
    int windows = 0;
    for (int app = 0; app < 45; ++app) {
        std::string id = "com.example.App" + std::to_string(app);
        auto pid = desktop.startApp(testing::appSpec(id, "/Applications/App" + std::to_string(app) + ".app",
                                                     "App " + std::to_string(app)));
        int count = app < 10 ? 8 : 6;  // 10 × 8 + 35 × 6 = 290, less the ten below
        if (app < 10) count -= 1;
        for (int i = 0; i < count; ++i, ++windows) {
            testing::SimWindow window;
            window.title = "Window " + std::to_string(i);
            window.document = "file:///Users/tester/doc" + std::to_string(windows) + ".txt";
            window.frame = {double(20 * i), double(25 + 10 * i), 800, 600};
            window.listed = i != 1;  // one per app on another Space: found by token only
            desktop.addWindow(pid, window);
        }
    }
    auto scripted = [&](const std::string& id, const std::string& name, int count, auto fill) {
        auto pid = desktop.startApp(testing::appSpec(id, "/Applications/" + name + ".app", name));
        for (int i = 0; i < count; ++i, ++windows) {
            testing::SimWindow window;
            window.frame = {double(10 * i), 25, 1000, 700};
            fill(window, i);
            desktop.addWindow(pid, window);
        }
    };
    scripted("com.google.Chrome", "Google Chrome", 5, [](testing::SimWindow& w, int i) {
        for (int t = 0; t < 12; ++t) w.tabs.push_back("https://site" + std::to_string(i) + ".example/" + std::to_string(t));
    });
    scripted("com.apple.Safari", "Safari", 4, [](testing::SimWindow& w, int i) {
        for (int t = 0; t < 6; ++t) w.tabs.push_back("https://s" + std::to_string(i) + ".example/" + std::to_string(t));
    });
    scripted("com.apple.finder", "Finder", 4, [](testing::SimWindow& w, int i) {
        w.folder = "/Users/tester/Folder" + std::to_string(i) + "/";
    });
    scripted("com.apple.Terminal", "Terminal", 4, [](testing::SimWindow& w, int i) {
        w.tty = "/dev/ttys0" + std::to_string(10 + i);
        w.shellDirectory = "/Users/tester/src/p" + std::to_string(i);
    });
    scripted("com.googlecode.iterm2", "iTerm", 3, [](testing::SimWindow& w, int i) {
        w.tabs = {"/tmp/a" + std::to_string(i), "/tmp/b" + std::to_string(i)};
    });
    if (windows != 300) std::abort();
}

void CaptureFiftyAppsThreeHundredWindows(benchmark::State& state) {
    testing::SimDesktop desktop;
    populate(desktop);
    TimedPlatform timed(desktop);
    const double readCost = clockReadNanoseconds();
    auto clean = [&] {
        // The simulator keeps every token, time-out and script it was given.
        desktop.tokens.clear();
        desktop.timeouts.clear();
        desktop.scriptRuns.clear();
        desktop.journal.clear();
    };

    double ours = 0, inside = 0, calls = 0, rounds = 0;
    for (auto _ : state) {
        // The measured run goes straight to the simulator.
        auto start = Clock::now();
        Snapshot snapshot;
        {
            testing::ScopedPlatform installed(desktop);
            testing::ScopedScripts scripts(desktop);
            snapshot = Capture::snapshot("auto");
        }
        double total = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        benchmark::DoNotOptimize(snapshot);
        if (snapshot.windowCount() != 300) state.SkipWithError("the capture lost windows");

        // A second, unmeasured run through the wrapper tells how much of that was the simulator's.
        state.PauseTiming();
        clean();
        timed.inside = {};
        timed.calls = 0;
        {
            testing::ScopedPlatform installed(timed);
            testing::ScopedScripts scripts(timed);
            benchmark::DoNotOptimize(Capture::snapshot("auto"));
        }
        double platform = std::chrono::duration<double, std::milli>(timed.inside).count() -
                          double(timed.calls) * readCost * 1e-6;
        ours += total - platform;
        inside += platform;
        calls += double(timed.calls);
        rounds += 1;
        clean();
        state.ResumeTiming();
    }
    state.counters["ours_ms"] = ours / rounds;
    state.counters["platform_ms"] = inside / rounds;
    state.counters["platform_calls"] = calls / rounds;
}
BENCHMARK(CaptureFiftyAppsThreeHundredWindows)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tarnwick

// Snapshot generators: random ones for round trips, heavy ones for benchmarks.
#include "support/snapshot_gen.h"

#include <cmath>
#include <string>
#include <vector>

namespace tarnwick::testing {

namespace {

std::string randomText(std::mt19937_64& random) {
    static const std::vector<std::string> pieces = {
        "a", "Z", "0", " ", "\"", "\\", "/", "//", "\n", "\r", "\t", "\b", "\f", std::string(1, '\0'),
        "\x01", "\x1f", "\x7f", "é", "ß", "—", "·", "…", "日本", "🙂", "\xF0\x9F\x8F\xB3\xEF\xB8\x8F",
        "https://example.com/a?b=c&d=\"e\"", "/Users/someone/Documents/", "'", "{", "}", "[", "]", ":", ","};
    std::uniform_int_distribution<size_t> length(0, 12), pick(0, pieces.size() - 1);
    std::string text;
    for (size_t n = length(random); n > 0; --n) text += pieces[pick(random)];
    return text;
}

std::optional<std::string> maybeText(std::mt19937_64& random) {
    if (random() % 3 == 0) return std::nullopt;
    return randomText(random);
}

double randomDouble(std::mt19937_64& random) {
    switch (random() % 5) {
        case 0: return static_cast<double>(static_cast<int64_t>(random() % 5000) - 2500);
        case 1: return std::uniform_real_distribution<double>(-1e4, 1e4)(random);
        case 2: return std::uniform_real_distribution<double>(-1e300, 1e300)(random);
        case 3: return -0.0;
        default: return std::ldexp(static_cast<double>(random() % 1000000), -static_cast<int>(random() % 60));
    }
}

std::optional<Frame> maybeFrame(std::mt19937_64& random) {
    if (random() % 4 == 0) return std::nullopt;
    return Frame{randomDouble(random), randomDouble(random), randomDouble(random), randomDouble(random)};
}

}  // namespace

Snapshot randomSnapshot(std::mt19937_64& random) {
    Snapshot snapshot;
    // Anywhere between 1970 and 2200, with a fraction that the file drops.
    snapshot.date = Date{std::chrono::nanoseconds{static_cast<int64_t>(random() % 7'258'118'400'000'000'000ULL)}};
    snapshot.reason = randomText(random);
    snapshot.frontmost = maybeText(random);
    for (size_t a = random() % 6; a > 0; --a) {
        AppState app;
        app.name = randomText(random);
        app.bundleID = maybeText(random);
        app.bundlePath = randomText(random);
        app.kind = static_cast<AppKind>(random() % 6);
        app.hidden = random() % 2 == 0;
        for (size_t w = random() % 4; w > 0; --w) {
            WindowState window{maybeText(random), maybeText(random), maybeFrame(random), random() % 2 == 0,
                               random() % 2 == 0};
            // What an X11 desktop adds, now and then.
            if (random() % 3 == 0) {
                window.workspace = static_cast<int64_t>(random() % 5) - 1;
                window.maximizedHorizontally = random() % 2 == 0;
                window.maximizedVertically = random() % 2 == 0;
            }
            app.windows.push_back(std::move(window));
        }
        for (size_t w = random() % 4; w > 0; --w) {
            ScriptedWindow window{maybeFrame(random), {}, static_cast<int64_t>(random())};
            for (size_t t = random() % 5; t > 0; --t) window.items.push_back(randomText(random));
            app.scripted.push_back(std::move(window));
        }
        if (random() % 4 == 0) {
            app.commandLine.emplace();
            for (size_t word = random() % 4; word > 0; --word) app.commandLine->push_back(randomText(random));
        }
        app.workingDirectory = random() % 4 == 0 ? maybeText(random) : std::nullopt;
        snapshot.apps.push_back(std::move(app));
    }
    return snapshot;
}

Snapshot heavySession(int apps, int windows, int tabs, Date date) {
    constexpr int browsers = 4;
    // Windows spread evenly over the apps, tabs evenly over the browsers' windows.
    std::vector<int> windowsOf(static_cast<size_t>(apps), windows / apps);
    for (int a = 0; a < windows % apps; ++a) ++windowsOf[static_cast<size_t>(a)];
    int browserWindows = 0;
    for (int a = 0; a < browsers && a < apps; ++a) browserWindows += windowsOf[static_cast<size_t>(a)];

    Snapshot snapshot{date, "auto", "com.google.Chrome", {}};
    int browserWindow = 0;
    for (int a = 0; a < apps; ++a) {
        bool browser = a < browsers;
        AppState app;
        app.name = browser ? "Browser " + std::to_string(a) : "Application " + std::to_string(a);
        app.bundleID = browser ? "com.google.Chrome" : "com.example.app" + std::to_string(a);
        app.bundlePath = "/Applications/" + app.name + ".app";
        app.kind = browser ? AppKind::chromium : AppKind::generic;
        for (int w = 0; w < windowsOf[static_cast<size_t>(a)]; ++w) {
            Frame frame{20.0 * w, 25.0 + 10 * w, 1024.5, 768};
            if (!browser) {
                app.windows.push_back({"Document " + std::to_string(w) + " — " + app.name,
                                       "/Users/someone/Documents/file" + std::to_string(w) + ".txt", frame,
                                       w % 7 == 3, false});
                continue;
            }
            int tabCount = tabs / browserWindows + (browserWindow++ < tabs % browserWindows ? 1 : 0);
            ScriptedWindow window{frame, {}, 1};
            for (int t = 0; t < tabCount; ++t)
                window.items.push_back("https://example.com/articles/" + std::to_string(a) + "/" +
                                       std::to_string(w) + "/" + std::to_string(t) + "?ref=tarnwick&lang=en");
            app.scripted.push_back(std::move(window));
        }
        snapshot.apps.push_back(std::move(app));
    }
    return snapshot;
}

bool sameSnapshot(const Snapshot& a, const Snapshot& b) {
    return a.date == b.date && a.reason == b.reason && a.frontmost == b.frontmost && sameList(a.apps, b.apps);
}

Date wholeSeconds(Date date) { return std::chrono::floor<std::chrono::seconds>(date); }

}  // namespace tarnwick::testing

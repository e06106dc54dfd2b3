// Snapshot counts, summary and the equality rules of the records.
#include "model/snapshot.h"
#include "model/utf8.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tarnwick {
namespace {

AppState app(AppKind kind, size_t windows, std::vector<size_t> itemsPerScripted) {
    AppState state{"App", "com.example", "/Applications/App.app", kind, false, {}, {}};
    for (size_t i = 0; i < windows; ++i) state.windows.push_back({"w", std::nullopt, Frame{0, 0, 1, 1}, false, false});
    for (size_t n : itemsPerScripted)
        state.scripted.push_back({std::nullopt, TextList(std::vector<std::string>(n, "x")), 1});
    return state;
}

TEST(SnapshotCounts, TerminalCountsScriptedWindowsOnlyAndNoTabs) {
    Snapshot s{{}, "manual", std::nullopt, {app(AppKind::terminal, 1, {1, 1, 1})}};
    EXPECT_EQ(s.windowCount(), 3);
    EXPECT_EQ(s.tabCount(), 0);
}

TEST(SnapshotCounts, SafariWindowsAndTabs) {
    Snapshot s{{}, "manual", std::nullopt, {app(AppKind::safari, 0, {4, 2})}};
    EXPECT_EQ(s.windowCount(), 2);
    EXPECT_EQ(s.tabCount(), 6);
}

TEST(SnapshotCounts, GenericCountsAccessibilityWindowsOnly) {
    Snapshot s{{}, "manual", std::nullopt, {app(AppKind::generic, 2, {5})}};
    EXPECT_EQ(s.windowCount(), 2);
    EXPECT_EQ(s.tabCount(), 0);
}

TEST(SnapshotCounts, FinderFoldersAreNotTabs) {
    Snapshot s{{}, "manual", std::nullopt, {app(AppKind::finder, 0, {3}), app(AppKind::iterm, 0, {2})}};
    EXPECT_EQ(s.windowCount(), 2);
    EXPECT_EQ(s.tabCount(), 0);
}

TEST(SnapshotSummary, WithoutBrowsersHasNoTabsPart) {
    Snapshot s{{}, "auto", std::nullopt,
               {app(AppKind::generic, 3, {}), app(AppKind::generic, 2, {}), app(AppKind::finder, 0, {1, 1})}};
    EXPECT_EQ(s.summary(), "3 apps · 7 windows");
}

TEST(SnapshotSummary, WordsStayPluralAndTabsAppearFromOne) {
    EXPECT_EQ((Snapshot{{}, "auto", std::nullopt, {}}).summary(), "0 apps · 0 windows");
    EXPECT_EQ((Snapshot{{}, "auto", std::nullopt, {app(AppKind::generic, 1, {})}}).summary(), "1 apps · 1 windows");
    EXPECT_EQ((Snapshot{{}, "auto", std::nullopt, {app(AppKind::chromium, 0, {1})}}).summary(),
              "1 apps · 1 windows · 1 tabs");
    Snapshot five{{}, "auto", std::nullopt,
                  {app(AppKind::generic, 4, {}), app(AppKind::generic, 3, {}), app(AppKind::chromium, 0, {30, 5}),
                   app(AppKind::safari, 0, {5}), app(AppKind::terminal, 0, {1, 1})}};
    EXPECT_EQ(five.summary(), "5 apps · 12 windows · 40 tabs");
}

TEST(RecordEquality, SameAppsInAnotherOrderAreUnequal) {
    AppState a = app(AppKind::generic, 1, {}), b = app(AppKind::generic, 2, {});
    b.name = "Other";
    EXPECT_TRUE(sameList(std::vector<AppState>{a, b}, std::vector<AppState>{a, b}));
    EXPECT_FALSE(sameList(std::vector<AppState>{a, b}, std::vector<AppState>{b, a}));
}

TEST(RecordEquality, EveryFieldCounts) {
    AppState base = app(AppKind::chromium, 1, {2});
    auto differs = [&](auto change) {
        AppState other = base;
        change(other);
        return !(other == base);
    };
    EXPECT_TRUE(differs([](AppState& a) { a.name = "x"; }));
    EXPECT_TRUE(differs([](AppState& a) { a.bundleID.reset(); }));
    EXPECT_TRUE(differs([](AppState& a) { a.bundlePath = "x"; }));
    EXPECT_TRUE(differs([](AppState& a) { a.kind = AppKind::safari; }));
    EXPECT_TRUE(differs([](AppState& a) { a.hidden = true; }));
    EXPECT_TRUE(differs([](AppState& a) { a.windows[0].title = std::nullopt; }));
    EXPECT_TRUE(differs([](AppState& a) { a.windows[0].document = ""; }));
    EXPECT_TRUE(differs([](AppState& a) { a.windows[0].frame->x += 1; }));
    EXPECT_TRUE(differs([](AppState& a) { a.windows[0].minimized = true; }));
    EXPECT_TRUE(differs([](AppState& a) { a.windows[0].fullScreen = true; }));
    EXPECT_TRUE(differs([](AppState& a) { a.scripted[0].items.push_back("y"); }));
    EXPECT_TRUE(differs([](AppState& a) { a.scripted[0].activeIndex = 2; }));
    EXPECT_TRUE(differs([](AppState& a) { a.scripted[0].frame = Frame{0, 0, 1, 1}; }));
    EXPECT_FALSE(differs([](AppState&) {}));
}

TEST(RecordEquality, AbsentAndEmptyTextsDiffer) {
    WindowState a{std::nullopt, std::nullopt, std::nullopt, false, false};
    WindowState b{"", std::nullopt, std::nullopt, false, false};
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a == a);
}

TEST(RecordEquality, AListIsEqualToItselfEvenWithANaNFrame) {
    std::vector<WindowState> windows{{"w", std::nullopt, Frame{std::nan(""), 0, 1, 1}, false, false}};
    EXPECT_TRUE(sameList(windows, windows));
    std::vector<WindowState> copy = windows;
    EXPECT_FALSE(sameList(windows, copy));
}

TEST(Utf8Repair, EachByteThatStartsNoSequenceBecomesOneReplacementCharacter) {
    EXPECT_EQ(validUtf8("a\xFF" "b"), "a\xEF\xBF\xBD" "b");
    EXPECT_EQ(validUtf8("\xE2\x82"), "\xEF\xBF\xBD\xEF\xBF\xBD") << "a cut sequence, byte by byte";
    EXPECT_EQ(validUtf8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD") << "a surrogate";
    EXPECT_EQ(validUtf8("caf\xC3\xA9 \xF0\x9F\x98\x80"), "caf\xC3\xA9 \xF0\x9F\x98\x80");
}

TEST(Utf8Repair, ValidityHoldsAcrossTheEightByteSteps) {
    const std::string ascii = "abcdefghijklmnopqrstuvwxyz";
    for (size_t at = 0; at <= ascii.size(); ++at) {
        std::string bad = ascii.substr(0, at) + "\xFF" + ascii.substr(at);
        EXPECT_FALSE(isValidUtf8(bad)) << "a stray byte after " << at;
        std::string good = ascii.substr(0, at) + "\xC3\xA9" + ascii.substr(at);
        EXPECT_TRUE(isValidUtf8(good)) << "a two-byte character after " << at;
        std::string cut = ascii.substr(0, at) + "\xE2\x82";
        EXPECT_FALSE(isValidUtf8(cut)) << "a cut sequence at the end after " << at;
    }
    EXPECT_TRUE(isValidUtf8(ascii));
    EXPECT_TRUE(isValidUtf8(""));
}

TEST(Utf8Repair, EveryTextOfASnapshotIsReachedAndValidOnesStay) {
    const std::string bad = "\x80";
    Snapshot snapshot{Date{}, "r" + bad, "f" + bad,
                      {AppState{"n" + bad, "b" + bad, "p" + bad, AppKind::generic, false,
                                {WindowState{"t" + bad, "d" + bad, std::nullopt, false, false}}, {}},
                       AppState{"ok", std::nullopt, "/ok", AppKind::safari, false, {},
                                {ScriptedWindow{std::nullopt, {"valid", "i" + bad}, 1}}}}};
    EXPECT_FALSE(textsAreValidUtf8(snapshot));
    makeTextsValidUtf8(snapshot);
    EXPECT_TRUE(textsAreValidUtf8(snapshot));
    const std::string fixed = "\xEF\xBF\xBD";
    EXPECT_EQ(snapshot.reason, "r" + fixed);
    EXPECT_EQ(snapshot.frontmost, "f" + fixed);
    EXPECT_EQ(snapshot.apps[0].name, "n" + fixed);
    EXPECT_EQ(snapshot.apps[0].bundleID, "b" + fixed);
    EXPECT_EQ(snapshot.apps[0].bundlePath, "p" + fixed);
    EXPECT_EQ(snapshot.apps[0].windows[0].title, "t" + fixed);
    EXPECT_EQ(snapshot.apps[0].windows[0].document, "d" + fixed);
    EXPECT_EQ(snapshot.apps[1].scripted[0].items, (TextList{"valid", "i" + fixed}));
    EXPECT_EQ(snapshot.apps[1].bundleID, std::nullopt);
}

}  // namespace
}  // namespace tarnwick

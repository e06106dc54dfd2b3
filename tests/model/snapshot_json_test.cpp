// The JSON file form: exact layout, strict reading, and round trips.
#include "model/iso_date.h"
#include "model/snapshot_json.h"
#include "model/utf8.h"
#include "support/snapshot_gen.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tarnwick {
namespace {

using testing::sameSnapshot;

const char* const kExampleFile = R"({
  "apps" : [
    {
      "bundleID" : "com.apple.finder",
      "bundlePath" : "\/System\/Library\/CoreServices\/Finder.app",
      "hidden" : false,
      "kind" : "finder",
      "name" : "Finder",
      "scripted" : [
        {
          "activeIndex" : 1,
          "frame" : {
            "h" : 480,
            "w" : 920,
            "x" : 100,
            "y" : 80
          },
          "items" : [
            "\/Users\/someone\/Documents\/"
          ]
        }
      ],
      "windows" : [ ]
    }
  ],
  "date" : "2026-03-14T09:26:53Z",
  "frontmost" : "com.apple.finder",
  "reason" : "manual"
})";

Snapshot exampleSnapshot() {
    return Snapshot{*isoDateFrom("2026-03-14T09:26:53Z"),
                    "manual",
                    "com.apple.finder",
                    {AppState{"Finder",
                              "com.apple.finder",
                              "/System/Library/CoreServices/Finder.app",
                              AppKind::finder,
                              false,
                              {},
                              {ScriptedWindow{Frame{100, 80, 920, 480}, {"/Users/someone/Documents/"}, 1}}}}};
}

TEST(SnapshotJson, WritesTheExampleFileByteForByte) {
    EXPECT_EQ(encodeSnapshot(exampleSnapshot()), std::string(kExampleFile));
}

TEST(SnapshotJson, ReadsTheExampleFileIntoEqualRecords) {
    std::string error;
    auto decoded = decodeSnapshot(kExampleFile, &error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_TRUE(sameSnapshot(*decoded, exampleSnapshot()));
}

TEST(SnapshotJson, WindowWithoutFrameHasNoFrameKeyAndReadsBackEqual) {
    Snapshot s = exampleSnapshot();
    s.apps[0].kind = AppKind::generic;
    s.apps[0].windows = {WindowState{"Untitled", std::nullopt, std::nullopt, true, false}};
    auto text = encodeSnapshot(s);
    ASSERT_TRUE(text);
    EXPECT_NE(text->find(R"("minimized" : true,
          "title" : "Untitled")"),
              std::string::npos)
        << *text;
    EXPECT_EQ(text->find("null"), std::string::npos);
    size_t window = text->find("\"windows\"");
    EXPECT_EQ(text->find("\"frame\"", window), std::string::npos) << *text;
    auto back = decodeSnapshot(*text);
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->apps[0].windows == s.apps[0].windows);
    EXPECT_FALSE(back->apps[0].windows[0].frame.has_value());
}

TEST(SnapshotJson, AbsentOptionalsAreLeftOut) {
    Snapshot s{*isoDateFrom("2026-03-14T09:26:53Z"), "cli", std::nullopt, {AppState{"X", std::nullopt, "/x", AppKind::generic, true, {}, {}}}};
    EXPECT_EQ(encodeSnapshot(s), std::string(R"({
  "apps" : [
    {
      "bundlePath" : "\/x",
      "hidden" : true,
      "kind" : "generic",
      "name" : "X",
      "scripted" : [ ],
      "windows" : [ ]
    }
  ],
  "date" : "2026-03-14T09:26:53Z",
  "reason" : "cli"
})"));
}

TEST(SnapshotJson, EmptySession) {
    EXPECT_EQ(encodeSnapshot(Snapshot{*isoDateFrom("2026-03-14T09:26:53Z"), "auto", std::nullopt, {}}),
              std::string("{\n  \"apps\" : [ ],\n  \"date\" : \"2026-03-14T09:26:53Z\",\n  \"reason\" : \"auto\"\n}"));
}

TEST(SnapshotJson, NumbersInShortestRoundTripForm) {
    Snapshot s = exampleSnapshot();
    s.apps[0].scripted[0].frame = Frame{0.1, -25.5, 1e21, 1.0 / 3};
    s.apps[0].scripted[0].activeIndex = -3;
    auto text = encodeSnapshot(s);
    ASSERT_TRUE(text);
    EXPECT_NE(text->find("\"activeIndex\" : -3,"), std::string::npos);
    EXPECT_NE(text->find("\"x\" : 0.1,"), std::string::npos);
    EXPECT_NE(text->find("\"y\" : -25.5\n"), std::string::npos);
    EXPECT_NE(text->find("\"h\" : 0.3333333333333333,"), std::string::npos);
    auto back = decodeSnapshot(*text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->apps[0].scripted[0], s.apps[0].scripted[0]);
}

TEST(SnapshotJson, TextEscaping) {
    Snapshot s = exampleSnapshot();
    s.reason = std::string("a\"b\\c/d\ne\tf\x01g\x7f") + "é—🙂" + std::string(1, '\0');
    auto text = encodeSnapshot(s);
    ASSERT_TRUE(text);
    EXPECT_NE(text->find(R"("reason" : "a\"b\\c\/d\ne\tf\u0001g)" "\x7f" "é—🙂\\u0000\""), std::string::npos) << *text;
    auto back = decodeSnapshot(*text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->reason, s.reason);
}

TEST(SnapshotJson, InvalidUtf8IsWrittenAsReplacementCharacter) {
    Snapshot s = exampleSnapshot();
    s.reason = "a\xff" "b\xc3";
    auto text = encodeSnapshot(s);
    ASSERT_TRUE(text);
    auto back = decodeSnapshot(*text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->reason, "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
}

TEST(SnapshotJson, LongTextsAreWrittenWhole) {
    // Texts far longer than the writer's working buffer, in every mix of forms,
    // at every offset against its edge.
    const std::string piece = std::string("a/\x01\xC3\xA9\xFF\"") + std::string(1, '\0');
    const std::string written = R"(a\/\u0001)" "\xC3\xA9" "\xEF\xBF\xBD" R"(\"\u0000)";
    for (size_t lead = 0; lead < 7; ++lead) {
        Snapshot s = exampleSnapshot();
        s.reason = std::string(lead, 'x');
        std::string expected = "\"reason\" : \"" + s.reason;
        for (int i = 0; i < 700; ++i) s.reason += piece, expected += written;
        expected += "\"";
        auto text = encodeSnapshot(s);
        ASSERT_TRUE(text);
        EXPECT_NE(text->find(expected), std::string::npos) << lead;
        auto back = decodeSnapshot(*text);
        ASSERT_TRUE(back);
        EXPECT_EQ(back->reason, validUtf8(s.reason));
    }
}

TEST(SnapshotJson, NonFiniteNumberMakesEncodingFail) {
    for (double bad : {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
        Snapshot s = exampleSnapshot();
        s.apps[0].scripted[0].frame->w = bad;
        std::string error;
        EXPECT_EQ(encodeSnapshot(s, &error), std::nullopt);
        EXPECT_EQ(error, "a frame value is not a finite number");
    }
    Snapshot s = exampleSnapshot();
    s.apps[0].kind = AppKind::generic;
    s.apps[0].windows = {WindowState{std::nullopt, std::nullopt, Frame{0, std::nan(""), 1, 1}, false, false}};
    EXPECT_EQ(encodeSnapshot(s), std::nullopt);
}

TEST(SnapshotJson, DateKeepsWholeSecondsOnly) {
    Snapshot s = exampleSnapshot();
    s.date += std::chrono::milliseconds(999);
    auto back = decodeSnapshot(*encodeSnapshot(s));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->date, *isoDateFrom("2026-03-14T09:26:53Z"));
}

std::string withReplaced(std::string text, const std::string& from, const std::string& to) {
    size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

std::string decodeError(const std::string& text) {
    std::string error;
    auto decoded = decodeSnapshot(text, &error);
    EXPECT_FALSE(decoded) << text;
    return error;
}

TEST(SnapshotJsonRead, UnknownKindDoesNotDecode) {
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("kind" : "finder")", R"("kind" : "opera")")),
              R"("apps[0].kind" is an unknown kind "opera")");
}

TEST(SnapshotJsonRead, MissingRequiredKeysDoNotDecode) {
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("hidden" : false,)", "")), R"("apps[0].hidden" is missing)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"(,
  "reason" : "manual")", "")),
              R"("reason" is missing)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("windows" : [ ])", R"("other" : [ ])")),
              R"("apps[0].windows" is missing)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("h" : 480,)", "")), R"("apps[0].scripted[0].frame.h" is missing)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("activeIndex" : 1,)", "")),
              R"("apps[0].scripted[0].activeIndex" is missing)");
}

TEST(SnapshotJsonRead, NullInARequiredPlaceDoesNotDecode) {
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("name" : "Finder")", R"("name" : null)")),
              R"("apps[0].name" is null)");
}

TEST(SnapshotJsonRead, WrongTypesDoNotDecode) {
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("hidden" : false)", R"("hidden" : 0)")),
              R"("apps[0].hidden" is not a boolean)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("activeIndex" : 1)", R"("activeIndex" : 1.5)")),
              R"("apps[0].scripted[0].activeIndex" is not an integer)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("x" : 100)", R"("x" : "100")")),
              R"("apps[0].scripted[0].frame.x" is not a number)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("\/Users\/someone\/Documents\/")", "7")),
              R"("apps[0].scripted[0].items[0]" is not a string)");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("bundleID" : "com.apple.finder")", R"("bundleID" : 1)")),
              R"("apps[0].bundleID" is not a string)");
    EXPECT_EQ(decodeError("[1, 2]"), "the document is not an object");
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, "2026-03-14T09:26:53Z", "2026-03-14 09:26:53")),
              R"("date" is not an ISO 8601 date: "2026-03-14 09:26:53")");
}

TEST(SnapshotJsonRead, NotJsonDoesNotDecode) {
    EXPECT_EQ(decodeError("").rfind("not valid JSON: ", 0), 0u);
    EXPECT_EQ(decodeError("{\"apps\" : [").rfind("not valid JSON: ", 0), 0u);
    EXPECT_EQ(decodeError(std::string(kExampleFile) + "}").rfind("not valid JSON: ", 0), 0u);
}

TEST(SnapshotJsonRead, OptionalKeysMayBeNullOrMissing) {
    std::string text = withReplaced(kExampleFile, R"("bundleID" : "com.apple.finder")", R"("bundleID" : null)");
    text = withReplaced(text, R"("frontmost" : "com.apple.finder")", R"("frontmost" : null)");
    text = withReplaced(text, R"("frame" : {
            "h" : 480,
            "w" : 920,
            "x" : 100,
            "y" : 80
          },)", "");
    auto decoded = decodeSnapshot(text);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->apps[0].bundleID, std::nullopt);
    EXPECT_EQ(decoded->frontmost, std::nullopt);
    EXPECT_EQ(decoded->apps[0].scripted[0].frame, std::nullopt);
}

TEST(SnapshotJsonRead, UnknownKeysAreIgnoredAndOrderDoesNotMatter) {
    auto decoded = decodeSnapshot(R"({"reason":"auto","version":3,"apps":[{"windows":[{"fullScreen":true,"minimized":false,
        "extra":{"a":[1]}}],"scripted":[],"name":"N","kind":"generic","hidden":false,"bundlePath":"/p"}],
        "date":"2026-03-14T10:26:53+01:00"})");
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->date, *isoDateFrom("2026-03-14T09:26:53Z"));
    EXPECT_EQ(decoded->apps[0].windows[0], (WindowState{std::nullopt, std::nullopt, std::nullopt, false, true}));
}

TEST(SnapshotJsonRead, ARepeatedKeyCountsWhereItFirstStands) {
    auto decoded =
        decodeSnapshot(withReplaced(kExampleFile, R"("hidden" : false,)", R"("hidden" : false, "hidden" : 7,)"));
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoded->apps[0].hidden);
    EXPECT_EQ(decodeError(withReplaced(kExampleFile, R"("name" : "Finder")", R"("name" : null, "name" : "Finder")")),
              R"("apps[0].name" is null)");
}

TEST(SnapshotJsonRead, WholeNumbersWithAFractionAreIntegers) {
    auto decoded = decodeSnapshot(withReplaced(kExampleFile, R"("activeIndex" : 1)", R"("activeIndex" : 2.0)"));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->apps[0].scripted[0].activeIndex, 2);
}

TEST(SnapshotJsonRoundTrip, ThousandsOfRandomSnapshots) {
    std::mt19937_64 random(20261121);
    for (int i = 0; i < 4000; ++i) {
        Snapshot original = testing::randomSnapshot(random);
        std::string error;
        auto text = encodeSnapshot(original, &error);
        ASSERT_TRUE(text) << "snapshot " << i << ": " << error;
        auto back = decodeSnapshot(*text, &error);
        ASSERT_TRUE(back) << "snapshot " << i << ": " << error << "\n" << *text;
        original.date = testing::wholeSeconds(original.date);
        ASSERT_TRUE(sameSnapshot(*back, original)) << "snapshot " << i << "\n" << *text;
        // Writing what was read gives the same bytes again.
        ASSERT_EQ(encodeSnapshot(*back), text) << "snapshot " << i;
    }
}

}  // namespace
}  // namespace tarnwick

namespace tarnwick {
namespace {

// A Linux session: a window with its workspace and maximized state, a program
// known by its command line, a terminal in a folder.
Snapshot linuxSnapshot() {
    WindowState window{"Logo", std::nullopt, Frame{10, 20, 300, 200}, false, false};
    window.workspace = 1;
    window.maximizedHorizontally = false;
    window.maximizedVertically = true;
    window.output = "DP-2";
    AppState logo{"XLogo", std::nullopt, "/usr/bin/xlogo", AppKind::generic, false, {window}, {}};
    logo.commandLine = std::vector<std::string>{"/usr/bin/xlogo", "-geometry", "300x200+10+20"};
    AppState terminal{"XTerm", "debian-xterm.desktop", "/usr/share/applications/debian-xterm.desktop",
                      AppKind::generic, false, {}, {}};
    terminal.workingDirectory = "/home/someone/project";
    return Snapshot{*isoDateFrom("2026-03-14T09:26:53Z"), "cli", std::nullopt, {logo, terminal}};
}

TEST(SnapshotJsonLinux, NewFieldsAreWrittenInKeyOrderOnlyWhenPresent) {
    auto text = encodeSnapshot(linuxSnapshot());
    ASSERT_TRUE(text);
    EXPECT_NE(text->find(R"("bundlePath" : "\/usr\/bin\/xlogo",
      "commandLine" : [
        "\/usr\/bin\/xlogo",
        "-geometry",
        "300x200+10+20"
      ],
      "hidden" : false,)"),
              std::string::npos)
        << *text;
    EXPECT_NE(text->find(R"("fullScreen" : false,
          "maximizedHorizontally" : false,
          "maximizedVertically" : true,
          "minimized" : false,
          "output" : "DP-2",
          "title" : "Logo",
          "workspace" : 1
        })"),
              std::string::npos)
        << *text;
    EXPECT_NE(text->find(R"("windows" : [ ],
      "workingDirectory" : "\/home\/someone\/project"
    })"),
              std::string::npos)
        << *text;
    // The terminal has no command line; the program no working folder.
    EXPECT_EQ(text->find("\"commandLine\""), text->rfind("\"commandLine\""));
    EXPECT_EQ(text->find("\"workingDirectory\""), text->rfind("\"workingDirectory\""));
}

TEST(SnapshotJsonLinux, AMacSessionCarriesNoneOfThem) {
    auto text = encodeSnapshot(exampleSnapshot());
    ASSERT_TRUE(text);
    for (const char* key : {"workspace", "maximizedHorizontally", "maximizedVertically", "output", "commandLine",
                            "workingDirectory"})
        EXPECT_EQ(text->find(key), std::string::npos) << key;
}

TEST(SnapshotJsonLinux, NewFieldsReadBackEqual) {
    Snapshot s = linuxSnapshot();
    auto back = decodeSnapshot(*encodeSnapshot(s));
    ASSERT_TRUE(back);
    EXPECT_TRUE(sameSnapshot(*back, s));
    EXPECT_EQ(back->apps[0].windows[0].workspace, 1);
    EXPECT_EQ(back->apps[0].windows[0].output, "DP-2");
    EXPECT_EQ(back->apps[0].commandLine->size(), 3u);
    EXPECT_EQ(back->apps[1].workingDirectory, "/home/someone/project");
    // A difference in any of them is a different session.
    Snapshot moved = s;
    moved.apps[0].windows[0].workspace = 2;
    EXPECT_FALSE(sameList(moved.apps, s.apps));
    Snapshot elsewhere = s;
    elsewhere.apps[1].workingDirectory = "/tmp";
    EXPECT_FALSE(sameList(elsewhere.apps, s.apps));
    Snapshot otherScreen = s;
    otherScreen.apps[0].windows[0].output = "DP-1";
    EXPECT_FALSE(sameList(otherScreen.apps, s.apps));
}

// The session without what only Linux records.
Snapshot withoutLinuxKeys(Snapshot s) {
    for (AppState& app : s.apps) {
        app.commandLine.reset();
        app.workingDirectory.reset();
        for (WindowState& window : app.windows) {
            window.workspace.reset();
            window.maximizedHorizontally.reset();
            window.maximizedVertically.reset();
            window.output.reset();
        }
    }
    return s;
}

TEST(SnapshotJsonLinux, NullOrMissingReadsAsAbsent) {
    std::string text = *encodeSnapshot(linuxSnapshot());
    auto nulled = decodeSnapshot(withReplaced(text, R"("workspace" : 1)", R"("workspace" : null)"));
    ASSERT_TRUE(nulled);
    EXPECT_EQ(nulled->apps[0].windows[0].workspace, std::nullopt);
}

TEST(SnapshotJsonLinux, AWrongTypeReadsAsAbsentAndLosesNothingElse) {
    std::string text = *encodeSnapshot(linuxSnapshot());
    struct Case {
        const char* from;
        const char* to;
        void (*clear)(Snapshot&);
    };
    const Case cases[] = {
        {R"("workspace" : 1)", R"("workspace" : "two")", [](Snapshot& s) { s.apps[0].windows[0].workspace.reset(); }},
        {R"("workspace" : 1)", R"("workspace" : 1.5)", [](Snapshot& s) { s.apps[0].windows[0].workspace.reset(); }},
        {R"("workspace" : 1)", R"("workspace" : 18446744073709551615)",
         [](Snapshot& s) { s.apps[0].windows[0].workspace.reset(); }},
        {R"("maximizedVertically" : true)", R"("maximizedVertically" : 1)",
         [](Snapshot& s) { s.apps[0].windows[0].maximizedVertically.reset(); }},
        {R"("maximizedHorizontally" : false)", R"("maximizedHorizontally" : "no")",
         [](Snapshot& s) { s.apps[0].windows[0].maximizedHorizontally.reset(); }},
        {R"("output" : "DP-2")", R"("output" : 2)", [](Snapshot& s) { s.apps[0].windows[0].output.reset(); }},
        {R"("commandLine" : [)", R"("commandLine" : 5, "x-was" : [)",
         [](Snapshot& s) { s.apps[0].commandLine.reset(); }},
        // One word of the wrong type: the whole command line, not a part of it.
        {R"("-geometry")", "7", [](Snapshot& s) { s.apps[0].commandLine.reset(); }},
        {R"("workingDirectory" : "\/home\/someone\/project")", R"("workingDirectory" : [])",
         [](Snapshot& s) { s.apps[1].workingDirectory.reset(); }},
    };
    for (const Case& c : cases) {
        std::string changed = withReplaced(text, c.from, c.to);
        ASSERT_NE(changed, text) << c.to;
        std::string reason;
        auto decoded = decodeSnapshot(changed, &reason);
        ASSERT_TRUE(decoded) << c.to << ": " << reason;
        Snapshot expected = linuxSnapshot();
        c.clear(expected);
        EXPECT_TRUE(sameSnapshot(*decoded, expected)) << c.to;
        // The padded path the store takes makes the same checks.
        std::string padded = changed + std::string(SnapshotDecoder::padding, ' ');
        EXPECT_EQ(SnapshotDecoder().datePadded(std::string_view(padded.data(), changed.size())), decoded->date)
            << c.to;
    }
}

TEST(SnapshotJsonLinux, ARequiredKeyAfterAWrongLinuxKeyStillFailsTheFile) {
    std::string text = *encodeSnapshot(linuxSnapshot());
    // The first application's window carries the wrong workspace; the second
    // application, read after it, the wrong "hidden".
    std::string changed = withReplaced(text, R"("workspace" : 1)", R"("workspace" : "two")");
    size_t second = changed.find(R"("bundleID" : "debian-xterm.desktop")");
    ASSERT_NE(second, std::string::npos);
    changed.replace(changed.find(R"("hidden" : false)", second), 16, R"("hidden" : "no")");
    std::string reason;
    EXPECT_FALSE(decodeSnapshot(changed, &reason));
    EXPECT_EQ(reason, "\"apps[1].hidden\" is not a boolean");
    EXPECT_FALSE(decodeSnapshot(changed, &reason, System::macOS));
    EXPECT_EQ(reason, "\"apps[1].hidden\" is not a boolean");
    // So does a required key of the wrong type in the same window.
    std::string window = withReplaced(withReplaced(text, R"("workspace" : 1)", R"("workspace" : [])"),
                                      R"("minimized" : false)", R"("minimized" : 0)");
    EXPECT_FALSE(decodeSnapshot(window, &reason));
    EXPECT_EQ(reason, "\"apps[0].windows[0].minimized\" is not a boolean");
}

TEST(SnapshotJsonLinux, AMacReadsThemAsUnknownKeys) {
    std::string text = *encodeSnapshot(linuxSnapshot());
    SnapshotDecoder mac(System::macOS);
    std::string reason;
    auto decoded = mac.decode(text, &reason);
    ASSERT_TRUE(decoded) << reason;
    EXPECT_TRUE(sameSnapshot(*decoded, withoutLinuxKeys(linuxSnapshot())));
    EXPECT_EQ(decoded->apps[0].windows[0].frame, (Frame{10, 20, 300, 200}));
    EXPECT_EQ(decoded->apps[0].bundlePath, "/usr/bin/xlogo");
    // Whatever they hold.
    std::string odd = withReplaced(withReplaced(text, R"("workspace" : 1)", R"("workspace" : "two")"),
                                   R"("commandLine" : [)", R"("commandLine" : 5, "x-was" : [)");
    auto oddDecoded = decodeSnapshot(odd, &reason, System::macOS);
    ASSERT_TRUE(oddDecoded) << reason;
    EXPECT_TRUE(sameSnapshot(*oddDecoded, withoutLinuxKeys(linuxSnapshot())));
    // This build reads them.
    auto here = decodeSnapshot(text);
    ASSERT_TRUE(here);
    EXPECT_TRUE(sameSnapshot(*here, linuxSnapshot()));
    EXPECT_EQ(thisSystem, System::linuxDesktop);
}

TEST(SnapshotJsonLinux, TheSignatureIsReadOnLinuxOnlyAndAWrongTypeMeansNone) {
    Snapshot signed_ = linuxSnapshot();
    signed_.signature = std::string(64, 'a');
    std::string text = *encodeSnapshot(signed_);
    EXPECT_NE(text.find("  \"reason\" : \"cli\",\n  \"signature\" : \"aaaa"), std::string::npos) << text;
    auto here = decodeSnapshot(text);
    ASSERT_TRUE(here);
    EXPECT_EQ(here->signature, signed_.signature);
    EXPECT_FALSE(here->trusted) << "a file is trusted only once its signature is checked";
    auto mac = decodeSnapshot(text, nullptr, System::macOS);
    ASSERT_TRUE(mac);
    EXPECT_EQ(mac->signature, std::nullopt);
    std::string reason;
    auto odd = decodeSnapshot(withReplaced(text, "\"signature\" : \"" + std::string(64, 'a') + "\"",
                                           "\"signature\" : 12"),
                              &reason);
    ASSERT_TRUE(odd) << reason;
    EXPECT_EQ(odd->signature, std::nullopt);
}

TEST(SnapshotJsonLinux, AReaderThatKnowsNoneOfThemStillReadsTheRest) {
    // Unknown keys are ignored: what a reader without these fields sees is the
    // session without them.
    std::string text = *encodeSnapshot(linuxSnapshot());
    for (const char* key : {"workspace", "maximizedHorizontally", "maximizedVertically", "output", "commandLine",
                            "workingDirectory"}) {
        std::string renamed = text;
        for (size_t at = renamed.find(std::string("\"") + key + "\""); at != std::string::npos;
             at = renamed.find(std::string("\"") + key + "\"", at + 1))
            renamed.replace(at + 1, 0, "x-");
        auto decoded = decodeSnapshot(renamed);
        ASSERT_TRUE(decoded) << key;
        EXPECT_EQ(decoded->apps.size(), 2u);
    }
}

}  // namespace
}  // namespace tarnwick

// Desktop entries: reading them from real files, expanding Exec, matching windows.
#include "platform/linux/desktop_entry.h"

#include "support/scoped_variable.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace tarnwick::testing {
namespace {

using ::testing::ElementsAre;
using Entries = std::vector<DesktopEntries::Entry>;

class DesktopEntryTest : public ::testing::Test {
protected:
    std::filesystem::path write(const std::filesystem::path& folder, const std::string& name, const std::string& text) {
        std::filesystem::create_directories((folder / name).parent_path());
        writeText(folder / name, text);
        return folder / name;
    }
    std::filesystem::path user() const { return dir.path() / "user"; }
    std::filesystem::path system() const { return dir.path() / "system"; }

    static std::vector<std::string> ids(const Entries& entries) {
        std::vector<std::string> out;
        for (const auto& entry : entries) out.push_back(entry.id);
        return out;
    }
    static std::vector<std::string> args(const std::string& exec, const std::string& name = "App",
                                         std::optional<std::string> icon = std::nullopt) {
        DesktopEntries::Entry entry{"app.desktop", "/usr/share/applications/app.desktop", name, exec, icon, {}};
        return DesktopEntries::arguments(entry).value_or(std::vector<std::string>{"(broken)"});
    }

    TempDir dir{"tarnwick-desktop"};
};

TEST_F(DesktopEntryTest, ReadsTheMainGroupOnly) {
    auto file = write(system(), "xlogo.desktop",
                      "# a comment\n"
                      "[Desktop Entry]\n"
                      "Type=Application\n"
                      "Name=X Logo\n"
                      "Name[de]=X-Logo\n"
                      "Exec = xlogo -fg red\n"
                      "Icon=xlogo\n"
                      "StartupWMClass=XLogo\n"
                      "\n"
                      "[Desktop Action Big]\n"
                      "Exec=xlogo -geometry 500x500\n"
                      "Name=Big\n");
    auto entry = DesktopEntries::read(file, "xlogo.desktop");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->id, "xlogo.desktop");
    EXPECT_EQ(entry->name, "X Logo");
    EXPECT_EQ(entry->exec, "xlogo -fg red");
    EXPECT_EQ(entry->icon, "xlogo");
    EXPECT_EQ(entry->startupWMClass, "XLogo");
}

TEST_F(DesktopEntryTest, ANewWindowActionCountsWhenTheEntryListsIt) {
    auto listed = DesktopEntries::read(write(system(), "editor.desktop",
                                             "[Desktop Entry]\nType=Application\nName=Editor\nExec=editor %U\n"
                                             "Actions=new-document;new-window;\n"
                                             "[Desktop Action new-document]\nExec=editor --new-document\n"
                                             "[Desktop Action new-window]\nName=New Window\nExec=editor --new-window %U\n"
                                             "Exec=editor --ignored\n"),
                                       "editor.desktop");
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->exec, "editor %U") << "an action's keys stay out of the entry";
    EXPECT_EQ(listed->newWindowExec, "editor --new-window %U");
    EXPECT_EQ(DesktopEntries::newWindowArguments(*listed), (std::vector<std::string>{"editor", "--new-window"}));

    auto unlisted = DesktopEntries::read(write(system(), "viewer.desktop",
                                               "[Desktop Entry]\nType=Application\nName=Viewer\nExec=viewer\n"
                                               "Actions=preferences;\n"
                                               "[Desktop Action new-window]\nExec=viewer --window\n"),
                                         "viewer.desktop");
    ASSERT_TRUE(unlisted);
    EXPECT_EQ(unlisted->newWindowExec, std::nullopt);
    EXPECT_EQ(DesktopEntries::newWindowArguments(*unlisted), std::nullopt);

    // A first group that is an action does not make a file an entry.
    EXPECT_FALSE(DesktopEntries::read(write(system(), "odd.desktop",
                                            "[Desktop Action new-window]\nExec=odd\n[Desktop Entry]\n"
                                            "Type=Application\nName=Odd\nExec=odd\n"),
                                      "odd.desktop"));
}

TEST_F(DesktopEntryTest, LeavesOutWhatCannotBeLaunched) {
    std::string body = "Name=N\nExec=true\n";
    EXPECT_FALSE(DesktopEntries::read(write(system(), "a.desktop", "[Desktop Entry]\nType=Link\n" + body), "a"));
    EXPECT_FALSE(DesktopEntries::read(
        write(system(), "b.desktop", "[Desktop Entry]\nType=Application\nHidden=true\n" + body), "b"));
    EXPECT_FALSE(DesktopEntries::read(write(system(), "c.desktop", "[Desktop Entry]\nType=Application\nName=N\n"), "c"));
    EXPECT_FALSE(DesktopEntries::read(
        write(system(), "d.desktop", "[Desktop Entry]\nType=Application\nTryExec=/no/such/program\n" + body), "d"));
    EXPECT_FALSE(DesktopEntries::read(
        write(system(), "e.desktop", "[Desktop Entry]\nType=Application\nName=N\nExec=\"unterminated\n"), "e"));
    EXPECT_FALSE(DesktopEntries::read(write(system(), "f.desktop", "[Other]\n[Desktop Entry]\nType=Application\n" + body),
                                      "f"))
        << "the first group must be the entry";
    EXPECT_FALSE(DesktopEntries::read(system() / "missing.desktop", "missing"));
    EXPECT_TRUE(DesktopEntries::read(
        write(system(), "g.desktop", "[Desktop Entry]\nType=Application\nTryExec=sh\n" + body), "g"));
}

TEST_F(DesktopEntryTest, TheFirstFolderWinsForAnIdAndSubfoldersJoinWithDashes) {
    write(user(), "xterm.desktop", "[Desktop Entry]\nType=Application\nName=Mine\nExec=xterm -rv\n");
    write(system(), "xterm.desktop", "[Desktop Entry]\nType=Application\nName=System\nExec=xterm\n");
    write(system(), "kde/konsole.desktop", "[Desktop Entry]\nType=Application\nName=Konsole\nExec=konsole\n");
    write(user(), "xclock.desktop", "[Desktop Entry]\nType=Application\nHidden=true\nExec=xclock\n");
    write(system(), "xclock.desktop", "[Desktop Entry]\nType=Application\nName=Clock\nExec=xclock\n");
    write(system(), "notes.txt", "not an entry");

    Entries entries = DesktopEntries::all({user(), system(), dir.path() / "absent"});
    EXPECT_THAT(ids(entries), ElementsAre("xterm.desktop", "kde-konsole.desktop"))
        << "a hidden entry in the user's folder hides the system's";
    EXPECT_EQ(entries[0].name, "Mine");
}

TEST_F(DesktopEntryTest, FoldersFollowTheEnvironment) {
    const char* savedData = std::getenv("XDG_DATA_HOME");
    const char* savedDirs = std::getenv("XDG_DATA_DIRS");
    std::string data = savedData ? savedData : "";
    std::string dirs = savedDirs ? savedDirs : "";

    setenv("XDG_DATA_HOME", "/home/u/.data", 1);
    setenv("XDG_DATA_DIRS", "/opt/share:relative:/usr/share", 1);
    EXPECT_THAT(DesktopEntries::applicationFolders(),
                ElementsAre("/home/u/.data/applications", "/opt/share/applications", "/usr/share/applications"));
    unsetenv("XDG_DATA_DIRS");
    EXPECT_THAT(DesktopEntries::applicationFolders(),
                ElementsAre("/home/u/.data/applications", "/usr/local/share/applications", "/usr/share/applications"));

    savedData ? setenv("XDG_DATA_HOME", data.c_str(), 1) : unsetenv("XDG_DATA_HOME");
    savedDirs ? setenv("XDG_DATA_DIRS", dirs.c_str(), 1) : unsetenv("XDG_DATA_DIRS");
}

TEST_F(DesktopEntryTest, ExecExpandsFieldCodesForAStartWithoutFiles) {
    EXPECT_THAT(args("xlogo"), ElementsAre("xlogo"));
    EXPECT_THAT(args("gedit %U"), ElementsAre("gedit"));
    EXPECT_THAT(args("app --file=%f --open %F"), ElementsAre("app", "--file=", "--open"));
    EXPECT_THAT(args("app %i --title %c", "My App", "app-icon"),
                ElementsAre("app", "--icon", "app-icon", "--title", "My App"));
    EXPECT_THAT(args("app %i"), ElementsAre("app")) << "no icon, no option";
    EXPECT_THAT(args("app %k 100%%"), ElementsAre("app", "/usr/share/applications/app.desktop", "100%"));
    EXPECT_THAT(args("app %d %D %n %N %v %m"), ElementsAre("app"));
}

TEST_F(DesktopEntryTest, ExecQuotingGroupsWordsAndEscapes) {
    EXPECT_THAT(args("\"/opt/My App/bin/app\" --name \"a \\\"b\\\" \\$c \\\\d\""),
                ElementsAre("/opt/My App/bin/app", "--name", "a \"b\" $c \\d"));
    EXPECT_THAT(args("  sh   -c   \"echo hi\"  "), ElementsAre("sh", "-c", "echo hi"));
    EXPECT_THAT(args("app \"\""), ElementsAre("app", "")) << "an empty quoted word stays";
    EXPECT_THAT(args("\"open"), ElementsAre("(broken)"));
    EXPECT_THAT(args("%U"), ElementsAre("(broken)")) << "nothing left to run";
}

TEST_F(DesktopEntryTest, StringEscapesComeBeforeTheWords) {
    auto file = write(system(), "s.desktop",
                      "[Desktop Entry]\nType=Application\nName=S\nExec=app\\sone two\\\\three\\ttab\n");
    auto entry = DesktopEntries::read(file, "s.desktop");
    ASSERT_TRUE(entry);
    EXPECT_THAT(*DesktopEntries::arguments(*entry), ElementsAre("app", "one", "two\\three", "tab"));
}

TEST_F(DesktopEntryTest, MatchesByStartupClassThenByFileName) {
    Entries entries = {
        {"debian-xterm.desktop", "/x", "XTerm", "xterm", {}, std::string("XTerm")},
        {"xclock.desktop", "/c", "Clock", "xclock", {}, {}},
        {"org.example.Editor.desktop", "/e", "Editor", "editor", {}, std::string("editor-main")},
    };
    EXPECT_EQ(DesktopEntries::match(entries, {"xterm", "XTerm", ""})->id, "debian-xterm.desktop");
    EXPECT_EQ(DesktopEntries::match(entries, {"xclock", "XClock", ""})->id, "xclock.desktop") << "file name, any case";
    EXPECT_EQ(DesktopEntries::match(entries, {"editor-main", "Editor", ""})->id, "org.example.Editor.desktop")
        << "the instance when the class does not match";
    EXPECT_FALSE(DesktopEntries::match(entries, {"xeyes", "XEyes", ""}));
    EXPECT_FALSE(DesktopEntries::match(entries, {"", "", ""}));
}

TEST_F(DesktopEntryTest, AStartupClassMatchComesBeforeAFileNameMatch) {
    Entries entries = {
        {"xlogo.desktop", "/a", "By name", "xlogo", {}, {}},
        {"logo-viewer.desktop", "/b", "By class", "xlogo -big", {}, std::string("XLogo")},
    };
    EXPECT_EQ(DesktopEntries::match(entries, {"xlogo", "XLogo", ""})->name, "By class");
}

TEST_F(DesktopEntryTest, MatchesAsDesktopShellsDo) {
    write(system(), "org.gnome.gedit.desktop", "[Desktop Entry]\nType=Application\nName=Text Editor\nExec=gedit %U\n");
    write(system(), "org.xfce.mousepad.desktop",
          "[Desktop Entry]\nType=Application\nName=Mousepad\nExec=mousepad %F\n");
    write(system(), "calculator.desktop",
          "[Desktop Entry]\nType=Application\nName=Calculator\nExec=env LANG=C /usr/bin/xcalc -rpn\n");
    write(system(), "terminal.desktop",
          "[Desktop Entry]\nType=Application\nName=Terminal\nExec=xfce4-terminal\n"
          "Categories=GTK;System;TerminalEmulator;\n");
    Entries entries = DesktopEntries::all({system()});
    auto id = [&](std::string_view instance, std::string_view wmClass, std::string_view application = "") {
        auto found = DesktopEntries::match(entries, {instance, wmClass, application});
        return found ? found->id : std::string("(none)");
    };
    // The GTK application id names the entry file, whatever the class.
    EXPECT_EQ(id("gedit", "Gedit", "org.gnome.gedit"), "org.gnome.gedit.desktop");
    // A reverse-domain file name ends in the class.
    EXPECT_EQ(id("mousepad", "Mousepad"), "org.xfce.mousepad.desktop");
    // The Exec line's program, past env and its settings.
    EXPECT_EQ(id("xcalc", "XCalc"), "calculator.desktop");
    EXPECT_EQ(id("gedit", "Gedit"), "org.gnome.gedit.desktop") << "by its Exec program without the id too";
    EXPECT_EQ(id("xfce4-terminal", "Xfce4-terminal"), "terminal.desktop");
    EXPECT_EQ(id("xeyes", "XEyes"), "(none)");
    // "gedit.desktop" would be the same program's other name: no partial match on a dot alone.
    EXPECT_EQ(id("edit", "Edit"), "(none)");
}

TEST_F(DesktopEntryTest, RulesComeInTheirOrder) {
    Entries entries = {
        {"by-program.desktop", "/p", "Program", "logo", {}, {}, {}, "xlogo"},
        {"org.example.xlogo.desktop", "/n", "Name", "logo", {}, {}, {}, "other"},
        {"by-class.desktop", "/c", "Class", "logo", {}, std::string("XLogo"), {}, "other"},
        {"org.example.Logo.desktop", "/a", "Application", "logo", {}, {}, {}, "other"},
    };
    EXPECT_EQ(DesktopEntries::match(entries, {"xlogo", "XLogo", "org.example.Logo"})->name, "Class");
    entries.erase(entries.begin() + 2);
    EXPECT_EQ(DesktopEntries::match(entries, {"xlogo", "XLogo", "org.example.Logo"})->name, "Application");
    EXPECT_EQ(DesktopEntries::match(entries, {"xlogo", "XLogo", ""})->name, "Name");
    entries.erase(entries.begin() + 1);
    EXPECT_EQ(DesktopEntries::match(entries, {"xlogo", "XLogo", ""})->name, "Program");
}

TEST_F(DesktopEntryTest, TerminalsAreKnownByTheirCategory) {
    auto terminal = write(system(), "t.desktop",
                          "[Desktop Entry]\nType=Application\nName=T\nExec=t\nCategories=System;TerminalEmulator;\n");
    auto editor = write(system(), "e.desktop", "[Desktop Entry]\nType=Application\nName=E\nExec=e\nCategories=Utility;\n");
    EXPECT_TRUE(DesktopEntries::read(terminal, "t.desktop")->terminal());
    EXPECT_THAT(DesktopEntries::read(terminal, "t.desktop")->categories, ElementsAre("System", "TerminalEmulator"));
    EXPECT_FALSE(DesktopEntries::read(editor, "e.desktop")->terminal());
}

}  // namespace
}  // namespace tarnwick::testing

namespace tarnwick::testing {
namespace {

// Entries written, removed, rewritten and folders appearing, as the catalog
// notices them in the way given.
void catalogFollowsTheFolders(const std::filesystem::path& root, DesktopEntries::Catalog::Noticing noticing) {
    using Noticing = DesktopEntries::Catalog::Noticing;
    auto ids = [](const std::vector<DesktopEntries::Entry>& entries) {
        std::vector<std::string> out;
        for (const auto& entry : entries) out.push_back(entry.id);
        return out;
    };
    auto write = [](const std::filesystem::path& folder, const std::string& name, const std::string& text) {
        std::filesystem::create_directories((folder / name).parent_path());
        writeText(folder / name, text);
    };
    ScopedVariable dataHome("XDG_DATA_HOME", (root / "data").string());
    ScopedVariable dataDirs("XDG_DATA_DIRS", (root / "none").string());
    const auto applications = root / "data" / "applications";
    write(applications, "kde/old.desktop", "[Desktop Entry]\nType=Application\nName=Old\nExec=old\n");
    DesktopEntries::Catalog catalog(noticing);
    auto first = catalog.current();
    EXPECT_THAT(ids(*first), ElementsAre("kde-old.desktop"));
    EXPECT_EQ(catalog.current(), first) << "nothing changed: the same list, not read again";

    write(applications, "new.desktop", "[Desktop Entry]\nType=Application\nName=New\nExec=new\n");
    EXPECT_THAT(ids(*catalog.current()), ElementsAre("kde-old.desktop", "new.desktop"));
    // A file removed from a folder inside the folder.
    std::filesystem::remove(applications / "kde" / "old.desktop");
    EXPECT_THAT(ids(*catalog.current()), ElementsAre("new.desktop"));
    EXPECT_THAT(ids(*first), ElementsAre("kde-old.desktop")) << "a list handed out stays as it was";
    // A file rewritten in place, which leaves its folder's time as it was:
    // only the kernel tells of it.
    if (noticing == Noticing::kernel) {
        writeText(applications / "new.desktop", "[Desktop Entry]\nType=Application\nName=Renamed\nExec=new\n");
        auto renamed = catalog.current();
        ASSERT_EQ(renamed->size(), 1u);
        EXPECT_EQ(renamed->front().name, "Renamed");
    }
    // A folder that was not there when the entries were read.
    write(root / "none" / "applications", "late.desktop", "[Desktop Entry]\nType=Application\nName=Late\nExec=late\n");
    EXPECT_THAT(ids(*catalog.current()), ElementsAre("new.desktop", "late.desktop"));
    EXPECT_EQ(catalog.current(), catalog.current()) << "nothing changed since: the same list";
    // Other folders altogether.
    ScopedVariable elsewhere("XDG_DATA_HOME", (root / "elsewhere").string());
    EXPECT_THAT(ids(*catalog.current()), ElementsAre("late.desktop"));
}

TEST_F(DesktopEntryTest, TheCatalogIsReadAgainWhenAFolderOrAFolderInItChanges) {
    catalogFollowsTheFolders(dir.path(), DesktopEntries::Catalog::Noticing::kernel);
}

// Where the kernel will not watch the folders, their times tell.
TEST_F(DesktopEntryTest, TheCatalogFollowsTheFoldersByTheirTimesToo) {
    catalogFollowsTheFolders(dir.path(), DesktopEntries::Catalog::Noticing::folderTimes);
}

TEST_F(DesktopEntryTest, OnlyAnEntryOfTheApplicationFoldersIsStartedByItsPath) {
    ScopedVariable dataHome("XDG_DATA_HOME", (dir.path() / "data").string());
    ScopedVariable dataDirs("XDG_DATA_DIRS", (dir.path() / "none").string());
    const std::string text = "[Desktop Entry]\nType=Application\nName=Logo\nExec=xlogo -fg red\n";
    write(dir.path() / "data" / "applications", "xlogo.desktop", text);
    write(dir.path() / "elsewhere", "xlogo.desktop", text);
    auto installed = DesktopEntries::all(DesktopEntries::applicationFolders());
    std::string why;
    EXPECT_EQ(DesktopEntries::installedArguments(installed, dir.path() / "data" / "applications" / "xlogo.desktop", why),
              (std::vector<std::string>{"xlogo", "-fg", "red"}));
    EXPECT_EQ(DesktopEntries::installedArguments(installed, dir.path() / "elsewhere" / "xlogo.desktop", why),
              std::nullopt);
    EXPECT_EQ(why, "not a desktop entry of the application folders");
}

}  // namespace
}  // namespace tarnwick::testing

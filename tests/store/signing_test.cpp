// Signing: what the store writes reads back as this user's own; a file from
// elsewhere, or one whose launch data was changed, does not.
#include "store_fixture.h"

#include "model/hmac_sha256.h"
#include "store/signing.h"

#include <sys/stat.h>

namespace tarnwick::testing {
namespace {

class SigningTest : public StoreTest {
protected:
    // A program known by its command line, as a Linux capture records it.
    static Snapshot withCommand(Date date) {
        Snapshot snapshot = session(date);
        AppState clock{"XClock", std::nullopt, "/usr/bin/xclock", AppKind::generic, false, {}, {}};
        clock.commandLine = std::vector<std::string>{"/usr/bin/xclock", "-digital"};
        clock.workingDirectory = "/home/someone";
        snapshot.apps.push_back(clock);
        return snapshot;
    }

    // The file's text with one piece replaced.
    static void edit(const std::filesystem::path& file, const std::string& from, const std::string& to) {
        std::string text = readText(file);
        size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from << " in " << text;
        text.replace(at, from.size(), to);
        writeText(file, text);
    }

    static Snapshot only(const std::vector<Store::Entry>& entries) {
        EXPECT_EQ(entries.size(), 1u);
        return entries.empty() ? Snapshot{} : entries.front().snapshot;
    }
};

TEST_F(SigningTest, WhatTheStoreWritesReadsBackTrusted) {
    ASSERT_TRUE(Store::save(withCommand(afterBoot(0))));
    Snapshot read = only(Store::all());
    EXPECT_TRUE(read.signature.has_value());
    EXPECT_TRUE(read.trusted);
    EXPECT_EQ(read.signature->size(), 64u) << "a hexadecimal HMAC-SHA-256";
}

TEST_F(SigningTest, AFileWithoutASignatureIsNotTrusted) {
    place(withCommand(afterBoot(0)));
    Snapshot read = only(Store::all());
    EXPECT_FALSE(read.signature.has_value());
    EXPECT_FALSE(read.trusted);
}

TEST_F(SigningTest, AChangedCommandLineOrFolderOrPathLosesTheTrust) {
    for (auto [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"\"-digital\"", "\"-analog\""},
             {"\\/home\\/someone", "\\/tmp"},
             {"\"bundlePath\" : \"\\/usr\\/bin\\/xclock\"", "\"bundlePath\" : \"\\/tmp\\/xclock\""},
             {"\"com.apple.Notes\"", "\"org.example.Other\""}}) {
        SCOPED_TRACE(from);
        std::filesystem::remove_all(supportDir());
        std::filesystem::create_directories(supportDir());
        ASSERT_TRUE(Store::save(withCommand(afterBoot(0))));
        edit(supportDir() / Store::fileName(afterBoot(0)), from, to);
        EXPECT_FALSE(only(Store::all()).trusted);
    }
}

TEST_F(SigningTest, AFrameMovedByHandKeepsTheTrust) {
    ASSERT_TRUE(Store::save(withCommand(afterBoot(0))));
    edit(supportDir() / Store::fileName(afterBoot(0)), "\"w\" : 800", "\"w\" : 900");
    Snapshot read = only(Store::all());
    EXPECT_EQ(read.apps.at(0).windows.at(0).frame->w, 900);
    EXPECT_TRUE(read.trusted);
}

TEST_F(SigningTest, ASignatureMadeWithAnotherKeyIsNotTrusted) {
    Snapshot foreign = withCommand(afterBoot(0));
    foreign.signature = hexText(hmacSha256(std::string(32, 'k'), Signing::launchData(foreign)));
    place(foreign);
    Snapshot read = only(Store::all());
    EXPECT_EQ(read.signature, foreign.signature);
    EXPECT_FALSE(read.trusted);
}

TEST_F(SigningTest, TheKeyIsMadeOnceAndKeptPrivate) {
    ASSERT_TRUE(Store::save(withCommand(afterBoot(0))));
    auto key = Signing::keyLocation();
    ASSERT_TRUE(key);
    struct stat info {};
    ASSERT_EQ(::lstat(key->c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(info.st_size, 32);
    std::string first = readText(*key);
    Snapshot changed = withCommand(afterBoot(1));
    changed.apps[1].commandLine->push_back("-twelve");
    ASSERT_TRUE(Store::save(changed));
    EXPECT_EQ(readText(*key), first);
    EXPECT_TRUE(Store::all().front().snapshot.trusted);
}

TEST_F(SigningTest, LaunchDataTellsApartWordsThatJoinAlike) {
    Snapshot a = withCommand(afterBoot(0)), b = a;
    a.apps[1].commandLine = std::vector<std::string>{"xclock -digital"};
    b.apps[1].commandLine = std::vector<std::string>{"xclock", "-digital"};
    EXPECT_NE(Signing::launchData(a), Signing::launchData(b));
    Snapshot c = a;
    c.apps[1].commandLine = std::nullopt;
    Snapshot d = c;
    d.apps[1].commandLine = std::vector<std::string>{};
    EXPECT_NE(Signing::launchData(c), Signing::launchData(d));
    Snapshot e = c;
    e.apps[1].bundleID = "";
    EXPECT_NE(Signing::launchData(c), Signing::launchData(e));
}

TEST_F(SigningTest, ABrokenTextIsSignedAsTheFileHoldsIt) {
    Snapshot snapshot = withCommand(afterBoot(0));
    snapshot.apps[1].commandLine->push_back("caf\xe9");
    ASSERT_TRUE(Store::save(snapshot));
    EXPECT_TRUE(only(Store::all()).trusted);
    // So a writer signs the snapshot as it is, without repairing a copy first.
    Snapshot repaired = snapshot;
    makeTextsValidUtf8(repaired);
    EXPECT_NE(repaired.apps[1].commandLine, snapshot.apps[1].commandLine);
    EXPECT_EQ(Signing::signatureOf(repaired), Signing::signatureOf(snapshot));
}

}  // namespace
}  // namespace tarnwick::testing

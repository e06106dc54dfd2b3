// asq and shq, checked against a reader of AppleScript literals and real POSIX shells.
#include "scripting/quoting.h"
#include "scripting/runner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

namespace tarnwick {
namespace {

TEST(Asq, Examples) {
    EXPECT_EQ(asq(""), "\"\"");
    EXPECT_EQ(asq("a\"\\"), "\"a\\\"\\\\\"");
    EXPECT_EQ(asq("\\"), "\"\\\\\"");
    EXPECT_EQ(asq("\""), "\"\\\"\"");
    EXPECT_EQ(asq("line\nfeed"), "\"line\nfeed\"");
    EXPECT_EQ(asq("tab\there\r—é"), "\"tab\there\r—é\"");
}

TEST(Shq, Examples) {
    EXPECT_EQ(shq(""), "''");
    EXPECT_EQ(shq("it's"), "'it'\\''s'");
    EXPECT_EQ(shq("a \"b\" \\c $d `e`\n"), "'a \"b\" \\c $d `e`\n'");
}

// Reads one AppleScript string literal the way the script compiler does:
// \\ \" \n \t \r are escapes, every other character stands for itself.
std::optional<std::string> readAppleScriptLiteral(std::string_view literal) {
    if (literal.size() < 2 || literal.front() != '"' || literal.back() != '"') return std::nullopt;
    std::string text;
    for (size_t i = 1; i + 1 < literal.size(); ++i) {
        char c = literal[i];
        if (c == '"') return std::nullopt;  // an unescaped quote would end the literal early
        if (c != '\\') {
            text += c;
            continue;
        }
        if (++i + 1 >= literal.size()) return std::nullopt;  // a lone backslash escapes the closing quote
        switch (literal[i]) {
            case '\\': text += '\\'; break;
            case '"': text += '"'; break;
            case 'n': text += '\n'; break;
            case 't': text += '\t'; break;
            case 'r': text += '\r'; break;
            default: return std::nullopt;
        }
    }
    return text;
}

std::string randomText(std::mt19937_64& random) {
    static const std::vector<std::string> pieces = {"a", "Z", " ", "'", "''", "\"", "\\", "\\n", "\\t", "\n", "\t",
                                                    "$HOME", "`x`", "*", "é", "—", "日本", "🙂", "!", "\\'", "%s"};
    std::string text;
    for (size_t n = random() % 10; n > 0; --n) text += pieces[random() % pieces.size()];
    return text;
}

TEST(Asq, ReadsBackAsTheOriginalText) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 10000; ++i) {
        std::string text = randomText(random);
        ASSERT_EQ(readAppleScriptLiteral(asq(text)), text) << asq(text);
    }
}

// printf %s <word> in a real shell, many texts to a shell run, each followed by a
// NUL (which no text holds) so the outputs can be told apart.
void expectShellPrintsBack(const std::string& shellPath) {
    ASSERT_TRUE(std::filesystem::exists(shellPath)) << shellPath;
    std::mt19937_64 random(2);
    int checked = 0;
    for (int batch = 0; batch < 20; ++batch) {
        std::vector<std::string> texts;
        std::string command;
        for (int i = 0; i < 500; ++i) {
            texts.push_back(randomText(random));
            command += "printf %s " + shq(texts.back()) + "; printf '\\000'\n";
        }
        std::string output = Scripts::shell(shellPath, {"-c", command});
        std::vector<std::string> printed;
        for (size_t start = 0, end; (end = output.find('\0', start)) != std::string::npos; start = end + 1)
            printed.push_back(output.substr(start, end - start));
        ASSERT_EQ(printed.size(), texts.size()) << shellPath;
        for (size_t i = 0; i < texts.size(); ++i, ++checked)
            ASSERT_EQ(printed[i], texts[i]) << shellPath << " with " << shq(texts[i]);
    }
    EXPECT_EQ(checked, 10000);
}

TEST(Shq, DashPrintsEveryTextBackExactly) { expectShellPrintsBack("/bin/dash"); }

TEST(Shq, BashPrintsEveryTextBackExactly) { expectShellPrintsBack("/bin/bash"); }

TEST(Shq, OneTextPerShellAsWell) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 50; ++i) {
        std::string text = randomText(random);
        EXPECT_EQ(Scripts::shell("/bin/sh", {"-c", "printf %s " + shq(text)}), text);
    }
}

TEST(ShellCommand, QuotesOnlyTheWordsThatNeedIt) {
    EXPECT_EQ(shellCommand({"/usr/bin/xclock", "-digital", "-geometry", "260x60+100+500"}),
              "/usr/bin/xclock -digital -geometry 260x60+100+500");
    EXPECT_EQ(shellCommand({"/bin/sh", "-c", "touch it's"}), "/bin/sh -c 'touch it'\\''s'");
    EXPECT_EQ(shellCommand({"a", "", "b\n"}), "a '' 'b\n'");
    EXPECT_EQ(shellCommand({}), "");
}

TEST(ShellCommand, AShellRunsItAsTheSameWords) {
    std::vector<std::string> words{"printf", "[%s]", "plain", "two words", "it's", "$HOME", "", "a\tb"};
    EXPECT_EQ(Scripts::shell("/bin/sh", {"-c", shellCommand(words)}), "[plain][two words][it's][$HOME][][a\tb]");
}

}  // namespace
}  // namespace tarnwick

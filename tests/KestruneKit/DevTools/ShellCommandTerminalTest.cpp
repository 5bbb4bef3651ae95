#include <filesystem>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestruneKit/DevTools/ShellCommandTerminal.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

TEST(ShellCommandTerminal, WritesTheScriptByteForByte)
{
    EXPECT_EQ(ShellCommandTerminal::scriptText("a\nb", "/Users/me/it's", "npm test"),
              "#!/bin/zsh -il\n# a b, from Kestrune Widgets\ncd -- '/Users/me/it'\\''s' || exit 1\nnpm test\n");
    EXPECT_EQ(ShellCommandTerminal::scriptText("", "/tmp", "ls"),
              "#!/bin/zsh -il\n# Untitled, from Kestrune Widgets\ncd -- '/tmp' || exit 1\nls\n");
    EXPECT_EQ(ShellCommandTerminal::commandsFolder({ { "TMPDIR", "/var/tmp/me/" } }), "/var/tmp/me/Kestrune Commands");
    EXPECT_EQ(ShellCommandTerminal::commandsFolder({}), "/tmp/Kestrune Commands");
}

TEST(ShellCommandTerminal, WritesOnlyIntoAPrivateFolderOfThisUser)
{
    test::TemporaryFolder temporary;
    std::string folder = temporary.file("deep/Kestrune Commands");
    auto written = ShellCommandTerminal::writeScript(folder, "echo hi\n");
    ASSERT_TRUE(std::holds_alternative<std::string>(written));
    EXPECT_EQ(test::readFile(std::get<std::string>(written)), "echo hi\n");

    // Someone else's folder, or a link planted where ours would be, is refused.
    ::symlink(temporary.path().c_str(), temporary.file("planted").c_str());
    auto planted = ShellCommandTerminal::writeScript(temporary.file("planted"), "echo hi\n");
    ASSERT_TRUE(std::holds_alternative<ShellCommandTerminal::Failure>(planted));
    EXPECT_EQ(std::get<ShellCommandTerminal::Failure>(planted).text,
              temporary.file("planted") + " isn’t a private folder of this user");
    if (::geteuid() == 0) {
        ::mkdir(temporary.file("foreign").c_str(), 0777);
        ASSERT_EQ(::chown(temporary.file("foreign").c_str(), 65534, 65534), 0);
        EXPECT_TRUE(std::holds_alternative<ShellCommandTerminal::Failure>(
            ShellCommandTerminal::writeScript(temporary.file("foreign"), "x")));
    }

    // A loose mode is tightened, and day-old scripts are cleared away.
    ::chmod(folder.c_str(), 0755);
    std::string stale = folder + "/old.command";
    temporary.write("deep/Kestrune Commands/old.command", "old");
    auto dayAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(25);
    std::filesystem::last_write_time(stale, dayAgo);
    ASSERT_TRUE(std::holds_alternative<std::string>(ShellCommandTerminal::writeScript(folder, "x")));
    struct stat info {};
    ::stat(folder.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_FALSE(std::filesystem::exists(stale));
}

TEST(ShellCommandTerminal, PrefersTERMINALThenTheSystemsChoiceThenKnownTerminals)
{
    test::TemporaryFolder bin;
    for (const char* name : { "xterm", "kitty", "x-terminal-emulator", "my-term" })
        bin.write(name, "#!/bin/sh\n", 0755);
    Environment environment { { "PATH", "/nonexistent:" + bin.path() } };

    auto chosen = ShellCommandTerminal::findTerminal(environment);
    ASSERT_TRUE(chosen);
    EXPECT_EQ(chosen->executable, bin.file("x-terminal-emulator"));
    EXPECT_EQ(chosen->arguments, std::vector<std::string> { "-e" });

    environment["TERMINAL"] = "kitty";
    chosen = ShellCommandTerminal::findTerminal(environment);
    EXPECT_EQ(chosen->executable, bin.file("kitty"));
    EXPECT_TRUE(chosen->arguments.empty());

    environment["TERMINAL"] = "my-term";
    EXPECT_EQ(ShellCommandTerminal::findTerminal(environment)->arguments, std::vector<std::string> { "-e" });

    // A TERMINAL that is not installed falls back to what is.
    environment["TERMINAL"] = "gone-term";
    std::filesystem::remove(bin.file("x-terminal-emulator"));
    EXPECT_EQ(ShellCommandTerminal::findTerminal(environment)->executable, bin.file("kitty"));
}

} // namespace
} // namespace kestrune

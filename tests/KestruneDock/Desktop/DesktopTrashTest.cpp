#include <atomic>
#include <filesystem>

#include <gtest/gtest.h>

#include "KestruneDock/Desktop/DesktopTrash.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

TEST(DesktopTrash, CountsFollowsAndEmptiesWithoutFollowingLinksOut)
{
    test::TemporaryFolder home;
    EXPECT_EQ(DesktopTrash::folderFor({ { "XDG_DATA_HOME", home.file("data") } }, home.path()), home.file("data/Trash"));
    EXPECT_EQ(DesktopTrash::folderFor({ { "XDG_DATA_HOME", "relative" } }, home.path()), home.file(".local/share/Trash"));

    std::atomic<int> heard = 0;
    DesktopTrash trash(home.file("data/Trash"), [&] { ++heard; });
    EXPECT_TRUE(std::filesystem::is_directory(home.file("data/Trash/info"))) << "made, to be watched";
    EXPECT_EQ(trash.count(), 0u);

    home.write("data/Trash/files/notes.txt", "old notes");
    home.write("data/Trash/info/notes.txt.trashinfo", "[Trash Info]\nPath=/home/u/notes.txt\nDeletionDate=2026-11-20T10:00:00\n");
    home.write("data/Trash/files/project/src/main.cpp", "int main() {}");
    home.write("data/Trash/info/project.trashinfo", "[Trash Info]\nPath=/home/u/project\nDeletionDate=2026-11-20T10:00:00\n");
    // A link in the trash to something that is not: emptying takes the link, not its target.
    home.write("keep/precious.txt", "precious");
    std::filesystem::create_directory_symlink(home.file("keep"), home.file("data/Trash/files/link"));
    home.write("data/Trash/directorysizes", "12 1700000000 project\n");
    EXPECT_TRUE(test::eventually([&] { return heard > 0; })) << "a change to the trash went unnoticed";
    EXPECT_EQ(trash.count(), 3u);

    EXPECT_EQ(trash.empty(), "");
    EXPECT_EQ(trash.count(), 0u);
    EXPECT_TRUE(std::filesystem::is_empty(home.file("data/Trash/info")));
    EXPECT_FALSE(std::filesystem::exists(home.file("data/Trash/directorysizes")));
    EXPECT_EQ(test::readFile(home.file("keep/precious.txt")), "precious");

    // A trash that is not there holds nothing and empties to nothing.
    DesktopTrash missing(home.file("nowhere/Trash"));
    EXPECT_EQ(missing.count(), 0u);
    EXPECT_EQ(missing.empty(), "");
}

} // namespace
} // namespace kestrune

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/Preferences/Preferences.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

class PreferencesTest : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    std::string path = folder.path() + "/prefs/app.quillane.dock.json";
};

TEST_F(PreferencesTest, KeepsEveryTypeApartAndEveryUnknownKey)
{
    folder.write("prefs/app.quillane.dock.json", R"({"zeta": {"nested": [1, null]}, "edge": "left"})");
    JSONFilePreferences preferences(path);
    preferences.set("iconSize", 48.0);
    preferences.set("count", int64_t(3));
    preferences.set("magnification", true);
    preferences.set("pinned", std::vector<std::string> { "a.desktop", "b.desktop" });
    preferences.set("widgets", PreferenceData { std::string("[{\"id\":1}]\0\xff", 13) });
    preferences.set("text", std::string("[{\"id\":1}]"));

    JSONFilePreferences reread(path);
    EXPECT_EQ(reread.doubleValue("iconSize"), 48.0);
    EXPECT_EQ(reread.value("iconSize"), PreferenceValue(48.0)) << "a whole double stays a double";
    EXPECT_EQ(reread.integerValue("count"), 3);
    EXPECT_EQ(reread.doubleValue("count"), 3.0);
    EXPECT_EQ(reread.boolValue("magnification"), true);
    EXPECT_EQ(reread.stringListValue("pinned"), (std::vector<std::string> { "a.desktop", "b.desktop" }));
    EXPECT_EQ(reread.dataValue("widgets")->bytes, std::string("[{\"id\":1}]\0\xff", 13));
    EXPECT_EQ(reread.dataValue("text"), std::nullopt) << "text is not data";
    EXPECT_EQ(reread.stringValue("widgets"), std::nullopt) << "data is not text";
    EXPECT_EQ(reread.stringValue("edge"), "left");
    EXPECT_EQ(reread.value("zeta"), std::nullopt);
    auto file = nlohmann::json::parse(test::readFile(path));
    EXPECT_EQ(file["zeta"], nlohmann::json::parse(R"({"nested": [1, null]})")) << "a key we do not know survives";

    reread.remove("count");
    EXPECT_EQ(JSONFilePreferences(path).value("count"), std::nullopt);
}

TEST_F(PreferencesTest, ADamagedFileIsKeptAsideAndTheDomainStartsEmpty)
{
    folder.write("prefs/app.quillane.dock.json", "{\"iconSize\": 48,");
    JSONFilePreferences preferences(path);
    EXPECT_EQ(preferences.value("iconSize"), std::nullopt);
    ASSERT_FALSE(preferences.setAside().empty());
    EXPECT_EQ(test::readFile(preferences.setAside()), "{\"iconSize\": 48,");
    preferences.set("iconSize", 40.0);
    EXPECT_EQ(JSONFilePreferences(path).doubleValue("iconSize"), 40.0);
}

TEST_F(PreferencesTest, TwoProcessesWritingTheSameDomainLoseNothing)
{
    std::vector<pid_t> children;
    for (int writer = 0; writer < 4; ++writer) {
        pid_t child = ::fork();
        if (child == 0) {
            JSONFilePreferences preferences(path);
            for (int key = 0; key < 25; ++key)
                preferences.set("w" + std::to_string(writer) + "k" + std::to_string(key), int64_t(key));
            ::_exit(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    JSONFilePreferences preferences(path);
    for (int writer = 0; writer < 4; ++writer)
        for (int key = 0; key < 25; ++key)
            EXPECT_EQ(preferences.integerValue("w" + std::to_string(writer) + "k" + std::to_string(key)), key);
}

TEST_F(PreferencesTest, ObserversHearTheirOwnChangesAndOthersOnSynchronize)
{
    JSONFilePreferences mine(path), theirs(path);
    std::vector<std::string> heard;
    auto id = mine.addObserver([&](const std::string& key) { heard.push_back(key); });
    mine.set("edge", std::string("left"));
    theirs.set("iconSize", 40.0);
    EXPECT_EQ(heard, std::vector<std::string> { "edge" });
    EXPECT_TRUE(mine.synchronize());
    EXPECT_EQ(heard, (std::vector<std::string> { "edge", "iconSize" }));
    EXPECT_EQ(mine.doubleValue("iconSize"), 40.0);
    mine.removeObserver(id);
    mine.set("edge", std::string("right"));
    EXPECT_EQ(heard.size(), 2u);
}

// A change that cannot reach the disk is kept, said, and written by the next write that can;
// the file on disk is never left half-written or replaced by less than it held.
TEST_F(PreferencesTest, AReadOnlyFolderKeepsChangesUntilTheyCanBeSavedAsAnOrdinaryUser)
{
    if (!test::ordinaryUser())
        GTEST_SKIP() << "root writes anywhere";
    folder.write("prefs/app.quillane.dock.json", R"({"edge": "left"})");
    JSONFilePreferences preferences(path);
    ::chmod(folder.file("prefs").c_str(), 0555);
    preferences.set("iconSize", 40.0);
    EXPECT_EQ(preferences.doubleValue("iconSize"), 40.0);
    EXPECT_EQ(preferences.saveFailure(), "Your settings can’t be saved, as " + folder.file("prefs") + " is read-only. Changes are kept while the app runs");
    EXPECT_EQ(test::readFile(path), R"({"edge": "left"})");

    ::chmod(folder.file("prefs").c_str(), 0755);
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(preferences.saveFailure(), std::nullopt);
    EXPECT_EQ(JSONFilePreferences(path).doubleValue("iconSize"), 40.0);
    EXPECT_EQ(JSONFilePreferences(path).stringValue("edge"), "left");

    // A file it may not read is never written over, however much is changed.
    ::chmod(path.c_str(), 0);
    JSONFilePreferences locked(path);
    locked.set("edge", std::string("bottom"));
    EXPECT_EQ(locked.stringValue("edge"), "bottom");
    EXPECT_EQ(locked.saveFailure(), "Your settings in " + path + " can’t be read, so nothing is saved over them");
    ::chmod(path.c_str(), 0644);
    EXPECT_EQ(JSONFilePreferences(path).doubleValue("iconSize"), 40.0);
}

TEST_F(PreferencesTest, AFullDiskKeepsTheOldFileWholeAsAnOrdinaryUser)
{
    test::SmallDisk disk;
    if (!disk.available())
        GTEST_SKIP() << "no small disk: set KESTRUNE_TEST_SMALL_DISK or run as root";
    std::string onDisk = disk.path() + "/app.quillane.dock.json";
    JSONFilePreferences preferences(onDisk);
    preferences.set("edge", std::string("left"));
    ASSERT_EQ(preferences.saveFailure(), std::nullopt);
    std::string before = test::readFile(onDisk);

    disk.fill();
    preferences.set("pinned", std::vector<std::string>(2000, "/usr/share/applications/org.example.Application.desktop"));
    EXPECT_EQ(preferences.saveFailure(), "Your settings can’t be saved, as the disk is full. Changes are kept while the app runs");
    EXPECT_EQ(test::readFile(onDisk), before);
    EXPECT_EQ(preferences.stringListValue("pinned")->size(), 2000u);
    for (const auto& entry : std::filesystem::directory_iterator(disk.path()))
        EXPECT_EQ(entry.path().string().find(".kestrune-"), std::string::npos) << "a half-written file was left: " << entry.path();

    disk.makeRoom();
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(JSONFilePreferences(onDisk).stringListValue("pinned")->size(), 2000u);
    EXPECT_EQ(JSONFilePreferences(onDisk).stringValue("edge"), "left");
}

} // namespace
} // namespace kestrune

namespace kestrune {
namespace {

// A follower of the file synchronizes when it changes; a synchronize that rewrote an unchanged
// file would wake it again, for ever.
TEST(JSONFilePreferencesFile, NothingNewLeavesTheFileUntouched)
{
    test::TemporaryFolder folder;
    JSONFilePreferences preferences(folder.file("domain.json"));
    preferences.set("iconSize", 48.0);
    struct stat before {};
    ASSERT_EQ(::stat(folder.file("domain.json").c_str(), &before), 0);
    ASSERT_TRUE(preferences.synchronize());
    preferences.set("iconSize", 48.0);
    struct stat after {};
    ASSERT_EQ(::stat(folder.file("domain.json").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "rewritten though nothing changed";
    preferences.set("iconSize", 52.0);
    ASSERT_EQ(::stat(folder.file("domain.json").c_str(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(preferences.doubleValue("iconSize"), 52.0);
}

} // namespace
} // namespace kestrune

#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KestruneDock/Widgets/WidgetStore.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Preferences/PreferencesFollower.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using enum WidgetKind;

std::vector<WidgetKind> kinds(const std::vector<WidgetInstance>& instances)
{
    std::vector<WidgetKind> result;
    for (const auto& instance : instances)
        result.push_back(instance.kind);
    return result;
}

TEST(WidgetCatalogue, RawNamesTitlesAndCategoriesFollowTheTable)
{
    ASSERT_EQ(allWidgetKinds().size(), 50u);
    for (size_t i = 0; i < allWidgetKinds().size(); ++i) {
        auto kind = allWidgetKinds()[i];
        EXPECT_EQ(static_cast<size_t>(kind), i);
        EXPECT_EQ(widgetKindFromString(toString(kind)), kind) << toString(kind);
        EXPECT_FALSE(title(kind).empty());
        EXPECT_FALSE(blurb(kind).empty());
    }
    EXPECT_EQ(toString(allWidgetKinds()[27]), "screenshot");
    EXPECT_EQ(toString(allWidgetKinds()[49]), "aiUsage");
    EXPECT_EQ(title(micCamera), "Mic & Camera");
    EXPECT_EQ(blurb(micCamera), "Shows when they're on; mute in a click.");
    EXPECT_EQ(title(todo), "To-Do");
    EXPECT_EQ(widgetKindFromString("Clock"), std::nullopt) << "raw names are case-sensitive";
    EXPECT_EQ(widgetKindFromString("weather"), std::nullopt);
}

TEST(WidgetCatalogue, CategoriesListTheirKindsInOrderWithoutTheRetiredOnes)
{
    struct Case {
        WidgetCategory category;
        std::string_view title;
        std::vector<WidgetKind> kinds;
    };
    const Case cases[] {
        { WidgetCategory::time, "Time", { clock, upNext, countdown, progress, moon } },
        { WidgetCategory::focus, "Focus", { timer, stopwatch, pomodoro, todo, counter, breathe, screenTime } },
        { WidgetCategory::media, "Media", { nowPlaying, photoFrame, mirror } },
        { WidgetCategory::yourMac, "Your Mac",
            { battery, sound, keepAwake, activity, network, micCamera, storage, lockSleep, desktopIcons, controls, spaces } },
        { WidgetCategory::developer, "Developer", { devServers, git, github, containers, simulators, endpoints, timestamp, aiUsage } },
        { WidgetCategory::tools, "Tools",
            { note, colorPicker, shortcuts, appearance, calculator, emoji, clipboard, dictionary, converter, qrCode, generator, textTools, shelf } },
    };
    size_t offered = 0;
    for (const auto& [category, name, expected] : cases) {
        EXPECT_EQ(title(category), name);
        EXPECT_FALSE(symbol(category).empty());
        EXPECT_EQ(WidgetStore::kindsInCategory(category), expected) << name;
        offered += expected.size();
    }
    EXPECT_EQ(offered, 47u) << "all but the three retired kinds";
    EXPECT_EQ(category(screenshot), WidgetCategory::tools);
    EXPECT_EQ(category(devices), WidgetCategory::yourMac);
}

TEST(WidgetCatalogue, FacesDefaultsAndPresets)
{
    EXPECT_EQ(defaultStyle(battery), "ring");
    EXPECT_EQ(faces(battery).front().title, "Standard");
    EXPECT_EQ(defaultStyle(clock), "digital");
    EXPECT_EQ(faces(clock).size(), 11u);
    EXPECT_EQ(faces(clock).back(), (WidgetStyle { "week", "Week" }));
    EXPECT_EQ(defaultStyle(progress), "year");
    EXPECT_EQ(defaultStyle(network), "speed");
    EXPECT_EQ(defaultStyle(activity), "bars");
    EXPECT_EQ(defaultStyle(git), "");
    EXPECT_TRUE(faces(note).empty());

    WidgetStyleHash hash;
    EXPECT_EQ(hash({ "week", "Week" }), hash({ "week", "Week" }));
    EXPECT_NE(hash({ "a", "b" }), hash({ "b", "a" }));
    EXPECT_NE((WidgetStyle { "week", "Week" }), (WidgetStyle { "week", "Weekly" }));

    const auto& presets = allWidgetPresets();
    ASSERT_EQ(presets.size(), 5u);
    EXPECT_EQ(presets[0].buttonTitle(), "Use the Everyday widgets");
    EXPECT_EQ(presets[0].kinds, (std::vector { nowPlaying, upNext, battery, clock, note }));
    EXPECT_EQ(presets[1].kinds, (std::vector { git, aiUsage, devServers, containers, simulators, endpoints, timestamp, activity, clipboard }));
    EXPECT_EQ(presets[4].title, "System Monitor");
    EXPECT_EQ(widgetPreset("Student"), &presets[3]);
    EXPECT_EQ(widgetPreset("student"), nullptr);
}

class WidgetStoreTest : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    std::string path = folder.file("app.quillane.dock.json");
    JSONFilePreferences preferences { path };

    void store(const std::string& json) { preferences.set(WidgetStore::key, PreferenceData { json }); }
    std::vector<WidgetInstance> saved()
    {
        JSONFilePreferences fresh(path);
        auto data = fresh.dataValue(WidgetStore::key);
        if (!data)
            return {};
        return decodeWidgetInstances(data->bytes).value_or(std::vector<WidgetInstance> {});
    }
};

TEST_F(WidgetStoreTest, AFirstStartBringsOverTheThreeFixedWidgetsOnce)
{
    std::vector<WidgetInstance> first;
    {
        WidgetStore widgets(preferences);
        first = widgets.instances();
        ASSERT_EQ(kinds(first), (std::vector { nowPlaying, battery, clock }));
        EXPECT_EQ(first[0].style, "");
        EXPECT_EQ(first[1].style, "classic");
        EXPECT_EQ(first[2].style, "digital");
        for (const auto& instance : first)
            EXPECT_EQ(instance.id.toString(), Uuid::fromString(instance.id.toString())->toString());
    }
    preferences.set("showClock", false);
    WidgetStore again(preferences);
    ASSERT_EQ(again.instances().size(), 3u) << "the row was saved, so no second migration";
    EXPECT_EQ(again.instances()[2].id, first[2].id);

    // The switches, each on unless turned off.
    test::TemporaryFolder other;
    JSONFilePreferences switches(other.file("d.json"));
    switches.set("showBattery", false);
    WidgetStore migrated(switches);
    ASSERT_EQ(kinds(migrated.instances()), (std::vector { nowPlaying, clock }));
    EXPECT_EQ(migrated.instances()[1].style, "digital");
}

TEST_F(WidgetStoreTest, RetiredKindsFoldIntoTheirSuccessorsAndTheResultIsSaved)
{
    const std::string devicesJson = R"({"id":"11111111-1111-4111-8111-111111111111","kind":"devices","style":"x","options":{"a":"b"}})";
    const std::string clockJson = R"({"id":"22222222-2222-4222-8222-222222222222","kind":"clock","style":"flip","options":{}})";
    const std::string batteryJson = R"({"id":"33333333-3333-4333-8333-333333333333","kind":"battery","style":"","options":{}})";
    const std::string drivesJson = R"({"id":"44444444-4444-4444-8444-444444444444","kind":"drives","style":"","options":{}})";
    const std::string screenshotJson = R"({"id":"55555555-5555-4555-8555-555555555555","kind":"screenshot","style":"","options":{}})";

    store("[" + devicesJson + "," + clockJson + "]");
    {
        WidgetStore widgets(preferences);
        ASSERT_EQ(kinds(widgets.instances()), (std::vector { battery, clock }));
        const auto& folded = widgets.instances()[0];
        EXPECT_EQ(folded.id.toString(), "11111111-1111-4111-8111-111111111111");
        EXPECT_EQ(folded.style, "ring");
        EXPECT_TRUE(folded.options.empty());
        EXPECT_EQ(kinds(saved()), kinds(widgets.instances()));
    }

    store("[" + batteryJson + "," + devicesJson + "," + drivesJson + "," + screenshotJson + "]");
    {
        WidgetStore widgets(preferences);
        EXPECT_EQ(kinds(widgets.instances()), (std::vector { battery, storage, screenshot }))
            << "a successor already present swallows the retired widget; screenshot stays";
        EXPECT_EQ(kinds(saved()), kinds(widgets.instances()));
    }

    // Nothing to fold: the stored bytes are left exactly as they were.
    const std::string untouched = "[" + clockJson + "]";
    store(untouched);
    WidgetStore widgets(preferences);
    EXPECT_EQ(JSONFilePreferences(path).dataValue(WidgetStore::key)->bytes, untouched);
}

TEST_F(WidgetStoreTest, AnUndecodableRowIsReplacedByTheMigration)
{
    const std::string good = R"({"id":"22222222-2222-4222-8222-222222222222","kind":"clock","style":"","options":{}})";
    const std::string bad[] {
        "not json",
        R"({"id":"x"})",
        "[" + good + R"(,{"id":"33333333-3333-4333-8333-333333333333","kind":"weather","style":"","options":{}}])",
        R"([{"id":"22222222-2222-4222-8222-222222222222","kind":"clock","options":{}}])",
        R"([{"id":"not-a-uuid","kind":"clock","style":"","options":{}}])",
        R"([{"id":"22222222-2222-4222-8222-222222222222","kind":"clock","style":"","options":{"n":1}}])",
    };
    for (const auto& json : bad) {
        store(json);
        WidgetStore widgets(preferences);
        EXPECT_EQ(kinds(widgets.instances()), (std::vector { nowPlaying, battery, WidgetKind::clock })) << json;
        EXPECT_EQ(saved().size(), 3u) << json;
    }
    // Not data at all (a string under the key) is the same as nothing.
    preferences.set(WidgetStore::key, good);
    WidgetStore widgets(preferences);
    EXPECT_EQ(widgets.instances().size(), 3u);

    // Lower-case ids are read and written back upper-case; extra keys are ignored.
    store(R"([{"id":"abcdefab-cdef-4abc-8def-abcdefabcdef","kind":"git","style":"","options":{"path":"/src"},"pinned":true}])");
    WidgetStore lower(preferences);
    ASSERT_EQ(lower.instances().size(), 1u);
    lower.setOption(lower.instances()[0].id, "branch", "main");
    auto json = nlohmann::json::parse(JSONFilePreferences(path).dataValue(WidgetStore::key)->bytes);
    EXPECT_EQ(json[0]["id"], "ABCDEFAB-CDEF-4ABC-8DEF-ABCDEFABCDEF");
    EXPECT_EQ(json[0]["options"], (nlohmann::json { { "branch", "main" }, { "path", "/src" } }));
    EXPECT_FALSE(json[0].contains("pinned"));
}

TEST_F(WidgetStoreTest, EveryEditIsPublishedAndSaved)
{
    store("[]");
    WidgetStore widgets(preferences);
    int heard = 0;
    std::vector<WidgetInstance> last;
    widgets.addObserver([&](const std::vector<WidgetInstance>& row) {
        ++heard;
        last = row;
    });

    auto a = widgets.add(git);
    auto b = widgets.add(git);
    auto c = widgets.add(note);
    EXPECT_EQ(heard, 3);
    EXPECT_NE(a, b) << "two of one kind are two widgets";
    widgets.setStyle(a, "custom");
    widgets.setOption(b, "path", "/src/b");
    EXPECT_EQ(widgets.instance(a)->style, "custom");
    EXPECT_TRUE(widgets.instance(a)->options.empty());
    EXPECT_EQ(widgets.instance(b)->options.at("path"), "/src/b");
    EXPECT_EQ(widgets.instance(b)->style, "");

    auto ids = [](const std::vector<WidgetInstance>& row) {
        std::vector<Uuid> result;
        for (const auto& instance : row)
            result.push_back(instance.id);
        return result;
    };
    widgets.move(a, c);
    EXPECT_EQ(ids(widgets.instances()), (std::vector { b, c, a })) << "forward: after the target";
    widgets.move(a, b);
    EXPECT_EQ(ids(widgets.instances()), (std::vector { a, b, c })) << "back: before the target";
    widgets.moveDown(a);
    EXPECT_EQ(ids(widgets.instances()), (std::vector { b, a, c }));
    widgets.moveUp(c);
    EXPECT_EQ(ids(widgets.instances()), (std::vector { b, c, a }));
    widgets.moveUp(b);
    EXPECT_EQ(ids(widgets.instances()), (std::vector { b, c, a })) << "the first cannot go further up";
    EXPECT_EQ(ids(saved()), ids(widgets.instances()));
    EXPECT_EQ(saved()[2].style, "custom");

    EXPECT_FALSE(widgets.setOption(b, "path", std::string("\xff\xfe")));
    EXPECT_EQ(widgets.instance(b)->options.at("path"), "/src/b") << "bytes that could never be saved are refused";

    widgets.remove(c);
    widgets.remove(Uuid::random());
    EXPECT_EQ(ids(widgets.instances()), (std::vector { b, a }));
    EXPECT_EQ(ids(last), ids(widgets.instances()));

    widgets.apply(allWidgetPresets()[0]);
    auto first = ids(widgets.instances());
    widgets.apply(allWidgetPresets()[0]);
    auto second = ids(widgets.instances());
    EXPECT_EQ(kinds(widgets.instances()), allWidgetPresets()[0].kinds);
    for (const auto& id : second)
        EXPECT_EQ(std::count(first.begin(), first.end(), id), 0) << "a preset applied again makes new widgets";
    EXPECT_EQ(ids(saved()), second);
}

TEST_F(WidgetStoreTest, FollowsAnotherProcessEditingTheSameRow)
{
    store("[]");
    WidgetStore widgets(preferences);
    std::vector<WidgetKind> heard;
    widgets.addObserver([&](const std::vector<WidgetInstance>& row) { heard = kinds(row); });

    {
        JSONFilePreferences elsewhere(path);
        WidgetStore script(elsewhere);
        script.add(containers);
        script.add(WidgetKind::devices);
    }
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(heard, (std::vector { containers, battery }));
    EXPECT_EQ(kinds(widgets.instances()), heard);

    // Someone spoils the value: the row on screen goes back to disk instead of being lost.
    JSONFilePreferences(path).set(WidgetStore::key, PreferenceData { "garbage" });
    EXPECT_TRUE(preferences.synchronize());
    EXPECT_EQ(kinds(widgets.instances()), (std::vector { containers, battery }));
    EXPECT_EQ(kinds(saved()), (std::vector { containers, battery }));

    // A running dock follows on its own: the file's change is noticed and synchronized.
    ManualRuntime runtime;
    PreferencesFollower follower(preferences, runtime);
    {
        JSONFilePreferences elsewhere(path);
        WidgetStore script(elsewhere);
        script.add(aiUsage);
    }
    EXPECT_TRUE(runtime.runUntil([&] { return widgets.instances().size() == 3; }));
    EXPECT_EQ(heard, (std::vector { containers, battery, aiUsage }));
}

TEST(PreferencesFollower, MakesAFirstStartsMissingFolderSoThatItIsWatchedFromTheStart)
{
    test::TemporaryFolder folder;
    std::string path = folder.file("config/kestrune-dock/app.quillane.dock.json");
    JSONFilePreferences preferences(path);
    ManualRuntime runtime;
    PreferencesFollower follower(preferences, runtime);
    EXPECT_TRUE(std::filesystem::is_directory(folder.file("config/kestrune-dock")));
    JSONFilePreferences(path).set("iconSize", 40.0);
    EXPECT_TRUE(runtime.runUntil([&] { return preferences.doubleValue("iconSize") == 40.0; }));
}

} // namespace
} // namespace kestrune

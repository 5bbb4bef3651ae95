// The sound server client against a real PulseAudio of the test's own, and the camera watch
// against a file the test opens and closes (a /dev/video* stand-in is not possible here).

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Sound/CameraWatch.h"
#include "KestruneKit/Sound/SoundServer.h"
#include "tests/helpers/PrivateSoundServer.h"

namespace kestrune {
namespace {

TEST(SoundServer, FollowsVolumeMuteOutputAndRecordingMadeHereOrElsewhere)
{
    if (!test::PrivateSoundServer::available())
        GTEST_SKIP() << "PulseAudio is not installed (scripts/setup installs it)";
    test::TemporaryFolder folder;
    test::PrivateSoundServer pulse(folder);
    ASSERT_TRUE(pulse.ready()) << "PulseAudio did not start";
    ManualRuntime runtime(Date {});
    SoundServer sound(runtime, pulse.address());
    int changes = 0;
    sound.onChange = [&] { ++changes; };
    auto until = [&](const std::function<bool(const SoundState&)>& holds) {
        return runtime.runUntil([&] { return holds(sound.state()); }, Seconds(10));
    };

    sound.setWanted("tile", true);
    ASSERT_TRUE(until([](const SoundState& state) { return state.ready; }));
    EXPECT_EQ(sound.state().problem, "");
    EXPECT_EQ(sound.state().output, "Speakers");
    EXPECT_EQ(sound.state().outputs.size(), 2u);
    EXPECT_EQ(sound.state().microphone, "Microphone");
    EXPECT_TRUE(sound.state().recording.empty());

    // Changes made here reach the server and come back.
    sound.setVolume(0.4);
    EXPECT_TRUE(until([](const SoundState& state) { return std::abs(state.volume - 0.4) < 0.01; })) << sound.state().volume;
    sound.setMuted(true);
    EXPECT_TRUE(until([](const SoundState& state) { return state.muted; }));
    sound.setOutput("headphones");
    EXPECT_TRUE(until([](const SoundState& state) { return state.output == "Headphones"; }));
    sound.setMicrophoneMuted(true);
    EXPECT_TRUE(until([](const SoundState& state) { return state.microphoneMuted; }));

    // Changes made elsewhere, by the desktop's own controls.
    ASSERT_TRUE(pulse.ctl({ "set-sink-volume", "headphones", "75%" }));
    EXPECT_TRUE(until([](const SoundState& state) { return std::abs(state.volume - 0.75) < 0.01; }));
    ASSERT_TRUE(pulse.ctl({ "set-default-sink", "speakers" }));
    // The speakers keep the mute they were given before the switch.
    EXPECT_TRUE(until([](const SoundState& state) { return state.output == "Speakers" && state.muted; }));

    // A program recording from the microphone, and then not.
    pulse.record();
    EXPECT_TRUE(until([](const SoundState& state) { return !state.recording.empty(); })) << "the recording was not seen";
    pulse.stopRecording();
    EXPECT_TRUE(until([](const SoundState& state) { return state.recording.empty(); }));

    // Unwanted, it lets go; a change made meanwhile is seen when it is wanted again.
    sound.setWanted("tile", false);
    int before = changes;
    ASSERT_TRUE(pulse.ctl({ "set-sink-volume", "speakers", "20%" }));
    runtime.runUntil([] { return false; }, Seconds(0.3));
    EXPECT_EQ(changes, before) << "an unwanted client still hears the server";
    sound.setWanted("tile", true);
    EXPECT_TRUE(until([](const SoundState& state) { return std::abs(state.volume - 0.2) < 0.01; }));
}

TEST(SoundServer, WithoutAServerSaysSoAndLooksAgainLater)
{
    test::TemporaryFolder folder;
    ManualRuntime runtime(Date {});
    SoundServer sound(runtime, "unix:" + folder.file("nobody-listens"));
    sound.setWanted("tile", true);
    ASSERT_TRUE(runtime.runUntil([&] { return sound.state().ready; }, Seconds(10)));
    EXPECT_EQ(sound.state().problem, "PulseAudio isn’t running, so sound can’t be shown");
    ASSERT_EQ(runtime.timers().size(), 1u) << "no second look is planned";
    EXPECT_NEAR(secondsBetween(runtime.now(), runtime.timers()[0].due).count(), SoundServer::retryInterval.count(), 0.01);
}

TEST(CameraWatch, SeesAFileOpenedAndClosedWithoutScanning)
{
    test::TemporaryFolder folder;
    folder.write("video0", "");
    folder.write("audio0", "");
    ManualRuntime runtime(Date {});
    CameraWatch cameras(runtime, folder.path(), "video");
    int changes = 0;
    cameras.onChange = [&] { ++changes; };
    cameras.setWanted("tile", true);
    ASSERT_TRUE(cameras.isWatching());
    runtime.runUntil([] { return false; }, Seconds(0.2));
    EXPECT_FALSE(cameras.inUse());

    int camera = ::open(folder.file("video0").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(camera, 0);
    EXPECT_TRUE(runtime.runUntil([&] { return cameras.inUse(); }, Seconds(5)));
    // Another device's file is no camera.
    int other = ::open(folder.file("audio0").c_str(), O_RDONLY | O_CLOEXEC);
    ::close(camera);
    EXPECT_TRUE(runtime.runUntil([&] { return !cameras.inUse(); }, Seconds(5)));
    ::close(other);

    // Opened before the watch starts: found by the one look at the open descriptors.
    cameras.setWanted("tile", false);
    EXPECT_FALSE(cameras.isWatching());
    camera = ::open(folder.file("video0").c_str(), O_RDONLY | O_CLOEXEC);
    cameras.setWanted("tile", true);
    EXPECT_TRUE(runtime.runUntil([&] { return cameras.inUse(); }, Seconds(5))) << "a camera open before the watch went unseen";
    ::close(camera);
    EXPECT_TRUE(runtime.runUntil([&] { return !cameras.inUse(); }, Seconds(5)));
}

} // namespace
} // namespace kestrune

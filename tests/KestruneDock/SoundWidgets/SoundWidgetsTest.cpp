// The Sound and Mic & Camera tiles against a real PulseAudio of the test's own: what they show,
// and that a click, the wheel and the card change what the sound server (and so the desktop) has.

#include <cstdlib>
#include <filesystem>

#include <QImage>
#include <QListWidget>
#include <QPainter>
#include <gtest/gtest.h>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/SoundWidgets/SoundWidget.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneKit/Sound/SoundServer.h"
#include "tests/helpers/PrivateSoundServer.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/WidgetImages.h"

namespace kestrune {
namespace {

TEST(SoundWidgets, AClickMutesTheWheelTurnsTheCardSwitchesAndTheMicrophoneLightsWhileRecording)
{
    if (!test::PrivateSoundServer::available())
        GTEST_SKIP() << "PulseAudio is not installed (scripts/setup installs it)";
    test::TemporaryFolder folder;
    test::PrivateSoundServer pulse(folder);
    ASSERT_TRUE(pulse.ready());
    setenv("PULSE_SERVER", pulse.address().c_str(), 1);
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    SoundWidget sound(WidgetInstance::make(WidgetKind::sound), monitors);
    MicCameraWidget mic(WidgetInstance::make(WidgetKind::micCamera), monitors);
    EXPECT_FALSE(monitors.sound().isWanted());
    sound.setShown(true);
    mic.setShown(true);
    ASSERT_TRUE(test::spinUntil([&] { return sound.accessibleText() == "Sound, Speakers, 100\u2009%"; })) << sound.accessibleText();

    EXPECT_TRUE(sound.scrolled(-2));
    EXPECT_TRUE(test::spinUntil([&] { return sound.accessibleText() == "Sound, Speakers, 90\u2009%"; })) << sound.accessibleText();
    EXPECT_TRUE(sound.pressed(QPointF(0.5, 0.5)));
    EXPECT_TRUE(test::spinUntil([&] { return sound.accessibleText() == "Sound, Speakers, Muted"; })) << sound.accessibleText();
    test::saveTileImages(sound, "sound-muted");
    // Turning the wheel up unmutes, as the desktop's own control does.
    sound.scrolled(1);
    EXPECT_TRUE(test::spinUntil([&] { return sound.accessibleText() == "Sound, Speakers, 95\u2009%"; })) << sound.accessibleText();
    test::saveTileImages(sound, "sound");
    {
        std::unique_ptr<QWidget> card(sound.makeCard());
        auto* outputs = card->findChild<QListWidget*>();
        ASSERT_TRUE(outputs);
        ASSERT_EQ(outputs->count(), 2);
        QListWidgetItem* headphones = outputs->findItems(QStringLiteral("Headphones"), Qt::MatchExactly).value(0);
        ASSERT_TRUE(headphones);
        Q_EMIT outputs->itemClicked(headphones);
        EXPECT_TRUE(test::spinUntil([&] { return sound.accessibleText() == "Sound, Headphones, 100\u2009%"; })) << sound.accessibleText();
    }

    EXPECT_EQ(mic.accessibleText(), "Mic & Camera, microphone not in use, camera not in use");
    pulse.record();
    EXPECT_TRUE(test::spinUntil([&] { return mic.accessibleText() == "Mic & Camera, microphone in use by parec, camera not in use"; }))
        << mic.accessibleText();
    test::saveTileImages(mic, "mic-camera-recording");
    EXPECT_TRUE(mic.pressed(QPointF(0.5, 0.5)));
    EXPECT_TRUE(test::spinUntil([&] { return monitors.sound().state().microphoneMuted; })) << "a click did not mute the microphone";
    test::saveTileImages(mic, "mic-camera-muted");

    sound.setShown(false);
    mic.setShown(false);
    EXPECT_FALSE(monitors.sound().isWanted());
    unsetenv("PULSE_SERVER");
}

TEST(SoundWidgets, WithNoSoundServerTheTileSaysUnavailableAndTheWholeSentenceIsReadOut)
{
    test::TemporaryFolder folder;
    setenv("PULSE_SERVER", ("unix:" + folder.file("no-server")).c_str(), 1);
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    SoundWidget sound(WidgetInstance::make(WidgetKind::sound), monitors);
    sound.setShown(true);
    EXPECT_TRUE(test::spinUntil([&] { return sound.accessibleText() == "Sound, PulseAudio isn’t running, so sound can’t be shown"; }))
        << sound.accessibleText();
    test::saveTileImages(sound, "sound-problem");
    unsetenv("PULSE_SERVER");
}

} // namespace
} // namespace kestrune

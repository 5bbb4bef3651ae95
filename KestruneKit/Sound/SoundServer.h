#pragma once
// OVERVIEW
// The sound server the desktop uses (PulseAudio, or PipeWire's PulseAudio server, which answers
// the same protocol): the output's volume and mute, the outputs to choose from, the microphone's
// mute, and which programs record from a microphone now. Connected only while wanted; the server
// announces every change, made here or anywhere else, and each arrives as a whole new state.
//
// TYPICAL USAGE
//   SoundServer sound(runtime);
//   sound.onChange = [&] { redraw(sound.state()); };
//   sound.setWanted("sound tile", true);
//   sound.setVolume(0.4);
//
// Main thread only; the client library runs its own thread, whose results come back through
// Runtime::post.

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "KestruneKit/Core/Holders.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

struct SoundDevice {
    std::string name;         // the server's name for it ("alsa_output.pci-0000_00_1f.3.analog-stereo")
    std::string description;  // what people read ("Speakers")
    bool operator==(const SoundDevice&) const = default;
};

struct SoundState {
    // Connected and read at least once.
    bool ready = false;
    // Why there is no sound to show, in a sentence; empty when all is well.
    std::string problem;
    // The default output.
    std::string output;
    double volume = 0;  // 0 to 1 (100 %); a boosted output reads above 1
    bool muted = false;
    std::vector<SoundDevice> outputs;
    // The default microphone, and who records from any microphone now (monitors of outputs and
    // level meters left out).
    std::string microphone;
    bool microphoneMuted = false;
    std::vector<std::string> recording;
    bool operator==(const SoundState&) const = default;
};

class SoundServer {
public:
    static constexpr Seconds retryInterval { 15 };

    // `server`: where to connect ("unix:/run/user/1000/pulse/native"); empty for the usual place.
    explicit SoundServer(Runtime& runtime, std::string server = {});
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    void setWanted(const std::string& holder, bool wanted);
    [[nodiscard]] bool isWanted() const { return holders_.any(); }
    [[nodiscard]] const SoundState& state() const { return state_; }
    std::function<void()> onChange;

    // Each goes to the server at once; the new state follows when it has taken it.
    void setVolume(double volume);
    void setMuted(bool muted);
    void setOutput(const std::string& name);
    void setMicrophoneMuted(bool muted);

private:
    class Connection;

    void connect();
    void disconnect();
    void apply(uint64_t generation, SoundState state);

    Runtime& runtime_;
    std::string server_;
    Holders holders_;
    SoundState state_;
    std::shared_ptr<Connection> connection_;
    TimerHandle retry_;
    uint64_t generation_ = 0;
    std::shared_ptr<SoundServer*> self_;
};

} // namespace kestrune

#include "KestruneKit/Sound/SoundServer.h"

// Where no sound server client is written yet: the widget says so, and the controls do nothing.

namespace kestrune {

class SoundServer::Connection {};

SoundServer::SoundServer(Runtime& runtime, std::string server)
    : runtime_(runtime), server_(std::move(server)), self_(std::make_shared<SoundServer*>(this))
{
}

SoundServer::~SoundServer() { *self_ = nullptr; }

void SoundServer::setWanted(const std::string& holder, bool wanted)
{
    holders_.set(holder, wanted);
    if (isWanted() && !state_.ready)
        apply(generation_, SoundState { true, "Sound can’t be shown on this system yet" });
}

void SoundServer::connect() {}
void SoundServer::disconnect() {}

void SoundServer::apply(uint64_t, SoundState state)
{
    state_ = std::move(state);
    if (onChange)
        onChange();
}

void SoundServer::setVolume(double) {}
void SoundServer::setMuted(bool) {}
void SoundServer::setOutput(const std::string&) {}
void SoundServer::setMicrophoneMuted(bool) {}

} // namespace kestrune

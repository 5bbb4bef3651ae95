#include "KestruneKit/Sound/CameraWatch.h"

// Where cameras cannot be watched yet: never in use, never watching.

namespace kestrune {

class CameraWatch::Watcher {};

CameraWatch::CameraWatch(Runtime& runtime, std::string folder, std::string prefix, std::string procRoot)
    : runtime_(runtime), folder_(std::move(folder)), prefix_(std::move(prefix)), procRoot_(std::move(procRoot)),
      self_(std::make_shared<CameraWatch*>(this))
{
}

CameraWatch::~CameraWatch() { *self_ = nullptr; }

void CameraWatch::setWanted(const std::string& holder, bool wanted)
{
    holders_.set(holder, wanted);
}

void CameraWatch::start() {}
void CameraWatch::stop() {}
void CameraWatch::apply(uint64_t, bool) {}

} // namespace kestrune

#include "KestruneKit/SystemStats/SMCReader.h"

namespace kestrune {

// Only Macs have a system management controller.
std::unique_ptr<SMCReader> SMCReader::open() { return nullptr; }

} // namespace kestrune

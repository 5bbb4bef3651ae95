#pragma once
// Qt's own connection to the X server, and atoms by name, for the app's few direct X calls.
//
// Main thread only.

#include <xcb/xcb.h>

namespace kestrune::x11 {

// None where the app runs on another platform plugin (offscreen in tests, Wayland).
[[nodiscard]] xcb_connection_t* connection();
// Interned once per name for the life of the process (atoms live as long as the server).
[[nodiscard]] xcb_atom_t atom(xcb_connection_t* connection, const char* name);

} // namespace kestrune::x11

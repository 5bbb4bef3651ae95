#pragma once
// The short puff of smoke where a tile dragged off the dock is let go: a little window that
// draws a few growing, fading clouds over a third of a second and closes itself.
//
// Main thread only.

#include <QPointF>

namespace kestrune {

// `size` is the dock's icon size, in logical pixels; the puff is centred on `global`.
void showPoof(QPointF global, double size);

} // namespace kestrune

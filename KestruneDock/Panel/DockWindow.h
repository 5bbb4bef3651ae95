#pragma once
// The thin window-system calls that make a top-level widget a dock, one source per platform
// (DockWindowX11.cpp here). Everything they are given is computed in the core.
//
// Main thread only.

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <QAbstractNativeEventFilter>
#include <QImage>
#include <QPointF>
#include <QRect>

class QWidget;

namespace kestrune::dockwindow {

// Before the window is first shown: a dock (not a normal window), above others, on every
// desktop, kept out of taskbars, pagers and the focus chain.
void prepare(QWidget& window);
// _NET_WM_STRUT_PARTIAL (and the older _NET_WM_STRUT) for the reserved stretch; all zero for none.
void setStrut(QWidget& window, const std::array<uint32_t, 12>& strut);
// What the screen shows in a rectangle of device pixels, windows and all; null where it cannot
// be read.
[[nodiscard]] QImage grabScreen(const QRect& rect);
// Whether a compositing manager runs on the window's screen, so that translucent pixels blend
// with what lies below instead of showing black.
[[nodiscard]] bool compositingActive();

// Tells `changed` whenever a compositing manager starts or stops (it owns or gives up the
// _NET_WM_CM_S0 selection), for as long as the returned watch lives.
[[nodiscard]] std::unique_ptr<QAbstractNativeEventFilter> watchCompositing(std::function<void(bool active)> changed);

// An invisible window that only takes the pointer, above the others and outside the window
// manager's care: where a hidden dock listens for the pointer at the screen edge. Pointer
// positions are given in the desktop's logical pixels.
class EdgeTrigger {
public:
    virtual ~EdgeTrigger() = default;
    // Puts it over `rect` (logical pixels; `scale` is the device pixel ratio) and shows it.
    virtual void place(const QRectF& rect, double scale) = 0;
    virtual void remove() = 0;
};

[[nodiscard]] std::unique_ptr<EdgeTrigger> makeEdgeTrigger(std::function<void(QPointF global)> moved, std::function<void()> left);

} // namespace kestrune::dockwindow

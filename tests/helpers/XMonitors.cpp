// RandR's monitors through Xlib, apart from the xcb code: Xlib's headers define names (None,
// Bool, Status) that would clash with it.

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <string>

#include "tests/helpers/TestSupport.h"
#include "tests/helpers/XSession.h"

namespace kestrune::test {

bool XSession::splitScreen(const std::vector<XRect>& monitors)
{
    if (!monitors_) {
        Display* display = XOpenDisplay(display_.c_str());
        if (!display)
            return false;
        monitors_ = std::shared_ptr<void>(display, [](void* opened) { XCloseDisplay(static_cast<Display*>(opened)); });
    }
    auto* display = static_cast<Display*>(monitors_.get());
    Window root = DefaultRootWindow(display);
    for (size_t index = 0; index < monitors.size(); ++index) {
        const XRect& rect = monitors[index];
        XRRMonitorInfo* monitor = XRRAllocateMonitor(display, 0);
        monitor->name = XInternAtom(display, ("TEST-" + std::to_string(index)).c_str(), False);
        monitor->primary = index == 0;
        monitor->x = rect.x;
        monitor->y = rect.y;
        monitor->width = rect.width;
        monitor->height = rect.height;
        // About 100 dots an inch.
        monitor->mwidth = rect.width / 4;
        monitor->mheight = rect.height / 4;
        XRRSetMonitor(display, root, monitor);
        XRRFreeMonitors(monitor);
    }
    XSync(display, False);
    return eventually([&] {
        int count = 0;
        XRRMonitorInfo* listed = XRRGetMonitors(display, root, False, &count);
        XRRFreeMonitors(listed);
        return count >= static_cast<int>(monitors.size());
    }, 5);
}

} // namespace kestrune::test

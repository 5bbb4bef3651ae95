#include "KestruneDock/Panel/DockWindow.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include <QGuiApplication>
#include <QWidget>
#include <QWindow>

#include <xcb/shape.h>
#include <xcb/xcb.h>

namespace kestrune::dockwindow {

namespace {

xcb_connection_t* connection()
{
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    // Atoms live as long as the server; each is asked for once.
    static std::map<std::string, xcb_atom_t, std::less<>> known;
    if (auto found = known.find(name); found != known.end())
        return found->second;
    auto cookie = xcb_intern_atom(c, 0, static_cast<uint16_t>(std::char_traits<char>::length(name)), name);
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(xcb_intern_atom_reply(c, cookie, nullptr), &std::free);
    if (!reply)
        return xcb_atom_t(XCB_ATOM_NONE);
    return known[name] = reply->atom;
}

xcb_window_t windowOf(QWidget& widget) { return static_cast<xcb_window_t>(widget.winId()); }

} // namespace

void prepare(QWidget& window)
{
    window.setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
        | Qt::WindowDoesNotAcceptFocus | Qt::NoDropShadowWindowHint);
    xcb_connection_t* c = connection();
    if (!c)
        return;
    // The native window exists from here on, unmapped; Qt wrote its own idea of the type when it
    // made it and does not write it again, so ours stands when the window manager first sees it.
    xcb_window_t id = windowOf(window);
    xcb_atom_t dock = atom(c, "_NET_WM_WINDOW_TYPE_DOCK");
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1, &dock);
    xcb_atom_t states[] = {
        atom(c, "_NET_WM_STATE_ABOVE"), atom(c, "_NET_WM_STATE_STICKY"),
        atom(c, "_NET_WM_STATE_SKIP_TASKBAR"), atom(c, "_NET_WM_STATE_SKIP_PAGER"),
    };
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_STATE"), XCB_ATOM_ATOM, 32, 4, states);
    uint32_t everyDesktop = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL, 32, 1, &everyDesktop);
    xcb_flush(c);
}

void setStrut(QWidget& window, const std::array<uint32_t, 12>& strut)
{
    xcb_connection_t* c = connection();
    if (!c)
        return;
    xcb_window_t id = windowOf(window);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_STRUT_PARTIAL"), XCB_ATOM_CARDINAL, 32, 12, strut.data());
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom(c, "_NET_WM_STRUT"), XCB_ATOM_CARDINAL, 32, 4, strut.data());
    xcb_flush(c);
}

void setShape(QWidget& window, const std::vector<QRect>& rects)
{
    xcb_connection_t* c = connection();
    if (!c)
        return;
    xcb_window_t id = windowOf(window);
    if (rects.empty()) {
        xcb_shape_mask(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, id, 0, 0, XCB_NONE);
    } else {
        std::vector<xcb_rectangle_t> shape;
        shape.reserve(rects.size());
        for (const QRect& rect : rects)
            shape.push_back({ static_cast<int16_t>(rect.x()), static_cast<int16_t>(rect.y()),
                static_cast<uint16_t>(rect.width()), static_cast<uint16_t>(rect.height()) });
        xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED, id, 0, 0,
            static_cast<uint32_t>(shape.size()), shape.data());
    }
    xcb_flush(c);
}

bool compositingActive()
{
    xcb_connection_t* c = connection();
    if (!c)
        return false;
    // Screen 0: several X screens on one display are long out of use.
    auto cookie = xcb_get_selection_owner(c, atom(c, "_NET_WM_CM_S0"));
    std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> reply(
        xcb_get_selection_owner_reply(c, cookie, nullptr), &std::free);
    return reply && reply->owner != XCB_NONE;
}

} // namespace kestrune::dockwindow

#include "KestruneDock/Panel/DockWindow.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <QCoreApplication>
#include <QWidget>

#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include "KestruneDock/Desktop/X11Connection.h"

namespace kestrune::dockwindow {

namespace {

using x11::atom;
using x11::connection;

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

QImage grabScreen(const QRect& rect)
{
    xcb_connection_t* c = connection();
    if (!c || rect.isEmpty())
        return {};
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (screen->root_depth != 24 && screen->root_depth != 32)
        return {};
    auto cookie = xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root, static_cast<int16_t>(rect.x()),
        static_cast<int16_t>(rect.y()), static_cast<uint16_t>(rect.width()), static_cast<uint16_t>(rect.height()), ~0u);
    std::unique_ptr<xcb_get_image_reply_t, decltype(&std::free)> reply(xcb_get_image_reply(c, cookie, nullptr), &std::free);
    if (!reply || xcb_get_image_data_length(reply.get()) < rect.width() * rect.height() * 4)
        return {};
    // 24-bit true colour comes as 32-bit pixels, xRGB in the machine's order: Qt's RGB32.
    QImage image(xcb_get_image_data(reply.get()), rect.width(), rect.height(), rect.width() * 4, QImage::Format_RGB32);
    return image.copy();
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

namespace {

class CompositingWatch final : public QAbstractNativeEventFilter {
public:
    explicit CompositingWatch(std::function<void(bool)> changed) : changed_(std::move(changed))
    {
        xcb_connection_t* c = connection();
        if (!c)
            return;
        const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(c, &xcb_xfixes_id);
        if (!xfixes || !xfixes->present)
            return;
        // The extension must hear our version before it sends us anything.
        free(xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION), nullptr));
        notifyEvent_ = static_cast<uint8_t>(xfixes->first_event + XCB_XFIXES_SELECTION_NOTIFY);
        selection_ = atom(c, "_NET_WM_CM_S0");
        xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
        xcb_xfixes_select_selection_input(c, root, selection_,
            XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY
                | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
        xcb_flush(c);
        QCoreApplication::instance()->installNativeEventFilter(this);
        installed_ = true;
    }

    ~CompositingWatch() override
    {
        if (installed_ && QCoreApplication::instance())
            QCoreApplication::instance()->removeNativeEventFilter(this);
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override
    {
        if (eventType != "xcb_generic_event_t")
            return false;
        auto* event = static_cast<xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) != notifyEvent_)
            return false;
        auto* notify = static_cast<xcb_xfixes_selection_notify_event_t*>(message);
        if (notify->selection == selection_)
            changed_(notify->owner != XCB_NONE);
        return false;
    }

private:
    std::function<void(bool)> changed_;
    uint8_t notifyEvent_ = 0;
    xcb_atom_t selection_ = XCB_ATOM_NONE;
    bool installed_ = false;
};

} // namespace

std::unique_ptr<QAbstractNativeEventFilter> watchCompositing(std::function<void(bool)> changed)
{
    return std::make_unique<CompositingWatch>(std::move(changed));
}

namespace {

class X11EdgeTrigger final : public EdgeTrigger, public QAbstractNativeEventFilter {
public:
    X11EdgeTrigger(std::function<void(QPointF)> moved, std::function<void()> left) : moved_(std::move(moved)), left_(std::move(left))
    {
        xcb_connection_t* c = connection();
        if (!c)
            return;
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        window_ = xcb_generate_id(c);
        uint32_t values[] = { 1, XCB_EVENT_MASK_ENTER_WINDOW | XCB_EVENT_MASK_LEAVE_WINDOW | XCB_EVENT_MASK_POINTER_MOTION };
        xcb_create_window(c, 0, window_, screen->root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
            XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        xcb_flush(c);
        QCoreApplication::instance()->installNativeEventFilter(this);
    }

    ~X11EdgeTrigger() override
    {
        if (!window_)
            return;
        if (QCoreApplication::instance())
            QCoreApplication::instance()->removeNativeEventFilter(this);
        if (xcb_connection_t* c = connection()) {
            xcb_destroy_window(c, window_);
            xcb_flush(c);
        }
    }

    void place(const QRectF& rect, double scale) override
    {
        xcb_connection_t* c = connection();
        if (!c || !window_)
            return;
        scale_ = scale;
        QRect pixels = QRectF(rect.topLeft() * scale, rect.size() * scale).toAlignedRect();
        uint32_t values[] = { static_cast<uint32_t>(pixels.x()), static_cast<uint32_t>(pixels.y()),
            static_cast<uint32_t>(std::max(1, pixels.width())), static_cast<uint32_t>(std::max(1, pixels.height())), XCB_STACK_MODE_ABOVE };
        xcb_configure_window(c, window_,
            XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT | XCB_CONFIG_WINDOW_STACK_MODE, values);
        xcb_map_window(c, window_);
        xcb_flush(c);
    }

    void remove() override
    {
        if (xcb_connection_t* c = connection(); c && window_) {
            xcb_unmap_window(c, window_);
            xcb_flush(c);
        }
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override
    {
        if (eventType != "xcb_generic_event_t")
            return false;
        auto* event = static_cast<xcb_generic_event_t*>(message);
        switch (event->response_type & 0x7f) {
        case XCB_ENTER_NOTIFY:
        case XCB_MOTION_NOTIFY: {
            // Enter and motion events share their first fields' layout up to the root position.
            auto* motion = reinterpret_cast<xcb_motion_notify_event_t*>(event);
            if (motion->event != window_)
                return false;
            moved_(QPointF(motion->root_x / scale_, motion->root_y / scale_));
            return true;
        }
        case XCB_LEAVE_NOTIFY:
            if (reinterpret_cast<xcb_leave_notify_event_t*>(event)->event != window_)
                return false;
            left_();
            return true;
        default:
            return false;
        }
    }

private:
    std::function<void(QPointF)> moved_;
    std::function<void()> left_;
    xcb_window_t window_ = 0;
    double scale_ = 1;
};

} // namespace

std::unique_ptr<EdgeTrigger> makeEdgeTrigger(std::function<void(QPointF global)> moved, std::function<void()> left)
{
    return std::make_unique<X11EdgeTrigger>(std::move(moved), std::move(left));
}

} // namespace kestrune::dockwindow

#include "KestruneDock/Desktop/X11Desktops.h"

#include <cstdlib>
#include <cstring>

#include <xcb/xcb.h>

#include <QSocketNotifier>

namespace kestrune {

namespace {

xcb_atom_t atomOf(xcb_connection_t* c, const char* name)
{
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr), &std::free);
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

std::string propertyOf(xcb_connection_t* c, xcb_window_t window, const char* name, uint32_t longs = 4096)
{
    std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> reply(
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, atomOf(c, name), XCB_GET_PROPERTY_TYPE_ANY, 0, longs), nullptr), &std::free);
    if (!reply)
        return {};
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())), static_cast<size_t>(xcb_get_property_value_length(reply.get())));
}

std::vector<uint32_t> cardinalsOf(xcb_connection_t* c, xcb_window_t window, const char* name)
{
    std::string bytes = propertyOf(c, window, name);
    std::vector<uint32_t> values(bytes.size() / 4);
    std::memcpy(values.data(), bytes.data(), values.size() * 4);
    return values;
}

} // namespace

X11Desktops::X11Desktops(std::string display)
{
    xcb_connection_t* connection = xcb_connect(display.empty() ? nullptr : display.c_str(), nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return;
    }
    connection_ = connection;
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
}

X11Desktops::~X11Desktops()
{
    notifier_.reset();
    if (connection_)
        xcb_disconnect(connection_);
}

void X11Desktops::setWatching(bool watching)
{
    if (!connection_ || watching == watching_)
        return;
    watching_ = watching;
    uint32_t mask = watching ? XCB_EVENT_MASK_PROPERTY_CHANGE : 0;
    xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(connection_);
    if (!watching) {
        notifier_.reset();
        return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection_), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { drain(); });
    read();
}

void X11Desktops::drain()
{
    bool changed = false;
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY)
            changed = true;
        std::free(event);
    }
    if (changed)
        read();
}

void X11Desktops::read()
{
    std::vector<uint32_t> count = cardinalsOf(connection_, root_, "_NET_NUMBER_OF_DESKTOPS");
    std::vector<uint32_t> current = cardinalsOf(connection_, root_, "_NET_CURRENT_DESKTOP");
    // The names are UTF-8 strings, each ending in a NUL.
    std::string packed = propertyOf(connection_, root_, "_NET_DESKTOP_NAMES");
    std::vector<std::string> names;
    for (size_t start = 0; start < packed.size();) {
        size_t end = packed.find('\0', start);
        if (end == std::string::npos)
            end = packed.size();
        names.push_back(packed.substr(start, end - start));
        start = end + 1;
    }
    int newCount = count.empty() ? 0 : static_cast<int>(std::min<uint32_t>(count[0], 64));
    int newCurrent = current.empty() ? 0 : static_cast<int>(current[0]);
    if (newCount == count_ && newCurrent == current_ && names == names_)
        return;
    count_ = newCount;
    current_ = newCurrent;
    names_ = std::move(names);
    if (onChange)
        onChange();
}

std::vector<std::string> X11Desktops::names() const
{
    std::vector<std::string> shown;
    for (int desktop = 0; desktop < count_; ++desktop)
        shown.push_back(static_cast<size_t>(desktop) < names_.size() && !names_[static_cast<size_t>(desktop)].empty()
                            ? names_[static_cast<size_t>(desktop)]
                            : "Desktop " + std::to_string(desktop + 1));
    return shown;
}

std::vector<std::vector<std::string>> X11Desktops::windows() const
{
    std::vector<std::vector<std::string>> byDesktop(static_cast<size_t>(count_));
    if (!connection_)
        return byDesktop;
    for (uint32_t window : cardinalsOf(connection_, root_, "_NET_CLIENT_LIST_STACKING")) {
        std::vector<uint32_t> desktop = cardinalsOf(connection_, window, "_NET_WM_DESKTOP");
        std::string title = propertyOf(connection_, window, "_NET_WM_NAME");
        if (title.empty())
            title = propertyOf(connection_, window, "WM_NAME");
        if (desktop.empty() || title.empty())
            continue;
        // 0xFFFFFFFF: on every desktop.
        for (size_t index = 0; index < byDesktop.size(); ++index)
            if (desktop[0] == 0xFFFFFFFF || desktop[0] == index)
                byDesktop[index].push_back(title);
    }
    return byDesktop;
}

void X11Desktops::switchTo(int desktop)
{
    if (!connection_ || desktop < 0 || desktop >= count_)
        return;
    xcb_client_message_event_t message {};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = root_;
    message.type = atomOf(connection_, "_NET_CURRENT_DESKTOP");
    message.data.data32[0] = static_cast<uint32_t>(desktop);
    message.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(connection_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(connection_);
}

} // namespace kestrune

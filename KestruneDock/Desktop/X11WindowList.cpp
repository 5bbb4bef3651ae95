#include "KestruneDock/Desktop/X11WindowList.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include <QCoreApplication>
#include <QGuiApplication>

#include <xcb/xcb.h>

#include "KestruneDock/Desktop/X11Connection.h"

namespace kestrune {

namespace {

template<typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

using x11::atom;
using x11::connection;

// A property's bytes; a window that went away in the meantime simply has none.
std::string property(xcb_connection_t* c, xcb_window_t window, xcb_atom_t name, uint32_t longs = 1024)
{
    Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, longs), nullptr), &std::free);
    if (!reply || reply->type == XCB_NONE)
        return {};
    auto* bytes = static_cast<const char*>(xcb_get_property_value(reply.get()));
    return std::string(bytes, static_cast<size_t>(xcb_get_property_value_length(reply.get())));
}

std::vector<uint32_t> words(const std::string& bytes)
{
    if (bytes.size() < 4)
        return {};
    std::vector<uint32_t> values(bytes.size() / 4);
    std::memcpy(values.data(), bytes.data(), values.size() * 4);
    return values;
}

// flatpak keeps the app's id in the sandbox's root; a snap's id is in its cgroup's name.
std::vector<std::string> sandboxIds(int64_t pid)
{
    std::vector<std::string> ids;
    std::string base = "/proc/" + std::to_string(pid);
    std::ifstream flatpak(base + "/root/.flatpak-info");
    std::string line;
    bool application = false;
    while (flatpak && std::getline(flatpak, line)) {
        if (line.starts_with('['))
            application = line == "[Application]";
        else if (application && line.starts_with("name="))
            ids.push_back(line.substr(5));
    }
    std::ifstream cgroup(base + "/cgroup");
    while (cgroup && std::getline(cgroup, line)) {
        auto at = line.find("snap.");
        if (at == std::string::npos)
            continue;
        std::string rest = line.substr(at + 5);
        auto dot = rest.find('.');
        if (dot == std::string::npos)
            continue;
        std::string name = rest.substr(0, dot);
        std::string app = rest.substr(dot + 1);
        app = app.substr(0, app.find_first_of(".-"));
        ids.push_back(name + "_" + app);
        break;
    }
    return ids;
}

std::string executableOf(int64_t pid)
{
    char target[4096];
    ssize_t length = ::readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), target, sizeof target - 1);
    return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

void sendToRoot(xcb_connection_t* c, xcb_window_t root, xcb_window_t window, xcb_atom_t type, std::initializer_list<uint32_t> data)
{
    xcb_client_message_event_t event {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = type;
    size_t index = 0;
    for (uint32_t value : data)
        event.data.data32[index++] = value;
    xcb_send_event(c, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
        reinterpret_cast<const char*>(&event));
    xcb_flush(c);
}

uint32_t lastUserTime = 0;

} // namespace

void X11WindowList::noteUserTime(uint32_t timestamp) { lastUserTime = timestamp; }

uint32_t X11WindowList::userTime() { return lastUserTime; }

X11WindowList::X11WindowList(std::function<void()> changed) : changed_(std::move(changed))
{
    xcb_connection_t* c = connection();
    if (!c)
        return;
    root_ = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    // Event masks are per client: ours on the root keep what Qt's connection already asked for.
    Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, root_), nullptr), &std::free);
    uint32_t mask = (attributes ? attributes->your_event_mask : 0) | XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c, root_, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(c);
    QCoreApplication::instance()->installNativeEventFilter(this);
    watching_ = true;
    readClientList();
    readActiveWindow();
}

X11WindowList::~X11WindowList()
{
    if (watching_ && QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
}

bool X11WindowList::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    auto* event = static_cast<xcb_generic_event_t*>(message);
    if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
        return false;
    auto* notify = static_cast<xcb_property_notify_event_t*>(message);
    xcb_connection_t* c = connection();
    if (notify->window != root_) {
        // A client's state: attention asked for or given up, full screen, minimized.
        auto known = known_.find(notify->window);
        if (known == known_.end() || known->second.window == 0 || notify->atom != atom(c, "_NET_WM_STATE"))
            return false;
        readStates(known->second);
        for (DesktopWindow& client : clients_)
            if (client.window == notify->window)
                client = known->second;
        changed_();
        return false;
    }
    if (notify->atom == atom(c, "_NET_CLIENT_LIST")) {
        readClientList();
        changed_();
    } else if (notify->atom == atom(c, "_NET_ACTIVE_WINDOW")) {
        readActiveWindow();
        changed_();
    }
    return false;
}

void X11WindowList::readClientList()
{
    xcb_connection_t* c = connection();
    std::vector<uint32_t> list = words(property(c, root_, atom(c, "_NET_CLIENT_LIST")));
    std::map<uint32_t, DesktopWindow> known;
    clients_.clear();
    for (uint32_t window : list) {
        auto found = known_.find(window);
        std::optional<DesktopWindow> client = found != known_.end() ? std::optional(found->second) : readClient(window);
        if (!client)
            continue;
        known[window] = *client;
        if (client->window != 0)
            clients_.push_back(*client);
    }
    // Windows we passed over (our own, docks, skip-taskbar) are remembered with no window, so
    // they are not read again on every change of the list.
    for (uint32_t window : list)
        if (!known.contains(window))
            known[window] = DesktopWindow {};
    known_ = std::move(known);
    std::erase_if(lastActive_, [&](const auto& entry) { return !known_.contains(entry.first); });
}

void X11WindowList::readActiveWindow()
{
    xcb_connection_t* c = connection();
    auto values = words(property(c, root_, atom(c, "_NET_ACTIVE_WINDOW"), 1));
    active_.reset();
    if (!values.empty() && values[0] != 0) {
        active_ = values[0];
        lastActive_[values[0]] = ++activations_;
    }
}

std::optional<DesktopWindow> X11WindowList::readClient(uint32_t window)
{
    xcb_connection_t* c = connection();
    DesktopWindow client;
    auto pid = words(property(c, window, atom(c, "_NET_WM_PID"), 1));
    client.pid = pid.empty() ? 0 : pid[0];
    if (client.pid == ::getpid())
        return DesktopWindow {};
    // Only what a taskbar would show: normal windows and dialogs not marked to be skipped.
    auto types = words(property(c, window, atom(c, "_NET_WM_WINDOW_TYPE")));
    if (!types.empty() && types[0] != atom(c, "_NET_WM_WINDOW_TYPE_NORMAL") && types[0] != atom(c, "_NET_WM_WINDOW_TYPE_DIALOG"))
        return DesktopWindow {};
    auto states = words(property(c, window, atom(c, "_NET_WM_STATE")));
    if (std::find(states.begin(), states.end(), atom(c, "_NET_WM_STATE_SKIP_TASKBAR")) != states.end())
        return DesktopWindow {};
    client.window = window;
    readStates(client);
    // Its state changes come to us from now on (masks are per client: the window's own stay).
    uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(c, window, XCB_CW_EVENT_MASK, &mask);
    client.facts.gtkApplicationId = property(c, window, atom(c, "_GTK_APPLICATION_ID"));
    client.facts.kdeDesktopFile = property(c, window, atom(c, "_KDE_NET_WM_DESKTOP_FILE"));
    std::string wmClass = property(c, window, XCB_ATOM_WM_CLASS);
    auto zero = wmClass.find('\0');
    client.facts.wmClassInstance = wmClass.substr(0, zero);
    if (zero != std::string::npos)
        client.facts.wmClass = std::string(wmClass.c_str() + zero + 1);
    if (client.pid > 0) {
        client.facts.sandboxIds = sandboxIds(client.pid);
        client.facts.executable = executableOf(client.pid);
    }
    return client;
}

void X11WindowList::readStates(DesktopWindow& client)
{
    xcb_connection_t* c = connection();
    auto states = words(property(c, client.window, atom(c, "_NET_WM_STATE")));
    auto has = [&](const char* name) { return std::find(states.begin(), states.end(), atom(c, name)) != states.end(); };
    client.demandsAttention = has("_NET_WM_STATE_DEMANDS_ATTENTION");
    client.fullScreen = has("_NET_WM_STATE_FULLSCREEN");
    client.minimized = has("_NET_WM_STATE_HIDDEN");
}

std::vector<uint32_t> X11WindowList::byRecentUse() const
{
    std::vector<uint32_t> order;
    for (const DesktopWindow& client : clients_)
        order.push_back(client.window);
    std::stable_sort(order.begin(), order.end(), [this](uint32_t a, uint32_t b) {
        auto used = [this](uint32_t window) {
            auto found = lastActive_.find(window);
            return found == lastActive_.end() ? 0 : found->second;
        };
        return used(a) > used(b);
    });
    return order;
}

std::string X11WindowList::title(uint32_t window)
{
    xcb_connection_t* c = connection();
    if (!c)
        return {};
    std::string name = property(c, window, atom(c, "_NET_WM_NAME"));
    return name.empty() ? property(c, window, XCB_ATOM_WM_NAME) : name;
}

std::optional<X11WindowList::Icon> X11WindowList::icon(uint32_t window, int atLeast)
{
    xcb_connection_t* c = connection();
    if (!c)
        return std::nullopt;
    // Icons of 512 px and a few smaller sizes fit; a larger property is not worth its memory.
    constexpr uint32_t maxLongs = 1u << 20;
    std::vector<uint32_t> data = words(property(c, window, atom(c, "_NET_WM_ICON"), maxLongs));
    // The property is a list of width, height and width × height pixels.
    size_t best = data.size();
    auto better = [&](size_t at) {
        if (best == data.size())
            return true;
        int size = static_cast<int>(std::min(data[at], data[at + 1]));
        int current = static_cast<int>(std::min(data[best], data[best + 1]));
        if (current < atLeast)
            return size > current;
        return size >= atLeast && size < current;
    };
    for (size_t at = 0; at + 2 <= data.size();) {
        uint64_t width = data[at], height = data[at + 1];
        if (width == 0 || height == 0 || width > 4096 || height > 4096 || width * height > data.size() - at - 2)
            break;
        if (better(at))
            best = at;
        at += 2 + width * height;
    }
    if (best == data.size())
        return std::nullopt;
    Icon icon { static_cast<int>(data[best]), static_cast<int>(data[best + 1]), {} };
    auto first = data.begin() + static_cast<std::ptrdiff_t>(best + 2);
    icon.pixels.assign(first, first + static_cast<std::ptrdiff_t>(icon.width) * icon.height);
    return icon;
}

void X11WindowList::activate(uint32_t window, uint32_t timestamp)
{
    if (xcb_connection_t* c = connection())
        // Source 2: a pager acting for the user, which window managers honour without a focus-stealing check.
        sendToRoot(c, root_, window, atom(c, "_NET_ACTIVE_WINDOW"), { 2, timestamp, 0 });
}

void X11WindowList::close(uint32_t window, uint32_t timestamp)
{
    if (xcb_connection_t* c = connection())
        sendToRoot(c, root_, window, atom(c, "_NET_CLOSE_WINDOW"), { timestamp, 2 });
}

} // namespace kestrune

#include "tests/helpers/XSession.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/helpers/TestSupport.h"

namespace kestrune::test {

namespace {

template<typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

std::unique_ptr<ChildProcess> start(ChildProcessOptions options, std::string& problem)
{
    auto spawned = ChildProcess::spawn(options);
    if (auto* failure = std::get_if<SpawnFailure>(&spawned)) {
        problem = failure->description();
        return nullptr;
    }
    return std::move(std::get<std::unique_ptr<ChildProcess>>(spawned));
}

} // namespace

XSession::XSession(WindowManager manager, int width, int height, Screen screen) : manager_(manager)
{
    std::string path = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
    auto xvfb = findInPath("Xvfb", path);
    if (!xvfb) {
        problem_ = "Xvfb is not installed (scripts/setup installs it)";
        return;
    }
    std::string size = std::to_string(width) + "x" + std::to_string(height);
    if (screen == Screen::fixed) {
        display_ = startServer(*xvfb, { "-screen", "0", size + "x24" }, processEnvironment(), server_);
        if (display_.empty())
            return;
    } else {
        // Xvfb's screen keeps its size; Xephyr's, shown in an Xvfb, takes RandR's new ones.
        auto xephyr = findInPath("Xephyr", path);
        if (!xephyr) {
            problem_ = "Xephyr is not installed (scripts/setup installs it)";
            return;
        }
        std::string host = startServer(*xvfb, { "-screen", "0", "1920x1200x24" }, processEnvironment(), host_);
        if (host.empty())
            return;
        Environment nested = processEnvironment();
        nested["DISPLAY"] = host;
        display_ = startServer(*xephyr, { "-screen", size, "-resizeable" }, nested, server_);
        if (display_.empty())
            return;
    }
    connection_ = xcb_connect(display_.c_str(), nullptr);
    if (xcb_connection_has_error(connection_)) {
        problem_ = "cannot connect to the X server on " + display_;
        return;
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;

    startWindowManager();
}

void XSession::startWindowManager()
{
    ChildProcessOptions wm;
    wm.executable = manager_ == WindowManager::openbox ? "/usr/bin/openbox" : "/usr/bin/xfwm4";
    if (manager_ == WindowManager::xfwm4)
        wm.arguments = { "--compositor=off" };
    wm.environment = environment();
    wm.output = ChildStream::nullDevice;
    wm.error = ChildStream::nullDevice;
    wm.grouping = ChildGrouping::newProcessGroup;
    if (!isExecutableFile(wm.executable)) {
        problem_ = wm.executable + " is not installed (scripts/setup installs it)";
        return;
    }
    windowManager_ = start(wm, problem_);
    if (!windowManager_)
        return;
    // A window manager is up once it names itself on the root window.
    if (!eventually([&] { return !cardinals(root_, "_NET_SUPPORTING_WM_CHECK").empty(); }, 20)) {
        problem_ = std::string(managerName()) + " did not come up on " + display_;
        return;
    }
    // It names itself before it manages windows, and Openbox loses a window mapped in between:
    // a probe window that it lists says it is ready. A lost probe is replaced.
    bool managing = false;
    for (int attempt = 0; attempt < 40 && !managing; ++attempt) {
        xcb_window_t probe = xcb_generate_id(connection_);
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, probe, root_, 0, 0, 10, 10, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
            XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_map_window(connection_, probe);
        xcb_flush(connection_);
        managing = eventually([&] {
            auto list = clients();
            return std::find(list.begin(), list.end(), probe) != list.end();
        }, 0.5);
        xcb_destroy_window(connection_, probe);
        xcb_flush(connection_);
    }
    if (!managing)
        problem_ = std::string(managerName()) + " does not manage windows on " + display_;
}

void XSession::restartWindowManager()
{
    if (windowManager_) {
        windowManager_->signalGroup(SIGTERM);
        windowManager_->wait();
    }
    // The old one's name stays on the root window; the new one's is the sign it is up.
    xcb_delete_property(connection_, root_, atom("_NET_SUPPORTING_WM_CHECK"));
    xcb_flush(connection_);
    startWindowManager();
}

bool XSession::resize(int width, int height)
{
    run({ "/usr/bin/xrandr", "-s", std::to_string(width) + "x" + std::to_string(height) });
    return eventually([&] {
        Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, root_), nullptr), &std::free);
        return geometry && geometry->width == width && geometry->height == height;
    }, 5);
}

XSession::~XSession()
{
    monitors_.reset();
    if (connection_)
        xcb_disconnect(connection_);
    if (windowManager_) {
        windowManager_->signalGroup(SIGTERM);
        windowManager_->wait();
    }
    for (auto* server : { &server_, &host_ }) {
        if (*server) {
            (*server)->signal(SIGTERM);
            (*server)->wait();
        }
    }
}

std::string XSession::startServer(const std::string& executable, std::vector<std::string> arguments, const Environment& environment,
    std::unique_ptr<ChildProcess>& process)
{
    // The server picks a free display and writes its number on the descriptor given: our pipe.
    ChildProcessOptions server;
    server.executable = executable;
    server.arguments = { "-displayfd", "1" };
    server.arguments.insert(server.arguments.end(), arguments.begin(), arguments.end());
    server.arguments.insert(server.arguments.end(), { "-nolisten", "tcp", "-noreset" });
    server.environment = environment;
    server.error = ChildStream::nullDevice;
    process = start(server, problem_);
    if (!process)
        return {};
    std::string number;
    pollfd waiting { process->outputFd(), POLLIN, 0 };
    while (number.find('\n') == std::string::npos && ::poll(&waiting, 1, 10000) > 0) {
        char buffer[32];
        ssize_t count = ::read(process->outputFd(), buffer, sizeof buffer);
        if (count <= 0)
            break;
        number.append(buffer, static_cast<size_t>(count));
    }
    if (number.find('\n') == std::string::npos) {
        problem_ = std::filesystem::path(executable).filename().string() + " did not start here";
        return {};
    }
    return ":" + number.substr(0, number.find('\n'));
}

const char* XSession::managerName() const { return manager_ == WindowManager::openbox ? "Openbox" : "xfwm4"; }

Environment XSession::environment() const
{
    Environment environment = processEnvironment();
    environment["DISPLAY"] = display_;
    environment.erase("WAYLAND_DISPLAY");
    // The tests paint offscreen themselves; what they start here draws on this display.
    environment["QT_QPA_PLATFORM"] = "xcb";
    return environment;
}

xcb_atom_t XSession::atom(const char* name)
{
    auto cookie = xcb_intern_atom(connection_, 0, static_cast<uint16_t>(std::strlen(name)), name);
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr), &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

std::string XSession::atomName(xcb_atom_t atom)
{
    Reply<xcb_get_atom_name_reply_t> reply(xcb_get_atom_name_reply(connection_, xcb_get_atom_name(connection_, atom), nullptr), &std::free);
    if (!reply)
        return {};
    return std::string(xcb_get_atom_name_name(reply.get()), static_cast<size_t>(xcb_get_atom_name_name_length(reply.get())));
}

std::vector<uint32_t> XSession::cardinals(xcb_window_t window, const char* property)
{
    auto cookie = xcb_get_property(connection_, 0, window, atom(property), XCB_GET_PROPERTY_TYPE_ANY, 0, 1024);
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_, cookie, nullptr), &std::free);
    if (!reply || reply->format != 32)
        return {};
    auto* values = static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
    return { values, values + xcb_get_property_value_length(reply.get()) / 4 };
}

std::vector<std::string> XSession::atoms(xcb_window_t window, const char* property)
{
    std::vector<std::string> names;
    for (uint32_t value : cardinals(window, property))
        names.push_back(atomName(value));
    return names;
}

std::vector<xcb_window_t> XSession::clients()
{
    auto list = cardinals(root_, "_NET_CLIENT_LIST");
    return { list.begin(), list.end() };
}

std::optional<xcb_window_t> XSession::waitForClient(pid_t pid, double seconds, const char* type)
{
    std::optional<xcb_window_t> found;
    (void)eventually([&] {
        for (xcb_window_t window : clients()) {
            auto owner = cardinals(window, "_NET_WM_PID");
            if (owner.empty() || owner[0] != static_cast<uint32_t>(pid))
                continue;
            auto types = atoms(window, "_NET_WM_WINDOW_TYPE");
            if (!type || (!types.empty() && types[0] == type))
                found = window;
        }
        return found.has_value();
    }, seconds);
    return found;
}

std::optional<xcb_window_t> XSession::activeWindow()
{
    auto active = cardinals(root_, "_NET_ACTIVE_WINDOW");
    return active.empty() || active[0] == 0 ? std::nullopt : std::optional<xcb_window_t>(active[0]);
}

std::string XSession::windowClass(xcb_window_t window)
{
    auto cookie = xcb_get_property(connection_, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256);
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_, cookie, nullptr), &std::free);
    if (!reply)
        return {};
    std::string bytes(static_cast<const char*>(xcb_get_property_value(reply.get())),
        static_cast<size_t>(xcb_get_property_value_length(reply.get())));
    auto zero = bytes.find('\0');
    return zero == std::string::npos ? std::string() : std::string(bytes.c_str() + zero + 1);
}

std::optional<xcb_window_t> XSession::waitForClass(const std::string& windowClass, double seconds)
{
    std::optional<xcb_window_t> found;
    (void)eventually([&] {
        for (xcb_window_t window : clients())
            if (this->windowClass(window) == windowClass)
                found = window;
        return found.has_value();
    }, seconds);
    return found;
}

uint32_t XSession::pixel(int x, int y)
{
    auto cookie = xcb_get_image(connection_, XCB_IMAGE_FORMAT_Z_PIXMAP, root_, static_cast<int16_t>(x), static_cast<int16_t>(y), 1, 1, ~0u);
    Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection_, cookie, nullptr), &std::free);
    if (!reply || xcb_get_image_data_length(reply.get()) < 4)
        return 0;
    uint32_t value;
    std::memcpy(&value, xcb_get_image_data(reply.get()), 4);
    return value & 0xFFFFFF;
}

void XSession::closeWindow(xcb_window_t window)
{
    xcb_client_message_event_t event {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom("_NET_CLOSE_WINDOW");
    event.data.data32[1] = 2;
    xcb_send_event(connection_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
        reinterpret_cast<const char*>(&event));
    xcb_flush(connection_);
}

void XSession::setState(xcb_window_t window, const std::string& state, bool on)
{
    xcb_client_message_event_t event {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom("_NET_WM_STATE");
    event.data.data32[0] = on ? 1 : 0;
    event.data.data32[1] = atom(state.c_str());
    event.data.data32[3] = 2;
    xcb_send_event(connection_, 0, root_, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
        reinterpret_cast<const char*>(&event));
    xcb_flush(connection_);
}

XRect XSession::geometry(xcb_window_t window)
{
    Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window), nullptr), &std::free);
    Reply<xcb_translate_coordinates_reply_t> place(
        xcb_translate_coordinates_reply(connection_, xcb_translate_coordinates(connection_, window, root_, 0, 0), nullptr), &std::free);
    if (!size || !place)
        return {};
    return { place->dst_x, place->dst_y, size->width, size->height };
}

void XSession::run(const std::vector<std::string>& arguments)
{
    ChildProcessOptions options;
    options.executable = arguments.front();
    options.arguments.assign(arguments.begin() + 1, arguments.end());
    options.environment = environment();
    std::string ignored;
    if (auto child = start(options, ignored))
        child->wait();
}

void XSession::move(int x, int y)
{
    // xdotool waits for a pointer that is already there to move, which it never does.
    Reply<xcb_query_pointer_reply_t> pointer(xcb_query_pointer_reply(connection_, xcb_query_pointer(connection_, root_), nullptr), &std::free);
    if (pointer && pointer->root_x == x && pointer->root_y == y)
        return;
    run({ "/usr/bin/xdotool", "mousemove", "--sync", std::to_string(x), std::to_string(y) });
}

void XSession::click(int x, int y, int button)
{
    move(x, y);
    run({ "/usr/bin/xdotool", "click", std::to_string(button) });
}

void XSession::drag(int fromX, int fromY, int toX, int toY, bool release, int patience)
{
    auto pause = [patience](int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds * std::max(1, patience))); };
    move(fromX, fromY);
    run({ "/usr/bin/xdotool", "mousedown", "1" });
    constexpr int steps = 12;
    for (int step = 1; step <= steps; ++step) {
        move(fromX + (toX - fromX) * step / steps, fromY + (toY - fromY) * step / steps);
        pause(40);
    }
    // Each position waits for the target's answer to the one before; a last small move, once
    // the others are answered, is what the drop goes by.
    pause(300);
    move(toX + 1, toY);
    pause(300);
    move(toX, toY);
    pause(400);
    if (release)
        releaseButton();
}

void XSession::releaseButton() { run({ "/usr/bin/xdotool", "mouseup", "1" }); }

void XSession::key(const std::string& keys) { run({ "/usr/bin/xdotool", "key", keys }); }

void XSession::screenshot(const std::string& name)
{
    std::filesystem::create_directories(KESTRUNE_SCREENS);
    run({ KESTRUNE_SCREENSHOT, std::string(KESTRUNE_SCREENS) + "/" + name + ".png" });
}

} // namespace kestrune::test

#pragma once
// A desktop for a test: Xvfb on a display of its own and a window manager on it, both ended with
// the session. Windows are found and read back through xcb; input is synthetic (XTest, through
// xdotool), and screenshots go to build/screens/ for people to look at.
//
//   test::XSession session(test::XSession::WindowManager::openbox);
//   if (!session.available()) GTEST_SKIP() << session.problem();
//   auto window = session.waitForClient(pid);
//   session.click(640, 700);

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <xcb/xcb.h>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune::test {

struct XRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

class XSession {
public:
    enum class WindowManager { openbox, xfwm4 };
    // A fixed screen is Xvfb's; a resizable one is Xephyr's, nested in an Xvfb of its own.
    enum class Screen { fixed, resizable };

    explicit XSession(WindowManager manager, int width = 1280, int height = 800, Screen screen = Screen::fixed);
    ~XSession();
    XSession(const XSession&) = delete;
    XSession& operator=(const XSession&) = delete;

    [[nodiscard]] bool available() const { return connection_ != nullptr && problem_.empty(); }
    [[nodiscard]] const std::string& problem() const { return problem_; }
    [[nodiscard]] const std::string& display() const { return display_; }
    [[nodiscard]] xcb_window_t root() const { return root_; }
    [[nodiscard]] const char* managerName() const;
    // This process's environment with the session's DISPLAY.
    [[nodiscard]] Environment environment() const;

    // The managed window of a process (of this _NET_WM_WINDOW_TYPE, when given), waited for;
    // none if it does not come.
    [[nodiscard]] std::optional<xcb_window_t> waitForClient(pid_t pid, double seconds = 20, const char* type = nullptr);
    [[nodiscard]] std::vector<xcb_window_t> clients();
    [[nodiscard]] std::vector<uint32_t> cardinals(xcb_window_t window, const char* property);
    [[nodiscard]] std::vector<std::string> atoms(xcb_window_t window, const char* property);
    // Where the window is on the screen.
    [[nodiscard]] XRect geometry(xcb_window_t window);

    [[nodiscard]] std::optional<xcb_window_t> activeWindow();
    // WM_CLASS's class part.
    [[nodiscard]] std::string windowClass(xcb_window_t window);
    // The first client whose WM_CLASS class is this, waited for.
    [[nodiscard]] std::optional<xcb_window_t> waitForClass(const std::string& windowClass, double seconds = 20);
    // The root window's pixel, 0xRRGGBB.
    [[nodiscard]] uint32_t pixel(int x, int y);
    // Asks the window manager, as a pager does, to add or remove a _NET_WM_STATE of the window
    // ("_NET_WM_STATE_FULLSCREEN").
    void setState(xcb_window_t window, const std::string& state, bool on);
    // Asks the window manager to close the window, as a taskbar's close does.
    void closeWindow(xcb_window_t window);

    // Ends the window manager and starts it again, as a user's "restart" does.
    void restartWindowManager();
    // Gives a resizable screen a new size through RandR, as a resolution change does; false
    // when the server does not take it.
    [[nodiscard]] bool resize(int width, int height);
    // Divides the screen into monitors through RandR, the first one primary, as a second display
    // would; false when the server does not take them. They last as long as the session.
    [[nodiscard]] bool splitScreen(const std::vector<XRect>& monitors);

    void move(int x, int y);
    // Button 1 is the left, 3 the right.
    void click(int x, int y, int button = 1);
    // Presses the left button at one point, moves in steps to another (a drag needs motion to
    // follow) and lets go there unless `release` is false.
    // `patience` stretches every pause, for a target that answers slowly (a sanitized build).
    void drag(int fromX, int fromY, int toX, int toY, bool release = true, int patience = 1);
    void releaseButton();
    // Types keys into the focused window, as xdotool names them ("Return").
    void key(const std::string& keys);
    void screenshot(const std::string& name);

private:
    // The display the server came up on, empty when it did not.
    std::string startServer(const std::string& executable, std::vector<std::string> arguments, const Environment& environment,
        std::unique_ptr<ChildProcess>& process);
    void startWindowManager();
    [[nodiscard]] xcb_atom_t atom(const char* name);
    [[nodiscard]] std::string atomName(xcb_atom_t atom);
    void run(const std::vector<std::string>& arguments);

    WindowManager manager_;
    std::string problem_;
    std::string display_;
    std::unique_ptr<ChildProcess> server_;
    std::unique_ptr<ChildProcess> host_;
    std::unique_ptr<ChildProcess> windowManager_;
    xcb_connection_t* connection_ = nullptr;
    xcb_window_t root_ = 0;
    // The Xlib connection that set the monitors (RandR's monitors are set through Xlib).
    std::shared_ptr<void> monitors_;
};

} // namespace kestrune::test

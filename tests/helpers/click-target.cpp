// A plain window that reports the clicks it receives, for the desktop tests: it asks for the
// geometry given on its command line (as a user-placed window), prints "mapped" once it is on
// screen and "press X Y" (root coordinates) for each button press, and ends when the window
// manager asks it to close. Its WM_CLASS is "kestrune-click-target" and CLASS (by default
// "KestruneClickTarget"), so that the tests can also run it as an application with a desktop entry.
// Its icon (_NET_WM_ICON, 32 and 64 px) is a plain orange square, 0xE8702A.
//
//   kestrune-click-target X Y WIDTH HEIGHT [CLASS]

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include <xcb/xcb.h>
#include <xcb/xcb_icccm.h>

int main(int argc, char** argv)
{
    if (argc != 5 && argc != 6)
        return 2;
    std::string className = argc == 6 ? argv[5] : "KestruneClickTarget";
    int x = std::atoi(argv[1]), y = std::atoi(argv[2]), width = std::atoi(argv[3]), height = std::atoi(argv[4]);
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c))
        return 1;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    xcb_window_t window = xcb_generate_id(c);
    uint32_t values[] = { 0x3a6ea5, XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY };
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, static_cast<int16_t>(x), static_cast<int16_t>(y),
        static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
        XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    xcb_size_hints_t hints {};
    xcb_icccm_size_hints_set_position(&hints, 1, x, y);
    xcb_icccm_size_hints_set_size(&hints, 1, width, height);
    xcb_icccm_set_wm_normal_hints(c, window, &hints);
    const char* title = "click target";
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
        static_cast<uint32_t>(std::strlen(title)), title);
    std::string wmClass = std::string("kestrune-click-target") + '\0' + className + '\0';
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
        static_cast<uint32_t>(wmClass.size()), wmClass.data());
    auto atom = [c](const char* name) {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
        xcb_atom_t value = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        std::free(reply);
        return value;
    };
    uint32_t pid = static_cast<uint32_t>(getpid());
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 32, 1, &pid);
    xcb_atom_t deleteWindow = atom("WM_DELETE_WINDOW");
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, atom("WM_PROTOCOLS"), XCB_ATOM_ATOM, 32, 1, &deleteWindow);
    std::vector<uint32_t> icon;
    for (uint32_t size : { 32u, 64u }) {
        icon.push_back(size);
        icon.push_back(size);
        icon.insert(icon.end(), size * size, 0xFFE8702A);
    }
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, atom("_NET_WM_ICON"), XCB_ATOM_CARDINAL, 32,
        static_cast<uint32_t>(icon.size()), icon.data());
    xcb_map_window(c, window);
    xcb_flush(c);
    bool announced = false;
    while (xcb_generic_event_t* event = xcb_wait_for_event(c)) {
        switch (event->response_type & 0x7f) {
        case XCB_EXPOSE:
            if (!announced) {
                std::printf("mapped\n");
                announced = true;
            }
            break;
        case XCB_BUTTON_PRESS: {
            auto* press = reinterpret_cast<xcb_button_press_event_t*>(event);
            std::printf("press %d %d\n", press->root_x, press->root_y);
            break;
        }
        case XCB_CLIENT_MESSAGE: {
            auto* message = reinterpret_cast<xcb_client_message_event_t*>(event);
            if (message->data.data32[0] == deleteWindow) {
                std::printf("closed\n");
                std::fflush(stdout);
                return 0;
            }
            break;
        }
        default:
            break;
        }
        std::fflush(stdout);
        std::free(event);
    }
    return 0;
}

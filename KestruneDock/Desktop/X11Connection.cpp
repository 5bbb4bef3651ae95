#include "KestruneDock/Desktop/X11Connection.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include <QGuiApplication>

namespace kestrune::x11 {

xcb_connection_t* connection()
{
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    static std::map<std::string, xcb_atom_t, std::less<>> known;
    if (auto found = known.find(name); found != known.end())
        return found->second;
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr), &std::free);
    if (!reply)
        return xcb_atom_t(XCB_ATOM_NONE);
    return known[name] = reply->atom;
}

} // namespace kestrune::x11

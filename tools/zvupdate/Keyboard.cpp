#include "Keyboard.h"

#ifdef ZVUPDATE_HAS_XCB

#include <QGuiApplication>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include <xcb/xcb.h>

namespace {

template <class Reply>
std::unique_ptr<Reply, decltype(&std::free)> owned(Reply *reply)
{
    return {reply, &std::free};
}

// None when nobody has used that name yet.
xcb_atom_t atom(xcb_connection_t *connection, const char *name)
{
    const auto request =
        xcb_intern_atom(connection, true, static_cast<uint16_t>(std::strlen(name)), name);
    const auto reply = owned(xcb_intern_atom_reply(connection, request, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

// Absent when the window is.
std::optional<std::vector<uint32_t>> property(xcb_connection_t *connection, xcb_window_t window,
                                              const char *name)
{
    constexpr uint32_t most = 32;
    const auto request = xcb_get_property(connection, false, window, atom(connection, name),
                                          XCB_GET_PROPERTY_TYPE_ANY, 0, most);
    const auto reply = owned(xcb_get_property_reply(connection, request, nullptr));
    if (!reply)
        return std::nullopt;
    if (reply->format != 32)
        return std::vector<uint32_t>();
    const auto *values = static_cast<const uint32_t *>(xcb_get_property_value(reply.get()));
    return std::vector(values, values + reply->value_len);
}

} // namespace

// The desktop itself may be a window.
bool Keyboard::isFree()
{
    const auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t *connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return false;
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const auto active = property(connection, root, "_NET_ACTIVE_WINDOW");
    if (!active || active->empty() || active->front() == XCB_WINDOW_NONE)
        return true;
    const auto types = property(connection, active->front(), "_NET_WM_WINDOW_TYPE");
    const xcb_atom_t desktop = atom(connection, "_NET_WM_WINDOW_TYPE_DESKTOP");
    return !types || std::find(types->begin(), types->end(), desktop) != types->end();
}

#else

bool Keyboard::isFree()
{
    return false;
}

#endif

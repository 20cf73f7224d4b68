#include "media/UdpPortReservation.h"

#include <gio/gio.h>

namespace zv::media {

std::shared_ptr<UdpPortReservation> UdpPortReservation::bind(uint16_t port, std::string* error) {
    GError* raw = nullptr;
    SocketPtr socket(g_socket_new(G_SOCKET_FAMILY_IPV4, G_SOCKET_TYPE_DATAGRAM, G_SOCKET_PROTOCOL_UDP, &raw));
    if (!socket) {
        ErrorPtr owned(raw);
        if (error != nullptr) *error = "cannot make a UDP socket: " + std::string(owned ? owned->message : "?");
        return nullptr;
    }
    GInetAddress* any = g_inet_address_new_any(G_SOCKET_FAMILY_IPV4);
    GSocketAddress* address = g_inet_socket_address_new(any, port);
    // No address reuse: for UDP GLib would also allow a second socket on the same port.
    const gboolean bound = g_socket_bind(socket.get(), address, FALSE, &raw);
    g_object_unref(address);
    g_object_unref(any);
    if (!bound) {
        ErrorPtr owned(raw);
        if (error != nullptr) {
            *error = "cannot bind UDP port " + std::to_string(port) + ": " + (owned ? owned->message : "?");
        }
        return nullptr;
    }
    GSocketAddress* local = g_socket_get_local_address(socket.get(), nullptr);
    uint16_t boundPort = 0;
    if (local != nullptr) {
        boundPort = g_inet_socket_address_get_port(G_INET_SOCKET_ADDRESS(local));
        g_object_unref(local);
    }
    std::shared_ptr<UdpPortReservation> reservation(new UdpPortReservation);
    reservation->m_socket = std::move(socket);
    reservation->m_port = boundPort;
    return reservation;
}

uint16_t pickFreeUdpPort(std::string* error) {
    auto reservation = UdpPortReservation::bind(0, error);
    return reservation ? reservation->port() : 0;
}

}  // namespace zv::media

// Takes media only from the session's peer: packets arriving at a udpsrc
// from any other address are dropped at its source pad, before rtpbin,
// srtpdec or a depayloader see them; an SRT listener refuses callers from
// other addresses. (A TCP listener has no such hook: there the SRTP check
// drops what a stranger sends.)
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace zv::media {

class PeerFilter {
public:
    PeerFilter() = default;
    PeerFilter(const PeerFilter&) = delete;
    PeerFilter& operator=(const PeerFilter&) = delete;

    // The peer's IP address (IPv4, IPv6, or IPv4 written as ::ffff:a.b.c.d).
    // "" or why it is not one.
    std::string setPeer(const std::string& address);
    void clear();  // takes media from anyone
    bool active() const;

    // Drops what udpsrc receives from others (udpsrc adds the sender's
    // address to every buffer unless told not to).
    void attachToUdpSource(GstElement* udpsrc);
    // Refuses SRT callers from other addresses.
    void attachToSrtListener(GstElement* srtsrc);

    // Packets (or SRT connection attempts) refused so far. Any thread.
    uint64_t dropped() const;

    struct State;

private:
    std::shared_ptr<State> state() const;

    mutable std::mutex m_mutex;  // m_state against setPeer()/clear() on the owner's thread
    std::shared_ptr<State> m_state;
};

}  // namespace zv::media

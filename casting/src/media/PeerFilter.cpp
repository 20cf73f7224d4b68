#include "media/PeerFilter.h"

#include <gio/gio.h>
#include <gst/net/gstnetaddressmeta.h>

#include <cstring>

#include "casting/Log.h"

namespace zv::media {

struct PeerFilter::State {
    GInetAddress* peer = nullptr;  // IPv4-mapped addresses made plain IPv4
    std::atomic<uint64_t> dropped{0};
    ~State() {
        if (peer != nullptr) g_object_unref(peer);
    }
};

namespace {

using StatePtr = std::shared_ptr<PeerFilter::State>;

// ::ffff:a.b.c.d ─▶ a.b.c.d (a dual-stack socket names IPv4 peers that way).
GInetAddress* plainAddress(GInetAddress* address) {
    if (g_inet_address_get_family(address) == G_SOCKET_FAMILY_IPV6) {
        const guint8* bytes = g_inet_address_to_bytes(address);
        static const guint8 kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
        if (std::memcmp(bytes, kMapped, sizeof kMapped) == 0) {
            return g_inet_address_new_from_bytes(bytes + 12, G_SOCKET_FAMILY_IPV4);
        }
    }
    return G_INET_ADDRESS(g_object_ref(address));
}

bool fromPeer(const PeerFilter::State& state, GSocketAddress* from) {
    if (from == nullptr || !G_IS_INET_SOCKET_ADDRESS(from)) return false;
    GInetAddress* address = plainAddress(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(from)));
    const bool same = g_inet_address_equal(address, state.peer);
    g_object_unref(address);
    return same;
}

bool bufferFromPeer(const PeerFilter::State& state, GstBuffer* buffer) {
    GstNetAddressMeta* meta = gst_buffer_get_net_address_meta(buffer);
    return meta != nullptr && fromPeer(state, meta->addr);
}

GstPadProbeReturn onReceived(GstPad*, GstPadProbeInfo* info, gpointer data) {
    PeerFilter::State& state = **static_cast<StatePtr*>(data);
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
        if (bufferFromPeer(state, GST_PAD_PROBE_INFO_BUFFER(info))) return GST_PAD_PROBE_OK;
        ++state.dropped;
        return GST_PAD_PROBE_DROP;
    }
    if ((info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) != 0) {
        GstBufferList* list = gst_buffer_list_make_writable(GST_PAD_PROBE_INFO_BUFFER_LIST(info));
        GST_PAD_PROBE_INFO_DATA(info) = list;
        for (guint i = gst_buffer_list_length(list); i > 0; --i) {
            if (!bufferFromPeer(state, gst_buffer_list_get(list, i - 1))) {
                gst_buffer_list_remove(list, i - 1, 1);
                ++state.dropped;
            }
        }
        if (gst_buffer_list_length(list) == 0) return GST_PAD_PROBE_DROP;
    }
    return GST_PAD_PROBE_OK;
}

gboolean onCallerConnecting(GstElement*, GSocketAddress* from, gchar*, gpointer data) {
    PeerFilter::State& state = **static_cast<StatePtr*>(data);
    if (fromPeer(state, from)) return TRUE;
    ++state.dropped;
    ZV_LOG(WARNING) << " an SRT caller that is not the cast's peer was refused";
    return FALSE;
}

void deleteState(gpointer data) { delete static_cast<StatePtr*>(data); }

}  // namespace

std::string PeerFilter::setPeer(const std::string& address) {
    clear();
    GInetAddress* parsed = g_inet_address_new_from_string(address.c_str());
    if (parsed == nullptr) return "the peer address \"" + address + "\" is not an IP address";
    auto state = std::make_shared<State>();
    state->peer = plainAddress(parsed);
    g_object_unref(parsed);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state = std::move(state);
    return {};
}

void PeerFilter::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state.reset();
}

std::shared_ptr<PeerFilter::State> PeerFilter::state() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_state;
}

bool PeerFilter::active() const { return state() != nullptr; }

uint64_t PeerFilter::dropped() const {
    const auto current = state();
    return current ? current->dropped.load() : 0;
}

void PeerFilter::attachToUdpSource(GstElement* udpsrc) {
    const auto current = state();
    if (!current) return;
    g_object_set(udpsrc, "retrieve-sender-address", TRUE, nullptr);
    GstPad* pad = gst_element_get_static_pad(udpsrc, "src");
    gst_pad_add_probe(pad, static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
                      &onReceived, new StatePtr(current), &deleteState);
    gst_object_unref(pad);
}

void PeerFilter::attachToSrtListener(GstElement* srtsrc) {
    const auto current = state();
    if (!current) return;
    g_signal_connect_data(srtsrc, "caller-connecting", G_CALLBACK(&onCallerConnecting), new StatePtr(current),
                          [](gpointer data, GClosure*) { deleteState(data); }, GConnectFlags(0));
}

}  // namespace zv::media

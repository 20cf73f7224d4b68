// Owning handles for GStreamer and GLib objects.
//
// Every handle holds one full (non-floating) reference and drops it when it
// goes out of scope. Objects made by factories start with a floating
// reference; makeElement() and adoptFloating() sink it, so adding an element
// to a bin afterwards gives the bin a reference of its own and ours stays
// valid until the handle is dropped.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

// GIO's socket, without gio.h (whose headers clash with Qt's "signals").
typedef struct _GSocket GSocket;

namespace zv::media {

struct GstObjectUnref {
    void operator()(gpointer object) const {
        if (object != nullptr) gst_object_unref(object);
    }
};
struct GObjectUnref {
    void operator()(gpointer object) const {
        if (object != nullptr) g_object_unref(object);
    }
};
struct GstCapsUnref {
    void operator()(GstCaps* caps) const {
        if (caps != nullptr) gst_caps_unref(caps);
    }
};
struct GstSampleUnref {
    void operator()(GstSample* sample) const {
        if (sample != nullptr) gst_sample_unref(sample);
    }
};
struct GstBufferUnref {
    void operator()(GstBuffer* buffer) const {
        if (buffer != nullptr) gst_buffer_unref(buffer);
    }
};
struct GstStructureFree {
    void operator()(GstStructure* structure) const {
        if (structure != nullptr) gst_structure_free(structure);
    }
};
struct GErrorFree {
    void operator()(GError* error) const {
        if (error != nullptr) g_error_free(error);
    }
};
struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};

using ElementPtr = std::unique_ptr<GstElement, GstObjectUnref>;
using PadPtr = std::unique_ptr<GstPad, GstObjectUnref>;
using BusPtr = std::unique_ptr<GstBus, GstObjectUnref>;
using ClockPtr = std::unique_ptr<GstClock, GstObjectUnref>;
using ElementFactoryPtr = std::unique_ptr<GstElementFactory, GstObjectUnref>;
using SocketPtr = std::unique_ptr<GSocket, GObjectUnref>;
using CapsPtr = std::unique_ptr<GstCaps, GstCapsUnref>;
using SamplePtr = std::unique_ptr<GstSample, GstSampleUnref>;
using BufferPtr = std::unique_ptr<GstBuffer, GstBufferUnref>;
using StructurePtr = std::unique_ptr<GstStructure, GstStructureFree>;
using ErrorPtr = std::unique_ptr<GError, GErrorFree>;
using GCharPtr = std::unique_ptr<gchar, GFree>;

// Takes over a reference that may be floating (fresh from a factory).
template <typename T>
std::unique_ptr<T, GstObjectUnref> adoptFloating(T* object) {
    if (object != nullptr) gst_object_ref_sink(object);
    return std::unique_ptr<T, GstObjectUnref>(object);
}

// Adds a reference of our own to an object someone else owns.
template <typename T>
std::unique_ptr<T, GstObjectUnref> addRef(T* object) {
    if (object != nullptr) gst_object_ref(object);
    return std::unique_ptr<T, GstObjectUnref>(object);
}

// An element from its factory name with a stable name of ours; empty when the
// factory is not installed (or failed to load).
inline ElementPtr makeElement(const char* factory, const std::string& name) {
    return adoptFloating(gst_element_factory_make(factory, name.c_str()));
}

inline CapsPtr capsFromString(const std::string& text) { return CapsPtr(gst_caps_from_string(text.c_str())); }

inline std::string toStdString(const gchar* text) { return text != nullptr ? std::string(text) : std::string(); }

// A gchar* returned with ownership (gst_caps_to_string, gst_object_get_name...).
inline std::string takeString(gchar* text) {
    GCharPtr owned(text);
    return toStdString(owned.get());
}

}  // namespace zv::media

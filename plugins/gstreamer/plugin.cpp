// What GStreamer finds in libgstvqns.so.
#include <gst/gst.h>

#include "denoise_element.h"

#define PACKAGE "vqns"

namespace {

gboolean register_elements(GstPlugin* plugin) {
    return gst_element_register(plugin, "vqnsdenoise", GST_RANK_NONE, vqns_denoise_get_type());
}

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, vqns, "Noise suppression and levelling of speech",
                  register_elements, VQNS_VERSION, "MIT/X11", "vqns", "Unknown package origin")

// denoise_element.h - the GStreamer element `vqnsdenoise`.
//
// Sound goes out with the timestamps that it came in with: the frames ahead of the first that belongs to the
// input are left out, and what is inside at the end is drained. So a file comes out aligned and as long as it
// was, and in a live pipeline the delay is in the answer to the latency query, where the sinks make up for
// it.
#ifndef VQNS_DENOISE_ELEMENT_H
#define VQNS_DENOISE_ELEMENT_H

#include <gst/gst.h>

GType vqns_denoise_get_type();

#endif

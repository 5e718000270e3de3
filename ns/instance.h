#ifndef INSTANCE_H
#define INSTANCE_H

#include "vq_ns.h"

/* Whether both converters accepted their rates. A refused converter must not be run. */
bool can_process(const vq_ns_data& ns);

#endif

#ifndef KERNEL_TABLE_H
#define KERNEL_TABLE_H

#include "vq_ns_kernels.h"

/* Fills a table with the plain kernels, then puts over them what `level` (VQ_NS_LEVEL_*) has of its own. */
void fill_kernel_table(vq_ns_kernel_table* table, int32_t level);

#endif

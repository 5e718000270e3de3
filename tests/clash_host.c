/* A host with names of its own that the library uses too, where -DCLASH is given. Prints how many blocks the
 * engine delivered and a hash of what it made of a fixed noise: the same either way, if the library keeps to
 * its own. With an argument it prints the library's process-wide variables as a host sees them. */
#include <stdio.h>
#include <stdlib.h>

#ifdef CLASH
/* The library's headers would not let us: the few declarations that are needed, by hand. */
#include <stddef.h>
#include <stdint.h>
float dense0[4] = {1e30f, 1e30f, 1e30f, 1e30f};
float tansig_table[201];
int norm(int x) {
    abort();
    return x;
}
void vq_ns_add(void) {
    abort();
}
void rk_L_add(void) {
    abort();
}
size_t vq_ns_data_size(void);
int32_t vq_ns_init(void* ns, int32_t in_rate, int32_t out_rate);
int32_t vq_ns_process(void* ns, const int16_t* in, int16_t* out, int32_t count);
#else
#include "basic_operators.h"
#include "log_exp.h"
#include "vq_ns.h"

static int print_flags(void) {
    rk_saturate(40000);
    printf("get_op1 %d OverflowBit %d bits of 255: %d\n", (int)get_op1, OverflowBit, logtable[255]);
    return 0;
}
#endif

int main(int argc, char** argv) {
    void* ns = malloc(vq_ns_data_size());
    if (ns == NULL || vq_ns_init(ns, 16000, 16000) != 0) return 1;
#ifndef CLASH
    if (argc > 1) return print_flags();
#endif
    (void)argc, (void)argv;
    uint32_t random = 1, hash = 2166136261u;
    int delivered = 0;
    for (int block = 0; block < 50; ++block) {
        int16_t in[160], out[160];
        for (int i = 0; i < 160; ++i) {
            random = random * 1664525u + 1013904223u;
            in[i] = (int16_t)((int32_t)(random >> 16) / 8 - 4096);
        }
        if (vq_ns_process(ns, in, out, 160) != 160) continue;
        ++delivered;
        for (int i = 0; i < 160; ++i) hash = (hash ^ (uint16_t)out[i]) * 16777619u;
    }
    printf("%d %08x\n", delivered, (unsigned)hash);
    return 0;
}
